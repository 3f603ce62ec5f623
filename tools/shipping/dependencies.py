"""The locked dependencies: fetched, checked, unpacked; and their lock, renewed.

    python3 -m shipping.dependencies [--lock FILE] VERB

    fetch FOLDER [--exact]   unpacks each package into FOLDER/NAME
    renew                    writes a new lock (tools/dependencies.lock)
    check                    compares the lock with the archive's lists: 0 none is older than the newest that they name,
                             1 one is, 3 not known, for the archive cannot be reached or names none

At the locked version a package's description (.dsc) must have the locked hash, and its archives those that the
description has for them. What was used is listed in FOLDER/SOURCES.txt. Downloads are kept in build/sources.
"""
import argparse
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile
import tempfile

from shipping.apt import Archive, Source, is_newer, newest_first, source_pack

ROOT = pathlib.Path(__file__).resolve().parents[2]
LOCK = ROOT / 'tools' / 'dependencies.lock'
USED = 'SOURCES.txt'
TESTS_ONLY = ('googletest',)  # in nothing that is shipped
CURRENT, OLDER, UNKNOWN = 0, 1, 3


SUITE = 'suite '  # begins the line of a lock with the suite of Debian


class DependencyError(Exception):
    """A locked package that cannot be had, or is not what it should be."""


def say(text: str) -> None:
    print(f'[dependencies] {text}', flush=True)


def read_lock(file: pathlib.Path) -> list[Source]:
    sources = []
    for line in file.read_text('utf-8').splitlines():
        if line and not line.startswith(('#', SUITE)):
            fields = line.split()
            if len(fields) != 3 or not re.fullmatch('[0-9a-f]{64}', fields[2]):
                raise DependencyError(f'{file.name}: not "package version SHA-256": {line}')
            sources.append(Source(*fields))
    return sources


def read_suite(file: pathlib.Path) -> str:
    """The suite of Debian that the locked versions are from; empty when the lock does not say."""
    found = re.search(rf'^{SUITE}(\w+)$', file.read_text('utf-8'), re.M)
    return found[1] if found else ''


def sha256(file: pathlib.Path) -> str:
    return hashlib.sha256(file.read_bytes()).hexdigest()


def fetch(folder: pathlib.Path, exact: bool, lock: pathlib.Path) -> None:
    """Unpacks every locked package into folder/NAME. `exact`: no other version than the locked one will do."""
    folder.mkdir(parents=True, exist_ok=True)
    # A parallel build of another checkout may share the downloads of this one.
    cache = downloads()
    unpack_pack(cache)
    suite = read_suite(lock)
    archive: Archive | None = None
    used = []
    for locked in read_lock(lock):
        source = locked
        if not (cache / locked.dsc).is_file() or sha256(cache / locked.dsc) != locked.sha256:
            if pack := source_pack():
                raise DependencyError(f'{locked.name} {locked.version} is missing in {pack}')
            archive = archive or Archive(folder, suite)
            source = _download(archive, locked, cache, exact)
        _unpack(source, cache, folder / source.name)
        used.append(f'{source.name} {source.version} {source.sha256}\n')
        say(f'{source.name} {source.version}' + ('' if source == locked else f' (locked: {locked.version})'))
    (folder / USED).write_text(''.join([f'{SUITE}{suite}\n' if suite else '', *used]), 'utf-8')


def downloads() -> pathlib.Path:
    """The folder that keeps what has been downloaded."""
    folder = pathlib.Path(os.environ.get('BREVANT_SOURCES', ROOT / 'build' / 'sources'))
    folder.mkdir(parents=True, exist_ok=True)
    return folder


def unpack_pack(folder: pathlib.Path) -> None:
    """Adds the files of the release's sources, where those are the archive. Who uses them compares their hashes."""
    if pack := source_pack():
        with tarfile.open(pack) as packed:
            for member in packed:
                if not member.isfile() or '/' in member.name or (content := packed.extractfile(member)) is None:
                    raise DependencyError(f'{pack} is no pack of sources: it has {member.name}')
                (folder / member.name).write_bytes(content.read())


def files_of(source: Source, folder: pathlib.Path) -> list[pathlib.Path]:
    """A package's files in a folder of downloads, each with the hash that it must have."""
    description = folder / source.dsc
    if not description.is_file() or sha256(description) != source.sha256:
        raise DependencyError(f'{description} is missing, or is not the locked one')
    listed = re.search(r'^Checksums-Sha256:.*\n((?: .*\n)+)', description.read_text('utf-8'), re.M)
    files = [line.split() for line in (listed[1] if listed else '').splitlines()]
    for digest, _, name in files:
        if not (folder / name).is_file() or sha256(folder / name) != digest:
            raise DependencyError(f'{folder / name} is missing or damaged')
    return [description, *(folder / name for _, _, name in files)]


def check(lock: pathlib.Path) -> int:
    """Says which locked version is older than the newest that the archive names, whether that is served or not."""
    with tempfile.TemporaryDirectory() as name:
        archive = Archive(pathlib.Path(name), read_suite(lock))
        if archive.unreached:
            say(f'NOTICE: whether the lock has all security fixes is not known; {archive.last_words()}')
        results = [_compare(archive, locked) for locked in read_lock(lock)]
    if OLDER in results:
        return OLDER
    return UNKNOWN if archive.unreached or UNKNOWN in results else CURRENT


def _compare(archive: Archive, locked: Source) -> int:
    newest = next(iter(archive.named(locked.name)), None)
    if newest is None or is_newer(locked.version, newest.version):
        if not archive.unreached:
            say(f'NOTICE: {locked.name} {locked.version} is locked; the archive names '
                + (f'only {newest.version}' if newest else 'no version of it'))
        return UNKNOWN
    if newest.version == locked.version:
        return CURRENT
    tests = ' It is in nothing that is shipped.' if locked.name in TESTS_ONLY else \
        ' It may fix a security fault; tools/update-dependencies.sh renews the lock.'
    say(f'NOTICE: {locked.name} {locked.version} is locked; the archive names {newest.version}.{tests}')
    return CURRENT if locked.name in TESTS_ONLY else OLDER


def renew(lock: pathlib.Path) -> None:
    """Writes the newest version of each locked package that the archive serves, all of them or none."""
    old = read_lock(lock)
    text = lock.read_text('utf-8')
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        archive = Archive(folder, read_suite(lock))
        for locked in old:
            new = _newest_served(archive, locked, folder)
            text = re.sub(rf'^{re.escape(locked.name)} .*$',
                          f'{new.name:<13} {new.version:<16} {new.sha256}', text, flags=re.M)
            say(f'{new.name}: {new.version}' + (' as before' if new == locked else f' instead of {locked.version}'))
    fresh = lock.with_suffix('.new')
    fresh.write_text(text, 'utf-8')
    fresh.replace(lock)


def _download(archive: Archive, locked: Source, cache: pathlib.Path, exact: bool) -> Source:
    """Fetches the locked version, or a newer one that took its place in the archive."""
    named = archive.named(locked.name)
    if any(source.version == locked.version for source in named) and archive.download(locked, cache):
        if sha256(cache / locked.dsc) != locked.sha256:
            (cache / locked.dsc).unlink()
            raise DependencyError(f'{locked.dsc} does not have the locked SHA-256: the archive\'s copy was altered')
        return locked
    _require_lists(archive, locked, named)
    newer = [source for source in named if is_newer(source.version, locked.version)]
    for source in newer if not exact else []:
        if archive.download(source, cache):
            say(f'NOTICE: {locked.name} {locked.version} is locked but no longer served; taking the newer '
                f'{source.version}. tools/update-dependencies.sh renews the lock. Not for a release.')
            return source
    raise DependencyError(
        f'{locked.name} {locked.version} is missing: the archive names '
        f'{", ".join(source.version for source in named) or "no version of it"} and serves '
        + ('none that is locked; a release takes no other' if exact else 'neither the locked version nor a newer one')
        + f'\n{archive.last_words()}')


def _require_lists(archive: Archive, locked: Source, named: list[Source]) -> None:
    if archive.unreached and not named:
        raise DependencyError(f'{locked.name} {locked.version} cannot be fetched; {archive.last_words()}')


def _newest_served(archive: Archive, locked: Source, folder: pathlib.Path) -> Source:
    named = archive.named(locked.name)
    _require_lists(archive, locked, named)
    for source in newest_first([source for source in named if not is_newer(locked.version, source.version)]):
        if archive.download(source, folder):
            _unpack(source, folder, folder / source.name)
            if source != named[0]:
                say(f'NOTICE: {source.name}: the archive names {named[0].version} but does not serve it; '
                    f'{source.version} is the newest that it serves')
            return source
    raise DependencyError(f'{locked.name}: the archive serves neither {locked.version} nor a newer version; '
                          f'the lock stays as it is\n{archive.last_words()}')


def _unpack(source: Source, downloads: pathlib.Path, target: pathlib.Path) -> None:
    """Unpacks with Debian's own checks: of the description's signature where its key is known, of every archive."""
    shutil.rmtree(target, ignore_errors=True)
    run = subprocess.run(['dpkg-source', '--require-strong-checksums', '-x', downloads / source.dsc, target],
                         stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if run.returncode:
        raise DependencyError(f'{source.name} {source.version} is damaged (delete {downloads} to fetch it again):\n'
                              f'{run.stdout.strip()}')


def main() -> int:
    parser = argparse.ArgumentParser(description='The locked dependencies.')
    parser.add_argument('--lock', type=pathlib.Path, default=LOCK)
    verbs = parser.add_subparsers(dest='verb', required=True)
    verb = verbs.add_parser('fetch')
    verb.add_argument('folder', type=pathlib.Path)
    verb.add_argument('--exact', action='store_true')
    verbs.add_parser('renew')
    verbs.add_parser('check')
    arguments = parser.parse_args()
    try:
        if arguments.verb == 'fetch':
            fetch(arguments.folder, arguments.exact, arguments.lock)
        elif arguments.verb == 'check':
            return check(arguments.lock)
        else:
            renew(arguments.lock)
    except DependencyError as error:
        print(f'[dependencies] FAILED: {error}', file=sys.stderr)
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
