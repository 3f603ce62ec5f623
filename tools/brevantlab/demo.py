"""Plays the sample's update through on throwaway machines, one for each language, and shows what became of it.

play() is the whole story of one language; every expectation that does not hold is one line of its result.
"""
import re
import sys
import threading
import time
from typing import Any, Optional, TextIO

from . import trace
from .layouts import MARKER, PROXY_PASSWORD, File, SampleMachine
from .links import ShellLink, read_link
from .machine import RUN_ONCE, Result
from .standins import CANCEL, OK, Question

# What a language's machine must show in the end. The user of the first one agrees to restart at once, the user of the
# second one restarts later. Links: file, target, icon, arguments, description.
LANGUAGES: dict[str, dict[str, Any]] = {
    'EN-US': {
        'answer': OK,
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
        'answer': CANCEL,
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
ANY = object()

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
    ('Component103_iUD_Version', '1.8.1020', '1.9.1112'),
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
EXPECTED_FAILURES = (
    'KzCommon::Storage::Reg::StoreValue(SOFTWARE\\Kazmere\\KZVLT\\Vault(Default)=Kazmere Qorvault)',
    'KzCommon::Storage::Reg::StoreValue(SOFTWARE\\Kazmere\\KZVLT\\VaultColumns=4)',
    'KzCommon::Storage::Reg::StoreValue(SOFTWARE\\Kazmere\\KZVLT\\VaultCacheBytes=0)',
    '*** CoCreateInstance [IStartMenuPinnedList] failed. [0x80040154]',  # Wine has no pins
)


class Story:
    def __init__(self, language: str, out: TextIO) -> None:
        self.language = language
        self.text = LANGUAGES[language]
        self.out = out
        self.failures: list[str] = []

    def say(self, text: str = '') -> None:
        print(text, file=self.out, flush=True)

    def chapter(self, title: str) -> None:
        self.say(f'\n== {self.language}: {title} ==')

    def check(self, ok: bool, text: str) -> None:
        self.say(f'  {"ok    " if ok else "FAILED"} {text}')
        if not ok:
            self.failures.append(f'{self.language}: {text}')

    def play(self) -> list[str]:
        """Returns what was traced."""
        self.chapter('an installed Keystride 3.8 and the downloaded update')
        with SampleMachine(self.language) as self.machine:
            self.names: dict[str, Any] = {**self.machine.folders, 'text': self.text, 'user': self.machine.user}
            self.config = self.machine.read(self.machine.install + 'config.xml') or ''
            self.show_before()
            agent = self.deploy_until_question()
            self.show_question()
            self.show_pending()
            self.answer(agent)
            self.show_files()
            self.show_registry()
            self.show_settings()
            self.show_run_once()
            self.show_shortcuts()
            return self.show_trace()

    # -- before the restart --

    def show_before(self) -> None:
        for row in self.machine.rows:
            if row.old and row.target:
                self.check(self.machine.read(row.target) == row.old, f'old  {row.target}')
        for key, name, before, _ in REGISTRY:
            if before is not None:
                self.check(self.machine.values(key).get(name) == before, f'{key} {name or "(Default)"} = {before}')

    def deploy_until_question(self) -> threading.Thread:
        self.chapter('Brevant.exe /DeployFramework')
        self.question = Question(self.machine, self.machine.install)
        self.question.hold()
        self.result: Optional[Result] = None

        def run() -> None:
            self.result = self.machine.run(self.machine.install + 'Brevant.exe', '/DeployFramework')

        agent = threading.Thread(target=run)
        agent.start()
        while agent.is_alive() and not self.question.asked():
            time.sleep(0.05)
        return agent

    def show_question(self) -> None:
        question = self.question.asked()
        self.check(question.get('title') == 'Kazmere Qorvault', f'the user is asked: [{question.get("title")}]')
        self.check(question.get('message') == self.text['message'], f'[{question.get("message")}]')
        self.check(question.get('style') == '262209', f'message box style {question.get("style")}')

    def show_pending(self) -> None:
        self.chapter('while the user thinks: what waits for the restart')
        pending = self.machine.pending_moves()
        for source, target in pending:
            self.say(f'         {"replace" if target else "delete "} {target.lstrip("!") or source}')
        missing = [row.target for row in self.machine.rows if self.waits(row)
                   and (row.source, f'!{row.target}') not in pending]
        self.check(not missing, f'every file of the update is registered to be moved {missing or ""}')
        strays = {row.source for row in self.machine.rows if not self.waits(row)} & {source for source, _ in pending}
        self.check(not strays, f'and no other one {strays or ""}')
        for row in self.machine.rows:
            if row.target and row.old and (self.waits(row) or row.target.endswith(('.dll', '.lnk'))):
                self.check(self.machine.read(row.target) == row.old, f'still old  {row.target}')
            elif row.target and row.new and not self.waits(row):
                self.check(self.machine.read(row.target) == row.new, f'already new  {row.target}')
        for name in ('{interactivelog}Keystride.old', '{windows}Temp\\Keystride1.tmp'):
            path = name.format(**self.names)
            self.check(self.machine.read(path) is None, f'already gone  {path}')
        for command in self.machine.values(RUN_ONCE).values():
            self.say(f'         run once: {command}')

    @staticmethod
    def waits(row: File) -> bool:
        """Whether a row's file is moved at the restart; drivers are copied at once."""
        return bool(row.source and row.target) and '\\Driver\\' not in (row.source or '')

    def answer(self, agent: threading.Thread) -> None:
        start = time.monotonic()
        self.question.answer(self.text['answer'])
        agent.join()
        if self.text['answer'] == OK:
            self.chapter('the user agrees: the agent restarts the machine')
            self.machine.wait_for_restart()
        else:
            self.chapter('the user refuses, and restarts the machine later')
            self.check(self.machine.pending_moves() != [], 'nothing has happened yet')
            self.machine.restart()
        self.check(self.result is not None and self.result.code == 0, f'exit code {self.result}')
        self.check(self.machine.pending_moves() == [], 'nothing waits any more')
        self.say(f'         back after {time.monotonic() - start:.1f} s')

    # -- after the restart --

    def show_files(self) -> None:
        self.chapter('files')
        expected = {'Brevant.exe', 'KzDbg64.dll', 'libexpat.dll', 'wtsapi32.dll', 'wtsapi32.log', 'wtsapi32.answer',
                    'QorPaFrwk.ini', 'UpdateInfo.ini', 'qorshcutbackup.xml', 'Resource\\EN-US\\StringTable.ini',
                    'Resource\\DE-DE\\StringTable.ini'}
        for base, kind in (('config', 'xml'), ('qorshcut', 'xml'), ('readme', 'htm')):
            expected |= {f'{base}.{kind}', *(f'{base}_{language}.{kind}' for language in LANGUAGES)}
        for row in self.machine.rows:
            where = row.target or row.source or ''
            found = self.machine.read(where)
            self.check(found == row.new, f'{("new  " if row.target else "left ") if row.new else "gone "} {where}')
            stay = [row.target, None if self.waits(row) else row.source] if row.new else []
            expected |= {path.removeprefix(self.machine.install) for path in stay
                         if path and path.startswith(self.machine.install)}
        strange = expected ^ set(self.machine.listing(self.machine.install))
        self.check(not strange,
                   f'no other file came or went, and the moved ones left the download folder {strange or ""}')
        self.check(not self.machine.host(self.machine.install + 'Legacy').exists(), 'the whole folder Legacy is gone')

    def show_registry(self) -> None:
        self.chapter('registry')
        for key, name, before, after in REGISTRY:
            found = self.machine.values(key).get(name)
            wanted = after.format(**self.names) if isinstance(after, str) else after
            self.check(found is not None if after is ANY else found == wanted,
                       f'{key} {name or "(Default)"}: {before} -> {found}')

    def show_settings(self) -> None:
        self.chapter('settings')
        install = self.machine.install
        update_info = self.machine.read(install + 'UpdateInfo.ini', 'utf-16') or ''
        for key, before, after in UPDATE_INFO:
            self.check(f'\n{key}={after}\n' in update_info, f'UpdateInfo.ini {key}: {before} -> {after}')
        self.check(self.text['readme'] in (self.machine.read(install + 'readme.htm') or ''),
                   f'readme.htm is the one {self.text["readme"]}')

        config = self.machine.read(install + 'config.xml') or ''
        self.say('\n'.join('         ' + line for line in config.splitlines()))
        for what, text in (*CONFIG, ('in its language', f'<Greeting>{self.text["greeting"]}</Greeting>')):
            self.check(text in config, f'config.xml: {what}, {text}')
        self.check(PASSWORD.findall(config) == PASSWORD.findall(self.config) != [],
                   "the user's password is carried over in its protected form")
        self.check(not self.find_password(), f'it is nowhere in clear {self.find_password() or ""}')

    def find_password(self) -> list[str]:
        """Files of the machine that hold the password in clear; those of Windows itself (hard links) left out."""
        secrets = PROXY_PASSWORD.encode(), PROXY_PASSWORD.encode('utf-16-le')
        return [str(file) for file in self.machine.prefix.rglob('*')
                if file.is_file() and not file.is_symlink() and file.stat().st_nlink == 1
                and any(secret in file.read_bytes() for secret in secrets)]

    def show_run_once(self) -> None:
        self.chapter('commands that ran once after the restart')
        self.check(self.machine.values(RUN_ONCE) == {}, 'none is left')
        for name, wanted in (('QorvaultRunOnce.txt', self.names['product'].strip()),
                             ('kbfilter.ini', 'new content, {package}Driver\\kbfilter.ini')):
            path = self.names['windows'] + 'Temp\\' + name
            found = (self.machine.read(path) or '').strip()
            self.check(found == wanted, f'{path}: {found}')

    def show_shortcuts(self) -> None:
        self.chapter('shortcuts')
        wanted = {}
        for name, target, icon, arguments, description in self.text['links']:
            install = self.machine.install
            wanted[name.format(**self.names) + '.lnk'] = ShellLink(install + target, install + icon, arguments,
                                                                   description, '')
        for path, link in wanted.items():
            file = self.machine.host(path)
            found = read_link(file.read_bytes()) if file.is_file() else None
            self.check(found == link, f'{path}\n{" " * 11}' + f'\n{" " * 11}'.join(
                f'{field}: {text}' for field, text in (found or link)._asdict().items()))
        links = [file for folder in ('desktop', 'programs') for file in
                 self.machine.host(self.names[folder]).rglob('*.lnk')]
        self.check(len(links) == len(wanted), 'the old ones are gone')
        self.check(not self.machine.host(self.names['programs'] + 'Kazmere Keystride').exists(),
                   'their folder is gone')

    def show_trace(self) -> list[str]:
        self.chapter('trace')
        messages = self.machine.messages()
        failures = trace.failures(messages)
        self.check(sorted(failures) == sorted(EXPECTED_FAILURES),
                   f'{len(messages)} lines; those at the level of failures are known: '
                   f'{sorted(set(failures) ^ set(EXPECTED_FAILURES)) or len(failures)}')
        self.check('@@@ Paramter is /ApplyNewName' in messages, 'Brevant.exe /ApplyNewName ran after the restart')
        return self.machine.trace_lines()


def play(language: str, out: TextIO) -> tuple[list[str], list[str]]:
    """Plays the story of one language; returns its trace lines and the expectations that do not hold."""
    story = Story(language, out)
    return story.play(), story.failures


def main() -> int:
    start, failures, shown = time.monotonic(), [], set[str]()
    for language in LANGUAGES:
        lines, failed = play(language, sys.stdout)
        failures += failed
        new = [line for line in lines if trace.message(line) not in shown]
        shown.update(trace.message(line) for line in lines)
        print('\n  The trace line by line' + ('' if len(new) == len(lines) else ', where it is not that of above') +
              '; docs/debug-trace.md tells how to read it:\n')
        print('\n'.join('  ' + line for line in new))
    seconds = time.monotonic() - start
    print(f'\n[demo] {len(LANGUAGES)} machines in {seconds:.0f} s: ', end='')
    print('every expectation held' if not failures else f'FAILED, {len(failures)} expectations did not hold:')
    print('\n'.join('  ' + text for text in failures), end='\n' if failures else '')
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
