// Places of an update that a signature, or a check, cannot vouch for.
#pragma once

#include "check/update/Update.h"

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace Check {

/// Whether the access list of a file or folder lets one of the groups of all users change it, or what is in it. Empty
/// with the code when it cannot be read. Does not look at rights of single users. GetKernelObjectSecurity.
[[nodiscard]] std::optional<bool> IsOpenToUsers(const std::wstring& tstrPlace, DWORD* pdwError);

/// Why nothing is certain about a place.
enum class Doubt {
    eOpen,       ///< standard users can change it, or what is in it
    eLink,       ///< a junction or symbolic link: what it leads to is not part of the update
    eUnreadable  ///< its rights, or its contents, cannot be read
};

/// One such place.
struct DoubtfulPlace {
    std::wstring tstrPlace;  ///< full path; a folder has a backslash at the end
    Doubt eDoubt = Doubt::eOpen;
    DWORD dwError = ERROR_SUCCESS;  ///< for eUnreadable
};

/// Of which places in the packages the rights are read. A file keeps its own rights when it is moved, so that those of
/// the folders above it prove nothing; but they take as long to read as all else that "ready" does.
enum class RightsOf { eFolders, eFoldersAndFiles };

/// The doubtful places among the folder of an update, "Component\", the instruction file, the update information, both
/// packages with all that is in them, and `others`. What is below an open folder is not named again; links are not
/// followed, and one that leads to the update's folder itself does not count.
[[nodiscard]] std::vector<DoubtfulPlace> ListDoubtfulPlaces(const Update& update, RightsOf eRights,
                                                            const std::vector<std::wstring>& others = {});

/// Whether standard users can make files or folders in that place of a customer's machine: below C:\ProgramData,
/// C:\Users and C:\Windows\Temp on any drive. `tstrInstalled`, the product's folder, never counts as such a place, even
/// if a copy of it is in one.
[[nodiscard]] bool IsUsersFolder(const std::wstring& tstrPath, const std::wstring& tstrInstalled);

}  // namespace Check
