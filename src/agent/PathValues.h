// The folders of one run, computed once, and the placeholders that stand for them in the instruction file.
#pragma once

#include "common/KzComn_Machine.h"

#include <array>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

/// The folders that the placeholders stand for, each with trailing backslash; a placeholder without one stays in the
/// text.
struct PlaceholderFolders {
    const std::wstring* pDownloadDir;
    const std::wstring* pInstalledDir;
    const std::wstring* pInstallerLogDir;
    const std::wstring* pInteractiveLogDir;
    const std::wstring* pServiceLogDir;
    const std::wstring* pProtectedLogDir;
};

inline constexpr wchar_t kDownloadDir[] = L"{UdComponentsSrcDir}";
inline constexpr wchar_t kInstalledDir[] = L"{InstalledDir}";

/// One placeholder.
struct Placeholder {
    const wchar_t* szText;  ///< braces included, compared exactly
    const std::wstring* PlaceholderFolders::*pFolder;
    bool bMayBeUnset = false;  ///< stands for a folder that not every machine has set
};

/// All of them, in the order in which they are replaced.
inline constexpr std::array kPlaceholders{
    Placeholder{kDownloadDir, &PlaceholderFolders::pDownloadDir},
    Placeholder{kInstalledDir, &PlaceholderFolders::pInstalledDir},
    Placeholder{L"{InstallerLogDir}", &PlaceholderFolders::pInstallerLogDir},
    Placeholder{L"{InteractiveLogDir}", &PlaceholderFolders::pInteractiveLogDir, true},
    Placeholder{L"{ServiceLogDir}", &PlaceholderFolders::pServiceLogDir, true},
    Placeholder{L"{ProtectedLogDir}", &PlaceholderFolders::pProtectedLogDir, true},
};

/// Replaces the placeholders in `tstrText` by the folders.
void ReplacePlaceholders(std::wstring& tstrText, const PlaceholderFolders& folders);

/// Folder texts end in a backslash; a folder that is not known is empty, and so is every folder below it.
class PathValues {
public:
    explicit PathValues(const KzCommon::Machine& machine) noexcept : m_machine(machine) {}

    /// Reads the log folders of the three session kinds and computes the installer's; traces each.
    void ReadLogFolders();

    /// Reads the install folder from the registry and, from its "UpdateInfo.ini", the name of the product package's
    /// download folder.
    void ReadProductFolders();

    /// The same for an install folder (with trailing backslash) and a download path that are known already.
    void TakeProductFolders(std::wstring tstrInstallDir, std::wstring tstrDownloadPath);

    /// Replaces the placeholders in `tstrText`, each compared exactly, in their fixed order. "{InstalledDir}" is looked
    /// up afresh; of the protected log folders only the first is ever used, and without any its placeholder stays.
    void ExpandPlaceholders(std::wstring& tstrText) const;
    /// The same with another folder for "{InstalledDir}".
    void ExpandPlaceholders(std::wstring& tstrText, const std::wstring& tstrInstalledDir) const;

    /// What the placeholders stand for, as long as this and `tstrInstalledDir` live: of the protected log folders the
    /// first.
    [[nodiscard]] PlaceholderFolders FoldersOfPlaceholders(const std::wstring& tstrInstalledDir) const noexcept;

    /// "{InstalledDir}": value "ProductPath" of the product key.
    [[nodiscard]] const std::wstring& InstallDir() const noexcept { return m_tstrInstallDir; }
    /// Where the updater puts the packages: the install folder's "Component\".
    [[nodiscard]] std::wstring ComponentDir() const;
    /// The product package: ComponentDir() and the download path; empty when "UpdateInfo.ini" could not be read.
    [[nodiscard]] const std::wstring& ProductDownloadDir() const noexcept { return m_tstrProductDownloadDir; }
    /// The product package's download path as "UpdateInfo.ini" has it.
    [[nodiscard]] const std::wstring& ProductDownloadPath() const noexcept { return m_tstrProductDownloadPath; }
    /// The resource package's download folder, read from "UpdateInfo.ini" now; empty when that cannot be read.
    [[nodiscard]] std::wstring ReadResourceDownloadDir() const;
    /// The update information file of the installed product; empty without an install folder.
    [[nodiscard]] std::wstring UpdateInfoFile() const;

    /// The log folder of the protected sessions: one for each user profile when it begins with "%USERPROFILE%".
    [[nodiscard]] const std::vector<std::wstring>& ProtectedLogDirs() const noexcept { return m_protectedLogDirs; }

    /// Notes a file that the run itself keeps: no record of it deletes the file.
    void KeepFile(std::wstring tstrPath) { m_keptFiles.push_back(std::move(tstrPath)); }
    /// Whether a file is one of those, however its folder is written. GetLongPathNameW.
    [[nodiscard]] bool IsKeptFile(const std::wstring& tstrPath) const;

    /// The volume that a folder (with trailing backslash) lies on, asked once for each folder.
    [[nodiscard]] const KzCommon::Volume& VolumeOf(const std::wstring& tstrFolder) const;

    /// Whether a link that is refused (common/KzComn_LinkRule.h) leads to a folder (with trailing backslash), asked
    /// once for each folder: no answer stays true until the restart.
    [[nodiscard]] bool LeadsThroughLink(const std::wstring& tstrFolder) const;

private:
    void WidenProtectedLogFolder(const std::wstring& tstrConfigured);

    const KzCommon::Machine& m_machine;
    std::wstring m_tstrInstallDir;
    std::wstring m_tstrProductDownloadDir;
    std::wstring m_tstrProductDownloadPath;
    std::wstring m_tstrInteractiveLogDir;
    std::wstring m_tstrServiceLogDir;
    std::wstring m_tstrInstallerLogDir;
    std::vector<std::wstring> m_protectedLogDirs;
    std::vector<std::wstring> m_keptFiles;
    mutable std::unordered_map<std::wstring, KzCommon::Volume> m_volumes;
    mutable std::unordered_map<std::wstring, bool> m_linked;
};

/// A new GUID as text, without braces; a fixed text when the system has no memory for one. CoCreateGuid, UuidToStringW.
[[nodiscard]] std::wstring MakeUniqueName();
