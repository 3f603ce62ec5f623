// Who can change a file or folder, by its security descriptor.
#pragma once

#include <windows.h>

namespace Check {

/// The rights to change a file, or a folder and what is in it. The right to write its attributes is enough to turn an
/// empty folder into a link.
inline constexpr ACCESS_MASK kChangeRights = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_WRITE_ATTRIBUTES |
                                             FILE_DELETE_CHILD | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_WRITE |
                                             GENERIC_ALL;

/// The rights on a folder that let somebody put something else in the place of a file or folder in it. A new entry
/// beside the others is harmless: every user can create folders in "C:\".
inline constexpr ACCESS_MASK kExchangeRights = FILE_DELETE_CHILD | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_ALL;
/// Likewise for the root of a drive, which Windows neither renames nor deletes.
inline constexpr ACCESS_MASK kExchangeRightsInRoot = kExchangeRights & ~static_cast<ACCESS_MASK>(DELETE);

/// Whether a security descriptor gives one of `rights` to a standard user: to anybody but the system, its services and
/// administrators. An owner has all of them, because he can rewrite the access list. What an entry allows counts even
/// if another one denies it. A descriptor without owner or access list gives everybody every right.
[[nodiscard]] bool GrantsUsers(PSECURITY_DESCRIPTOR pDescriptor, ACCESS_MASK rights);

}  // namespace Check
