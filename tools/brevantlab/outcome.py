"""What a trial of an update has shown: the machine before it, while the restart was due, and after it."""
import dataclasses
import difflib
import json
import re
import xml.etree.ElementTree
from typing import Any, NamedTuple, Optional

from . import registry, trace
from .doubts import Doubt, Intended, traced_name
from .links import ShellLink
from .layouts import MARKER
from .machine import PRODUCT, SETTINGS

# What an exit code (its low byte) of BrevantCheck says when it is no verdict.
NO_VERDICT = {2: 'it was used wrongly', 3: 'it could not read its input', 5: 'it crashed (access violation)'}
NO_END, NO_PLAN = 124, 125  # the codes of a call that did not end in time, or said nothing that can be read
VERDICTS = {'lint': (0, 1), 'plan': (0,),
            'manifest': (0, 3), 'verify': (0, 1, 3010 & 0xFF)}  # 3: the update cannot be described

UNINSTALL = ('HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\'
             '{5A1C2E77-3B90-4d6e-9F21-7C04B8E2D913}')
MOST_LINES = 60  # of the difference of two texts
KINDS = {'sz': 'REG_SZ', 'expand': 'REG_EXPAND_SZ', 'multi': 'REG_MULTI_SZ', 'dword': 'REG_DWORD',
         'qword': 'REG_QWORD', 'binary': 'REG_BINARY', 'none': 'REG_NONE'}

# What every deployment notes about itself.
BOOKKEEPING = {'DoUpdateDeploy', 'FrwkDeployTick', MARKER[0]}


class Move(NamedTuple):
    """A pending move whose source was there when the restart was due; no target: a deletion."""
    source: str
    target: str


@dataclasses.dataclass
class State:
    """All files outside the Windows folder, the registry keys that an update can reach, and the shortcuts."""
    files: dict[str, bytes]
    values: dict[tuple[str, str], registry.Data]  # (key, value name): data
    links: dict[str, ShellLink]
    protected: frozenset[str] = frozenset()  # the files that are read-only, in lower case
    kinds: dict[tuple[str, str], str] = dataclasses.field(default_factory=dict)  # of values: 'sz', 'dword'...
    empty: set[str] = dataclasses.field(default_factory=set)  # folders without anything in them

    def __post_init__(self) -> None:
        self._names = {path.casefold(): path for path in self.files}

    def content(self, path: str) -> Optional[bytes]:
        name = self._names.get(path.casefold())
        return None if name is None else self.files[name]


@dataclasses.dataclass
class Check:
    """One call of BrevantCheck."""
    verb: str
    code: int
    lines: list[str]

    def failure(self) -> str:
        """Why the checker itself failed; empty when its exit code is a verdict."""
        if self.code in VERDICTS[self.verb]:
            return ''
        if self.code == NO_END:
            return f'BrevantCheck {self.verb} did not end in time'
        if self.code == NO_PLAN:
            return f'BrevantCheck {self.verb} printed no plan'
        why = NO_VERDICT.get(self.code, 'it crashed or was ended')
        return f'BrevantCheck {self.verb} ended with exit code {self.code}: {why}'


class Row(NamedTuple):
    """One line of the details: name, state before, state after, and result."""
    name: str
    before: str
    after: str
    state: str
    diff: str = ''  # of texts: the lines that differ


@dataclasses.dataclass
class Outcome:
    update: str
    language: str
    lint: Check
    before: State
    packaged: dict[str, bytes]  # what the update has brought, by place on the machine
    records: list[tuple[str, str]]  # the values that the instruction file adds, as (key, value name)
    waiting: State
    moves: list[Move]
    commands: list[str]
    question: dict[str, str]
    code: int
    kill_at: int  # the trace line at which a first run was to be ended, or 0
    ended: bool  # whether it came that far
    after: State
    left: list[Move]
    lines: list[str]
    verify: Check
    folders: set[str]  # every folder after the restart, in lower case
    seconds: float
    answer: str = ''  # to the question
    plan: Check = dataclasses.field(default_factory=lambda: Check('plan', 0, []))
    planned: dict[str, Any] = dataclasses.field(default_factory=dict)  # its JSON
    doubts: list[Doubt] = dataclasses.field(default_factory=list)  # what it says without harm
    intended: Intended = Intended()
    versions: dict[str, str] = dataclasses.field(default_factory=dict)  # by name
    planted: frozenset[str] = frozenset()  # files of the update that no step is to look at, by place on the machine

    # -- files --

    def replacements(self) -> dict[str, Optional[bytes]]:
        """{target: content} of the pending moves; None: there is nothing to be moved."""
        return {move.target: self.waiting.content(move.source) for move in self.moves if move.target}

    def arrived(self) -> int:
        return sum(content is not None and self.after.content(target) == content
                   for target, content in self.replacements().items())

    def not_arrived(self) -> dict[str, str]:
        """{target: why}."""
        return {target: self._reason(target, content) for target, content in self.replacements().items()
                if content is None or self.after.content(target) != content}

    def _reason(self, target: str, content: Optional[bytes]) -> str:
        if content is None:
            return 'there was nothing to be moved'
        if target in (move.target for move in self.left):
            return 'still waits for a restart'
        if target.rpartition('\\')[0].casefold() not in self.folders:
            return 'its folder is missing'
        if self.after.content(target) is None:
            return 'has been deleted again' if self._deleted(target) else 'is not there'
        return 'the file there is read-only' if target.casefold() in self.after.protected else 'has another content'

    def _deleted(self, target: str) -> bool:
        return any(not move.target and move.source.casefold() == target.casefold() for move in self.moves)

    def not_deleted(self) -> list[str]:
        paths = {move.source for move in self.moves if not move.target}
        return sorted(path for path in paths if self.after.content(path) is not None
                      and path not in self.replacements())

    def never_looked_at(self) -> list[str]:
        """Files of the update that stayed in the download folder: no trace line names them, and no copy exists."""
        traced = '\n'.join(self.lines).casefold()
        brought = {path.casefold() for path in self.packaged}
        placed = {(path.rpartition('\\')[2].casefold(), content) for state in (self.waiting, self.after)
                  for path, content in state.files.items() if path.casefold() not in brought}
        return sorted(path for path, content in self.packaged.items()
                      if self.after.content(path) == content and path.casefold() not in traced
                      and (path.rpartition('\\')[2].casefold(), content) not in placed)

    def missing_in_language(self) -> list[str]:
        """Settings files that the update brings for other languages only: the installed ones stay as they are."""
        names = [path.rpartition('\\')[2].casefold() for path in self.packaged
                 if '\\share\\setting\\' in path.casefold()]
        return [f'{base}_{self.language}' for base in ('config', 'qorshcut', 'readme')
                if any(name.startswith(f'{base}_') for name in names)
                and not any(name.startswith(f'{base}_{self.language}.'.casefold()) for name in names)]

    # -- the rest --

    def not_written(self) -> list[str]:
        """Values that the instruction file adds and that are not there."""
        names = {(key.casefold(), name.casefold()) for key, name in self.after.values}
        return [f'{key}!{name}' for key, name in self.records if (key.casefold(), name.casefold()) not in names]

    def settings(self) -> dict[str, Optional[str]]:
        """The user's settings that were carried over; None: left alone."""
        for line in reversed(self.lines):
            if match := re.search(r'Write OK: (\{.*\}) - [A-Za-z0-9_]+\.cpp', line):
                return json.loads(match[1]).get('Data') or {}
        return {}

    def failures(self) -> tuple[list[str], list[str]]:
        """Failure lines of the trace, and harmless lines that look like failures, each with its reason. Those of a
        record without effect are neither: it is a doubt of its own."""
        shown, folded = [], []
        for text, state in ((said(line).removeprefix(trace.FAILURE), state) for line, state in self._traced()):
            if state == 'failure':
                shown.append(text)
            elif state == 'folded':
                folded.append(f'{text} ({trace.why_harmless(text, self.ended)})')
        return shown, folded

    def _traced(self) -> list[tuple[str, str]]:
        """Each line of the trace with its kind."""
        idle = {name for doubt in self.doubts for name in doubt.traced}
        found, before = [], ''
        for line in self.lines:
            text = said(line)
            name = traced_name(text.partition(' ')[2])
            state = ('line' if not text.startswith(trace.FAILURE) else 'no effect' if {name, before} & idle else
                     'folded' if trace.is_harmless(text.removeprefix(trace.FAILURE), self.ended) else 'failure')
            found.append((line, state))
            before = name
        return found

    def all_doubts(self) -> list[Doubt]:
        """What is to be explained, intended or not."""
        named = (SETTINGS, 'ProductName'), (UNINSTALL, 'DisplayName')
        emptied = [f'{key}!{name}' for key, name in named
                   if self.before.values.get((key, name)) and self.after.values.get((key, name)) == '']
        return [*(Doubt('NEVER LOOKED AT', short(path)) for path in self.never_looked_at()), *self.doubts,
                *(Doubt('NO TEXTS', f'{place}: the new name is due and empty: there is no StringTable.ini of this '
                                    'language') for place in emptied),
                *(Doubt('FAILURE', text) for text in self.failures()[0]
                  if self.answer != 'none' or 'WTSSendMessage() failed' not in text)]  # none: as it was asked for

    def left_behind(self) -> list[str]:
        """The user's settings that the update does not carry over, each with its old and new value."""
        return [f'{lost["setting"]}: {lost["old"]} -> {lost["new"]}' for lost in self.planned.get('leftBehind', [])]

    def shortcuts_not_made(self) -> list[str]:
        """The names of new shortcuts that do not exist after a deployment without the change of name."""
        old, new = (_described(state.content(PRODUCT + 'qorshcut.xml')) for state in (self.before, self.after))
        found = {path.rpartition('\\')[2].removesuffix('.lnk').casefold() for path in self.after.links}
        return [name for name in new if old and name not in old and name.casefold() not in found]

    def problems(self) -> list[tuple[str, str]]:
        """(what, where) of everything that keeps the update from being complete."""
        return [*self.harm(), *((doubt.label, doubt.where) for doubt in self.all_doubts()
                                if not self.intended.covers(doubt))]

    def harm(self) -> list[tuple[str, str]]:
        """(label, text) of every unwanted result, including intended ones."""
        rows = [('NOT ARRIVED', f'{short(path)}: {why}') for path, why in self.not_arrived().items()]
        rows += [('NOT ARRIVED', f'{name}: the update has none for this language')
                 for name in self.missing_in_language()]
        rows += [('NOT DELETED', short(path)) for path in self.not_deleted()]
        rows += [('NOT WRITTEN', name) for name in self.not_written()]
        rows += [('STILL WAITING', short(move.target or move.source)) for move in self.left
                 if move.target not in self.not_arrived()]
        rows += [('CHECKER FAILED', check.failure()) for check in self.checks() if check.failure()]
        rows += [('NO PLAN', line) for line in self.plan.lines]
        if self.verify.code != 0:
            names = [where.partition(': ')[0].removeprefix('HKLM\\').casefold() for _, where in rows]
            found = [line.partition(': ') for line in self.verify.lines
                     if not any(name in line.casefold() for name in names)]
            rows += [(verdict, short(what)) for verdict, _, what in found]
        return rows

    def checks(self) -> tuple[Check, ...]:
        return self.lint, self.plan, self.verify

    def complete(self) -> bool:
        return self.code == 0 and not self.problems() and self.verify.code == 0

    def exit_code(self) -> int:
        if self.code != 0:
            return 3
        if any(check.failure() for check in self.checks()):
            return 4
        return 0 if self.complete() else 1

    # -- what is shown --

    def summary(self) -> list[tuple[str, str]]:
        moved, deleted = len(self.replacements()), sum(not move.target for move in self.moves)
        commands = [text for text in self.commands if '/ApplyNewName' not in text]
        old, new = self.before.values, self.waiting.values
        values = sum(old.get(place) != new.get(place) and place[1] not in BOOKKEEPING for place in {**old, **new})
        renamed = ', the new name is due' if len(commands) < len(self.commands) else ''
        links = self.before.links, self.after.links
        made = sum(links[0].get(path) != link for path, link in links[1].items())
        texts = self.settings().values()
        secret = sum(bool(text and text.startswith('{protected}')) for text in texts)
        alone = sum(text is None for text in texts)
        failures, folded = self.failures()
        rows = [('before the restart', f'{moved + deleted} pending ({moved} replace, {deleted} delete), '
                                       f'{values} registry values, {len(commands)} commands{renamed}'),
                ('after the restart', f'{self.arrived()} of {moved} arrived')]
        rows += self.problems()
        planted = {short(path) for path in self.planted}
        rows += [(doubt.label, f'{doubt.where} ({"planted" if doubt.where in planted else "intended"})')
                 for doubt in self.all_doubts() if self.intended.covers(doubt)]
        rows += [('LEFT BEHIND', text) for text in self.left_behind()]
        if self.question:
            rows.append(('question', f'{self.question.get("title")}: "{self.question.get("message")}" '
                                     f'Answer: {self.answer}'))
        return rows + [
            ('shortcuts', f'{len(links[0].keys() - links[1].keys())} removed, {made} made'),
            *(('not made', f'{name} (the change of name makes shortcuts, and is not due)')
              for name in ([] if renamed else self.shortcuts_not_made())),
            ('settings', f'{len(texts) - secret - alone} carried over, {secret} secret, {alone} left alone'),
            ('trace', f'{len(self.lines)} lines, {len(failures)} failures{" (shown)" if failures else ""}, '
                      f'{len(folded)} folded'),
            *(('folded', text) for text in folded)]

    def lint_summary(self) -> str:
        return self.lint.failure() or (self.lint.lines[-1] if self.lint.lines else str(self.lint.code))

    def details(self) -> dict[str, list[Row]]:
        """Rows by room: files, registry, the agent's own values, shortcuts, settings, trace, and the
        checker's findings."""
        lost = self.planned.get('leftBehind', [])
        return {'files': self._file_rows(), 'registry': self._value_rows(False), 'agent': self._value_rows(True),
                'shortcuts': self._link_rows(),
                'settings': [Row(name, '', shown(text), 'left alone' if text is None else 'carried over')
                             for name, text in self.settings().items()]
                + [Row(setting['setting'], setting['old'], setting['new'], 'left behind') for setting in lost],
                'trace': [Row(line[:23], '', said(line), state) for line, state in self._traced()],
                'checker': [Row(verb, '', line, 'finding') for verb, lines in (
                    ('lint', self.lint.lines if self.lint.failure() else self.lint.lines[:-1]),  # without its sum
                    ('plan', self.plan.lines), ('verify', self.verify.lines)) for line in lines]}

    def _file_rows(self) -> list[Row]:
        missing, ignored = self.not_arrived(), set(self.never_looked_at())
        rows = []
        brought = {path.casefold() for path in self.packaged} - {path.casefold() for path in ignored}
        places = {path.casefold(): path for path in (*missing, *self.before.files, *self.after.files)}
        for path in sorted(path for name, path in places.items() if name not in brought):
            old, new = self.before.content(path), self.after.content(path)
            state = ('never looked at' if path in ignored else missing.get(path)
                     or ('same' if old == new else 'new' if old is None else 'gone' if new is None else 'changed'))
            rows.append(Row(path, _size(old), _size(new), state, '' if old == new else _diff(old, new)))
        for path in sorted(self.before.empty | self.after.empty):
            was, is_ = ('(empty folder)' if path in state.empty else None for state in (self.before, self.after))
            rows.append(Row(path, was or '', is_ or '', _state(was, is_)))
        return rows

    def _value_rows(self, bookkeeping: bool) -> list[Row]:
        old, new = self.before.values, self.after.values
        rows = []
        for place in sorted(place for place in {**old, **new} if (place[1] in BOOKKEEPING) == bookkeeping):
            was, is_ = (_typed(state, place) for state in (self.before, self.after))
            rows.append(Row(f'{place[0]}  {place[1] or "(Default)"}', was or '', is_ or '', _state(was, is_)))
        return rows

    def _link_rows(self) -> list[Row]:
        old, new = self.before.links, self.after.links
        return [Row(path, shown(old.get(path)), shown(new.get(path)), _state(old.get(path), new.get(path)))
                for path in sorted({**old, **new})]

    def as_json(self) -> dict[str, Any]:
        return {'format': 1, 'update': self.update, 'language': self.language, 'complete': self.complete(),
                'versions': self.versions, 'lintSummary': self.lint_summary(), 'leftBehind': self.left_behind(),
                'problems': self.problems(),
                'exitCode': self.exit_code(), 'agentCode': self.code, 'killAt': self.kill_at, 'ended': self.ended,
                'seconds': round(self.seconds, 1), 'question': self.question, 'summary': self.summary(),
                'lint': dataclasses.asdict(self.lint), 'plan': dataclasses.asdict(self.plan),
                'verify': dataclasses.asdict(self.verify),
                'details': {room: [row._asdict() for row in rows] for room, rows in self.details().items()}}


def _state(old: Any, new: Any) -> str:
    return 'same' if old == new else 'new' if old is None else 'gone' if new is None else 'changed'


def _described(content: Optional[bytes]) -> list[str]:
    """The names of the shortcuts that a description has; none when it cannot be read."""
    try:
        root = xml.etree.ElementTree.fromstring(content or b'')
    except (xml.etree.ElementTree.ParseError, ValueError, LookupError):
        return []
    return [(element.text or '').strip() for place in root if place.get('available') == '1'
            for element in place.iter() if element.tag.casefold() == 'shortcut']


def _typed(state: State, place: tuple[str, str]) -> Optional[str]:
    """A registry value with its type; None if it does not exist."""
    kind = state.kinds.get(place, '')
    return f'{KINDS.get(kind, kind)} {shown(state.values[place])}'.strip() if place in state.values else None


def _size(content: Optional[bytes]) -> str:
    return '' if content is None else f'({len(content)} bytes)'


def _diff(old: Optional[bytes], new: Optional[bytes]) -> str:
    """The lines in which two text files differ; empty if one of them is not a text file."""
    texts = [_text_of(content or b'') for content in (old, new)]
    if None in texts:
        return ''
    before, after = ((text or '').splitlines() for text in texts)
    lines = [line.rstrip('\n') for line in difflib.unified_diff(before, after, n=2, lineterm='')][2:]
    rest = len(lines) - MOST_LINES
    return '\n'.join([*lines[:MOST_LINES], *([f'... and {rest} more lines'] if rest > 0 else [])])


def said(line: str) -> str:
    """A trace line's message; what is no such line, as it is."""
    return trace.message(line) if trace.LINE.fullmatch(line) else line


def short(path: str) -> str:
    """A path below the install folder, or as it is."""
    return path[len(PRODUCT):] if path.casefold().startswith(PRODUCT.casefold()) else path


def shown(value: Any, most: int = 4000) -> str:
    """A value as text: contents of text files as they are, others by their size."""
    if value is None:
        return ''
    if isinstance(value, ShellLink):
        return '\n'.join(f'{name}: {text}' for name, text in value._asdict().items() if text)
    if not isinstance(value, bytes):
        return str(value)
    text = _text_of(value)
    if text is None:
        return f'({len(value)} bytes)'
    return text if len(text) <= most else f'{text[:most]}... ({len(text)} characters)'


def _text_of(content: bytes) -> Optional[str]:
    """A file's text with plain line ends; None for a file that is not text."""
    try:
        utf16 = content[:2] in (b'\xff\xfe', b'\xfe\xff')
        text = content.decode('utf-16' if utf16 else 'utf-8-sig').replace('\r\n', '\n')
    except UnicodeError:
        return None
    return None if re.search(r'[\x00-\x08\x0e-\x1f]', text) else text
