// Paths of any length.
#pragma once

#include "common/KzComn_String.h"

#include <string>

namespace Check {

/// A full path with the prefix "\\?\", which Windows accepts at any length.
inline std::wstring AtAnyLength(const std::wstring& tstrFull)
{
    constexpr wchar_t kLong[] = L"\\\\?\\";
    if (!KzCommon::String::IsFullPath(tstrFull) || tstrFull.starts_with(kLong)) return tstrFull;
    return tstrFull.starts_with(L"\\\\") ? kLong + (L"UNC" + tstrFull.substr(1)) : kLong + tstrFull;
}

/// A full path, with the prefix if it may otherwise be too long: by default, Windows limits the length of paths.
inline std::wstring LongPath(const std::wstring& tstrFull)
{
    constexpr std::size_t kAlwaysTaken = 240;  // 259 characters, minus space for a name pattern
    return tstrFull.size() <= kAlwaysTaken ? tstrFull : AtAnyLength(tstrFull);
}

/// A path with a drive without the prefix "\\?\" or "\\.\"; any other path unchanged.
inline std::wstring WithoutPrefix(const std::wstring& tstrPath)
{
    constexpr std::size_t cchPrefix = 4;
    const bool bPrefix = tstrPath.starts_with(L"\\\\?\\") || tstrPath.starts_with(L"\\\\.\\");
    const bool bDrive = bPrefix && tstrPath.size() > cchPrefix + 2 && tstrPath[cchPrefix + 1] == L':';
    return bDrive ? tstrPath.substr(cchPrefix) : tstrPath;
}

}  // namespace Check
