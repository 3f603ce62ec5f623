"""A throwaway Windows machine: a Wine prefix of its own, cloned from a template and deleted after use.

    with Machine() as machine:
        machine.install_program(PRODUCT)
        machine.set_value(SETTINGS, 'ProductPath', PRODUCT)
        result = machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        moves = machine.pending_moves()
        machine.restart()

The machine is up from its first command to its end: only restart() carries out pending moves and run-once
commands. Keys are written as 'HKLM\\...', paths as 'C:\\...'. As a program, `python3 -m brevantlab.machine run PROGRAM
ARGUMENT...` runs one program on a machine of its own; BREVANT_BACKTRACE=1 then shows where a crash happened.
"""
import itertools
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from typing import IO, Callable, Iterable, NamedTuple, Optional, Self, TypeVar, Union

from . import prefix as prefixes, registry, trace
from .prefix import BUILD

PRODUCT = 'C:\\Program Files\\Kazmere\\KZVLT\\'
SETTINGS = 'HKLM\\Software\\Kazmere\\KZVLT'
SESSION_MANAGER = 'HKLM\\System\\CurrentControlSet\\Control\\Session Manager'
RUN_ONCE = 'HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce'
SESSIONS = ('InteractiveSession', 'ServiceSession', 'ProtectedSession')
TRACE_FOLDER = 'C:\\Trace\\'
MACHINES = BUILD / 'machines'

# Written last in every import: says that all of it has arrived, and that this is the registry of this machine.
MARK_KEY, MARK = 'HKLM\\Software\\BrevantLab', 'Import'
# Said by Wine when a program could not begin; what it did not do can be done again.
NOT_BEGUN = 'failed to map the shared user data'
NO_SUCH_KEY = 'Unable to find the specified registry key'
ATTEMPTS = 5
QUIET = '-all,err+virtual'

Answer = TypeVar('Answer')


class ToolError(RuntimeError):
    """A tool of the machine, not the program under test, has failed for good."""


class Result(NamedTuple):
    code: int  # the exit code's low byte: -1 is 255
    output: str


class Machine:
    def __init__(self) -> None:
        template = prefixes.template()
        MACHINES.mkdir(exist_ok=True)
        self.root = pathlib.Path(tempfile.mkdtemp(prefix=f'{os.getpid()}-', dir=MACHINES))
        self.prefix = self.root / 'prefix'
        self.overrides: dict[str, str] = {}  # DLL name -> Wine's load order, "n,b" for a stand-in beside the program
        self.user = prefixes.environment(self.prefix).get('USER', 'root')
        self.repeated: list[str] = []  # commands that tools had to repeat
        self._drives: list[pathlib.Path] = []
        self._settings: list[str] = []
        self._imports = 0
        self._up = False
        self._running = 0
        self._known: dict[str, Optional[str]] = {}  # exports since a program could last change the registry
        prefixes.clone(template, self.prefix)

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends every process of the machine at once and removes it."""
        prefixes.power_off(self.prefix)
        for folder in [self.root, *self._drives]:
            prefixes.remove_tree(folder)

    # -- programs --

    def run(self, *command: object, cwd: Optional[pathlib.Path] = None, timeout: float = 120, capture: bool = True,
            errors: bool = True, debug: str = QUIET) -> Result:
        """Runs a program (Windows or host path first) and waits for it. Returns its exit code and output, with its
        standard error unless `errors` is false; `debug` selects the messages of Wine itself there."""
        self._boot()
        self._running += 1
        try:
            return self._wine(*command, cwd=cwd, timeout=timeout, capture=capture, errors=errors, debug=debug)
        finally:
            self._running -= 1
            self._known.clear()

    def restart(self, timeout: float = 300) -> None:
        """Restarts: pending moves first, then each run-once command in turn, all of them done on return."""
        self._boot()
        self._insist('restart', lambda: _done(self._tool('wineboot', '-r', timeout=timeout)))
        self._known.clear()

    def start_again(self) -> None:
        """Ends the machine's server, which writes the registry to the disk, and starts it again: the first start after
        that is a restart as well."""
        subprocess.run(['wineserver', '-k', '-w'], env=self._environment(), check=False)
        self._up = False
        self.restart()

    def wait_for_restart(self, timeout: float = 300) -> None:
        """Waits until the restart that a program has asked the system for is over."""
        end, quiet = time.monotonic() + timeout, 0
        while quiet < 5:
            quiet = 0 if any(b'wineboot' in command for _, command in prefixes.processes(self.prefix)) else quiet + 1
            if time.monotonic() > end:
                raise TimeoutError('the machine does not come back')
            time.sleep(0.05)
        self._known.clear()

    def install_program(self, folder: str = PRODUCT, standins: Iterable[str] = ()) -> None:
        """Copies the programs and libraries of BREVANT_BIN (the release build) into a folder, with stand-ins by name.
        A stand-in for a library of Windows also takes its place in the system folder, the only one where the program
        looks for such libraries."""
        binaries = pathlib.Path(os.environ.get('BREVANT_BIN', BUILD / 'release' / 'bin'))
        for name in ('Brevant.exe', 'BrevantCheck.exe'):
            if not (binaries / name).is_file():
                raise FileNotFoundError(f'no {name} in {binaries}: run tools/build.sh')
        self.make_dir(folder)
        for file in binaries.iterdir():
            if file.suffix in ('.exe', '.dll'):
                shutil.copy2(file, self.host(folder))
        for name in standins:
            standin = pathlib.Path(os.environ.get('BREVANT_STANDINS', BUILD / 'test/bin/standins')) / f'{name}.dll'
            shutil.copy2(standin, self.host(folder))
            system = self.host(f'C:\\windows\\system32\\{name}.dll')
            if system.exists():
                system.unlink()  # shared with the template
                shutil.copy2(standin, system)
            self.overrides[name] = 'n,b'

    # -- files --

    def host(self, path: str) -> pathlib.Path:
        """The host's path of a Windows path; existing parts are found without regard to case."""
        drive, *parts = [part for part in path.split('\\') if part]
        found = (self.prefix / 'dosdevices' / drive.lower()).resolve()
        for part in parts:
            exact = found / part
            if not exact.exists() and found.is_dir():
                exact = next((entry for entry in found.iterdir() if entry.name.lower() == part.lower()), exact)
            found = exact
        return found

    def make_dir(self, path: str) -> None:
        self.host(path).mkdir(parents=True, exist_ok=True)

    def write(self, path: str, content: Union[str, bytes], encoding: str = 'utf-8') -> None:
        """Writes a file (bytes, or text with Windows line ends) and the folders above it."""
        target = self.host(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content if isinstance(content, bytes) else content.replace('\n', '\r\n').encode(encoding))

    def link(self, path: str, target: str) -> None:
        """Puts a link to a folder in the place of another, which moves there with all it holds."""
        self.host(path).rename(self.host(target))
        self.host(path).symlink_to(self.host(target), target_is_directory=True)

    def read(self, path: str, encoding: str = 'utf-8') -> Optional[str]:
        """A file's text with plain line ends; None when there is no such file."""
        file = self.host(path)
        return file.read_bytes().decode(encoding).replace('\r\n', '\n') if file.is_file() else None

    def listing(self, folder: str) -> dict[str, bytes]:
        """{path below the folder, with backslashes: content} of all files."""
        home = self.host(folder)
        return {str(file.relative_to(home)).replace('/', '\\'): file.read_bytes()
                for file in home.rglob('*') if file.is_file()}

    def add_drive(self, letter: str) -> None:
        """Adds a drive on another volume of the host where there is one, so that renames to it fail as they should."""
        other = '/dev/shm' if os.access('/dev/shm', os.W_OK) else None
        folder = pathlib.Path(tempfile.mkdtemp(prefix='brevant-drive-', dir=other))
        self._drives.append(folder)
        (self.prefix / 'dosdevices' / f'{letter[0].lower()}:').symlink_to(folder)

    # -- trace --

    def enable_trace(self, level: int = 0x111, folder: str = TRACE_FOLDER) -> None:
        # All ten values: the program stops reading at the first that is missing.
        values: dict[str, registry.Data] = {
            'Enable': 1, 'Level': level, 'LogProcess': 0, 'LogUnitType': 0, 'LogFolder': folder, 'LogPrefix': 'KZVLT',
            'LogFile': '', 'LogExtension': 'log', 'Robust': 0, 'Debugger': 0}
        for session in SESSIONS:
            for name, data in values.items():
                self.set_value(f'{SETTINGS}\\1\\DebugLog\\{session}', name, data)

    def trace_lines(self, folder: str = TRACE_FOLDER) -> list[str]:
        """The lines of every trace file in the folder and those below."""
        files = sorted(self.host(folder).rglob('*.log')) if self.host(folder).is_dir() else []
        texts = (file.read_bytes().decode('utf-8-sig', 'replace').removesuffix('\r\n') for file in files)
        return [line for text in texts if text for line in text.split('\r\n')]

    def messages(self, folder: str = TRACE_FOLDER) -> list[str]:
        """What was traced, as 'TAG message' (TAG as in the file); a line of another form is an error."""
        return [trace.message(line) for line in self.trace_lines(folder)]

    def run_traced(self, *command: object) -> tuple[int, list[str]]:
        """Runs a program and returns its exit code and messages(), those of earlier runs left out."""
        for file in self.host(TRACE_FOLDER).rglob('*.log'):
            file.unlink()
        code = self.run(*command).code
        return code, self.messages()

    # -- registry --

    def set_value(self, key: str, name: Optional[str], data: registry.Data = '', kind: Optional[str] = None) -> None:
        """Sets a value before the next command: text, number, list of texts or bytes; kind 'expand' for REG_EXPAND_SZ.
        No name: makes the key."""
        self._settings.append(f'[{registry.long_key(key)}]')
        if name is not None:
            self._settings.append(registry.line_of(name, data, kind))

    def import_reg(self, text: str) -> None:
        """Takes over the lines of a .reg file before the next command."""
        self._settings += text.splitlines()

    def read_tree(self, key: str) -> registry.Tree:
        """{subkey ('' for the key itself): {value name: (kind, data)}}; empty when there is no such key."""
        self._boot()
        tree = self._export(key)
        if tree is None and not self._marked():
            raise ToolError(f'{key} is missing because the registry is not that of this machine')
        return tree or {}

    def values(self, key: str) -> dict[str, registry.Data]:
        """{value name: data} of one key."""
        return {name: data for name, (_, data) in self.read_tree(key).get('', {}).items()}

    def export(self, *keys: str) -> str:
        """The text of a registry file with the keys that exist."""
        self._boot()
        texts = [self._export_text(key) or '' for key in keys]
        return '\n'.join([registry.HEADER, *(text.partition('\n')[2] for text in texts)])

    def pending_moves(self) -> list[tuple[str, str]]:
        """The (source, destination) pairs that the next restart carries out. No destination: a deletion; one that
        begins with '!' may replace a file."""
        moves = self.values(SESSION_MANAGER).get('PendingFileRenameOperations')
        names = [str(name).replace('\\??\\', '') for name in moves] if isinstance(moves, list) else []
        return list(itertools.zip_longest(names[0::2], names[1::2], fillvalue=''))

    # -- inside --

    def _boot(self) -> None:
        if not self._up:
            self._up = True
            # Stays for a while between two commands; an orphaned one ends by itself.
            subprocess.run([*prefixes.fixed_layout(), 'wineserver', '-p600'], env=self._environment(), check=True)
            self.set_value(MARK_KEY, None)
        if self._settings:
            lines, self._settings = self._settings, []
            self._insist('registry import', lambda: self._import(lines))

    def _import(self, lines: list[str]) -> Optional[bool]:
        self._imports += 1
        mark = [f'[{registry.long_key(MARK_KEY)}]', registry.line_of(MARK, self._imports)]
        text = '\r\n'.join([registry.HEADER, *lines, *mark, ''])
        (self.root / 'import.reg').write_text(text, 'utf-16', newline='')
        _done(self._tool('reg', 'import', self._host_file('import.reg')))
        self._known.clear()
        return self._marked() or None

    def _export(self, key: str) -> Optional[registry.Tree]:
        """None when there is no such key."""
        text = self._export_text(key)
        return None if text is None else registry.parse(text, key)

    def _export_text(self, key: str) -> Optional[str]:
        if key in self._known:
            return self._known[key]
        text = self._export_now(key)
        if not self._running:
            self._known[key] = text
        return text

    def _export_now(self, key: str) -> Optional[str]:
        file = self.root / 'export.reg'

        def export() -> Optional[tuple[Optional[str]]]:
            file.unlink(missing_ok=True)
            result = self._tool('reg', 'export', key, self._host_file(file.name), '/y')
            if result.code == 1 and NO_SUCH_KEY in result.output:
                return (None,)
            _done(result)
            return (file.read_text('utf-16'),)
        return self._insist(f'export of {key}', export)[0]

    def _marked(self) -> bool:
        tree = self._export(MARK_KEY) or {}
        return tree.get('', {}).get(MARK) == ('dword', self._imports)

    def _insist(self, what: str, action: Callable[[], Optional[Answer]]) -> Answer:
        """Repeats a tool's work until it succeeds."""
        failures = []
        for _ in range(ATTEMPTS):
            try:
                if (answer := action()) is not None:
                    return answer
                failures.append('no effect')
            except (ToolError, OSError, UnicodeError, subprocess.TimeoutExpired) as error:
                failures.append(str(error))
            self.repeated.append(f'{what}: {failures[-1]}')
            print(f'[machine] {self.repeated[-1]}; once more', file=sys.stderr)
            time.sleep(0.5)
        raise ToolError(f'{what} failed {ATTEMPTS} times: {failures}')

    def _host_file(self, name: str) -> str:
        return f'Z:{self.root / name}'.replace('/', '\\')

    def _environment(self) -> dict[str, str]:
        return prefixes.environment(self.prefix, self.overrides)

    def _tool(self, *command: str, timeout: float = 300) -> Result:
        # Without its path, Wine would start it through a second program.
        program = f'C:\\windows\\system32\\{command[0]}.exe'
        return self._wine(program, *command[1:], timeout=timeout, debug='-all,err+all')

    def _wine(self, *command: object, cwd: Optional[pathlib.Path] = None, timeout: float = 120, capture: bool = True,
              errors: bool = True, debug: str = QUIET) -> Result:
        # A file takes the output: a pipe would stay open in the services that the first command starts.
        with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as said:
            done = subprocess.run([*prefixes.fixed_layout(), 'wine', *map(str, command)], timeout=timeout,
                                  cwd=cwd or self.prefix / 'drive_c', stdin=subprocess.DEVNULL,
                                  env={**self._environment(), 'WINEDEBUG': debug},
                                  stdout=output if capture else None,
                                  stderr=said if capture and not errors else subprocess.STDOUT if capture else None)
            text, aside = (_text(file) for file in (output, said))
        if NOT_BEGUN in text + aside and done.returncode != 0:
            self.repeated.append(f'{command}: {text}{aside}'.strip())
            return self._wine(*command, cwd=cwd, timeout=timeout, capture=capture, errors=errors, debug=debug)
        return Result(done.returncode & 0xFF, text)


def _text(file: IO[bytes]) -> str:
    file.seek(0)
    return file.read().decode('utf-8', 'replace').replace('\r\n', '\n')


def _done(result: Result) -> bool:
    if result.code != 0:
        raise ToolError(f'exit code {result.code}: {result.output.strip()}')
    return True


def main(arguments: list[str]) -> int:
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    if not arguments or arguments[0] != 'run':
        sys.exit('usage: python3 -m brevantlab.machine run PROGRAM ARGUMENT...')
    with Machine() as machine:
        if os.environ.get('BREVANT_BACKTRACE'):
            machine.set_value('HKLM\\Software\\Microsoft\\Windows NT\\CurrentVersion\\AeDebug', 'Debugger',
                              'winedbg --auto %ld %lld')
        return machine.run(*arguments[1:], cwd=pathlib.Path.cwd(), timeout=600, capture=False).code


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
