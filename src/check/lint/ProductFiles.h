// What is known of the files of a customer's machine after the update.
#pragma once

#include "check/update/IniScan.h"
#include "check/update/Update.h"

#include <set>
#include <string>
#include <vector>

namespace Check {

/// The files that the update brings and, where an installed product is known, those that it has. Paths are full and
/// compared without regard to case.
class ProductFiles {
public:
    ProductFiles(const Update& update, const IniScan& instructions);

    /// Whether it is known which files the installed product has.
    [[nodiscard]] bool AreInstalledKnown() const noexcept { return m_bInstalled; }
    /// A path below the install folder in full.
    [[nodiscard]] std::wstring PathOf(const std::wstring& tstrBelow) const;
    /// Whether a path is in the install folder.
    [[nodiscard]] bool IsInstallPath(const std::wstring& tstrPath) const;

    /// Whether the path names a file that is there when the update has been deployed.
    [[nodiscard]] bool HasFile(const std::wstring& tstrPath) const;
    /// The same of a file or folder.
    [[nodiscard]] bool HasPath(const std::wstring& tstrPath) const;
    /// Whether a record of the update deletes the file, which the update does not bring.
    [[nodiscard]] bool IsDeleted(const std::wstring& tstrPath) const;
    /// Whether the path names a file of the packages where the update client puts it.
    [[nodiscard]] bool IsDownloaded(const std::wstring& tstrPath) const;

    /// The file that the author may have meant by a path below the install folder: one that the update brings there
    /// with the same name in another folder, or with nearly the same path. Empty if no file fits.
    [[nodiscard]] std::wstring NearestOf(const std::wstring& tstrPath) const;

private:
    /// A record that deletes files.
    struct Deletion {
        Folder folder;
        std::wstring tstrPattern;  ///< of the files directly in the folder; empty: the folder with all that is in it
    };

    Folder m_installed;
    bool m_bInstalled;
    std::vector<Deletion> m_deletions;
    KzCommon::String::NoCaseSet m_brought;
    KzCommon::String::NoCaseSet m_downloaded;
    std::vector<std::wstring> m_below;  // what is brought to the install folder, below it
};

}  // namespace Check
