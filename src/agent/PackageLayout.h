// The layout of the downloaded packages: which folder goes to which folder of the installation, and how. Contains only
// data; DeployPackages.h carries it out.
#pragma once

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Machine.h"

#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace PackageLayout {

/// The base of a row's folder.
enum class Base {
    ePackage,     ///< the product package's files for this platform
    eProduct,     ///< the product package's download folder
    eShare,       ///< its files for every platform
    eResource,    ///< the resource package's download folder
    eInstall,     ///< the install folder
    eAppData,     ///< the common application-data folder
    eSystemDrive  ///< the root of the Windows drive
};

/// A folder: a base and the path below it without trailing backslash; empty for the base itself.
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
    /// The trace line after the copy, with source and destination. Some lines name a different step; support expects
    /// them.
    KzCommon::TraceFormat<const wchar_t*, const wchar_t*> trace = nullptr;
};

/// One deploy step: its name, its copies in order, and whether PrepareSettings() runs before them (if that returns
/// false, nothing is copied).
struct DeployStep {
    KzCommon::OperationName name;
    std::initializer_list<CopyRow> rows;
    bool bPreparesSettings = false;
};

/// The steps of the program package, in order.
[[nodiscard]] std::span<const DeployStep> ProgramSteps() noexcept;

/// The step of the resource package.
[[nodiscard]] const DeployStep& ResourceStep() noexcept;

/// The folders that the places of a package depend on, with trailing backslash; empty when unknown.
struct PackageFolders {
    std::wstring tstrInstallDir;
    std::wstring tstrProductDownloadDir;
    std::wstring tstrProductDownloadPath;  ///< the folder's name in "UpdateInfo.ini"
    std::wstring tstrResourceDownloadDir;
};

/// The bases of one installation and its packages. An unknown base is empty.
class BaseFolders {
public:
    /// Traces an unknown system drive and uses "C:\" instead.
    BaseFolders(const KzCommon::Machine& machine, const PackageFolders& folders);

    /// The folder of a place, with trailing backslash; empty below an unknown base.
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
    std::wstring tstrSourceDir;       ///< with trailing backslash; empty below an unknown base
    std::wstring tstrDestinationDir;  ///< likewise
};

/// Lists every folder copy of both packages in order, even for folders that do not exist.
[[nodiscard]] std::vector<FolderCopy> ListCopies(const KzCommon::Machine& machine, const PackageFolders& folders);

}  // namespace PackageLayout
