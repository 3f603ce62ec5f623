// The files among the settings that have a meaning for the agent: which there are and what they are called. What is
// done with them is in DeploySettings.h and ConfigMerge.h.
#pragma once

#include "common/KzComn_Machine.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// A settings file that the update brings once for each language, "base_LANGUAGE.extension"; the one of the product's
/// language becomes "base.extension".
struct LanguageFile {
    const wchar_t* szBase;
    const wchar_t* szExtension;
    bool bMerged = false;  ///< takes the user's values before it is in its place
};

/// All of them.
[[nodiscard]] std::span<const LanguageFile> LanguageFiles() noexcept;

/// The name of the file that is installed: "config.xml".
[[nodiscard]] std::wstring InstalledName(const LanguageFile& file);
/// The name of the file of a language: "config_EN-US.xml".
[[nodiscard]] std::wstring NameInLanguage(const LanguageFile& file, const std::wstring& tstrLanguage);
/// The language that a file's name is for; nothing for a name of another kind. Case does not matter.
[[nodiscard]] std::optional<std::wstring> LanguageOf(const LanguageFile& file, std::wstring_view tstrName);

/// Whether the update brings update information of its own, or something else is in its place among the settings.
[[nodiscard]] bool BringsUpdateInfo(const KzCommon::Machine& machine, const std::wstring& tstrDownloaded);

/// Whether the update information is changed in a copy of the installed file, which is then deployed with the settings:
/// there is one, and the update brings none of its own. Otherwise the installed file is changed.
[[nodiscard]] bool IsUpdateInfoCopied(const KzCommon::Machine& machine, const std::wstring& tstrInstalled,
                                      const std::wstring& tstrDownloaded);

/// Whether a kept file is the user's file: another name of it, or one with the same content.
[[nodiscard]] bool IsKeptIn(const KzCommon::Machine& machine, const std::wstring& tstrKept,
                            const std::wstring& tstrUsersFile);

/// The name under which the user's file is kept beside it: "config.previous.xml", or, where that holds the settings of
/// an earlier time, the first of "config.previous.2.xml" to "config.previous.9.xml" that is free or holds the same;
/// when none is, the last.
[[nodiscard]] std::wstring KeptFileFor(const KzCommon::Machine& machine, const std::wstring& tstrUsersFile);

/// Whether a path is one of those.
[[nodiscard]] bool IsKeptFileFor(const std::wstring& tstrUsersFile, std::wstring_view tstrPath);

/// The kept files that IsKeptIn() says are the user's file.
[[nodiscard]] std::vector<std::wstring> KeptFilesLike(const KzCommon::Machine& machine,
                                                      const std::wstring& tstrUsersFile);

/// The user's file that was kept last; empty when none was.
[[nodiscard]] std::wstring NewestKeptFile(const KzCommon::Machine& machine, const std::wstring& tstrUsersFile);
