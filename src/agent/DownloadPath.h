// Where the updater put a component: the download paths of "UpdateInfo.ini".
#pragma once

#include <string>
#include <string_view>

/// A component's key in the section "COMPONENT_LIST" of "UpdateInfo.ini", and its own identifier, which is the name of
/// the folder that the updater uses when the key is missing.
struct DownloadKey {
    const wchar_t* szKey;
    const wchar_t* szDefault;
};

/// The product package's key on this Windows.
[[nodiscard]] const DownloadKey& ProductDownloadKey() noexcept;

/// The resource package's key.
[[nodiscard]] const DownloadKey& ResourceDownloadKey() noexcept;

/// Whether a download path names a folder below "Component\" and nothing else, whatever Windows makes of it: plain
/// names between single backslashes, none of which ends in a dot or a blank; one backslash may follow.
[[nodiscard]] bool IsDownloadPath(std::wstring_view tstrPath) noexcept;

/// Reads a download path. The default stands for a missing file, section or key, for an empty value and, with a trace
/// line, for a value that is no download path. False, with a trace line, for a file that other programs hold open,
/// after some two seconds: what it says is not known. GetPrivateProfileStringW.
[[nodiscard]] bool ReadDownloadPath(const std::wstring& tstrUpdateInfo, const DownloadKey& key, std::wstring& tstrPath);
