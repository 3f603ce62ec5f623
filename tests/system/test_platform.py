"""The assumptions about Windows, at once and over a restart."""
import os
import pathlib
import shutil
import unittest

from brevantlab.machine import PRODUCT, Machine
from brevantlab.prefix import BUILD, processes


class Platform(unittest.TestCase):
    def test_every_assumption(self):
        with Machine() as machine:
            machine.add_drive('E')
            machine.install_program()  # whose messages some rows look at
            shutil.copy2(BUILD / 'test/tests/WindowsTrial.exe', machine.host(PRODUCT))
            for options, kept in (('--now', 11), ('--prepare', 0), ('--after-restart', 5)):
                seen = machine.run(PRODUCT + 'WindowsTrial.exe', options)
                self.assertEqual(0, seen.code, seen.output)
                self.assertGreaterEqual(f'\n{seen.output}'.count('\nok '), kept, seen.output)
                self.assertNotIn('beside a BrevantCheck.exe', seen.output)
                if options == '--prepare':
                    machine.restart()
            drive, server = machine.host('E:\\'), f'server-*-{machine.prefix.stat().st_ino:x}'
        self.assertFalse(machine.root.exists() or drive.exists(), 'a machine leaves nothing')
        self.assertEqual([], [*processes(machine.prefix), *pathlib.Path(f'/tmp/.wine-{os.getuid()}').glob(server)])
