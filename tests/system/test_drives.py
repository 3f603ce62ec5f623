"""An installation on another drive than Windows: files for that drive are staged beside their place."""
import unittest

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine
from brevantlab.machine import SETTINGS

PRELOAD = 'C:\\ProgramData\\Kazmere\\KZVLT\\Engine\\Preload\\preload.dat'


class Drives(LabTest):
    def deploy(self, taken):
        """Deploys with that many of the stage names taken; returns the machine, its trace and its moves."""
        machine = self.enterContext(SampleMachine(install='D:\\Kazmere\\', drives='D'))
        machine.set_value(SETTINGS, 'Language', 'ja-jp')  # which keeps the old name; no file is of that language
        for index in range(taken):
            machine.write(f'{PRELOAD}{index}', 'taken')
        code, messages = machine.agent('/DeployFramework')
        self.assertEqual(0, code)
        return machine, messages, dict(machine.pending_moves())

    def test_staged_under_the_first_free_name(self):
        machine, messages, moves = self.deploy(2)
        source = machine.folders['product'] + 'Engine\\Preload\\preload.dat'
        start = messages.index(f'@@@ src: {source}, dst:{PRELOAD}')
        self.assertSame(['@@@ copy to a different drive',
                         *(f'@@@ {text}' for index in range(2) for text in (
                             f'tsTempFileWithIndex: {PRELOAD}{index}',
                             f'::CopyFile({PRELOAD}{index}) failed: ERROR_ALREADY_EXISTS')),
                         f'@@@ tsTempFileWithIndex: {PRELOAD}2',
                         '.w. [Leave] FrameworkDeployAgent::CopyFileAfterReboot()...'],
                        messages[start + 1:start + 8])
        self.assertEqual('!' + PRELOAD, moves[PRELOAD + '2'])
        self.assertIn('!D:\\Kazmere\\KzVault.dll', moves.values())

        machine.restart()
        moved = {row.target: row.new for row in machine.rows if row.target and row.new}
        self.assertSame(moved, {target: machine.read(target) for target in moved})
        self.assertIsNotNone(machine.read(source), 'the package keeps what was staged')
        self.assertIsNone(machine.read(PRELOAD + '2'))
        self.assertEqual('taken', machine.read(PRELOAD + '1'))

    def test_no_stage_name_left(self):
        machine, messages, moves = self.deploy(100)
        self.assertIn('!!! could not create temp file', messages)
        self.assertEqual([], [target for target in moves.values() if 'preload.dat' in target])
        self.assertIn('!D:\\Kazmere\\KzEngine.dll', moves.values(), 'the next file follows')
        self.assertEqual(100, sum(text.endswith('failed: ERROR_ALREADY_EXISTS') for text in messages))


if __name__ == '__main__':
    unittest.main()
