"""What the verbs of the checking program print, in the order of an update's life: docs/examples.

tools/examples.sh writes them, and a test compares them. What differs from one run, machine or release to another is
replaced, and JSON is laid out in fewer lines.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
from typing import Any

from . import trace_examples
from .layouts import install_folder
from .machine import PRODUCT, SESSION_MANAGER, SETTINGS, Machine
from .prefix import ROOT
from .rare_examples import RareExamples, make_key

EXAMPLES = ROOT / 'docs/examples'
WORK, PACKAGE = 'C:\\Work\\', 'c21t2103v3.9.3l1p1r1o1'
SETTING = f'{PRODUCT}Component\\{PACKAGE}\\Share\\Setting\\'
POWER = SESSION_MANAGER + '\\Power'
PENDING_MOVES = 'PendingFileRenameOperations'
KEY = '--key C:\\key.pem'

REPLACED = [(re.compile(pattern), shown) for pattern, shown in (
    # The agent's version is part of it.
    (r'((?:arrived|pending|earlier update) |\n  "update": "|"kind": "[^"]*", "update": ")[0-9a-f]{64}', r'\1IDENTITY'),
    (r'(with key) [0-9a-f]+', r'\1 KEY'),
    (r'(\n  "machine": )"[^"]*"', r'\1"PC1"'),
    (r'(\n  "pending_minutes": )[01],', r'\g<1>1,'),
    (r'(\n  "(?:started|time)": )"[^"]*"', r'\1"2026-01-31T12:00:00Z"'),
    (r'[\d/]{6}20(?!25)\d\d [\d:]{8}(  .*\(process) \w+, [\d.]+ s', r'31/01/2026 12:00:00\1 0120, 0.050 s'),
    (r'(FrwkDeployTick": |FrwkDeployTick", "new": |FrwkDeployTick: )(?:"\d+" -> )?"\d+"', r'\1"1234567"'),
    (r'\d+ MB are free', '90000 MB are free'),
    (r'(not examined: .*?\.xml: |its rights, cannot be read: |\nQorPaFrwk.ini: (?=The )|hr=-2147.*\n(?: +after: .*\n)?'
     r' +code: )[^\n]+', r'\1(a text of Windows)'),
    (r'("reason": )"The [^"]*', r'\1"(a text of Windows)'),
    (r'(?<![\d.])1\.\d+\.(?!1100)\d{4}(?![\d.])', '1.9.9999'))]  # the agent's version

# What a later update has in its instruction file.
LATER = {'}Help\r\n': '}Help\r\nadd={InstalledDir}Extra\r\n', '!15': '!20', '=/Window/Skin': '=/Window/Width',
         'delete={InstalledDir}Retired': 'delete_now={InstalledDir}Retired', '/updated': '/new',
         '3.9.3.1140': '3.9.4.1200', 'add_if_non=': 'delete=SOFTWARE\\Kazmere\\KZVLT\\Vault!None\r\n'
         'add=SOFTWARE\\Kazmere\\KZVLT\\New!Name!REG_SZ!x\r\nadd=SOFTWARE\\Kazmere\\KZVLT\\New!Name!REG_DWORD!7\r\n'
         'add_if_non='}
BROKEN = r"""[QOR_DIR]
Add={InstalledDir}Help
[QOR_FILE]
delete={InstaledDir}Old.dat
delete={InstalledDir}Grün.dat
[QOR_REGISTRY_PATCH]
add=SOFTWARE\Kazmere\KZVLT!Password!REG_SZ!Maple-Street-1906
add=SOFTWARE\Kazmere\KZVLT!Number!REG_TEXT!1
[Run]
SysRunOnce=Setup.exe /quiet
"""
# Mistakes of every family of rules.
WRONG = r"""[QOR_DIR]
add=Help
add={InstalledDir}..\Other
[QOR_FILE]
delete=C:\Windows\System32\x.dll
delete_now={InstalledDir}*.*
delete={InstalledDir}Qorvault.cmd
[QOR_FILE]
delete={InstalledDir}Twice
[QOR_REGISTRY_PATCH]
add=SOFTWARE\Kazmere\KZVLT!Number!REG_DWORD!0x10
add=SOFTWAR\Kazmere!Name!REG_SZ!x
add=SOFTWARE\Kazmere\KZVLT!Name
no record
[QOR_CONFIG_MERGE]
migrate=/Window/Skn
migrate=/Window/Proxy
migrate=Window/Skin
migrate=/Window
[UPDATE_INFO]
modify=COMPONENT_LIST!Component101_Version!3.9.3
modify=COMPONENT_LIST!Nothing!1
; BrevantCheck: B045
modify=COMPONENT_LIST!Intended!1
[Run]
SysRunOnce="{InstalledDir}None.cmd" /x
SysRunOnce="{InstalledDir}Qorvault.cmd
[RestartNotification_EN-US]
text=Only one
[Unknown]
"""

VERBS = ('new', 'lint', 'plan', 'ready', 'manifest', 'sign', 'check-signature', 'undo', 'diff', 'verify', 'rollup',
         'trace')
MISUSE = ('', 'lnit broken', 'broken', '--help lint', 'lint --help broken', 'lint', 'lint broken wrong',
          'lint --language', 'lint --installed ""', 'lint --all', 'lint --format json',
          'diff broken wrong --format sarif', 'rollup broken --format xml', 'verify --machines broken',
          'verify --detect --pending soon',
          'new other --version 3.9', 'new other --languages EN_US', 'new other --languages EN-US,en-us',
          'new other --product a?', 'lint none', 'lint spring', 'lint broken --installed none',
          'lint ./broken --installed spring', 'lint broken --language ""', 'check-signature broken --key ""',
          'new other --languages ""', 'new other --version ""', 'lint broken --detect', 'plan broken --strict',
          'ready broken --language DE-DE', 'manifest broken --output other', 'sign broken --key key.pem',
          'check-signature broken --event-log', 'undo broken --older', 'diff broken wrong --all',
          'verify --with signer.cmd', 'verify --format csv', 'rollup broken --record a.json', 'trace broken --into',
          'new other --trace', 'new other --installed broken')
# Codes with words of the program's own, and two without.
CODES = (2, 3, 5, 6, 13, 32, 160, 161, 223, 448, 681, 1113, 1465, 7022, 0x80040154, 0x800300FD, 112, 99999)

RECORD: dict[str, Any] = {
    'record': 1, 'update': '0123456789abcdef' * 4, 'package': PACKAGE, 'product_version': '3.9.3.1140',
    'agent_version': '1.9.1100', 'machine': 'PC1', 'time': '2026-01-31T12:00:00Z', 'started': '2026-01-31T11:30:00Z',
    'verdict': 'arrived', 'kept': 23, 'not_kept': 0, 'open': []}
REASONS = [{'verdict': 'MISSING', 'what': 'C:\\Help', 'detail': 'nothing'},
           {'verdict': 'NOT DELETED', 'what': 'C:\\Old'}]
MISSING = {'verdict': 'missing', 'kept': 20, 'not_kept': 3, 'open': REASONS}
# The records of a small fleet, by file name: what differs from RECORD.
FLEET: dict[str, dict[str, Any]] = {
    '1': {}, '1 before': {'time': '2026-01-30T12:00:00Z', **MISSING}, '1 copy': {},
    '2': {'machine': '=PC2', **MISSING}, '3': {'machine': 'PC3', **MISSING, 'not_kept': 1, 'open': REASONS[:1]},
    '4': {'machine': 'PC4', 'verdict': 'pending', 'pending_minutes': 7, 'update': 'ab' * 32}, '5': {'record': 2},
    '6': {'time': '2026-02-30T12:00:00Z'}, '7': {'update': 'x' * 64},
    '8': {'verdict': 'pending', 'not_kept': 0, 'open': REASONS},
    **{f'many {number}': {'machine': f'PC1{number}', **MISSING, 'update': 'cd' * 32, 'not_kept': 9, 'open': [
        *[{**REASONS[0], 'what': f'C:\\{letter}'} for letter in 'ABCDEFGHIJK'[:number + 4]], REASONS[1], REASONS[1],
        {'verdict': 'NOT COVERED', 'what': 'C:\\config.xml'}][-9:]} for number in range(1, 8)},
    'many unknown': {'machine': 'PC18', 'verdict': 'unknown', 'update': '', 'not_kept': 1, 'open': [
        {'verdict': 'REFUSED', 'what': 'C:\\"A"', 'detail': 'x'}]},
    'many 1 earlier': {'machine': 'pc11', 'time': '2025-12-31T23:59:59Z'}, '9': {'machine': ''},
    '10': {'pending_minutes': -1}, '11': {'kept': 'x'}, '12': {'open': [{'verdict': 'LOST', 'what': 'a'}]},
    'north\\16': {'machine': 'PC5', 'package': '-P', 'product_version': '+3', 'agent_version': '@"1"',
                  'started': '\t', 'verdict': 'unknown', 'not_kept': 2, 'open': REASONS[:1] * 2},
    '13': {'verdict': 'lost'}, '14': {'time': '2026-01-31T12:00'}, '15': {'agent_version': 1},
    '17': {'open': [1]}, '18': {'open': {}}, '19': {'open': [{**REASONS[0], 'detail': 1}]}, '20': {'record': '1'},
    '21': {'verdict': 1}, 'z': {'machine': 'PC3', 'time': '2025-12-31T23:59:59Z'}}

# A manifest with more of what is not covered than the record of an update that has arrived may have.
LONG: dict[str, Any] = {
    'format': 1, 'component': {'product': PACKAGE, 'resource': ''}, 'folders': [], 'deletions': [], 'registry': [],
    'files': [{'destination': '{InstalledDir}config.xml', 'source': f'Component\\{PACKAGE}\\config.xml', 'when': 'now',
               'settings': {'root': 'Configuration', 'tags': [], 'carried_over': ['/Window/Skin', '/a' * 2000]}}],
    'update_information': [{'section': 'COMPONENT_LIST', 'key': 'Component101_Version', 'value': '3.9.4.1200'}]}


def laid_out(value: Any, indent: str = '\n') -> str:
    """JSON with each short or simple part on one line."""
    text = json.dumps(value)
    parts = [*value.values()] if isinstance(value, dict) else value
    if len(text) < 110 or not any(isinstance(part, (dict, list)) for part in parts):
        return text
    names = [f'{json.dumps(name)}: ' for name in value] if isinstance(value, dict) else [''] * len(value)
    rows = [name + laid_out(part, indent + '  ') for name, part in zip(names, parts)]
    return f',{indent}  '.join(rows).join((f'{text[0]}{indent}  ', f'{indent}{text[-1]}'))


def take_rules(sarif: dict[str, Any]) -> str:
    """Takes the list of all rules out of a SARIF document, and shows one rule in each line."""
    driver, lines = sarif['runs'][0]['tool']['driver'], ''
    for rule in driver['rules']:
        short, level = rule['shortDescription']['text'], rule['defaultConfiguration']['level']
        lines += f'{rule["id"]} {rule["name"]}, {level}: {short}\n    '
        lines += f'{rule["helpUri"]} | {rule["help"]["text"].replace(short, "...")}\n'
    driver['rules'] = '...'
    return lines


def edit(file: pathlib.Path, changes: dict[str, str], encoding: str = 'utf-16') -> None:
    text = file.read_bytes().decode(encoding)
    for old, new in changes.items():
        if old not in text:
            raise ValueError(f'{file} has no {old}')
        text = text.replace(old, new)
    file.write_bytes(text.encode(encoding))


class Examples:
    """One machine on which every verb is shown; `found` has the text of each file by its name."""

    def __init__(self, machine: Machine) -> None:
        self.machine = machine
        self.place = WORK
        self.overview = ''
        self.found: dict[str, str] = {}

    def run(self) -> dict[str, str]:
        self.machine.install_program()
        self.machine.make_dir(WORK)
        self.show_authors_verbs()
        self.place = PRODUCT
        self.show_plans()
        self.show_signatures()
        self.show_deployment()
        self.show_fleet()
        RareExamples(self).run()
        trace_examples.TraceExamples(self).run()
        return self.found

    def show(self, name: str, *commands: str) -> None:
        """Adds calls to an example, with their output and exit code."""
        lines = [f'@"{PRODUCT}BrevantCheck.exe" {command}\r\n@echo ^<%errorlevel%^>\r\n' for command in commands]
        self.machine.write('C:\\show.cmd', ''.join(lines))
        result = self.machine.run('cmd.exe', '/c', 'C:\\show.cmd', cwd=self.machine.host(self.place))
        parts = re.split(r'<(\d+)>\n', result.output)
        for command, text, code in zip(commands, parts[::2], parts[1::2], strict=False):
            self.add(name, f'BrevantCheck {command}', f'{text}(exit code {code})\n')

    def show_file(self, name: str, file: str, encoding: str = 'utf-8') -> None:
        self.add(name, f'type {file}', self.machine.read(self.place + file, encoding) or '')

    def add(self, name: str, command: str, text: str) -> None:
        if text.startswith('{'):
            document, end = json.JSONDecoder().raw_decode(text)
            if 'runs' in document:
                self.found['lint.rules'] = take_rules(document)
            text = laid_out(document) + text[end:]
        for pattern, shown in REPLACED:
            text = pattern.sub(shown, text)
        text = text.replace(self.overview, '(as --help)\n') if name == 'misuse' else text
        self.found[name] = self.found.get(name, '') + f'> {command}\n{text}\n'

    def show_authors_verbs(self) -> None:
        self.show('help', '--help', *(f'{verb} --help' for verb in VERBS))
        self.show('new', 'new spring', 'new spring', 'new spring\\update\\UpdateInfo.ini',
                  'new fall --product "A & B" --version 4.0.0.1 --languages FR-FR,DE-DE',
                  'lint fall/update --installed fall/installed --strict')
        self.add('new', 'dir /s /b fall', '\n'.join(sorted(self.machine.listing(WORK + 'fall'))) + '\n')
        for file, encoding in (('QorPaFrwk.ini', 'utf-16'), ('UpdateInfo.ini', 'utf-16'), (
                'Component\\c21t2103v4.0.0l1p1r1o1\\Share\\Setting\\qorshcut_FR-FR.xml', 'utf-8'), (
                'Component\\c21t2101v4.0.0l1p-1r1o1\\DE-DE\\StringTable.ini', 'utf-16')):
            self.show_file('new', f'fall\\update\\{file}', encoding)
        self.show_file('new', 'fall\\installed\\registry.reg', 'utf-16')
        spring, summer, broken, wrong = (self.machine.host(WORK + name)
                                         for name in ('spring', 'summer', 'broken', 'wrong'))
        for folder in (summer, broken, wrong):
            shutil.copytree(spring / 'update', folder)
        edit(summer / 'QorPaFrwk.ini', LATER)
        table = next(summer.glob('Component/*/DE-DE/StringTable.ini'))
        edit(table, {'Kazmere': 'K.'})
        shutil.copytree(table.parent, table.parent.with_name('FR-FR'))
        edit(next(summer.rglob('qorshcut_DE-DE.xml')), {'Qorvault.cmd': 'Other.cmd'}, 'utf-8')
        (broken / 'QorPaFrwk.ini').write_text(BROKEN, 'utf-8')
        next(broken.rglob('config_DE-DE.xml')).unlink()
        (wrong / 'QorPaFrwk.ini').write_text(WRONG, 'utf-16')
        setting = next(wrong.glob('Component/*/Share/Setting'))
        shutil.copy(wrong / 'UpdateInfo.ini', setting)
        edit(setting / 'config_EN-US.xml', {
            '<Skin>': '<Proxy><Password>x</Password></Proxy><Skin type="text">'}, 'utf-8')
        edit(setting / 'config_DE-DE.xml', {'<Skin>': '<Proxy>1</Proxy><Skin type="int">'}, 'utf-8')
        edit(setting / 'qorshcut_DE-DE.xml', {'lnk="Qorvault.cmd"': 'lnk="Other.exe"', '</Folder>': ''}, 'utf-8')
        edit(setting / 'qorshcut_EN-US.xml', {'lnk="Qorvault.cmd"': 'lnk="Other.exe"'}, 'utf-8')
        edit(next(wrong.glob('Component/*/DE-DE/StringTable.ini')), {'S_STR_PRODUCT_NAME': 'S_STR_NAME'})
        (setting.parent / 'Unknown').mkdir()
        (setting.parent / 'Unknown/x.dll').touch()
        (setting.parent / 'UI').mkdir()
        (setting.parent / 'UI/x').touch()  # a path shorter than that of the settings folder
        self.show('lint', 'lint spring\\update --installed spring\\installed --strict', 'lint broken',
                  'lint wrong --installed spring\\installed')
        self.overview = self.found['help'].split('\n(exit code', 1)[0].split('\n', 1)[1] + '\n'
        self.show('misuse', *MISUSE)
        self.show('lint.sarif', 'lint broken --format sarif')
        self.show('manifest', 'manifest spring\\update')
        self.show('diff', 'diff spring\\update spring\\update', 'diff spring\\update summer',
                  'diff spring\\update summer --format json')
        install_folder(self.machine, spring / 'installed')
        shutil.copytree(summer, self.machine.host(PRODUCT), dirs_exist_ok=True)

    def show_plans(self) -> None:
        machine = self.machine
        config, component = machine.host(PRODUCT + 'config.xml'), machine.host(PRODUCT + 'Component')
        self.show('plan', 'plan .')
        machine.set_value(POWER, 'HiberbootEnabled', 1)
        machine.set_value(SESSION_MANAGER, PENDING_MOVES, [
            '\\??\\C:\\other.dll', f'!\\??\\{PRODUCT}readme.htm', f'\\??\\{PRODUCT}config.xml', '',
            '\\??\\C:\\other.dll', '!\\??\\C:\\elsewhere.dll', f'\\??\\{PRODUCT}Help', '!\\??\\C:\\Help',
            f'\\??\\{PRODUCT}Component\\old\\a.dll', f'!\\??\\{PRODUCT}a.dll'])
        folders = [component, *component.iterdir()]  # of which only the first is named
        for folder in folders:
            folder.chmod(0o777)
        page = machine.host(SETTING + 'readme_EN-US.htm')
        size = page.stat().st_size
        os.truncate(page, 8 << 40)
        self.show('ready', 'ready .', 'ready . --format json')
        for folder in folders:
            folder.chmod(0o755)
        os.truncate(page, size)
        machine.set_value(POWER, 'HiberbootEnabled', 0)
        machine.set_value(SESSION_MANAGER, PENDING_MOVES, [])
        away = config.rename(config.with_suffix('.away'))
        config.symlink_to(config.name)  # no program can open it
        self.show('ready', 'ready .', 'ready . --format json')
        away.replace(config)
        edit(machine.host(PRODUCT + 'QorPaFrwk.ini'), {'}Extra': '}Resource\\FR-FR', '=/Window/Width': '=/window/Skin'})
        self.show('ready', 'ready .')
        self.show('plan.json', 'plan . --format json')
        self.show('undo', 'undo . --output ..\\Undo')
        self.show_file('undo', '..\\Undo\\QorPaFrwk.ini', 'utf-16')

    def show_signatures(self) -> None:
        machine = self.machine
        manifest, page = machine.host(SETTING) / 'QorUpdate.json', machine.host(SETTING + 'Help\\index.htm')
        self.show('verify', 'verify')
        self.show('check-signature', 'manifest . --into')
        with tempfile.NamedTemporaryFile() as private:
            for public in ('C:\\other.pem', 'C:\\key.pem'):
                make_key(private.name, machine.host(public))
            self.show('check-signature', f'check-signature . {KEY}')
            subprocess.run(['openssl', 'dgst', '-sha256', '-sign', private.name, '-out', f'{manifest}.sig', manifest],
                           check=True)
        self.show('check-signature', f'check-signature . {KEY} --key C:\\other.pem')
        content = page.read_bytes()
        page.write_bytes(content + b' ')
        page.with_name('more.htm').touch()
        above, way, link = machine.host(PRODUCT).parent, machine.host('C:\\Way'), page.with_name('Link')
        page.chmod(0o666)
        above.chmod(0o777)
        for name, target in ((way, above), (link, machine.host(WORK))):
            name.symlink_to(target, target_is_directory=True)
        self.show('check-signature', f'check-signature . {KEY}', f'check-signature C:\\Way\\KZVLT {KEY}')
        page.chmod(0o644)
        above.chmod(0o755)
        page.write_bytes(content)
        for name in (way, link, page.with_name('more.htm')):
            name.unlink()

    def show_deployment(self) -> None:
        machine = self.machine
        self.show('verify', 'verify')
        machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        machine.write(PRODUCT + 'long.json', json.dumps(LONG))
        self.set_back(2)
        self.show('verify', 'verify --record pending.json')
        self.show('verify.json', 'verify --format json')
        self.show('detect', 'verify --detect', 'verify --detect --pending arrived', 'verify --detect --pending missing')
        self.show('ready', 'ready .')
        machine.restart()
        self.show('ready', 'ready .')
        self.show('verify', f'verify --record done.json {KEY}')
        self.show('verify', 'verify long.json --detect --record short.json')
        self.show('detect', 'verify --detect')
        machine.write(PRODUCT + 'Retired.dat', '')
        machine.set_value(SETTINGS + '\\Vault', 'HelpFile', 'C:\\Help')
        self.show('verify.json', 'verify --format json')
        machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')  # of an update whose files are gone
        machine.write(PRODUCT + 'Brevant.log', '\n'.join(machine.trace_lines()) + '\n')
        self.show('trace', 'trace Brevant.log --all')
        machine.write(PRODUCT + 'codes.log', ''.join(
            f'21/11/2026 08:37:01.000 0120:00d4 !!! <Brevant> KzCommon::Storage::File::Copy() failed. Win32ErrorCode='
            f'{code:X} - FileOperations.cpp(12)\n' for code in CODES))
        self.show('codes', 'trace codes.log')

    def set_back(self, minutes: int) -> None:
        """Makes the deployment one of some minutes ago."""
        tick = self.machine.values(SETTINGS)['FrwkDeployTick']
        assert isinstance(tick, int)
        self.machine.set_value(SETTINGS, 'FrwkDeployTick', (tick - minutes * 60_000) % (1 << 32))

    def show_fleet(self) -> None:
        for name in ('pending.json', 'done.json', 'short.json'):
            self.show_file('record', name)
        for name, other in FLEET.items():
            self.machine.write(f'{PRODUCT}records\\{name}.json', json.dumps(RECORD | other))
        records = self.machine.host(PRODUCT + 'records')
        (records / 'north/16.json').rename(records / 'north/16.JSON')
        for name, size in ('notes.txt', 0), ('large.json', 2 << 20):
            (records / name).touch()
            os.truncate(records / name, size)
        (records / 'south').symlink_to('north', target_is_directory=True)
        self.machine.write(PRODUCT + 'machines.txt', 'pc1\nPC4\nPC6\n \npc6\n')
        expected = 'rollup records --machines machines.txt'
        self.show('rollup', expected, f'{expected} --format json', f'{expected} --format csv')


def main() -> int:
    with Machine() as machine:
        found = Examples(machine).run()
    for name, text in found.items():
        (EXAMPLES / f'{name}.txt').write_text(text, 'utf-8')
    print(f'{len(found)} examples in {EXAMPLES}')
    return 0


if __name__ == '__main__':
    sys.exit(main())
