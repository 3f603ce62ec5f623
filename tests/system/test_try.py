"""Any update on a throwaway machine: what did not arrive is named, a power cut does no harm, the report has filters."""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest.mock

from brevantlab import try_update
from brevantlab.doubts import doubts_of
from brevantlab.expect import HomeTest, call
from brevantlab.layouts import SAMPLES, languages_of, write_sample
from brevantlab.machine import PRODUCT
from brevantlab.outcome import Check, Move, Outcome, State, short
from brevantlab.trials import TRIALS, Trials
from brevantlab.try_update import Trial
from shipping.bill import compiler


class Try(HomeTest):
    """The second sample, without question and shortcuts, of which only the guides tell, unless a test has another."""
    def setUp(self):
        super().setUp()
        self.update, self.installed = self.home / 'update', SAMPLES / 'second' / 'installed'
        shutil.copytree(SAMPLES / 'second' / 'update', self.update)

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
        for name in 'as_it_is', 'with_doubts', 'power_cut':
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

    def test_a_question_that_is_asked_in_english(self):
        for asked, labels in ('new', ['NO TEXTS']), ('stay', []):
            change = {'action': 'ask', 'outcome': asked, 'target': 'x', 'reason': 'built-in texts'}
            found = doubts_of({'steps': [{'changes': [change]}]}, {}, [])
            self.assertEqual(labels, [doubt.label for doubt in found])

    def tried(self, *options, tool='try_update'):
        words = [self.update, '--installed', self.installed] if tool == 'try_update' else []
        return call(sys.executable, '-B', '-m', f'brevantlab.{tool}', *words, *options)

    def test_the_highest_code_of_all_languages_counts(self):
        update = write_sample(self.home / 'first')[0]
        for settings in update.glob('Component/*/Share/Setting/*_*'):
            settings.unlink()
        self.assertEqual(['DE-DE', 'EN-US'], languages_of(update), 'of the texts alone')
        with unittest.mock.patch.object(try_update, 'try_once', side_effect=[(3, None), (1, None)]), \
                unittest.mock.patch('builtins.print'):
            self.assertEqual(3, try_update.main([str(self.update), '--language', 'all']))

    def test_a_program_that_fails(self):
        programs = pathlib.Path(shutil.copytree(os.environ['BREVANT_BIN'], self.home / 'programs'))
        self.enterContext(unittest.mock.patch.dict(os.environ, BREVANT_BIN=str(programs)))
        crash = '*(volatile int*)0 = 1'
        for name, statement, tool, code, told in (
                ('Brevant', 'return 7', 'try_update', 3, '[try] THE AGENT FAILED with 7'),
                ('Brevant', 'return 7', 'demo', 1, 'FAILED\n  EN-US: the update is not complete'),
                ('BrevantCheck', crash, 'demo', 4, '[demo] FAILED: the checker itself failed'),
                ('BrevantCheck', crash, 'try_update', 4, 'lint ended with exit code 5: it crashed'),
                ('BrevantCheck', 'return 3', 'try_update', 4, 'lint ended with exit code 3: it could not read'),
                ('BrevantCheck', f'if (count > 1 && words[1][0] == 118) {crash}', 'try_update', 4,
                 'verify ended with exit code 5')):
            with self.subTest(statement, tool=tool):
                (self.home / 'a.c').write_text(f'int main(int count, char** words) {{ {statement}; return 0; }}')
                saved = (programs / f'{name}.exe').read_bytes()
                call(compiler(), '-static', '-xc', '-o', programs / f'{name}.exe', self.home / 'a.c')
                result, output = self.tried(tool=tool)
                (programs / f'{name}.exe').write_bytes(saved)
                self.assertEqual((code, True, False), (result, told in output, 'REFUSED' in output), output)

    def test_what_an_outcome_says(self):
        a, b = PRODUCT + 'a', PRODUCT + 'b\\b'
        folders = {PRODUCT.rstrip('\\').casefold()}
        stayed, brought = State({a: b'1'}, {}, {}), State({a: b'2'}, {}, {})
        protected = State({a: b'1'}, {}, {}, frozenset({a.casefold()}))
        line = '22/11/2026 10:00:00.000 0a1c:0b20 !!! <Brevant> {} - A.cpp(1)'
        harmless, harmful = (f"Failed to delete file 'x', error = {code}." for code in (2, 5))
        second = 'KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=2'
        endless = Trial.check(unittest.mock.Mock(**{'machine.run.side_effect': subprocess.TimeoutExpired('', 1)})).code
        source, to, gone = PRODUCT + 's', {'waiting': State({PRODUCT + 's': b'2'}, {}, {})}, [Move(a, '')]
        for parts, problems in (
                ({'moves': gone, 'after': stayed}, [('NOT DELETED', 'a')]), ({'moves': gone}, []),
                ({**to, 'moves': [*gone, Move(source, a)], 'after': brought}, []),
                ({**to, 'moves': [Move(source, a)], 'after': stayed}, [('NOT ARRIVED', 'a: has another content')]),
                ({**to, 'moves': [Move(source, a)], 'after': protected},
                 [('NOT ARRIVED', 'a: the file there is read-only')]),
                ({**to, 'moves': [Move(source, a)]}, [('NOT ARRIVED', 'a: is not there')]),
                ({**to, 'moves': [Move(source, a), *gone]}, [('NOT ARRIVED', 'a: has been deleted again')]),
                ({**to, 'moves': [Move(source, b)]}, [('NOT ARRIVED', 'b\\b: its folder is missing')]),
                ({'moves': [Move(source, a)]}, [('NOT ARRIVED', 'a: there was nothing to be moved')]),
                ({'left': gone}, [('STILL WAITING', 'a')]), ({'records': [('K', 'N')]}, [('NOT WRITTEN', 'K!N')]),
                ({'lines': [line.format(harmless)]}, []), ({'lines': [line.format(second)]}, [('FAILURE', second)]),
                ({'lines': [line.format(second)], 'ended': True}, []),
                ({'lines': [line.format(harmful)]}, [('FAILURE', harmful)]),
                ({'verify': Check('verify', 1, ['MISSING: x'])}, [('MISSING', 'x')]),
                ({'plan': Check('plan', endless, [])}, [('CHECKER FAILED', 'BrevantCheck plan did not end in time')])):
            none = State({}, {}, {})
            outcome = Outcome(**{**dict(
                update='', language='EN-US', lint=Check('lint', 0, []), before=none, packaged={}, records=[],
                waiting=none, moves=[], commands=[], question={}, code=0, kill_at=0, ended=False, after=none, left=[],
                lines=[], verify=Check('verify', 0, []), folders=folders, seconds=0), **parts})
            self.assertSame(problems, outcome.problems())
            self.assertEqual(not problems, outcome.complete())
