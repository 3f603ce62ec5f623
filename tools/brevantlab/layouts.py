"""The sample (samples/README.md) on a throwaway machine, as the installer and the update client would have left it.

    with SampleMachine('DE-DE') as machine:
        code, messages = machine.agent('/DeployFramework')
"""
import pathlib
from typing import Iterable, NamedTuple, Optional

from .machine import PRODUCT, SETTINGS, Machine
from .prefix import ROOT
from .standins import Question

SAMPLES = ROOT / 'samples'

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
    old: Optional[str]  # what stands in the installed product's file, None when there is no such file
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


def lay_out(machine: Machine, language: str = 'EN-US', install: str = PRODUCT) -> list[File]:
    """Puts the installed product, its registry and the downloaded update on the machine; returns the rows of
    files.txt. The program itself is not part of the sample: Machine.install_program()."""
    rows = read_files(install)
    for row in rows:
        if row.old and row.target:
            machine.write(row.target, row.old)
        if row.new and row.source:
            machine.write(row.source, row.new)

    names = folders(install)
    # An old link of a name that the update's description has as well: it is not removed but replaced.
    machine.write(names['desktop'] + 'New password.lnk', 'old content')
    _copy_tree(machine, SAMPLES / 'installed', install)
    _copy_tree(machine, SAMPLES / 'update' / 'Setting', names['share'] + 'Setting\\')
    _copy_tree(machine, SAMPLES / 'update' / 'Resource', names['share'] + 'Resource\\')
    _copy_tree(machine, SAMPLES / 'update', install, '*.ini')

    machine.import_reg((SAMPLES / 'installed' / 'registry.reg').read_text('utf-8'))
    machine.set_value(SETTINGS, 'ProductPath', install.rstrip('\\'))
    machine.set_value(SETTINGS, 'Language', language)
    return rows


def _copy_tree(machine: Machine, source: pathlib.Path, target: str, pattern: str = '**/*') -> None:
    for file in sorted(source.glob(pattern)):
        if file.is_file() and file.suffix != '.reg':
            # Windows takes an INI file for UTF-16 or, without its mark, for the code page of the machine.
            encoding = 'utf-16' if file.suffix == '.ini' else 'utf-8'
            name = str(file.relative_to(source)).replace('/', '\\')
            machine.write(target + name, file.read_text('utf-8'), encoding)


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
