// Texts: folder texts, path parts, fields, conversions.
#pragma once

#include <windows.h>

#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace KzCommon::String {

/// The folder text with a trailing backslash. An empty text (an unknown folder) stays empty.
[[nodiscard]] std::wstring EnsureBackslash(std::wstring tstrFolder);

/// `tstrFolder`, a backslash if missing, and `tstrName`. An empty folder gives only the name.
[[nodiscard]] std::wstring JoinPath(const std::wstring& tstrFolder, std::wstring_view tstrName);

/// The part of a narrow path after the last slash or backslash, within the same text.
[[nodiscard]] const char* BaseName(const char* szPath) noexcept;

/// Whether a path begins with a drive and a backslash or with a share, so that the current folder has no influence.
[[nodiscard]] bool IsFullPath(std::wstring_view tstrPath) noexcept;

/// The folder `tstrName` below `tstrFolder`, with trailing backslash; empty below an empty (unknown) folder.
[[nodiscard]] std::wstring FolderBelow(const std::wstring& tstrFolder, std::wstring_view tstrName);

/// The path up to and including its last separator; empty for a bare name.
[[nodiscard]] std::wstring FolderPart(std::wstring_view tstrPath);

/// The parts of a path as returned by _wsplitpath_s, with the runtime's limits (drive 2, others 255 characters).
struct PathParts {
    wchar_t szDrive[_MAX_DRIVE] = {};
    wchar_t szDir[_MAX_DIR] = {};
    wchar_t szName[_MAX_FNAME] = {};
    wchar_t szExt[_MAX_EXT] = {};
};

/// Splits a path. Returns 0 or the errno value of _wsplitpath_s, and then sets GetLastError() to ERROR_BUFFER_OVERFLOW
/// (111, a part is too long) or ERROR_INVALID_PARAMETER (87).
[[nodiscard]] int SplitPath(const std::wstring& tstrPath, PathParts& parts);

/// Splits at runs of `chSeparator` with wcstok_s, so that empty fields disappear. Returns at most `cMaxFields` fields;
/// `bMore` is set if the text has more. `pOffsets` receives the beginning of each field.
[[nodiscard]] std::vector<std::wstring> SplitFields(const std::wstring& tstrText, wchar_t chSeparator,
                                                    std::size_t cMaxFields, bool& bMore,
                                                    std::vector<std::size_t>* pOffsets = nullptr);

/// Replaces every occurrence of `tstrFrom` (case-sensitive) in one pass from the left.
void ReplaceAll(std::wstring& tstrText, std::wstring_view tstrFrom, std::wstring_view tstrTo);

/// Ordinal case-insensitive comparison. CompareStringOrdinal.
[[nodiscard]] bool EqualsNoCase(std::wstring_view tstrLeft, std::wstring_view tstrRight) noexcept;

/// The same comparison as the order of sets and maps: for paths and names of values and keys. CompareStringOrdinal.
struct OrdinalNoCase {
    using is_transparent = void;
    [[nodiscard]] bool operator()(std::wstring_view tstrLeft, std::wstring_view tstrRight) const noexcept;
};
using NoCaseSet = std::set<std::wstring, OrdinalNoCase>;
template <class Value>
using NoCaseMap = std::map<std::wstring, Value, OrdinalNoCase>;

/// The text in lower case, for searching. Sets and maps use OrdinalNoCase instead. CharLowerBuffW.
[[nodiscard]] std::wstring LowerCase(std::wstring tstrText);

/// The text without the characters of `szSpaces` at both ends.
[[nodiscard]] std::wstring_view Trim(std::wstring_view tstrText, const wchar_t* szSpaces) noexcept;

/// Whether a text begins with another one, compared as in EqualsNoCase().
[[nodiscard]] bool StartsWithNoCase(std::wstring_view tstrText, std::wstring_view tstrBegin) noexcept;

/// Whether a path is below a folder (with trailing backslash), comparing only the texts; never below an empty one.
[[nodiscard]] bool IsBelow(std::wstring_view tstrPath, std::wstring_view tstrFolder) noexcept;

/// The decimal text of a number; false, with ERROR_INVALID_DATA in GetLastError(), on failure. Boost.LexicalCast.
[[nodiscard]] bool UlToStr(unsigned long ulValue, std::wstring& tstrText);

/// Converts a strictly decimal text (digits only, no sign, no spaces) to a number; 0 for any other text and on
/// overflow. Boost.LexicalCast.
[[nodiscard]] DWORD ToDwordStrict(const std::wstring& tstrText) noexcept;
/// Likewise for 64 bits.
[[nodiscard]] ULONGLONG ToQwordStrict(const std::wstring& tstrText) noexcept;

/// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD. WideCharToMultiByte.
[[nodiscard]] std::string ToUtf8(std::wstring_view tstrText);

/// UTF-8 to UTF-16; false, with `tstrText` unchanged, for invalid UTF-8. MultiByteToWideChar.
[[nodiscard]] bool FromUtf8(std::string_view strBytes, std::wstring& tstrText);

/// Bytes of UTF-16, little-endian without a BOM. Drops half a character at the end.
[[nodiscard]] std::wstring FromUtf16(std::string_view strBytes);

/// Text of the narrow code page (the system's ANSI code page) to UTF-16. MultiByteToWideChar.
[[nodiscard]] std::wstring FromAnsi(std::string_view strText);

}  // namespace KzCommon::String
