"""What each argument starts, and what a run does on a machine that lacks something."""
import shutil

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine
from brevantlab.machine import RUN_ONCE, SETTINGS


class Dispatch(LabTest):
    def test_arguments(self):
        with SampleMachine() as machine:
            machine.mark_renamed()

            def state():
                return {**machine.read_tree('HKLM\\Software\\Kazmere'), **machine.listing(machine.install)}

            before = state()
            code, messages = machine.agent()
            self.assertEqual(0, code)
            self.assertSame(before, state())
            self.assertEqual(([], {}), (machine.pending_moves(), machine.values(RUN_ONCE)))

            # The deployment comes last: its registry flags must not be there before.
            for arguments in (['/deployframework'], ['/DeployFramework '], ['/applynewname'], ['/ApplyNewName2'],
                              ['anything', '/DeployFramework'], [''], ['/ApplyNewName', '/DeployFramework'],
                              ['/DeployFramework', '/ApplyNewName']):
                with self.subTest(arguments):
                    code, traced = machine.agent(*arguments)
                    self.assertEqual(0, code)
                    messages += traced
                    self.assertEqual(arguments[0] == '/DeployFramework', 'DoUpdateDeploy' in machine.values(SETTINGS))
            self.assertTraced('arguments', messages)

    def test_without_a_library_of_windows_nothing_is_changed(self):
        traced = []
        with SampleMachine() as machine:
            system = machine.host('C:\\windows\\system32')
            shutil.copy(machine.host(machine.install) / 'KzDbg64.dll', system / 'other.dll')  # without its functions
            for library, order, argument, expected in (
                    ('setupapi', 'd', '/DeployFramework', 255), ('shell32', 'd', '/ApplyNewName', 0),
                    ('wtsapi32', 'd', 'anything', 0), ('setupapi', 'n', '/DeployFramework', 255)):
                with self.subTest(library=library, order=order):
                    if order == 'n':
                        (system / 'other.dll').replace(system / f'{library}.dll')
                    files, settings = machine.listing(machine.install), machine.read_tree(SETTINGS)
                    usual, machine.overrides = machine.overrides, {library: order}
                    code, messages = machine.agent(argument)
                    machine.overrides = usual  # the tools of the machine need the library, too
                    self.assertEqual(set(), set(files.items()) ^ set(machine.listing(machine.install).items()))
                    self.assertEqual(settings, machine.read_tree(SETTINGS))
                    self.assertEqual(([], {}), (machine.pending_moves(), machine.values(RUN_ONCE)))
                    self.assertEqual(expected, code)
                    traced += messages
        self.assertTraced('libraries', traced)

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
