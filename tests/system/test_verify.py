"""A manifest of the sample update, and what the checking program says of the machine at every stage of its arrival."""
import json
import os
import unittest

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine

MANIFEST = 'C:\\update.json'
KEPT = {'ARRIVED', 'DELETED', 'VALUE RIGHT'}
RESTART_PENDING = 3010 & 0xFF


class Verify(LabTest):
    def verify(self, *arguments):
        """The exit code and {what: verdict} of all that is not kept."""
        result = self.machine.run(self.checker, 'verify', *arguments, '--format', 'json')
        answers = json.loads(result.output)['answers'] if result.code in (0, 1, RESTART_PENDING) else []
        return result.code, {answer['what']: answer['verdict'] for answer in answers if answer['verdict'] not in KEPT}

    def test_from_the_download_to_the_restart_and_after_damage(self):
        self.machine = machine = self.enterContext(SampleMachine())
        self.checker = machine.install + 'BrevantCheck.exe'
        machine.enable_trace()
        machine.mark_renamed()
        self.assertEqual(3, self.verify()[0], 'nothing has run')
        made = machine.run(self.checker, 'manifest', machine.install.rstrip('\\'))
        self.assertEqual(0, made.code, made.output)
        machine.write(MANIFEST, made.output)

        code, open_promises = self.verify(MANIFEST)
        self.assertEqual(1, code)
        self.assertIn('LEFT IN DOWNLOAD', open_promises.values())

        machine.run(machine.install + 'Brevant.exe', '/DeployFramework')
        for manifest in ([MANIFEST], []):
            code, open_promises = self.verify(*manifest)
            self.assertEqual((RESTART_PENDING, {'STILL WAITING'}), (code, set(open_promises.values())), open_promises)

        machine.restart()
        for manifest in ([MANIFEST], []):
            self.assertEqual((0, {}), self.verify(*manifest))

        row = next(row for row in machine.rows if row.source and row.target and row.target.startswith(machine.install))
        machine.write(row.target, 'damaged')
        patterns = machine.host(machine.install + 'Patterns')
        patterns.rename(patterns.with_name('Elsewhere'))
        os.symlink('Elsewhere', patterns)
        machine.set_value('HKLM\\SOFTWARE\\Kazmere\\KZVLT\\Vault', 'IdleMinutes', 16)
        code, open_promises = self.verify(MANIFEST)
        self.assertEqual(1, code)
        self.assertEqual(['DIFFERENT', 'REFUSED', 'VALUE DIFFERS'], sorted(open_promises.values()), open_promises)


if __name__ == '__main__':
    unittest.main()
