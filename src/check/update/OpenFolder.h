// Places of an update that a signature, or a check, cannot vouch for.
#pragma once

#include "check/update/Update.h"
#include "check/update/UserRights.h"

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace Check {

/// Whether standard users have one of some rights to a file or folder, by default those to change it, or what is in it;
/// see GrantsUsers(). Empty with the code when its rights cannot be read. GetKernelObjectSecurity.
[[nodiscard]] std::optional<bool> IsOpenToUsers(const std::wstring& tstrPlace, DWORD* pdwError,
                                                ACCESS_MASK rights = kChangeRights);

/// Why nothing is certain about a place.
enum class Doubt {
    eOpen,         ///< standard users can change it, or what is in it
    eExchange,     ///< a folder above another place: standard users can put something else in its place
    eThroughLink,  ///< its path leads through a junction or symbolic link that is not an administrator's
    eLink,         ///< a junction or symbolic link: what it leads to is not part of the update
    eUnreadable    ///< its rights, or its contents, cannot be read
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
/// packages with all that is in them, `others`, and the folders above all these up to the roots of their drives, also
/// of the drives to which substituted drives and links lead. What is below an open folder is not named again. Links in
/// the update are not followed.
[[nodiscard]] std::vector<DoubtfulPlace> ListDoubtfulPlaces(const Update& update, RightsOf eRights,
                                                            const std::vector<std::wstring>& others = {});

/// Likewise for a single folder and the folders above it.
[[nodiscard]] std::vector<DoubtfulPlace> ListDoubtfulPlaces(const std::wstring& tstrFolder);

/// The reason in words, for a finding.
[[nodiscard]] std::wstring Describe(const DoubtfulPlace& place);

/// Whether standard users can make files or folders in that place of a customer's machine: below C:\ProgramData,
/// C:\Users and C:\Windows\Temp on any drive. `tstrInstalled`, the product's folder, never counts as such a place, even
/// if a copy of it is in one.
[[nodiscard]] bool IsUsersFolder(const std::wstring& tstrPath, const std::wstring& tstrInstalled);

}  // namespace Check
