// Whole programs as a benchmark: how long one takes from its creation to its end, and how much memory.
#pragma once

#include <windows.h>

#include <string>

namespace Bench {

struct ProgramRun {
    double dMicroseconds = 0;
    // In bytes at their peak; 0 when they were not watched.
    ULONGLONG ullPrivate = 0;     ///< memory of the process alone
    ULONGLONG ullWorkingSet = 0;  ///< the pages of the system's libraries that it touched included
};

/// Runs a program of this program's own folder to its end. To watch its memory takes time of its own. CreateProcessW,
/// GetProcessMemoryInfo.
[[nodiscard]] ProgramRun RunProgram(const std::wstring& tstrName, const std::wstring& tstrArgument, bool bWatchMemory);

}  // namespace Bench
