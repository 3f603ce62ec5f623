// A folder that stays the one it is while something is done in it.
#pragma once

#include "common/KzComn_Handle.h"

#include <string>
#include <vector>

namespace KzCommon::Storage::Directory {

/// ERROR_STOPPED_ON_SYMLINK, which the toolchain's headers lack: a folder is reached through a junction or a symbolic
/// link.
inline constexpr DWORD kStoppedOnLink = 681;

/// Whether HeldFolder refuses a folder for a junction or symbolic link on the way to it; nothing is opened for long.
[[nodiscard]] bool LeadsThroughLink(const std::wstring& tstrFolder);

/// Holds a folder and all above it open, so that none of them can be moved away and another put in its place.
class HeldFolder {
public:
    /// Opens the folders on the way to `tstrFolder`, from its drive or share on. False with the code: kStoppedOnLink
    /// (681) when one of them is a junction or a symbolic link, which whoever owns it can point anywhere; a drive that
    /// an administrator mounted in a folder is none. ERROR_PATH_NOT_FOUND (3) when one is missing. CreateFileW.
    [[nodiscard]] bool Hold(const std::wstring& tstrFolder, DWORD* pdwError);

    /// Whether an open file lies in the folder itself. A folder that is held can still be made a junction by those who
    /// may write to it: a file that is opened by its path then lies elsewhere. GetFinalPathNameByHandleW.
    [[nodiscard]] bool IsHomeOf(HANDLE hFile) const;

private:
    std::vector<UniqueFile> m_folders;
    std::wstring m_tstrFinalPath;  // without backslash at its end; empty where the file system tells none
};

}  // namespace KzCommon::Storage::Directory
