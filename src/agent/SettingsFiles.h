// The settings files with a meaning for the agent: which exist and their names. DeploySettings.h and ConfigMerge.h use
// them.
#pragma once

#include "common/KzComn_Machine.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// A settings file that the update contains once per language as "base_LANGUAGE.extension". The file of the product's
/// language becomes "base.extension".
struct LanguageFile {
    const wchar_t* szBase;
    const wchar_t* szExtension;
    bool bMerged = false;  ///< receives the user's values before it is put in place
};

/// All language files.
[[nodiscard]] std::span<const LanguageFile> LanguageFiles() noexcept;

/// The installed name: "config.xml".
[[nodiscard]] std::wstring InstalledName(const LanguageFile& file);
/// The name for a language: "config_EN-US.xml".
[[nodiscard]] std::wstring NameInLanguage(const LanguageFile& file, const std::wstring& tstrLanguage);
/// The language in a file's name (case-insensitive); empty for a name of another form.
[[nodiscard]] std::optional<std::wstring> LanguageOf(const LanguageFile& file, std::wstring_view tstrName);

/// Whether the update contains its own update information, or another object with that name among the settings.
[[nodiscard]] bool BringsUpdateInfo(const KzCommon::Machine& machine, const std::wstring& tstrDownloaded);

/// Whether a copy of the installed update information is changed and deployed with the settings: the file exists and
/// the update contains none. Otherwise the installed file is changed directly.
[[nodiscard]] bool IsUpdateInfoCopied(const KzCommon::Machine& machine, const std::wstring& tstrInstalled,
                                      const std::wstring& tstrDownloaded);

/// Whether a kept file is the user's file: a hard link to it or a file with the same content.
[[nodiscard]] bool IsKeptIn(const KzCommon::Machine& machine, const std::wstring& tstrKept,
                            const std::wstring& tstrUsersFile);

/// The name under which the user's file is kept beside it: "config.previous.xml" or, if that contains older settings,
/// the first of "config.previous.2.xml" to "config.previous.9.xml" that is free or has the same content, otherwise the
/// last.
[[nodiscard]] std::wstring KeptFileFor(const KzCommon::Machine& machine, const std::wstring& tstrUsersFile);

/// Whether a path is such a name.
[[nodiscard]] bool IsKeptFileFor(const std::wstring& tstrUsersFile, std::wstring_view tstrPath);

/// The kept files that are the user's file according to IsKeptIn().
[[nodiscard]] std::vector<std::wstring> KeptFilesLike(const KzCommon::Machine& machine,
                                                      const std::wstring& tstrUsersFile);

/// The most recently kept file; empty if no file was kept.
[[nodiscard]] std::wstring NewestKeptFile(const KzCommon::Machine& machine, const std::wstring& tstrUsersFile);
