// The folders of downloaded components: the download paths of "UpdateInfo.ini".
#pragma once

#include "common/KzComn_Machine.h"

#include <string>

/// A component's key in the section "COMPONENT_LIST" of "UpdateInfo.ini" and its identifier, which the updater uses as
/// the folder name when the key is missing.
struct DownloadKey {
    const wchar_t* szKey;
    const wchar_t* szDefault;
};

/// The product package's key on this Windows version.
[[nodiscard]] const DownloadKey& ProductDownloadKey() noexcept;

/// The resource package's key.
[[nodiscard]] const DownloadKey& ResourceDownloadKey() noexcept;

/// Normalizes a download path as Windows reads it: names between single backslashes, without ".", "..", trailing
/// separators and the trailing dots and spaces that Windows drops. False, with `tstrPath` unchanged, for a path that is
/// or leaves "Component\", starts with a separator or contains an invalid folder name: a drive, a stream, a device, a
/// wildcard.
[[nodiscard]] bool NormalizeDownloadPath(std::wstring& tstrPath);

/// Reads a normalized download path. Returns the default for a missing file, section or key, for an empty value and,
/// with a trace line, for an invalid value. False, with a trace line, when other programs keep the file open for about
/// two seconds: the path is then unknown. GetPrivateProfileStringW.
[[nodiscard]] bool ReadDownloadPath(const KzCommon::Machine& machine, const std::wstring& tstrUpdateInfo,
                                    const DownloadKey& key, std::wstring& tstrPath);
