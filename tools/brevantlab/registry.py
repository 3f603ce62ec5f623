"""Registry files (.reg): values to their text and back."""
import re
from typing import Any, Optional

Data = Any  # text, number, list of texts or bytes
Tree = dict[str, dict[str, tuple[str, Data]]]  # subkey ('' for the key itself): value name: (kind, data)

HEADER = 'Windows Registry Editor Version 5.00'
ROOTS = {'HKLM': 'HKEY_LOCAL_MACHINE', 'HKCU': 'HKEY_CURRENT_USER', 'HKCR': 'HKEY_CLASSES_ROOT', 'HKU': 'HKEY_USERS'}
KINDS = {'': 'binary', '(2)': 'expand', '(7)': 'multi', '(b)': 'qword', '(4)': 'dword', '(0)': 'none'}


def long_key(key: str) -> str:
    """A key with its root written out: 'HKLM\\...' as 'HKEY_LOCAL_MACHINE\\...'."""
    root, _, rest = key.partition('\\')
    return f'{ROOTS.get(root, root)}\\{rest}'


def _escape(text: str) -> str:
    return text.replace('\\', '\\\\').replace('"', '\\"')


def line_of(name: str, data: Data, kind: Optional[str] = None) -> str:
    """The line of a value, the unnamed one without a name: text, number, list of texts or bytes; kind 'expand' for
    REG_EXPAND_SZ, 'qword' for a number of 64 bits."""
    quoted = f'"{_escape(name)}"' if name else '@'
    return f'{quoted}={_format(data, kind)}'


def _format(data: Data, kind: Optional[str]) -> str:
    if kind == 'qword':
        return 'hex(b):' + ','.join(f'{byte:02x}' for byte in data.to_bytes(8, 'little'))
    if isinstance(data, int):
        return f'dword:{data & 0xFFFFFFFF:08x}'
    if isinstance(data, str) and kind != 'expand':
        return f'"{_escape(data)}"'
    if isinstance(data, str):
        mark, content = '(2)', f'{data}\0'.encode('utf-16-le')
    elif isinstance(data, bytes):
        mark, content = '', data
    else:
        mark, content = '(7)', '\0'.join([*data, '', ''] if data else ['', '']).encode('utf-16-le')
    return f'hex{mark}:' + ','.join(f'{byte:02x}' for byte in content)


def _value(text: str) -> tuple[str, Data]:
    if text.startswith('"'):
        return 'sz', re.sub(r'\\(.)', r'\1', text[1:-1])
    if text.startswith('dword:'):
        return 'dword', int(text[6:], 16)
    mark, _, digits = text.removeprefix('hex').partition(':')
    content = bytes.fromhex(digits.replace(',', ' '))
    kind = KINDS.get(mark, mark)
    if kind == 'expand':
        return kind, content.decode('utf-16-le').rstrip('\0')
    if kind == 'multi':
        # Each text ends in a zero and so does the list; texts inside it may be empty.
        return kind, content.decode('utf-16-le').removesuffix('\0').split('\0')[:-1]
    return kind, int.from_bytes(content, 'little') if kind == 'qword' else content


def parse(text: str, key: str) -> Tree:
    """The values of a key's export, by subkey."""
    tree: Tree = {}
    values: dict[str, tuple[str, Data]] = {}
    for line in re.sub(r'\\\n *', '', text.replace('\r\n', '\n')).split('\n'):
        if line.startswith('['):
            values = tree.setdefault(line[1 + len(long_key(key)):-1].lstrip('\\'), {})
        elif match := re.match(r'(?:"((?:[^"\\]|\\.)*)"|@)=(.*)', line):
            values[re.sub(r'\\(.)', r'\1', match[1] or '')] = _value(match[2])
    return tree
