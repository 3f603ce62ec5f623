// The folders of one run, computed once, and the placeholders for them in the instruction file.
#pragma once

#include "common/KzComn_Machine.h"

#include <array>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

/// The values of the placeholders, with trailing backslash. A placeholder without a value stays in the text.
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
    const wchar_t* szText;  ///< with braces; case-sensitive
    const std::wstring* PlaceholderFolders::*pFolder;
    bool bMayBeUnset = false;  ///< for a folder that is not set on every machine
};

/// All placeholders, in replacement order.
inline constexpr std::array kPlaceholders{
    Placeholder{kDownloadDir, &PlaceholderFolders::pDownloadDir},
    Placeholder{kInstalledDir, &PlaceholderFolders::pInstalledDir},
    Placeholder{L"{InstallerLogDir}", &PlaceholderFolders::pInstallerLogDir},
    Placeholder{L"{InteractiveLogDir}", &PlaceholderFolders::pInteractiveLogDir, true},
    Placeholder{L"{ServiceLogDir}", &PlaceholderFolders::pServiceLogDir, true},
    Placeholder{L"{ProtectedLogDir}", &PlaceholderFolders::pProtectedLogDir, true},
};

/// Replaces the placeholders in `tstrText` with the folders.
void ReplacePlaceholders(std::wstring& tstrText, const PlaceholderFolders& folders);

/// The folders of a run. Folder texts end in a backslash; an unknown folder and every folder below it are empty.
class PathValues {
public:
    explicit PathValues(const KzCommon::Machine& machine) noexcept : m_machine(machine) {}

    /// Reads the log folders of the three session kinds, computes the installer's log folder and traces all of them.
    void ReadLogFolders();

    /// Reads the install folder from the registry and the name of the product package's download folder from its
    /// "UpdateInfo.ini".
    void ReadProductFolders();

    /// Does the same with a known install folder (with trailing backslash) and download path.
    void TakeProductFolders(std::wstring tstrInstallDir, std::wstring tstrDownloadPath);

    /// Replaces the placeholders in `tstrText` in their fixed order. Reads "{InstalledDir}" again each time. Uses only
    /// the first protected log folder; without any, its placeholder stays.
    void ExpandPlaceholders(std::wstring& tstrText) const;
    /// Does the same with another folder for "{InstalledDir}".
    void ExpandPlaceholders(std::wstring& tstrText, const std::wstring& tstrInstalledDir) const;

    /// The values of the placeholders, valid while this object and `tstrInstalledDir` exist. Uses the first protected
    /// log folder.
    [[nodiscard]] PlaceholderFolders FoldersOfPlaceholders(const std::wstring& tstrInstalledDir) const noexcept;

    /// "{InstalledDir}": value "ProductPath" of the product key.
    [[nodiscard]] const std::wstring& InstallDir() const noexcept { return m_tstrInstallDir; }
    /// The folder that receives the packages: "Component\" in the install folder.
    [[nodiscard]] std::wstring ComponentDir() const;
    /// The product package's folder: ComponentDir() and the download path; empty when "UpdateInfo.ini" is unreadable.
    [[nodiscard]] const std::wstring& ProductDownloadDir() const noexcept { return m_tstrProductDownloadDir; }
    /// The product package's download path as in "UpdateInfo.ini".
    [[nodiscard]] const std::wstring& ProductDownloadPath() const noexcept { return m_tstrProductDownloadPath; }
    /// Reads the resource package's download folder from "UpdateInfo.ini"; empty when that is unreadable.
    [[nodiscard]] std::wstring ReadResourceDownloadDir() const;
    /// The update information file of the installed product; empty without an install folder.
    [[nodiscard]] std::wstring UpdateInfoFile() const;

    /// The log folders of the protected sessions: one per user profile when the path begins with "%USERPROFILE%".
    [[nodiscard]] const std::vector<std::wstring>& ProtectedLogDirs() const noexcept { return m_protectedLogDirs; }

    /// Marks a file that the run keeps: no record may delete it.
    void KeepFile(std::wstring tstrPath) { m_keptFiles.push_back(std::move(tstrPath)); }
    /// Whether a file is marked with KeepFile(), also under another form of its path. GetLongPathNameW.
    [[nodiscard]] bool IsKeptFile(const std::wstring& tstrPath) const;

    /// The volume of a folder (with trailing backslash), looked up once per folder.
    [[nodiscard]] const KzCommon::Volume& VolumeOf(const std::wstring& tstrFolder) const;

    /// Whether the path of a folder (with trailing backslash) contains a link that is refused
    /// (common/KzComn_LinkRule.h). Checked once per folder, because the result can change before the restart anyway.
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
