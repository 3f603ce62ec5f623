// An update as the update client copies it to the install folder: instruction file, update information, packages.
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

struct Section;
struct SectionKey;

namespace Check {

/// One downloaded package.
struct Package {
    std::wstring tstrDownloadPath;  ///< its folder's name below "Component\" from the update information
    Folder folder;                  ///< full path
    std::wstring tstrRefused;       ///< the name that the agent refuses and replaces with its default; otherwise empty
    bool bThere = false;
};

/// The folder of an update. Findings use file names relative to it ("Component\\..."), without leading backslash. No
/// file is opened for writing, and links (junctions, symbolic links) are not followed.
class Update {
public:
    /// Opens the folder at `tstrFolder`, as given by the user. False with the code: ERROR_PATH_NOT_FOUND (3) when the
    /// folder is missing, ERROR_FILE_NOT_FOUND (2) when it contains neither an instruction file nor packages, or the
    /// code of a subfolder that cannot be listed. GetFullPathNameW.
    [[nodiscard]] bool Open(const std::wstring& tstrFolder, const std::optional<std::wstring>& optInstalled,
                            DWORD* pdwError);

    /// The same update with its packages in other folders below "Component\"; an empty name keeps the folder. Files
    /// that cannot be listed are left out.
    [[nodiscard]] Update With(const std::wstring& tstrProduct, const std::wstring& tstrResource) const;

    /// As given by the user.
    [[nodiscard]] const std::wstring& GivenFolder() const noexcept { return m_tstrGiven; }
    /// Full path.
    [[nodiscard]] const Folder& Root() const noexcept { return m_root; }
    /// The folder of the installed product: the given one, otherwise this one if a product is installed in it; empty
    /// when unknown.
    [[nodiscard]] const std::optional<Folder>& InstalledFolder() const noexcept { return m_optInstalled; }

    [[nodiscard]] const Package& Product() const noexcept { return m_product; }
    [[nodiscard]] const Package& Resource() const noexcept { return m_resource; }
    /// All files of both packages, as relative names in listing order.
    [[nodiscard]] const std::vector<std::wstring>& Files() const noexcept { return m_files; }
    /// The files directly in a folder (relative) whose name matches a pattern with "*" and "?". PathMatchSpecW.
    [[nodiscard]] std::vector<std::wstring> FilesIn(const Folder& folder, const wchar_t* szPattern) const;

    /// The deliveries of the deploy steps from ListDeliveries(), and the files that records copy, for the installed
    /// folder or, if unknown, the default one. Sources and contents are relative names as in Files().
    [[nodiscard]] const std::vector<Delivery>& Deliveries() const;

    /// A file's path for reading; see LongPath().
    [[nodiscard]] std::wstring FullPath(std::wstring_view tstrRelative) const
    {
        return LongPath(m_root / tstrRelative);
    }
    /// The product package's settings folder, relative.
    [[nodiscard]] Folder SettingFolder() const;
    /// The folders of both packages with a subfolder for each language, relative.
    [[nodiscard]] std::vector<Folder> ResourceFolders() const;

private:
    [[nodiscard]] bool ListFiles(const std::wstring& tstrPackage, DWORD* pdwError);
    [[nodiscard]] std::vector<Delivery> FindDeliveries() const;
    void AddCopies(const ::Section& section, const SectionKey& key, std::vector<Delivery>& deliveries) const;

    std::wstring m_tstrGiven;
    Folder m_root;
    std::optional<Folder> m_optInstalled;
    Package m_product;
    Package m_resource;
    std::vector<std::wstring> m_files;
    mutable std::optional<std::vector<Delivery>> m_optDeliveries;
};

inline constexpr wchar_t kUpdateInfoFile[] = L"UpdateInfo.ini";
/// The packages' folder below an update's folder.
inline constexpr wchar_t kComponents[] = L"Component\\";

}  // namespace Check
