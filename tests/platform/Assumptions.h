// What the product takes for granted of Windows and no document settles here, one row each.
#pragma once

#include <span>
#include <string>

namespace Platform {

/// One assumption. `pfnObserve` tries it out in `tstrFolder` (with trailing backslash), a fresh folder of its own, and
/// says in a few words what it saw; it leaves nothing outside that folder.
struct Assumption {
    const wchar_t* szQuestion;
    const wchar_t* szAssumed;  ///< what the product counts on
    const wchar_t* szWine;     ///< what Wine 8 may show instead (some of it as root only); null where it agrees
    const wchar_t* szFollows;  ///< what in the product depends on it
    std::wstring (*pfnObserve)(const std::wstring& tstrFolder);
};

/// What can be seen at once.
[[nodiscard]] std::span<const Assumption> FileAssumptions();
[[nodiscard]] std::span<const Assumption> SystemAssumptions();

/// What only a restart shows: `pfnPrepare` sets it up in `tstrFolder`, `pfnObserve` looks at it afterwards.
struct RestartAssumption {
    Assumption row;
    void (*pfnPrepare)(const std::wstring& tstrFolder);
};
[[nodiscard]] std::span<const RestartAssumption> RestartAssumptions();

/// "done", or "refused (CODE)" with the last error.
[[nodiscard]] std::wstring Outcome(bool bDone);
/// Creates or overwrites a file. Ends the program when that fails: nothing could be learnt.
void WriteFileAt(const std::wstring& tstrPath, std::string_view strBytes);
/// A file's bytes; "(no file)" when there is none.
[[nodiscard]] std::string ReadFileAt(const std::wstring& tstrPath);
/// Ends the program with a message unless `bOk`: the machine does not allow the trial itself.
void Require(bool bOk, const wchar_t* szWhat);

}  // namespace Platform
