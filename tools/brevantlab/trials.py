"""What the tools that try updates print, whole: docs/trials. tools/examples.sh writes them, and tests compare them.

What differs from one run, machine or release to another is replaced.
"""
import contextlib
import dataclasses
import io
import json
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest.mock
import zipfile
from typing import Any, Callable

from shipping import release
from shipping.bill import compiler

from . import agree, demo, try_update, undo, valid_update
from .examples import REPLACED
from .layouts import SAMPLES, write_sample
from .links import ShellLink
from .machine import PRODUCT, SETTINGS, Result
from .outcome import Check, Move, Outcome, State
from .prefix import ROOT
from .showing import show, show_table

TRIALS = ROOT / 'docs/trials'
CRASH = '*(volatile int*)0 = 1'
SAY_AND_FAIL = 'return fprintf(stderr, "%s: no such folder\\n", words[1]), 3'
# A program, what it does instead, and the tool that tries it, with its options.
FAILURES: tuple[tuple[str, ...], ...] = (
    ('Brevant', 'return 7', 'demo'), ('Brevant', 'return 7', 'try'), ('BrevantCheck', CRASH, 'demo'),
    ('BrevantCheck', CRASH, 'try'), ('BrevantCheck', SAY_AND_FAIL, 'try', '--force', '--details', 'checker'),
    ('BrevantCheck', f'if (count > 1 && words[1][0] == 118) {CRASH}', 'try'))  # "verify"
A, B, SOURCE, SETTING = (PRODUCT + name for name in (
    'a', 'b\\b', 's', 'Component\\c21t2103v1\\Share\\Setting\\'))
LINE = '22/11/2026 10:00:00.000 0a1c:0b20 !!! <Brevant> {} - A.cpp(1)'
LINK = ShellLink('x.exe', '', '', '', '')
BROUGHT = {'waiting': State({SOURCE: b'2'}, {}, {})}
# What has been seen, as far as it is not empty.
SEEN: tuple[dict[str, Any], ...] = (
    {}, {'moves': [Move(A, '')], 'after': State({A: b'1'}, {}, {})}, {'moves': [Move(A, '')]},
    {**BROUGHT, 'moves': [Move(A, ''), Move(SOURCE, A)], 'after': State({A: b'2'}, {}, {})},
    *({**BROUGHT, 'moves': [Move(SOURCE, A)], 'after': after} for after in (
        State({A: b'1'}, {}, {}), State({A: b'1'}, {}, {}, frozenset({A.casefold()})), State({}, {}, {}))),
    {**BROUGHT, 'moves': [Move(SOURCE, A), Move(A, '')]}, {**BROUGHT, 'moves': [Move(SOURCE, B)]},
    {'moves': [Move(SOURCE, A)]}, {'left': [Move(A, '')]},
    {**BROUGHT, 'moves': [Move(SOURCE, A)], 'left': [Move(SOURCE, A)], 'after': State({A: b'1'}, {}, {})},
    {'before': State({}, {}, {A: LINK, B: LINK}), 'after': State({}, {}, {A: LINK, SOURCE: LINK})},
    {'records': [('K', 'N')]}, {'kill_at': 9}, {'kill_at': 9, 'ended': True},
    {'lines': [LINE.format("Failed to delete file 'x', error = 2."), 'of another form']},
    *({'lines': [LINE.format('KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=2')], 'ended': ended}
      for ended in (False, True)),
    {'lines': [LINE.format("Failed to delete file 'x', error = 5.")] * 9},
    {'ended': True, 'lines': [LINE.format(text) for text in (
        'A - QueryValue(QOR_CONFIG_MERGE) failed. [0x00000002]', 'A - QueryValue(QOR_FILE) failed. [0x00000002]',
        'KzCommon::Storage::Reg::StoreValue(a=failed)', "Failed to delete file 'x', error = 2. Again.",
        '[SHCreateItemFromParsingName]failed. C:\\Taskbar\\x.lnk, hr=-2147024894',
        '*** ::WTSSendMessage() failed. [0x00000000]',
        'Failed to copy UpdateInfo.ini to iUD download source folder, error code is 80. Modify installed one.')]},
    {'packaged': {SETTING + name: name[:1].encode() for name in ('Traced.dat', 'Placed.dat', 'left.dat', 'P', 'gone')},
     'lines': [LINE.format(f'::MoveFileEx({SETTING}traced.DAT) failed')],
     'after': State({SETTING + 'Traced.dat': b'T', SETTING + 'Placed.dat': b'P', SETTING + 'left.dat': b'l',
                     SETTING + 'P': b'P', PRODUCT + 'PLACED.dat': b'P'}, {}, {})},
    *({'lines': [LINE.format('*** ::WTSSendMessage() failed. [0x00000005]')], 'answer': answer}
      for answer in ('none', 'ok')),
    {'packaged': {SETTING + 'config_FR-FR.xml': b'', SETTING + 'readme_EN-US.htm': b''}},
    {'before': State({}, {(SETTINGS, 'ProductName'): 'K'}, {}),
     'after': State({}, {(SETTINGS, 'ProductName'): ''}, {})},
    {'after': State({PRODUCT + 'qorshcut.xml': b'<?xml version="1.0" encoding="x-none"?><S/>'}, {}, {})},
    {'verify': Check('verify', 1, ['MISSING: x', f'MISSING: {A}'])}, {'code': 7},
    *({name: Check(name, code, ['SAID: so'])} for name, code in (
        ('lint', 1), ('lint', 2), ('plan', 124), ('plan', 3), ('verify', 194), ('verify', 9))))
Main = Callable[[list[str]], Any]

CHANGING = [(re.compile(pattern, re.M), shown) for pattern, shown in (
    (r'\[machine\] .*\n', ''),
    (r'\b[\d.]+ s(?=$|: | each)', 'N s'), (r'RunOnce:[0-9a-f-]{36}', 'RunOnce:ID'),
    (r'(users\\+)\w+(?=\\+AppData)', r'\1me'), (r' +\d+$(?=\n(?:[A-Z]{2}-|\[try\]))', ' N'),
    (r'address [0-9A-F]{16} \(thread \w+\)', 'address N (thread N)'),
    (r'\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3}', '31/01/2026 12:00:00.000'), (r'\(\d{5,} bytes\)', '(N bytes)'),
    (r'(FrwkDeployTick.*?REG_DWORD |"FrwkDeployTick"=dword:|FrwkDeployTick=)\w+', r'\1N'),
    (r'\b2:[A-Za-z0-9+/=]{20,}', '2:PROTECTED'),
    (r'("seconds": )[\d.]+', r'\g<1>1.5'), (r'("date": )"[^"]*"', r'\1"2026-01-31 12:00"'),
    (r'wine-\d[^"]*', 'wine-N'))]


def output_of(main: Main, *arguments: object) -> str:
    """What a tool prints, and its exit code."""
    printed = io.TextIOWrapper(io.BytesIO(), 'utf-8', write_through=True)
    with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(printed):
        try:
            code: object = main([str(argument) for argument in arguments])
        except SystemExit as end:
            code = end.code
    printed.seek(0)
    return f'{printed.read()}(exit code {code})\n'


class Trials:
    """Each method is one file of docs/trials, tried in folders below `home`."""
    def __init__(self, home: pathlib.Path) -> None:
        self.home = home
        self.update, self.installed = (shutil.copytree(SAMPLES / 'second' / name, home / 'second' / name)
                                       for name in ('update', 'installed'))

    def plain(self, text: str) -> str:
        """A text without what differs from one run to another."""
        text = text.replace(f'{self.home}/', '').replace(str(self.home).replace('/', '\\') + '\\', '')
        for pattern, shown in (*CHANGING, *REPLACED):
            text = pattern.sub(shown, text)
        return text

    def trial(self, *options: object) -> str:
        """Tries the update; what is printed below the call."""
        text = output_of(try_update.main, self.update, '--installed', self.installed, *options)
        return self.plain(f'> tools/try.sh {self.update} --installed {self.installed} '
                          f'{" ".join(map(str, options))}'.rstrip() + f'\n{text}\n')

    def instruct(self, *replaced: tuple[str, str]) -> None:
        """Changes the instruction file."""
        file = self.update / 'QorPaFrwk.ini'
        text = file.read_bytes().decode('utf-16')
        for old, new in replaced:
            if old not in text:
                raise ValueError(f'{file} has no {old}')
            text = text.replace(old, new, 1)
        file.write_bytes(text.encode('utf-16'))

    def as_it_is(self) -> str:
        """The second sample. The trace of its product is off, and would go to a folder of the user; the language is not
        the first of its registry."""
        registry = (self.installed / 'registry.reg').read_text().replace('"Enable"=dword:00000001', '"Enable"=dword:0')
        registry = registry.replace('Trace\\\\Interactive', '%USERNAME%\\\\Trace')
        other = '[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\n"Language"="XX-XX"\n'
        (self.installed / 'registry.reg').write_text(other + registry)
        return self.trial('--details', 'files,registry,agent,shortcuts,settings,checker') + self.trial(
            '--language', 'all', '--report', self.home / 'report')

    def with_mistakes(self) -> str:
        """With the mistakes that samples/second/plant.py plants."""
        planted = subprocess.run([sys.executable, SAMPLES / 'second/plant.py', self.update], check=True, text=True,
                                 stdout=subprocess.PIPE).stdout
        registry = self.installed / 'registry.reg'
        text, saved = self.plain(planted) + '\n', registry.rename(self.home / 'saved')
        self.instruct(('[QOR_REGISTRY_PATCH]', '[QOR_REGISTRY_PATCH]\r\nadd=SOFTWARE\\Kazmere'))
        for guide in self.update.rglob('bridge.htm'):
            guide.write_text('<script>1</script>\n')
        text += self.trial()
        registry.write_text(saved.read_text() + '\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Kazmere\\KZVLT\\Odd]\n'
                            '"Bytes"=hex:00,ff\n"Text"=hex:61,62\n"Expand"=hex(2):25,00,00,00\n'
                            '"Many"=hex(7):61,00,00,00,62,00,00,00,00,00\n'
                            '"Number"=hex(b):01,00,00,00,00,00,00,00\n"None"=hex(0):\n'
                            '"Quo\\"ted=\\\\"="a\\"b\\\\c"\n')
        link = self.installed / 'drive_c/users/Public/Desktop/Odd.lnk'  # with every text, and an icon of a library
        link.parent.mkdir(parents=True)
        texts = (f'{name} é'.encode('utf-16-le') for name in ('name', 'relative', 'folder', 'arguments', 'icon'))
        link.write_bytes(struct.pack('<I16xI32xi16x', 0x4C, 0xFC, -3)
                         + b''.join(struct.pack('<H', len(text) // 2) + text for text in texts))
        return text + self.trial(
            '--force', '--details', 'files,checker', '--report', self.home / 'report')

    def with_doubts(self) -> str:
        """With results that nothing but the author's word explains."""
        registry = self.installed / 'registry.reg'
        registry.write_text(registry.read_text().replace('3.9.0.1105', '3.9.0.1099'))
        names = self.installed / 'Resource' / 'EN-US' / 'StringTable.ini'
        names.write_text('[Global]\nS_STR_PRODUCT_NAME=Keystride\n')  # otherwise there is no question
        (self.update / 'Component' / 'c21t2103v3.9.2l1p1r1o2' / 'Share' / 'extra.txt').write_text('x')
        (self.installed / 'drive_c/Trace/Service').mkdir(parents=True)
        (self.installed / 'drive_c/Trace/Service/NoSuch.x').touch()  # and none of this name in the install folder
        self.instruct(('{InstalledDir}SyncLegacy.*', '{InstalledDir}SyncLegacy.*\r\ndelete={InstalledDir}No*.such\r\n'
                       'delete={ServiceLogDir}NoSuch.x\r\ndelete={InstalledDir}NoSuch.x'),
                      ('[Run]', '[QOR_FILE]\r\ndelete={InstalledDir}Second.x\r\n\r\n[Run]'),  # which Windows ignores
                      ('Sync!LegacyPort', 'Sync!LegacyPort\r\ndelete=SOFTWARE\\Kazmere\\KZVLT\\Sync!NoSuch\r\n'
                       'delete=SOFTWARE\\Kazmere\\KZVLT\\Sync!(Default)\r\n'
                       'add=SOFTWARE\\Made!Name!REG_SZ!x'),
                      ('[QOR_DIR]', '[QOR_DIR]\r\ndelete={ServiceLogDir}NoSuch'),
                      ('; BrevantCheck: B045', '; meant so'), ('[RestartNotification_FR-FR]', '[Restart_FR-FR]'),
                      ('SysRunOnce=', 'SysRunOnce=cmd.exe /c echo x>"{InstalledDir}panel.htm"\r\nSysRunOnce='
                       'cmd.exe /c echo x>"{InstalledDir}readme.htm"& attrib +r "{InstalledDir}readme.htm"\r\n'
                       'SysRunOnce='))  # on files that have arrived
        setting = next(self.update.glob('Component/*/Share/Setting'))
        parts: dict[str, object] = dict.fromkeys(('folders', 'files', 'deletions', 'registry'), [])
        (setting / 'QorUpdate.json').write_text(json.dumps({  # which stays as it is
            'format': 1, 'component': {'product': setting.parts[-3], 'resource': ''}, **parts,
            'update_information': [{'section': 'SYNC', 'key': 'Schema', 'value': '3'}]}))
        info = self.update / 'UpdateInfo.ini'
        info.write_text(info.read_text().replace('c21t2101v3.9.2l1p-1r1o2', 'c21t2101v3.9.3'), 'utf-16')
        text = self.trial('--force', '--keep', self.home / 'kept')
        kept = sorted(str(file.relative_to(self.home)) for file in (self.home / 'kept').rglob('*') if file.is_file())
        text += '\n'.join(re.sub(r'\d{4,}', 'N', name) for name in kept) + '\n'
        text += self.plain((self.home / 'kept/registry.reg').read_text('utf-16')) + '\n'
        self.instruct(('delete={InstalledDir}No*', '\t; BrevantCheck: NO-EFFECT\r\n delete={InstalledDir}No*'),
                      ('BrevantCheck: B083', 'BrevantCheck: B070 B083'))
        shutil.rmtree(setting)
        return text + self.trial('--force', '--allow', 'schema!2', '--allow', 'b091', '--allow', 'B074',
                                 '--language', 'ES-ES', '--answer', 'none')

    def power_cut(self) -> str:
        """The first sample, whose first run ends half-way."""
        self.update, self.installed = write_sample(self.home / 'first')
        text = self.trial('--answer', 'later', '--kill-at', '200', '--report', self.home / 'report')
        report = json.loads((self.home / 'report/report.json').read_text('utf-8'))
        return text + self.plain(json.dumps(report['versions'], indent=0)) + '\n'

    def report(self) -> str:
        """The page of with_mistakes(), after it."""
        page = self.plain((self.home / 'report/report.html').read_text('utf-8'))
        head, tag, rest = page.partition('id="data">')
        data, end, tail = rest.partition('</script>')
        document = json.loads(data)
        # The files of Wine are those of its version.
        document['details']['files'] = [row for row in document['details']['files']
                                        if row['state'] != 'same' or row['name'].startswith(PRODUCT)]
        shown = json.dumps(document, indent=0)  # escaped only if the page's own data are
        return head + tag + (shown.replace('<', '\\u003c') if '<' not in data else shown) + end + tail

    def failing_programs(self) -> str:
        """Programs that end with an error or crash."""
        programs = self.home / 'programs'
        shutil.copytree(os.environ['BREVANT_BIN'], programs, ignore=shutil.ignore_patterns('*.debug'))
        text = ''
        with unittest.mock.patch.dict(os.environ):
            for name, statement, tool, *options in FAILURES:
                (self.home / 'a.c').write_text('#include <stdio.h>\nint main(int count, char** words) '
                                               f'{{ {statement}; return 0; }}')
                file = programs / f'{name}.exe'
                saved = file.read_bytes()
                subprocess.run([compiler(), '-static', '-xc', '-o', file, self.home / 'a.c'], check=True)
                text += f'== {file.name}: {statement} ==\n'
                words = '--programs', programs, *options
                text += self.trial(*words) if tool == 'try' else self.plain(output_of(demo.main, *words)) + '\n'
                file.write_bytes(saved)
        return text

    def outcomes(self) -> str:
        """What is shown of single results that are made up."""
        none = State({}, {}, {})
        nothing = Outcome(
            update='', language='EN-US', lint=Check('lint', 0, []), before=none, packaged={}, records=[], waiting=none,
            moves=[], commands=[], question={}, code=0, kill_at=0, ended=False, after=none, left=[], lines=[],
            verify=Check('verify', 0, []), folders={PRODUCT.rstrip('\\').casefold()}, seconds=1)
        outcomes = [dataclasses.replace(nothing, **seen) for seen in SEEN]

        def show_all(_: list[str]) -> int:
            for outcome in outcomes:
                print(f'== {outcome.exit_code()}, {outcome.complete()} ==')
                show(outcome, ['trace', 'checker'])
            show_table([('XX-XX', 'THE AGENT FAILED', None),
                        *(('EN-US', 'NOT COMPLETE', outcome) for outcome in outcomes if outcome.problems())])
            return 0
        with unittest.mock.patch.object(demo, 'play', side_effect=try_update.Refused('a finding')):
            return output_of(show_all) + output_of(demo.main)

    def agree(self) -> str:
        """Plan and run of the known cases and of random updates."""
        return self.plain(output_of(agree.main, '--cases', '--seeds', '22', '--restart-every', '4', '--blind'))

    def undo(self) -> str:
        """Random updates without a mistake: what lint says of them, and whether an undo restores the product."""
        return self.plain(output_of(valid_update.main, '--first', '10', '--seeds', '3')
                          + output_of(undo.main, '--first', '11', '--seeds', '1', '--kills', '2'))

    def release(self) -> str:
        """What the archives of a release have, and its sums. Neither the downloads nor the stand-ins need be here."""
        dist = self.home / 'one/dist'
        with unittest.mock.patch.multiple(release, write_sources=lambda *_: None, STANDINS=()), \
                unittest.mock.patch.dict(os.environ, TZ='EST5'):  # in which no time of an archive is
            time.tzset()
            release.pack(ROOT, dist, '1.2', 1700000000, 'why')
        time.tzset()
        lines = []
        for archive in sorted(dist.glob('*.zip')):
            with zipfile.ZipFile(archive) as packed:
                lines.append(archive.name)
                for entry in packed.infolist():
                    file = ROOT / entry.filename.partition('/')[2].replace('guides/', 'docs/')
                    same = '' if file.is_file() and file.read_bytes() == packed.read(entry) else ' (not of the sources)'
                    lines.append(f'  {entry.external_attr >> 16:o} {entry.date_time} {entry.filename}{same}')
        return re.sub('[0-9a-f]{64}', 'SHA-256', '\n'.join([*lines, 'SHA256SUMS', (dist / 'SHA256SUMS').read_text()]))

    def bill(self) -> str:
        """The bill of materials of release(), after it."""
        text = (self.home / 'one/dist/brevant-1.2.cdx.json').read_text('utf-8')
        for pattern, shown in (('[0-9a-f]{64}', 'SHA-256'), ('uuid:[0-9a-f-]+', 'uuid:UUID'),
                               (r'(?<=[@_"])[\d:]*\d+\.[\w.+%-]*-\d[\w.+%]*(?=["?.])', 'VERSION')):
            text = re.sub(pattern, shown, text)
        return text

    def bench(self) -> str:
        """What the benchmarks print of made-up samples: at most what they may be, and a little more."""
        sys.path.append(str(ROOT / 'bench'))
        import bench
        for name, size in ('Brevant.exe', 2 << 20), ('BrevantCheck.exe', 0x28FFFF):
            (self.home / 'bin').mkdir(exist_ok=True)
            (self.home / 'bin' / name).write_bytes(b'x' * size)
        whole = (TRIALS / 'bench_samples.txt').read_text('utf-8')
        results = iter([Result(0, whole), Result(0, re.sub('growth.*\n', '', whole)), Result(1, 'no machine')])

        def run(*words: object, timeout: int) -> Result:
            print(*words, f'(at most {timeout} seconds)')
            return next(results)
        busy = unittest.mock.Mock(side_effect=(0.25, 0.125) * 3)
        with unittest.mock.patch.multiple(bench, Machine=unittest.mock.DEFAULT, busy=busy) as mocks, \
                unittest.mock.patch.multiple(os, cpu_count=lambda: 2, sched_setaffinity=lambda *_: None), \
                unittest.mock.patch.object(shutil, 'copy2', lambda file, _: print(file.relative_to(self.home))), \
                unittest.mock.patch.dict(os.environ, BREVANT_BUILD=str(self.home)):
            mocks['Machine'].return_value.__enter__.return_value.run = run
            text = ''.join(output_of(bench.main, *words.split()) for words in ('', '--quick', '--quick'))
        return re.sub(r'done in \d+ s', 'done in N s', re.sub(r'wine-[^;]*', 'wine-N', text))

    def demo(self) -> str:
        """The demo."""
        return self.plain(output_of(demo.main, '--details', 'registry,agent,shortcuts,settings'))


def main() -> int:
    TRIALS.mkdir(exist_ok=True)
    for name in ('as_it_is', 'with_mistakes', 'with_doubts', 'power_cut', 'demo', 'agree', 'undo', 'release',
                 'outcomes', 'failing_programs', 'bench'):
        with tempfile.TemporaryDirectory() as home:
            trials = Trials(pathlib.Path(home).resolve())
            (TRIALS / f'{name}.txt').write_text(getattr(trials, name)(), 'utf-8')
            if name == 'with_mistakes':
                (TRIALS / 'report.html').write_text(trials.report(), 'utf-8')
            if name == 'release':
                (TRIALS / 'bill.json').write_text(trials.bill(), 'utf-8')
    print(f'the trials in {TRIALS}')
    return 0


if __name__ == '__main__':
    sys.exit(main())
