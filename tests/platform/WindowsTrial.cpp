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
    const auto remove = [](const Text& tstrPath) {
        ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (!::RemoveDirectoryW(tstrPath.c_str())) ::DeleteFileW(tstrPath.c_str());
    };
    static_cast<void>(KzCommon::Storage::Directory::ForEachInTree((TrialFolder() / L"").wstring(), remove, nullptr));
}

void Print(const Text& tstrLine)
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
Text KnownOfWine(const Assumption& row)
{
    constexpr std::wstring_view kNext = L" | ";
    constexpr int kFirstWithNext = 10;
    const std::wstring_view tstrAll = row.szWine ? row.szWine : L"";
    const std::size_t uNext = std::min(tstrAll.find(kNext), tstrAll.size());
    if (WineVersion() == 0) return {};
    if (WineVersion() < kFirstWithNext || uNext == tstrAll.size()) return Text(tstrAll.substr(0, uNext));
    return Text(tstrAll.substr(uNext + kNext.size()));
}

/// Prints one row; false when it differs in another way than known for Wine.
bool Judge(const Assumption& row, const Text& tstrSeen)
{
    if (tstrSeen.empty()) {
        Print(L"not seen " + Text(row.szQuestion) + L": " + row.szSeenBy);
        return true;
    }
    const bool bAssumed = tstrSeen == row.szAssumed;
    const bool bWine = !bAssumed && tstrSeen == KnownOfWine(row);
    const Text tstrVerdict = bAssumed ? L"ok       " : bWine ? L"Wine     " : L"DIFFERS  ";
    Print(tstrVerdict + row.szQuestion + L": " + tstrSeen);
    if (bAssumed) return true;
    Print(L"         assumed: " + Text(row.szAssumed) + L"; needed for: " + row.szFollows);
    return bWine;
}

/// Runs the rows for "--prepare" or "--after-restart", or without these words the others. Returns the number of
/// differences.
unsigned Try(const Text& tstrVerb)
{
    const bool bPrepare = tstrVerb == L"--prepare";
    const bool bAfterRestart = tstrVerb == L"--after-restart";
    Require(!bAfterRestart || fs::exists(TrialFolder()), L"the trial has been prepared");
    unsigned cDiffering = 0;
    unsigned uRow = 0;
    std::vector<Assumption> all;
    for (const auto table : {Assumptions(), FileAssumptions(), CheckerAssumptions(), LinkAssumptions()})
        all.insert(all.end(), table.begin(), table.end());
    for (const Assumption& row : all) {
        const fs::path folder = TrialFolder() / std::to_wstring(++uRow) / L"";
        if ((row.pfnPrepare != nullptr) != (bPrepare || bAfterRestart)) continue;
        fs::create_directories(folder);
        if (bPrepare) {
            row.pfnPrepare(folder.wstring(), row.dwOption);
        } else if (!Judge(row, row.pfnObserve(folder.wstring(), row.dwOption))) {
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

Text Outcome(BOOL bDone)
{
    const DWORD dwError = ::GetLastError();
    return bDone ? L"done" : L"refused (" + std::to_wstring(dwError) + L")";
}

Text OutcomeOf(bool bDone, DWORD dwError)
{
    ::SetLastError(dwError);
    return Outcome(bDone);
}

void Delay(const Text& tstrSource, const wchar_t* szDestination)
{
    Require(::MoveFileExW(tstrSource.c_str(), szDestination,
                          MOVEFILE_DELAY_UNTIL_REBOOT | (szDestination ? MOVEFILE_REPLACE_EXISTING : 0)),
            L"moves can be delayed (run it as an administrator)");
}

KzCommon::UniqueFile Open(const Text& tstrPath, DWORD dwAccess, DWORD dwShare, DWORD dwFlags)
{
    return KzCommon::UniqueFile(
        ::CreateFileW(tstrPath.c_str(), dwAccess, dwShare, nullptr, OPEN_EXISTING, dwFlags, nullptr));
}

bool Exists(const Text& tstrPath)
{
    return ::GetFileAttributesW(tstrPath.c_str()) != INVALID_FILE_ATTRIBUTES;
}

Text WriteFileAt(const Text& tstrPath, std::string_view strBytes, DWORD dwAttributes)
{
    std::ofstream file(fs::path(tstrPath), std::ios::binary);
    file << strBytes;
    Require(static_cast<bool>(file.flush()), L"a file can be written");
    Require(!dwAttributes || ::SetFileAttributesW(tstrPath.c_str(), dwAttributes), L"attributes can be set");
    return tstrPath;
}

std::string ReadFileAt(const Text& tstrPath)
{
    std::ifstream file(fs::path(tstrPath), std::ios::binary);
    if (!file) return "(no file)";
    return {std::istreambuf_iterator<char>(file), {}};
}

void Require(BOOL bOk, const wchar_t* szWhat)
{
    if (bOk) return;
    const DWORD dwError = ::GetLastError();
    Print(L"FAILED   requirement not met: " + Text(szWhat) + L" (last error " + std::to_wstring(dwError) + L")");
    WaitAfterDoubleClick();
    std::exit(2);
}

}  // namespace Platform

int wmain(int argc, wchar_t** argv)
{
    using namespace Platform;
    const Text tstrVerb = argc > 1 ? argv[1] : L"";
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
