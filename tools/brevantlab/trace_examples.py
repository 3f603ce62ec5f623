"""What the agent plans and traces when an update is wrong in every way; a part of docs/examples."""
import re
import shutil
from typing import Protocol

from .layouts import MARKER, install_folder
from .machine import PRODUCT, SETTINGS, Machine

SETTING = f'{PRODUCT}Component\\c21t2103v3.9.3l1p1r1o1\\Share\\Setting\\'
NAMES = 'plan.mistakes', 'plan.mistakes.json', 'debug-trace', 'trace.mistakes'
REPLACED = [(re.compile(pattern), shown) for pattern, shown in (
    (r'(FrwkDeployTick: "\d+" -> |FrwkDeployTick"[^}]* "old": )"\d+"', r'\1"1234568"'),
    (r'(FrwkDeployTick": |FrwkDeployTick: )"\d+"', r'\1"1234567"'),
    (r'(C:\\users\\)(?!Public)\w+', r'\1USER'),
    (r'(RunOnce:)[0-9a-f-]{36}', r'\1NAME'),
    (r'(7b\] - [^\n]+\n +code: )[^\n]+', r'\1(a text of Windows)'),
    (r'(x{20})x+', r'\1...'))]

# What the agent refuses, remarks on or cannot do: of every kind of record, then of settings and of shortcuts.
LONG, DEEP = 'x' * 1030, '/a' * 33
REFUSED = rf"""[QOR_DIR]
add=Relative
add=C:\
add={{InstalledDir}}readme.htm
add={{InstalledDir}}Fresh
add=
delete=C:\
delete={{InstalledDir}}None
delete={{InstalledDir}}Help
[QOR_FILE]
delete=relative.dat
delete={{InstalledDir}}None.dat
delete={{InstalledDir}}*.none
delete={{Unknown}}x.dat
delete={LONG}
delete={{InstalledDir}}{LONG[:300]}
delete=C:\{LONG[:256]}
delete_now=C:\{LONG[:256]}
delete_now={{InstalledDir}}{LONG[:300]}
delete_now={{InstalledDir}}None.dat
delete_now={{InstalledDir}}Help
delete_now={{InstalledDir}}*.lock
delete={{InstalledDir}}Help
[QOR_REGISTRY_PATCH]
add=SOFTWARE\Kazmere\KZVLT\Vault!Number!REG_DWORD!0x10
add=SOFTWARE\Kazmere\KZVLT\Vault!Kind!REG_TEXT!1
add=SOFTWARE\Kazmere\KZVLT
add=SOFTWARE\Kazmere\KZVLT\Vault!Path!REG_SZ!{{InstalledDir}}|{{LocalAppDataDir}}|{{Unknown}}
add=\SOFTWARE\Kazmere!Name!REG_SZ!x
add={LONG}
add_if_non=SOFTWARE\Kazmere\KZVLT\Vault!Most!REG_QDWORD!18446744073709551616
add_if_non=SOFTWARE\Kazmere\KZVLT\Vault!More!REG_SZ!a!b
add_if_non=SOFTWARE\Kazmere\KZVLT\Vault!List!REG_MULTI_SZ!a
junk
DELETE=SOFTWARE\Kazmere\KZVLT\Vault!HelpFile
delete=SOFTWARE\Kazmere\KZVLT\Vault!None
delete={LONG}
[QOR_CONFIG_MERGE]
migrate=/Window/Skin
migrate=/Window
migrate=//Typed/
migrate=/Refused
migrate=/None
migrate=/a b
migrate={DEEP}
migrate=/{LONG}
[UPDATE_INFO]
modify=COMPONENT_LIST!Component101_Version
modify=COMPONENT_LIST!Component101_Version!3.9.3.1141!more
modify={LONG}
[Run]
SysRunOnce=
SysRunOnce={LONG}
SysRunOnce="{{InstalledDir}}Qorvault.cmd" /later
[RestartNotification_EN-US]
text=Only one
"""
OLD_SETTINGS, NEW_SETTINGS = (
    f'<Configuration><Window><Skin>{skin}</Skin></Window><Typed type="{kind}">{typed}</Typed>'
    f'<Refused type="int">{refused}</Refused></Configuration>'
    for skin, kind, typed, refused in (('red', 'string', 'text', 'x'), ('light', 'bool', 0, 1)))
LINK = '<Shortcut lnk="Qorvault.cmd" desc="Opens it" arg="/open">{}</Shortcut>'
LINKS = ('<Shortcuts><Desktop available="1">'
         + ''.join(map(LINK.format, ('Good', 'a|b', '..\\Above', 'C:\\Drive', '\\Root', 'nul', LONG[:300])))
         + '</Desktop><Desktop available="no"/><StartMenu available="1"><Folder name="Group\\Inner">'
         + LINK.format('In')
         + '</Folder><Folder name="c|d"/><Folder name=".."/></StartMenu><StartMenu available="0"/></Shortcuts>')


class Shown(Protocol):
    """What this part needs of all examples."""
    machine: Machine
    place: str
    found: dict[str, str]

    def show(self, name: str, *commands: str) -> None: ...
    def add(self, name: str, command: str, text: str) -> None: ...


class TraceExamples:
    """Runs after the other examples, because it installs the product again."""

    def __init__(self, examples: Shown) -> None:
        self.examples = examples
        self.machine = examples.machine

    def run(self) -> None:
        self._lay_out()
        self.examples.place = PRODUCT
        self.examples.show('plan.mistakes', 'plan .')
        self.examples.show('plan.mistakes.json', 'plan . --format json')
        self._deploy()
        self._show_reasons()
        trace = '\n'.join([*self.machine.messages(), ''])
        self.examples.add('debug-trace', 'type KZVLT_Brevant.log', trace)
        self.machine.write('C:\\Work\\mistakes.log', '\n'.join([*self.machine.trace_lines(), '']))
        self.examples.show('trace.mistakes', 'trace C:\\Work\\mistakes.log --all')
        for name in NAMES:
            for pattern, shown in REPLACED:
                self.examples.found[name] = pattern.sub(shown, self.examples.found[name])

    def _lay_out(self) -> None:
        machine, new = self.machine, self.machine.host('C:\\Work\\mistakes')
        machine.run(PRODUCT + 'BrevantCheck.exe', 'new', new.name, cwd=new.parent)
        shutil.rmtree(machine.host(PRODUCT))
        machine.install_program()
        install_folder(machine, new / 'installed')
        shutil.copytree(new / 'update', machine.host(PRODUCT), dirs_exist_ok=True)
        machine.write(PRODUCT + 'QorPaFrwk.ini', REFUSED, 'utf-16')
        machine.write(PRODUCT + 'config.xml', OLD_SETTINGS)
        machine.write(SETTING + 'config_EN-US.xml', NEW_SETTINGS)
        machine.write(PRODUCT + 'qorshcut.xml', LINKS)
        machine.write(SETTING + 'qorshcut_EN-US.xml', LINKS.replace('Good', 'Better'))
        machine.host(SETTING + 'readme_EN-US.htm').unlink()
        machine.set_value(SETTINGS, MARKER[0], 'not applied')
        machine.set_value(SETTINGS, 'Version', '3.9.3.1099')

    def _deploy(self) -> None:
        machine = self.machine
        machine.run_traced(PRODUCT + 'Brevant.exe', '/DeployFramework')
        machine.restart()
        machine.host(PRODUCT + 'qorshcutbackup.xml').unlink()
        machine.write(PRODUCT + 'qorshcut.xml', '<Shortcuts>')
        table = PRODUCT + 'Resource\\EN-US\\StringTable.ini'
        machine.write(table, '[Global]\r\n' + 'Key=a text of the product\r\n' * 3000)  # more than the agent reads
        machine.run(PRODUCT + 'Brevant.exe', '/ApplyNewName')
        machine.host(table).unlink()
        library = machine.host(PRODUCT + 'libexpat.dll')
        for other in 'KzDbg64.dll', None:  # which is no such library
            library.unlink()
            if other:
                shutil.copy(machine.host(PRODUCT + other), library)
            machine.run(PRODUCT + 'Brevant.exe', '/ApplyNewName')

    def _show_reasons(self) -> None:
        """An update without settings and records, and the reasons why the new name is not due."""
        machine = self.machine
        shutil.rmtree(machine.host(SETTING))
        machine.write(PRODUCT + 'QorPaFrwk.ini', '[Unknown]')
        machine.set_value(SETTINGS, MARKER[0], 'not applied')
        machine.set_value(SETTINGS, 'Version', '3.9')
        self.examples.show('plan.mistakes', 'plan .', 'plan . --language ja-jp')
        machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        machine.write(PRODUCT + 'UpdateInfo.ini', '[COMPONENT_LIST]\nComponent101_DownloadPath=..\\Away\n')
        self.examples.show('plan.mistakes', 'plan .')
        for folder in PRODUCT, '':
            machine.set_value(SETTINGS, 'ProductPath', folder)
            machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        machine.run(PRODUCT + 'Brevant.exe', '/ApplyNewName')
