// Libraries and sessions; and what only a restart shows.
#include "Assumptions.h"

#include "common/KzComn_Handle.h"

#include <wtsapi32.h>

using namespace KzCommon;

namespace Platform {

namespace {

/// A library of the system's own name in the current folder must not be taken.
std::wstring PlantedLibrary(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"wtsapi32.dll", "no library");
    wchar_t szCurrent[MAX_PATH] = {};
    ::GetCurrentDirectoryW(MAX_PATH, szCurrent);
    ::SetCurrentDirectoryW(tstrFolder.c_str());
    const UniqueModule library(::LoadLibraryExW(L"wtsapi32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
    ::SetCurrentDirectoryW(szCurrent);
    return library ? L"that of the system folder" : Outcome(FALSE);
}

std::wstring MessageWithoutSession(const std::wstring&)
{
    constexpr DWORD kUnusedSession = 54321;
    wchar_t szText[] = L"Trial";
    constexpr DWORD kBytes = sizeof(szText) - sizeof(wchar_t);
    DWORD dwAnswer = 0;
    return ::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, kUnusedSession, szText, kBytes, szText, kBytes, MB_OK, 1,
                             &dwAnswer, TRUE)
               ? L"done"
               : L"refused";
}

// -- the next restart --

void Delay(const std::wstring& tstrSource, const wchar_t* szDestination, DWORD dwFlags = 0)
{
    Require(::MoveFileExW(tstrSource.c_str(), szDestination, dwFlags | MOVEFILE_DELAY_UNTIL_REBOOT),
            L"moves can be delayed (run it as an administrator)");
}

/// A file "new" that is to take the place of "old", with the attributes of each.
void DelayedReplacement(const std::wstring& tstrFolder, DWORD dwNew, DWORD dwOld)
{
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old", dwOld);
    Delay(WriteFileAt(tstrFolder + L"new", "new", dwNew), tstrOld.c_str(), MOVEFILE_REPLACE_EXISTING);
}

std::wstring WhatStandsInOld(const std::wstring& tstrFolder)
{
    return ReadFileAt(tstrFolder + L"old") == "new" ? L"arrives" : L"does not arrive";
}

/// A folder with a file in it, of which both or the folder alone is to be deleted.
void DelayedDeletion(const std::wstring& tstrFolder, bool bFileToo)
{
    ::CreateDirectoryW((tstrFolder + L"folder").c_str(), nullptr);
    const std::wstring tstrFile = WriteFileAt(tstrFolder + L"folder\\a", "a");
    if (bFileToo) Delay(tstrFile, nullptr);
    Delay(tstrFolder + L"folder", nullptr);
}

std::wstring WhetherFolderIsGone(const std::wstring& tstrFolder)
{
    return ::GetFileAttributesW((tstrFolder + L"folder").c_str()) == INVALID_FILE_ATTRIBUTES ? L"gone" : L"there";
}

void RunOnceOf(const std::wstring& tstrFolder, std::size_t cchCommand)
{
    std::wstring tstrCommand = L"cmd.exe /c echo ran>\"" + tstrFolder + L"ran.txt\"";
    tstrCommand.insert(11, std::wstring(cchCommand > tstrCommand.size() ? cchCommand - tstrCommand.size() : 0, L' '));
    Require(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce",
                              (L"brevant-trial-" + std::to_wstring(cchCommand)).c_str(), REG_SZ, tstrCommand.c_str(),
                              static_cast<DWORD>((tstrCommand.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS,
            L"the RunOnce key can be written (run it as an administrator)");
}

std::wstring WhetherItRan(const std::wstring& tstrFolder)
{
    return ReadFileAt(tstrFolder + L"ran.txt").starts_with("ran") ? L"runs" : L"does not run";
}

// clang-format off
constexpr Assumption kRows[] = {
    {L"LOAD_LIBRARY_SEARCH_SYSTEM32 beside a planted library", L"that of the system folder", nullptr,
     L"nothing planted runs with full rights", &PlantedLibrary},
    {L"WTSSendMessageW to a session that is not there", L"refused", L"done",
     L"no question is asked without a console session", &MessageWithoutSession},
    {L"delayed move of a file", L"arrives", nullptr, L"everything that is deployed", &WhatStandsInOld,
     [](const std::wstring& tstrFolder) { DelayedReplacement(tstrFolder, 0, 0); }},
    {L"delayed move of a read-only file", L"arrives", nullptr, L"packages may hold such files", &WhatStandsInOld,
     [](const std::wstring& tstrFolder) { DelayedReplacement(tstrFolder, FILE_ATTRIBUTE_READONLY, 0); }},
    {L"delayed move onto a read-only file", L"arrives", nullptr, L"files that a user has protected", &WhatStandsInOld,
     [](const std::wstring& tstrFolder) { DelayedReplacement(tstrFolder, 0, FILE_ATTRIBUTE_READONLY); }},
    {L"delayed deletion of a folder that is empty by then", L"gone", nullptr, L"folders of \"QOR_DIR\"",
     &WhetherFolderIsGone, [](const std::wstring& tstrFolder) { DelayedDeletion(tstrFolder, true); }},
    {L"delayed deletion of a folder that is not empty", L"there", nullptr, L"nothing of anybody else's is lost",
     &WhetherFolderIsGone, [](const std::wstring& tstrFolder) { DelayedDeletion(tstrFolder, false); }},
    {L"a run-once command of 250 characters", L"runs", nullptr, L"the limit that the guides name", &WhetherItRan,
     [](const std::wstring& tstrFolder) { RunOnceOf(tstrFolder, 250); }},
    {L"a run-once command of 400 characters", L"does not run", L"runs", L"the same limit", &WhetherItRan,
     [](const std::wstring& tstrFolder) { RunOnceOf(tstrFolder, 400); }},
};
// clang-format on

}  // namespace

std::span<const Assumption> SystemAssumptions()
{
    return kRows;
}

}  // namespace Platform
