"""Any update on a throwaway machine: what did not arrive is named, a power cut does no harm, the report has filters."""
import json
import pathlib
import re
import subprocess
import tempfile
import unittest.mock

from brevantlab import try_update
from brevantlab.doubts import doubts_of
from brevantlab.expect import HomeTest
from brevantlab.layouts import languages_of, write_sample
from brevantlab.outcome import NO_END, short
from brevantlab.trials import TRIALS, Trials
from brevantlab.try_update import Trial


class Try(HomeTest):
    def rows_of(self, page, filters):
        """Names and states of the rows that the filters leave, as a browser shows the page."""
        shown = subprocess.run(['chromium', '--headless', '--no-sandbox', '--disable-gpu', '--virtual-time-budget=5000',
                                f'--user-data-dir={self.home / "browser"}', '--host-resolver-rules=MAP * ~NOTFOUND',
                                '--dump-dom', f'{page.as_uri()}#{filters}'], check=True, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, text=True, timeout=120).stdout
        rows = re.findall(r'<tr( hidden="")?><td>([^<]*)</td>((?:(?!</tr>).)*)<td class="[^"]*">([^<]*)</td></tr>',
                          shown, re.DOTALL)
        self.contents = {short(name): content for _, name, content, _ in rows}
        return {short(name): state for hidden, name, _, state in rows if not hidden}

    def test_what_is_shown(self):
        for name in 'as_it_is', 'with_doubts', 'power_cut', 'outcomes', 'failing_programs', 'bench':
            with self.subTest(name), tempfile.TemporaryDirectory() as home:
                self.assertShown(TRIALS / f'{name}.txt', getattr(Trials(pathlib.Path(home).resolve()), name)())

    def test_what_did_not_arrive_is_named(self):
        trials = Trials(self.home)
        self.assertShown(TRIALS / 'with_mistakes.txt', trials.with_mistakes())
        self.assertShown(TRIALS / 'report.html', trials.report())
        page = self.home / 'report/report.html'
        self.assertEqual(json.loads(page.with_suffix('.json').read_text('utf-8')),
                         json.loads(re.search('id="data">(.*)</script>', page.read_text('utf-8'))[1]))
        self.assertNotRegex(page.read_text(), r'(src|href)=|url\(')
        found = self.rows_of(page, 'room=files&state=!')
        self.assertEqual(6, len(found))
        self.assertEqual('has been deleted again', found['panel.htm'])
        self.assertSame({'Patterns\\sites.ptn': 'changed'}, self.rows_of(page, 'state=changed&text=PATTERNS'))
        self.assertRegex(self.contents['Patterns\\sites.ptn'], '<del>-3.9.0</del>\n<ins>.3.9.2</ins>')

    def test_a_question_that_is_not_asked_needs_no_texts(self):
        change = {'action': 'ask', 'outcome': 'stay', 'target': 'x', 'reason': 'built-in texts'}
        self.assertEqual([], doubts_of({'steps': [{'changes': [change]}]}, {}, []))

    def test_the_highest_code_of_all_languages_counts(self):
        update = write_sample(self.home / 'first')[0]
        for name in 'ja-jp', 'images':
            (update / 'Texts' / name).mkdir(parents=True)
            (update / 'Texts' / name / 'stringtable.ini').touch()
        for settings in update.glob('Component/*/Share/Setting/*_*'):
            settings.rename(settings.with_name(settings.name.lower()))
        self.assertEqual(['DE-DE', 'EN-US'], languages_of(update), 'of the settings')
        for settings in update.glob('Component/*/Share/Setting/*_*'):
            settings.unlink()
        self.assertEqual(['DE-DE', 'EN-US', 'JA-JP'], languages_of(update), 'of the texts alone')
        with unittest.mock.patch.object(try_update, 'try_once', side_effect=[(1, None), (3, None), (0, None)]), \
                unittest.mock.patch('builtins.print'):
            self.assertEqual(3, try_update.main([str(update), '--language', 'all']))

    def test_a_checker_that_does_not_end(self):
        machine = unittest.mock.Mock(**{'machine.run.side_effect': subprocess.TimeoutExpired('', 1)})
        self.assertEqual(NO_END, Trial.check(machine, 'lint').code)
