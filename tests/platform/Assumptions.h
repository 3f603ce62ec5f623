// The product's assumptions about Windows that no document settles, one row each. Assumptions checked by a unit test
// that runs on Windows have no row.
#pragma once

#include <windows.h>

#include <span>
#include <string>

namespace Platform {

/// One assumption. Each row gets a new folder, with trailing backslash, and leaves nothing outside it.
struct Assumption {
    const wchar_t* szQuestion;
    const wchar_t* szAssumed;  ///< what the product counts on
    /// What Wine 8 may show instead (some of it as root only); after a " | ", what Wine 10 may, where that is something
    /// else again. Null where it agrees.
    const wchar_t* szWine;
    const wchar_t* szFollows;  ///< what in the product depends on it
    /// Tries it out, or looks at what a restart has made of it; says in a few words what it saw. Empty when it could
    /// not be seen here: `szSeenBy` says where.
    std::wstring (*pfnObserve)(const std::wstring& tstrFolder);
    /// Sets up a trial that needs a restart; null for others.
    void (*pfnPrepare)(const std::wstring& tstrFolder) = nullptr;
    const wchar_t* szSeenBy = L"run it as an administrator";
};

/// Files, INI files, libraries, and some effects of a restart.
[[nodiscard]] std::span<const Assumption> Assumptions();
/// Replacing and deleting files.
[[nodiscard]] std::span<const Assumption> FileAssumptions();
/// Rights, sessions and the registry.
[[nodiscard]] std::span<const Assumption> SystemAssumptions();
/// Links. Tried last, because its last rows change the rights of this process.
[[nodiscard]] std::span<const Assumption> LinkAssumptions();

/// Schedules a move, or without destination a deletion, for the next restart. Ends the program on failure.
void Delay(const std::wstring& tstrSource, const wchar_t* szDestination, DWORD dwFlags = 0);
/// Registers a command for the next logon under a unique name. Ends the program on failure.
void AddRunOnce(const std::wstring& tstrName, const std::wstring& tstrCommand);
/// Writes the rights of this process to a file. A copy of the program started at a logon reports them this way.
void NoteRights(const std::wstring& tstrPath);

/// "done", or "refused (CODE)" with the last error.
[[nodiscard]] std::wstring Outcome(BOOL bDone);
/// Creates or overwrites a file with these attributes in addition to its usual ones; returns its path. Ends the program
/// on failure, because the trial would be useless.
std::wstring WriteFileAt(const std::wstring& tstrPath, std::string_view strBytes, DWORD dwAttributes = 0);
/// A file's bytes; "(no file)" when it does not exist.
[[nodiscard]] std::string ReadFileAt(const std::wstring& tstrPath);
/// Ends the program with a message unless `bOk`: the machine does not allow the trial.
void Require(BOOL bOk, const wchar_t* szWhat);

}  // namespace Platform
