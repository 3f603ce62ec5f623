// Tries out what the product takes for granted of Windows, and lists what differs.
//
//     WindowsTrial.exe                  what can be seen at once
//     WindowsTrial.exe --prepare        sets up what only a restart shows (as an administrator)
//     WindowsTrial.exe --after-restart  looks at it
//
// A row is "ok", "Wine" (differs in the way that is known of Wine 8) or "DIFFERS". Exit code 0 unless one differs.
// Started by a double click it does the first and waits for a key.
#include "Assumptions.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace Platform {

namespace {

/// Stays over a restart.
fs::path TrialFolder()
{
    return fs::temp_directory_path() / L"brevant-trial";
}

/// A fresh folder for row `uRow` of a list, with trailing backslash.
std::wstring FolderOfRow(const wchar_t* szList, std::size_t uRow)
{
    return (TrialFolder() / (szList + std::to_wstring(uRow)) / L"").wstring();
}

void RemoveTrialFolder()
{
    std::error_code ignored;
    for (fs::recursive_directory_iterator it(TrialFolder(), ignored), end; it != end; it.increment(ignored)) {
        ::SetFileAttributesW(it->path().c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    fs::remove_all(TrialFolder(), ignored);
}

void Print(const std::wstring& tstrLine)
{
    std::puts(KzCommon::String::ToUtf8(tstrLine).c_str());
}

bool IsWine()
{
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

/// Prints one row; whether it is as assumed, or differs as Wine is known to.
bool Judge(const Assumption& row, const std::wstring& tstrSeen)
{
    const bool bAssumed = tstrSeen == row.szAssumed;
    const bool bWine = !bAssumed && IsWine() && row.szWine && tstrSeen == row.szWine;
    Print((bAssumed ? L"ok       "
           : bWine  ? L"Wine     "
                    : L"DIFFERS  ") +
          std::wstring(row.szQuestion) + L": " + tstrSeen);
    if (bAssumed) return true;
    Print(L"         assumed: " + std::wstring(row.szAssumed) + L"; on it depends: " + row.szFollows);
    return bWine;
}

unsigned TryNow()
{
    unsigned cDiffering = 0;
    for (const auto& [szList, rows] : {std::pair(L"file", FileAssumptions()), {L"system", SystemAssumptions()}}) {
        for (std::size_t uRow = 0; uRow < rows.size(); ++uRow) {
            const std::wstring tstrFolder = FolderOfRow(szList, uRow);
            fs::create_directories(tstrFolder);
            cDiffering += Judge(rows[uRow], rows[uRow].pfnObserve(tstrFolder)) ? 0 : 1;
        }
    }
    return cDiffering;
}

unsigned PrepareRestart()
{
    const auto rows = RestartAssumptions();
    for (std::size_t uRow = 0; uRow < rows.size(); ++uRow) {
        const std::wstring tstrFolder = FolderOfRow(L"restart", uRow);
        fs::create_directories(tstrFolder);
        rows[uRow].pfnPrepare(tstrFolder);
    }
    Print(L"Prepared. Restart, sign in as an administrator, and run WindowsTrial.exe --after-restart.");
    return 0;
}

unsigned TryAfterRestart()
{
    Require(fs::exists(FolderOfRow(L"restart", 0)), L"the trial has been prepared");
    unsigned cDiffering = 0;
    const auto rows = RestartAssumptions();
    for (std::size_t uRow = 0; uRow < rows.size(); ++uRow) {
        cDiffering += Judge(rows[uRow].row, rows[uRow].row.pfnObserve(FolderOfRow(L"restart", uRow))) ? 0 : 1;
    }
    return cDiffering;
}

void WaitAfterDoubleClick()
{
    DWORD dwProcess = 0;
    if (::GetConsoleProcessList(&dwProcess, 1) != 1) return;
    Print(L"Press Enter.");
    static_cast<void>(std::getchar());
}

}  // namespace

std::wstring Outcome(bool bDone)
{
    const DWORD dwError = ::GetLastError();
    return bDone ? L"done" : L"refused (" + std::to_wstring(dwError) + L")";
}

void WriteFileAt(const std::wstring& tstrPath, std::string_view strBytes)
{
    std::ofstream file(fs::path(tstrPath), std::ios::binary);
    file << strBytes;
    Require(static_cast<bool>(file.flush()), L"a file can be written");
}

std::string ReadFileAt(const std::wstring& tstrPath)
{
    std::ifstream file(fs::path(tstrPath), std::ios::binary);
    if (!file) return "(no file)";
    return {std::istreambuf_iterator<char>(file), {}};
}

void Require(bool bOk, const wchar_t* szWhat)
{
    if (bOk) return;
    const DWORD dwError = ::GetLastError();
    Print(L"FAILED   it is not true that " + std::wstring(szWhat) + L" (last error " + std::to_wstring(dwError) + L")");
    WaitAfterDoubleClick();
    std::exit(2);
}

}  // namespace Platform

int wmain(int argc, wchar_t** argv)
{
    using namespace Platform;
    const std::wstring tstrVerb = argc > 1 ? argv[1] : L"";
    const bool bAfterRestart = tstrVerb == L"--after-restart";
    ::SetConsoleOutputCP(CP_UTF8);
    if (!bAfterRestart) RemoveTrialFolder();
    const unsigned cDiffering = tstrVerb == L"--prepare" ? PrepareRestart()
                                : bAfterRestart          ? TryAfterRestart()
                                                         : TryNow();
    if (tstrVerb != L"--prepare") {
        RemoveTrialFolder();
        Print(std::to_wstring(cDiffering) + L" differing");
    }
    if (tstrVerb.empty()) WaitAfterDoubleClick();
    return cDiffering == 0 ? 0 : 1;
}
