"""Wine prefixes: the template, its clones, their processes and their end."""
import contextlib
import fcntl
import functools
import hashlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
from typing import Iterator, Mapping

ROOT = pathlib.Path(__file__).resolve().parents[2]
_SOURCE = ROOT / 'CMakeLists.txt'
# Unpacked from a release, the tools have a file with their version in place of the sources.
VERSION = (re.findall(r'project\(Brevant VERSION ([\d.]+)', _SOURCE.read_text('utf-8'))[0] if _SOURCE.is_file()
           else (ROOT / 'VERSION').read_text('utf-8').strip())
BUILD = ROOT / 'build'

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
# No program here asks these services, and each start of a machine waits for those that start by themselves.
UNUSED_SERVICES = 'Eventlog', 'NDIS', 'nsiproxy', 'PlugPlay', 'winebus', 'winehid', 'wineusb'
SERVICES = r'HKEY_LOCAL_MACHINE\System\CurrentControlSet\Services'
TEMPLATE_SETTINGS += ''.join(f'\n[{SERVICES}\\{name}]\n"Start"=dword:00000004\n' for name in UNUSED_SERVICES)


def environment(prefix: pathlib.Path, overrides: Mapping[str, str] = {}) -> dict[str, str]:
    """The environment of a prefix's programs; overrides: Wine's load order by DLL name."""
    # Nothing of the caller's home or screen: links and windows must not leave the machine.
    names = ('PATH', 'USER', 'LOGNAME', 'TMPDIR', 'BREVANT_GUIDES', 'BREVANT_HOST_DRIVE', 'BREVANT_PROOF_SEEDS',
             'BREVANT_WRITE_FINDINGS', 'GTEST_TOTAL_SHARDS', 'GTEST_SHARD_INDEX')
    kept = {name: os.environ[name] for name in names if name in os.environ}
    orders = {'winemenubuilder.exe': 'd', 'mscoree': 'd', 'mshtml': 'd', **overrides}
    return {**kept, 'HOME': str(prefix.parent), 'WINEPREFIX': str(prefix), 'WINEDEBUG': '-all', 'LC_ALL': 'C.UTF-8',
            'WINEDLLOVERRIDES': ';'.join(f'{name}={order}' for name, order in orders.items())}


@functools.cache
def fixed_layout() -> list[str]:
    """What goes before a command of Wine: an address space that is not random.

    Newer kernels put a program's heap anywhere in the gigabyte behind it. Once in some thousand starts it is where
    Wine needs its shared page, and the program ends before it begins.
    """
    command = ['setarch', '-R']
    tried = subprocess.run([*command, 'true'], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return [] if tried.returncode else command  # some containers do not allow it


def template() -> pathlib.Path:
    """The prefix that machines are cloned from. Made by the first caller, and again when Wine or its recipe changes."""
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


def _make_template(home: pathlib.Path) -> None:
    print('[machine] making the template of the throwaway machines', file=sys.stderr)
    fresh = home.with_suffix('.new')
    shutil.rmtree(fresh, ignore_errors=True)
    fresh.mkdir()
    prefix = fresh / 'prefix'
    settings = fresh / 'settings.reg'
    settings.write_text('Windows Registry Editor Version 5.00\n' + TEMPLATE_SETTINGS, 'utf-16')
    for command in (['wineboot', '-i'], ['wine', 'reg', 'import', f'Z:{settings}'.replace('/', '\\')],
                    ['wineserver', '-k'], ['wineserver', '-w']):
        subprocess.run([*fixed_layout(), *command], env=environment(prefix), stdin=subprocess.DEVNULL, timeout=300,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=command[0] == 'wine')
    for link in (entry for entry in (prefix / 'drive_c' / 'users').glob('*/*') if entry.is_symlink()):
        link.unlink()
        link.mkdir()
    fresh.rename(home)


def clone(source: pathlib.Path, target: pathlib.Path) -> None:
    """Copies a prefix that is not in use."""
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


def processes(prefix: pathlib.Path) -> Iterator[tuple[int, bytes]]:
    """The process ids and command lines of a prefix, found by their environment."""
    mark = f'WINEPREFIX={prefix}'.encode()
    for process in pathlib.Path('/proc').glob('[0-9]*'):
        with contextlib.suppress(OSError):
            if mark in (process / 'environ').read_bytes().split(b'\0'):
                yield int(process.name), (process / 'cmdline').read_bytes()


def power_off(prefix: pathlib.Path) -> None:
    """Ends the prefix's server and its processes without waiting for their shutdown."""
    if not prefix.exists():
        return
    state = os.stat(prefix)
    for _ in range(50):
        found = False
        for process, _ in processes(prefix):
            found = True
            with contextlib.suppress(OSError):
                os.kill(process, signal.SIGKILL)
        if not found:
            break
        time.sleep(0.01)
    shutil.rmtree(f'/tmp/.wine-{os.getuid()}/server-{state.st_dev:x}-{state.st_ino:x}', ignore_errors=True)


def remove_tree(folder: pathlib.Path) -> None:
    """Removes a folder as far as it goes: what a test has left behind, names and rights of any kind, ends no run."""
    def open_up(_function: object, path: str, _error: object) -> None:
        with contextlib.suppress(OSError):
            os.chmod(os.path.dirname(path), 0o700)
            os.chmod(path, 0o700, follow_symlinks=True)
            shutil.rmtree(path) if os.path.isdir(path) and not os.path.islink(path) else os.unlink(path)
    shutil.rmtree(os.fsencode(folder), onerror=open_up)
