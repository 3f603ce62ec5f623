"""The sample (samples/README.md) on a throwaway machine, as the installer and the update client would have left it.

    with SampleMachine('DE-DE') as machine:
        code, messages = machine.agent('/DeployFramework')
"""
import pathlib
import re
from typing import Iterable, NamedTuple, Optional

from .machine import PRODUCT, SESSIONS, SETTINGS, Machine
from .prefix import ROOT
from .standins import Question

SAMPLES = ROOT / 'samples'
OUTSIDE = 'drive_c'  # what an installed product has outside of its folder

# Says that the new name has been applied.
MARKER = ('{2B7F61C4-9A0E-4F83-B5D2-6E18A4C0973B}', '{8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}')

# The download folders, as installed/UpdateInfo.ini names them.
PRODUCT_PACKAGE = 'c21t2103v3.9.0l1p1r1o1'
RESOURCE_PACKAGE = 'c21t2101v3.9.0l1p-1r1o1'

# What installed/config.xml keeps encrypted.
PROXY_PASSWORD = 'Maple-Street-1906'


class File(NamedTuple):
    """A row of files.txt."""
    source: Optional[str]  # None when the update has no such file
    target: Optional[str]  # None when it stays where it is
    old: Optional[str]  # content of the installed product's file, None without such a file
    new: Optional[str]  # the same of the update's


def folders(install: str = PRODUCT) -> dict[str, str]:
    """What the names in braces of files.txt stand for."""
    product = f'{install}Component\\{PRODUCT_PACKAGE}\\'
    return {
        'install': install,
        'product': product,
        'package': f'{product}64bit\\{PRODUCT_PACKAGE}\\',
        'package32': f'{product}32bit\\{PRODUCT_PACKAGE}\\',
        'share': f'{product}Share\\',
        'resource': f'{install}Component\\{RESOURCE_PACKAGE}\\',
        'appdata': 'C:\\ProgramData\\',
        'windows': 'C:\\windows\\',
        'interactivelog': 'C:\\Trace\\Interactive\\',
        'desktop': 'C:\\users\\Public\\Desktop\\',
        'programs': 'C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\',
    }


def read_files(install: str = PRODUCT) -> list[File]:
    """The rows of files.txt."""
    names = folders(install)
    rows = []
    for line in (SAMPLES / 'files.txt').read_text('utf-8').splitlines():
        if not line or line.startswith('#'):
            continue
        source, target = (part.strip() for part in line.split('->'))
        old = f'old content of {target.rstrip("* ")}\n' if target.endswith('*') else None
        new = f'new content, {source}\n' if source != '(removed)' else None
        target = target.rstrip('* ')
        rows.append(File(source.format(**names) if new else None,
                         target.format(**names) if target != 'stays' else None, old, new))
    return rows


def planted_files(install: str = PRODUCT) -> frozenset[str]:
    """The update's files that no step looks at: its mistakes, made on purpose."""
    return frozenset(row.source for row in read_files(install) if row.source and not row.target)


Files = dict[str, bytes]  # by Windows path


def sample_files(install: str = PRODUCT) -> tuple[Files, Files]:
    """The installed product, and the downloaded update."""
    names = folders(install)
    # An old link of a name that the update's description has as well: it is not removed but replaced.
    installed = {names['desktop'] + 'New password.lnk': b'old content', **_tree(SAMPLES / 'installed', install)}
    update = {**_tree(SAMPLES / 'update' / 'Setting', names['share'] + 'Setting\\'),
              **_tree(SAMPLES / 'update' / 'Resource', names['share'] + 'Resource\\'),
              **_tree(SAMPLES / 'update', install, '*.ini'),
              **_tree(SAMPLES / 'installed', install, 'UpdateInfo.ini')}
    for row in read_files(install):
        if row.old and row.target:
            installed[row.target] = _bytes(row.old)
        if row.new and row.source:
            update[row.source] = _bytes(row.new)
    return installed, update


def _bytes(text: str, encoding: str = 'utf-8') -> bytes:
    return text.replace('\n', '\r\n').encode(encoding)


def _tree(source: pathlib.Path, target: str, pattern: str = '**/*') -> Files:
    # Windows takes an INI file for UTF-16 or, without its mark, for the code page of the machine.
    return {target + str(file.relative_to(source)).replace('/', '\\'):
            _bytes(file.read_text('utf-8'), 'utf-16' if file.suffix == '.ini' else 'utf-8')
            for file in sorted(source.glob(pattern)) if file.is_file() and file.suffix != '.reg'}


def lay_out(machine: Machine, language: str = 'EN-US', install: str = PRODUCT) -> list[File]:
    """Puts the installed product, its registry and the downloaded update on the machine; returns the rows of
    files.txt. The program itself is not part of the sample: Machine.install_program()."""
    for files in sample_files(install):
        for path, content in files.items():
            machine.write(path, content)
    machine.import_reg((SAMPLES / 'installed' / 'registry.reg').read_text('utf-8'))
    machine.set_value(SETTINGS, 'ProductPath', install.rstrip('\\'))
    machine.set_value(SETTINGS, 'Language', language)
    return read_files(install)


def write_sample(folder: pathlib.Path) -> tuple[pathlib.Path, pathlib.Path]:
    """The sample as two folders of the host, its update and its installed product; returns both."""
    for name, files in zip(('installed', 'update'), sample_files()):
        for path, content in files.items():
            below = path.removeprefix(PRODUCT) if path.startswith(PRODUCT) else path.replace('C:', OUTSIDE, 1)
            file = folder / name / below.replace('\\', '/')
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(content)
    (folder / 'installed' / 'registry.reg').write_bytes((SAMPLES / 'installed' / 'registry.reg').read_bytes())
    return folder / 'update', folder / 'installed'


def install_folder(machine: Machine, installed: pathlib.Path, language: str = '') -> str:
    """Puts an installed product on the machine: a folder's files into the install folder, files below OUTSIDE into
    C:\\, and "registry.reg" into the registry. Returns its language."""
    for path, content in host_files(installed).items():
        if path != 'registry.reg':
            outside = path.startswith(OUTSIDE + '\\')
            machine.write('C:' + path.removeprefix(OUTSIDE) if outside else PRODUCT + path, content)
    machine.import_reg(text_of(installed / 'registry.reg'))
    language = language or str(machine.values(SETTINGS).get('Language') or 'EN-US')
    enable_trace(machine)
    machine.set_value(SETTINGS, 'ProductPath', PRODUCT.rstrip('\\'))
    machine.set_value(SETTINGS, 'Language', language)
    return language


def enable_trace(machine: Machine) -> None:
    """Switches the trace on in a readable folder, over the settings of the product. The settings of protected
    programs, which the agent never is, stay unchanged."""
    keys = {key.casefold(): values for key, values in machine.read_tree(SETTINGS).items()}
    folders = {session: keys.get(f'1\\DebugLog\\{session}'.casefold(), {}).get('LogFolder') for session in SESSIONS}
    places = {session: folder for session, folder in folders.items() if folder}
    machine.enable_trace()
    for session, (kind, place) in places.items():
        if session == 'ProtectedSession' or re.fullmatch(r'[Cc]:\\[^%]+', str(place)):
            machine.set_value(f'{SETTINGS}\\1\\DebugLog\\{session}', 'LogFolder', place, kind)


def host_files(folder: pathlib.Path) -> Files:
    """A folder's files by their path below it, with backslashes."""
    return {str(file.relative_to(folder)).replace('/', '\\'): file.read_bytes()
            for file in sorted(folder.rglob('*')) if file.is_file()}


def text_of(file: pathlib.Path) -> str:
    """The text of an INI or registry file; empty if it does not exist."""
    content = file.read_bytes() if file.is_file() else b''
    return content.decode('utf-16' if content[:2] == b'\xff\xfe' else 'utf-8-sig', 'replace')


def languages_of(update: pathlib.Path) -> list[str]:
    """The languages that an update has settings for; without settings, those of its texts."""
    names = [pathlib.PurePosixPath(path.replace('\\', '/')) for path in host_files(update)]
    tags = [re.search(r'_([A-Za-z]{2}-[A-Za-z]{2})\.', name.name) for name in names
            if str(name.parent).casefold().endswith('share/setting')]
    folders = [part for name in names if name.name.casefold() == 'stringtable.ini' for part in name.parts[-2:-1]]
    return sorted({tag[1].upper() for tag in tags if tag}
                  or {part.upper() for part in folders if re.fullmatch('[A-Za-z]{2}-[A-Za-z]{2}', part)})


def instructions(update: pathlib.Path) -> dict[str, list[tuple[str, str]]]:
    """The records of an update's instruction file by section; the first section of a name counts, as for Windows."""
    sections: dict[str, list[tuple[str, str]]] = {}
    records: list[tuple[str, str]] = []
    for line in text_of(update / 'QorPaFrwk.ini').splitlines():
        if line.strip().startswith('['):
            records = []
            sections.setdefault(line.strip().strip('[]').upper(), records)
        elif '=' in line and not line.lstrip().startswith(';'):
            key, _, value = line.partition('=')
            records.append((key.strip(), value.strip()))
    return sections


class SampleMachine(Machine):
    """A throwaway machine with the sample product, its update and the program on it."""
    def __init__(self, language: str = 'EN-US', install: str = PRODUCT, drives: Iterable[str] = ()):
        super().__init__()
        for letter in drives:
            self.add_drive(letter)
        self.install = install
        self.folders = folders(install)
        self.rows = lay_out(self, language, install)
        self.install_program(install, standins=[Question.LIBRARY])

    def agent(self, *arguments: str) -> tuple[int, list[str]]:
        """Runs the program; its exit code and what it traced."""
        return self.run_traced(self.install + 'Brevant.exe', *arguments)

    def mark_renamed(self) -> None:
        """Leaves the product's new name out of what follows."""
        self.set_value(SETTINGS, *MARKER)
