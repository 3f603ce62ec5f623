"""Debian's source archive, asked through apt with a configuration of its own: the machine's stays as it is.

    python3 -m shipping.apt FOLDER SUITE   writes the machine's own entries into a folder, for another release of Debian
"""
import dataclasses
import functools
import os
import pathlib
import re
import subprocess
import sys
import tarfile

# Names a file with deb-src lines that takes the place of the machine's own archive, a mirror or a folder; or the
# sources of a release (brevant-VERSION-sources.tar).
ARCHIVE_VARIABLE = 'BREVANT_ARCHIVE'

Run = subprocess.CompletedProcess[str]


@dataclasses.dataclass(frozen=True)
class Source:
    """One version of a source package, by its name; sha256 is that of its .dsc."""
    name: str
    version: str
    sha256: str

    @property
    def dsc(self) -> str:
        return f'{self.name}_{self.version.partition(":")[2] or self.version}.dsc'


def is_newer(version: str, other: str) -> bool:
    return subprocess.run(['dpkg', '--compare-versions', version, 'gt', other]).returncode == 0


def newest_first(sources: list[Source]) -> list[Source]:
    def compare(left: Source, right: Source) -> int:
        return is_newer(left.version, right.version) - is_newer(right.version, left.version)
    return sorted(sources, key=functools.cmp_to_key(compare), reverse=True)


def machine_suite(etc: pathlib.Path = pathlib.Path('/etc')) -> str:
    """The suite of Debian that this machine runs: bookworm."""
    release = re.search(r'^VERSION_CODENAME=(\w+)', (etc / 'os-release').read_text('utf-8'), re.M)
    return release[1] if release else 'bookworm'


def source_pack() -> pathlib.Path | None:
    """The release's sources that are to be taken in place of an archive."""
    place = pathlib.Path(os.environ.get(ARCHIVE_VARIABLE) or os.devnull)
    return place if place.is_file() and tarfile.is_tarfile(place) else None


class Archive:
    """The archive as it is now; its lists are in `folder`. `suite` is one of Debian, the machine's unless another one
    is named; `kind` is that of its packages: deb-src or deb. `unreached`: which lists could not be fetched, and why."""

    def __init__(self, folder: pathlib.Path, suite: str = '', kind: str = 'deb-src') -> None:
        self._log = folder / 'apt.log'
        state = folder / 'apt'
        for name in ('parts', 'lists/partial', 'cache/archives/partial'):
            (state / name).mkdir(parents=True, exist_ok=True)
        _write_entries(state / 'parts', suite, kind)
        user = subprocess.run(['id', '-un'], check=True, stdout=subprocess.PIPE, text=True).stdout.strip()
        settings = {
            'Dir::Etc::sourcelist': '/dev/null', 'Dir::Etc::sourceparts': state / 'parts',
            'Dir::State::lists': state / 'lists', 'Dir::Cache': state / 'cache', 'APT::Sandbox::User': user,
            'APT::Get::List-Cleanup': 0, 'Acquire::Languages': 'none', 'Acquire::Retries': 2,
            'Acquire::http::Timeout': 20, 'Acquire::https::Timeout': 20}
        self._options = [f'-o{name}={value}' for name, value in settings.items()]
        # One list that is not served is no failure yet: the packages may stand in another one.
        update = self._run('apt-get', 'update')
        self.unreached = re.findall(r'^[EW]: (?:Failed to fetch|The repository) (.*)$', update.stdout + update.stderr,
                                    re.M)

    def named(self, name: str) -> list[Source]:
        """The versions of a package that the archive's lists name, newest first. Not all need be served."""
        found: dict[str, Source] = {}
        for text in self._run('apt-cache', 'showsrc', '--only-source', name).stdout.split('\n\n'):
            version = re.search(r'^Version: (\S+)$', text, re.M)
            dsc = re.search(r'^Checksums-Sha256:.*\n(?: .*\n)*? ([0-9a-f]{64}) \d+ \S+\.dsc$', text, re.M)
            if version and dsc:
                found[version[1]] = Source(name, version[1], dsc[1])
        return newest_first(list(found.values()))

    def download(self, source: Source, folder: pathlib.Path) -> bool:
        """Fetches the package's files into the folder; apt compares them with its signed lists. False: not served."""
        run = self._run('apt-get', 'source', '--download-only', '--only-source', f'{source.name}={source.version}',
                        folder=folder)
        return run.returncode == 0 and (folder / source.dsc).is_file()

    def download_binary(self, name: str, version: str, folder: pathlib.Path) -> bool:
        """Fetches a package of an archive of binary ones into the folder. False: not served."""
        return self._run('apt-get', 'download', f'{name}={version}', folder=folder).returncode == 0

    def last_words(self) -> str:
        """Why lists are missing, or else the errors that apt reported last."""
        if self.unreached:
            return 'the archive cannot be reached: ' + '\n'.join(self.unreached[:3])
        lines = [line for line in self._log.read_text('utf-8', 'replace').splitlines() if line.startswith('E: ')]
        return '\n'.join(lines[-3:])

    def _run(self, command: str, *arguments: str, folder: pathlib.Path | None = None) -> Run:
        run = subprocess.run([command, *self._options, *arguments], cwd=folder, env={**os.environ, 'LC_ALL': 'C'},
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        with self._log.open('a', encoding='utf-8') as log:
            log.write(f'$ {command} {" ".join(arguments)}\n{run.stdout[:5000]}{run.stderr}')
        return run


def _write_entries(folder: pathlib.Path, suite: str, kind: str) -> None:
    """Writes the machine's own entries for its release of Debian, as entries for `suite` and `kind`."""
    if ARCHIVE_VARIABLE in os.environ and kind == 'deb-src' and not source_pack():
        (folder / 'archive.list').write_text(pathlib.Path(os.environ[ARCHIVE_VARIABLE]).read_text('utf-8'), 'utf-8')
        return
    write_entries(folder, suite, kind)


def write_entries(folder: pathlib.Path, suite: str, kind: str, etc: pathlib.Path = pathlib.Path('/etc')) -> None:
    """The same from the machine's own entries only: a mirror has all releases. Entries of others for its release are
    left out: their part is not called main."""
    codename = machine_suite(etc)
    suite = suite or codename
    paragraphs: list[str] = []
    for file in sorted(etc.glob('apt/sources.list.d/*.sources')):
        text = re.sub(r'^#.*\n', '', file.read_text('utf-8'), flags=re.M)
        for paragraph in re.split(r'\n\s*\n', text.strip()):
            if re.search(rf'^Suites:.*\s{codename}', paragraph, re.M) and \
                    re.search(r'^Components:.*\smain\b', paragraph, re.M) and \
                    not re.search(r'^Enabled:\s*(no|false|off|without|disable|0)\b', paragraph, re.M | re.I):
                paragraphs.append(re.sub(r'^Types:.*$', f'Types: {kind}', paragraph, flags=re.M))
    lines: list[str] = []
    for file in (etc / 'apt/sources.list', *sorted(etc.glob('apt/sources.list.d/*.list'))):
        if file.is_file():
            lines += [re.sub(r'^deb\s', f'{kind} ', line) for line in file.read_text('utf-8').splitlines()
                      if re.match(rf'deb\s.*\s{codename}.*\smain\b', line)]
    for name, texts in (('debian.sources', '\n\n'.join(paragraphs)), ('debian.list', '\n'.join(dict.fromkeys(lines)))):
        (folder / name).write_text(re.sub(rf'(?<=\s){codename}', suite, texts) + '\n', 'utf-8')


if __name__ == '__main__':
    write_entries(pathlib.Path(sys.argv[1]), sys.argv[2], 'deb')
