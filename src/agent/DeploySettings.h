// The settings step: what the update changes besides replacing files.
#pragma once

#include "agent/PathValues.h"

#include <span>
#include <string>

/// A settings file that the update brings once for each language, "base_LANGUAGE.extension"; the one of the product's
/// language becomes "base.extension".
struct LanguageFile {
    const wchar_t* szBase;
    const wchar_t* szExtension;
};

/// All of them.
[[nodiscard]] std::span<const LanguageFile> LanguageFiles() noexcept;

/// Whether the update information is changed in a copy of the installed file, which is then deployed with the settings:
/// there is one, and the update brings none of its own. Otherwise the installed file is changed. GetFileAttributesW.
[[nodiscard]] bool IsUpdateInfoCopied(const std::wstring& tstrInstalled, const std::wstring& tstrDownloaded);

/// What the settings step does before its files are copied: patches the registry, makes the settings files of the
/// product's language the installed ones, merges the configuration and edits the update information. False, with a
/// trace line, when the package has no settings folder: then only the registry is patched.
[[nodiscard]] bool PrepareSettings(const PathValues& pathValues);
