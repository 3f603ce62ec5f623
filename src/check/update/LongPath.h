// Paths of any length.
#pragma once

#include "common/KzComn_String.h"

#include <string>

namespace Check {

/// A full path in the form that Windows takes at any length, with "\\?\" in front.
inline std::wstring AtAnyLength(const std::wstring& tstrFull)
{
    constexpr wchar_t kLong[] = L"\\\\?\\";
    if (!KzCommon::String::IsFullPath(tstrFull) || tstrFull.starts_with(kLong)) return tstrFull;
    return tstrFull.starts_with(L"\\\\") ? kLong + (L"UNC" + tstrFull.substr(1)) : kLong + tstrFull;
}

/// A full path in the form that Windows takes at any length when it may be too long as it is.
/// Without that, long paths need a setting of the machine that is off unless somebody switches it on.
inline std::wstring LongPath(const std::wstring& tstrFull)
{
    constexpr std::size_t kAlwaysTaken = 240;  // 259 characters, room left for a name pattern
    return tstrFull.size() <= kAlwaysTaken ? tstrFull : AtAnyLength(tstrFull);
}

/// A path of a drive without a prefix for Windows' own names, "\\?\" or "\\.\", in front; any other as it is.
inline std::wstring WithoutPrefix(const std::wstring& tstrPath)
{
    constexpr std::size_t cchPrefix = 4;
    const bool bPrefix = tstrPath.starts_with(L"\\\\?\\") || tstrPath.starts_with(L"\\\\.\\");
    const bool bDrive = bPrefix && tstrPath.size() > cchPrefix + 2 && tstrPath[cchPrefix + 1] == L':';
    return bDrive ? tstrPath.substr(cchPrefix) : tstrPath;
}

}  // namespace Check
