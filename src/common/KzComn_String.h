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

/// The folder text with its trailing backslash. An empty text stays empty: no folder is known.
[[nodiscard]] std::wstring EnsureBackslash(std::wstring tstrFolder);

/// `tstrFolder`, a backslash where it is missing, and `tstrName`. An empty folder gives the name alone.
[[nodiscard]] std::wstring JoinPath(const std::wstring& tstrFolder, std::wstring_view tstrName);

/// What stands after the last slash or backslash of a narrow path, within the same text.
[[nodiscard]] const char* BaseName(const char* szPath) noexcept;

/// Whether a path begins with a drive and a backslash or names a share: it means the same from every current folder.
[[nodiscard]] bool IsFullPath(std::wstring_view tstrPath) noexcept;

/// The folder `tstrName` below `tstrFolder`, with its trailing backslash; below an empty folder, one that is not known,
/// there is none.
[[nodiscard]] std::wstring FolderBelow(const std::wstring& tstrFolder, std::wstring_view tstrName);

/// A path up to and with its last separator; empty for a name alone.
[[nodiscard]] std::wstring FolderPart(std::wstring_view tstrPath);

/// A path as _wsplitpath_s takes it apart, every part with the runtime's limits (drive 2, others 255 characters).
struct PathParts {
    wchar_t szDrive[_MAX_DRIVE] = {};
    wchar_t szDir[_MAX_DIR] = {};
    wchar_t szName[_MAX_FNAME] = {};
    wchar_t szExt[_MAX_EXT] = {};
};

/// Splits a path; 0, or the errno value of _wsplitpath_s, with ERROR_BUFFER_OVERFLOW (111, a part is too long) or
/// ERROR_INVALID_PARAMETER (87) left in GetLastError().
[[nodiscard]] int SplitPath(const std::wstring& tstrPath, PathParts& parts);

/// Splits at runs of `chSeparator` with wcstok_s, so that empty fields vanish. At most `cMaxFields` fields are
/// returned; `bMore` tells that the text holds further ones. `pOffsets` receives where each field begins.
[[nodiscard]] std::vector<std::wstring> SplitFields(const std::wstring& tstrText, wchar_t chSeparator,
                                                    std::size_t cMaxFields, bool& bMore,
                                                    std::vector<std::size_t>* pOffsets = nullptr);

/// Replaces every occurrence of `tstrFrom` (compared exactly), in one pass from the left.
void ReplaceAll(std::wstring& tstrText, std::wstring_view tstrFrom, std::wstring_view tstrTo);

/// Ordinal comparison without regard to case. CompareStringOrdinal.
[[nodiscard]] bool EqualsNoCase(std::wstring_view tstrLeft, std::wstring_view tstrRight) noexcept;

/// The same comparison as the order of sets and maps: of paths, names of values and keys. CompareStringOrdinal.
struct OrdinalNoCase {
    using is_transparent = void;
    [[nodiscard]] bool operator()(std::wstring_view tstrLeft, std::wstring_view tstrRight) const noexcept;
};
using NoCaseSet = std::set<std::wstring, OrdinalNoCase>;
template <class Value>
using NoCaseMap = std::map<std::wstring, Value, OrdinalNoCase>;

/// The text in lower case, to search in it. Sets and maps compare by OrdinalNoCase instead. CharLowerBuffW.
[[nodiscard]] std::wstring LowerCase(std::wstring tstrText);

/// The text without the characters of `szSpaces` at both ends.
[[nodiscard]] std::wstring_view Trim(std::wstring_view tstrText, const wchar_t* szSpaces) noexcept;

/// Whether a text begins with another one, without regard to case as above.
[[nodiscard]] bool StartsWithNoCase(std::wstring_view tstrText, std::wstring_view tstrBegin) noexcept;

/// Whether a path lies below a folder (with trailing backslash), by their texts alone; below an empty one nothing lies.
[[nodiscard]] bool IsBelow(std::wstring_view tstrPath, std::wstring_view tstrFolder) noexcept;

/// The decimal text of a number; false, with ERROR_INVALID_DATA left in GetLastError(), when it cannot be
/// made. Boost.LexicalCast.
[[nodiscard]] bool UlToStr(unsigned long ulValue, std::wstring& tstrText);

/// Strictly decimal text (digits only, no sign, no blanks) to a number; 0 for any other text and for a number that does
/// not fit. Boost.LexicalCast.
[[nodiscard]] DWORD ToDwordStrict(const std::wstring& tstrText) noexcept;
/// The same for 64 bits.
[[nodiscard]] ULONGLONG ToQwordStrict(const std::wstring& tstrText) noexcept;

/// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD. WideCharToMultiByte.
[[nodiscard]] std::string ToUtf8(std::wstring_view tstrText);

/// UTF-8 to UTF-16; false, with `tstrText` left alone, when the bytes are not valid UTF-8. MultiByteToWideChar.
[[nodiscard]] bool FromUtf8(std::string_view strBytes, std::wstring& tstrText);

/// Bytes of UTF-16, low byte first and without a BOM. Half a character at the end is dropped.
[[nodiscard]] std::wstring FromUtf16(std::string_view strBytes);

/// Text of the narrow code page (the system's ANSI code page) to UTF-16. MultiByteToWideChar.
[[nodiscard]] std::wstring FromAnsi(std::string_view strText);

}  // namespace KzCommon::String
