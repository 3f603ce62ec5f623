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

/// What a link says; each text may be empty.
struct LinkProperties {
    std::wstring tstrTarget;  ///< full path
    std::wstring tstrIcon;    ///< full path of an icon or program file, of which the first icon is shown
    std::wstring tstrArguments;
    std::wstring tstrDescription;  ///< the tooltip
    std::wstring tstrWorkingDirectory;
};

/// Writes the link file `tstrLink` (full path with ".lnk"), replacing an existing one, which is waited for while others
/// hold it, some two seconds. False, with a trace line that names the step and its HRESULT, when anything fails; no
/// link is to be relied on then. Initialises COM for itself. IShellLinkW, IPersistFile.
[[nodiscard]] bool CreateShortcut(const std::wstring& tstrLink, const LinkProperties& properties);

}  // namespace InstCommon::Utility::ShellLink
