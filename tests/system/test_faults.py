"""Deployments that are ended half-way, and machines on which not everything is as it should be."""
import os
import shutil
import subprocess
import unittest

from machine import SETTINGS, Machine
from sample_machine import MARKER, RUN_ONCE, lay_out

AGENT = 'C:\\Agent\\'
PRODUCT = 'C:\\Product00\\'
SESSION_MANAGER = 'HKLM\\System\\CurrentControlSet\\Control\\Session Manager'
LEFTOVER = '~kzcomn-fffffff0-00.tmp'  # as a run that is ended while it replaces a file leaves it
ENDED = 66  # the exit code of a process that the stand-in ends


class FaultyMachine(Machine):
    """Its trace library is a stand-in that ends the program at a trace line, or locks files."""
    def __init__(self):
        super().__init__()
        self.install_program(AGENT, standins=['KzDbgFault'])
        self.host(AGENT + 'KzDbgFault.dll').replace(self.host(AGENT + 'KzDbg64.dll'))

    def lay_out(self, install=PRODUCT):
        self.set_value(SETTINGS, *MARKER)  # the product's new name is not part of the deployment
        return lay_out(self, 'EN-US', install)

    def deploy(self, end=0):
        """Runs the program, up to the given trace line if one is given; returns its exit code."""
        self.write(AGENT + 'fault.end', str(end))
        return self.run(AGENT + 'Brevant.exe', '/DeployFramework').code

    def listing(self, install=PRODUCT):
        home = self.host(install)
        return {str(file.relative_to(home)): file.read_bytes() for file in home.rglob('*') if file.is_file()}

    def settings(self, install):
        """The product's registry, install folder and clock left out of it."""
        tree = self.read_tree(SETTINGS)
        del tree['']['FrwkDeployTick']
        return str(tree).replace(install[3:-1], 'X')


class EndedHalfWay(unittest.TestCase):
    POINTS = 50

    def test_a_second_run_makes_it_whole(self):
        machine = self.enterContext(FaultyMachine())
        machine.lay_out()
        contents = set(machine.listing().values())
        self.assertEqual(0, machine.deploy())
        lines = int(machine.read(AGENT + 'fault.count'))
        settings = machine.settings(PRODUCT)
        contents.update(machine.listing().values())

        installs = {}
        for index in range(self.POINTS):
            line = 1 + lines * index // self.POINTS
            installs[line] = install = f'C:\\Product{index + 1:02}\\'
            machine.lay_out(install)
            self.assertEqual(ENDED, machine.deploy(line))
            half = [name for name, content in machine.listing(install).items()
                    if content not in contents and 'UpdateInfo.' not in name]  # whose keys are written singly
            self.assertEqual([], half, f'ended at line {line} of {lines}')
            self.assertEqual(0, machine.deploy())
            self.assertEqual(settings, machine.settings(install), f'ended at line {line} of {lines}')

        commands = machine.values(RUN_ONCE).values()
        machine.run('reg', 'delete', RUN_ONCE, '/va', '/f')  # some hundred programs
        machine.restart()
        undisturbed = machine.listing()
        for line, install in installs.items():
            with self.subTest(f'ended at line {line} of {lines}'):
                self.assertEqual(undisturbed, machine.listing(install))
                self.assertEqual(2, len({text for text in commands if install in text}))


class Obstacles(unittest.TestCase):
    def test_what_is_in_the_way_hinders_nothing_else(self):
        machine = self.enterContext(FaultyMachine())
        rows = {row.target: row for row in machine.lay_out() if row.target}
        package = {name: row.source for name, row in rows.items() if row.source}
        machine.write(AGENT + 'fault.lock', f'{PRODUCT}Driver\\kbfilter.sys\n{package[PRODUCT + "QorUI.dll"]}\n')
        machine.host(package[PRODUCT + 'KzVault.dll']).chmod(0o444)
        shutil.rmtree(machine.host(PRODUCT + 'Task'))
        machine.write(PRODUCT + 'Task', 'no folder')
        for name, data in (('IdleMinutes', 'text'), ('Columns', b'\1\2\3'), ('Theme', 7)):
            machine.set_value(SETTINGS + '\\Vault', name, data)
        machine.write(package[PRODUCT + 'KzVault.dll'].rpartition('\\')[0] + '\\' + LEFTOVER, 'half a file')
        foreign = ['\\??\\C:\\foreign\\1', '', '\\??\\C:\\foreign\\2', '!\\??\\C:\\foreign\\3', '\\??\\X:\\none',
                   '\\??\\C:\\forei\u00dfn\\4']
        for index in (1, 2, 3):
            machine.write(f'C:\\foreign\\{index}', str(index))
        machine.set_value(SESSION_MANAGER, 'PendingFileRenameOperations', foreign)

        self.assertEqual(0, machine.deploy())
        pending = machine.values(SESSION_MANAGER)['PendingFileRenameOperations']
        self.assertEqual(foreign, pending[:len(foreign)])
        vault = machine.read_tree(SETTINGS + '\\Vault')['']
        self.assertEqual([('dword', 15), ('dword', 4), ('sz', 'light')],
                         [vault[name] for name in ('IdleMinutes', 'Columns', 'Theme')])

        machine.host(package[PRODUCT + 'Qorvault.exe']).unlink()
        machine.restart()
        hindered = {PRODUCT + 'Driver\\kbfilter.sys': rows[PRODUCT + 'Driver\\kbfilter.sys'].old,
                    PRODUCT + 'Qorvault.exe': None, PRODUCT + 'Task': 'no folder'}
        for name, row in rows.items():
            if not name.startswith(PRODUCT + 'Task\\') and not name.endswith('.lnk'):
                self.assertEqual(hindered.get(name, row.new), machine.read(name), name)
        self.assertEqual('no folder', machine.read(PRODUCT + 'Task'))
        self.assertIsNone(machine.read(PRODUCT + LEFTOVER), 'no file of the package')
        self.assertEqual([None, None, '2'], [machine.read(f'C:\\foreign\\{index}') for index in (1, 2, 3)])

    @unittest.skipUnless(os.geteuid() == 0, 'only root can mount a small file system')
    def test_full_drive(self):
        machine = self.enterContext(FaultyMachine())
        machine.add_drive('D')
        full = machine.host('C:\\ProgramData\\Kazmere\\KZVLT\\Engine\\Preload')
        full.mkdir(parents=True)
        if subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=16k', 'none', full], stderr=subprocess.DEVNULL).returncode:
            self.skipTest('no small file system can be mounted here')
        self.addCleanup(subprocess.run, ['umount', full], check=True)
        rows = machine.lay_out('D:\\Product\\')
        package = next(row for row in rows if row.target and row.target.endswith('preload.dat'))
        machine.write(package.source, 'x' * 50000)
        self.assertEqual(0, machine.deploy())
        machine.restart()
        self.assertEqual(package.old, machine.read(package.target))
        self.assertIn('new', machine.read('D:\\Product\\KzEngine.dll'), 'the next file follows')


if __name__ == '__main__':
    unittest.main()
