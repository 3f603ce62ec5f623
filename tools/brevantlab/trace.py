"""Lines of the debug trace."""
import re

# 13/11/2026 19:40:05.123 0a1c:0b20 @@@ <Brevant> message - Source.cpp(430)
LINE = re.compile(r'\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{3} [0-9a-f]{4}:[0-9a-f]{4} '
                  r'(\.w\.|@@@|!!!) <Brevant> (.*) - [A-Za-z0-9_]+\.cpp\(\d+\)')
FAILURE = '!!! '

# Harmless lines at the level of failures; docs/debug-trace.md says why.
HARMLESS = re.compile('|'.join((
    r'.* - QueryValue(\(QOR_CONFIG_MERGE\))? failed\. \[0x00000002\]',
    r'KzCommon::Storage::Reg::StoreValue\((?!.*failed).*\)',
    r"Failed to delete file '.*', error = 2\.",
    r'\[SHCreateItemFromParsingName\]failed\. .*\\Taskbar\\.*, hr=-2147024894',
    r'\*\*\* CoCreateInstance \[IStartMenuPinnedList\] failed\. \[0x80040154\]',
    r'\*\*\* ::WTSSendMessage\(\) failed\. \[0x00000000\]')))


# The same in the run after one that was ended before the restart.
SECOND_RUN = re.compile('|'.join((
    r'KzCommon::Storage::Reg::StoreValue\(\) failed\. Win32ErrorCode=2',
    r'Failed to copy UpdateInfo\.ini to iUD download source folder, error code is 80\. Modify installed one\.')))


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
    return bool(HARMLESS.fullmatch(failure) or second and SECOND_RUN.fullmatch(failure))
