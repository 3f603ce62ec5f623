"""Random updates on random machines, each made from its number; and the cases in which plan and run once differed.

    scenario = random_scenario(17)
    for scenario in known_cases(): ...
"""
import dataclasses
import hashlib
import random
from typing import Callable, Sequence, Union

from .layouts import MARKER, PRODUCT_PACKAGE, RESOURCE_PACKAGE, SAMPLES, Files, folders, sample_files
from .machine import SETTINGS
from .registry import Data

INSTALLS = ('C:\\Kazmere\\', 'D:\\Kazmere\\')
LINKED = 'C:\\Linked\\'  # where links lead, on each drive
KEY = 'SOFTWARE\\Kazmere\\KZVLT'
Section = list[str]
Value = Union[tuple[str, str, Data], tuple[str, str, Data, str]]  # key, name, data and, for some, its kind


@dataclasses.dataclass
class Scenario:
    """An installed product with a downloaded update, and the rest of its machine."""
    name: str
    install: str = INSTALLS[0]
    language: str = 'EN-US'
    files: Files = dataclasses.field(default_factory=dict)  # by Windows path
    folders: list[str] = dataclasses.field(default_factory=list)
    links: list[str] = dataclasses.field(default_factory=list)  # folders in whose place a link leads to another
    attributes: dict[str, str] = dataclasses.field(default_factory=dict)  # by path: of r(ead-only), h(idden), s(ystem)
    values: list[Value] = dataclasses.field(default_factory=list)
    sections: dict[str, Section] = dataclasses.field(default_factory=dict)  # of the instruction file: its lines
    encoding: str = 'utf-16'  # of the instruction file; empty: no such file
    earlier_runs: int = 0  # before the one that is planned
    restarted_before: bool = False  # after these
    restart: bool = False  # what is special about it shows after the restart only

    def __post_init__(self) -> None:
        if not self.files:
            for files in sample_files(self.install):
                self.files |= files
        self.product = folders(self.install)['product']
        self.share = folders(self.install)['share']

    def identity(self) -> str:
        """What another version of this module changes when it makes another scenario of the same number."""
        return hashlib.sha256(repr(dataclasses.astuple(self)).encode()).hexdigest()[:8]

    def put(self, path: str, text: str = '') -> str:
        """A file with a content of its own, its line ends as they are."""
        self.files[path] = (text or f'content of {path}').encode('utf-8')
        return path

    def instructions(self) -> bytes:
        """The instruction file."""
        text = ''.join(f'[{name}]\n' + ''.join(f'{line}\n' for line in lines) for name, lines in self.sections.items())
        return text.replace('\n', '\r\n').encode(self.encoding or 'utf-16', 'replace')


Change = Callable[[Scenario], None]


def _records(**sections: Sequence[str]) -> Change:
    def change(scenario: Scenario) -> None:
        # Both sections are needed for any removal.
        scenario.sections = {'QOR_DIR': ['add={InstalledDir}'], 'QOR_FILE': ['delete={InstalledDir}*.none']}
        for name, lines in sections.items():
            scenario.sections.setdefault(name, []).extend(lines)
    return change


def _leftovers(scenario: Scenario) -> None:
    for name in ('UpdateInfo-7ffff0d4.unfinished', 'config-7ffff0d4.unfinished', 'config.xml', 'UpdateInfo.ini',
                 '~kzcomn-7ffff0d4-01.tmp', 'qorshcut.xml'):
        scenario.put(f'{scenario.share}Setting\\{name}')
        scenario.put(scenario.product + name)
    _records(UPDATE_INFO=['modify=A!B!1'], QOR_CONFIG_MERGE=['migrate=/ProxySettings/Server'])(scenario)


def _made_package(scenario: Scenario) -> None:
    scenario.files = {path: content for path, content in scenario.files.items() if '\\Share\\Task\\' not in path}
    _records(QOR_DIR=['add={UdComponentsSrcDir}Share\\Task', 'add={InstalledDir}Component\\' + RESOURCE_PACKAGE])(
        scenario)


def _moved_away(scenario: Scenario) -> None:
    scenario.folders.append('C:\\Other\\Place')
    _records(QOR_REGISTRY_PATCH=[f'add={KEY}!ProductPath!REG_SZ!C:\\Other\\Place'],
             Run=['SysRunOnce=cmd.exe /c echo {InstalledDir}'], UPDATE_INFO=['modify=A!B!1'])(scenario)


def _deleted_source(scenario: Scenario) -> None:
    scenario.put(scenario.share + 'UI\\panel.dll')
    _records(QOR_FILE=['delete_now={UdComponentsSrcDir}Share\\UI\\panel.dll',
                       'delete_now={UdComponentsSrcDir}Share\\Setting\\config.xml'],
             QOR_CONFIG_MERGE=['migrate=/ProxySettings/Server'])(scenario)


def _deleted_folder(scenario: Scenario) -> None:
    scenario.put(scenario.share + 'Task\\only in the update.task')
    _records(QOR_DIR=['delete={InstalledDir}Task'])(scenario)


def _hidden_drivers(scenario: Scenario) -> None:
    _records()(scenario)
    driver = folders(scenario.install)['package'] + 'Driver\\'
    scenario.attributes |= {driver + 'kbfilter.sys': 'h', scenario.install + 'Driver\\kbfilter.sys': 'h'}
    scenario.put('C:\\kbfilter.ini')
    scenario.attributes['C:\\kbfilter.ini'] = 'h'


def _protected_file(scenario: Scenario) -> None:
    _records()(scenario)
    scenario.put(scenario.share + 'UI\\panel.dll')
    scenario.put(scenario.install + 'panel.dll')
    scenario.attributes[scenario.install + 'panel.dll'] = 'r'


def _refused_language_file(scenario: Scenario) -> None:
    _records(QOR_CONFIG_MERGE=['migrate=/ProxySettings/Server'])(scenario)
    setting = scenario.share + 'Setting\\'
    scenario.folders.append(setting + 'readme.htm')
    scenario.put(setting + 'qorshcut.xml')
    scenario.attributes[setting + 'qorshcut.xml'] = 'h'
    scenario.put(setting + 'config.xml')
    scenario.attributes[setting + 'config.xml'] = 'rh'


def _linked(scenario: Scenario) -> None:
    scenario.links = [scenario.share + 'Task', scenario.install + 'Policy', scenario.install + 'Component']
    _records(QOR_DIR=['add={InstalledDir}Policy\\New'], QOR_FILE=['delete_now={InstalledDir}Policy\\*'])(scenario)


def _whole_sample(scenario: Scenario) -> None:
    section = ''
    for line in (SAMPLES / 'update' / 'QorPaFrwk.ini').read_text('utf-8-sig').splitlines():
        section = line.strip('[]') if line.startswith('[') else section
        scenario.sections.setdefault(section, []).extend([line] if section and line[:1] not in ('', '[', ';') else [])


_CASES: dict[str, Change] = {
    'the whole sample': _whole_sample,
    'leftovers in the download folder': _leftovers,
    'a package folder that a record creates': _made_package,
    'ProductPath written by a record': _moved_away,
    'folders that cannot be created': _records(QOR_DIR=[
        'add={InstalledDir}bad|name', 'add={InstalledDir}readme.htm\\below', 'add={InstalledDir}con', 'add=Relative',
        'add={InstalledDir}New\\bad?\\deep', 'add=Q:\\nowhere', 'add={InstalledDir}dots...', 'add={InstalledDir}a/b']),
    'a folder is deleted into which files move': _deleted_folder,
    'the source of a file is deleted at once': _deleted_source,
    'a file that is replaced at the restart is read-only': _protected_file,
    'hidden drivers': _hidden_drivers,
    'a refused copy of the language file': _refused_language_file,
    'links in the package and in the product': _linked,
}


_SEEN_AFTER_RESTART = ('a folder is deleted into which files move', 'the source of a file is deleted at once',
                       'a file that is replaced at the restart is read-only')


def known_cases(installs: Sequence[str] = INSTALLS) -> list[Scenario]:
    """The cases in which plan and run once differed, on each drive."""
    cases = []
    for install in installs:
        for name, change in _CASES.items():
            cases.append(Scenario(f'{name}, {install[:2]}', install, restart=name in _SEEN_AFTER_RESTART))
            change(cases[-1])
    return cases


class _Maker:
    """Makes the parts of one random scenario."""
    PLACES = ('{InstalledDir}',) * 6 + ('{UdComponentsSrcDir}',) * 3 + (
        '{InstallerLogDir}', '{InteractiveLogDir}', '{ServiceLogDir}', '{ProtectedLogDir}', 'C:\\Other\\',
        'D:\\Other\\', 'C:/Other/', '', '..\\', 'Q:\\', '{installeddir}', '{InstalledDir}..\\', '\\\\?\\C:\\Other\\',
        'C:', '\\Other\\', '{InstalledDir}\\.\\', 'D:\\', '\\\\nowhere\\share\\', 'C:\\Linked\\',
        '{InstalledDir}Link\\')
    FOLDERS = ('Policy', 'Task', 'Legacy', 'Lang', 'New\\Deep\\Deeper', 'Resource', 'Resource\\images', 'Patterns',
               'Driver', 'Share\\Task', 'Share\\Task\\', 'Share\\UI', 'Share\\Setting', 'Share\\7-Zip\\Lang',
               'bad|name', 'end ',
               'dots...', 'con', 'readme.htm\\below', 'Überblick', 'a/b', '.', 'a\\..\\b', 'x' * 260, 'LEGACY',
               'a:b', 'QorFirefoxExt', 'wild*', '', '日本', 'İ', 'ß\\SS', 'Link', 'nul.txt', 'tab\tname', 'Share')
    PATTERNS = ('*.old', 'Keystride*.dll', 'panel.dll', '*.htm', '?anel.dll', 'readme.*', 'none*',
                'Share\\UI\\panel.dll',
                'Share\\UI\\*', 'Policy\\*', 'Resource\\EN-US\\*', '*.xml', 'config.*', 'Share\\Setting\\*.xml',
                'Share\\Setting\\config*', 'Legacy\\*', 'Legacy', '', 'bad|name', 'Task\\*.task', 'Nowhere\\*',
                'Nowhere\\a.dll', '*.HTM', 'readme.htm\\*', 'Legacy\\\\*', 'a:b', '*.dll0', 'extra?.dat', '**',
                '*.unfinished', '*.*', '*', '日本.*', '?.dat', '*.gz', 'name.*.dots', 'QorPaFrwk.ini', '*.ini',
                'Link\\*', 'config.previous*', '*~1.dll', 'qorshcut*.xml', 'Driver\\*.sys')
    KEYS = (KEY + '\\Vault',) * 6 + (
        'SOFTWARE\\Kazmere\\New', 'SOFTWARE\\Kazmere\\New\\Deep', KEY, KEY.lower() + '\\VAULT', '\\' + KEY,
        KEY + '\\', KEY + '\\\\Double', KEY + '\\' + 'k' * 300, 'HKEY_LOCAL_MACHINE\\SOFTWARE\\Kazmere', '',
        KEY + '\\Überblick', 'SOFTWARE/Kazmere/Slash', KEY + '\\ Space ')
    NAMES = ('Theme', 'IdleMinutes', 'KeystrideToolbar', 'theme', '(Default)', 'New', 'Second', 'Language', 'Mark',
             'Big', ' ', 'a b', 'Überblick', '(default)', 'back\\slash', 'n' * 300, '日本')
    TYPES = ('REG_SZ',) * 4 + ('REG_DWORD',) * 4 + ('REG_QDWORD', 'REG_MULTI_SZ', 'REG_QWORD', 'reg_sz', '')
    DATA = ('1', '60', '0x10', '-1', '4294967295', '4294967296', 'dark', 'light', '{InstalledDir}readme.htm', '', ' 5',
            'a!b', '3943305780', '!!default_val!REG_SZ!!', '{ServiceLogDir}x', '5368709120', '"quoted"',
            '16954726988734894644', '18446744073709551616', '007', '{ProtectedLogDir}',
            '{InstalledDir}{InstallerLogDir}',
            '日本', 'tab\there', 'x' * 900)
    EDITS = ('COMPONENT_LIST!Component101_Version!3.9.0.1105', 'New!Key!1', 'New!Key!2', 'COMPONENT_LIST!OnlyAKey', '!',
             'A!B!', 'A!B!a!b', 'New!key!3', 'COMPONENT_LIST!Note!{InstalledDir}', 'A!B!"quoted"', 'A!B! space ',
             'A!"B"!1', 'COMPONENT_LIST!Note!Überblick', 'COMPONENT_LIST!Component101_DownloadPath!other',
             'A]!B!1', 'component_list!component101_version!4', 'A!;B!1', ' New! Key !5')
    SETTINGS = ('/ProxySettings/Enable', '/ProxySettings/Server', '/ProxySettings/Port', '/ProxySettings/Password',
                '/No/Such', '//', '/', '', 'ProxySettings/Enable', '/ProxySettings', '/proxysettings/enable',
                '/ProxySettings/Enable/', '/ProxySettings//Port', '/Window/Skin', '/FeedbackServer/Address', '/a b',
                '/Überblick', '/' + 'x' * 1100, '/ProxySettings/Enable/Deeper', '/Twice')
    COMMANDS = ('cmd.exe /c echo {InstalledDir}', 'cmd.exe /c echo cut! off', 'cmd.exe /c echo 1', 'cmd.exe /c echo 1',
                '{UdComponentsSrcDir}none.exe', 'cmd.exe /c echo ' + 'x' * 1000, '"{ProtectedLogDir}a b.exe" /x',
                'cmd.exe /c echo kbfilter.ini', '日本.exe', 'a=b')
    NOISE = ('; a comment', '', 'Add={InstalledDir}Case', 'add = {InstalledDir}Spaced', '  add={InstalledDir}Indented',
             'add', '=x', 'add==x', 'add=', 'delete="{InstalledDir}Quoted"', 'delete={InstalledDir}' + 'x' * 1100,
             'unknown=1', 'delete=' + 'y' * 1023, 'text=', 'modify=A!B!' + 'z' * 1020, 'SysRunOnce= cmd.exe /c echo 2')
    CONFIGS = (
        '<C><ProxySettings><Enable type="bool">perhaps</Enable><Port type="int">99999999999</Port></ProxySettings></C>',
        '<C><ProxySettings><Server>a &amp; &lt;b&gt;</Server><Port>1</Port><Port>2</Port></ProxySettings></C>',
        '<!DOCTYPE C><C><ProxySettings><Enable>1</Enable></ProxySettings></C>', '',
        '<C><ProxySettings><Password protected="1">2:none</Password><Enable>1<Deeper>x</Deeper></Enable>'
        '</ProxySettings></C>',
        '<C><Twice>1</Twice><Twice>2</Twice><Window><Skin><![CDATA[<red>]]></Skin></Window></C>',
        '<?xml version="1.0" encoding="ISO-8859-1"?><C><ProxySettings/></C>')
    UPDATE_INFOS = (
        '[component_list]\r\ncomponent101_downloadpath = "{0}"\r\n',
        '[COMPONENT_LIST]\r\nComponent1_DownloadPath={0}\r\n',
        ';\r\n[COMPONENT_LIST ]\r\n  Component101_DownloadPath=.\\{0}\\\r\nComponent103_iUD_Version=1\r\n',
        '[Other]\r\nA=1',
        '[COMPONENT_LIST]\r\nComponent101_DownloadPath=\r\nComponent101_DownloadPath={0}\r\n'
        'Component2_DownloadPath={0}',
        '[COMPONENT_LIST]\r\nComponent101_DownloadPath={0}\\Share\\..\r\n'
        'Component2_DownloadPath={0}/Share/Resource\r\n')

    def __init__(self, seed: int) -> None:
        self.random = random.Random(seed)
        choose = self.random.choice
        self.scenario = Scenario(f'seed {seed}', choose(INSTALLS),
                                 choose(('EN-US', 'EN-US', 'DE-DE', 'ja-jp', 'FR-FR')))

    def often(self, chance: float) -> bool:
        return self.random.random() < chance

    def some(self, most: int) -> range:
        return range(self.random.randint(0, most))

    def make(self) -> Scenario:
        for part in (self.thin_out, self.add_files, self.add_leftovers, self.spoil, self.add_values, self.write_records,
                     self.set_attributes, self.add_odd_files, self.add_odd_values, self.add_odd_lines, self.add_links):
            part()
        self.scenario.earlier_runs = self.random.choice((1, 1, 1, 2)) if self.often(0.2) else 0
        self.scenario.restarted_before = self.scenario.earlier_runs > 0 and self.often(0.2)
        return self.scenario

    def thin_out(self) -> None:
        files, keep = self.scenario.files, self.random.uniform(0.4, 1)
        always = ('QorPaFrwk.ini', 'UpdateInfo.ini')
        self.scenario.files = {path: content for path, content in files.items()
                               if path.endswith(always) or self.often(keep)}

    def add_files(self) -> None:
        scenario, choose = self.scenario, self.random.choice
        homes = [scenario.share + name for name in ('UI\\', 'Task\\', 'Setting\\', 'Resource\\', 'Engine\\',
                                                    'Patterns\\', 'QorFirefoxExt\\', 'Other\\', '7-Zip\\New\\')]
        homes += [scenario.product, folders(scenario.install)['resource'], folders(scenario.install)['package'],
                  folders(scenario.install)['package'] + 'Driver\\', scenario.product + 'Engine\\Preload\\']
        homes += [scenario.install + name for name in ('', 'Task\\', 'Legacy\\', 'Resource\\', 'Patterns\\')]
        homes += ['C:\\Other\\', 'D:\\Other\\', 'C:\\windows\\Temp\\']
        names = ('panel.dll', 'extra1.dat', 'extra2.dat', 'b.old', 'Überblick.htm', 'deep\\panel.dll', 'panel.dll0',
                 'readme_FR-FR.htm', 'A.HTM', 'a.html', 'no extension', 'x' * 100 + '.dat')
        for _ in self.some(12):
            scenario.put(choose(homes) + choose(names))
        for _ in self.some(2):
            scenario.folders.append(choose(homes) + choose(('Empty', 'Task', 'readme.htm', 'panel.dll', 'config.xml')))

    def add_leftovers(self) -> None:
        scenario = self.scenario
        places = {scenario.product: ('UpdateInfo-7ffff0d4.unfinished', 'config-7ffff0d4.unfinished',
                                     'config-0000zzzz.unfinished'),
                  scenario.share + 'Setting\\': ('UpdateInfo-7ffff0d4.unfinished', 'config-7ffff0d4.unfinished',
                                                 'config.xml', 'UpdateInfo.ini', '~kzcomn-7ffff0d4-01.tmp',
                                                 'readme.htm'),
                  scenario.install: ('config.previous.xml', 'qorshcutbackup.xml', '~kzcomn-7ffff0d4-01.tmp',
                                     'UpdateInfo-7ffff0d4.unfinished', 'readme.htm0', 'panel.dll0')}
        for folder, names in places.items():
            for name in names:
                if self.often(0.08):
                    scenario.put(folder + name)
        if self.often(0.05) and scenario.install + 'config.xml' in scenario.files:
            scenario.files[scenario.install + 'config.previous.xml'] = scenario.files[scenario.install + 'config.xml']

    def spoil(self) -> None:
        scenario, install = self.scenario, self.scenario.install
        setting = f'{scenario.share}Setting\\config_{scenario.language}.xml'
        for path in (install + 'config.xml', setting):
            if self.often(0.06):
                scenario.put(path, self.random.choice(('<a>', '<?xml version="1.0"?><Config/>', 'no XML', '\ufeff')))
        name = self.random.choice(('', '/', '.', '\\..\\x', ' '))
        if self.often(0.15):
            text = f'[COMPONENT_LIST]\r\nComponent101_DownloadPath={PRODUCT_PACKAGE}{name}\r\n'
            scenario.put(install + 'UpdateInfo.ini', text)
        elif self.often(0.03):
            del scenario.files[install + 'UpdateInfo.ini']

    def add_values(self) -> None:
        scenario, choose = self.scenario, self.random.choice
        data: tuple[Data, ...] = ('text', '', 7, 3943305780, b'\x01\x02', ['a', 'b'], '!!default_val!REG_SZ!!')
        names = {choose(self.NAMES).lower(): choose(data) for _ in self.some(4)}
        scenario.values += [(SETTINGS + '\\Vault', name, content) for name, content in names.items()]
        if self.often(0.3):
            scenario.values.append((SETTINGS, 'Version', choose(('3.9.0.1200', '3.8.0.1099', '3', '', 7))))
        if self.often(0.2):
            scenario.values.append((SETTINGS, *MARKER))

    def lines(self, key: str, most: int, *fields: Sequence[str]) -> Section:
        return [f'{key}=' + ''.join(self.random.choice(field) for field in fields) for _ in self.some(most)]

    def write_records(self) -> None:
        bang = ('!',)
        value = (self.KEYS, bang, self.NAMES, bang, self.TYPES, bang, self.DATA)
        removals = {
            'QOR_DIR': self.lines('add', 4, self.PLACES, self.FOLDERS)
            + self.lines('delete', 2, self.PLACES, self.FOLDERS),
            'QOR_FILE': self.lines('delete', 3, self.PLACES, self.PATTERNS)
            + self.lines('delete_now', 3, self.PLACES, self.PATTERNS)}
        for name, harmless in (('QOR_DIR', 'add={InstalledDir}'), ('QOR_FILE', 'delete={InstalledDir}*.none')):
            if not removals[name] and self.often(0.8):
                removals[name].append(harmless)
        registry = (self.lines('delete', 3, self.KEYS, bang, self.NAMES) + self.lines('add', 4, *value)
                    + self.lines('add_if_non', 4, *value))
        if self.often(0.04):
            registry.append(self.random.choice((f'delete={KEY}!ProductPath', f'delete={KEY}!Language',
                                                f'add={KEY}!ProductPath!REG_SZ!C:\\Other')))
        sections = {**removals, 'QOR_REGISTRY_PATCH': registry, 'UPDATE_INFO': self.lines('modify', 4, self.EDITS),
                    'Run': self.lines('SysRunOnce', 3, self.COMMANDS),
                    'QOR_CONFIG_MERGE': self.lines('migrate', 4, self.SETTINGS),
                    'RestartNotification_EN-US': ['text=Title', 'text=Message'][:self.random.randint(0, 2)]}
        for section in sections.values():
            self.random.shuffle(section)
        self.scenario.sections = {name: section for name, section in sections.items() if section or self.often(0.5)}

    def set_attributes(self) -> None:
        # Wine, run by root, writes to read-only INI files; Windows does not.
        paths = sorted(path for path in self.scenario.files if not path.endswith('.ini'))
        names = [path.rpartition('\\')[2].casefold() for path in paths if '\\Component\\' in path]
        for _ in self.some(8) if self.often(0.6) else ():
            path = self.random.choice(paths)
            letters = self.random.choice(('r', 'h', 'rh', 's', 'hs'))
            # A second file for the place of a read-only one does not arrive on Windows, but does in Wine 8.
            twice = '\\Component\\' in path and names.count(path.rpartition('\\')[2].casefold()) > 1
            self.scenario.attributes[path] = letters.replace('r', '') or 'h' if twice else letters

    def add_odd_files(self) -> None:
        scenario, choose = self.scenario, self.random.choice
        homes = [scenario.share + name for name in ('UI\\', 'Setting\\', 'Task\\', '')]
        homes += [folders(scenario.install)['package'], folders(scenario.install)['resource'], scenario.install]
        names = ('日本.htm', 'İ.dat', 'ß.dat', 'SS.dat', 'a.tar.gz', 'name.with.dots', '~kzcomn-00000abc-01.tmp',
                 'QorUpdate.json', 'UpdateInfo.ini', 'b.ini', '.hidden', 'config.xml', 'PANEL.DLL')
        for _ in self.some(4):
            scenario.put(choose(homes) + choose(names))
        if self.often(0.15):
            scenario.put(scenario.install + 'config.xml', choose(self.CONFIGS))
        if self.often(0.1):
            scenario.put(f'{scenario.share}Setting\\config_{scenario.language}.xml', choose(self.CONFIGS))
        if self.often(0.1):
            text = choose(self.UPDATE_INFOS).format(PRODUCT_PACKAGE)
            scenario.files[scenario.install + 'UpdateInfo.ini'] = text.encode(choose(('utf-16', 'cp1252')))
        for number in range(1, choose((2, 3, 10))) if self.often(0.06) else ():
            scenario.put(scenario.install + f'config.previous{f".{number}" if number > 1 else ""}.xml')
        if self.often(0.05):
            scenario.folders.append(scenario.install + 'config.previous.xml')
        preload = 'C:\\ProgramData\\Kazmere\\KZVLT\\Engine\\Preload\\preload.dat'
        for number in range(choose((1, 3, 100))) if self.often(0.06) else ():
            scenario.put(f'{preload}{number}')

    def add_odd_values(self) -> None:
        scenario, choose, vault = self.scenario, self.random.choice, SETTINGS + '\\Vault'
        values: tuple[Value, ...] = (
            (vault, '', 'unnamed'), (vault, '(Default)', 'literal'), (vault, 'Mark', 2**40, 'qword'),
            (vault, 'Big', 0xEB0A1234EB0A1234, 'qword'), (vault, 'Second', '%TEMP%\\x', 'expand'),
            ('HKLM\\Software\\Kazmere\\New', 'Mark', 1), ('HKLM\\Software\\Kazmere\\New', '', ''),
            (SETTINGS, MARKER[0], 'another'), (SETTINGS, 'Language', choose(('', 'de-de', 'XX-XX', 7))),
            (SETTINGS, 'Version', choose(('3.8.0.0999', '10.8.0.1099', '3.8.0.109', '3.8.0.1100'))),
            (SETTINGS, 'ProductPath', choose((scenario.install, scenario.install.lower(),
                                              scenario.install.replace('\\', '/'), scenario.install + '.'))))
        taken = {(value[0], value[1].lower()) for value in scenario.values}
        for value in values:
            if self.often(0.08) and (value[0], value[1].lower()) not in taken:
                scenario.values.append(value)
        if self.often(0.1):
            session = choose(('ServiceSession', 'ProtectedSession'))
            places: tuple[Data, ...] = ('', 'relative', 'C:\\Other', '%USERPROFILE%', '%USERPROFILE%\\\\Deep',
                                        'Q:\\x\\', 7)
            scenario.values.append((f'{SETTINGS}\\1\\DebugLog\\{session}', 'LogFolder', choose(places)))
        if self.often(0.1):
            text = '[Global]\r\nS_STR_PRODUCT_NAME=Kazmere Qorvault\r\n'
            scenario.files[scenario.install + 'Resource\\EN-US\\StringTable.ini'] = text.encode('utf-16')

    def add_odd_lines(self) -> None:
        scenario, choose = self.scenario, self.random.choice
        sections = scenario.sections
        for name in [name for name in sections if self.often(0.2)]:
            for _ in self.some(3):
                sections[name].insert(self.random.randint(0, len(sections[name])), choose(self.NOISE))
        texts = ['text=Titel', 'text=Überblick', 'text=third'][:self.random.randint(0, 3)]
        sections[f'RestartNotification_{scenario.language}'] = texts
        if self.often(0.1) and 'QOR_DIR' in sections:
            sections['qor_dir'] = ['add={InstalledDir}Second section']
        if self.often(0.02) and sections:
            large = [f'add={KEY}!Large{number}!REG_SZ!' + 'x' * 200 for number in range(160)]
            sections[choose(list(sections))] += large
        scenario.encoding = choose(('utf-16',) * 10 + ('cp1252', '')) if self.often(0.3) else scenario.encoding

    def add_links(self) -> None:
        scenario = self.scenario
        places = [scenario.install + name for name in ('Policy', 'Task', 'Link', 'Legacy', 'Resource', 'Component')]
        places += [scenario.share + name for name in ('Setting', 'Task', 'UI', 'Resource\\EN-US', '7-Zip\\Lang')]
        places += ['C:\\Other', 'D:\\Other', 'C:\\ProgramData\\Kazmere\\KZVLT\\Engine',
                   folders(scenario.install)['package'] + 'Driver', folders(scenario.install)['resource'].rstrip('\\')]
        for _ in self.some(2) if self.often(0.12) else ():
            scenario.links.append(self.random.choice(places))


def random_scenario(seed: int) -> Scenario:
    """The scenario of a number, always the same."""
    return _Maker(seed).make()
