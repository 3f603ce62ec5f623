// Where the updater put a component: the download paths of "UpdateInfo.ini".
#pragma once

#include "common/KzComn_Machine.h"

#include <string>

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

/// Writes a download path as Windows reads it: names between single backslashes, without ".", "..", separators at the
/// end, and the dots and spaces that Windows drops at the end of a name. False, with `tstrPath` left as it is, for a
/// path that leaves "Component\" or is that folder itself, begins with a separator, or has a name in it that no folder
/// can have: a drive, a stream, a device, a wildcard.
[[nodiscard]] bool NormalizeDownloadPath(std::wstring& tstrPath);

/// Reads a download path, normalized. The default stands for a missing file, section or key, for an empty value and,
/// with a trace line, for a value that is no download path. False, with a trace line, for a file that other programs
/// hold open, after some two seconds: what it says is not known. GetPrivateProfileStringW.
[[nodiscard]] bool ReadDownloadPath(const KzCommon::Machine& machine, const std::wstring& tstrUpdateInfo,
                                    const DownloadKey& key, std::wstring& tstrPath);
