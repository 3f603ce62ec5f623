// Special folders of the shell, and shell link files.
#pragma once

#include <string>

namespace InstCommon::Utility::ShellLink {

// The three folders: full path as the shell gives it, without trailing backslash; `tstrFolder` is left alone on
// failure. False, with a trace line, when the shell does not know the folder. SHGetSpecialFolderLocation,
// SHGetPathFromIDListW.

/// The desktop that all users share.
[[nodiscard]] bool GetAllUsersDesktop(std::wstring& tstrFolder);
/// The programs folder of the Start menu that all users share.
[[nodiscard]] bool GetAllUsersStartMenuPrograms(std::wstring& tstrFolder);
/// The profile folder of the user who runs the program.
[[nodiscard]] bool GetUsersProfilePath(std::wstring& tstrFolder);

/// Writes the link file `tstrLink` (full path with ".lnk"), replacing an existing one. The other texts may be empty;
/// `tstrIcon` is an icon or program file, of which the first icon is shown. False, with a trace line that names the
/// step and its HRESULT, when anything fails; no link is to be relied on then. Initialises COM for itself. IShellLinkW,
/// IPersistFile.
[[nodiscard]] bool CreateShortcut(const std::wstring& tstrLink, const std::wstring& tstrTarget,
                                  const std::wstring& tstrIcon, const std::wstring& tstrArguments,
                                  const std::wstring& tstrDescription, const std::wstring& tstrWorkingDirectory);

}  // namespace InstCommon::Utility::ShellLink
