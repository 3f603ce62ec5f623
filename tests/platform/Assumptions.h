// The product's assumptions about Windows that no document settles, one row each. Assumptions checked by a unit test
// that runs on Windows have no row.
#pragma once

#include "common/KzComn_Handle.h"

#include <windows.h>

#include <span>
#include <string>

namespace Platform {

using Text = std::wstring;

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
    Text (*pfnObserve)(const Text& tstrFolder, DWORD dwOption);
    DWORD dwOption = 0;  ///< tells rows with the same functions apart
    /// Sets up a trial that needs a restart; null for others.
    void (*pfnPrepare)(const Text& tstrFolder, DWORD dwOption) = nullptr;
    const wchar_t* szSeenBy = L"run it as an administrator";
};

/// Sessions and the effects of a restart.
[[nodiscard]] std::span<const Assumption> Assumptions();
/// Replacing and deleting files.
[[nodiscard]] std::span<const Assumption> FileAssumptions();
/// What the checking program asks Windows for.
[[nodiscard]] std::span<const Assumption> CheckerAssumptions();
/// Links. Tried last, because its last rows change the rights of this process.
[[nodiscard]] std::span<const Assumption> LinkAssumptions();

/// Schedules a move, or without destination a deletion, for the next restart. Ends the program on failure.
void Delay(const Text& tstrSource, const wchar_t* szDestination = nullptr);
/// Writes the rights of this process to a file. A copy of the program started at a logon reports them this way.
void NoteRights(const Text& tstrPath);

/// "done", or "refused (CODE)" with the last error.
[[nodiscard]] Text Outcome(BOOL bDone);
/// Likewise with the code that the product's function returned.
[[nodiscard]] Text OutcomeOf(bool bDone, DWORD dwError);
/// Creates or overwrites a file with these attributes in addition to its usual ones; returns its path. Ends the program
/// on failure, because the trial would be useless.
Text WriteFileAt(const Text& tstrPath, std::string_view strBytes, DWORD dwAttributes = 0);
/// A file's bytes; "(no file)" when it does not exist.
[[nodiscard]] std::string ReadFileAt(const Text& tstrPath);
/// Opens an existing file.
[[nodiscard]] KzCommon::UniqueFile Open(const Text& tstrPath, DWORD dwAccess, DWORD dwShare, DWORD dwFlags = 0);
[[nodiscard]] bool Exists(const Text& tstrPath);
/// Owner or access list as text.
[[nodiscard]] Text SecurityOf(const Text& tstrPath, SECURITY_INFORMATION what);
/// Ends the program with a message unless `bOk`: the machine does not allow the trial.
void Require(BOOL bOk, const wchar_t* szWhat);

}  // namespace Platform
