"""The part of docs/examples that users meet more rarely: odd machines, and calls that cannot do their work."""
import json
from typing import Any

from .machine import PRODUCT, SESSION_MANAGER, SETTINGS, Machine
from .prefix import ROOT

PENDING_MOVES = 'PendingFileRenameOperations'
PACKAGE, OLD = 'c21t2103v3.9.3l1p1r1o1', 'C:\\Old'
VAULT = 'SOFTWARE\\Kazmere\\KZVLT\\Vault'
SOURCE = f'Component\\{PACKAGE}\\Share\\'
TRACES = ROOT / 'samples/traces.txt'
# A manifest with what "verify" refuses or cannot find. None of its files is in the download folder any more.
ODD: dict[str, Any] = {
    'format': 1, 'component': {'product': PACKAGE, 'resource': ''},
    'folders': ['{InstalledDir}Help', '{InstalledDir}readme.htm', '{InstalledDir}..\\Other', 'C:\\Other',
                '{ProtectedLogDir}None'],
    'files': [
        {'destination': '{InstalledDir}readme.htm', 'source': f'{SOURCE}readme.htm', 'when': 'restart'},
        {'destination': '{InstalledDir}Link\\a.dll', 'source': f'{SOURCE}a.dll', 'when': 'restart'},
        {'destination': '{InstalledDir}Qorvault.cmd', 'source': 'Qorvault.cmd', 'when': 'restart'},
        {'destination': '{InstalledDir}Qorvault.cmd', 'source': f'{SOURCE}..\\Qorvault.cmd', 'when': 'now'},
        {'destination': '{UserDir}a.dll', 'source': f'{SOURCE}a.dll', 'when': 'now'},
        {'destination': '{InstalledDir}config.xml', 'source': f'{SOURCE}config.xml', 'when': 'now',
         'settings': {'root': 'Other', 'tags': [], 'carried_over': []}},
        {'destination': '{InstalledDir}config.xml', 'source': f'{SOURCE}config.xml', 'when': 'now', 'language': 'en-us',
         'settings': {'root': 'Configuration', 'tags': ['/Window/Skin', '/None'], 'carried_over': ['/window/Skin']}},
        {'destination': '{InstalledDir}QorUpdate.json', 'source': f'{SOURCE}QorUpdate.json', 'when': 'restart',
         'language': 'DE-DE', 'size': 1, 'sha256': 'ab' * 32}],
    'deletions': [{'files': '{InstalledDir}readme*.htm', 'when': 'now'},
                  {'folder': '{InstalledDir}Help', 'when': 'now'},
                  {'files': '{InstalledDir}config.*.xml', 'when': 'restart'},
                  {'folder': '{InstalledDir}None', 'when': 'restart'}, {'files': 'C:\\Windows\\*.ini', 'when': 'now'}],
    'registry': [
        {'key': VAULT, 'name': 'HelpFile', 'state': 'absent'}, {'key': VAULT, 'name': 'None', 'state': 'absent'},
        {'key': VAULT, 'name': 'IdleMinutes', 'state': 'value', 'type': 'REG_DWORD', 'data': 4294967295},
        {'key': VAULT, 'name': 'IdleMinutes', 'state': 'any', 'type': 'REG_SZ', 'data': 'x'},
        {'key': VAULT, 'name': 'IdleMinutes', 'state': 'any', 'type': 'REG_DWORD', 'data': 0},
        {'key': VAULT, 'name': '', 'state': 'value', 'type': 'REG_SZ', 'data': '{InstalledDir}x',
         'unless_literal': True},
        {'key': VAULT, 'name': 'None', 'state': 'value', 'type': 'REG_QDWORD', 'data': 1}],
    'update_information': [
        {'section': 'COMPONENT_LIST', 'key': 'Component101_Version', 'value': ' "9" '},
        {'section': 'A', 'key': 'B', 'value': '1'}]}
BAD_MANIFESTS: dict[str, Any] = {
    'format': {'format': 9}, 'component': {'component': {'product': PACKAGE}}, 'list': {'files': {}},
    'when': {'files': [ODD['files'][0], {**ODD['files'][0], 'when': 'later'}]},
    'type': {'registry': [{**ODD['registry'][2], 'type': 'REG_NONE'}]},
    'number': {'registry': [{**ODD['registry'][2], 'data': 4294967296}]},
    'update': {'format': 2}, 'nothing': dict.fromkeys(ODD.keys() - {'format', 'component'}, [])}


class RareExamples:
    """Adds to the examples of a machine on which an update has arrived; `shown` shows them."""

    def __init__(self, shown: Any) -> None:
        self.shown = shown
        self.machine: Machine = shown.machine

    def run(self) -> None:
        self.shown.place = PRODUCT
        self.show_traces()
        self.show_odd_manifests()
        self.show_refusals()
        self.show_without_product()

    def show_traces(self) -> None:
        for part in TRACES.read_text('utf-8').split('== ')[1:]:
            name, _, text = part.partition('\n')
            self.machine.write(PRODUCT + name, text)
        day, next_day = 'Brevant_20251224.log', 'Brevant_20251225.log'
        self.shown.show('trace', f'trace {day}.1 {next_day} Empty.log None.log', f'trace {next_day} {day} --all')

    def show_odd_manifests(self) -> None:
        machine = self.machine
        machine.write(PRODUCT + 'config.previous.xml',
                      '<Configuration><Window><Skin>red</Skin></Window></Configuration>')
        machine.write(PRODUCT + 'config.previous.2.xml', '')
        machine.make_dir(PRODUCT + 'Link')
        machine.link(PRODUCT + 'Link', 'C:\\Elsewhere')
        machine.set_value('HKLM\\' + VAULT, '(Default)', 'literal')
        machine.write(PRODUCT + 'odd.json', json.dumps(ODD))
        self.shown.show('verify', 'verify odd.json', 'verify odd.json --detect')
        self.shown.show('diff', 'diff odd.json QorUpdate.json', 'diff QorUpdate.json odd.json --format json')
        # Two programs move files at the next restart; another update brings its manifest, too.
        machine.write(f'{PRODUCT}Component\\earlier\\QorUpdate.json', json.dumps({
            **json.loads(machine.read(PRODUCT + 'QorUpdate.json') or ''), 'languages': ['DE-DE', 'JA-JP']}))
        machine.write(PRODUCT + 'odd.json', json.dumps({**ODD, 'folders': ['{InstalledDir}Moved']}))
        machine.set_value(SESSION_MANAGER, PENDING_MOVES, [
            f'\\??\\{PRODUCT}Component\\earlier\\QorUpdate.json', f'!\\??\\{PRODUCT}QorUpdate.json',
            f'\\??\\{PRODUCT}readme.htm', f'!\\??\\{PRODUCT}Qorvault.cmd', f'\\??\\{PRODUCT}Help\\index.htm', '',
            f'\\??\\{PRODUCT}gone.htm', f'!\\??\\{PRODUCT}config_EN-US.xml', f'\\??\\{PRODUCT}Help', ''])
        self.shown.show('verify', 'verify odd.json')
        self.shown.show('verify.json', 'verify odd.json --format json')
        self.shown.show('ready', 'ready .')
        self.shown.show('refused', 'undo . --output ..\\Late')
        machine.set_value(SESSION_MANAGER, PENDING_MOVES, [])

    def show_refusals(self) -> None:
        machine = self.machine
        for name, change in BAD_MANIFESTS.items():
            machine.write(f'C:\\Work\\{name}.json', json.dumps({**ODD, **change}))
        machine.write('C:\\Work\\cut.json', '{"format": 1')
        machine.write('C:\\Work\\empty.txt', '\n')
        machine.write('C:\\Work\\other.pem', '-----BEGIN PUBLIC KEY-----\nAAAA\n-----END PUBLIC KEY-----\n')
        machine.write('C:\\Work\\no.cmd', '@exit 7\r\n')
        machine.write('C:\\Work\\nothing.cmd', '@exit 0\r\n')
        machine.make_dir('C:\\Work\\bare')
        self.shown.place = 'C:\\Work\\'
        self.shown.show(
            'refused', *(f'verify {name}.json' for name in (*BAD_MANIFESTS, 'cut', 'none')),
            'verify --pending arrived', 'verify --detect --format json', 'verify --record C:\\None\\a.json',
            'verify --key other.pem', 'verify --key C:\\key.pem --installed bare', 'manifest bare --into',
            'diff spring\\update none', 'plan none', 'plan spring\\update --language DE-DE --language FR-FR',
            'plan spring\\update --installed none', 'undo spring\\update', 'undo spring\\update --output other.pem\\a',
            'undo spring\\update --output spring\\update\\undo', 'sign spring\\update',
            'sign spring\\update --with none.exe', 'sign spring\\update --with no.cmd',
            'sign spring\\update --with nothing.cmd', 'check-signature spring\\update',
            'check-signature spring\\update --key other.pem', 'check-signature spring\\update --key C:\\key.pem',
            'rollup none', 'rollup spring --machines empty.txt', 'rollup spring --machines none.txt', 'rollup bare',
            'trace none.log')
        (machine.host('C:\\Work\\spring\\installed\\registry.reg')).write_text(
            'REGEDIT4\n[HKLM\\Software\\Kazmere\\KZVLT]\n"Language"="DE-DE"\n"A"=none\n[HKEY_NONE\\A]\nB\n')
        self.shown.show('plan', 'plan spring\\update --installed spring\\installed')

    def show_without_product(self) -> None:
        self.machine.run('reg.exe', 'delete', SETTINGS, '/f')
        self.shown.show('refused', 'verify', 'verify --detect', 'plan spring\\update',
                        'ready spring\\update --installed bare', 'undo spring\\update --output back --installed bare')
