// Files in use, as "ready" finds them.
#include "unit/check/CheckFixture.h"

#include "check/ready/Ready.h"

#include <restartmanager.h>

namespace {

/// A recording stand-in for the Restart Manager: Wine's does nothing.
std::vector<std::wstring> s_calls;
std::vector<std::wstring> s_programs;  // that have every file open; empty: it does not tell

DWORD Note(const std::wstring& tstrCall)
{
    s_calls.push_back(tstrCall);
    return ERROR_SUCCESS;
}

/// In place of its library, this executable, which exports the functions below.
HMODULE WINAPI Load(LPCWSTR szName, HANDLE hFile, DWORD dwFlags)
{
    static const auto s_pfnReal = reinterpret_cast<decltype(&::LoadLibraryExW)>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "LoadLibraryExW")));
    const bool bRecorded = szName == std::wstring_view(L"rstrtmgr.dll");
    return bRecorded ? ::GetModuleHandleW(nullptr) : s_pfnReal(szName, hFile, dwFlags);
}

}  // namespace

extern "C" {
decltype(&::LoadLibraryExW) __imp_LoadLibraryExW = &Load;

__declspec(dllexport) DWORD WINAPI RmStartSession(DWORD*, DWORD, WCHAR*)
{
    return Note(L"session");
}
__declspec(dllexport) DWORD WINAPI
    RmRegisterResources(DWORD, UINT, LPCWSTR* files, UINT, RM_UNIQUE_PROCESS*, UINT, LPCWSTR*)
{
    return Note(files[0]);
}
__declspec(dllexport) DWORD WINAPI RmGetList(DWORD, UINT*, UINT* pcFound, RM_PROCESS_INFO* found, DWORD*)
{
    *pcFound = static_cast<UINT>(s_programs.size());
    for (const std::wstring& tstrProgram : s_programs) tstrProgram.copy(found++->strAppName, CCH_RM_MAX_APP_NAME);
    return s_programs.empty() ? ERROR_SEM_TIMEOUT : ERROR_SUCCESS;
}
__declspec(dllexport) DWORD WINAPI RmEndSession(DWORD)
{
    return Note(L"end");
}
}

TEST(ReadyTest, AFileThatCannotBeReplacedNowIsInUse)
{
    TempFolder installed;
    installed.Write(L"config.xml", "<c/>");
    installed.Write(L"copied.ini", "a");
    installed.Write(L"moved.exe", "a");
    const KzCommon::WindowsMachine machine;
    const Folder folder(installed.Path());
    const Change copied{.eAction = KzCommon::Action::eCopy,
                        .eOutcome = KzCommon::Outcome::eReplace,
                        .tstrTarget = folder / L"copied.ini"};
    const Change moved{.eAction = KzCommon::Action::eMove,
                       .eOutcome = KzCommon::Outcome::eReplace,
                       .bAtRestart = true,
                       .tstrTarget = folder / L"moved.exe"};
    const Plan plan{{}, folder, {{L"", L"", {copied, moved}}}};
    const Update update;
    const auto found = [&] {
        std::vector<std::wstring> files;
        for (const ReadyFinding& finding : CheckReadiness({machine, update, folder, plan, {}}).findings) {
            if (finding.uNumber == 2) files.push_back(folder.Relative(finding.tstrWhat) + L" " + finding.tstrReason);
        }
        return files;
    };
    EXPECT_THAT(found(), IsEmpty());
    // A reader that does not share the right to delete stops a replacement; at the restart it no longer has the file.
    for (const DWORD dwShared : {DWORD{0}, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE}}) {
        std::vector<KzCommon::UniqueFile> readers;
        for (const wchar_t* const szFile : {L"config.xml", L"copied.ini", L"moved.exe"}) {
            readers.emplace_back(::CreateFileW((folder / szFile).c_str(), GENERIC_READ, dwShared, nullptr,
                                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        }
        s_calls.clear();
        s_programs = {L"Word", L"Indexer", L"WORD"};  // which has two processes
        EXPECT_THAT(found(), ElementsAre(L"config.xml in use by Word, Indexer", L"copied.ini in use by Word, Indexer"));
        s_programs.clear();
        EXPECT_THAT(found(), ElementsAre(L"config.xml in use", L"copied.ini in use"));
        EXPECT_THAT(s_calls, SizeIs(12));  // no call that ends a program
        EXPECT_EQ(s_calls[0] + s_calls[1] + s_calls[2], L"session" + folder / L"config.xml" + L"end");
    }
}
