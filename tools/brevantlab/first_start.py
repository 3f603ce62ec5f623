"""Starts each program of BREVANT_BIN once on a throwaway machine: whether it starts at all.

The agent gets no switch: it opens its trace, with the trace library, and ends. The checker reads the sample.
"""
import pathlib
import subprocess
import sys
import tempfile

from .layouts import install_folder, write_sample
from .machine import PRODUCT, Machine, ToolError

STOPPED = '***QorPatchTool.exe stop.'
CLEAN = '0 errors'


def failures(machine: Machine, update: pathlib.Path) -> list[str]:
    """What went wrong; one line for each program."""
    found = []
    code, messages = machine.run_traced(PRODUCT + 'Brevant.exe')
    if code != 0 or not any(STOPPED in message for message in messages):
        found.append(f'Brevant.exe without a switch: exit code {code} instead of 0, {len(messages)} lines of trace')
    lint = machine.run(PRODUCT + 'BrevantCheck.exe', 'lint', f'Z:{update}'.replace('/', '\\'))
    if lint.code != 0 or CLEAN not in lint.output:
        found.append(f'BrevantCheck.exe lint: exit code {lint.code}, not 0 with "{CLEAN}": {lint.output}'.rstrip())
    return found


def main() -> int:
    with tempfile.TemporaryDirectory(prefix='brevant-sample-') as home, Machine() as machine:
        update, installed = write_sample(pathlib.Path(home))
        install_folder(machine, installed)
        machine.install_program()
        found = failures(machine, update)
    for text in found:
        print(f'[build] FAILED: {text}', file=sys.stderr)
    if not found:
        print('[build] Brevant.exe and BrevantCheck.exe start')
    return int(bool(found))


if __name__ == '__main__':
    try:
        sys.exit(main())
    except subprocess.TimeoutExpired as error:
        sys.exit(f'[build] FAILED: a program did not end: {error}')
    except (ToolError, OSError) as error:
        sys.exit(f'[build] FAILED: no machine to start the programs on: {error}')
