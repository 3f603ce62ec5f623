#!/usr/bin/env python3
"""Runs the benchmark program on a throwaway machine and prints its samples as a table; see tools/bench.sh."""
import argparse
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import time
from typing import Iterable

from brevantlab.machine import Machine
from brevantlab.prefix import ROOT
from brevantlab.try_update import Parser

PROGRAMS = 'C:\\Bench\\'
MEGABYTE = 1 << 20

# name of the samples, what is measured, against what, the ratio to reach
RATIOS = (
    ('deploy', 'Deploy 500 files, trace off', 'the bare loop of the moves alone', 1.10),
    ('update', 'One update of 500 files, 1,000 registry and 200 INI records', 'its bare calls', 1.10),
    ('deploy traced', 'Deploy 500 files, every level traced to a file', 'the same, trace off', 1.25),
    ('registry', '1,000 registry "add" records', 'the bare loop of open, set, close', 1.10),
    ('lint', 'Lint, 3,000 files and the largest instruction file', 'reading all of it', 2.0),
    ('plan', 'Plan, the same update', 'reading all of it', 1.5),
    ('ready', 'Ready, the same update', 'planning it', 1.5),
    ('verify', 'Verify, the same update installed', 'reading and hashing its files', 1.5),
    ('start', 'Start without argument', 'an empty program', 1.35),
)
MOST_MEGABYTES = 8
MOST_PROGRAM_MEGABYTES = {'Brevant.exe': 2.0, 'BrevantCheck.exe': 2.5}


def collect(build: pathlib.Path, rounds: int, growth: int) -> dict[str, dict[str, list[list[float]]]]:
    """{kind: {name: [sample, ...]}} of one run of the benchmark program."""
    samples: dict[str, dict[str, list[list[float]]]] = {}
    with Machine() as machine:
        machine.make_dir(PROGRAMS)
        for file in ('bin/Brevant.exe', 'bin/KzDbg64.dll', 'bin/libexpat.dll', 'bench/bench.exe', 'bench/empty.exe'):
            shutil.copy2(build / file, machine.host(PROGRAMS))
        result = machine.run(PROGRAMS + 'bench.exe', rounds, growth, timeout=900)
    if result.code != 0:
        sys.exit(f'[bench] FAILED with exit code {result.code}:\n{result.output}')
    for line in result.output.splitlines():
        kind, name, *numbers = line.split('\t')
        samples.setdefault(kind, {}).setdefault(name, []).append([float(number) for number in numbers])
    return samples


def busy(seconds: float = 2) -> float:
    """How much of the processors other programs take, measured while this one sleeps."""
    def times() -> tuple[int, int]:
        with open('/proc/stat') as file:
            fields = [int(field) for field in file.readline().split()[1:9]]
        return sum(fields), fields[3] + fields[4]
    total, idle = times()
    time.sleep(seconds)
    total, idle = (now - before for now, before in zip(times(), (total, idle)))
    return 1 - idle / max(total, 1)


def spread(values: Iterable[float], digits: int = 2) -> list[str]:
    """Median, smallest and largest."""
    values = sorted(values)
    return [f'{value:.{digits}f}' for value in (statistics.median(values), values[0], values[-1])]


def verdict(value: str, most: float) -> str:
    return 'met' if float(value) <= most else 'MISSED'


def table(*rows: list[str]) -> None:
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    for row in (rows[0], ['-' * width for width in widths], *rows[1:]):
        print('| ' + ' | '.join(cell.ljust(width) for cell, width in zip(row, widths)) + ' |')
    print()


def print_figures(samples: dict[str, dict[str, list[list[float]]]], programs: pathlib.Path) -> None:
    rows = [['Work', 'Against', 'Median', 'Min', 'Max', 'At most', '']]
    for name, work, against, most in RATIOS:
        ratios = spread(ours / other for other, ours in samples['pair'][name])
        rows.append([work, against, *ratios, f'{most:.2f}', verdict(ratios[0], most)])
    # The working set counts the pages of system libraries, too, which every process shares: shown, not judged.
    for name, what in (('private', 'Private memory'), ('working set', 'Working set')):
        extra = spread([(ours - other) / MEGABYTE for other, ours in samples['memory'][name]], 1)
        judged = [f'+ {MOST_MEGABYTES} MB', verdict(extra[0], MOST_MEGABYTES)] if name == 'private' else ['', '']
        rows.append([f'{what} at its peak, largest instruction file', 'an empty program',
                     *(f'+ {value} MB' for value in extra), *judged])
    for name, most in MOST_PROGRAM_MEGABYTES.items():
        size = f'{(programs / name).stat().st_size / MEGABYTE:.2f}'
        rows.append([f'{name}, stripped', '', f'{size} MB', '', '', f'{most:g} MB', verdict(size, most)])
    table(*rows)


def print_growth(growth: dict[str, list[list[float]]]) -> None:
    rows = [['Files', 'Deploy, ms', 'Bare loop, ms', 'MoveFileExW in it, ms', 'Its part', 'Deploy, us per file']]
    for files, times in growth.items():
        bare, moves, ours = (statistics.median(column) for column in zip(*times))
        rows.append([files, f'{ours / 1e3:.1f}', f'{bare / 1e3:.1f}', f'{moves / 1e3:.1f}', f'{moves / bare:.0%}',
                     f'{ours / int(files):.0f}'])
    table(*rows)


def plot(growth: dict[str, list[list[float]]], file: pathlib.Path) -> None:
    """Draws what a deployment costs over its number of files, ours and the bare loop."""
    os.environ.setdefault('SOURCE_DATE_EPOCH', '0')  # the same figures give the same file
    import matplotlib
    matplotlib.use('svg')
    matplotlib.rcParams['svg.hashsalt'] = 'brevant'
    from matplotlib import pyplot
    files = [int(count) for count in growth]
    figure, axes = pyplot.subplots(figsize=(7, 4.2))
    for column, label, style in ((2, 'Brevant', 'o-'), (0, 'the bare loop', 's--'), (1, 'MoveFileExW in it', '^:')):
        axes.plot(files, [statistics.median(row[column] for row in rows) / 1e3 for rows in growth.values()], style,
                  label=label)
    axes.set(xlabel='files deployed', ylabel='milliseconds (median)', title='What a deployment costs, trace off')
    axes.grid(alpha=0.3)
    axes.legend()
    figure.savefig(file, bbox_inches='tight', metadata={'Date': None})
    print(f'[bench] {file.relative_to(ROOT)} drawn')


def parse(arguments: list[str]) -> argparse.Namespace:
    parser = Parser('tools/bench.sh', description='Measures the program against the bare Windows calls and an empty '
                    'program.')
    parser.add_argument('--quick', action='store_true', help='fewer rounds, and without the growth')
    parser.add_argument('--plot', action='store_true', help='draw the growth into docs/growth.svg')
    options = parser.parse_args(arguments)
    if options.quick and options.plot:
        parser.error('--quick measures no growth that --plot could draw')
    return options


def main(arguments: list[str]) -> None:
    options = parse(arguments)
    quick = options.quick
    build = pathlib.Path(os.environ.get('BREVANT_BUILD', ROOT / 'build' / 'release'))
    wine = subprocess.run(['wine', '--version'], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    start, before = time.monotonic(), busy()
    # A call of the emulation layer is an exchange with its server: on the same core a quarter as long as between two.
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    print(f'[bench] {os.cpu_count()} cores, {wine.strip()}; this takes '
          f'{"a minute" if quick else "three minutes"}, longer on a busy machine', flush=True)
    samples = collect(build, 5 if quick else 11, 0 if quick else 1)
    taken = time.monotonic() - start
    print(f'[bench] done in {taken:.0f} s; other programs took {before:.0%} of the processors before, {busy():.0%} '
          f'after\n')
    print_figures(samples, build / 'bin')
    if 'growth' in samples:
        print_growth(samples['growth'])
        if options.plot:
            plot(samples['growth'], ROOT / 'docs' / 'growth.svg')
    print(f"A trace call that prints nothing: {spread(n for n, in samples['call']['disabled trace'])[0]} ns")


if __name__ == '__main__':
    main(sys.argv[1:])
