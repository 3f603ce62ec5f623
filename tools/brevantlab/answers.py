"""What BrevantCheck says of each scenario that the tests try, and what the run traces, whole: samples/answers.txt.
Where it says something else, the trial has a disagreement. After an intended change, tools/examples.sh writes them
again (BREVANT_ANSWERS=write).

Lines that an earlier scenario has, too, are only counted, with a digest.
"""
import difflib
import hashlib
import json
import os
import re
from typing import Any, Iterator, Sequence

from .prefix import BUILD, ROOT

ANSWERS, WHOLE = ROOT / 'samples/answers.txt', BUILD / 'answers'
HEAD = '== '
REPLACED = ((re.compile(r'(?<![\d.])1\.\d+\.\d{4}(?![\d.])'), 'VERSION'),  # the agent's
            (re.compile(r'(name="FrwkDeployTick").*'), r'\1'),
            (re.compile(r'\b2:[A-Za-z0-9+/=]{20,}'), '2:PROTECTED'),
            (re.compile(r'RunOnce:[0-9a-f-]{36}'), 'RunOnce:ID'),
            (re.compile(r'-[0-9a-f]{8}(?=\.unfinished|-01\.tmp)'), '-PID'))
REPEATED = re.compile(r'(.)\1{29,}')


def plan_lines(output: str) -> Iterator[str]:
    """Every member of a plan in JSON, one line for each change."""
    plan = json.loads(output)
    for step in plan.pop('steps'):
        changes = step.pop('changes')
        if changes or 'reason' in step:
            yield ' '.join(step.values())
        for change in changes:
            when = ' at the restart' if change.pop('atRestart') else ''
            yield f'  {change.pop("outcome")} {change.pop("action")}{when} {change.pop("target")}{_members(change)}'
    yield 'plan' + _members(plan)


def manifest_lines(output: str) -> Iterator[str]:
    """Every member of a manifest, the long ones as a digest."""
    if not output.startswith('{'):
        return
    manifest = json.loads(output)
    for name in 'update', 'tool':  # which depend on the version
        manifest.pop(name)
    for name in 'files', 'contents':
        yield f'{len(manifest[name])} {name} {_digest(json.dumps(manifest.pop(name)))}'
    for name, items in manifest.items():
        yield from (f'promised {name} {json.dumps(item, ensure_ascii=False)}'
                    for item in (items if isinstance(items, list) else [items]))


def verify_lines(output: str) -> Iterator[str]:
    if not output.startswith('{'):
        yield output
        return
    found = json.loads(output)
    for answer in found.pop('answers'):
        yield f'{answer.pop("verdict")} {answer.pop("what")}{_members(answer)}'
    found['counts'] = {word: count for word, count in found['counts'].items() if count}
    yield 'verify' + _members(found)


def _members(part: dict[str, Any]) -> str:
    return ''.join(f' {name}={json.dumps(value, ensure_ascii=False)}' for name, value in part.items())


def _digest(text: str) -> str:
    return hashlib.sha256(text.encode()).hexdigest()[:12]


def _plain(line: str, install: str) -> str:
    for pattern, shown in REPLACED:
        line = pattern.sub(shown, line)
    line = line.replace('\\\\', '\\').replace(install, '<>\\').rstrip()
    return REPEATED.sub(lambda found: f'<{len(found[0])} {found[1]}>', line).replace('\n', '\\n').replace('\r', '\\r')


def _read() -> dict[str, list[str]]:
    parts = ANSWERS.read_text('utf-8').split(f'\n{HEAD}') if ANSWERS.exists() else []
    sections = (part.rstrip('\n').split('\n') for part in parts[1:])
    return {name: lines for name, *lines in sections}


def differences(scenario: str, said: Sequence[str], install: str) -> list[str]:
    """How the lines differ from those of before; nothing for a scenario that has no name or is not recorded."""
    writes = os.environ.get('BREVANT_ANSWERS') == 'write'
    known = _read()
    if not scenario or not writes and scenario not in known:
        return []
    earlier: set[str] = set()
    for name, lines in known.items():
        if name == scenario:
            break
        earlier.update(lines)
    whole = [_plain(line, install) for line in said]
    shared = [line for line in whole if line in earlier]
    now = [line for line in whole if line not in earlier]
    now.append(f'{len(shared)} lines as above, {_digest("".join(shared))}')
    if writes:
        known[scenario] = now
        ANSWERS.write_text(''.join(f'\n{HEAD}{name}\n' + '\n'.join(lines) + '\n' for name, lines in known.items()),
                           'utf-8')
    if now == known[scenario]:
        return []
    WHOLE.mkdir(parents=True, exist_ok=True)
    file = WHOLE / f'{scenario.replace(":", "")}.txt'
    file.write_text('\n'.join(whole), 'utf-8')
    return [f'it says otherwise than in {ANSWERS.name}, all in {file}',
            *list(difflib.unified_diff(known[scenario], now, n=0, lineterm=''))[2:]]
