"""Deploys updates on throwaway machines, then what "BrevantCheck undo" made of them, and compares: the same files,
folders and values as before, except for the listed ones.

    python3 -m brevantlab.undo --seeds 20            # updates without a mistake
    python3 -m brevantlab.undo --seeds 20 --wild     # random updates on random machines
    python3 -m brevantlab.undo --seeds 20 --kills 10 # first runs of update and undo end at ten places
"""
import argparse
import json
import os
import pathlib
import re
import shutil
import stat
import sys
import tempfile
from typing import Any, Iterable, Iterator

from . import answers
from .agree import KEY, PLACES, AgreementMachine, State, _of_updates, files_of
from .layouts import OUTSIDE, host_files, text_of
from .machine import PRODUCT, SETTINGS, Machine
from .random_update import INSTALLS, Scenario, random_scenario
from .standins import ENDED, FaultLibrary
from .valid_update import make_update

UNDO, AGENT = 'C:\\Undo\\', 'C:\\Agent\\'
OF_UPDATES = 'qorpafrwk.ini', 'updateinfo.ini', 'qorupdate.json'
ITSELF = '\0'  # in the place of a value's name: the key
DOWNLOAD = re.compile(r'\[component_list\] component\d+_downloadpath')


class UndoMachine(AgreementMachine):
    """A machine on which updates are deployed and undone, one after the other."""

    def __init__(self) -> None:
        super().__init__()
        self.install_program(PRODUCT)  # makes the updates
        self.library = FaultLibrary(self, AGENT)
        self.listed: set[str] = set()
        self.changed: list[str] = []  # by the update alone
        self.ended = 0  # runs that have been ended

    def lay_out(self, scenario: Scenario) -> None:
        """The product and the update of a scenario."""
        self._set_up(scenario)

    def prepare(self, update: pathlib.Path, installed: pathlib.Path) -> Scenario:
        """The product of a folder, with an update of another one on it."""
        scenario = Scenario('', INSTALLS[0])
        scenario.files = {}
        for path, content in host_files(installed).items():
            outside = path.startswith(OUTSIDE + '\\')
            scenario.files['C:' + path.removeprefix(OUTSIDE) if outside else scenario.install + path] = content
        scenario.files |= {scenario.install + path: content for path, content in host_files(update).items()}
        scenario.sections, scenario.encoding = {}, ''
        self._set_up(scenario)
        self.write(scenario.install + 'QorPaFrwk.ini', (update / 'QorPaFrwk.ini').read_bytes())
        self.import_reg(text_of(installed / 'registry.reg'))
        self.set_value(SETTINGS, 'ProductPath', scenario.install.rstrip('\\'))
        return scenario

    def undo(self, scenario: Scenario, strict: bool = False, ended_at: tuple[float, float] = (0, 0)) -> list[str]:
        """What differs in the end, and was not listed. With `ended_at` a first run of the update, and one of the undo,
        ends after that part of its trace lines."""
        install, checker = scenario.install, scenario.install + 'BrevantCheck.exe'
        before = whole_state(self)
        shutil.rmtree(self.host(UNDO), ignore_errors=True)
        code, output = self.run(checker, 'undo', install.rstrip('\\'), '--output', UNDO.rstrip('\\'))
        if code != 0:
            return [] if 'changes ProductPath' in output else [f'undo ends with {code}: {output}']
        said = [output, *(text_of(self.host(UNDO + name)) for name in ('QorPaFrwk.ini', 'UpdateInfo.ini'))]
        # Under Wine 10 a copy is not hidden, so it is not as before.
        lines = [line for line in '\n'.join(said).splitlines() if 'it is not as before' not in line]
        found = answers.differences(scenario.name and f'undo of {scenario.name}', lines, install)
        if strict:
            code, output = self.run(checker, 'lint', UNDO.rstrip('\\'), '--installed', install.rstrip('\\'),
                                    '--strict')
            found += [output] if code != 0 else []
        manifest = json.loads(next(self.host(UNDO).glob('Component/*/Share/Setting/QorUpdate.json')).read_text())
        self.listed = {part['what'].replace('{InstalledDir}', install, 1).lower() for part in manifest['not_covered']
                       if part['kind'] == 'not_restored'}
        self.deploy(install, ended_at[0])
        self.changed = list(unlisted(before, whole_state(self), install.lower(), set()))
        self.meanwhile(install)
        shutil.copytree(self.host(UNDO), self.host(install), dirs_exist_ok=True)
        self.deploy(install, ended_at[1])
        return found + list(unlisted(before, whole_state(self), install.lower(), self.listed))

    def meanwhile(self, install: str) -> None:
        """What the user does between the update and its undo: nothing."""

    def deploy(self, install: str, ended_at: float = 0) -> None:
        """Deploys what is on the machine, perhaps in a second run, and restarts it."""
        if ended_at:
            planned = self.run(install + 'BrevantCheck.exe', 'plan', install.rstrip('\\'), '--trace').output
            self.library.end_at(1 + int(planned.count('\n') * ended_at))
            self.ended += self.run(AGENT + 'Brevant.exe', '/DeployFramework').code == ENDED
        self.library.end_at(0)
        self.run(AGENT + 'Brevant.exe', '/DeployFramework')
        self._restart()
        self._put_programs(install)  # which an update may delete


def spread(kills: int) -> list[tuple[float, float]]:
    """The parts of their trace lines after which runs of update and undo end, for a number of kills in all."""
    return [((2 * pair + 0.5) / kills, (2 * pair + 1.5) / kills) for pair in range(kills // 2)] or [(0, 0)]


def whole_state(machine: Machine, keys: Iterable[str] = (KEY,), places: Iterable[str] = PLACES) -> State:
    """The machine with the attributes of its files, its registry keys, and the types of the values."""
    state = State(*files_of(machine, places), {}, [], [])
    for name in list(state.files):
        file = machine.host(state.real(name))
        found = 0 if file.stat().st_mode & stat.S_IWUSR else 1
        if 'user.DOSATTRIB' in os.listxattr(file):  # where Wine keeps the others
            found |= int(os.getxattr(file, 'user.DOSATTRIB'), 16) & 6
        state.files |= {f'{name}|attributes': str(found).encode()} if found else {}
    for key in keys:
        for below, values in machine.read_tree(key).items():
            name = '\\'.join(filter(None, f'{key}\\{below}'.lower().split('\\')))
            state.values[name, ITSELF] = 'key'
            state.values |= {(name, value.lower()): ' '.join(map(str, data)) for value, data in values.items()}
    return state


def unlisted(before: State, after: State, install: str, listed: set[str]) -> Iterator[str]:
    """The differences that a list does not have."""
    components = f'{install}component\\', before.real(f'{install}component') + '\\'
    compared: dict[str, list[dict[str, Any]]] = {
        'file': [before.files, after.files],
        'folder': [dict.fromkeys(folder for folder in state.folders
                                 if folder.startswith(install) or _of_updates({folder})) for state in (before, after)],
        'value': [_named(before), _named(after)],
        'key': [_keys(before, install), _keys(after, install)]}
    for what, (left, right) in compared.items():
        for name in sorted(left.keys() | right.keys()):
            # Windows makes no folder whose name has a colon.
            if (name in left, left.get(name)) == (name in right, right.get(name)) or DOWNLOAD.search(name) \
                    or ':' in name[2:] and what == 'folder':
                continue
            place = name.partition('|')[0]
            own = f'{place}\\'.startswith(components) or place.removeprefix(install) in OF_UPDATES
            if not own and place not in listed and f'{place}\\' not in listed:
                yield f'{what} {name}: {str(left.get(name))[:200]} -> {str(right.get(name))[:200]}'


def _named(state: State) -> dict[str, str]:
    return {key.replace('hklm', 'hkey_local_machine', 1) + ('' if name == ITSELF else f' : {name or "(unnamed)"}'): data
            for (key, name), data in state.values.items()}


def _keys(state: State, install: str) -> dict[str, str]:
    """The update information by section and key."""
    content = state.files.get(f'{install}updateinfo.ini', b'')
    text = content.decode('utf-16' if content[:2] == b'\xff\xfe' else 'cp1252', 'replace')
    keys: dict[str, str] = {}
    section = ''
    for line in text.lower().splitlines():
        section = line.replace(' ', '') if line.strip().startswith('[') else section
        name, equals, value = line.partition('=')
        if equals and section and not line.lstrip().startswith(';'):
            keys.setdefault(f'{install}updateinfo.ini {section} {name.strip()}', value.strip())
    return keys


def main(arguments: list[str]) -> int:
    parser = argparse.ArgumentParser(description='Deploys updates and undoes them.')
    parser.add_argument('--seeds', type=int, default=20)
    parser.add_argument('--first', type=int, default=1)
    parser.add_argument('--wild', action='store_true', help='random updates on random machines, with their mistakes')
    parser.add_argument('--kills', type=int, default=0, metavar='N',
                        help='end first runs of update and undo at N places, two in each trial (0)')
    options = parser.parse_args(arguments)
    whole = 0
    trials = [(seed, ended_at) for seed in range(options.first, options.first + options.seeds)
              for ended_at in spread(options.kills)]
    with UndoMachine() as machine, tempfile.TemporaryDirectory() as folder:
        for seed, ended_at in trials:
            home = pathlib.Path(folder) / str(seed)
            if options.wild:
                scenario = random_scenario(seed)
                machine.lay_out(scenario)
            else:
                shutil.rmtree(home, ignore_errors=True)
                make_update(home, seed, machine)
                scenario = machine.prepare(home / 'update', home / 'installed')
            found = machine.undo(scenario, not options.wild, ended_at)
            whole += not found
            told = f'{len(machine.changed)} changes, {len(machine.listed)} listed, as before'
            print(f'seed {seed}, ended at {ended_at}: {"; ".join(found) or told}', flush=True)
        print(f'{whole} of {len(trials)} as before, {machine.ended} runs ended')
    return int(whole < len(trials))


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
