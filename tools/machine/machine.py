#!/usr/bin/env python3
"""A throwaway Windows machine: a Wine prefix of its own, cloned from a template and gone after use.

    with Machine() as machine:
        machine.install_program(PRODUCT)
        machine.set_value(SETTINGS, 'ProductPath', PRODUCT)
        result = machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework')
        moves = machine.pending_moves()
        machine.restart()

The machine is up from its first command to its end: only restart() carries out pending moves and run-once
commands. Keys are written as 'HKLM\\...', paths as 'C:\\...'. As a command, `machine.py run PROGRAM ARGUMENT...`
runs one program on a machine of its own; BREVANT_BACKTRACE=1 then shows where a crash happened.
"""
import collections
import contextlib
import fcntl
import hashlib
import itertools
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / 'build'
PRODUCT = 'C:\\Program Files\\Kazmere\\KZVLT\\'
SETTINGS = 'HKLM\\Software\\Kazmere\\KZVLT'
SESSIONS = ('InteractiveSession', 'ServiceSession', 'ProtectedSession')
TRACE_FOLDER = 'C:\\Trace\\'

# Never written to in place, so that a clone may share them with the template.
SHARED_FILES = {'.dll', '.exe', '.sys', '.drv', '.ocx', '.cpl', '.acm', '.ax', '.tlb', '.nls', '.manifest'}

TEMPLATE_SETTINGS = r'''
[HKEY_CURRENT_USER\Software\Wine]
"Version"="win10"

[HKEY_CURRENT_USER\Software\Wine\DllOverrides]
"winemenubuilder.exe"=""
"mscoree"=""
"mshtml"=""

; The usual debugger ends a crashed program with exit code 0. Without one its exit code is the exception's.
[HKEY_LOCAL_MACHINE\Software\Microsoft\Windows NT\CurrentVersion\AeDebug]
"Auto"="1"
"Debugger"="C:\\none.exe %ld %lld"

; Every Windows has this class of devices.
[HKEY_LOCAL_MACHINE\System\CurrentControlSet\Control\Class\{4D36E96F-E325-11CE-BFC1-08002BE10318}]
"Class"="Mouse"
'''

# 13/11/2026 19:40:05.123 0a1c:0b20 @@@ <Brevant> message - Source.cpp(430)
TRACE_LINE = re.compile(r'\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3} [0-9a-f]{4}:[0-9a-f]{4} '
                        r'(\.w\.|@@@|!!!) <Brevant> (.*) - [A-Za-z0-9_]+\.cpp\(\d+\)')

Result = collections.namedtuple('Result', 'code output')  # the exit code's low byte: -1 is 255


class Machine:
    def __init__(self):
        template = _template()
        (BUILD / 'machines').mkdir(exist_ok=True)
        self.root = pathlib.Path(tempfile.mkdtemp(prefix=f'{os.getpid()}-', dir=BUILD / 'machines'))
        self.prefix = self.root / 'prefix'
        self.overrides = {}  # DLL name -> Wine's load order, "n,b" for a stand-in beside the program
        self.user = _environment(self.prefix, {}).get('USER', 'root')
        self._drives = []
        self._settings = []
        self._up = False
        _clone(template, self.prefix)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends every process of the machine at once and removes it."""
        _power_off(self.prefix)
        for folder in [self.root, *self._drives]:
            shutil.rmtree(folder, ignore_errors=True)

    # -- programs --

    def run(self, *command, cwd=None, timeout=120, capture=True):
        """Runs a program (Windows or host path first) and waits for it. Returns its exit code and output."""
        self._boot()
        return self._wine(*command, cwd=cwd, timeout=timeout, capture=capture)

    def restart(self, timeout=120):
        """Restarts: pending moves first, then each run-once command in turn, all of them done on return."""
        self._boot()
        self._wine('wineboot', '-r', timeout=timeout)

    def wait_for_restart(self, timeout=120):
        """Waits until the restart that a program has asked the system for is over."""
        end = time.monotonic() + timeout
        while any(b'wineboot' in command for _, command in _processes(self.prefix)):
            if time.monotonic() > end:
                raise TimeoutError('the machine does not come back')
            time.sleep(0.05)

    def install_program(self, folder=PRODUCT, standins=()):
        """Copies this build's program and libraries into a folder, with stand-ins by name. A stand-in for a library of
        Windows also takes its place in the system folder, the only one where the program looks for such libraries."""
        binaries = pathlib.Path(os.environ.get('BREVANT_BIN', BUILD / 'release' / 'bin'))
        self.make_dir(folder)
        for file in binaries.iterdir():
            if file.is_file():
                shutil.copy2(file, self.host(folder))
        for name in standins:
            standin = pathlib.Path(os.environ.get('BREVANT_STANDINS', binaries / 'standins')) / f'{name}.dll'
            shutil.copy2(standin, self.host(folder))
            system = self.host(f'C:\\windows\\system32\\{name}.dll')
            if system.exists():
                system.unlink()  # shared with the template
                shutil.copy2(standin, system)
            self.overrides[name] = 'n,b'

    # -- files --

    def host(self, path):
        """The host's path of a Windows path; existing parts are found without regard to case."""
        drive, *parts = [part for part in path.split('\\') if part]
        found = (self.prefix / 'dosdevices' / drive.lower()).resolve()
        for part in parts:
            exact = found / part
            if not exact.exists() and found.is_dir():
                exact = next((entry for entry in found.iterdir() if entry.name.lower() == part.lower()), exact)
            found = exact
        return found

    def make_dir(self, path):
        self.host(path).mkdir(parents=True, exist_ok=True)

    def write(self, path, content, encoding='utf-8'):
        """Writes a file (bytes, or text with Windows line ends) and the folders above it."""
        target = self.host(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content if isinstance(content, bytes) else content.replace('\n', '\r\n').encode(encoding))

    def read(self, path, encoding='utf-8'):
        """A file's text with plain line ends; None when there is no such file."""
        file = self.host(path)
        return file.read_bytes().decode(encoding).replace('\r\n', '\n') if file.is_file() else None

    def add_drive(self, letter):
        """Adds a drive on another volume of the host where there is one, so that renames to it fail as they should."""
        other = '/dev/shm' if os.access('/dev/shm', os.W_OK) else None
        folder = pathlib.Path(tempfile.mkdtemp(prefix='brevant-drive-', dir=other))
        self._drives.append(folder)
        (self.prefix / 'dosdevices' / f'{letter[0].lower()}:').symlink_to(folder)

    # -- trace --

    def enable_trace(self, level=0x111, folder=TRACE_FOLDER):
        # All ten values: the program stops reading at the first that is missing.
        values = {'Enable': 1, 'Level': level, 'LogProcess': 0, 'LogUnitType': 0, 'LogFolder': folder,
                  'LogPrefix': 'KZVLT', 'LogFile': '', 'LogExtension': 'log', 'Robust': 0, 'Debugger': 0}
        for session in SESSIONS:
            for name, data in values.items():
                self.set_value(f'{SETTINGS}\\1\\DebugLog\\{session}', name, data)

    def trace_lines(self, folder=TRACE_FOLDER):
        """The lines of every trace file in the folder and those below."""
        files = sorted(self.host(folder).rglob('*.log')) if self.host(folder).is_dir() else []
        return [line for file in files for line in file.read_bytes().decode('utf-8-sig').splitlines()]

    def messages(self, folder=TRACE_FOLDER):
        """What was traced, as 'TAG message' (TAG as in the file); a line of another form is an error."""
        return [' '.join(TRACE_LINE.fullmatch(line).groups()) for line in self.trace_lines(folder)]

    def run_traced(self, *command):
        """Runs a program and returns its exit code and messages(), those of earlier runs left out."""
        for file in self.host(TRACE_FOLDER).rglob('*.log'):
            file.unlink()
        code = self.run(*command).code
        return code, self.messages()

    # -- registry --

    def set_value(self, key, name, data, kind=None):
        """Sets a value before the next command: text, number, list of texts or bytes; kind 'expand' for REG_EXPAND_SZ.
        No name: makes the key."""
        self._settings.append(f'[{_long_key(key)}]')
        if name is not None:
            self._settings.append(f'"{_escape(name)}"={_format(data, kind)}')

    def import_reg(self, text):
        """Takes over the lines of a .reg file before the next command."""
        self._settings += text.splitlines()

    def read_tree(self, key):
        """{subkey ('' for the key itself): {value name: (kind, data)}}; empty when there is no such key."""
        self._boot()
        file = self.root / 'export.reg'
        result = self._wine('reg', 'export', key, f'Z:{file}'.replace('/', '\\'), '/y')
        return _parse(file.read_text('utf-16'), _long_key(key)) if result.code == 0 else {}

    def values(self, key):
        """{value name: data} of one key."""
        return {name: data for name, (_, data) in self.read_tree(key).get('', {}).items()}

    def pending_moves(self):
        """The (source, destination) pairs that the next restart carries out. No destination: a deletion; one that begins
        with '!' may replace a file."""
        manager = self.values('HKLM\\System\\CurrentControlSet\\Control\\Session Manager')
        names = [name.replace('\\??\\', '') for name in manager.get('PendingFileRenameOperations', [])]
        return list(itertools.zip_longest(names[0::2], names[1::2], fillvalue=''))

    # -- inside --

    def _boot(self):
        if not self._up:
            self._up = True
            # Stays for a while between two commands; an orphaned one ends by itself.
            subprocess.run(['wineserver', '-p120'], env=self._environment(), check=True)
        if self._settings:
            text = '\r\n'.join(['Windows Registry Editor Version 5.00', *self._settings, ''])
            self._settings = []
            (self.root / 'import.reg').write_text(text, 'utf-16', newline='')
            result = self._wine('reg', 'import', f'Z:{self.root}/import.reg'.replace('/', '\\'))
            if result.code != 0:
                raise RuntimeError(f'registry import failed: {result.output}')

    def _environment(self):
        return _environment(self.prefix, self.overrides)

    def _wine(self, *command, cwd=None, timeout=120, capture=True):
        # A file takes the output: a pipe would stay open in the services that the first command starts.
        with tempfile.TemporaryFile() as output:
            sink = {'stdout': output, 'stderr': subprocess.STDOUT} if capture else {}
            done = subprocess.run(['wine', *map(str, command)], cwd=cwd or self.prefix / 'drive_c', timeout=timeout,
                                  env=self._environment(), stdin=subprocess.DEVNULL, **sink)
            output.seek(0)
            return Result(done.returncode & 0xFF, output.read().decode('utf-8', 'replace').replace('\r\n', '\n'))


# -- Wine prefixes --

def _environment(prefix, overrides):
    # Nothing of the caller's home or screen: links and windows must not leave the machine.
    kept = {name: os.environ[name] for name in ('PATH', 'USER', 'LOGNAME', 'TMPDIR') if name in os.environ}
    orders = {'winemenubuilder.exe': 'd', 'mscoree': 'd', 'mshtml': 'd', **overrides}
    return {**kept, 'HOME': str(prefix.parent), 'WINEPREFIX': str(prefix), 'WINEDEBUG': '-all', 'LC_ALL': 'C.UTF-8',
            'WINEDLLOVERRIDES': ';'.join(f'{name}={order}' for name, order in orders.items())}


def _template():
    """The prefix that machines are cloned from; made by the first caller, anew when Wine or its recipe changes."""
    wine = os.stat(os.path.realpath(shutil.which('wineserver') or sys.exit('Wine is missing: run tools/setup.sh')))
    name = hashlib.sha256(f'{TEMPLATE_SETTINGS}{wine.st_size}{wine.st_mtime_ns}'.encode()).hexdigest()[:12]
    home = BUILD / f'machine-template-{name}'
    if home.is_dir():
        return home / 'prefix'
    BUILD.mkdir(exist_ok=True)
    with open(BUILD / 'machine-template.lock', 'w') as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not home.is_dir():
            _make_template(home)
    return home / 'prefix'


def _make_template(home):
    print('[machine] making the template of the throwaway machines', file=sys.stderr)
    fresh = home.with_suffix('.new')
    shutil.rmtree(fresh, ignore_errors=True)
    fresh.mkdir()
    prefix = fresh / 'prefix'
    settings = fresh / 'settings.reg'
    settings.write_text('Windows Registry Editor Version 5.00\n' + TEMPLATE_SETTINGS, 'utf-16')
    for command in (['wineboot', '-i'], ['wine', 'reg', 'import', f'Z:{settings}'.replace('/', '\\')],
                    ['wineserver', '-k'], ['wineserver', '-w']):
        subprocess.run(command, env=_environment(prefix, {}), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, timeout=300, check=command[0] == 'wine')
    for link in (entry for entry in (prefix / 'drive_c' / 'users').glob('*/*') if entry.is_symlink()):
        link.unlink()
        link.mkdir()
    fresh.rename(home)


def _clone(source, target):
    for folder, names, files in os.walk(source):
        copy = target / os.path.relpath(folder, source)
        copy.mkdir()
        for name in files + names:
            entry = os.path.join(folder, name)
            if os.path.islink(entry):
                os.symlink(os.readlink(entry), copy / name)
            elif name in files and os.path.splitext(name)[1].lower() in SHARED_FILES:
                os.link(entry, copy / name)
            elif name in files:
                shutil.copy2(entry, copy / name)


def _processes(prefix):
    """The process ids and command lines of a prefix, found by their environment."""
    mark = f'WINEPREFIX={prefix}'.encode()
    for process in pathlib.Path('/proc').glob('[0-9]*'):
        with contextlib.suppress(OSError):
            if mark in (process / 'environ').read_bytes().split(b'\0'):
                yield int(process.name), (process / 'cmdline').read_bytes()


def _power_off(prefix):
    """Ends the prefix's server and its processes without waiting for their shutdown."""
    state = os.stat(prefix)
    for _ in range(50):
        found = False
        for process, _ in _processes(prefix):
            found = True
            with contextlib.suppress(OSError):
                os.kill(process, signal.SIGKILL)
        if not found:
            break
        time.sleep(0.01)
    shutil.rmtree(f'/tmp/.wine-{os.getuid()}/server-{state.st_dev:x}-{state.st_ino:x}', ignore_errors=True)


# -- .reg files --

ROOTS = {'HKLM': 'HKEY_LOCAL_MACHINE', 'HKCU': 'HKEY_CURRENT_USER', 'HKCR': 'HKEY_CLASSES_ROOT', 'HKU': 'HKEY_USERS'}
KINDS = {'': 'binary', '(2)': 'expand', '(7)': 'multi', '(b)': 'qword', '(4)': 'dword', '(0)': 'none'}


def _long_key(key):
    root, _, rest = key.partition('\\')
    return f'{ROOTS.get(root, root)}\\{rest}'


def _escape(text):
    return text.replace('\\', '\\\\').replace('"', '\\"')


def _format(data, kind):
    if isinstance(data, int):
        return f'dword:{data & 0xFFFFFFFF:08x}'
    if isinstance(data, str) and kind != 'expand':
        return f'"{_escape(data)}"'
    if isinstance(data, (list, tuple)):
        mark, data = '(7)', '\0'.join([*data, '', ''] if data else ['', '']).encode('utf-16-le')
    elif isinstance(data, str):
        mark, data = '(2)', f'{data}\0'.encode('utf-16-le')
    else:
        mark = ''
    return f'hex{mark}:' + ','.join(f'{byte:02x}' for byte in data)


def _value(text):
    if text.startswith('"'):
        return 'sz', re.sub(r'\\(.)', r'\1', text[1:-1])
    if text.startswith('dword:'):
        return 'dword', int(text[6:], 16)
    mark, _, digits = text.removeprefix('hex').partition(':')
    data = bytes.fromhex(digits.replace(',', ' '))
    kind = KINDS.get(mark, mark)
    if kind == 'expand':
        data = data.decode('utf-16-le').rstrip('\0')
    elif kind == 'multi':
        # Each text ends in a zero and so does the list; texts inside it may be empty.
        data = data.decode('utf-16-le').removesuffix('\0').split('\0')[:-1]
    elif kind == 'qword':
        data = int.from_bytes(data, 'little')
    return kind, data


def _parse(text, key):
    tree, values = {}, {}
    for line in re.sub(r'\\\n *', '', text.replace('\r\n', '\n')).split('\n'):
        if line.startswith('['):
            values = tree.setdefault(line[1 + len(key):-1].lstrip('\\'), {})
        elif match := re.match(r'(?:"((?:[^"\\]|\\.)*)"|@)=(.*)', line):
            values[re.sub(r'\\(.)', r'\1', match[1] or '')] = _value(match[2])
    return tree


def main(arguments):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    if not arguments or arguments[0] != 'run':
        sys.exit('usage: machine.py run PROGRAM ARGUMENT...')
    with Machine() as machine:
        if os.environ.get('BREVANT_BACKTRACE'):
            machine.set_value('HKLM\\Software\\Microsoft\\Windows NT\\CurrentVersion\\AeDebug', 'Debugger',
                              'winedbg --auto %ld %lld')
        return machine.run(*arguments[1:], cwd=os.getcwd(), timeout=600, capture=False).code


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
