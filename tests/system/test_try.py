"""Any update on a throwaway machine: what did not arrive is named, a power cut does no harm, the report has filters."""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from brevantlab import report
from brevantlab.expect import LabTest
from brevantlab.layouts import PRODUCT_PACKAGE, SAMPLES, write_sample
from brevantlab.outcome import short
from brevantlab.try_update import Options, Refused, Trial

SHARE = f'Component\\{PRODUCT_PACKAGE}\\Share\\'


class Try(LabTest):
    def setUp(self):
        self.home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.update, self.installed = write_sample(self.home)

    def outcome(self, **options):
        return Trial(Options(self.update, self.installed, **options), lambda stage: None).run()

    def change(self, *pairs):
        file = self.update / 'QorPaFrwk.ini'
        text = file.read_bytes().decode('utf-16')
        for old, new in pairs:
            self.assertEqual(1, text.count(old), old)
            text = text.replace(old, new)
        file.write_bytes(text.encode('utf-16'))

    def rows_of(self, page, filters):
        """Names and states of the rows that the filters leave, as a browser shows the page."""
        shown = subprocess.run(['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--virtual-time-budget=5000',
                                f'--user-data-dir={self.home / "browser"}', '--host-resolver-rules=MAP * ~NOTFOUND',
                                '--dump-dom', f'{page.as_uri()}#{filters}'], check=True, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, text=True, timeout=120).stdout
        rows = re.findall(r'<tr( hidden="")?><td>([^<]*)</td><td>[^<]*</td><td>[^<]*</td><td class="[^"]*">([^<]*)<',
                          shown)
        return [(short(name), state) for hidden, name, state in rows if not hidden]

    def test_what_did_not_arrive_is_named(self):
        self.change(('add={InstalledDir}Policy', 'add={InstallDir}Policy'), ('REG_QDWORD!5368', 'REG_QWORD!5368'),
                    ('{InstalledDir}Keystride*.dll', '{InstalledDir}KzEngine.*'))
        share = self.update / SHARE.replace('\\', '/')
        (share / 'UI' / 'Sync').mkdir()
        (share / 'UI' / 'QorUI.dll').rename(share / 'UI' / 'Sync' / 'QorUI.dll')
        outcome = self.outcome(language='DE-DE', answer='none', force=True)
        self.assertSame([('NOT ARRIVED', 'KzEngine.dll: has been deleted again'),
                         ('NOT ARRIVED', 'Policy\\default.pol: its folder is missing'),
                         ('NOT WRITTEN', 'HKLM\\SOFTWARE\\Kazmere\\KZVLT\\Vault!MostBytes')],
                        sorted(outcome.problems()))
        self.assertIn(f'{SHARE}UI\\Sync\\QorUI.dll', map(short, outcome.never_looked_at()))
        self.assertEqual(1, outcome.exit_code())
        self.assertIn('*** ::WTSSendMessage() failed. [0x00001b6e]', outcome.failures()[0])

        page = report.write(outcome, self.home / 'report')
        self.assertNotRegex(page.read_text(), r'(src|href)=|url\(')
        wrong = [row for row in self.rows_of(page, 'room=files&state=!') if row[1] != 'never looked at']
        self.assertSame([('KzEngine.dll', 'has been deleted again'), ('Policy\\default.pol', 'its folder is missing')],
                        wrong)
        self.assertSame([('Patterns\\sites.ptn', 'changed')], self.rows_of(page, 'state=changed&text=PATTERNS'))

    def test_a_power_cut(self):
        outcome = self.outcome(answer='later', kill_at=200)
        self.assertTrue(outcome.ended)
        self.assertSame([], outcome.problems())
        self.assertEqual((0, 'Kazmere Qorvault'), (outcome.exit_code(), outcome.question.get('title')))


class SecondSample(LabTest):
    """An update without question and shortcuts, of which only the guides tell."""
    def setUp(self):
        self.update = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory())) / 'update'
        shutil.copytree(SAMPLES / 'second' / 'update', self.update)

    def trial(self, **options):
        return Trial(Options(self.update, SAMPLES / 'second' / 'installed', **options), lambda stage: None)

    def test_as_it_is(self):
        for language in ('FR-FR', 'ES-ES'):
            with self.subTest(language):
                outcome = self.trial(language=language).run()
                self.assertSame(([], [], {}), (outcome.problems(), outcome.never_looked_at(), outcome.question))
                self.assertEqual((0, 0), (outcome.exit_code(), len(outcome.failures()[0])))

    def test_with_mistakes(self):
        done = subprocess.run([sys.executable, SAMPLES / 'second' / 'plant.py', self.update], check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        mistakes = re.findall(r'^(B\d+) .*: (.*)$', done, re.M)
        self.assertEqual(5, len(mistakes))
        with self.assertRaises(Refused) as refusal:
            self.trial().run()
        self.assertSame([], [rule for rule, _ in mistakes if rule not in str(refusal.exception)])
        outcome = self.trial(force=True).run()
        self.assertEqual(1, outcome.exit_code())
        told = '\n'.join([*(where for _, where in outcome.problems()), *outcome.never_looked_at()])
        self.assertSame([], [harm for _, harm in mistakes if harm not in told])
