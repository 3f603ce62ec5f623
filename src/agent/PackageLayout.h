// The layout of the downloaded packages: which of their folders goes to which folder of the installation, and how. Data
// only; DeployPackages.h carries it out.
#pragma once

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Machine.h"

#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace PackageLayout {

/// Where a folder of a row begins.
enum class Base {
    ePackage,     ///< the product package's files for this platform
    eProduct,     ///< the product package's download folder
    eShare,       ///< its files for every platform
    eResource,    ///< the resource package's download folder
    eInstall,     ///< the install folder
    eAppData,     ///< the common application-data folder
    eSystemDrive  ///< the root of the drive that Windows lies on
};

/// A folder: a base and what follows it, without backslash at its end; empty for the base itself.
struct Place {
    Base eBase;
    const wchar_t* szBelow;
};

enum class Depth { eFolderOnly, eWithSubfolders };
enum class When { eNow, eAtRestart };

/// One folder copy.
struct CopyRow {
    Place source;
    Place destination;
    Depth eDepth;
    When eWhen;
    /// Written after the copy with source and destination. Some name another step than their own: that is how support
    /// knows them.
    KzCommon::TraceFormat<const wchar_t*, const wchar_t*> trace = nullptr;
};

/// One deploy step: its name, its copies in their order, and whether the settings are prepared before them
/// (PrepareSettings(); when that is false there is nothing to copy).
struct DeployStep {
    KzCommon::OperationName name;
    std::initializer_list<CopyRow> rows;
    bool bPreparesSettings = false;
};

/// The steps of the program package, in their order.
[[nodiscard]] std::span<const DeployStep> ProgramSteps() noexcept;

/// The step of the resource package.
[[nodiscard]] const DeployStep& ResourceStep() noexcept;

/// The folders that a package's places depend on, each with trailing backslash; empty where one is not known.
struct PackageFolders {
    std::wstring tstrInstallDir;
    std::wstring tstrProductDownloadDir;
    std::wstring tstrProductDownloadPath;  ///< the folder's name as "UpdateInfo.ini" has it
    std::wstring tstrResourceDownloadDir;
};

/// The bases of one installation and its packages; a base that is not known is empty.
class BaseFolders {
public:
    /// Traces a system drive that cannot be told; "C:\" is taken for it.
    BaseFolders(const KzCommon::Machine& machine, const PackageFolders& folders);

    /// The folder of a place, with trailing backslash; empty below a base that is not known.
    [[nodiscard]] std::wstring FolderOf(const Place& place) const;

private:
    PackageFolders m_folders;
    std::wstring m_tstrPackageDir;
    std::wstring m_tstrShareDir;
    std::wstring m_tstrAppDataDir;
    std::wstring m_tstrSystemDrive;
};

/// One folder copy of one installation.
struct FolderCopy {
    const DeployStep* pStep;
    const CopyRow* pRow;
    std::wstring tstrSourceDir;       ///< with trailing backslash; empty below a base that is not known
    std::wstring tstrDestinationDir;  ///< the same
};

/// Every folder copy of both packages in the order in which they are carried out, whether the folders are there or not.
[[nodiscard]] std::vector<FolderCopy> ListCopies(const KzCommon::Machine& machine, const PackageFolders& folders);

}  // namespace PackageLayout
