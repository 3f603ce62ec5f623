"""A manifest that the sample update brings, and what the checking program says of the machine at every stage of its
arrival."""
import datetime
import json
import os
import re
import shutil
import time

from brevantlab.expect import LabTest, faults
from brevantlab.layouts import SampleMachine
from brevantlab.machine import SETTINGS

RECORD = 'C:\\record.json'
CLOCKS = time.CLOCK_MONOTONIC, time.CLOCK_BOOTTIME
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

    def detect(self, *pending):
        return tuple(self.machine.run(self.checker, 'verify', '--detect', *(['--pending', *pending] if pending else []),
                                      errors=False))

    def record(self, event):
        # Wine's debug channel shows the event that is written with the record.
        told = self.machine.run(self.checker, 'verify', '--record', RECORD, '--event-log', debug='+eventlog')
        joined = re.sub(r'"\n\w+:\w+:eventlog:ReportEventW L"', '', told.output)  # Wine 10 shows line by line
        self.assertRegex(joined, f'L"BrevantCheck"(?s:.*)ReportEventW [(]\\w+,{event}[.]'
                         r'\\r\\n\\r\\nPackage: c21t2103v3[.]9[.]0l1p1r1o1\\r\\nUpdate: [0-9a-f]{64}\\r\\n[A-Z ]+ C:')
        record = json.loads(self.machine.read(RECORD))
        now, start = (datetime.datetime.fromisoformat(record[name][:-1] + '+00:00') for name in ('time', 'started'))
        off = (abs((now - start).total_seconds() - time.clock_gettime(clock)) for clock in CLOCKS)
        self.assertLess(max(abs(now.timestamp() - time.time()), min(off)), 60)
        self.assertEqual([], faults('record', record))
        return record

    def expect_rollup(self, record):
        """Names of machines in each encoding; a list without names is refused. docs/examples have the whole table."""
        self.machine.write('C:\\fleet\\1.json', json.dumps(record))
        for names, encoding, code in ((f'{record["machine"].lower()}\nPC3\npc3\n', 'utf-16', 1),
                                      (record['machine'], 'utf-8-sig', 0), ('PC3', 'utf-16-le', 3),
                                      (' \n', 'utf-8', 3)):
            self.machine.write('C:\\machines.txt', names, encoding)
            told = self.machine.run(self.checker, 'rollup', 'C:\\fleet', '--machines', 'C:\\machines.txt', '--format',
                                    'json')
            self.assertEqual(code, told.code, told.output)
            if code < 3:
                found = json.loads(told.output)
                self.assertEqual(([], ['PC3'] * code), (faults('rollup', found), found['no_record']))

    def test_from_the_download_to_the_restart_and_with_a_link(self):
        self.machine = machine = self.enterContext(SampleMachine())
        self.checker = machine.install + 'BrevantCheck.exe'
        machine.mark_renamed()
        # A key that the run creates: it must outlast Windows.
        path, section = machine.install + 'QorPaFrwk.ini', '[QOR_REGISTRY_PATCH]\n'
        records = machine.read(path, 'utf-16').replace(section, section + 'add=SOFTWARE\\Made!Name!REG_SZ!kept\n')
        machine.write(path, records, 'utf-16')
        self.expect(3, manifests=[[]])
        self.assertEqual((0, ''), self.detect())
        self.assertEqual(3, machine.run(self.checker, 'verify', '--detect', '--key', 'C:\\no.pem').code)
        self.assertEqual(0, machine.run(self.checker, 'manifest', machine.install.rstrip('\\'), '--into').code)
        self.assertNotIn('B076', machine.run(self.checker, 'lint', machine.install.rstrip('\\')).output)
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
        update = json.loads(made.output)['update']
        self.assertEqual([(0, ''), (0, ''), (0, f'pending {update}\n')],
                         [self.detect(*words) for words in ([], ['missing'], ['arrived'])])
        waiting = self.record('0x0004,0x0000,0x00000002,(?s:.*)L"The update waits for a restart')
        self.assertEqual(('pending', update), (waiting['verdict'], waiting['update']))
        source = machine.host(machine.pending_moves()[0][0])
        source.rename(source.with_suffix('.away'))
        self.expect(1, 'STILL WAITING', 'MISSING', manifests=([MANIFEST], []))
        missing = self.record('0x0002,0x0000,0x00000003,(?s:.*)L"Not all of the update has arrived')
        self.assertEqual(('missing', 'MISSING', True), (missing['verdict'], missing['open'][0]['verdict'],
                                                        'pending_minutes' in missing))
        source.with_suffix('.away').rename(source)
        machine.start_again()
        self.expect(0, 'NOT COVERED', manifests=([MANIFEST], []))
        self.assertEqual((0, f'arrived {update}\n'), self.detect())
        arrived = self.record('0x0004,0x0000,0x00000001,(?s:.*)L"The update has arrived')
        self.assertEqual(('arrived', ['NOT COVERED'], None), (
            arrived['verdict'], [answer['verdict'] for answer in arrived['open']], arrived.get('pending_minutes')))
        self.expect_rollup(arrived)
        # The user's doing: it does not make the update one that has not arrived.
        machine.write(machine.install + 'Legacy\\again.txt', 'new')
        machine.set_value(SETTINGS, 'Language', 'DE-DE')
        self.expect(0, 'NOT COVERED', 'CHANGED SINCE', manifests=[[]])
        self.assertEqual((0, f'arrived {update}\n'), self.detect())
        machine.set_value(SETTINGS, 'Language', 'EN-US')
        shutil.rmtree(machine.host(machine.install + 'Legacy'))

        patterns = machine.host(machine.install + 'Patterns')
        patterns.rename(patterns.with_name('Elsewhere'))
        os.symlink('Elsewhere', patterns)
        self.expect(1, 'REFUSED', 'NOT COVERED', manifests=[[MANIFEST], []])
        self.assertEqual((1, ''), self.detect())
        self.record('0x0002,0x0000,0x00000004,(?s:.*)L"It is not known whether all of the update has arrived')
        machine.write(machine.install + 'QorUpdate.json', '{}')
        self.expect(3, manifests=[[]])
