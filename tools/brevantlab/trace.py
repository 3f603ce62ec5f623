"""Lines of the debug trace."""
import re

# 13/11/2026 19:40:05.123 0a1c:0b20 @@@ <Brevant> message - Source.cpp(430)
LINE = re.compile(r'\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3} [0-9a-f]{4}:[0-9a-f]{4} '
                  r'(\.w\.|@@@|!!!) <Brevant> (.*) - [A-Za-z0-9_]+\.cpp\(\d+\)')
FAILURE = '!!! '

# Harmless lines at the level of failures, and why; docs/debug-trace.md says more.
HARMLESS = [(re.compile(line), why) for line, why in (
    (r'.* - QueryValue(\(QOR_CONFIG_MERGE\))? failed\. \[0x00000002\]', 'the update has no such section'),
    (r'KzCommon::Storage::Reg::StoreValue\((?!.*failed).*\)', 'the value was missing and has been written'),
    (r"Failed to delete file '.*', error = 2\.", 'there was nothing to delete'),
    (r'\[SHCreateItemFromParsingName\]failed\. .*\\Taskbar\\.*, hr=-2147024894', 'it was not pinned'),
    (r'\*\*\* CoCreateInstance \[IStartMenuPinnedList\] failed\. \[0x80040154\]', 'the shell has no such list'),
    (r'\*\*\* ::WTSSendMessage\(\) failed\. \[0x00000000\]', 'Wine shows no question'))]
# The same in the run after one that was ended before the restart.
SECOND_RUN = [(re.compile(line), 'the first run has done it') for line in (
    r'KzCommon::Storage::Reg::StoreValue\(\) failed\. Win32ErrorCode=2',
    r'Failed to copy UpdateInfo\.ini to iUD download source folder, error code is 80\. Modify installed one\.')]


def message(line: str) -> str:
    """What a line says, as 'TAG message' (TAG as in the file); a line of another form is an error."""
    match = LINE.fullmatch(line)
    if not match:
        raise ValueError(f'no line of the trace: {line!r:.200}')
    return ' '.join(match.groups())


def failures(messages: list[str]) -> list[str]:
    """The messages at the level of failures, their tag left out."""
    return [text.removeprefix(FAILURE) for text in messages if text.startswith(FAILURE)]


def is_harmless(failure: str, second: bool = False) -> bool:
    """Whether a failure's text, its tag left out, is one that support may pass over; `second`: an earlier run was ended
    before the restart."""
    return bool(why_harmless(failure, second))


def why_harmless(failure: str, second: bool = False) -> str:
    """The reason for is_harmless(); empty for a real failure."""
    return next((why for line, why in [*HARMLESS, *(SECOND_RUN if second else [])] if line.fullmatch(failure)), '')
