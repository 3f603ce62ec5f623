"""Comparisons that name what differs in a few lines, however large the rest is."""
import json
import os
import pathlib
import re
import subprocess
import tempfile
import unittest
from typing import Any, Iterable, Mapping

from brevantlab.prefix import ROOT

MOST_LINES, MOST_CHARACTERS = 6, 100


def faults(name: str, document: Any) -> list[str]:
    """What a schema finds in a JSON document."""
    import jsonschema  # only tests need it
    schema = json.loads((ROOT / f'schemas/{name}.schema.json').read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    return [error.message for error in jsonschema.Draft202012Validator(schema).iter_errors(document)]


def _excerpt(value: Any, other: Any) -> str:
    """A value around the first place where it differs from the other one."""
    if type(value) is not type(other) or not isinstance(value, (str, bytes)) or len(value) <= MOST_CHARACTERS:
        text = repr(value)
        return text if len(text) <= 2 * MOST_CHARACTERS else text[:2 * MOST_CHARACTERS] + '...'
    start = next((index for index, pair in enumerate(zip(value, other)) if pair[0] != pair[1]),
                 min(len(value), len(other)))
    start = max(start - MOST_CHARACTERS // 2, 0)
    return f'...{value[start:start + MOST_CHARACTERS]!r}... (of {len(value)}, from {start})'


def _pairs(value: Any) -> Mapping[Any, Any]:
    if isinstance(value, Mapping):
        return value
    return dict(enumerate(value))


def _flat(value: Mapping[Any, Any], start: str = '') -> dict[str, Any]:
    """Names of nested mappings as one: 'subkey: value name'."""
    flat = {}
    for name, part in value.items():
        flat.update(_flat(part, f'{start}{name}: ') if isinstance(part, Mapping) and part else {f'{start}{name}': part})
    return flat


def differences(expected: Any, found: Any) -> list[str]:
    """One line for each entry that differs between two mappings or sequences, or each element of one set only."""
    if isinstance(expected, (set, frozenset)):
        return ([f'missing: {_excerpt(element, None)}' for element in sorted(expected - found, key=str)]
                + [f'not expected: {_excerpt(element, None)}' for element in sorted(found - expected, key=str)])
    if not isinstance(expected, (Mapping, list, tuple)) or not isinstance(found, (Mapping, list, tuple)):
        return [] if expected == found else [f'expected {_excerpt(expected, found)}, found {_excerpt(found, expected)}']
    ours, theirs = _flat(_pairs(expected)), _flat(_pairs(found))
    lines = []
    for name in [*ours, *(name for name in theirs if name not in ours)]:
        if name not in theirs:
            lines.append(f'{name}: missing, expected {_excerpt(ours[name], None)}')
        elif name not in ours:
            lines.append(f'{name}: not expected, found {_excerpt(theirs[name], None)}')
        elif ours[name] != theirs[name]:
            lines.append(f'{name}: expected {_excerpt(ours[name], theirs[name])}, '
                         f'found {_excerpt(theirs[name], ours[name])}')
    return lines


def shown(lines: Iterable[str]) -> str:
    """The first few lines, and how many more there are."""
    lines = list(lines)
    rest = len(lines) - MOST_LINES
    return '\n  '.join(['', *lines[:MOST_LINES], *([f'... and {rest} more'] if rest > 0 else [])])


def call(*command: object, folder: Any = None, alone: bool = False, **variables: str) -> tuple[int, str]:
    """Exit code of a command, and all that it wrote; `alone`: without the caller's environment."""
    environment = {**variables} if alone else {**os.environ, **variables}
    done = subprocess.run([str(word) for word in command], cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=600)
    return done.returncode, done.stdout


class LabTest(unittest.TestCase):
    """A test whose failures say which file or value, in a few lines."""
    maxDiff = 2000

    def assertSame(self, expected: Any, found: Any, where: str = '') -> None:
        """Two mappings, sequences or sets are equal."""
        if lines := differences(expected, found):
            raise self.failureException(f'{where or "not the same"}:{shown(lines)}')

    def assertShown(self, file: pathlib.Path, text: str) -> None:
        """A text is that of a file. After an intended change tools/examples.sh writes it again, or, if it comes from
        a test, this does with BREVANT_RENEW=1."""
        if os.environ.get('BREVANT_RENEW'):
            file.write_text(text, 'utf-8')
        self.assertSame(file.read_text('utf-8').splitlines(), text.splitlines(), file.name)

    def assertTraced(self, name: str, lines: Iterable[str]) -> None:
        """Trace lines are those of a file in docs/traces. Ids and the user are left out."""
        text = re.sub(r'(RunOnce:|config-|UpdateInfo-)[0-9a-f-]{8,36}', r'\1ID', '\n'.join(lines) + '\n')
        text = re.sub(r'(\\users\\)(?!Public)\w+', r'\1USER', text)
        self.assertShown(ROOT / f'docs/traces/{name}.txt', text)


class HomeTest(LabTest):
    """One with a folder of its own."""
    parent: Any = None

    def setUp(self) -> None:
        self.home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(dir=self.parent))).resolve()
