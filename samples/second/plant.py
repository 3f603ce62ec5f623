#!/usr/bin/env python3
"""Plants mistakes of an author into a copy of the second update: plant.py UPDATE [NAME...] (all without names).

Each names the rule that finds it, and the damage on the machine if the author ignores the rule.
"""
import pathlib
import sys
from typing import NamedTuple

INSTRUCTIONS = 'QorPaFrwk.ini'
PACKAGE = 'c21t2103v3.9.2l1p1r1o2'


class Mistake(NamedTuple):
    """In `file` the text `old` becomes `new`; without `old` the file is moved to the place `new`."""
    file: str
    old: str
    new: str
    rule: str
    harmed: str  # the file, below the install folder, or the registry value that is not as it should be


MISTAKES = {
    # The folder is not made, so the restart has no place for what belongs there.
    'placeholder': Mistake(INSTRUCTIONS, 'add={InstalledDir}Resource', 'add={InstallDir}Resource',
                           'B010', 'Resource\\ES-ES\\StringTable.ini'),
    'type': Mistake(INSTRUCTIONS, 'REG_QDWORD', 'REG_QWORD', 'B021', 'SOFTWARE\\Kazmere\\KZVLT\\Sync!MostBytes'),
    # Gone in the end although it has just arrived: the deletions come last.
    'deletion': Mistake(INSTRUCTIONS, 'SyncLegacy.*', '*.htm', 'B033', 'panel.htm'),
    'sub-folder': Mistake(f'Component/{PACKAGE}/Share/QorIEExt/bridge.htm', '',
                          f'Component/{PACKAGE}/Share/QorIEExt/Sync/bridge.htm', 'B070', 'bridge.htm'),
    'package': Mistake(f'Component/{PACKAGE}/64bit/{PACKAGE}/Sync.dat', '',
                       f'Component/{PACKAGE}/64bit/Sync.dat', 'B071', 'Sync.dat'),
}


def plant(update: pathlib.Path, mistake: Mistake) -> None:
    """Makes the mistake in the update, which must be a copy."""
    file = update / mistake.file
    if not mistake.old:
        (update / mistake.new).parent.mkdir(parents=True, exist_ok=True)
        file.rename(update / mistake.new)
        return
    text = file.read_bytes().decode('utf-16')
    if text.count(mistake.old) != 1:
        raise ValueError(f'{mistake.file} holds "{mistake.old}" {text.count(mistake.old)} times')
    file.write_bytes(text.replace(mistake.old, mistake.new).encode('utf-16'))


def main() -> None:
    for name in sys.argv[2:] or MISTAKES:
        plant(pathlib.Path(sys.argv[1]), MISTAKES[name])
        print(f'{MISTAKES[name].rule} {name}: {MISTAKES[name].harmed}')


if __name__ == '__main__':
    main()
