"""What a trial has shown, on the terminal."""
import pathlib
import time
from typing import Callable, Optional, Sequence

from . import report
from .outcome import Outcome, Row

MOST_ROWS = 6  # of one kind before they are only counted


def print_rows(rows: list[tuple[str, str]]) -> None:
    """Prints two columns; long lists of rows with a label in capitals are cut."""
    counts: dict[str, int] = {}
    for label, text in rows:
        counts[label] = counts.get(label, 0) + 1
        if counts[label] <= MOST_ROWS:
            print(f'{label:<20} {text}')
        elif counts[label] == MOST_ROWS + 1:
            more = sum(other == label for other, _ in rows) - MOST_ROWS
            print(f'{"":<20} ... and {more} more (--details)')


def cut(text: str, most: int) -> str:
    return text if len(text) <= most else text[:most] + '...'


def print_details(details: dict[str, list[Row]], rooms: Sequence[str]) -> None:
    for room in rooms:
        print(f'\n== {room} ==')
        most = 1000 if room in ('trace', 'checker') else 250  # contents are cut, messages are not
        for row in details[room]:
            if row.state == 'same':
                continue
            before, after = (cut('; '.join(text.splitlines()), most) for text in (row.before, row.after))
            print(f'{row.state:<14} {row.name}  ' + (f'{before} -> {after}' if before else after))
            print(''.join(f'{"":<15}{line}\n' for line in row.diff.splitlines()), end='')


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


def show_table(results: Sequence[tuple[str, str, Optional[Outcome]]]) -> None:
    """One line for each language, (language, verdict, what was seen), then what keeps each from being complete."""
    heads = 'verdict             ', 'arrived       ', 'problems ', 'left behind ', 'failures '
    print('language  ', *heads, 'seconds')
    for language, verdict, outcome in results:
        if not outcome:
            print(f'{language:<10} {verdict}')
            continue
        arrived = f'{outcome.arrived()} of {len(outcome.replacements())}'
        print(f'{language:<10} {verdict:<20} {arrived:<14} {len(outcome.problems()):<9} '
              f'{len(outcome.left_behind()):<12} {len(outcome.failures()[0]):<9} {outcome.seconds:.0f}')
    for language, _, outcome in results:
        print_rows([(label, f'{language}: {text}') for label, text in (outcome.problems() if outcome else [])])
