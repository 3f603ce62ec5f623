"""What each argument starts, and what a run does on a machine that lacks something."""

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine
from brevantlab.machine import RUN_ONCE, SETTINGS

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
            for library, argument, expected in (('setupapi', '/DeployFramework', 255), ('shell32', '/ApplyNewName', 0),
                                                ('wtsapi32', 'anything', 0)):
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

    def test_libraries_come_from_the_system_folder_and_a_drive_alone_is_its_root(self):
        with SampleMachine() as machine:
            machine.install_program(machine.install, standins=['Planted'])
            machine.agent('anything')
            self.assertIn('style', machine.read(machine.install + 'wtsapi32.log'), 'the one that loads another has run')
            self.assertIsNone(machine.read(machine.install + 'planted.log'))
            machine.make_dir('C:\\Current')
            for folder in ('C:', 'C:\\'):
                machine.enable_trace(folder=folder)
                machine.run(machine.install + 'Brevant.exe', cwd=machine.host('C:\\Current'))
                machine.host('C:\\KZVLT_Brevant.log').unlink()

    def test_without_a_trace_the_deployment_goes_on(self):
        machine = self.enterContext(SampleMachine())
        machine.mark_renamed()

        def deploy():
            before = len(machine.pending_moves())
            code, messages = machine.agent('/DeployFramework')
            return code, bool(messages), len(machine.pending_moves()) - before

        deploy()  # what it changes at once is changed
        moves = deploy()[2]
        folder = machine.host('C:\\Trace')
        folder.rename(machine.root / 'kept')
        folder.write_text('no folder')
        self.assertEqual((0, False, moves), deploy())
        folder.unlink()
        folder.mkdir()
        machine.host(machine.install + 'KzDbg64.dll').unlink()
        self.assertEqual((0, False, moves), deploy())
