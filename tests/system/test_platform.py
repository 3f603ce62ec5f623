"""What only a restart shows of the assumptions about Windows; the rest is tried by platform.now."""
import unittest

from brevantlab.machine import Machine
from brevantlab.prefix import BUILD

TRIAL = BUILD / 'test' / 'tests' / 'WindowsTrial.exe'


class Platform(unittest.TestCase):
    def test_what_a_restart_shows(self):
        with Machine() as machine:
            prepared = machine.run(TRIAL, '--prepare')
            self.assertEqual(0, prepared.code, prepared.output)
            machine.restart()
            seen = machine.run(TRIAL, '--after-restart')
            self.assertEqual(0, seen.code, seen.output)
            self.assertGreaterEqual(seen.output.count('\nok '), 4, seen.output)
