"""Any update on a throwaway machine: what did not arrive is named, a power cut does no harm, the report has filters."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest.mock

from brevantlab import report
from brevantlab.expect import LabTest
from brevantlab.layouts import SAMPLES, write_sample
from brevantlab.outcome import short
from brevantlab.try_update import Options, Refused, Trial


class Try(LabTest):
    """The second sample, without question and shortcuts, of which only the guides tell, unless a test has another."""
    def setUp(self):
        self.home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.update, self.installed = self.home / 'update', SAMPLES / 'second' / 'installed'
        shutil.copytree(SAMPLES / 'second' / 'update', self.update)

    def outcome(self, **options):
        return Trial(Options(self.update, self.installed, **options), lambda stage: None).run()

    def rows_of(self, page, filters):
        """Names and states of the rows that the filters leave, as a browser shows the page."""
        shown = subprocess.run(['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--virtual-time-budget=5000',
                                f'--user-data-dir={self.home / "browser"}', '--host-resolver-rules=MAP * ~NOTFOUND',
                                '--dump-dom', f'{page.as_uri()}#{filters}'], check=True, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, text=True, timeout=120).stdout
        rows = re.findall(r'<tr( hidden="")?><td>([^<]*)</td><td>[^<]*</td><td>[^<]*</td><td class="[^"]*">([^<]*)<',
                          shown)
        return {short(name): state for hidden, name, state in rows if not hidden}

    def test_as_it_is(self):
        # A product whose trace is off, and whose language is not the first of its registry.
        registry = (self.installed / 'registry.reg').read_text().replace('"Enable"=dword:00000001', '"Enable"=dword:0')
        self.installed = shutil.copytree(self.installed, self.home / 'installed')
        other = '[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\n"Language"="XX-XX"\n'
        (self.installed / 'registry.reg').write_text(other + registry)
        for language, found in ('', 'FR-FR'), ('ES-ES', 'ES-ES'):
            with self.subTest(language):
                outcome = self.outcome(language=language)
                self.assertSame(([], [], {}), (outcome.problems(), outcome.never_looked_at(), outcome.question))
                self.assertEqual((found, 4), (outcome.language, len(outcome.settings())))
                self.assertEqual((0, 0), (outcome.exit_code(), len(outcome.failures()[0])))

    def test_what_did_not_arrive_is_named(self):
        done = subprocess.run([sys.executable, SAMPLES / 'second' / 'plant.py', self.update], check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        mistakes = re.findall(r'^(B\d+) .*: (.*)$', done, re.M)
        self.assertEqual(5, len(mistakes))
        with self.assertRaises(Refused) as refusal:
            self.outcome()
        self.assertSame([], [rule for rule, _ in mistakes if rule not in str(refusal.exception)])

        outcome = self.outcome(force=True)
        self.assertEqual(1, outcome.exit_code())
        never = [short(path) for path in outcome.never_looked_at()]
        self.assertEqual(2, len(never), never)
        self.assertSame([('NOT ARRIVED', 'Resource\\ES-ES\\StringTable.ini: its folder is missing'),
                         ('NOT ARRIVED', 'Resource\\ES-ES\\help\\sync.htm: its folder is missing'),
                         ('NOT ARRIVED', 'panel.htm: has been deleted again'),
                         ('NOT ARRIVED', 'readme.htm: has been deleted again'),
                         ('NOT WRITTEN', 'HKLM\\SOFTWARE\\Kazmere\\KZVLT\\Sync!MostBytes')],
                        sorted(outcome.problems()))
        told = '\n'.join([*(where for _, where in outcome.problems()), *never])
        self.assertSame([], [harm for _, harm in mistakes if harm not in told])
        self.assertIn('KzCommon::Storage::Reg::StoreValue(). incorrect data type', outcome.failures()[0])

        page = report.write(outcome, self.home / 'report')
        self.assertNotRegex(page.read_text(), r'(src|href)=|url\(')
        found = self.rows_of(page, 'room=files&state=!')
        self.assertSame({'panel.htm': 'has been deleted again', **dict.fromkeys(never, 'never looked at')},
                        {name: found.get(name) for name in ['panel.htm', *never]})
        self.assertNotIn('changed', found.values())
        self.assertSame({'Patterns\\sites.ptn': 'changed'}, self.rows_of(page, 'state=changed&text=PATTERNS'))

    def test_a_checker_without_a_verdict(self):
        programs = pathlib.Path(shutil.copytree(os.environ['BREVANT_BIN'], self.home / 'programs'))
        self.enterContext(unittest.mock.patch.dict(os.environ, BREVANT_BIN=str(programs)))
        crash = '*(volatile int*)0 = 1'
        for statement, told in ((crash, 'lint ended with exit code 5: it crashed'),
                                ('return 3', 'lint ended with exit code 3: it could not read its input'),
                                (f'if (count > 1 && words[1][0] == 118) {crash}', 'verify ended with exit code 5')):
            with self.subTest(statement):
                (self.home / 'checker.c').write_text(f'int main(int count, char** words) {{ {statement}; return 0; }}')
                subprocess.run(['x86_64-w64-mingw32-gcc', '-o', programs / 'BrevantCheck.exe', self.home / 'checker.c'],
                               check=True)
                done = subprocess.run([sys.executable, '-B', '-m', 'brevantlab.try_update', self.update, '--installed',
                                       self.installed], stdout=subprocess.PIPE, text=True)
                self.assertEqual(4, done.returncode, done.stdout)
                self.assertIn(told, done.stdout)
                self.assertNotIn('REFUSED', done.stdout)

    def test_a_power_cut(self):
        self.update, self.installed = write_sample(self.home / 'first')
        outcome = self.outcome(answer='later', kill_at=200)
        self.assertTrue(outcome.ended)
        self.assertSame([], outcome.problems())
        self.assertEqual((0, 'Kazmere Qorvault'), (outcome.exit_code(), outcome.question.get('title')))
        self.assertRegex(dict(outcome.summary())['question'], 'Kazmere Qorvault: "Restart .*" Answer: later')
