"""What only a whole machine shows of shortcuts and new name: links inside a junction, and no install folder."""
import os
import unittest

from brevantlab.layouts import MARKER
from brevantlab.machine import PRODUCT, RUN_ONCE, SETTINGS, Machine

PROGRAMS = 'C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\'


def description(link):
    folders = (f'<Folder name="{name}"><Shortcut lnk="Brevant.exe">{link}</Shortcut></Folder>'
               for name in ('Kazmere\\Away', 'Kazmere\\Away\\Inner', 'Link', 'Own'))
    return f'<S><StartMenu available="1">{"".join(folders)}</StartMenu></S>'


class Shortcuts(unittest.TestCase):
    def test_links_inside_a_junction(self):
        machine = self.enterContext(Machine())
        machine.install_program()
        machine.enable_trace()
        machine.set_value(SETTINGS, 'ProductPath', PRODUCT)
        machine.write(PRODUCT + 'qorshcutbackup.xml', description('Old'))
        # Links look like junctions to the program.
        for folder, link, inside in (('One', 'Kazmere\\Away', ('Old.lnk', 'mine.lnk', 'Inner\\Old.lnk')),
                                     ('Two', 'Link', ('Old.lnk',))):
            for name in inside:
                machine.write(f'C:\\{folder}\\{name}', '')
            place = machine.host(PROGRAMS + link)
            place.parent.mkdir(parents=True, exist_ok=True)
            os.symlink(machine.host(f'C:\\{folder}'), place)
        machine.write(PROGRAMS + 'Own\\Old.lnk', '')

        def found():
            return {str(entry.relative_to(machine.host('C:\\'))).replace('/', '\\')
                    for folder in ('C:\\One', 'C:\\Two', PROGRAMS + 'Own') for entry in machine.host(folder).rglob('*')}

        def run():
            code, messages = machine.run_traced(PRODUCT + 'Brevant.exe', '/ApplyNewName')
            self.assertEqual(0, code)
            for link in ('Kazmere\\Away', 'Link'):
                self.assertTrue(machine.host(PROGRAMS + link).is_symlink(), messages)
            return [text for text in messages if 'a link to another place' in text]

        self.assertEqual({f'@@@ Folder {PROGRAMS}{link} stays: it is a link to another place.'
                          for link in ('Kazmere\\Away', 'Link')}, set(run()))
        self.assertEqual({'One\\mine.lnk'}, found())
        self.assertFalse(machine.host(PROGRAMS + 'Own').exists())

        machine.write(PRODUCT + 'qorshcut.xml', description('New'))
        run()
        self.assertEqual({'One\\mine.lnk', 'One\\New.lnk', 'One\\Inner', 'One\\Inner\\New.lnk', 'Two\\New.lnk',
                          PROGRAMS[3:] + 'Own\\New.lnk'}, found())

    def test_without_an_install_folder_no_new_name_is_scheduled(self):
        machine = self.enterContext(Machine())
        machine.install_program('C:\\work\\')
        machine.enable_trace()
        machine.set_value(SETTINGS, 'Version', '3.8.0.1099')
        for folder, line in (('', True), (PRODUCT, False)):
            with self.subTest(folder):
                machine.set_value(SETTINGS, 'ProductPath', folder)
                code, messages = machine.run_traced('C:\\work\\Brevant.exe', 'decide')
                self.assertEqual(0, code)
                self.assertEqual(line, '!!! *** CanScheduleNewName() - the install folder is not known, the new name '
                                       'is not scheduled.' in messages)
                self.assertEqual(not line, MARKER[0] in machine.values(SETTINGS))
                self.assertEqual([] if line else [PRODUCT + 'Brevant.exe /ApplyNewName'],
                                 list(machine.values(RUN_ONCE).values()))


if __name__ == '__main__':
    unittest.main()
