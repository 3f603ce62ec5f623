"""Any update on a throwaway machine: what did not arrive is named, a power cut does no harm, the report has filters."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest.mock

from brevantlab import report, try_update
from brevantlab.doubts import doubts_of, read_intended
from brevantlab.expect import HomeTest, call
from brevantlab.layouts import SAMPLES, languages_of, write_sample
from brevantlab.machine import PRODUCT
from brevantlab.outcome import Check, Move, Outcome, State, short
from brevantlab.try_update import Options, Refused, Trial
from shipping.bill import compiler


class Try(HomeTest):
    """The second sample, without question and shortcuts, of which only the guides tell, unless a test has another."""
    def setUp(self):
        super().setUp()
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
        rows = re.findall(r'<tr( hidden="")?><td>([^<]*)</td>((?:(?!</tr>).)*)<td class="[^"]*">([^<]*)</td></tr>',
                          shown, re.DOTALL)
        self.contents = {short(name): content for _, name, content, _ in rows}
        return {short(name): state for hidden, name, _, state in rows if not hidden}

    def test_as_it_is(self):
        # A product whose trace is off, and whose language is not the first of its registry.
        registry = (self.installed / 'registry.reg').read_text().replace('"Enable"=dword:00000001', '"Enable"=dword:0')
        self.installed = shutil.copytree(self.installed, self.home / 'installed')
        other = '[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\n"Language"="XX-XX"\n'
        (self.installed / 'registry.reg').write_text(other + registry)
        for language, found in ('', 'FR-FR'), ('ES-ES', 'ES-ES'):
            with self.subTest(language):
                outcome = self.outcome(language=language)
                self.assertSame(([], [], {}, found, 4, 0, []), (
                    outcome.problems(), outcome.never_looked_at(), outcome.question, outcome.language,
                    len(outcome.settings()), outcome.exit_code(), outcome.failures()[0]))
                note = 'Segunda versión' if found == 'ES-ES' else 'Deuxième version'
                self.assertRegex(dict(outcome.summary())['folded'], 'SyncMinutes=30.*written')
                new = 'Léame' if found == 'ES-ES' else 'Lisez-moi'
                self.assertRegex(dict(outcome.summary())['not made'], f'^{new} ')
                self.assertSame([f'/Sync/Note: à vérifier -> {note}'], outcome.left_behind())

    def test_what_did_not_arrive_is_named(self):
        planted = call(sys.executable, SAMPLES / 'second/plant.py', self.update)[1]
        mistakes = re.findall(r'^(B\d+) .*: (.*)$', planted, re.M)
        self.assertEqual(5, len(mistakes))
        with self.assertRaises(Refused) as refusal:
            self.outcome()
        self.assertSame([], [rule for rule, _ in mistakes if rule not in str(refusal.exception)])

        outcome = self.outcome(force=True)
        self.assertEqual(1, outcome.exit_code())
        never = [short(path) for path in outcome.never_looked_at()]
        self.assertEqual(2, len(never), never)
        self.assertSame([('FAILURE', "Failed to create directory '{InstallDir}Resource\\ES-ES\\help', error = 161."),
                         ('FAILURE', 'KzCommon::Storage::Reg::StoreValue(). incorrect data type'),
                         *(('NEVER LOOKED AT', path) for path in never),
                         ('NOT ARRIVED', 'Resource\\ES-ES\\StringTable.ini: its folder is missing'),
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
        self.assertRegex(self.contents['Patterns\\sites.ptn'], '<del>-3.9.0</del>\n<ins>.3.9.2</ins>')

    def instruct(self, *replaced):
        file = self.update / 'QorPaFrwk.ini'
        text = file.read_bytes().decode('utf-16')
        for old, new in replaced:
            self.assertIn(old, text)
            text = text.replace(old, new, 1)
        file.write_bytes(text.encode('utf-16'))

    def test_complete_is_only_what_needs_no_explanation(self):
        """Each is not complete by itself, until the update or the caller says that it is meant so."""
        registry = (self.installed / 'registry.reg').read_text()
        self.installed = shutil.copytree(self.installed, self.home / 'installed')
        (self.installed / 'registry.reg').write_text(registry.replace('3.9.0.1105', '3.9.0.1099'))
        names = self.installed / 'Resource' / 'EN-US' / 'StringTable.ini'
        names.write_text('[Global]\nS_STR_PRODUCT_NAME=Keystride\n')  # otherwise there is no question
        (self.update / 'Component' / 'c21t2103v3.9.2l1p1r1o2' / 'Share' / 'extra.txt').write_text('x')
        self.instruct(('{InstalledDir}SyncLegacy.*', '{InstalledDir}SyncLegacy.*\r\ndelete={InstalledDir}No*.such\r\n'
                       'delete={InstalledDir}NoSuch.x'),
                      ('Sync!LegacyPort', 'Sync!LegacyPort\r\ndelete=SOFTWARE\\Kazmere\\KZVLT\\Sync!NoSuch\r\n'
                       'add=SOFTWARE\\Made!Name!REG_SZ!x'),
                      ('[QOR_DIR]', '[QOR_DIR]\r\ndelete={InstalledDir}NoSuch'),
                      ('; BrevantCheck: B045', '; meant so'), ('[RestartNotification_FR-FR]', '[Restart_FR-FR]'))
        info = self.update / 'UpdateInfo.ini'
        info.write_text(info.read_text().replace('c21t2101v3.9.2l1p-1r1o2', 'c21t2101v3.9.3'))
        outcome = self.outcome(force=True, keep=self.home / 'kept')
        found = {(label, where.split(': ')[0]) for label, where in outcome.problems()}
        expected = {('NEVER LOOKED AT', 'Component\\c21t2103v3.9.2l1p1r1o2\\Share\\extra.txt'),
                    ('NO EFFECT', '[QOR_FILE] delete={InstalledDir}No*.such'),
                    ('NO EFFECT', '[QOR_DIR] delete={InstalledDir}NoSuch'),
                    ('NO EFFECT', '[QOR_REGISTRY_PATCH] delete=SOFTWARE\\Kazmere\\KZVLT\\Sync!NoSuch'),
                    ('NO EFFECT', '[UPDATE_INFO] modify=SYNC!Schema!2'),
                    ('NO PACKAGE', 'Component\\c21t2101v3.9.3'), ('NO TEXTS', 'the new name is due, and there is no '
                                                                  '[RestartNotification_...] of this language')}
        self.assertSame(set(), expected - found)
        # A record without effect is one doubt: its failure line is no second one.
        self.assertSame([], [text for label, text in found if label == 'FAILURE' and 'DeleteFile' not in text])
        self.assertEqual(1, outcome.exit_code())
        kept = (self.home / 'kept' / 'registry.reg').read_text('utf-16')
        self.assertEqual([['FR-FR'], ['x']], [re.findall(f'"{name}"="(.*)"', kept) for name in ('Language', 'Name')])
        self.assertTrue(list((self.home / 'kept' / 'trace').rglob('*.log')))

        doubts = outcome.all_doubts()
        self.instruct(('delete={InstalledDir}No*', '; BrevantCheck: NO-EFFECT\r\ndelete={InstalledDir}No*'),
                      ('BrevantCheck: B083', 'BrevantCheck: B070 B083'))
        intended = read_intended(self.update, ['schema!2', 'b091', 'B074'])
        left = {doubt.where.split(': ')[0] for doubt in doubts if not intended.covers(doubt)}
        self.assertLessEqual({'[QOR_REGISTRY_PATCH] delete=SOFTWARE\\Kazmere\\KZVLT\\Sync!NoSuch',
                              '[QOR_FILE] delete={InstalledDir}NoSuch.x'}, left)
        self.assertSame(set(), {where for _, where in expected if 'NoSuch' not in where} & left)

        for asked, labels in ('new', ['NO TEXTS']), ('stay', []):
            change = {'action': 'ask', 'outcome': asked, 'target': 'x', 'reason': 'built-in texts'}
            found = doubts_of({'steps': [{'changes': [change]}]}, {}, [])
            self.assertEqual(labels, [doubt.label for doubt in found])

    def tried(self, *options, tool='try_update'):
        words = [self.update, '--installed', self.installed] if tool == 'try_update' else []
        return call(sys.executable, '-B', '-m', f'brevantlab.{tool}', *words, *options)

    def test_every_language_in_one_table_and_the_highest_code(self):
        code, output = self.tried('--language', 'all')
        self.assertEqual((0, ['ES-ES', 'FR-FR']), (
            code, re.findall('^([A-Z]{2}-[A-Z]{2}) +complete +[0-9]+ of', output, re.M)), output)
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

    def test_a_power_cut(self):
        self.update, self.installed = write_sample(self.home / 'first')
        outcome = self.outcome(answer='later', kill_at=200)
        self.assertTrue(outcome.ended)
        self.assertSame([], outcome.problems())
        self.assertEqual((0, 'Kazmere Qorvault'), (outcome.exit_code(), outcome.question.get('title')))
        self.assertRegex(dict(outcome.summary())['question'], 'Kazmere Qorvault: "Restart .*" Answer: later')
