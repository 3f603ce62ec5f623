"""Compares a run with "BrevantCheck plan" on random updates and machines (tools/agree.sh).

    with AgreementMachine() as machine:
        disagreements = machine.try_scenario(random_scenario(17), restart=True)

One machine serves for many scenarios: its files and its registry are put back between them.
"""
import argparse
import collections
import copy
import dataclasses
import itertools
import json
import os
import pathlib
import re
import shutil
import sys
import time
from typing import Any, Iterable, Iterator, Optional
from xml.sax.saxutils import escape

from . import answers, prefix as prefixes, registry
from .expect import differences
from .layouts import SAMPLES, Files
from .machine import BUILD, RUN_ONCE, SESSION_MANAGER, SETTINGS, Machine, Result
from .random_update import INSTALLS, LINKED, Scenario, known_cases, random_scenario
from .standins import CANCEL, Question
from .try_update import Parser

PlannedChange = dict[str, Any]  # as "plan --format json" has it

# What a run may touch; C:\ itself without what is below it.
PLACES = ('C:\\ProgramData\\Kazmere\\', 'C:\\Trace\\', 'C:\\windows\\Temp\\', 'C:\\Other\\', 'C:\\Kazmere\\', 'D:\\',
          LINKED)
MANIFEST = 'C:\\update.json'
# What the programs and the stand-ins themselves write; and they, whose files are in use during the run.
PROMISES = ('folders', 'files', 'deletions', 'registry', 'update_information')  # what "verify" looks at
NOT_COMPARED = re.compile(r'.*\.(log|answer)|.*\\(brevant(check)?\.exe|brevant\.lock|(kzdbg64|libexpat|wtsapi32)\.dll)')
KEY = 'HKLM\\Software\\Kazmere'
BELOW_ROOT = ('hklm\\hkey_local_machine', 'hklm\\software/kazmere/slash')
TICK = 'frwkdeploytick'  # the time of the run
MOST_BYTES = 1 << 20  # of a file whose content is compared: the programs are larger
DOS_ATTRIBUTES = {'r': 1, 'h': 2, 's': 4}


@dataclasses.dataclass
class State:
    """What a run can change. Each file and folder is listed once, below the folder that really contains it."""
    files: Files  # by path in lower case
    folders: set[str]
    links: dict[str, str]  # folder links, and where they lead
    values: dict[tuple[str, str], str]  # by key and name in lower case
    moves: list[tuple[str, str]]
    commands: list[str]

    def real(self, path: str) -> str:
        """Where a path leads through the folder links."""
        names = _names(path)
        for count in range(1, len(names) + 1):
            if target := self.links.get('\\'.join(names[:count])):
                return self.real('\\'.join([target, *names[count:]]))
        return '\\'.join(names)


def files_of(machine: Machine, places: Iterable[str] = PLACES) -> tuple[Files, set[str], dict[str, str]]:
    """The files, folders and folder links that a run can change."""
    files: Files = {}
    folders: set[str] = set()
    links: dict[str, str] = {}
    for place in places:
        home = machine.host(place)
        if home.is_symlink():
            links[_plain(place)] = _windows_path(machine, home.resolve())
            continue
        for path in home.rglob('*') if home.is_dir() else ():
            name = (place + str(path.relative_to(home)).replace('/', '\\')).lower()
            if path.is_dir():
                folders.add(name)
                if path.is_symlink():
                    links[name] = _windows_path(machine, path.resolve())
            elif not NOT_COMPARED.fullmatch(name):
                size = path.stat().st_size
                files[name] = path.read_bytes() if size < MOST_BYTES else f'{size} bytes'.encode()
    return files | {f'c:\\{path.name}'.lower(): path.read_bytes() for path in root_files(machine)}, folders, links


def _windows_path(machine: Machine, path: pathlib.Path) -> str:
    """The Windows path of a folder on one of the drives, in lower case."""
    drive = next(name for name in ('c:\\', 'd:\\') if path.is_relative_to(machine.host(name)))
    return drive + str(path.relative_to(machine.host(drive))).replace('/', '\\').lower()


def root_files(machine: Machine) -> list[pathlib.Path]:
    """The files directly below the drive of Windows."""
    return [path for path in machine.host('C:\\').iterdir() if path.is_file()]


def state_of(machine: Machine, keys: Iterable[str] = (KEY,)) -> State:
    """The machine as it is, with the values of these keys and of those below."""
    values = {place: data for key in keys for place, data in _flat(key, machine.read_tree(key)).items()}
    return State(*files_of(machine), values, machine.pending_moves(),
                 sorted(map(str, machine.values(RUN_ONCE).values())))


def _flat(key: str, tree: registry.Tree) -> dict[tuple[str, str], str]:
    return {(_key_name(f'{key}\\{below}'), name.lower()): ';'.join(data) if isinstance(data, list) else str(data)
            for below, values in tree.items() for name, (_, data) in values.items()}


def _key_name(key: str) -> str:
    """A key's path as the registry reads it."""
    return '\\'.join(name for name in key.replace('HKEY_LOCAL_MACHINE', 'HKLM', 1).lower().split('\\') if name)


def changes_of(output: str) -> list[PlannedChange]:
    """The changes of a plan in JSON."""
    return [change for step in json.loads(output)['steps'] for change in step['changes']]


def expected_state(before: State, changes: list[PlannedChange]) -> tuple[State, list[PlannedChange]]:
    """The planned state of the machine after the run and before the restart, and the changes of contents: they name
    single values of a file, not its whole content."""
    after = copy.deepcopy(before)
    edits: list[PlannedChange] = []
    for change in changes:
        action, target = change['action'], after.real(change['target'])
        happens = change['outcome'] not in ('stay', 'fail')
        registered = change['atRestart'] and (action == 'move' or 'staged' in change)  # even if it will then fail
        if registered:
            after.moves.append((change.get('staged', change['source']), '!' + change['target']))
        if action in ('writeValue', 'deleteValue') and change['outcome'] != 'fail':
            place = _key_name(change['target']), change.get('name', '').lower()
            data = change.get('old' if change['outcome'] == 'stay' else 'new')
            if data is None:
                after.values.pop(place, None)
            else:
                after.values[place] = data
        elif not happens and not registered:
            continue
        elif action == 'createFolder':
            after.folders |= _with_parents(target)
        elif action in ('copy', 'stage', 'keep'):
            content = after.files.get(after.real(change['source']), b'no such file')
            after.files[after.real(change.get('staged', target))] = content
        elif action == 'delete' and change['atRestart']:
            after.moves.append((change['target'], ''))
        elif action == 'delete':
            after.files.pop(target, None)
            edits = [edit for edit in edits if after.real(edit['target']) != target]
        elif action == 'runOnce':
            after.commands.append(change['target'])
        elif action in ('writeIni', 'carryOver'):
            edits.append(change)
    after.commands.sort()
    return after, edits


def _names(path: str) -> list[str]:
    """The names of a path, as Windows reads it."""
    names: list[str] = []
    for name in path.lower().replace('/', '\\').removeprefix('\\\\?\\').split('\\'):
        if name == '..':
            names = names[:-1]
        elif plain := name.rstrip('. '):
            names.append(plain)
    return names


def _plain(path: str) -> str:
    return '\\'.join(_names(path))


def _with_parents(path: str) -> set[str]:
    """A folder and those above it."""
    names = _names(path)
    return {'\\'.join(names[:count]) for count in range(2, len(names) + 1)}


def disagreements(before: State, changes: list[PlannedChange], after: State, asked: bool) -> Iterator[str]:
    """The differences between a run and its plan."""
    expected, edits = expected_state(before, changes)
    edited = {after.real(edit['target']) for edit in edits}
    for path in edited:
        expected.files[path] = after.files.get(path, b'')
    for place, data in after.values.items():
        if place[1] == TICK and place in expected.values:
            expected.values[place] = data
    # Windows makes what it can of a path that it then refuses.
    made = {folder for change in changes if change['action'] == 'createFolder' and change['outcome'] == 'fail'
            for folder in _with_parents(before.real(change['target']))}
    # Windows refuses a key directly below the root; Wine creates it.
    values = {place: data for place, data in expected.values.items() if not place[0].startswith(BELOW_ROOT)}
    # Registered, or refused: nothing is deleted.
    vain = {(_plain(change['target']), '') for change in changes
            if change['action'] == 'delete' and change['atRestart'] and change['outcome'] == 'fail'}
    compared = {
        'file': (expected.files, after.files),
        'value': (_named(values), _named(after.values)),
        'folder': (_of_updates(expected.folders - made), _of_updates(after.folders - made)),
        'pending move': (_plain_moves(expected.moves, vain), _plain_moves(after.moves, vain)),
        'command': (expected.commands, after.commands),
        'question': ([any(change['action'] == 'ask' and change['outcome'] == 'new' for change in changes)], [asked])}
    for what, (planned, found) in compared.items():
        yield from (f'{what} {line}' for line in differences(planned, found))
    yield from _wrong_edits(edits, after)


def blind_to(before: State, changes: list[PlannedChange], after: State, asked: bool) -> collections.Counter[str]:
    """How many changes of each kind could be missing in the plan, and nothing would be said of it."""
    return collections.Counter(
        f'{change["action"]} ({change["outcome"]})' for number, change in enumerate(changes)
        if not any(disagreements(before, changes[:number] + changes[number + 1:], after, asked)))


def _plain_moves(moves: list[tuple[str, str]], without: set[tuple[str, str]]) -> dict[str, int]:
    """How often they name what, in any order: the plan lists a staged file where its copy was made."""
    plain = [(_plain(source), destination[:1] + _plain(destination[1:])) for source, destination in moves]
    return collections.Counter(' > '.join(move) for move in plain
                               if move not in without and not NOT_COMPARED.fullmatch(move[0]))


def _of_updates(folders: set[str]) -> set[str]:
    """Those that records can name; the trace makes some of its own."""
    return {folder for folder in folders if folder.startswith(('c:\\kazmere\\', 'd:\\', 'c:\\other\\',
                                                               'c:\\programdata\\kazmere\\', LINKED.lower()))}


def _named(values: dict[tuple[str, str], str]) -> dict[str, str]:
    return {' : '.join(place): data for place, data in values.items()}


def _wrong_edits(edits: list[PlannedChange], after: State) -> Iterator[str]:
    last = {(after.real(edit['target']), re.sub(' ', '', edit['name']).lower()): edit for edit in edits}
    for (path, name), edit in last.items():
        content, value = after.files.get(path), edit.get('new')
        if content is None:
            yield f'file {path}: not there to be changed'
        if content is None or value is None:
            continue  # a secret's; without a file there is nothing to look at
        text = _text(content)
        tag, key = name.rpartition('/')[2], name.rpartition(']')[2]
        pattern = f'^ *{re.escape(key)} *= *"?{re.escape(value.strip())}"? *$' if edit['action'] == 'writeIni' \
            else f'<{re.escape(tag)}[^>]*>{re.escape(escape(value))}<'
        if not re.search(pattern, text.replace('\r', ''), re.IGNORECASE | re.MULTILINE):
            yield f'file {path}: {edit["name"]} is not {value!r}'


def _text(content: bytes) -> str:
    if content[:2] == b'\xff\xfe':
        return content.decode('utf-16', 'replace')
    try:
        return content.decode('utf-8')
    except UnicodeDecodeError:
        return content.decode('cp1252', 'replace')  # the code page of the machine


def _at_restart(changes: list[PlannedChange]) -> dict[str, PlannedChange]:
    """The change of a restart that decides what is then at each path: one that fails leaves what another brings."""
    last: dict[str, PlannedChange] = {}
    for change in changes:
        path = _plain(change['target'])
        if change['atRestart'] and change['outcome'] != 'stay' and (change['outcome'] != 'fail' or path not in last):
            last[path] = change
    return last


def arrivals(before: State, changes: list[PlannedChange], after: State) -> Iterator[str]:
    """The differences between a restart and its plan."""
    for path, change in _at_restart(changes).items():
        action, outcome, place = change['action'], change['outcome'], after.real(path)
        # Windows deletes a link; Wine leaves it, and the folders above it.
        linked = any(f'{link}\\'.startswith(f'{path}\\') for link in after.links)
        if action == 'delete' and outcome == 'remove' and not linked \
                and (place in after.files or place in after.folders):
            yield f'after the restart {path}: not removed'
        if action in ('move', 'stage') and outcome in ('new', 'replace') and place not in after.files:
            yield f'after the restart {path}: did not arrive'
        if action in ('move', 'stage') and outcome == 'fail' \
                and after.files.get(place) != before.files.get(before.real(path)):
            yield f'after the restart {path}: arrived'


def wrong_verdicts(changes: list[PlannedChange], answers: list[dict[str, str]]) -> Iterator[str]:
    """The differences between a verification and the plan."""
    happens = {path: change['outcome'] in ('new', 'replace') for path, change in _at_restart(changes).items()}
    for answer in answers:
        path, verdict = _plain(answer['what']), answer['verdict']
        if verdict in ('MISSING', 'LEFT IN DOWNLOAD', 'STILL WAITING') and happens.get(path):
            yield f'verify: {verdict} {path}, planned to arrive'
        if verdict == 'ARRIVED' and happens.get(path) is False:
            yield f'verify: ARRIVED {path}, planned to fail'


class AgreementMachine(Machine):
    """A machine on which one scenario after the other is tried."""

    def __init__(self) -> None:
        super().__init__()
        self.add_drive('D')
        for install in INSTALLS:
            self.install_program(install, standins=[Question.LIBRARY])
        self.planned: list[PlannedChange] = []  # of the last scenario
        self.blind: Optional[collections.Counter[str]] = None  # to what of it the comparison is blind
        self.kept = self.root / 'programs'
        shutil.copytree(self.host(INSTALLS[0]), self.kept)

    def try_scenario(self, scenario: Scenario, restart: bool = False, blind: bool = False) -> list[str]:
        """Where plan and run, and with a restart what arrives, differ; `blind`: notes what the comparison is blind
        to."""
        self._set_up(scenario)
        install = scenario.install
        checker = install + 'BrevantCheck.exe'
        for _ in range(scenario.earlier_runs):
            self.run(install + 'Brevant.exe', '/DeployFramework')
        if scenario.restarted_before:
            self._restart()
        if scenario.earlier_runs:  # which may have moved the product, and deleted the programs
            self.set_value(SETTINGS, 'ProductPath', install.rstrip('\\'))
            self._put_programs(install)
        question = Question(self, install)
        self.host(question.log).unlink(missing_ok=True)
        before = state_of(self) if scenario.earlier_runs else self._fresh_state()
        code, output = self.run(checker, 'plan', install.rstrip('\\'), '--format', 'json')
        if code != 0:
            return [f'plan ends with {code}: {output}']
        changes = self.planned = changes_of(output)
        said = [*answers.plan_lines(output)]
        manifest = self.run(checker, 'manifest', install.rstrip('\\'), errors=False).output if restart else ''
        found = [f'plan changes {line}' for line in differences(before.files, files_of(self)[0])]
        said += self.run_traced(install + 'Brevant.exe', '/DeployFramework')[1]
        asked = bool(question.asked())
        after = state_of(self)
        found += disagreements(before, changes, after, asked)
        self.blind = blind_to(before, changes, after, asked) if blind else None
        if restart:
            found += self._try_restart(scenario, before, changes, manifest, said)
        return found + answers.differences(scenario.name, said, install)

    def _try_restart(self, scenario: Scenario, before: State, changes: list[PlannedChange], manifest: str,
                     said: list[str]) -> list[str]:
        said += answers.manifest_lines(manifest)
        promises = json.loads(manifest) if manifest.startswith('{') else {}
        verified = any(promises.get(part) for part in PROMISES)  # else "verify" has nothing to look at
        if verified:
            said += answers.verify_lines(self._verify(scenario, manifest).output)
        self._restart()
        found = list(arrivals(before, changes, state_of(self)))
        if not verified:
            return found
        result = self._verify(scenario, manifest)
        if not result.output.startswith('{'):
            return found + [f'verify ends with {result.code}: {result.output}']
        said += answers.verify_lines(result.output)
        return found + list(wrong_verdicts(changes, json.loads(result.output)['answers']))

    def _verify(self, scenario: Scenario, manifest: str) -> Result:
        self._put_programs(scenario.install)  # the update may delete them
        self.write(MANIFEST, manifest)
        return self.run(scenario.install + 'BrevantCheck.exe', 'verify', MANIFEST, '--format', 'json', '--installed',
                        scenario.install.rstrip('\\'), errors=False)

    def _restart(self) -> None:
        run_once = registry.long_key(RUN_ONCE)  # the new name is another test's
        self.import_reg(f'[-{run_once}]\n[{run_once}]')
        self.read_tree(RUN_ONCE)
        self.restart()

    # -- between two scenarios --

    def _set_up(self, scenario: Scenario) -> None:
        for place in ('C:\\Other', 'C:\\Kazmere', LINKED):
            if self.host(place).is_symlink():
                self.host(place).unlink()
            shutil.rmtree(self.host(place), ignore_errors=True)
        for place in (*PLACES, 'C:\\ProgramData\\Kazmere'):
            self._clear(place)
        for file in root_files(self):
            file.unlink()
        self._put_programs(scenario.install)
        self.make_dir('C:\\windows\\Temp')
        for path, content in scenario.files.items():
            if not path.endswith('QorPaFrwk.ini'):
                self._write(path, content)
        if scenario.encoding:
            self._write(scenario.install + 'QorPaFrwk.ini', scenario.instructions())
        for folder in scenario.folders:
            if not self.host(folder).exists():
                self.make_dir(folder)
        for path, letters in scenario.attributes.items():
            _set_attributes(self.host(path), letters)
        for number, link in enumerate(scenario.links):
            self._link(link, f'{link[0]}{LINKED[1:]}{number}')
        self._set_registry(scenario)
        Question(self, scenario.install).answer(CANCEL)

    def _put_programs(self, install: str) -> None:
        self.make_dir(install)
        for program in self.kept.iterdir():
            shutil.copy2(program, self.host(install))

    def _write(self, path: str, content: bytes) -> None:
        if not self.host(path).is_dir() and not any(parent.is_file() for parent in self.host(path).parents):
            self.write(path, content)

    def _link(self, link: str, target: str) -> None:
        if not self.host(link).parent.is_dir() or self.host(link).is_file() or self.host(link).is_symlink():
            return
        self.make_dir(link)
        self.make_dir(target.rpartition('\\')[0])
        self.link(link, target)

    def _clear(self, place: str) -> None:
        home = self.host(place)
        for entry in home.iterdir() if home.is_dir() else ():
            prefixes.remove_tree(entry) if entry.is_dir() and not entry.is_symlink() else entry.unlink()

    def _set_registry(self, scenario: Scenario) -> None:
        gone = (KEY, RUN_ONCE, *(key.upper() for key in BELOW_ROOT))
        lines = [f'[-{registry.long_key(key)}]' for key in gone] + [f'[{registry.long_key(RUN_ONCE)}]']
        lines += [f'[{registry.long_key(SESSION_MANAGER)}]', '"PendingFileRenameOperations"=-']
        self.import_reg('\n'.join(lines))
        self.import_reg((SAMPLES / 'installed' / 'registry.reg').read_text('utf-8'))
        self.set_value(SETTINGS, 'ProductPath', scenario.install.rstrip('\\'))
        self.set_value(SETTINGS, 'Language', scenario.language)
        for value in scenario.values:
            self.set_value(*value)

    def _fresh_state(self) -> State:
        """As it was set up, which takes no program of the machine."""
        home, lines, of_product = f'[{registry.long_key(KEY)}'.lower(), [], False
        for line in self._settings:
            of_product = line.lower().startswith(home) if line.startswith('[') else of_product
            lines += [line] if of_product else []
        return State(*files_of(self), _flat(KEY, registry.parse('\n'.join(lines), KEY)), [], [])


def _set_attributes(file: pathlib.Path, letters: str) -> None:
    if not file.is_file():
        return
    if set('hs') & set(letters):  # where Wine keeps it
        os.setxattr(file, 'user.DOSATTRIB', f'0x{sum(DOS_ATTRIBUTES[letter] for letter in letters):x}'.encode())
    if 'r' in letters:
        file.chmod(0o444)


def keep(scenario: Scenario, folder: pathlib.Path) -> None:
    """Writes a scenario to a folder of the host: its files and its other properties."""
    home = folder / re.sub(r'[^\w.-]+', '-', scenario.name)
    for path, content in {**scenario.files, scenario.install + 'QorPaFrwk.ini': scenario.instructions()}.items():
        file = home / path.replace(':', '').replace('\\', '/')
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)
    rest = {field.name: repr(getattr(scenario, field.name)) for field in dataclasses.fields(scenario)
            if field.name not in ('files', 'sections')}
    (home / 'scenario.json').write_text(json.dumps(rest, indent=2) + '\n', 'utf-8')


def parse(arguments: list[str]) -> argparse.Namespace:
    parser = Parser('tools/agree.sh', description='Compares "BrevantCheck plan" with what a run then does, on random '
                    'updates and machines. Exit code: 0 they agree, 1 not, 64 a wrong option.')
    parser.add_argument('--seeds', type=int, default=50, metavar='N', help='how many random updates (50)')
    parser.add_argument('--first', type=int, default=1, metavar='S', help='the number of the first (1)')
    parser.add_argument('--restart-every', type=int, default=10, metavar='N',
                        help='every N-th one is restarted and verified (10); 0: none')
    parser.add_argument('--cases', action='store_true', help='the known cases as well')
    parser.add_argument('--blind', action='store_true', help='say of those that are restarted which '
                        'planned changes nothing would miss')
    parser.add_argument('--keep', type=pathlib.Path, metavar='DIR', help='writes updates that disagree to this folder')
    options = parser.parse_args(arguments)
    if min(options.seeds, options.restart_every) < 0:
        parser.error('counts are not negative')
    return options


def main(arguments: list[str]) -> int:
    options = parse(arguments)
    scenarios = itertools.chain(known_cases() if options.cases else (),
                                map(random_scenario, range(options.first, options.first + options.seeds)))
    tried, failed, start = 0, 0, time.monotonic()
    with AgreementMachine() as machine:
        for scenario in scenarios:
            tried += 1
            restart = scenario.restart or options.restart_every and tried % options.restart_every == 0
            found = machine.try_scenario(scenario, bool(restart), bool(restart and options.blind))
            print(f'{scenario.name} ({scenario.identity()}): {len(machine.planned)} changes planned', flush=True)
            if machine.blind:
                print(f'  not missed: {", ".join(f"{count} {kind}" for kind, count in sorted(machine.blind.items()))}')
            if found:
                failed += 1
                print('\n  '.join([f'{scenario.name}: plan and run disagree', *found[:12]]), flush=True)
                if options.keep:
                    keep(scenario, options.keep)
    seconds = time.monotonic() - start
    print(f'{tried - failed} of {tried} agree, {seconds / max(tried, 1):.1f} s each')
    return int(failed > 0)


if __name__ == '__main__':
    BUILD.mkdir(exist_ok=True)
    sys.exit(main(sys.argv[1:]))
