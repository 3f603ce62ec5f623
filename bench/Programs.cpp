#include "Programs.h"

#include "Clock.h"
#include "Machine.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_Process.h"

#include <psapi.h>

#include <algorithm>

using namespace KzCommon;

namespace Bench {

namespace {

void NoteMemory(HANDLE hProcess, ProgramRun& run)
{
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof(counters);
    if (!::K32GetProcessMemoryInfo(hProcess, &counters, sizeof(counters))) return;
    const ULONGLONG ullPrivate = std::max(counters.PagefileUsage, counters.PeakPagefileUsage);
    run.ullPrivate = std::max(run.ullPrivate, ullPrivate);
    run.ullWorkingSet = std::max<ULONGLONG>(run.ullWorkingSet, counters.PeakWorkingSetSize);
}

}  // namespace

ProgramRun RunProgram(const std::wstring& tstrName, const std::wstring& tstrArgument, bool bWatchMemory)
{
    const std::wstring tstrPath = Process::ProgramFolder() + tstrName;
    std::wstring tstrCommand = L"\"" + tstrPath + L"\" " + tstrArgument;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};

    ProgramRun run;
    const LONGLONG llStart = Now();
    Require(::CreateProcessW(tstrPath.c_str(), tstrCommand.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                             &startup, &process) != FALSE,
            "the program starts");
    const UniqueKernelHandle hThread(process.hThread);
    const UniqueKernelHandle hProcess(process.hProcess);
    // Not every system tells the peak of a process that has ended.
    while (::WaitForSingleObject(hProcess.Get(), bWatchMemory ? 1 : INFINITE) == WAIT_TIMEOUT) {
        NoteMemory(hProcess.Get(), run);
    }
    run.dMicroseconds = Microseconds(Now() - llStart);
    if (bWatchMemory) NoteMemory(hProcess.Get(), run);
    DWORD dwExitCode = ~DWORD{0};
    Require(::GetExitCodeProcess(hProcess.Get(), &dwExitCode) && dwExitCode == 0, "the program succeeds");
    return run;
}

}  // namespace Bench
