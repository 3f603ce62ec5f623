"""The files of a release, made from a built checkout; the same input gives the same bytes.

    python3 -m shipping.release pack CHECKOUT TARGET VERSION EPOCH [--known-older REASON]
    python3 -m shipping.release compare CHECKOUT OTHER      every packed file (CHECKOUT/dist) and program, byte for byte
"""
import argparse
import json
import pathlib
import re
import sys
import tarfile
import time
import zipfile
from typing import Mapping, Union

from shipping import schema
from shipping.apt import Source
from shipping.bill import BillError, bill_of_materials
from shipping.dependencies import USED, DependencyError, downloads, files_of, read_lock, sha256

BIN = pathlib.PurePath('build/release/bin')
DEPS = pathlib.PurePath('build/deps')
# A release needs all of these; every other program in the folder of programs is shipped, too.
NEEDED = ('Brevant.exe', 'BrevantCheck.exe', 'KzDbg64.dll', 'libexpat.dll')
# Documents for those who work on the program; all others are guides for those who use it.
INTERNAL_DOCUMENTS = ('architecture.md', 'performance.md', 'release.md', 'windows-trial.md')
# What the tools' archive has of "tools", with the scripts that these source, and what they work on.
TOOLS = ('agree.sh', 'check.sh', 'try.sh')
TOOL_FOLDERS = ('tools/brevantlab', 'samples', 'starter', 'schemas')
STANDINS = ('KzDbgFault.dll', 'wtsapi32.dll')
# Name in the archive -> file; relative paths are in the built dependencies.
LICENCES = {
    'Expat.txt': 'share/licenses/Expat.txt',
    'JsonCpp.txt': 'share/licenses/JsonCpp.txt',
    'MinGW-w64-runtime.txt': '/usr/share/doc/mingw-w64-common/copyright',
    'GCC-runtime.txt': '/usr/share/doc/gcc-mingw-w64-base/copyright',
    'GPL-3.txt': '/usr/share/common-licenses/GPL-3',
}


Content = Mapping[str, Union[bytes, pathlib.Path]]  # by the name in an archive


class ReleaseError(Exception):
    """Something that a release needs is missing or differs."""


def programs(folder: pathlib.Path) -> list[pathlib.Path]:
    found = sorted(file for file in folder.iterdir() if file.suffix in ('.exe', '.dll'))
    for name in set(NEEDED) - {file.name for file in found}:
        raise ReleaseError(f'{name} was not built')
    for file in found:
        if not symbols_of(file).is_file():
            raise ReleaseError(f'{file.name} has no symbols beside it')
    return found


def symbols_of(program: pathlib.Path) -> pathlib.Path:
    return program.with_name(program.name + '.debug')


def pack(checkout: pathlib.Path, target: pathlib.Path, version: str, epoch: int, known_older: str = '') -> None:
    """Writes the archives, the bill of materials and their hashes into the folder `target`."""
    target.mkdir(parents=True)
    name = f'brevant-{version}'
    shipped = programs(checkout / BIN)
    documents = checkout / 'docs'
    guides = {f'guides/{file.relative_to(documents)}': file
              for pattern in ('*.md', 'examples/*.txt') for file in documents.glob(pattern)
              if file.name not in INTERNAL_DOCUMENTS}
    licences = {f'licences/{licence}': checkout / DEPS / place for licence, place in LICENCES.items()}
    content: Content = {**{file.name: file for file in shipped}, **guides, **licences,
                        **below(checkout, 'starter', 'schemas')}
    write_zip(target / f'{name}.zip', name, content, epoch)
    write_zip(target / f'brevant-tools-{version}.zip', f'brevant-tools-{version}',
              {**tools(checkout), **guides, 'VERSION': f'{version}\n'.encode()}, epoch)
    write_zip(target / f'{name}-symbols.zip', f'{name}-symbols',
              {symbols_of(file).name: symbols_of(file) for file in shipped}, epoch)
    write_sources(target / f'{name}-sources.tar', read_lock(checkout / DEPS / USED), epoch)
    bill = bill_of_materials(checkout, shipped, version, epoch, known_older)
    (target / f'{name}.cdx.json').write_text(json.dumps(bill, indent=2) + '\n', 'utf-8')
    sums = [f'{sha256(file)}  {file.name}\n' for file in sorted(target.iterdir())]
    (target / 'SHA256SUMS').write_text(''.join(sums), 'utf-8')


def below(checkout: pathlib.Path, *folders: str) -> Content:
    """All files below these folders of the checkout, by their names in it."""
    return {str(file.relative_to(checkout)): file for folder in folders
            for file in (checkout / folder).rglob('*') if file.is_file() and '__pycache__' not in file.parts}


def tools(checkout: pathlib.Path) -> Content:
    """What tries updates without a compiler."""
    scripts: set[str] = set()
    waiting = list(TOOLS)
    while waiting:
        name = waiting.pop()
        if name not in scripts:
            scripts.add(name)
            waiting += re.findall(r'source tools/([a-z-]+\.sh)', (checkout / 'tools' / name).read_text('utf-8'))
    return {**{f'tools/{name}': checkout / 'tools' / name for name in scripts}, **below(checkout, *TOOL_FOLDERS),
            **{f'standins/{name}': checkout / BIN / 'standins' / name for name in STANDINS}}


def write_zip(archive: pathlib.Path, root: str, content: Content, epoch: int) -> None:
    """Packs files, or bytes, under the folder `root`; order, times and rights are the same on every machine."""
    with zipfile.ZipFile(archive, 'w') as packed:
        for name in sorted(content):
            file = content[name]
            if isinstance(file, pathlib.Path) and not file.is_file():
                raise ReleaseError(f'{file} is missing')
            entry = zipfile.ZipInfo(f'{root}/{name}', time.gmtime(epoch)[:6])
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o755 if name.endswith('.sh') else 0o644) << 16
            entry.create_system = 3
            packed.writestr(entry, file if isinstance(file, bytes) else file.read_bytes())


def write_sources(archive: pathlib.Path, sources: list[Source], epoch: int) -> None:
    """Packs the downloads that the release was made of, and the package with its bill's schema, if that is kept."""
    files = [file for source in sources for file in files_of(source, downloads())]
    files += [file for file in [schema.package_file()] if file.is_file()]
    with tarfile.open(archive, 'w', format=tarfile.USTAR_FORMAT) as packed:
        for file in sorted(files):
            entry = tarfile.TarInfo(file.name)
            entry.size, entry.mtime = file.stat().st_size, epoch
            with file.open('rb') as content:
                packed.addfile(entry, content)


def compare(checkout: pathlib.Path, other: pathlib.Path) -> None:
    """Compares what two builds of the same commit made."""
    left, right = (_made(folder) for folder in (checkout, other))
    differing = sorted(name for name in left.keys() | right.keys() if left.get(name) != right.get(name))
    if differing:
        raise ReleaseError('two builds of this commit differ in ' + ', '.join(differing))
    for name, digest in sorted(left.items()):
        print(f'  equal  {digest[:16]}  {name}')
    print(f'[release] {len(left)} files are equal in every byte')


def _made(checkout: pathlib.Path) -> dict[str, str]:
    binaries = programs(checkout / BIN)
    files = [*(checkout / 'dist').iterdir(), *binaries, *map(symbols_of, binaries)]
    return {str(file.relative_to(checkout)): sha256(file) for file in files}


def main() -> int:
    parser = argparse.ArgumentParser(description='The files of a release.')
    verbs = parser.add_subparsers(dest='verb', required=True)
    verb = verbs.add_parser('pack')
    verb.add_argument('checkout', type=pathlib.Path)
    verb.add_argument('target', type=pathlib.Path)
    verb.add_argument('version')
    verb.add_argument('epoch', type=int)
    verb.add_argument('--known-older', default='', metavar='REASON')
    verb = verbs.add_parser('compare')
    verb.add_argument('checkout', type=pathlib.Path)
    verb.add_argument('other', type=pathlib.Path)
    arguments = parser.parse_args()
    try:
        if arguments.verb == 'pack':
            pack(arguments.checkout, arguments.target, arguments.version, arguments.epoch, arguments.known_older)
        else:
            compare(arguments.checkout, arguments.other)
    except (ReleaseError, BillError, DependencyError) as error:
        print(f'[release] FAILED: {error}', file=sys.stderr)
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
