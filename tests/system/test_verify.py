"""A manifest that the sample update brings, and what the checking program says of the machine at every stage of its
arrival."""
import json
import os

from brevantlab.expect import LabTest
from brevantlab.layouts import SampleMachine

MANIFEST = 'C:\\update.json'
REDIRECTED = 'C:\\redirected.json'
KEPT = {'ARRIVED', 'DELETED', 'VALUE RIGHT'}
RESTART_PENDING = 3010 & 0xFF


class Verify(LabTest):
    def expect(self, code, *verdicts, manifests):
        """Each of the calls answers so, apart from what is kept; returns the answers of the last one."""
        found = {}
        for manifest in manifests:
            result = self.machine.run(self.checker, 'verify', *manifest, '--format', 'json')
            answers = json.loads(result.output)['answers'] if result.code in (0, 1, RESTART_PENDING) else []
            found = {answer['what'].replace(self.machine.install, ''): answer['verdict'] for answer in answers}
            broken = {what: verdict for what, verdict in found.items() if verdict not in KEPT}
            self.assertEqual((code, set(verdicts)), (result.code, set(broken.values())), f'{broken}'[:500])
        return found

    def test_from_the_download_to_the_restart_and_with_a_link(self):
        self.machine = machine = self.enterContext(SampleMachine())
        self.checker = machine.install + 'BrevantCheck.exe'
        machine.mark_renamed()
        # A key that the run creates: it must outlast Windows.
        path, section = machine.install + 'QorPaFrwk.ini', '[QOR_REGISTRY_PATCH]\n'
        records = machine.read(path, 'utf-16').replace(section, section + 'add=SOFTWARE\\Made!Name!REG_SZ!kept\n')
        machine.write(path, records, 'utf-16')
        self.expect(3, manifests=[[]])
        self.assertEqual(0, machine.run(self.checker, 'manifest', machine.install.rstrip('\\'), '--into').code)
        linted = machine.run(self.checker, 'lint', machine.install.rstrip('\\'))
        self.assertNotIn('B076', linted.output)
        made = machine.run(self.checker, 'manifest', machine.install.rstrip('\\'))
        self.assertEqual(0, made.code, made.output)
        full = machine.run('cmd.exe', '/c', 'BrevantCheck.exe', 'manifest', '.', '>Z:\\dev\\full',
                           cwd=machine.host(machine.install))
        self.assertEqual(3, full.code, 'a disk that is full')
        machine.write(MANIFEST, made.output)
        machine.write(REDIRECTED, made.output.replace('\n', '\r\n'), 'utf-16')  # by Windows PowerShell 5.1
        found = self.expect(1, 'LEFT IN DOWNLOAD', 'MISSING', 'DIFFERENT', 'NOT DELETED', 'VALUE DIFFERS', 'UNKNOWN',
                            manifests=[[MANIFEST], [REDIRECTED], []])
        self.assertEqual([], [what for what, verdict in found.items() if verdict == 'ARRIVED'])

        machine.run(machine.install + 'Brevant.exe', '/DeployFramework')
        self.expect(RESTART_PENDING, 'STILL WAITING', manifests=([MANIFEST], []))
        source = machine.host(machine.pending_moves()[0][0])
        source.rename(source.with_suffix('.away'))
        self.expect(1, 'STILL WAITING', 'MISSING', manifests=([MANIFEST], []))
        source.with_suffix('.away').rename(source)
        machine.start_again()
        self.expect(0, manifests=([MANIFEST], []))

        patterns = machine.host(machine.install + 'Patterns')
        patterns.rename(patterns.with_name('Elsewhere'))
        os.symlink('Elsewhere', patterns)
        self.expect(1, 'REFUSED', manifests=[[MANIFEST], []])
        machine.write(machine.install + 'QorUpdate.json', '{}')
        self.expect(3, manifests=[[]])
