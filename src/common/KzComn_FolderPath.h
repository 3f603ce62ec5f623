// Folder paths and link checks. Has no other dependencies, because the trace library uses it as well.
#pragma once

#include "common/KzComn_Handle.h"

#include <windows.h>

#include <algorithm>
#include <string>

namespace KzCommon::Storage::Directory {

/// The full path without trailing backslashes, or unchanged on failure. GetFullPathNameW.
[[nodiscard]] inline std::wstring FullPath(const std::wstring& tstrPath)
{
    std::wstring tstrFull(::GetFullPathNameW(tstrPath.c_str(), 0, nullptr, nullptr), L'\0');
    tstrFull.resize(
        ::GetFullPathNameW(tstrPath.c_str(), static_cast<DWORD>(tstrFull.size()), tstrFull.data(), nullptr));
    if (tstrFull.empty()) tstrFull = tstrPath;
    while (!tstrFull.empty() && tstrFull.back() == L'\\') tstrFull.pop_back();
    return tstrFull;
}

/// The length of the drive ("C:") or share ("\\\\server\\share") of a full path, in characters.
[[nodiscard]] inline std::size_t RootLength(const std::wstring& tstrFull)
{
    const bool bLong = tstrFull.starts_with(L"\\\\?\\");
    const bool bLongShare = tstrFull.starts_with(L"\\\\?\\UNC\\");
    const bool bShare = bLongShare || (!bLong && tstrFull.starts_with(L"\\\\"));
    std::size_t uEnd = tstrFull.find(L'\\', bLongShare ? 8 : bLong ? 4 : bShare ? 2 : 0);
    if (bShare && uEnd != std::wstring::npos) uEnd = tstrFull.find(L'\\', uEnd + 1);
    return std::min(uEnd, tstrFull.size());
}

/// Whether a reparse point with this tag is a link. A reparse point that does not replace the name (a cloud file, for
/// example) is an ordinary entry. Without a tag, it counts as a link to be safe.
[[nodiscard]] constexpr bool IsLinkTag(DWORD dwTag) noexcept
{
    return dwTag == 0 || IsReparseTagNameSurrogate(dwTag);
}

/// Whether `tstrPath` is a junction or symbolic link; true also for a reparse point with an unknown tag.
/// FindFirstFileW.
[[nodiscard]] inline bool IsLink(const std::wstring& tstrPath)
{
    const std::wstring tstrFull = FullPath(tstrPath);
    const DWORD dwAttributes = ::GetFileAttributesW(tstrFull.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES || !(dwAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) return false;
    WIN32_FIND_DATAW data{};
    const UniqueFind find(::FindFirstFileW(tstrFull.c_str(), &data));
    return !find || ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsLinkTag(data.dwReserved0));
}

}  // namespace KzCommon::Storage::Directory
