// An update as the update client lays it over the install folder: instruction file, update information, packages.
#pragma once

#include "check/update/Folder.h"
#include "check/update/LongPath.h"

#include "agent/Deliveries.h"
#include "agent/InstructionFile.h"

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// One downloaded package.
struct Package {
    std::wstring tstrDownloadPath;  ///< its folder's name below "Component\", as the update information has it
    Folder folder;                  ///< full
    std::wstring tstrRefused;  ///< the name that the agent does not take, in whose place its own counts; else empty
    bool bThere = false;
};

/// The folder of an update. Names relative to it ("Component\\..."), without a leading backslash, are how findings call
/// its files; no file is opened for writing, and links (junctions, symbolic links) are not followed.
class Update {
public:
    /// Takes the folder at `tstrFolder`, as the user wrote it. False with the code: ERROR_PATH_NOT_FOUND (3) when there
    /// is no such folder, ERROR_FILE_NOT_FOUND (2) when it holds neither an instruction file nor packages, that of a
    /// folder in them that cannot be listed. GetFullPathNameW.
    [[nodiscard]] bool Open(const std::wstring& tstrFolder, const std::optional<std::wstring>& optInstalled,
                            DWORD* pdwError);

    /// As the user wrote it.
    [[nodiscard]] const std::wstring& GivenFolder() const noexcept { return m_tstrGiven; }
    /// Full.
    [[nodiscard]] const Folder& Root() const noexcept { return m_root; }
    /// The folder of the installed product: the one that was given, else this one when a
    /// product is installed in it; nothing when none is known.
    [[nodiscard]] const std::optional<Folder>& InstalledFolder() const noexcept { return m_optInstalled; }

    [[nodiscard]] const Package& Product() const noexcept { return m_product; }
    [[nodiscard]] const Package& Resource() const noexcept { return m_resource; }
    /// All files of both packages, as relative names in the order of the folders' listings.
    [[nodiscard]] const std::vector<std::wstring>& Files() const noexcept { return m_files; }
    /// Those directly in a folder (relative) whose name matches a pattern with "*" and "?".
    /// PathMatchSpecW.
    [[nodiscard]] std::vector<std::wstring> FilesIn(const Folder& folder, const wchar_t* szPattern) const;

    /// What the deploy steps deliver: ListDeliveries(), for the installed folder or, when none is known, the usual one.
    /// Sources and contents are relative names as Files() has them.
    [[nodiscard]] const std::vector<Delivery>& Deliveries() const;

    /// A file's path, to be read by: see LongPath().
    [[nodiscard]] std::wstring FullPath(std::wstring_view tstrRelative) const
    {
        return LongPath(m_root / tstrRelative);
    }
    /// The product package's settings folder, relative.
    [[nodiscard]] Folder SettingFolder() const;
    /// The folders of both packages that hold a folder for each language, relative.
    [[nodiscard]] std::vector<Folder> ResourceFolders() const;

private:
    [[nodiscard]] bool ListFiles(const std::wstring& tstrPackage, DWORD* pdwError);
    [[nodiscard]] std::vector<Delivery> FindDeliveries() const;

    std::wstring m_tstrGiven;
    Folder m_root;
    std::optional<Folder> m_optInstalled;
    Package m_product;
    Package m_resource;
    std::vector<std::wstring> m_files;
    mutable std::optional<std::vector<Delivery>> m_optDeliveries;
};

inline constexpr wchar_t kUpdateInfoFile[] = L"UpdateInfo.ini";
/// Where the update client puts the packages, below an update's folder.
inline constexpr wchar_t kComponents[] = L"Component\\";

}  // namespace Check
