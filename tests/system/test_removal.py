"""What the instruction file removes: at once or at the restart, by pattern, folders whole but never through a link."""
import os
import unittest

from brevantlab.expect import LabTest
from brevantlab.machine import PRODUCT, SETTINGS, Machine
from brevantlab.trace import failures


class Removal(LabTest):
    def left(self, machine):
        home = machine.host(PRODUCT)
        return {str(entry.relative_to(home)).replace('/', '\\') for entry in home.rglob('*')
                if entry.suffix not in ('.exe', '.dll', '.ini')}

    def test_now_and_at_the_restart(self):
        machine = self.enterContext(Machine())
        machine.install_program()
        machine.enable_trace()
        machine.set_value(SETTINGS + '\\1\\DebugLog\\ServiceSession', 'LogFolder', '')
        machine.set_value(SETTINGS, 'ProductPath', PRODUCT)
        machine.set_value(SETTINGS, 'Language', 'ja-jp')  # which keeps the product's old name
        machine.write(
            PRODUCT + 'QorPaFrwk.ini',
            '[QOR_DIR]\ndelete={InstalledDir}Old\ndelete={InstalledDir}Link\\\\\ndelete=Relative\\\n'
            '[QOR_FILE]\ndelete_now={InstalledDir}*.tmp\ndelete={InstalledDir}a?.log\ndelete={ServiceLogDir}*\n',
            'utf-16')
        for file in ('a.tmp', 'b.TMP', 'b.tm', 'a1.log', 'a22.log', 'Sub\\c.tmp', 'Old\\1.txt', 'Old\\Ü\\deep\\2.txt',
                     'Kept\\mine.txt'):
            machine.write(PRODUCT + file, 'content')
        machine.make_dir(PRODUCT + 'Old\\empty')
        machine.host(PRODUCT + 'a.tmp').chmod(0o444)
        machine.host(PRODUCT + 'Old\\1.txt').chmod(0o444)
        # Links look like junctions to the program. One in a folder to be cleared, and one as the folder to be cleared.
        for link in ('Old\\Junction', 'Link'):
            os.symlink('../Kept' if '\\' in link else 'Kept', machine.host(PRODUCT + link))

        code, messages = machine.run_traced(PRODUCT + 'Brevant.exe', '/DeployFramework')
        self.assertEqual(0, code)
        self.assertSame(["No files under directory 'Relative\\'", "Failed to delete file '*', error = 161."],
                        [text for text in failures(messages) if 'QueryValue' not in text])
        before = self.left(machine)
        self.assertLessEqual({'b.tm', 'a1.log', 'Old\\1.txt', 'Sub\\c.tmp', 'Kept\\mine.txt', 'Link'}, before)
        self.assertFalse({'a.tmp', 'b.TMP'} & before)

        registered = [path.removeprefix(PRODUCT) for path, _ in machine.pending_moves()]
        self.assertSame({'Old\\1.txt', 'Old\\Junction', 'Old\\empty', 'Old\\Ü\\deep\\2.txt', 'Old\\Ü\\deep',
                         'Old\\Ü', 'Old', 'Link', 'a1.log'}, set(registered))
        self.assertEqual([], [later for index, folder in enumerate(registered) for later in registered[index:]
                              if later.startswith(folder + '\\')], 'a folder goes after all that is in it')
        machine.restart()
        # Wine does not remove a link to a folder at the restart, nor the folder it lies in; Windows does both.
        self.assertSame({'b.tm', 'a22.log', 'Sub', 'Sub\\c.tmp', 'Kept', 'Kept\\mine.txt'},
                        self.left(machine) - {'Old', 'Old\\Junction', 'Link'})


if __name__ == '__main__':
    unittest.main()
