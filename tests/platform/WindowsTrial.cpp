// Tries out the product's assumptions about Windows and lists differences.
//
//     WindowsTrial.exe                  runs the trials without a restart
//     WindowsTrial.exe --prepare        sets up the trials that need a restart (as an administrator)
//     WindowsTrial.exe --after-restart  checks their results
//
// A row is "ok", "Wine" (differs in the way that is known of Wine 8 or 10), "not seen" (cannot be seen here) or
// "DIFFERS". Exit code 0 unless one differs. Started by a double click it does the first and waits for a key.
#include "Assumptions.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

namespace fs = std::filesystem;

namespace Platform {

namespace {

/// Survives a restart.
fs::path TrialFolder()
{
    return fs::temp_directory_path() / L"brevant-trial";
}

void RemoveTrialFolder()
{
    // Delete links themselves: some lead to the whole drive.
    const auto remove = [](const std::wstring& tstrPath) {
        ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (!::RemoveDirectoryW(tstrPath.c_str())) ::DeleteFileW(tstrPath.c_str());
    };
    static_cast<void>(KzCommon::Storage::Directory::ForEachInTree((TrialFolder() / L"").wstring(), remove, nullptr));
}

void Print(const std::wstring& tstrLine)
{
    std::puts(KzCommon::String::ToUtf8(tstrLine).c_str());
}

/// Wine's version, 0 on Windows.
int WineVersion()
{
    const FARPROC pfn = ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version");
    return pfn ? std::atoi(reinterpret_cast<const char*(CDECL*)()>(reinterpret_cast<void*>(pfn))()) : 0;
}

/// What this Wine is known to show instead; empty where it is to show what is assumed, and on Windows.
std::wstring KnownOfWine(const Assumption& row)
{
    constexpr std::wstring_view kNext = L" | ";
    constexpr int kFirstWithNext = 10;
    const std::wstring_view tstrAll = row.szWine ? row.szWine : L"";
    const std::size_t uNext = std::min(tstrAll.find(kNext), tstrAll.size());
    if (WineVersion() == 0) return {};
    if (WineVersion() < kFirstWithNext || uNext == tstrAll.size()) return std::wstring(tstrAll.substr(0, uNext));
    return std::wstring(tstrAll.substr(uNext + kNext.size()));
}

/// Prints one row; false when it differs in another way than known for Wine.
bool Judge(const Assumption& row, const std::wstring& tstrSeen)
{
    if (tstrSeen.empty()) {
        Print(L"not seen " + std::wstring(row.szQuestion) + L": " + row.szSeenBy);
        return true;
    }
    const bool bAssumed = tstrSeen == row.szAssumed;
    const bool bWine = !bAssumed && tstrSeen == KnownOfWine(row);
    const std::wstring tstrVerdict = bAssumed ? L"ok       " : bWine ? L"Wine     " : L"DIFFERS  ";
    Print(tstrVerdict + row.szQuestion + L": " + tstrSeen);
    if (bAssumed) return true;
    Print(L"         assumed: " + std::wstring(row.szAssumed) + L"; needed for: " + row.szFollows);
    return bWine;
}

/// All rows, in trial order.
std::vector<Assumption> AllAssumptions()
{
    std::vector<Assumption> all;
    for (const auto pfnTable : {&Assumptions, &FileAssumptions, &SystemAssumptions, &LinkAssumptions}) {
        const std::span<const Assumption> table = pfnTable();
        all.insert(all.end(), table.begin(), table.end());
    }
    return all;
}

/// Runs the rows for "--prepare" or "--after-restart", or without these words the others. Returns the number of
/// differences.
unsigned Try(const std::wstring& tstrVerb)
{
    const bool bPrepare = tstrVerb == L"--prepare";
    const bool bAfterRestart = tstrVerb == L"--after-restart";
    Require(!bAfterRestart || fs::exists(TrialFolder()), L"the trial has been prepared");
    unsigned cDiffering = 0;
    unsigned uRow = 0;
    for (const Assumption& row : AllAssumptions()) {
        const fs::path folder = TrialFolder() / std::to_wstring(++uRow) / L"";
        if ((row.pfnPrepare != nullptr) != (bPrepare || bAfterRestart)) continue;
        fs::create_directories(folder);
        if (bPrepare) {
            row.pfnPrepare(folder.wstring());
        } else if (!Judge(row, row.pfnObserve(folder.wstring()))) {
            ++cDiffering;
        }
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
    Print(L"FAILED   requirement not met: " + std::wstring(szWhat) + L" (last error " + std::to_wstring(dwError) +
          L")");
    WaitAfterDoubleClick();
    std::exit(2);
}

}  // namespace Platform

int wmain(int argc, wchar_t** argv)
{
    using namespace Platform;
    const std::wstring tstrVerb = argc > 1 ? argv[1] : L"";
    if (tstrVerb == L"--note-rights" && argc > 2) {
        NoteRights(argv[2]);
        return 0;
    }
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
