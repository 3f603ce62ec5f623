"""Tries any update on a throwaway machine: checks it, deploys it, answers, restarts and looks what has arrived.

Exit code: 0 complete, 1 not, 2 refused by the checker, 3 the agent failed, 4 the checker failed, 64 a
wrong option.
"""
import argparse
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
from typing import Callable, NamedTuple, NoReturn, Optional, Sequence

from . import report
from .layouts import host_files, install_folder, instructions, planted_files, write_sample
from .links import ShellLink, read_link
from .machine import PRODUCT, RUN_ONCE, SETTINGS, TRACE_FOLDER, Machine, Result
from .outcome import NO_END, Check, Move, Outcome, Row, State
from .standins import CANCEL, ENDED, OK, FaultLibrary, Question

ANSWERS = {'ok': OK, 'later': CANCEL, 'none': None}
ROOMS = ('files', 'registry', 'shortcuts', 'settings', 'trace', 'checker')
REFUSED = 2
CHECKER_FAILED = 4
USAGE = 64
KEPT = ('ARRIVED', 'DELETED', 'VALUE RIGHT')  # verdicts of a verification
MOST_ROWS = 6  # of one kind before they are only counted
CLASSES = 'HKLM\\Software\\Classes\\CLSID\\'
# What the change of name writes beside the product's own key.
NAMED_KEYS = ('HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{5A1C2E77-3B90-4d6e-9F21-7C04B8E2D913}',
              CLASSES + '{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}', CLASSES + '{E2905B7D-8C13-4A6F-9D42-5F7B1E0C38A6}',
              CLASSES + '{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}')
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
            ended = self.end_first_run()
            self.question = Question(machine, PRODUCT)
            agent, waiting, moves, commands = self.deploy()
            asked = self.question.asked()
            code = self.restart(agent)
            self.progress('after the restart')
            return Outcome(
                update=str(self.options.update), language=language, lint=lint, before=before, records=self.records,
                packaged={path: content for path, content in self.packaged.items() if path.startswith(COMPONENTS)},
                waiting=waiting, moves=moves, commands=commands, question=asked, code=code,
                kill_at=self.options.kill_at, ended=ended, after=self.state(), left=self.pending(),
                lines=self.trace_lines(), verify=self.verify(manifest), folders=self.folders(),
                seconds=time.monotonic() - start, answer=self.options.answer, planted=self.options.planted)

    # -- the checker --

    def check(self, *arguments: str, errors: bool = True) -> Result:
        """Runs BrevantCheck."""
        try:
            return self.machine.run(PRODUCT + 'BrevantCheck.exe', *arguments, timeout=300, errors=errors)
        except subprocess.TimeoutExpired:
            return Result(NO_END, '')

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
                said = self.check('manifest', host_path(copy)).output  # with the reason
                return Check('manifest', result.code, [f'NO MANIFEST: {line}' for line in said.splitlines()])
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
        """Runs the agent until it asks or ends; returns it and how the machine stands then."""
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
        files, protected = {}, set()
        for folder, _, names in self._walk():
            where = windows_path(self.machine, folder)
            for name in names:
                path, file = where + name, folder / name
                if path not in OURS and not (where.startswith(TRACE_FOLDER) and '.log' in name) and file.is_file():
                    files[path] = file.read_bytes()
                    if not file.stat().st_mode & stat.S_IWUSR:
                        protected.add(path.casefold())
        links = {path: _link(content) for path, content in files.items() if path.endswith('.lnk')}
        values = {}
        keys = {key.casefold(): key for key in (SETTINGS, *NAMED_KEYS, *(key for key, _ in self.records))}
        for key in keys.values():
            if key == SETTINGS or not key.casefold().startswith(SETTINGS.casefold() + '\\'):
                for subkey, entries in self.machine.read_tree(key).items():
                    for name, (_, data) in entries.items():
                        values['\\'.join(filter(None, (key, subkey))), name] = data
        values = {name: data for name, data in values.items() if '\\DebugLog' not in name[0]}
        return State(files, values, links, frozenset(protected))

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

    def trace_lines(self) -> list[str]:
        keys = self.machine.read_tree(f'{SETTINGS}\\1\\DebugLog').values()
        places = {str(values['LogFolder'][1]).rstrip('\\') for values in keys if 'LogFolder' in values}
        # Below one another they are read once; variables of the environment are those of another user.
        places = {place for place in places if place and '%' not in place
                  and not any(place != other and place.startswith(other + '\\') for other in places)}
        return [line for place in sorted(places) for line in self.machine.trace_lines(place)]


def broken_promises(text: str) -> list[str]:
    """'VERDICT: what (why)' of everything in a verification's JSON that is not as promised; other text by line."""
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


def print_rows(rows: list[tuple[str, str]]) -> None:
    """Two columns; what stands in capitals and more than a few of it is cut."""
    counts: dict[str, int] = {}
    for label, text in rows:
        counts[label] = counts.get(label, 0) + 1
        if counts[label] <= MOST_ROWS:
            print(f'{label:<20} {text}')
        elif counts[label] == MOST_ROWS + 1:
            more = sum(other == label for other, _ in rows) - MOST_ROWS
            print(f'{"":<20} ... and {more} more (--details)')


def print_details(details: dict[str, list[Row]], rooms: Sequence[str]) -> None:
    for room in rooms:
        print(f'\n== {room} ==')
        most = 1000 if room in ('trace', 'checker') else 100  # contents are cut, what somebody says is not
        for row in details[room]:
            if row.state == 'same':
                continue
            before, after = ('; '.join(text.splitlines())[:most] for text in (row.before, row.after))
            print(f'{row.state:<14} {row.name}  ' + (f'{before} -> {after}' if before else after))


def show(outcome: Outcome, rooms: Sequence[str] = (), folder: Optional[pathlib.Path] = None) -> None:
    """Prints what a person wants to know first, the details asked for, and writes the report where one is wanted."""
    if outcome.kill_at:
        came = f'at line {outcome.kill_at} of the trace; the agent was started again'
        print(f'{"power cut":<20} {came if outcome.ended else f"none: no run has {outcome.kill_at} lines"}')
    lint = outcome.lint
    lines = [*lint.lines, lint.failure()] if lint.failure() else lint.lines
    print(f'{"lint":<20} {lines[-1] if lines else lint.code}')
    print_rows([('finding', line) for line in lines[:-1]])
    print_rows(outcome.summary())
    print_details(outcome.details(), rooms)
    if folder:
        print(f'{"report":<20} {report.write(outcome, folder)}')


def progress(title: str) -> Callable[[str], None]:
    """Says on one line what is being done."""
    start = time.monotonic()
    print(f'[try] {title}:', end='', flush=True)

    def say(stage: str) -> None:
        print(f' {stage};' if stage else f' {time.monotonic() - start:.0f} s', end='' if stage else '\n', flush=True)
    return say


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
                          help='a folder with the programs to try; without it those that are built here')
        self.add_argument('--details', type=room_list, nargs='?', const='all', default='', metavar='LIST',
                          help=f'all, or some of {",".join(ROOMS)}')

    def take_programs(self, folder: Optional[pathlib.Path]) -> None:
        """Makes them those that a machine gets."""
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
    parser.add_argument('update', type=pathlib.Path, nargs='?', help='what lies over the install folder; the sample')
    parser.add_argument('--installed', type=pathlib.Path, help='an install folder with its registry.reg')
    parser.add_argument('--language', default='', help="the product's language, for example EN-US")
    parser.add_argument('--answer', choices=ANSWERS, default='ok', help='to the question whether to restart')
    parser.add_argument('--force', action='store_true', help='even if the checker finds errors')
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
    return options


def main(arguments: list[str]) -> int:
    options = parse(arguments)
    getattr(sys.stdout, 'reconfigure')(errors='backslashreplace')
    home = pathlib.Path(tempfile.mkdtemp(prefix='brevant-sample-'))
    try:
        sample = write_sample(home)
        update, installed = options.update or sample[0], options.installed or sample[1]
        say = progress(str(options.update or 'the sample'))
        trial = Trial(Options(update.resolve(), installed.resolve(), options.language, options.answer, options.force,
                              options.kill_at, frozenset() if options.update else planted_files()), say)
        try:
            outcome = trial.run()
        except Refused as findings:
            say('')
            print(findings)
            print('[try] REFUSED: the checker found errors (--force tries all the same)')
            return REFUSED
        except CheckerFailed as failure:
            say('')
            print(failure)
            print('[try] THE CHECKER FAILED: the update was not judged and not tried (--force tries it)')
            return CHECKER_FAILED
        say('')
        show(outcome, options.details, options.report)
        code = outcome.exit_code()
        print('[try] ' + {0: 'complete', 1: 'NOT COMPLETE', 3: f'THE AGENT FAILED with {outcome.code}',
                          CHECKER_FAILED: 'THE CHECKER FAILED'}[code])
        return code
    finally:
        shutil.rmtree(home, ignore_errors=True)


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
