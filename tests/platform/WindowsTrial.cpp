// Tries out what the product takes for granted of Windows, and lists what differs.
//
//     WindowsTrial.exe                  what can be seen at once
//     WindowsTrial.exe --prepare        sets up what only a restart shows (as an administrator)
//     WindowsTrial.exe --after-restart  looks at it
//
// A row is "ok", "Wine" (differs in the way that is known of Wine 8), "not seen" (needs an administrator) or "DIFFERS".
// Exit code 0 unless one differs.
// Started by a double click it does the first and waits for a key.
#include "Assumptions.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace Platform {

namespace {

/// Stays over a restart.
fs::path TrialFolder()
{
    return fs::temp_directory_path() / L"brevant-trial";
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

/// Prints one row; false when it differs, and not as Wine is known to.
bool Judge(const Assumption& row, const std::wstring& tstrSeen)
{
    if (tstrSeen.empty()) {
        Print(L"not seen " + std::wstring(row.szQuestion) + L": run it as an administrator");
        return true;
    }
    const bool bAssumed = tstrSeen == row.szAssumed;
    const bool bWine = !bAssumed && IsWine() && row.szWine && tstrSeen == row.szWine;
    const std::wstring tstrVerdict = bAssumed ? L"ok       " : bWine ? L"Wine     " : L"DIFFERS  ";
    Print(tstrVerdict + row.szQuestion + L": " + tstrSeen);
    if (bAssumed) return true;
    Print(L"         assumed: " + std::wstring(row.szAssumed) + L"; on it depends: " + row.szFollows);
    return bWine;
}

/// Goes through the rows that "--prepare" and "--after-restart" are for, or without these words through the others.
/// How many differ.
unsigned Try(const std::wstring& tstrVerb)
{
    const bool bPrepare = tstrVerb == L"--prepare";
    const bool bAfterRestart = tstrVerb == L"--after-restart";
    Require(!bAfterRestart || fs::exists(TrialFolder()), L"the trial has been prepared");
    unsigned cDiffering = 0;
    unsigned uRow = 0;
    const auto tryRow = [&](const Assumption& row) {
        const fs::path folder = TrialFolder() / std::to_wstring(++uRow) / L"";
        if ((row.pfnPrepare != nullptr) != (bPrepare || bAfterRestart)) return;
        fs::create_directories(folder);
        if (bPrepare) {
            row.pfnPrepare(folder.wstring());
        } else if (!Judge(row, row.pfnObserve(folder.wstring()))) {
            ++cDiffering;
        }
    };
    for (const auto table : {Assumptions(), FileAssumptions()}) std::ranges::for_each(table, tryRow);
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

std::wstring Outcome(BOOL bDone)
{
    const DWORD dwError = ::GetLastError();
    return bDone ? L"done" : L"refused (" + std::to_wstring(dwError) + L")";
}

std::wstring WriteFileAt(const std::wstring& tstrPath, std::string_view strBytes, DWORD dwAttributes)
{
    std::ofstream file(fs::path(tstrPath), std::ios::binary);
    file << strBytes;
    Require(static_cast<bool>(file.flush()), L"a file can be written");
    Require(!dwAttributes || ::SetFileAttributesW(tstrPath.c_str(), dwAttributes), L"attributes can be set");
    return tstrPath;
}

std::string ReadFileAt(const std::wstring& tstrPath)
{
    std::ifstream file(fs::path(tstrPath), std::ios::binary);
    if (!file) return "(no file)";
    return {std::istreambuf_iterator<char>(file), {}};
}

void Require(BOOL bOk, const wchar_t* szWhat)
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
    ::SetConsoleOutputCP(CP_UTF8);
    if (tstrVerb != L"--after-restart") RemoveTrialFolder();
    const unsigned cDiffering = Try(tstrVerb);
    if (tstrVerb == L"--prepare") {
        Print(L"Prepared. Restart, sign in as an administrator, and run WindowsTrial.exe --after-restart.");
    } else {
        RemoveTrialFolder();
        Print(std::to_wstring(cDiffering) + L" differing");
    }
    if (tstrVerb.empty()) WaitAfterDoubleClick();
    return cDiffering == 0 ? 0 : 1;
}
