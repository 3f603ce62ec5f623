"""Deployments that are ended half-way, or that meet another one."""
import concurrent.futures
import time

from brevantlab.expect import LabTest
from brevantlab.layouts import MARKER, SampleMachine, lay_out
from brevantlab.machine import RUN_ONCE, SETTINGS, Machine
from brevantlab.standins import CANCEL, ENDED, FaultLibrary, Question

AGENT = 'C:\\Agent\\'
OTHER = 'C:\\Other\\'
PRODUCT = 'C:\\Product00\\'
LOCK = 'Brevant.lock'
UNFINISHED = '.unfinished'  # a working copy


class FaultyMachine(Machine):
    """Its trace library is a stand-in that ends the program at a trace line."""
    def __init__(self):
        super().__init__()
        self.library = FaultLibrary(self, AGENT)

    def lay_out(self, install=PRODUCT):
        self.set_value(SETTINGS, *MARKER)  # the product's new name is not part of the deployment
        lay_out(self, 'EN-US', install)

    def deploy(self, end=0):
        """Runs the program, up to the given trace line if one is given; returns its exit code."""
        self.library.end_at(end)
        return self.run(AGENT + 'Brevant.exe', '/DeployFramework').code

    def settings(self, install):
        """The product's registry, install folder and clock left out of it."""
        tree = self.read_tree(SETTINGS)
        del tree['']['FrwkDeployTick']
        return {subkey: {name: (kind, data.replace(install[3:-1], 'X') if isinstance(data, str) else data)
                         for name, (kind, data) in values.items()} for subkey, values in tree.items()}


class EndedHalfWay(LabTest):
    POINTS = 25

    def test_a_second_run_makes_it_whole(self):
        machine = self.enterContext(FaultyMachine())
        machine.lay_out()
        contents = set(machine.listing(PRODUCT).values())
        self.assertEqual(0, machine.deploy())
        lines = machine.library.lines()
        settings = machine.settings(PRODUCT)
        contents.update(machine.listing(PRODUCT).values())

        installs = {}
        for index in range(self.POINTS):
            line = 1 + lines * index // self.POINTS
            installs[line] = install = f'C:\\Product{index + 1:02}\\'
            machine.lay_out(install)
            self.assertEqual(ENDED, machine.deploy(line))
            deadline = time.monotonic() + 10  # Wine closes the files of a process a moment after its end
            while LOCK in machine.listing(install) and time.monotonic() < deadline:
                time.sleep(0.1)
            half = [name for name, content in machine.listing(install).items()
                    if content not in contents and 'UpdateInfo.' not in name]  # whose keys are written singly
            self.assertSame([], half, f'ended at line {line} of {lines}')
            self.assertNotIn(LOCK, list(machine.listing(install)))
            self.assertEqual(0, machine.deploy())
            self.assertSame(settings, machine.settings(install), f'ended at line {line} of {lines}')
            self.assertSame([], [name for name in machine.listing(install) if name.endswith(UNFINISHED)])
            machine.deploy(line)  # once more before the restart, which takes what this one leaves

        commands = machine.values(RUN_ONCE).values()
        machine.run('reg', 'delete', RUN_ONCE, '/va', '/f')  # some hundred programs
        machine.restart()
        undisturbed = machine.listing(PRODUCT)
        for line, install in installs.items():
            with self.subTest(f'ended at line {line} of {lines}'):
                found = {name: content for name, content in machine.listing(install).items()
                         if not name.endswith(UNFINISHED)}  # which the next run would delete
                self.assertSame(undisturbed, found)
                self.assertEqual(2, len({text for text in commands if install in text}))


class TwoAtOnce(LabTest):
    def setUp(self):
        self.pool = self.enterContext(concurrent.futures.ThreadPoolExecutor())

    def wait_until(self, condition):
        end = time.monotonic() + 60
        while not condition():
            self.assertLess(time.monotonic(), end)
            time.sleep(0.05)

    def start_half_way(self, machine):
        """Lays out two products, deploys to the first and half-way to the second; returns the run and its folder."""
        machine.lay_out()
        self.assertEqual(0, machine.deploy())
        install = 'C:\\Product01\\'
        machine.lay_out(install)
        machine.library.hold_at(machine.library.lines() // 2)
        run = self.pool.submit(machine.deploy)
        self.wait_until(machine.library.held)
        return run, install

    def state(self, machine, install):
        return machine.listing(install), machine.read_tree(SETTINGS), machine.pending_moves()

    def test_the_second_waits_for_the_first(self):
        machine = self.enterContext(FaultyMachine())
        machine.install_program(OTHER)
        machine.enable_trace()
        first, install = self.start_half_way(machine)
        before = self.state(machine, install)
        second = self.pool.submit(machine.run, OTHER + 'Brevant.exe', '/DeployFramework')
        waits = f'@@@ DeploymentLock::Take() - another run changes [{install}] and is waited for.'
        self.wait_until(lambda: waits in machine.messages())
        time.sleep(3)  # longer than a run waits for a lock that is being deleted
        self.assertSame(before, self.state(machine, install))
        machine.library.go_on()
        self.assertEqual((0, 0), (first.result(), second.result().code))
        self.assertNotIn('!!! Patch Agent failed to perform update', machine.messages())
        self.assertIn('.w. [Leave] FrameworkDeployAgent::DoPostAction()...', machine.messages())
        machine.restart()
        self.assertSame(machine.listing(PRODUCT), machine.listing(install))

    def test_the_second_gives_up_and_changes_nothing(self):
        machine = self.enterContext(FaultyMachine())
        FaultLibrary(machine, OTHER).hurry()
        first, install = self.start_half_way(machine)
        before = self.state(machine, install)
        self.assertIn(LOCK, list(before[0]))
        for argument, code in (('/DeployFramework', 255), ('anything', 0)):
            self.assertEqual(code, machine.run(OTHER + 'Brevant.exe', argument).code)
            self.assertSame(before, self.state(machine, install))
        machine.library.go_on()
        self.assertEqual(0, first.result())
        self.assertNotIn(LOCK, list(machine.listing(install)))

    def test_a_question_keeps_no_run_waiting(self):
        machine = self.enterContext(SampleMachine('DE-DE'))
        question = Question(machine, machine.install)
        question.hold()
        program = machine.install + 'Brevant.exe'
        first = self.pool.submit(machine.run, program, '/DeployFramework')
        self.wait_until(question.asked)
        self.assertIn('Bitte starten Sie den Computer neu', question.asked()['message'])
        self.assertEqual(0, machine.run(program, '/DeployFramework').code)
        self.assertFalse(first.done())
        self.assertFalse([line for line in machine.messages() if 'DeploymentLock' in line])
        question.answer(CANCEL)
        self.assertEqual(0, first.result().code)
