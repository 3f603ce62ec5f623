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
    const wchar_t* szWine;     ///< what Wine 8 may show instead (some of it as root only); null where it agrees
    const wchar_t* szFollows;  ///< what in the product depends on it
    /// Tries it out, or looks at what a restart has made of it; says in a few words what it saw. Empty when only an
    /// administrator could see it.
    std::wstring (*pfnObserve)(const std::wstring& tstrFolder);
    /// Sets up what only a restart shows; null where it can be seen at once.
    void (*pfnPrepare)(const std::wstring& tstrFolder) = nullptr;
};

// All of them, in the order in which they are tried.
[[nodiscard]] std::span<const Assumption> Assumptions();
[[nodiscard]] std::span<const Assumption> FileAssumptions();

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
