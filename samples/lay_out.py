"""Lays the sample out on a throwaway machine, as the installer and the update client would have left it (README.md).

    with Machine() as machine:
        files = lay_out(machine, 'DE-DE')
        machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
"""
import collections
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / 'tools' / 'machine'))

from machine import PRODUCT, SETTINGS  # noqa: E402

# The download folders, as installed/UpdateInfo.ini names them.
PRODUCT_PACKAGE = 'c21t2103v3.9.0l1p1r1o1'
RESOURCE_PACKAGE = 'c21t2101v3.9.0l1p-1r1o1'

# What installed/config.xml keeps encrypted.
PROXY_PASSWORD = 'Maple-Street-1906'

# A row of files.txt. source: None when the update has no such file; target: None when it stays where it is;
# old, new: what stands in the installed product's file and in the update's, None when there is no such file.
File = collections.namedtuple('File', 'source target old new')


def folders(install=PRODUCT):
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


def read_files(install=PRODUCT):
    names = folders(install)
    rows = []
    for line in (HERE / 'files.txt').read_text('utf-8').splitlines():
        if not line or line.startswith('#'):
            continue
        source, target = (part.strip() for part in line.split('->'))
        old = f'old content of {target.rstrip("* ")}\n' if target.endswith('*') else None
        new = f'new content, {source}\n' if source != '(removed)' else None
        target = target.rstrip('* ')
        rows.append(File(source.format(**names) if new else None,
                         target.format(**names) if target != 'stays' else None, old, new))
    return rows


def lay_out(machine, language='EN-US', install=PRODUCT):
    """Puts the installed product, its registry and the downloaded update on the machine; returns the rows of
    files.txt. The program itself is not part of the sample: Machine.install_program()."""
    rows = read_files(install)
    for row in rows:
        if row.old:
            machine.write(row.target, row.old)
        if row.new:
            machine.write(row.source, row.new)

    names = folders(install)
    # An old link of a name that the update's description has as well: it is not removed but replaced.
    machine.write(names['desktop'] + 'New password.lnk', 'old content')
    _copy_tree(machine, HERE / 'installed', install)
    _copy_tree(machine, HERE / 'update' / 'Setting', names['share'] + 'Setting\\')
    _copy_tree(machine, HERE / 'update' / 'Resource', names['share'] + 'Resource\\')
    _copy_tree(machine, HERE / 'update', install, '*.ini')

    machine.import_reg((HERE / 'installed' / 'registry.reg').read_text('utf-8'))
    machine.set_value(SETTINGS, 'ProductPath', install.rstrip('\\'))
    machine.set_value(SETTINGS, 'Language', language)
    return rows


def _copy_tree(machine, source, target, pattern='**/*'):
    for file in sorted(source.glob(pattern)):
        if file.is_file() and file.suffix != '.reg':
            # Windows takes an INI file for UTF-16 or, without its mark, for the code page of the machine.
            encoding = 'utf-16' if file.suffix == '.ini' else 'utf-8'
            name = str(file.relative_to(source)).replace('/', '\\')
            machine.write(target + name, file.read_text('utf-8'), encoding)
