// Special folders of the shell, and shell link files.
#pragma once

#include <string>

namespace InstCommon::Utility::ShellLink {

// The three folders: full path as returned by the shell, without trailing backslash. On failure, false with a trace
// line, and `tstrFolder` is unchanged. SHGetSpecialFolderLocation, SHGetPathFromIDListW.

/// The shared desktop of all users.
[[nodiscard]] bool GetAllUsersDesktop(std::wstring& tstrFolder);
/// The programs folder of the shared Start menu.
[[nodiscard]] bool GetAllUsersStartMenuPrograms(std::wstring& tstrFolder);
/// The profile folder of the user who runs the program.
[[nodiscard]] bool GetUsersProfilePath(std::wstring& tstrFolder);

/// The properties of a link; each text may be empty.
struct LinkProperties {
    std::wstring tstrTarget;  ///< full path
    std::wstring tstrIcon;    ///< full path of an icon or program file; its first icon is shown
    std::wstring tstrArguments;
    std::wstring tstrDescription;  ///< the tooltip
    std::wstring tstrWorkingDirectory;
};

/// Writes the link file `tstrLink` (full path with ".lnk") and replaces an existing one; waits about two seconds while
/// that is in use. False, with a trace line with the step and its HRESULT, on failure; the link may then be missing or
/// incomplete. Initialises COM itself. IShellLinkW, IPersistFile.
[[nodiscard]] bool CreateShortcut(const std::wstring& tstrLink, const LinkProperties& properties);

}  // namespace InstCommon::Utility::ShellLink
