"""What each argument starts, and that bad input leaves its line while the run goes on."""
import collections
import contextlib
import unittest

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine
from brevantlab.machine import RUN_ONCE, SETTINGS, Machine
from brevantlab.trace import failures

STOP = '@@@ ***QorPatchTool.exe stop.'
STEPS = {
    '.w. [Enter] FrameworkDeployAgent::DoPreAction()...': 'prepare',
    '.w. [Enter] FrameworkDeployAgent::DoDeploy()...': 'deploy',
    '.w. [Enter] FrameworkDeployAgent::DoPostAction()...': 'post',
    STOP: 'stop',
    '.w. CheckIfNewProdNameApplied()': 'decide',
    '.w. PostUdActionForNewName()': 'rename',
}


class Dispatch(LabTest):
    def test_arguments(self):
        with SampleMachine() as machine:
            machine.mark_renamed()

            def state():
                return {**machine.read_tree('HKLM\\Software\\Kazmere'), **machine.listing(machine.install)}

            before = state()
            code, messages = machine.agent()
            self.assertEqual((0, ['@@@ Paramter is not right', STOP]), (code, messages))
            self.assertSame(before, state())
            self.assertEqual(([], {}), (machine.pending_moves(), machine.values(RUN_ONCE)))

            # The deployment comes last: its registry flags must not be there before.
            for arguments, expected in (
                (['/deployframework'], 'stop decide'),
                (['/DeployFramework '], 'stop decide'),
                (['/applynewname'], 'stop decide'),
                (['anything', '/DeployFramework'], 'stop decide'),
                ([''], 'stop decide'),
                (['/ApplyNewName', '/DeployFramework'], 'rename'),
                (['/DeployFramework', '/ApplyNewName'], 'prepare deploy post stop decide'),
            ):
                with self.subTest(arguments):
                    code, messages = machine.agent(*arguments)
                    self.assertEqual(0, code)
                    self.assertEqual(f'@@@ Paramter is {arguments[0]}', messages[0])
                    self.assertEqual(expected.split(), [STEPS[text] for text in messages if text in STEPS])
                    self.assertEqual('deploy' in expected, 'DoUpdateDeploy' in machine.values(SETTINGS))

    def test_without_a_library_of_windows_nothing_is_changed(self):
        with SampleMachine() as machine:
            for library, argument, expected in (
                ('setupapi', '/DeployFramework', 255),
                ('wtsapi32', '/DeployFramework', 255),
                ('crypt32', '/DeployFramework', 255),
                ('shell32', '/ApplyNewName', 0),
                ('wtsapi32', 'anything', 0),
            ):
                with self.subTest(library=library, argument=argument):
                    files, settings = machine.listing(machine.install), machine.read_tree(SETTINGS)
                    usual, machine.overrides = machine.overrides, {library: 'd'}
                    code, messages = machine.agent(argument)
                    machine.overrides = usual  # the tools of the machine need the library, too
                    self.assertEqual(set(), set(files.items()) ^ set(machine.listing(machine.install).items()))
                    self.assertEqual(settings, machine.read_tree(SETTINGS))
                    self.assertEqual(([], {}), (machine.pending_moves(), machine.values(RUN_ONCE)))
                    failures = [f'!!! *** {library}.dll is missing in Windows: nothing is changed. [0x0000007e]']
                    failures += ['!!! Patch Agent failed to perform update'] if expected else []
                    self.assertEqual((expected, failures), (code, [text for text in messages if text[0] == '!']))
                    self.assertNotIn('prepare', [STEPS.get(text) for text in messages])

    def test_libraries_of_windows_find_theirs_in_the_system_folder_only(self):
        with SampleMachine() as machine:
            machine.install_program(machine.install, standins=['Planted'])
            machine.agent('anything')
            self.assertIn('style', machine.read(machine.install + 'wtsapi32.log'), 'the one that loads another has run')
            self.assertIsNone(machine.read(machine.install + 'planted.log'))

    def test_a_machine_without_the_product(self):
        with Machine() as machine:
            # Nothing may be taken from the current folder in place of the unknown install folder.
            machine.write('C:\\work\\QorPaFrwk.ini', '[QOR_DIR]\nadd=C:\\work\\made\n')
            machine.write('C:\\work\\Component\\c21t2101v0.0.0l1p-1r1o1\\stray.txt', 'stray')
            machine.install_program('C:\\work\\')
            result = machine.run('C:\\work\\Brevant.exe', '/DeployFramework', cwd=machine.host('C:\\work'))
            self.assertEqual(0, result.code)
            self.assertEqual(1, machine.values(SETTINGS)['DoUpdateDeploy'])
            self.assertEqual([], machine.pending_moves())
            self.assertFalse(machine.host('C:\\work\\made').exists())


# In the order of the run.
READERS = ('CreateDirBeforeReboot() - QueryValue', 'PatchRegistry() - QueryValue',
           'MergeConfig() - QueryValue(QOR_CONFIG_MERGE)', 'ModifyUpdateInfo() - QueryValue',
           'RemoveFileAfterReboot() - QueryValue', 'PostRunScript() - QueryValue')


class BadInput(LabTest):
    def setUp(self):
        self.machine = self.enterContext(SampleMachine())
        self.machine.mark_renamed()

    @contextlib.contextmanager
    def without(self, path, instead=None):
        """Takes a file or folder away for a while; `instead`: the text that stands there then, or a folder."""
        place, kept = self.machine.host(path), self.machine.root / 'kept'
        if place.exists():
            place.rename(kept)
        if instead is dict:
            place.mkdir()
        elif instead is not None:
            place.write_text(instead)
        try:
            yield
        finally:
            if instead is dict:
                place.rmdir()
            if kept.exists():
                place.unlink(missing_ok=True)
                kept.rename(place)

    def deploy(self):
        """Failure lines (None without a trace) and the number of files registered to move."""
        before = len(self.machine.pending_moves())
        code, messages = self.machine.agent('/DeployFramework')
        self.assertEqual((0, 1), (code, self.machine.values(SETTINGS)['DoUpdateDeploy']))
        found = collections.Counter(failures(messages))
        moves = sum(1 for _, target in self.machine.pending_moves()[before:] if target)
        return found if messages else None, moves

    def test_run_goes_on(self):
        install, package, share = (self.machine.folders[name] for name in ('install', 'package', 'share'))
        self.deploy()  # what it changes at once is changed
        usual, moves = self.deploy()
        self.assertIn('Failed to copy UpdateInfo.ini to iUD download source folder, error code is 80. '
                      'Modify installed one.', usual)
        other_platform = '[COMPONENT_LIST]\nComponent1_DownloadPath=c21t2103v3.9.0l1p1r1o1\n'
        readme = share + 'Setting\\readme_EN-US.htm'
        # What is missing or in the way, the failure lines that are new then, the number of moves.
        for name, spoilt, expected, count in (
            ('update information', self.without(install + 'UpdateInfo.ini'), [], 0),
            ('this platform', self.without(install + 'UpdateInfo.ini', other_platform), [], 0),
            ('product package', self.without(self.machine.folders['product']), [], 2),
            ('resource package', self.without(self.machine.folders['resource']), [], moves - 2),
            ('settings', self.without(share + 'Setting'),
             [f"No files under directory '{share}Setting\\'"], moves - 11),
            ('instructions', self.without(install + 'QorPaFrwk.ini'),
             [*(f'*** FrameworkDeployAgent::{reader} failed. [0x00000002]' for reader in READERS[:3]),
              "*** FrameworkDeployAgent::MergeConfig() - the user's settings are kept in "
              f'[{install}config.previous.xml].',
              *(f'*** FrameworkDeployAgent::{reader} failed. [0x00000002]' for reader in READERS[3:])], moves),
            ('file of the language', self.without(readme),
             [f"Failed to do file copy. dest='{share}Setting\\readme.htm', src='{readme}', error code=2"], moves - 1),
            ('driver', self.without('C:\\kbfilter.sys', dict),
             [f"Failed to do file copy. dest='C:\\kbfilter.sys', src='{package}Driver\\kbfilter.sys', error code=5"],
             moves),
            ('trace library', self.without(install + 'KzDbg64.dll'), None, moves),
            ('trace folder', self.without('C:\\Trace', ''), None, moves),
        ):
            with self.subTest(name), spoilt:
                found, registered = self.deploy()
                self.assertEqual(count, registered)
                self.assertSame(expected, found if found is None else list((found - usual).elements()))


if __name__ == '__main__':
    unittest.main()
