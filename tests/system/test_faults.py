"""Deployments that are ended half-way."""
import unittest

from brevantlab.expect import LabTest
from brevantlab.layouts import MARKER, lay_out
from brevantlab.machine import RUN_ONCE, SETTINGS, Machine
from brevantlab.standins import ENDED, FaultLibrary

AGENT = 'C:\\Agent\\'
PRODUCT = 'C:\\Product00\\'


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
    POINTS = 50

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
            half = [name for name, content in machine.listing(install).items()
                    if content not in contents and 'UpdateInfo.' not in name]  # whose keys are written singly
            self.assertSame([], half, f'ended at line {line} of {lines}')
            self.assertEqual(0, machine.deploy())
            self.assertSame(settings, machine.settings(install), f'ended at line {line} of {lines}')

        commands = machine.values(RUN_ONCE).values()
        machine.run('reg', 'delete', RUN_ONCE, '/va', '/f')  # some hundred programs
        machine.restart()
        undisturbed = machine.listing(PRODUCT)
        for line, install in installs.items():
            with self.subTest(f'ended at line {line} of {lines}'):
                self.assertSame(undisturbed, machine.listing(install))
                self.assertEqual(2, len({text for text in commands if install in text}))


if __name__ == '__main__':
    unittest.main()
