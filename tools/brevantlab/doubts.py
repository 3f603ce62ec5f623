"""Results that an update's author has to explain: records without effect, a missing package, missing texts, unknown
failures. Most of them come from the plan of the run (BrevantCheck plan)."""
import argparse
import pathlib
import re
from typing import Any, Iterator, NamedTuple, Sequence

from .layouts import text_of
from .machine import PRODUCT

# What a comment in the instruction file, "; BrevantCheck: CODE...", or --allow calls each of them.
CODES = {'NEVER LOOKED AT': {'B070'}, 'NO EFFECT': {'NO-EFFECT', 'B045'}, 'NO PACKAGE': {'B074'},
         'NO TEXTS': {'B072', 'B091', 'B092'}, 'FAILURE': {'FAILURE'}}
PACKAGES = 'Component101_DownloadPath', 'Component2_DownloadPath'
WORDS = sorted(set().union(*CODES.values()))
# Actions of a plan that do nothing: outcome, the beginnings of the reasons.
NOTHING = {'delete': ('stay', ('no file matches', 'there is no such folder')),
           'deleteValue': ('stay', ('there is no such value',)), 'writeIni': ('new', ('',))}
WHY = {'delete': 'no file or folder matches', 'deleteValue': 'there is no such value',
       'writeIni': 'the installed UpdateInfo.ini has no such key'}
# What the trace says of them: a failure line that has all of it or, if it names nothing, the line before it.
TRACED = {'delete': ("Failed to delete file '{}', error = 2.", "Failed to delete file '{}', error = 3.",
                     "No files under directory '{}'"),
          'deleteValue': ('To delete registry key: {}:{}',), 'writeIni': ()}


class Doubt(NamedTuple):
    label: str  # a name of CODES
    where: str
    record: str = ''  # of the instruction file, as record_name() says
    traced: tuple[str, ...] = ()  # its failure lines, or the lines before them, as traced_name() says

    def codes(self) -> set[str]:
        return CODES[self.label]


def record_name(section: str, key: str, value: str) -> str:
    return f'[{section}] {key}={value}'.casefold()


def traced_name(message: str) -> str:
    """A message of the trace without what differs between the same places."""
    return message.casefold().replace("\\'", "'")


def allowance(text: str) -> str:
    """Accepts for --allow a word of WORDS, or a part of a line. Any other single word is a slip."""
    if re.fullmatch(r'\s*|[\w-]+', text) and text.upper() not in WORDS:
        raise argparse.ArgumentTypeError(f'no such word: "{text}". The words are {", ".join(WORDS)}. A part of a line '
                                         'that is shown has more than letters and digits, as Sync!Port')
    return text


class Intended(NamedTuple):
    """What the update's author, or the caller, has declared as intended."""
    whole: frozenset[str] = frozenset()  # codes for the whole update
    records: dict[str, frozenset[str]] = {}  # codes by record_name()
    allowed: tuple[str, ...] = ()  # --allow: codes, or parts of what is shown

    def covers(self, doubt: Doubt) -> bool:
        codes = {*self.whole, *self.records.get(doubt.record, ()), *(text.upper() for text in self.allowed)}
        shown = f'{doubt.label} {doubt.where}'.casefold()
        return bool(codes & doubt.codes()) or any(text.casefold() in shown for text in self.allowed)


def read_intended(update: pathlib.Path, allowed: Sequence[str] = ()) -> Intended:
    """The comments of the instruction file: before the first section for the whole update, else for the next line."""
    whole: set[str] = set()
    records: dict[str, frozenset[str]] = {}
    section, codes = '', set[str]()
    for line in map(str.strip, text_of(update / 'QorPaFrwk.ini').splitlines()):
        if match := re.match(r';\s*BrevantCheck:(.*)', line):
            (codes if section else whole).update(match[1].split())
        elif line.startswith('['):
            section, codes = line.strip('[]'), set()
        elif '=' in line and not line.startswith(';'):
            key, _, value = line.partition('=')
            if codes:
                records[record_name(section, key.strip(), value.strip())] = frozenset(codes)
            codes = set()
    return Intended(frozenset(whole), records, tuple(allowed))


def doubts_of(planned: dict[str, Any], sections: dict[str, list[tuple[str, str]]],
              missing: Sequence[str]) -> list[Doubt]:
    """The doubts in the plan of a run; `missing`: packages that UpdateInfo.ini names and that do not exist."""
    found = [Doubt('NO PACKAGE', f'Component\\{name}: UpdateInfo.ini names it, but it does not exist')
             for name in missing]
    changes = [change for step in planned.get('steps', []) for change in step['changes']]
    for change in changes:
        if change['action'] == 'ask' and change['outcome'] != 'stay' and change.get('reason') == 'built-in texts':
            found.append(Doubt('NO TEXTS', 'the new name is due, and there is no [RestartNotification_...] of this '
                                           'language: the built-in English question is shown'))
    return found + list(_without_effect(changes, sections))


def _without_effect(changes: list[dict[str, Any]], sections: dict[str, list[tuple[str, str]]]) -> Iterator[Doubt]:
    idle = [change for change in changes if change['action'] in NOTHING
            and change['outcome'] == NOTHING[change['action']][0]
            and change.get('reason', '').startswith(NOTHING[change['action']][1])]
    records = [(section, key, value) for section, pairs in sections.items() for key, value in pairs]
    found: dict[str, Doubt] = {}

    def is_vague(record: tuple[str, str, str]) -> bool:
        return bool(re.match(r'\{(?!installeddir\})', record[2], re.IGNORECASE))
    # A change is that of one record. Of a folder behind another placeholder only the end of the path is known: such
    # records take what the others leave.
    for section, key, value in sorted(records, key=is_vague):
        if change := next((change for change in idle if _is_of(change, section, key, value)), None):
            idle.remove(change)
            name = record_name(section, key, value)
            found.setdefault(name, Doubt('NO EFFECT', f'[{section}] {key}={value}: {WHY[change["action"]]}', name,
                                         _traced(change)))
    for name in dict.fromkeys(record_name(*record) for record in records):
        if name in found:
            yield found[name]


def _traced(change: dict[str, Any]) -> tuple[str, ...]:
    place = change['target'].replace('HKEY_LOCAL_MACHINE\\', 'HKEY_LOCAL_MACHINE:').rstrip('\\')
    return tuple(traced_name(text.format(place, change.get('name', ''))) for text in TRACED[change['action']])


def _is_of(change: dict[str, Any], section: str, key: str, value: str) -> bool:
    """Whether a planned change that does nothing comes from that record."""
    action, target = change['action'], change['target'].casefold().rstrip('\\')
    if action == 'delete' and section in ('QOR_DIR', 'QOR_FILE') and key.startswith('delete'):
        head, brace, tail = value.casefold().rstrip('\\').rpartition('}')
        if head == '{installeddir':
            return target == PRODUCT.casefold() + tail
        return bool(tail) and (target == tail or bool(brace) and target.endswith('\\' + tail))
    fields = [field.casefold() for field in value.split('!')]
    if action == 'deleteValue' and section == 'QOR_REGISTRY_PATCH' and key == 'delete':
        return len(fields) > 1 and target.endswith('\\' + fields[0].strip('\\')) and (
            change.get('name', '').casefold() == fields[1])
    if action == 'writeIni' and section == 'UPDATE_INFO' and len(fields) > 2:
        return change.get('name', '').casefold() == f'[{fields[0]}] {fields[1]}'
    return False


def packages_of(text: str) -> list[str]:
    """The packages that the text of an UpdateInfo.ini names."""
    found = dict(re.findall(r'^(\w+)\s*=\s*(.+?)\s*$', text, re.M))
    return [found[key] for key in PACKAGES if found.get(key)]
