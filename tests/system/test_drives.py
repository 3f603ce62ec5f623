"""An installation on another drive than Windows: files for that drive are staged beside their place."""
import unittest

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine
from brevantlab.machine import SETTINGS

PRELOAD = 'C:\\ProgramData\\Kazmere\\KZVLT\\Engine\\Preload\\preload.dat'


class Drives(LabTest):
    def test_staged_under_the_first_free_name(self):
        machine = self.enterContext(SampleMachine(install='D:\\Kazmere\\', drives='D'))
        machine.set_value(SETTINGS, 'Language', 'ja-jp')  # which keeps the old name; no file is of that language
        machine.write(PRELOAD + '0', 'taken')
        self.assertEqual(0, machine.agent('/DeployFramework')[0])
        moves = dict(machine.pending_moves())
        self.assertEqual('!' + PRELOAD, moves[PRELOAD + '1'])
        self.assertIn('!D:\\Kazmere\\KzVault.dll', moves.values())

        machine.restart()
        moved = {row.target: row.new for row in machine.rows if row.target and row.new}
        self.assertSame(moved, {target: machine.read(target) for target in moved})
        staged = machine.folders['product'] + 'Engine\\Preload\\preload.dat'
        self.assertIsNotNone(machine.read(staged), 'the package keeps what was staged')
        self.assertEqual(('taken', None), (machine.read(PRELOAD + '0'), machine.read(PRELOAD + '1')))


if __name__ == '__main__':
    unittest.main()
