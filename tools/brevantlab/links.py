"""Reads shell link files (.lnk) without help of the system that wrote them."""
import struct
from typing import NamedTuple


class ShellLink(NamedTuple):
    target: str
    icon: str
    arguments: str
    description: str
    folder: str


HEADER = 0x4C
HAS_ID_LIST, HAS_LINK_INFO, HAS_NAME, HAS_RELATIVE_PATH, HAS_FOLDER, HAS_ARGUMENTS, HAS_ICON, IS_UNICODE = (
    1 << bit for bit in range(8))


def read_link(content: bytes) -> ShellLink:
    """The link in the bytes of a .lnk file; texts that it does not hold are empty."""
    size, flags, icon_index = struct.unpack_from('<I16xI32xi', content)
    if size != HEADER or not flags & IS_UNICODE:
        raise ValueError('no shell link')
    offset = HEADER
    if flags & HAS_ID_LIST:
        offset += 2 + struct.unpack_from('<H', content, offset)[0]
    target = ''
    if flags & HAS_LINK_INFO:
        length, base = struct.unpack_from('<I12xI', content, offset)
        target = content[offset + base:].split(b'\0', 1)[0].decode('cp1252')
        offset += length
    texts = {}
    for flag in (HAS_NAME, HAS_RELATIVE_PATH, HAS_FOLDER, HAS_ARGUMENTS, HAS_ICON):
        if flags & flag:
            end = offset + 2 + 2 * struct.unpack_from('<H', content, offset)[0]
            texts[flag] = content[offset + 2:end].decode('utf-16-le').rstrip('\0')
            offset = end
    if icon_index:
        texts[HAS_ICON] = f'{texts.get(HAS_ICON, "")},{icon_index}'  # none of the agent's links has one
    return ShellLink(target, *(texts.get(flag, '') for flag in (HAS_ICON, HAS_ARGUMENTS, HAS_NAME, HAS_FOLDER)))
