"""What "ready" finds on a machine: nothing before a deployment, then one obstacle after another."""
import json
import unittest

from brevantlab.expect import LabTest, faults
from brevantlab.layouts import SampleMachine
from brevantlab.machine import SESSION_MANAGER

POWER = SESSION_MANAGER + '\\Power'
HIBERNATION = 'HKLM\\SYSTEM\\CurrentControlSet\\Control\\Power'
TERABYTE = 1 << 40


class Ready(LabTest):
    def found(self):
        """(number, name of the file or folder) of each finding."""
        result = self.machine.run(self.machine.install + 'BrevantCheck.exe', 'ready',
                                  self.machine.install.rstrip('\\'), '--format', 'json', errors=False)
        told = json.loads(result.output)
        self.assertEqual([], faults('ready', told))
        found = {(row['number'], row['what'].rstrip('\\').split('\\')[-1]) for row in told['findings']}
        self.assertEqual((int(bool(found)), not found), (result.code, told['ready']))
        return found

    def test_each_obstacle_is_found(self):
        self.machine = machine = self.enterContext(SampleMachine())
        machine.mark_renamed()
        machine.set_value(POWER, 'HiberbootEnabled', 1)
        machine.set_value(HIBERNATION, 'HibernateEnabled', 0)
        self.assertEqual(set(), self.found())
        machine.host(machine.install + 'QorPaFrwk.ini').chmod(0o666)
        setting = next(machine.host(machine.install).glob('Component/*/Share/Setting'))
        setting.chmod(0o777)
        machine.host(machine.install + 'Resource\\EN-US').chmod(0o777)
        machine.host('C:\\Program Files').chmod(0o777)
        self.assertEqual({(6, name) for name in ('Program Files', 'QorPaFrwk.ini', 'Setting', 'EN-US')}, self.found())
        machine.host('C:\\Program Files').chmod(0o755)
        machine.host(machine.install + 'QorPaFrwk.ini').chmod(0o644)
        machine.host(machine.install + 'Resource\\EN-US').chmod(0o755)

        machine.set_value(HIBERNATION, 'HibernateEnabled', 1)
        machine.set_value(SESSION_MANAGER, 'PendingFileRenameOperations', [
            '\\??\\C:\\other.dll', f'!\\??\\{machine.install}Qorvault.exe', f'\\??\\{machine.install}config.xml', '',
            '\\??\\C:\\other.dll', '!\\??\\C:\\elsewhere.dll',
            # a file that is brought at once, a new folder, a file to be deleted
            f'\\??\\{machine.install}Driver\\kbfilter.sys', '!\\??\\C:\\old.sys',
            f'\\??\\{machine.install}Policy\\', '', '\\??\\C:\\other.dll', f'!\\??\\{machine.install}KeystrideBar.dll'])
        with open(setting / 'readme_EN-US.htm', 'ab') as file:
            file.truncate(8 * TERABYTE)
        machine.host(machine.install + 'Component').chmod(0o777)
        machine.host(machine.install + 'Patterns').rename(machine.host(machine.install + 'Patterns2'))
        machine.host(machine.install + 'Patterns').write_text('a file')
        found = self.found()
        moved = 'Qorvault.exe', 'config.xml', 'kbfilter.sys', 'Policy', 'KeystrideBar.dll'
        self.assertEqual({(1, 'C:'), *((3, name) for name in moved), (6, 'Component'), (7, 'Fast Startup')},
                         {row for row in found if row[0] != 5})
        self.assertIn(5, [number for number, _ in found])

    def test_an_update_that_waits_or_has_arrived(self):
        self.machine = machine = self.enterContext(SampleMachine())
        machine.mark_renamed()
        machine.run(machine.install + 'Brevant.exe', '/DeployFramework')
        self.assertEqual({(4, 'Component')}, self.found())
        machine.restart()
        self.assertIn((8, 'UpdateInfo.ini'), self.found())
        path, section = machine.install + 'QorPaFrwk.ini', '[UPDATE_INFO]\n'
        other = f'{section}modify=COMPONENT_LIST!Component103_iUD_Version!1.8.1020\n'
        machine.write(path, machine.read(path, 'utf-16').replace(section, other), 'utf-16')
        self.assertNotIn((8, 'UpdateInfo.ini'), self.found(), 'only some of the versions')
        machine.run('reg.exe', 'delete', 'HKLM\\Software\\Kazmere', '/f')
        told = machine.run(machine.install + 'BrevantCheck.exe', 'ready', machine.install.rstrip('\\'))
        self.assertEqual((3, 1, True), (told.code, told.output.count('\n'), 'registry' in told.output), told.output)


if __name__ == '__main__':
    unittest.main()
