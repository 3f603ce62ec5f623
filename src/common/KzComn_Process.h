// What the program asks about itself, its session and the machine it runs on.
#pragma once

#include "common/KzComn_Environment.h"

#include <windows.h>

#include <string>
#include <vector>

namespace KzCommon::Process {

/// Whether this process runs under WOW64, in `bWow64`; false with the Win32 code when it cannot be told. In a 64-bit
/// build the answer is always no. IsWow64Process.
[[nodiscard]] bool IsWow64ModeProcess(bool& bWow64, DWORD* pdwError);

/// Whether Windows itself is 64-bit, whatever this process is. GetNativeSystemInfo.
[[nodiscard]] bool Is64BitWindows() noexcept;

/// Whether token privileges apply on this system: every Windows of the NT line. VerifyVersionInfoW.
[[nodiscard]] bool HasPrivileges() noexcept;

/// Whether a process of that id runs and is another one than this, also where this one may not open it. OpenProcess.
[[nodiscard]] bool IsAnotherRunning(DWORD dwProcess) noexcept;

/// Whether this process runs in session 0, the services' session. ProcessIdToSessionId.
[[nodiscard]] bool IsServiceSession() noexcept;

/// Whether this process runs at integrity level Low (0x1000). GetTokenInformation.
[[nodiscard]] bool IsLowIntegrity() noexcept;

/// From here on Windows follows no junction for this process that a standard user has made: opening a path through one
/// fails with ERROR_UNTRUSTED_MOUNT_POINT (448). False with the Win32 code where Windows cannot do that; nothing has
/// changed then. SetProcessMitigationPolicy.
[[nodiscard]] bool RefuseUsersJunctions(DWORD* pdwError) noexcept;

/// The Windows folder, with trailing backslash; empty when unknown. GetSystemWindowsDirectoryW.
[[nodiscard]] std::wstring WindowsFolder();

/// The system folder, with trailing backslash; empty when unknown. GetSystemDirectoryW.
[[nodiscard]] std::wstring SystemFolder();

/// The common application-data folder, with trailing backslash; empty when unknown. SHGetKnownFolderPath.
[[nodiscard]] std::wstring CommonAppDataFolder();

/// The folder of the running program's own file, with trailing backslash. GetModuleFileNameW.
[[nodiscard]] std::wstring ProgramFolder();

/// A path as it is when it names a drive or a share; otherwise the same below the program's folder.
[[nodiscard]] std::wstring ResolveBesideProgram(const std::wstring& tstrPath);

/// The profile folder of every user of the machine, expanded, with trailing backslash, in the order of the profile
/// list. Users without a folder are left out. False with the Win32 code when the list cannot be read.
[[nodiscard]] bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError);

}  // namespace KzCommon::Process
