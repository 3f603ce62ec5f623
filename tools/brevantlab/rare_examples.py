"""The part of docs/examples that users meet more rarely: odd machines, and calls that cannot do their work."""
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
from typing import Any

from .machine import PRODUCT, SESSION_MANAGER, SETTINGS, Machine
from .prefix import ROOT

PENDING_MOVES = 'PendingFileRenameOperations'
PACKAGE, OLD = 'c21t2103v3.9.3l1p1r1o1', 'C:\\Old'
PRELOAD = 'C:\\ProgramData\\Kazmere\\KZVLT\\Engine\\Preload\\'
VAULT = 'SOFTWARE\\Kazmere\\KZVLT\\Vault'
SOURCE = f'Component\\{PACKAGE}\\Share\\'
TRACES = ROOT / 'samples/traces.txt'
WRONG: dict[str, Any] = {'size': 1, 'sha256': 'ab' * 32}
# A manifest with what "verify" refuses or cannot find. None of its files is in the download folder any more.
ODD: dict[str, Any] = {
    'format': 1, 'component': {'product': PACKAGE, 'resource': ''},
    'folders': ['{InstalledDir}\\Help', '{InstalledDir}Help', '{InstalledDir}readme.htm', '{InstalledDir}..\\Other',
                'C:\\Other', '{ProtectedLogDir}None'],
    'files': [
        {'destination': '{InstalledDir}readme.htm', 'source': f'{SOURCE}readme.htm', 'when': 'restart'},
        {'destination': '{InstalledDir}Link\\a.dll', 'source': f'{SOURCE}a.dll', 'when': 'restart'},
        {'destination': '{InstalledDir}Qorvault.cmd', 'source': 'Qorvault.cmd', 'when': 'restart'},
        {'destination': '{InstalledDir}Qorvault.cmd', 'source': f'{SOURCE}..\\Qorvault.cmd', 'when': 'now'},
        {'destination': '{UserDir}a.dll', 'source': f'{SOURCE}a.dll', 'when': 'now'},
        {'destination': '{InstalledDir}config.xml', 'source': f'{SOURCE}config.xml', 'when': 'now',
         'settings': {'root': 'Other', 'tags': [], 'carried_over': []}},
        {'destination': '{InstalledDir}config.xml', 'source': f'{SOURCE}config.xml', 'when': 'now', 'language': 'en-us',
         'settings': {'root': 'Configuration', 'tags': ['/Window/Skin'],
                      'carried_over': ['/None', '/Pin', '/window/Skin']}},
        {'destination': '{InstalledDir}large.xml', 'source': f'{SOURCE}large.xml', 'when': 'now',
         'settings': {'root': 'Configuration', 'tags': [], 'carried_over': []}},
        {'destination': '{InstalledDir}Help', 'source': f'{SOURCE}Help', 'when': 'now', **WRONG},
        {'destination': '{InstalledDir}Link', 'source': f'{SOURCE}Link', 'when': 'now'},
        {'destination': '{InstalledDir}None\\config.xml', 'source': f'{SOURCE}config.xml', 'when': 'now',
         'settings': {'root': 'Configuration', 'tags': ['/Window/Skin'], 'carried_over': []}},
        {'destination': '{InstalledDir}qorshcut.xml', 'source': f'{SOURCE}qorshcut.xml', 'when': 'restart',
         'language': 'DE-DE'},
        {'destination': '{InstalledDir}qorshcut_EN-US.xml', 'source': f'{SOURCE}a.xml', 'when': 'restart', **WRONG},
        {'destination': '{InstalledDir}config_EN-US.xml', 'source': f'{SOURCE}b.xml', 'when': 'restart', **WRONG},
        {'destination': '{InstalledDir}QorUpdate.json', 'source': f'{SOURCE}QorUpdate.json', 'when': 'restart',
         'language': 'DE-DE', **WRONG}],
    'deletions': [{'files': '{InstalledDir}readme*.htm', 'when': 'now'},
                  {'folder': '{InstalledDir}Help', 'when': 'now'},
                  {'files': '{InstalledDir}config.*.xml', 'when': 'restart'},
                  {'files': '{InstalledDir}Resource\\EN-US\\*.ini', 'when': 'restart'},
                  {'files': '{InstalledDir}H*', 'when': 'now'}, {'folder': '{InstalledDir}Link', 'when': 'now'},
                  {'folder': '{InstalledDir}readme.htm', 'when': 'now'},
                  {'folder': '{InstalledDir}Full', 'when': 'now'},
                  {'folder': '{InstalledDir}None', 'when': 'restart'}, {'files': 'C:\\Windows\\*.ini', 'when': 'now'}],
    'registry': [
        {'key': VAULT, 'name': 'HelpFile', 'state': 'absent'}, {'key': VAULT, 'name': 'None', 'state': 'absent'},
        {'key': VAULT, 'name': 'IdleMinutes', 'state': 'value', 'type': 'REG_DWORD', 'data': 4294967295},
        {'key': VAULT, 'name': 'IdleMinutes', 'state': 'any', 'type': 'REG_SZ', 'data': 'x'},
        {'key': VAULT, 'name': 'IdleMinutes', 'state': 'any', 'type': 'REG_DWORD', 'data': 0},
        {'key': VAULT, 'name': '', 'state': 'value', 'type': 'REG_SZ', 'data': '{InstalledDir}x',
         'unless_literal': True},
        {'key': VAULT, 'name': '', 'state': 'value', 'type': 'REG_QDWORD', 'data': 5, 'unless_literal': True},
        {'key': 'SOFTWARE\\None', 'name': '', 'state': 'value', 'type': 'REG_SZ', 'data': '', 'unless_literal': True},
        {'key': VAULT, 'name': 'Bytes', 'state': 'any', 'type': 'REG_SZ', 'data': ''},
        {'key': VAULT, 'name': 'None', 'state': 'value', 'type': 'REG_QDWORD', 'data': 1}],
    'update_information': [
        {'section': 'COMPONENT_LIST', 'key': 'Component101_Version', 'value': ' "9" '},
        {'section': 'A', 'key': 'B', 'value': '1'}, {'section': 'COMPONENT_LIST', 'key': 'Blank', 'value': ' '},
        {'section': 'COMPONENT_LIST', 'key': 'Component101_Version', 'value': '"3.9.4.1200\''}]}
LATEST: dict[str, Any] = {**ODD, 'format': 2, 'update': 'ab' * 32, 'not_covered': [], 'languages': [], 'contents': []}
BAD_MANIFESTS: dict[str, Any] = {
    'format': {'format': 9}, 'component': {'component': {'product': PACKAGE}}, 'list': {'files': {}},
    'when': {'files': [ODD['files'][0], {**ODD['files'][0], 'when': 'later'}]},
    'type': {'registry': [{**ODD['registry'][2], 'type': 'REG_NONE'}]},
    'number': {'registry': [{**ODD['registry'][2], 'data': 4294967296}]},
    'state': {'registry': [{**ODD['registry'][0], 'state': 'gone'}]},
    'key': {'registry': [{**ODD['registry'][0], 'key': ''}]}, 'zero': {'folders': ['a\0b']}, 'folder': {'folders': [1]},
    'root': {'files': [{**ODD['files'][6], 'settings': {'root': 1, 'tags': [], 'carried_over': []}}]},
    'tags': {'files': [{**ODD['files'][6], 'settings': {'root': 'R', 'tags': {}, 'carried_over': []}}]},
    'hash': {'files': [{**ODD['files'][-1], 'sha256': 'AB' * 32}]},
    'section': {'update_information': [{'section': '', 'key': 'B', 'value': '1'}]},
    'kind': {**LATEST, 'not_covered': [{'kind': 'none', 'what': 'x'}]}, 'languages': {**LATEST, 'languages': 1},
    'contents': {**LATEST, 'contents': [{'file': '', **WRONG}]},
    'digest': {**LATEST, 'contents': [{'file': 'a', 'size': 1}]},
    'update': {'format': 2}, 'deep': {'files': json.loads('[' * 20 + ']' * 20)},
    'nothing': dict.fromkeys(ODD.keys() - {'format', 'component'}, [])}


# It has unreadable lines, and a value of another type.
REGISTRY = r'''REGEDIT4
[HKLM\Software\Kazmere\KZVLT]
"Language"="DE-DE"
"A"=none
"B"="x" y
"C"=hex:1,100
"D"=dword:123456789
E=1
"F" "x"
[HKCU\Software]
[HKCR\a]
[HKEY_USERS\b]
[HKEY_NONE\A]
"Lost"=dword:1
[HKLM\Software\Kazmere\KZVLT\Vault]
"IdleMinutes"=hex(b):0f,00,00,00,00,00,00,00
[HKLM\Software\Kazmere\KZVLT\Vault\Deep]
[-HKLM\Software\Kazmere\KZVLT\Gone]
"HelpFile"="removed"
[HKLM\Software
"Lost"="x"
'''
SMALL = r'''[QOR_DIR]
add={UdComponentsSrcDir}Share\Setting\config_EN-US.xml\
delete={InstalledDir}Help
delete=C:\{x}\y
[QOR_FILE]
delete_now={InstalledDir}config.previous*.xml
delete_now={InstalledDir}Help\Link\*.task
delete_now=C:\Odd\*.sys
delete={InstalledDir}Resource/EN-US/*.ini
[QOR_REGISTRY_PATCH]
delete=VAULT
delete=VAULT!Bytes
delete=SOFTWARE\MICROSOFT\windows\CurrentVersion\RunOnce!None
delete=VAULT!Wide | odd
delete=VAULT!Many
add=VAULT\Slash\!Name!REG_SZ!x
add=VAULT!List!REG_MULTI_SZ!a
add=VAULT!Zero!REG_DWORD!0
delete=VAULT\Deep!(Default)
add_if_non=VAULT!Zero!REG_DWORD!3
add_if_non=VAULT\Slash!Name!REG_SZ!kept
add_if_non=VAULT\Slash!NAME!REG_DWORD!1
add_if_non=VAULT\Slash!(Default)!REG_SZ!a
add=\\A!Name!REG_SZ!x
add=SOFTWARE\Kazmere\KZVLT!productpath!REG_SZ!{InstalledDir}
add_if_non=VAULT\Deep!(Default)!REG_QDWORD!5
add=SOFTWARE\MICROSOFT\windows\CurrentVersion\RunOnce!Once!REG_SZ!once.exe
[QOR_CONFIG_MERGE]
migrate=/Window/Skin
[UPDATE_INFO]
modify=COMPONENT_LIST!Note!a=b=c
modify=Other!Note!"quoted"
modify=other!note!quoted
modify=Other!;Note!1
modify=Other!;Note!1
'''.replace('VAULT', VAULT)
# For a product on another drive, that carries nothing over.
FAR = r'''[QOR_DIR]
add=C:\Work\new
delete={InstalledDir}Help
[QOR_FILE]
delete={InstalledDir}*.xml
delete_now={InstalledDir}config.previous*.xml
delete_now={InstalledDir}readme.htm\x.txt
delete=C:\odd.sys
delete_now=C:\Odd\*.sys
'''


def make_key(private: str, public: pathlib.Path) -> None:
    for words in (['ecparam', '-name', 'prime256v1', '-genkey', '-noout', '-out', private],
                  ['ec', '-in', private, '-pubout', '-out', str(public)]):
        subprocess.run(['openssl', *words], check=True, stderr=subprocess.DEVNULL)


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
        self.show_small_update()
        self.show_wrong_signatures()
        self.show_without_product()

    def show_traces(self) -> None:
        for part in TRACES.read_text('utf-8').split('== ')[1:]:
            name, _, text = part.partition('\n')
            self.machine.write(PRODUCT + name, text)
        day, next_day = 'Brevant_20251224.log', 'Brevant_20251225.log'
        self.shown.show('trace', 'trace A.log.0 of_2025122x.log.x Roll_20251225.log Roll_20251224.log.3')
        self.shown.show('trace', f'trace {day}.1 {next_day} Empty.log None.log', f'trace {next_day} {day} --all')

    def show_odd_manifests(self) -> None:
        machine = self.machine
        machine.write(PRODUCT + 'config.previous.2.xml',
                      '<Configuration><Window><Skin>red</Skin></Window><Pin>1</Pin></Configuration>')
        machine.write(PRODUCT + 'config.previous.xml', '')
        machine.make_dir(PRODUCT + 'Link')
        machine.write(PRODUCT + 'Full\\Link\\a', '')
        machine.link(PRODUCT + 'Full\\Link', 'C:\\Elsewhere too')
        machine.link(PRODUCT + 'Link', 'C:\\Elsewhere')
        machine.set_value('HKLM\\' + VAULT, '(Default)', 'literal')
        machine.set_value('HKLM\\' + VAULT, 'Bytes', b'\x01')
        machine.set_value(SETTINGS, 'Language', 'DE-DE')
        self.shown.show('verify', 'verify')
        machine.set_value(SETTINGS, 'Language', 'EN-US')
        command = machine.host(PRODUCT + 'Qorvault.cmd').read_bytes()
        place: dict[str, Any] = {
            'destination': '{InstalledDir}Qorvault.cmd', 'source': f'{SOURCE}Qorvault.cmd', 'when': 'restart'}
        content: dict[str, Any] = {'size': len(command), 'sha256': hashlib.sha256(command).hexdigest()}
        odd = {**ODD, 'files': [*ODD['files'], {**place, 'language': 'EN-US', **WRONG}, {**place, **content}]}
        machine.write(PRODUCT + 'odd.json', json.dumps(odd))
        machine.write(PRODUCT + 'large.xml', '')
        os.truncate(machine.host(PRODUCT + 'large.xml'), 1 << 30)
        users = machine.host(PRODUCT + 'config.xml')
        users.write_bytes(users.read_bytes().replace(b'</Window>', b'</Window><Pin protected="1">AA==</Pin>'))
        self.shown.show('verify', 'verify odd.json', 'verify odd.json --detect')
        self.shown.show('diff', 'diff odd.json QorUpdate.json', 'diff QorUpdate.json odd.json --format json')
        # Two programs move files at the next restart; another update brings its manifest, too.
        machine.write(f'{PRODUCT}Component\\earlier\\QorUpdate.json', json.dumps({
            **json.loads(machine.read(PRODUCT + 'QorUpdate.json') or ''), 'languages': ['DE-DE', 'JA-JP']}))
        machine.write(PRODUCT + 'odd.json', json.dumps({**odd, 'folders': ['{InstalledDir}Moved']}))
        machine.write(f'{PRODUCT}Component\\earlier\\b.xml', 'new')
        machine.host(PRODUCT + 'config_EN-US.xml').chmod(0o444)
        machine.write('C:\\other.json', json.dumps({**LATEST, 'folders': []}))
        machine.set_value(SESSION_MANAGER, PENDING_MOVES, [
            '\\??\\C:\\other.json', f'!\\??\\{PRODUCT}QorUpdate.json',
            f'\\??\\{PRODUCT}Component\\earlier\\QorUpdate.json', f'!\\??\\{PRODUCT}QorUpdate.json',
            f'\\??\\{PRODUCT}readme.htm', f'!\\??\\{PRODUCT}Qorvault.cmd',
            f'\\??\\{PRODUCT}config.xml', f'!\\??\\{PRODUCT.upper()}CONFIG.xml',
            f'\\??\\{PRODUCT}Full\\Link', f'!\\??\\{PRODUCT}None\\config.xml', '\\??\\Volume{0}', '',
            f'\\??\\{PRODUCT}gone.htm', f'!\\??\\{PRODUCT}qorshcut_EN-US.xml',
            f'\\??\\{PRODUCT}Component\\earlier\\b.xml', f'!\\??\\{PRODUCT}config_EN-US.xml'])
        machine.set_value(SESSION_MANAGER, PENDING_MOVES + '2', [
            f'\\??\\{PRODUCT}Help\\index.htm', '', f'\\??\\{PRODUCT}Help', '',
            f'\\??\\{PRODUCT}Resource\\EN-US', '!\\??\\C:\\Away'])
        self.shown.show('verify', 'verify', 'verify odd.json --record late.json')
        self.shown.show_file('record', 'late.json')
        path, section = PRODUCT + 'QorPaFrwk.ini', '[UPDATE_INFO]\n'
        records = machine.read(path, 'utf-16') or ''
        machine.write(path, records.replace(
            section, f'{section}modify=Other!Note!1\nmodify=COMPONENT_LIST!Other_Version!1\n'), 'utf-16')
        info = PRODUCT + 'UpdateInfo.ini'
        machine.write(info, (machine.read(info, 'utf-16') or '').replace(']', ']\r\nOther_Version=1', 1), 'utf-16')
        self.shown.show('verify.json', 'verify odd.json --format json')
        self.shown.show('ready', 'ready .')
        self.show_in_use('ready . --format json', 'config.xml')
        self.shown.show('refused', 'undo . --output ..\\Late')
        machine.set_value(SESSION_MANAGER, PENDING_MOVES, [])
        machine.set_value(SESSION_MANAGER, PENDING_MOVES + '2', [])

    def show_in_use(self, command: str, file: str) -> None:
        told = self.machine.run('cmd.exe', '/c', f'BrevantCheck.exe {command} <{file}', cwd=self.machine.host(PRODUCT))
        self.shown.add('ready', f'BrevantCheck {command} <{file}', f'{told.output}(exit code {told.code})\n')

    def show_refusals(self) -> None:
        machine = self.machine
        for name, change in BAD_MANIFESTS.items():
            machine.write(f'C:\\Work\\{name}.json', json.dumps({**ODD, **change}))
        machine.write('C:\\Work\\cut.json', '{"format": 1')
        machine.write('C:\\Work\\empty.txt', '\n')
        machine.write('C:\\Work\\other.pem', '-----BEGIN PUBLIC KEY-----\nAAAA\n-----END PUBLIC KEY-----\n')
        machine.write('C:\\Work\\no.cmd', '@exit 7\r\n')
        machine.write('C:\\Work\\nothing.cmd', '@exit 0\r\n')
        machine.write('C:\\Work\\good.cmd', '@echo signature >"%~1.sig"\r\n')
        machine.write('C:\\Work\\empty.cmd', '@type nul >"%~1.sig"\r\n')
        machine.make_dir('C:\\Work\\bare')
        machine.make_dir(f'C:\\Work\\broken\\{SOURCE}Setting\\QorUpdate.json.sig')
        machine.make_dir(f'C:\\Work\\wrong\\{SOURCE}Setting\\Link')
        machine.link(f'C:\\Work\\wrong\\{SOURCE}Setting\\Link', 'C:\\Elsewhere 2')
        machine.write(f'C:\\Work\\blocked\\Component\\{PACKAGE}\\Share\\Setting', '')
        machine.write('C:\\Work\\blocked\\UpdateInfo.ini',
                      f'[COMPONENT_LIST]\nComponent101_DownloadPath={PACKAGE}\n')
        machine.write('C:\\Work\\closed\\Component\\a', '')
        machine.make_dir('C:\\Work\\closed\\UpdateInfo.ini')
        machine.write('C:\\Work\\records\\QorPaFrwk.ini', '[QOR_DIR]\nadd={InstalledDir}New\n')
        self.shown.place = 'C:\\Work\\'
        self.shown.show(
            'refused', *(f'verify {name}.json' for name in (*BAD_MANIFESTS, 'cut', 'none')),
            'verify --pending arrived', 'verify --detect --format json', 'verify --record C:\\None\\a.json',
            'verify --key other.pem', 'verify --key C:\\key.pem --installed bare', 'manifest bare --into',
            'manifest records --into', 'manifest blocked --into', 'manifest wrong',
            'diff spring\\update none', 'plan none', 'plan closed',
            'plan spring\\update --language DE-DE --language FR-FR',
            'plan spring\\update --installed none', 'undo spring\\update', 'undo spring\\update --output other.pem\\a',
            'undo spring\\update --output spring\\update\\undo', 'sign spring\\update',
            'sign spring\\update --with none.exe', 'sign spring\\update --with no.cmd',
            'sign spring\\update --with nothing.cmd', 'sign spring\\update --with good.cmd',
            'sign spring\\update --with empty.cmd', 'sign broken --with no.cmd',
            'sign wrong --with no.cmd',
            'check-signature spring\\update',
            'check-signature spring\\update --key other.pem', 'check-signature spring\\update --key C:\\key.pem',
            'rollup none', 'rollup spring --machines empty.txt', 'rollup spring --machines none.txt', 'rollup bare',
            'trace none.log')
        machine.write('C:\\Work\\spring\\installed\\registry.reg', REGISTRY)
        self.shown.show('undo', 'undo spring\\update --output restored --installed spring\\installed')
        self.shown.show('plan', 'plan spring\\update --installed spring\\installed', 'plan records')

    def show_small_update(self) -> None:
        """With a package whose name has no version, and records that need care."""
        machine, small = self.machine, 'C:\\Work\\small\\'
        machine.set_value('HKLM\\' + VAULT, '', 'unnamed')
        machine.set_value('HKLM\\' + VAULT, 'Wide | odd', b'\x01\x02')
        machine.set_value('HKLM\\' + VAULT, 'Many', ['a', 'b'])
        machine.write(small + 'Component\\small\\Share\\Setting\\config_EN-US.xml',
                      '<Configuration><Window><Skin>x</Skin></Window></Configuration>')
        machine.write(f'{small}Component\\small\\Share\\UI\\{"long" * 50}.dll', '')
        for number, place in enumerate((f'{small}Component\\small\\Share\\Task', PRODUCT + 'Help\\Link')):
            machine.write(f'{place}\\in a link.task', '')
            machine.link(place, f'C:\\Elsewhere {number}')
        for name in 'registry.reg', 'drive_c\\Odd\\a.sys':  # which count in a copy of a product only
            machine.write(PRODUCT + name, REGISTRY)
        machine.make_dir('C:\\Work\\open')
        machine.host('C:\\Work\\open').chmod(0o777)
        machine.write(small + 'UpdateInfo.ini', '[COMPONENT_LIST]\nComponent101_DownloadPath=small\n')
        machine.write(small + 'QorPaFrwk.ini', SMALL)
        machine.write('C:\\{x}\\y\\z', '')
        self.shown.show('plan', 'plan small', 'plan small --language JA-JP')
        self.show_in_use('ready C:\\Work\\small', 'config.previous.xml')
        self.shown.show('undo', 'undo small --output small.undo --installed spring\\installed')
        self.shown.show('undo', 'undo small --output open')
        self.shown.show_file('undo', 'open\\QorPaFrwk.ini', 'utf-16')
        self.shown.show('manifest', 'manifest small')
        self.shown.show('diff', 'diff small open')
        self.show_other_drive(small)
        machine.write('C:\\Work\\idle\\QorPaFrwk.ini', '')
        self.shown.show('undo', 'undo idle --output idle.undo')
        machine.write(small + 'QorPaFrwk.ini', SMALL.replace(
            'add=', f'add={SETTINGS[5:]}!ProductPath!REG_SZ!C:\\New\nadd='))
        self.shown.show('refused', 'undo small --output back')

    def show_other_drive(self, small: str) -> None:
        """Files for drive C: are staged there. One finds all names in use."""
        machine = self.machine
        machine.add_drive('D')
        shutil.copytree(machine.host('C:\\Work\\spring\\installed'), machine.host('D:\\Product'))
        for name in 'odd.sys', 'Odd\\a.sys', PRELOAD[3:] + 'c.dll':
            machine.write(f'D:\\Product\\drive_c\\{name}', 'old')
            machine.host(f'D:\\Product\\drive_c\\{name}').chmod(0o444)
        machine.write('D:\\Product\\UpdateInfo.ini', '[Other]\nA=1\ncomponent1_downloadpath=a\n')
        machine.write('D:\\Product\\registry.reg', REGISTRY.replace('"A"', '"é"'), 'cp1252')
        for name, taken in ('a.dll', 10), ('b.dll', 100), ('c.dll', 0):
            machine.write(f'{small}Component\\small\\Engine\\Preload\\{name}', '')
            for number in range(taken):
                machine.write(f'{PRELOAD}{name}{number}', '')
        deep = f'QorFirefoxExt\\{"deep" * 15}\\'  # too long for a record
        machine.write(f'{small}Component\\small\\Share\\{deep}{"long" * 50}.js', '')
        machine.make_dir('D:\\Product\\' + deep)
        machine.set_value('HKLM\\SYSTEM\\CurrentControlSet\\Control\\FileSystem', 'LongPathsEnabled', 1)
        machine.write(small + 'QorPaFrwk.ini', FAR)
        self.shown.show('plan', 'plan small --installed D:\\Product --language EN-US')
        self.shown.show('undo', 'undo small --output far.undo --installed D:\\Product')
        self.shown.show_file('undo', 'far.undo\\UpdateInfo.ini', 'utf-16')

    def show_wrong_signatures(self) -> None:
        machine, update = self.machine, self.machine.host('C:\\Work\\spring\\update')
        manifest = update / f'{SOURCE}Setting\\QorUpdate.json'.replace('\\', '/')

        def check(*options: str) -> None:
            subprocess.run(['openssl', 'dgst', '-sha256', '-sign', private.name, '-out', f'{manifest}.sig', manifest],
                           check=True)
            self.shown.show('check-signature', *(f'check-signature spring\\update {option}' for option in options))
        with tempfile.NamedTemporaryFile() as private:
            make_key(private.name, machine.host('C:\\Work\\own.pem'))
            machine.write('C:\\Work\\both.pem', 'Two:\n' + ''.join(
                machine.host(key).read_text() for key in ('C:\\key.pem', 'C:\\Work\\own.pem')))
            check('--key both.pem --older',
                  '--key C:\\key.pem', '--key C:\\key.pem --key own.pem', '--key own.pem --older')
            page = manifest.with_name('Help') / 'index.htm'
            page.with_name('INDEX.HTM').write_bytes(page.read_bytes())
            manifest.with_name('readme_EN-US.htm').unlink()
            info = machine.host(PRODUCT + 'UpdateInfo.ini')
            info.write_bytes((info.read_text('utf-16').replace('3.9.4.1200', 'new') +
                              '[S]\nNote=9.0\nB_version=1.0\nC_VERSION=1.0\n').encode('utf-16'))
            signed = json.loads(manifest.read_text())
            signed['update_information'] += [{'section': 'S', 'key': key, 'value': value} for key, value in (
                ('Note', '1.0'), ('B_version', 'beta'), ('c_version', '1.0'))]
            manifest.write_text(json.dumps(signed))
            own = update / 'UpdateInfo.ini'
            own.write_bytes(own.read_text('utf-16').replace(
                'c21t2101v3.9.3', 'c21t2101v3.9.2').encode('utf-16'))
            records = update / 'QorPaFrwk.ini'
            away = records.rename(update / 'away.ini')
            records.symlink_to(records.name)  # no program can open it
            check('--key own.pem')
            away.replace(records)
            for content in json.dumps(ODD), '{':
                manifest.write_text(content)
                check('--key own.pem')

    def show_without_product(self) -> None:
        self.machine.run('reg.exe', 'delete', SETTINGS, '/f')
        self.shown.show('refused', 'verify', 'verify --detect', 'plan spring\\update',
                        'ready spring\\update --installed bare', 'undo spring\\update --output back --installed bare')
