// Information about the process, its session and its machine.
#pragma once

#include "common/KzComn_Environment.h"

#include <windows.h>

#include <string>
#include <vector>

namespace KzCommon::Process {

/// Stores in `bWow64` whether this process runs under WOW64; false with the Win32 code on failure. Always no in a
/// 64-bit build. IsWow64Process.
[[nodiscard]] bool IsWow64ModeProcess(bool& bWow64, DWORD* pdwError);

/// Whether Windows itself is 64-bit, for a process of any kind. GetNativeSystemInfo.
[[nodiscard]] bool Is64BitWindows() noexcept;

/// Whether token privileges apply on this system: on every Windows of the NT line. VerifyVersionInfoW.
[[nodiscard]] bool HasPrivileges() noexcept;

/// Whether another process with that id is running, even if this one may not open it. OpenProcess.
[[nodiscard]] bool IsAnotherRunning(DWORD dwProcess) noexcept;

/// Whether this process runs in session 0, the services' session. ProcessIdToSessionId.
[[nodiscard]] bool IsServiceSession() noexcept;

/// Whether this process runs at integrity level Low (0x1000). GetTokenInformation.
[[nodiscard]] bool IsLowIntegrity() noexcept;

/// From now on, Windows follows no junctions created by a standard user for this process: opening a path through one
/// fails with ERROR_UNTRUSTED_MOUNT_POINT (448). False with the Win32 code, and no change, if Windows does not support
/// it. SetProcessMitigationPolicy.
[[nodiscard]] bool RefuseUsersJunctions(DWORD* pdwError) noexcept;

/// The Windows folder, with trailing backslash; empty when unknown. GetSystemWindowsDirectoryW.
[[nodiscard]] std::wstring WindowsFolder();

/// The system folder, with trailing backslash; empty when unknown. GetSystemDirectoryW.
[[nodiscard]] std::wstring SystemFolder();

/// The common application-data folder, with trailing backslash; empty when unknown. SHGetKnownFolderPath.
[[nodiscard]] std::wstring CommonAppDataFolder();

/// The folder of the running program, with trailing backslash. GetModuleFileNameW.
[[nodiscard]] std::wstring ProgramFolder();

/// A path with a drive or share unchanged; any other path relative to the program's folder.
[[nodiscard]] std::wstring ResolveBesideProgram(const std::wstring& tstrPath);

/// The profile folders of all users, expanded, with trailing backslash, in the order of the profile list. Skips users
/// without a folder. False with the Win32 code when the list is unreadable.
[[nodiscard]] bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError);

}  // namespace KzCommon::Process
