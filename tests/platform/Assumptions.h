// What the product takes for granted of Windows and no document settles here, one row each; what a unit test shows when
// it is run on Windows has no row.
#pragma once

#include <windows.h>

#include <span>
#include <string>

namespace Platform {

/// One assumption. Each row has a fresh folder, given with trailing backslash, and leaves nothing outside it.
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
    /// Sets up what only a restart shows; null where it can be seen at once.
    void (*pfnPrepare)(const std::wstring& tstrFolder) = nullptr;
    const wchar_t* szSeenBy = L"run it as an administrator";
};

/// Files, INI files, libraries, and what a restart makes of a few of them.
[[nodiscard]] std::span<const Assumption> Assumptions();
/// How files are replaced and deleted.
[[nodiscard]] std::span<const Assumption> FileAssumptions();
/// Rights, sessions and the registry.
[[nodiscard]] std::span<const Assumption> SystemAssumptions();
/// Links. Tried last: its last rows change what this process may do.
[[nodiscard]] std::span<const Assumption> LinkAssumptions();

/// Registers a move, or without destination a deletion, for the next restart. Ends the program when that fails.
void Delay(const std::wstring& tstrSource, const wchar_t* szDestination, DWORD dwFlags = 0);
/// Registers a command for the next logon under a name of the trial's own. Ends the program when that fails.
void AddRunOnce(const std::wstring& tstrName, const std::wstring& tstrCommand);
/// Writes into a file with which rights this process runs. How a copy of the program answers from a logon.
void NoteRights(const std::wstring& tstrPath);

/// "done", or "refused (CODE)" with the last error.
[[nodiscard]] std::wstring Outcome(BOOL bDone);
/// Creates or overwrites a file with these attributes besides its usual ones; returns its path. Ends the program when
/// that fails: nothing could be learnt.
std::wstring WriteFileAt(const std::wstring& tstrPath, std::string_view strBytes, DWORD dwAttributes = 0);
/// A file's bytes; "(no file)" when there is none.
[[nodiscard]] std::string ReadFileAt(const std::wstring& tstrPath);
/// Ends the program with a message unless `bOk`: the machine does not allow the trial itself.
void Require(BOOL bOk, const wchar_t* szWhat);

}  // namespace Platform
