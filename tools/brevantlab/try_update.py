"""Tries any update on a throwaway machine: checks it, deploys it, answers, restarts and compares the result.

Exit code: 0 complete, 1 not, 2 refused by the checker, 3 the agent failed, 4 the checker failed, 64 a
wrong option.
"""
import argparse
import datetime
import json
import os
import pathlib
import shutil
import stat
import struct
import subprocess
import sys
import tempfile
import threading
import time
from typing import Any, Callable, NamedTuple, NoReturn, Optional

from . import prefix, report
from .doubts import WORDS, Doubt, allowance, doubts_of, packages_of, read_intended
from .layouts import host_files, install_folder, instructions, languages_of, planted_files, write_sample
from .links import ShellLink, read_link
from .machine import PRODUCT, RUN_ONCE, SETTINGS, TRACE_FOLDER, Machine, Result
from .outcome import NO_END, NO_PLAN, UNINSTALL, Check, Move, Outcome, State
from .showing import progress, show, show_table
from .standins import CANCEL, ENDED, OK, FaultLibrary, Question

ANSWERS = {'ok': OK, 'later': CANCEL, 'none': None}
ROOMS = ('files', 'registry', 'agent', 'shortcuts', 'settings', 'trace', 'checker')
REFUSED = 2
CHECKER_FAILED = 4
USAGE = 64
KEPT = ('ARRIVED', 'DELETED', 'VALUE RIGHT', 'NOT COVERED')  # verdicts of a verification
CLASSES = 'HKLM\\Software\\Classes\\CLSID\\'
# What the change of name writes beside the product's own key.
NAMED_KEYS = (UNINSTALL, CLASSES + '{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}',
              CLASSES + '{E2905B7D-8C13-4A6F-9D42-5F7B1E0C38A6}', CLASSES + '{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}')
# What the trial itself leaves on the machine.
COMPONENTS = PRODUCT + 'Component\\'
MANIFEST = 'C:\\manifest.json'
SETTING = '\\share\\setting\\'
OURS = {PRODUCT + 'wtsapi32.log', PRODUCT + 'wtsapi32.answer', MANIFEST}


class Options(NamedTuple):
    update: pathlib.Path
    installed: pathlib.Path
    language: str = ''  # that of the installed product
    answer: str = 'ok'
    force: bool = False
    kill_at: int = 0
    planted: frozenset[str] = frozenset()
    allowed: tuple[str, ...] = ()  # what is declared to be intended besides what the update says
    keep: Optional[pathlib.Path] = None  # takes the trace files and the registry


class Refused(Exception):
    """The checker found errors; its findings."""


class CheckerFailed(Exception):
    """The checker came to no verdict: why, and what it said."""


class Trial:
    """One trial, from the installed product to the machine after the restart."""
    def __init__(self, options: Options, progress: Callable[[str], None]) -> None:
        self.options, self.progress = options, progress
        records = [record.split('!') for key, record in instructions(options.update).get('QOR_REGISTRY_PATCH', [])
                   if key in ('add', 'add_if_non') and '{' not in record.partition('!')[0]]
        self.records = [(f'HKLM\\{fields[0]}', '' if fields[1] == '(Default)' else fields[1])
                        for fields in records if len(fields) > 1]
        self.packaged = packaged_files(options.update)

    def run(self) -> Outcome:
        start = time.monotonic()
        with Machine() as self.machine:
            machine = self.machine
            self.progress('installed product')
            language = install_folder(machine, self.options.installed, self.options.language)
            machine.install_program(PRODUCT, standins=[Question.LIBRARY])
            before = self.state()
            lint = self.lint(language)
            manifest = self.manifest()
            for path, content in self.packaged.items():
                machine.write(path, content)
            plan, planned = self.plan()
            ended = self.end_first_run()
            self.question = Question(machine, PRODUCT)
            agent, waiting, moves, commands = self.deploy()
            asked = self.question.asked()
            code = self.restart(agent)
            self.progress('after the restart')
            after = self.state()
            if self.options.keep:
                self.keep(self.options.keep, after)
            return Outcome(
                update=str(self.options.update), language=language, lint=lint, before=before, records=self.records,
                packaged={path: content for path, content in self.packaged.items() if path.startswith(COMPONENTS)},
                waiting=waiting, moves=moves, commands=commands, question=asked, code=code,
                kill_at=self.options.kill_at, ended=ended, after=after, left=self.pending(),
                lines=self.trace_lines(), verify=self.verify(manifest), folders=self.folders(),
                seconds=time.monotonic() - start, answer=self.options.answer, planted=self.options.planted,
                plan=plan, planned=planned, versions=self.versions(before, after), doubts=self.doubts(planned),
                intended=read_intended(self.options.update, self.options.allowed))

    # -- the checker --

    def check(self, *arguments: str, errors: bool = True) -> Result:
        """Runs BrevantCheck. Without errors: a call that fails and prints nothing is repeated with them."""
        try:
            result = self.machine.run(PRODUCT + 'BrevantCheck.exe', *arguments, timeout=300, errors=errors)
        except subprocess.TimeoutExpired:
            return Result(NO_END, '')
        repeated = result.code != 0 and not errors and not result.output
        return Result(result.code, self.check(*arguments).output) if repeated else result

    def lint(self, language: str) -> Check:
        self.progress('lint')
        folder = host_path(self.options.update)
        result = self.check('lint', folder, '--installed', PRODUCT.rstrip('\\'), '--language', language)
        lines = [line.replace(folder + '\\', '') for line in result.output.splitlines() if line]
        check = Check('lint', result.code, lines)
        if check.failure() and not self.options.force:
            raise CheckerFailed('\n'.join([*lines, check.failure()]))
        if result.code != 0 and not self.options.force:
            raise Refused('\n'.join(lines))
        return check

    def manifest(self) -> Check:
        """Has the update bring its manifest. One without settings would get a folder that it lacks: its manifest is
        written to the machine instead."""
        self.operands: list[str] = []  # of the verification
        settings = [path.casefold() for path in self.packaged if SETTING in path.casefold()]
        if any(path.endswith(SETTING + 'qorupdate.json') for path in settings):
            return Check('manifest', 0, [])
        with tempfile.TemporaryDirectory(prefix='brevant-update-') as folder:
            copy = shutil.copytree(self.options.update, pathlib.Path(folder) / 'update')
            options = ['--into'] if settings else []
            result = self.check('manifest', host_path(copy), *options, errors=False)
            if result.code != 0:
                lines = result.output.splitlines()
                return Check('manifest', result.code, [f'NO MANIFEST: {line}' for line in lines])
            self.packaged = packaged_files(copy)
        if not settings:
            self.operands = [MANIFEST]
            self.machine.write(MANIFEST, result.output)
        return Check('manifest', 0, [])

    def verify(self, manifest: Check) -> Check:
        if manifest.code != 0:
            return manifest
        self.progress('verification')
        folder = PRODUCT.rstrip('\\')
        result = self.check('verify', *self.operands, '--installed', folder, '--format', 'json', errors=False)
        return Check('verify', result.code, broken_promises(result.output))

    def plan(self) -> tuple[Check, dict[str, Any]]:
        """What the run is going to do, and the settings that the user loses."""
        self.progress('plan')
        text = self.machine.read(PRODUCT + 'UpdateInfo.ini', 'latin-1') or ''
        named = packages_of(text.replace('\0', ''))  # in UTF-16 as well: names of folders are ASCII
        self.missing = [name for name in named if not self.machine.host(f'{PRODUCT}Component\\{name}').is_dir()]
        result = self.check('plan', PRODUCT.rstrip('\\'), '--format', 'json', errors=False)
        try:
            return Check('plan', result.code, []), json.loads(result.output)
        except ValueError:
            return Check('plan', result.code or NO_PLAN, result.output.splitlines()), {}

    def doubts(self, planned: dict[str, Any]) -> list[Doubt]:
        return doubts_of(planned, instructions(self.options.update), self.missing)

    def versions(self, before: State, after: State) -> dict[str, str]:
        """What the head of a report names."""
        def product(state: State) -> str:
            return ' '.join(str(state.values.get((SETTINGS, name), '')) for name in ('ProductName', 'Version'))
        checker = self.check('--version').output.strip().rpartition(' ')[2]
        wine = subprocess.run(['wine', '--version'], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              text=True).stdout.strip()
        return {'product': product(before), 'product afterwards': product(after),
                'date': datetime.datetime.now().strftime('%Y-%m-%d %H:%M'),
                'programs': f'BrevantCheck {checker}, tools {prefix.VERSION}, {wine}'}

    def keep(self, folder: pathlib.Path, after: State) -> None:
        """Copies the trace files to the folder, and exports the keys that a trial looks at."""
        for place in self.trace_places():
            home = self.machine.host(place)
            for file in home.rglob('*.log*') if home.is_dir() else []:
                target = folder / 'trace' / place.replace(':', '').replace('\\', '/') / file.relative_to(home)
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(file, target)
        keys = {SETTINGS.casefold(): SETTINGS, **{key.casefold(): key for key, _ in after.values
                                                  if not key.casefold().startswith(SETTINGS.casefold())}}
        (folder / 'registry.reg').write_text(self.machine.export(*sorted(keys.values())), 'utf-16')

    # -- the run --

    def end_first_run(self) -> bool:
        """A run that ends at its trace line `kill_at`, as in a power cut; false when it has fewer lines."""
        if not self.options.kill_at:
            return False
        self.progress(f'a run that ends at line {self.options.kill_at}')
        library = FaultLibrary(self.machine, PRODUCT)
        library.end_at(self.options.kill_at)
        code = self.machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework').code
        self.machine.install_program(PRODUCT, standins=[Question.LIBRARY])
        for name in ('KzDbgFault.dll', 'fault.end', 'fault.count', 'wtsapi32.log'):
            self.machine.host(PRODUCT + name).unlink(missing_ok=True)
        return code == ENDED

    def deploy(self) -> tuple[threading.Thread, State, list[Move], list[str]]:
        """Runs the agent until it asks or ends; returns it and the state of the machine then."""
        self.progress('deployment')
        if ANSWERS[self.options.answer]:
            self.question.hold()
        self.result = Result(255, '')

        def run() -> None:
            self.result = self.machine.run(PRODUCT + 'Brevant.exe', '/DeployFramework', timeout=900)

        agent = threading.Thread(target=run, daemon=True)
        agent.start()
        while agent.is_alive() and not (ANSWERS[self.options.answer] and self.question.asked()):
            time.sleep(0.05)
        commands = [str(command) for command in self.machine.values(RUN_ONCE).values()]
        return agent, self.state(), self.pending(), commands

    def restart(self, agent: threading.Thread) -> int:
        """Answers, restarts, and returns the agent's exit code."""
        answer = ANSWERS[self.options.answer]
        asked = agent.is_alive()
        self.progress(f'answer "{self.options.answer}", restart' if asked else 'restart')
        if answer:
            self.question.answer(answer)
        agent.join()
        if asked and answer == OK:
            self.machine.wait_for_restart()
        else:
            self.machine.restart()
        return self.result.code

    # -- the machine --

    def pending(self) -> list[Move]:
        return [Move(source, target.lstrip('!')) for source, target in self.machine.pending_moves()]

    def state(self) -> State:
        files, protected, empty = {}, set(), set()
        for folder, below, names in self._walk():
            where = windows_path(self.machine, folder)
            if not below and not names:
                empty.add(where)
            for name in names:
                path, file = where + name, folder / name
                if path not in OURS and not (where.startswith(TRACE_FOLDER) and '.log' in name) and file.is_file():
                    files[path] = file.read_bytes()
                    if not file.stat().st_mode & stat.S_IWUSR:
                        protected.add(path.casefold())
        links = {path: _link(content) for path, content in files.items() if path.endswith('.lnk')}
        values, kinds = {}, {}
        keys = {key.casefold(): key for key in (SETTINGS, *NAMED_KEYS, *(key for key, _ in self.records))}
        for key in keys.values():
            if key == SETTINGS or not key.casefold().startswith(SETTINGS.casefold() + '\\'):
                for subkey, entries in self.machine.read_tree(key).items():
                    for name, (kind, data) in entries.items():
                        place = '\\'.join(filter(None, (key, subkey))), name
                        if '\\DebugLog' not in place[0]:
                            values[place], kinds[place] = data, kind
        return State(files, values, links, frozenset(protected), kinds, empty)

    def folders(self) -> set[str]:
        return {windows_path(self.machine, folder).rstrip('\\').casefold() for folder, _, _ in self._walk()}

    def _walk(self) -> list[tuple[pathlib.Path, list[str], list[str]]]:
        top = self.machine.host('C:\\')
        found = []
        for folder, names, files in os.walk(top):
            if pathlib.Path(folder) == top / 'windows':
                names[:], files = [name for name in names if name.casefold() == 'temp'], []
            found.append((pathlib.Path(folder), names, files))
        return found

    def trace_places(self) -> list[str]:
        """The folders of the trace."""
        keys = self.machine.read_tree(f'{SETTINGS}\\1\\DebugLog').values()
        places = {str(values['LogFolder'][1]).rstrip('\\') for values in keys if 'LogFolder' in values}
        # Below one another they are read once; variables of the environment are those of another user.
        return sorted(place for place in places if place and '%' not in place
                      and not any(place != other and place.startswith(other + '\\') for other in places))

    def trace_lines(self) -> list[str]:
        return [line for place in self.trace_places() for line in self.machine.trace_lines(place)]


def broken_promises(text: str) -> list[str]:
    """'VERDICT: what (why)' of every broken promise in a verification's JSON; other text by line."""
    try:
        answers = json.loads(text)['answers']
    except (ValueError, KeyError):
        return [f'VERIFY: {line}' for line in text.splitlines()]
    return [f'{answer["verdict"]}: {answer["what"]}' + (f' ({answer["detail"]})' if answer.get('detail') else '')
            for answer in answers if answer['verdict'] not in KEPT]


def packaged_files(update: pathlib.Path) -> dict[str, bytes]:
    """The files of an update by their place on the machine."""
    return {PRODUCT + path: content for path, content in host_files(update).items()}


def windows_path(machine: Machine, folder: pathlib.Path) -> str:
    """A folder of drive C:, with its trailing backslash."""
    below = str(folder.relative_to(machine.host('C:\\'))).replace('/', '\\')
    return 'C:\\' if below == '.' else f'C:\\{below}\\'


def host_path(path: pathlib.Path) -> str:
    return f'Z:{path}'.replace('/', '\\')


def _link(content: bytes) -> ShellLink:
    try:
        return read_link(content)
    except (ValueError, struct.error, IndexError):
        return ShellLink('(no link)', '', '', '', '')


def room_list(text: str) -> list[str]:
    rooms = list(ROOMS) if text == 'all' else list(filter(None, text.split(',')))
    if set(rooms) - set(ROOMS):
        raise argparse.ArgumentTypeError(f'these are {", ".join(ROOMS)}, and all')
    return rooms


class Parser(argparse.ArgumentParser):
    def add_views(self) -> None:
        """The options that say what is shown."""
        self.add_argument('--report', type=pathlib.Path, metavar='DIR', help='write report.html and report.json there')
        self.add_argument('--programs', type=pathlib.Path, metavar='DIR',
                          help='a folder with other programs to try')
        self.add_argument('--details', type=room_list, nargs='?', const='all', default='', metavar='LIST',
                          help=f'all, or some of {",".join(ROOMS)}')

    def take_programs(self, folder: Optional[pathlib.Path]) -> None:
        """Uses the programs of this folder on the machines."""
        if not folder:
            return
        for name in ('Brevant.exe', 'BrevantCheck.exe'):
            if not (folder / name).is_file():
                self.error(f'--programs: no {name} in {folder}')
        os.environ['BREVANT_BIN'] = str(folder.resolve())

    def make_report_folder(self, folder: Optional[pathlib.Path]) -> None:
        """Before the trial: a report without a place ends it at once."""
        try:
            if folder:
                folder.mkdir(parents=True, exist_ok=True)
        except OSError as error:
            self.error(f'no folder for the report: {error}')

    def error(self, message: str) -> NoReturn:
        """Its usual code is that of an update that the checker refuses."""
        self.print_usage(sys.stderr)
        self.exit(USAGE, f'{self.prog}: error: {message}\n')


def parse(arguments: list[str]) -> argparse.Namespace:
    parser = Parser('tools/try.sh', description='Tries an update on a throwaway machine.')
    parser.add_argument('update', type=pathlib.Path, nargs='?', help='files for the install folder; the sample')
    parser.add_argument('--installed', type=pathlib.Path, help='an install folder with its registry.reg')
    parser.add_argument('--language', default='', help="the product's language, for example EN-US; all: each language "
                        'of the update, in one table')
    parser.add_argument('--answer', choices=ANSWERS, default='ok', help='to the question whether to restart')
    parser.add_argument('--force', action='store_true', help='even if the checker finds errors')
    parser.add_argument('--allow', action='append', type=allowance, default=[], metavar='WHAT', help='do not count '
                        f'intended results: {", ".join(WORDS)}, or a part of the line that is shown')
    parser.add_argument('--keep', type=pathlib.Path, metavar='DIR', help='keep the trace files and the registry there')
    parser.add_argument('--kill-at', type=int, default=0, metavar='N', help='end the first run at its N-th trace line')
    parser.add_views()
    options = parser.parse_args(arguments)
    if options.kill_at < 0:
        parser.error('--kill-at counts from 1')
    for folder in (options.update, options.installed):
        if folder and not folder.is_dir():
            parser.error(f'no folder {folder}')
    if options.update and not any((options.update / name).exists()
                                  for name in ('QorPaFrwk.ini', 'UpdateInfo.ini', 'Component')):
        parser.error(f'{options.update} is no update: neither QorPaFrwk.ini nor UpdateInfo.ini nor Component in it')
    parser.take_programs(options.programs)
    parser.make_report_folder(options.report)
    parser.make_report_folder(options.keep)
    return options


VERDICT = {0: 'complete', 1: 'NOT COMPLETE', REFUSED: 'REFUSED', 3: 'THE AGENT FAILED',
           CHECKER_FAILED: 'THE CHECKER FAILED'}


def try_once(options: Options, title: str) -> tuple[int, Optional[Outcome]]:
    """One trial; its exit code, and what was seen unless the checker ended it."""
    if not (options.installed / 'registry.reg').is_file():
        print(f'[try] {options.installed / "registry.reg"}: missing; the product has neither version nor language nor '
              'any other value in the registry', file=sys.stderr)
    say = progress(title)
    try:
        outcome = Trial(options, say).run()
    except Refused as findings:
        say('')
        print(findings)
        print('[try] REFUSED: the checker found errors (--force tries it anyway)')
        return REFUSED, None
    except CheckerFailed as failure:
        say('')
        print(failure)
        print('[try] THE CHECKER FAILED: the update was not judged and not tried (--force tries it)')
        return CHECKER_FAILED, None
    say('')
    return outcome.exit_code(), outcome


def try_languages(options: argparse.Namespace, trial: Options, title: str) -> int:
    """One trial for each language of the update."""
    results = []
    for language in languages_of(trial.update) or ['']:
        keep = options.keep / language if options.keep else None
        code, outcome = try_once(trial._replace(language=language, keep=keep), f'{title}, {language}')
        results.append((language, code, outcome))
        if outcome and options.report:
            print(f'{"report":<20} {report.write(outcome, options.report / language)}')
    show_table([(language, VERDICT[code], outcome) for language, code, outcome in results])
    code = max(code for _, code, _ in results)
    print(f'[try] {len(results)} languages: {VERDICT[code]}')
    return code


def main(arguments: list[str]) -> int:
    options = parse(arguments)
    getattr(sys.stdout, 'reconfigure')(errors='backslashreplace')
    home = pathlib.Path(tempfile.mkdtemp(prefix='brevant-sample-'))
    try:
        sample = write_sample(home)
        update, installed = options.update or sample[0], options.installed or sample[1]
        title = str(options.update or 'the sample')
        trial = Options(update.resolve(), installed.resolve(), options.language, options.answer, options.force,
                        options.kill_at, frozenset() if options.update else planted_files(), tuple(options.allow),
                        options.keep)
        if options.language.casefold() == 'all':
            return try_languages(options, trial, title)
        code, outcome = try_once(trial, title)
        if outcome:
            show(outcome, options.details, options.report)
            print(f'[try] {VERDICT[code]}' + (f' with {outcome.code}' if code == 3 else ''))
        return code
    finally:
        shutil.rmtree(home, ignore_errors=True)


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
