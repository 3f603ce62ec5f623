"""Tries the sample's update once for each of its languages, and compares the results with the expected ones."""
import argparse
import json
import os
import pathlib
import re
import shutil
import sys
import tempfile
import time
from typing import Any, Iterator

from . import expect, trace
from .layouts import MARKER, PROXY_PASSWORD, File, folders, planted_files, read_files, write_sample
from .links import ShellLink
from .machine import PRODUCT
from .outcome import Move, Outcome
from .prefix import VERSION
from .showing import progress, show
from .try_update import CHECKER_FAILED, CheckerFailed, Options, Parser, Refused, Trial

# What a language's machine must show in the end. The user of the first one agrees to restart at once, the user of the
# second one restarts later. Links: file, target, icon, arguments, description.
LANGUAGES: dict[str, dict[str, Any]] = {
    'EN-US': {
        'answer': 'ok',
        'message': 'Restart the computer to finish the update. Keystride is now Kazmere Qorvault.',
        'product': 'Kazmere Qorvault',
        'toolbar': 'Kazmere Qorvault Toolbar',
        'readme': 'in English',
        'greeting': 'Welcome to Kazmere Qorvault',
        'links': (
            ('{desktop}Kazmere Qorvault', 'Qorvault.exe', 'Qorvault.ico', '/open', 'Opens your passwords'),
            ('{desktop}New password', 'Qorvault.exe', 'Qorvault.ico', '/generate', 'Makes a new password'),
            ('{programs}Kazmere Qorvault\\Kazmere Qorvault', 'Qorvault.exe', 'Qorvault.ico', '',
             'Opens your passwords'),
            ('{programs}Kazmere Qorvault\\Help\\Read me', 'readme.htm', 'Qorvault.exe', '', 'What is new'),
        ),
    },
    'DE-DE': {
        'answer': 'later',
        'message': 'Bitte starten Sie den Computer neu, um die Aktualisierung abzuschließen. '
                   'Aus Keystride wird Kazmere Qorvault.',
        'product': 'Kazmere Qorvault für Zuhause',
        'toolbar': 'Kazmere Qorvault-Schlüsselleiste',
        'readme': 'auf Deutsch',
        'greeting': 'Willkommen bei Kazmere Qorvault – schön, dass Sie da sind',
        'links': (
            ('{desktop}Kazmere Qorvault', 'Qorvault.exe', 'Qorvault.ico', '/open', 'Öffnet Ihre Kennwörter'),
            ('{desktop}New password', 'Qorvault.exe', 'Qorvault.ico', '/generate', 'Erzeugt ein Kennwort'),
            ('{programs}Kazmere Qorvault\\Kazmere Qorvault', 'Qorvault.exe', 'Qorvault.ico', '',
             'Öffnet Ihre Kennwörter'),
            ('{programs}Kazmere Qorvault\\Hilfe\\Bitte lesen – Änderungen', 'readme.htm', 'Qorvault.exe', '',
             'Was ist neu?'),
        ),
    },
}

PRODUCT_KEY = 'HKLM\\Software\\Kazmere\\KZVLT'
VAULT_KEY = PRODUCT_KEY + '\\Vault'
UNINSTALL_KEY = ('HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\'
                 '{5A1C2E77-3B90-4d6e-9F21-7C04B8E2D913}')
CLASS_KEY = 'HKLM\\Software\\Classes\\CLSID\\'
ANY = 'any value'

# Key, value name, before the update, after it. Braces: folders of the sample, texts of the language.
REGISTRY = (
    (PRODUCT_KEY, 'ProductName', 'Keystride', '{text[product]}'),
    (PRODUCT_KEY, MARKER[0], None, MARKER[1].replace('{', '{{').replace('}', '}}')),
    (PRODUCT_KEY, 'DoUpdateDeploy', None, 1),
    (PRODUCT_KEY, 'FrwkDeployTick', None, ANY),
    (VAULT_KEY, 'Package', None, '{product}'),
    (VAULT_KEY, 'HelpFile', None, '{install}readme.htm'),
    (VAULT_KEY, 'LogFolders', None, '{windows}Temp\\;C:\\Trace\\Interactive\\;C:\\Trace\\Service\\;'
                                    'C:\\users\\{user}\\AppData\\LocalLow\\Kazmere\\'),
    (VAULT_KEY, 'IdleMinutes', 60, 15),
    (VAULT_KEY, 'MostBytes', None, 5 << 30),
    (VAULT_KEY, '', None, 'Kazmere Qorvault'),
    (VAULT_KEY, 'Theme', 'dark', 'dark'),
    (VAULT_KEY, 'Columns', None, 4),
    (VAULT_KEY, 'CacheBytes', None, 8 << 30),
    (VAULT_KEY, 'KeystrideToolbar', 'left', None),
    (UNINSTALL_KEY, 'DisplayName', 'Keystride', '{text[product]}'),
    (CLASS_KEY + '{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}', '', 'Keystride BHO', '{text[product]} BHO'),
    (CLASS_KEY + '{E2905B7D-8C13-4A6F-9D42-5F7B1E0C38A6}', '', 'Keystride ActiveX', '{text[product]} ActiveX'),
    (CLASS_KEY + '{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}', '', 'Keystride Toolbar', '{text[toolbar]}'),
)

# Key of "UpdateInfo.ini", before, after.
UPDATE_INFO = (
    ('Component101_DownloadPath', 'c21t2103v3.9.0l1p1r1o1', 'c21t2103v3.9.0l1p1r1o1'),
    ('Component101_Version', '3.8.0.1099', '3.9.0.1105'),
    ('Component103_iUD_Version', '1.8.1020', VERSION),
)

# What "config.xml" must hold in the end besides the protected password.
CONFIG = (
    ('the user has a proxy', '<Enable type="bool">1</Enable>'),
    ('its server', '<Server>proxy.example.net</Server>'),
    ('its port', '<Port type="int">3128</Port>'),
    ("the update's own setting", '<Skin>light</Skin>'),
)
PASSWORD = re.compile(r'<Password protected="1">([^<]+)</Password>')

# Steps in which a value is written are traced at the level of failures; nothing else may be.
EXPECTED_FAILURES = [
    'KzCommon::Storage::Reg::StoreValue(SOFTWARE\\Kazmere\\KZVLT\\Vault(Default)=Kazmere Qorvault)',
    'KzCommon::Storage::Reg::StoreValue(SOFTWARE\\Kazmere\\KZVLT\\VaultColumns=4)',
    'KzCommon::Storage::Reg::StoreValue(SOFTWARE\\Kazmere\\KZVLT\\VaultCacheBytes=0)',
    '*** CoCreateInstance [IStartMenuPinnedList] failed. [0x80040154]',  # Wine has no pins
]

Topic = tuple[str, Any, Any]  # what, as it must be, as it is


def waits(row: File) -> bool:
    """Whether a row's file is moved at the restart; drivers are copied at once."""
    return bool(row.source and row.target) and '\\Driver\\' not in (row.source or '')


class Expectations:
    """What the sample must show in a language."""
    def __init__(self, language: str, outcome: Outcome) -> None:
        self.language, self.text, self.outcome = language, LANGUAGES[language], outcome
        self.rows = read_files()
        self.names: dict[str, Any] = {**folders(), 'text': self.text, 'user': os.environ.get('USER', 'root')}

        self.topics = [*self.before_restart(), *self.files(), *self.registry(), *self.settings(), *self.shortcuts(),
                       *self.trace()]

    def failures(self) -> list[str]:
        return [f'{self.language}, {what}: {line}' for what, expected, found in self.topics
                for line in expect.differences(expected, found)]

    def count(self) -> int:
        """How many facts are expected."""
        return sum(max(len(expected), 1) if isinstance(expected, (dict, list, set)) else 1
                   for _, expected, _ in self.topics)

    def read(self, path: str, encoding: str = 'utf-8') -> str:
        return (self.outcome.after.content(path) or b'').decode(encoding).replace('\r\n', '\n')

    def before_restart(self) -> Iterator[Topic]:
        outcome = self.outcome
        yield 'question', {'title': 'Kazmere Qorvault', 'message': self.text['message'], 'style': '262209',
                           'wait': 'yes'}, outcome.question
        yield 'exit code', 0, outcome.code
        moves = {Move(str(row.source), str(row.target)) for row in self.rows if waits(row)}
        yield 'not registered to be moved', set(), moves - set(outcome.moves)
        others = {row.source for row in self.rows if not waits(row)}
        yield 'registered by mistake', set(), {move.source for move in outcome.moves if move.source in others}
        old = {row.target: row.old for row in self.rows
               if row.target and row.old and (waits(row) or row.target.endswith(('.dll', '.lnk')))}
        new = {row.target: row.new for row in self.rows if row.target and row.new and not waits(row)}
        gone = {name.format(**self.names): None for name in ('{interactivelog}Keystride.old',
                                                             '{windows}Temp\\Keystride1.tmp')}
        yield 'files while the user thinks', {**old, **new, **gone}, self.contents(outcome.waiting, [*old, *new, *gone])
        yield 'still pending after the restart', [], outcome.left

    @staticmethod
    def contents(state: Any, paths: list[str]) -> dict[str, Any]:
        found = {path: state.content(path) for path in paths}
        return {path: content and content.decode().replace('\r\n', '\n') for path, content in found.items()}

    def files(self) -> Iterator[Topic]:
        after = self.outcome.after
        expected: dict[str, Any] = {}
        for row in self.rows:
            expected[row.target or row.source or ''] = row.new
            if row.source and not waits(row):
                expected[row.source] = row.new
        temp = self.names['windows'] + 'Temp\\'
        expected[temp + 'QorvaultRunOnce.txt'] = self.names['product'] + '\n'
        expected[temp + 'kbfilter.ini'] = expected[PRODUCT + 'Driver\\kbfilter.ini']
        yield 'files', expected, self.contents(after, list(expected))
        others = {'Brevant.exe', 'BrevantCheck.exe', 'KzDbg64.dll', 'libexpat.dll', 'wtsapi32.dll', 'QorPaFrwk.ini',
                  'UpdateInfo.ini', 'QorUpdate.json', 'qorshcutbackup.xml', 'Resource\\EN-US\\StringTable.ini',
                  'Resource\\DE-DE\\StringTable.ini'}
        for base, kind in (('config', 'xml'), ('qorshcut', 'xml'), ('readme', 'htm')):
            others |= {f'{base}.{kind}', *(f'{base}_{language}.{kind}' for language in LANGUAGES)}
        known = {path for path, content in expected.items() if content} | {PRODUCT + name for name in others}
        # What else a record brings is in the manifest; "verify" compares its content.
        manifest = json.loads(self.read(PRODUCT + 'QorUpdate.json') or '{"files": []}')
        known |= {file['destination'].replace('{InstalledDir}', PRODUCT) for file in manifest['files']}
        yield 'unexpected files', set(), {path for path in after.files if path.startswith(PRODUCT)} - known
        yield 'files that no step looks at', set(planted_files()), set(self.outcome.never_looked_at())
        yield 'folder Legacy', False, (PRODUCT + 'Legacy').casefold() in self.outcome.folders

    def registry(self) -> Iterator[Topic]:
        for key, name, before, after in REGISTRY:
            wanted = after.format(**self.names) if isinstance(after, str) else after
            found = self.outcome.after.values.get((key, name))
            where = f'{key} {name or "(Default)"}'
            yield f'{where} before', before, self.outcome.before.values.get((key, name))
            yield where, found if after is ANY and found is not None else wanted, found

    def settings(self) -> Iterator[Topic]:
        update_info = self.read(PRODUCT + 'UpdateInfo.ini', 'utf-16')
        yield 'UpdateInfo.ini', [after for _, _, after in UPDATE_INFO], [
            (re.findall(f'^{key}=(.*)$', update_info, re.M) or [''])[0] for key, _, _ in UPDATE_INFO]
        yield 'language of readme.htm', True, self.text['readme'] in self.read(PRODUCT + 'readme.htm')
        config = self.read(PRODUCT + 'config.xml')
        for what, text in (*CONFIG, ('in its language', f'<Greeting>{self.text["greeting"]}</Greeting>')):
            yield f'config.xml, {what}', text, text if text in config else None
        old = (self.outcome.before.content(PRODUCT + 'config.xml') or b'').decode()
        found = PASSWORD.findall(config)
        yield 'protected password', (PASSWORD.findall(old), 1), (found, len(found))
        secrets = PROXY_PASSWORD.encode(), PROXY_PASSWORD.encode('utf-16-le')
        yield 'the password in clear', [], [
            path for state in (self.outcome.waiting, self.outcome.after) for path, content in state.files.items()
            if any(secret in content for secret in secrets)]
        yield 'the password in the trace', 0, sum(PROXY_PASSWORD in line for line in self.outcome.lines)

    def shortcuts(self) -> Iterator[Topic]:
        yield 'shortcuts', {
            name.format(**self.names) + '.lnk': ShellLink(PRODUCT + target, PRODUCT + icon, arguments, description, '')
            for name, target, icon, arguments, description in self.text['links']}, self.outcome.after.links
        yield 'old folder of shortcuts', False, (
            self.names['programs'] + 'Kazmere Keystride').casefold() in self.outcome.folders

    def trace(self) -> Iterator[Topic]:
        messages = [trace.message(line) for line in self.outcome.lines]
        yield 'failure lines', sorted(EXPECTED_FAILURES), sorted(trace.failures(messages))
        yield 'runs after the restart', 1, messages.count('@@@ Paramter is /ApplyNewName')


def play(language: str) -> tuple[Outcome, Expectations]:
    """Tries the sample in a language; returns the outcome and what is expected of it."""
    home = pathlib.Path(tempfile.mkdtemp(prefix='brevant-sample-'))
    try:
        update, installed = write_sample(home)
        options = Options(update, installed, language, LANGUAGES[language]['answer'], planted=planted_files())
        outcome = Trial(options, progress(language)).run()
    finally:
        shutil.rmtree(home, ignore_errors=True)
    return outcome, Expectations(language, outcome)


def parse(arguments: list[str]) -> argparse.Namespace:
    parser = Parser('tools/demo.sh', description=__doc__)
    parser.add_views()
    options = parser.parse_args(arguments)
    parser.take_programs(options.programs)
    parser.make_report_folder(options.report)
    return options


def main(arguments: list[str]) -> int:
    options = parse(arguments)
    start, failures, incomplete, facts = time.monotonic(), [], [], 0
    for language in LANGUAGES:
        try:
            outcome, expected = play(language)
        except Refused as findings:
            print(f'\n{findings}\n[demo] FAILED: the checker refuses the sample')
            return 1
        except CheckerFailed as failure:
            print(f'\n{failure}\n[demo] FAILED: the checker itself failed; the sample was not tried')
            return CHECKER_FAILED
        print()
        show(outcome, options.details, options.report / language if options.report else None)
        failures += expected.failures()
        facts += expected.count()
        incomplete += [] if outcome.complete() else [f'{language}: the update is not complete']
    print(f'[demo] NEVER LOOKED AT: the sample brings {len(planted_files())} such files on purpose (samples/files.txt)')
    print(f'[demo] {len(LANGUAGES)} machines in {time.monotonic() - start:.0f} s: '
          + ('FAILED' if failures + incomplete else f'complete, and all {facts} expectations met'))
    print('\n'.join(f'  {text}' for text in incomplete + failures), end='\n' if failures + incomplete else '')
    return 1 if failures + incomplete else 0


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
