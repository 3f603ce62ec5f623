"""The shell tools on a machine whose commands are stand-ins: what a tool prints, which commands it calls, how it ends.

The files of docs/tools have calls ("> "), each block of them below a sentence ("# ") and what the stand-ins do in it
("? ", a branch of a shell's "case": nothing, unless it is named). The rest of a file is what came of it:
tools/examples.sh writes it again, and a test compares it.
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
from typing import Iterator

from .prefix import ROOT

REHEARSALS = ROOT / 'docs/tools'
# What is the same on every machine.
REAL = """awk bash cat cmp cp cut dirname env find grep head ln ls mkdir mktemp mv paste realpath rm rmdir sed
    sha256sum sh sort stat tail tar tee touch tr true wc xargs""".split()
PROGRAMS = """apt-cache apt-get chroot clang-format clang-tidy-16 cmake cppcheck ctest debootstrap dpkg dpkg-query
    flake8 flock git id mount mypy nproc python3 setarch setpriv signer sudo sums-signer unshare wine
    wineboot wineserver x86_64-w64-mingw32-addr2line x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-nm
    x86_64-w64-mingw32-objcopy x86_64-w64-mingw32-objdump""".split()
# Shown before the first command that gets them.
WATCHED = ('BREVANT_ARCHIVE BREVANT_BIN BREVANT_GUIDES BREVANT_HOST_DRIVE BREVANT_SOURCES BREVANT_STANDINS '
           'BREVANT_TOOLCHAIN CCACHE_DISABLE DEBIAN_FRONTEND PYTHONPATH SOURCE_DATE_EPOCH WINEDEBUG WINEDLLOVERRIDES '
           'WINEPREFIX')
# Ends of calls: what the tool does at the same time is sorted, or left out.
ANY_ORDER, OUTPUT_ONLY = '# in any order', '# the output'
STANDIN = r'''#!@SHELL@
name="${0##*/}"
said="$name${*:+ $*}" told="$name"
for word; do case "$word" in '' | *[[:space:]]*) told="$told '$word'" ;; *) told="$told $word" ;; esac; done
case "$said" in 'python3 -c '* | 'python3 -B -c '*) told= ;; esac
[ -z "$told" ] || [ "$PWD" = @HOME@/project ] || told="(in $PWD) $told"
variables=
for variable in @WATCHED@; do
    eval "value=\${$variable-}"
    [ -z "$value" ] || variables="$variables $variable=$value"
done
[ -z "$told" ] || printf '\1%s\2%s' "$variables" "$told" >>@HOME@/record
case "$said" in
@ANSWERS@
'python3 -c '*) exec real-python3 "$@" ;;
*'sys.exit(10)'*) exit 10 ;;
'sudo '*) exec "$@" ;;
'setpriv '*) shift 2; exec "$@" ;;
'unshare '*) while case "$1" in --*) true ;; *) false ;; esac; do shift; done; exec "$@" ;;
'id -u') echo 0 ;;
nproc) echo 1 ;;
esac
'''
REPLACED = [(re.compile(pattern), shown) for pattern, shown in (
    (r'\b\d+ s\b', 'N s'), (r'(release-work|tmp)\.\w+', r'\1.XXXXXX'), (r'(\.recipe-)[0-9a-f]{16}', r'\1X'),
    (r'(machines[/\\])\d+-\w+', r'\1X'), (r'(template-)[0-9a-f]{12}', r'\1X'))]


class Stage:
    """A folder that looks like a machine with a copy of the project; its commands do what `answers` say."""
    def __init__(self, home: pathlib.Path, answers: list[str]) -> None:
        self.home, self.project, self.record = home, home / 'project', home / 'record'
        programs = home / 'usr/bin'
        programs.mkdir(parents=True)
        (self.project / 'tools').mkdir(parents=True)
        for name in REAL:
            (programs / name).symlink_to(str(shutil.which(name)))
        text = STANDIN.replace('@ANSWERS@', self.placed(''.join(f'{answer} ;;\n' for answer in answers)))
        for name, value in ('WATCHED', WATCHED), ('HOME', str(home)):
            text = text.replace(f'@{name}@', value)
        self.standin, slow = home / 'standin', home / 'slow-standin'
        for file, shell in (self.standin, '/bin/sh'), (slow, '/bin/bash'):
            file.write_text(text.replace('@SHELL@', shell))
            file.chmod(0o755)
        for name in PROGRAMS:
            # The quicker shell does not pass on a function.
            (programs / name).symlink_to(slow if name in ('setpriv', 'unshare') else self.standin)
        (programs / 'real-python3').symlink_to(sys.executable)
        self.install_packages()
        for name in 'tools/brevantlab', 'tools/shipping', 'tools/dependencies.lock', 'bench', 'cmake':
            (self.project / name).symlink_to(ROOT / name)
        (self.project / 'CMakeLists.txt').write_text('project(Brevant VERSION 1.9.9999\n')

    def install_packages(self) -> None:
        """What shows that a package is installed."""
        for tool in 'setup.sh', 'toolchain.sh':
            for name in re.findall(r"^[a-z0-9+-]+ +/(usr/[^\s']+)", (ROOT / 'tools' / tool).read_text('utf-8'), re.M):
                place = self.home / name
                place.parent.mkdir(parents=True, exist_ok=True)
                if not place.exists():
                    place.write_text('')

    def placed(self, text: str) -> str:
        """A text with the paths of this machine."""
        return text.replace('/usr/', f'{self.home}/usr/')

    def put_tools(self, command: str) -> None:
        """The tools of a command, and those that others source; the rest are stand-ins."""
        for file in (ROOT / 'tools').glob('*.sh'):
            copy = self.project / 'tools' / file.name
            copy.unlink(missing_ok=True)
            if file.stat().st_mode & 0o100 and f'tools/{file.name}' not in command:
                copy.symlink_to(self.standin)
                continue
            copy.write_text(self.placed(file.read_text('utf-8')), 'utf-8')
            copy.chmod(file.stat().st_mode)

    def run(self, command: str) -> Iterator[str]:
        """The lines that a command wrote, its exit code, and the commands that it called."""
        self.put_tools(command)
        self.record.write_text('')
        done = subprocess.run(['bash', '-c', self.placed(command)], cwd=self.project, stdin=subprocess.DEVNULL,
                              env={'PATH': f'{self.home}/usr/bin', 'HOME': '/root', 'LC_ALL': 'C.UTF-8'},
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=120)
        lines = [f'    {self.shown(line)}'.rstrip() for line in done.stdout.splitlines()]
        yield from sorted(lines) if command.endswith(ANY_ORDER) else lines
        if done.returncode:
            yield f'    (exit code {done.returncode})'
        before, record = '', self.record.read_text('utf-8').split('\1')[1:]
        if command.endswith(ANY_ORDER):
            record.sort()
        for called in [] if command.endswith(OUTPUT_ONLY) else record:
            variables, _, words = self.shown(called).partition('\2')
            if variables != before:
                yield f'  |  {variables or " (no variables)"}'
            before = variables
            yield '  | ' + words.replace('\n', '\n  |   ')

    def shown(self, text: str) -> str:
        for home in str(self.home), str(self.home).replace('/', '\\'):
            text = text.replace(home, '')
        for pattern, by in REPLACED:
            text = pattern.sub(by, text)
        return text


def rehearse(text: str) -> str:
    """A file of docs/tools, with what comes of its calls now."""
    lines: list[str] = []
    for block in re.split(r'^(?=# )', text, flags=re.M):
        kept = [line for line in block.splitlines() if line[:2] in ('# ', '? ', '> ')]
        with tempfile.TemporaryDirectory(prefix='brevant-stage-', ignore_cleanup_errors=True) as home:
            stage = Stage(pathlib.Path(home).resolve(), [line[2:] for line in kept if line.startswith('? ')])
            for line in kept:
                lines += [line, *(stage.run(line[2:]) if line.startswith('> ') else ())]
        lines += [''] if kept else []
    return '\n'.join(lines)


def main() -> int:
    files = sorted(REHEARSALS.glob('*.txt'))
    for file in files:
        file.write_text(rehearse(file.read_text('utf-8')), 'utf-8')
    print(f'{len(files)} rehearsals in {REHEARSALS}')
    return 0


if __name__ == '__main__':
    sys.exit(main())
