#include "unit/agent/AgentFixture.h"

#include "agent/NewNameDecision.h"
#include "agent/PostRestartRename.h"
#include "agent/RestartReminder.h"
#include <wtsapi32.h>

namespace {

constexpr DWORD kShutdownPrivilege = 19;  // the same on every machine

/// The simulated system: console session, the user's answer (0: the question fails), and the code of each step of a
/// restart (0: success).
struct Answers {
    DWORD dwSession = 1, dwAnswer = IDOK, dwAdjust = 0, dwExit = 0;
} s_answers;

/// The recorded requests.
struct {
    std::wstring tstrTitle, tstrMessage;
    DWORD dwStyle;
    bool bPrivilege;
    UINT uExitFlags;
} s_asked;

BOOL Answer(DWORD dwError, bool bDone)
{
    ::SetLastError(dwError);
    return bDone;
}

BOOL WINAPI Adjust(HANDLE, BOOL, TOKEN_PRIVILEGES* pNew, DWORD, TOKEN_PRIVILEGES*, DWORD*)
{
    const LUID_AND_ATTRIBUTES& privilege = pNew->Privileges[0];
    s_asked.bPrivilege = privilege.Luid.LowPart == kShutdownPrivilege && privilege.Attributes == SE_PRIVILEGE_ENABLED;
    return Answer(s_answers.dwAdjust, s_answers.dwAdjust == 0 || s_answers.dwAdjust == ERROR_NOT_ALL_ASSIGNED);
}

BOOL WINAPI NoteExit(UINT uFlags, DWORD)
{
    s_asked.uExitFlags = s_asked.bPrivilege ? uFlags : 0;
    return Answer(s_answers.dwExit, s_answers.dwExit == 0);
}

DWORD WINAPI ConsoleSession()
{
    return s_answers.dwSession;
}

class NewNameTest : public AgentTest {
protected:
    ~NewNameTest() override { fs::remove_all(m_resources); }

    /// Creates a string table beside the test program.
    void SetTable(const wchar_t* szLanguage, const char* szEntries) const
    {
        fs::remove_all(m_resources);
        fs::create_directories(m_resources / szLanguage);
        fs::rename(m_install.Write(L"table", std::string("[Global]\n") + szEntries),
                   m_resources / szLanguage / L"StringTable.ini");
    }

    const fs::path m_resources = Process::ProgramFolder() + L"Resource";
};

}  // namespace

// The linker uses these instead of the system's functions.
extern "C" {
decltype(&::AdjustTokenPrivileges) __imp_AdjustTokenPrivileges = &Adjust;
decltype(&::ExitWindowsEx) __imp_ExitWindowsEx = &NoteExit;
decltype(&::WTSGetActiveConsoleSessionId) __imp_WTSGetActiveConsoleSessionId = &ConsoleSession;

BOOL WINAPI WTSSendMessageW(HANDLE hServer, DWORD dwSession, LPWSTR szTitle, DWORD cbTitle, LPWSTR szMessage,
                            DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pdwAnswer, BOOL bWait)
{
    const bool bConsole = hServer == WTS_CURRENT_SERVER_HANDLE && dwSession == s_answers.dwSession;
    s_asked.tstrTitle.assign(szTitle, cbTitle / 2);
    s_asked.tstrMessage.assign(szMessage, cbMessage / 2);
    s_asked.dwStyle = bConsole && bWait && dwTimeout == 0 ? dwStyle : 0;
    *pdwAnswer = s_answers.dwAnswer;
    return Answer(ERROR_CTX_WINSTATION_BUSY, *pdwAnswer != 0);
}
}

TEST_F(NewNameTest, TheDecisionReadsMarkerLanguageAndBuildExactly)
{
    const wchar_t szMarked[] = L"{8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}";
    const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*, bool, bool> rows[] = {
        // clang-format off
        {szMarked, L"EN-US", L"3.8.0.1099", true, true}, {L"", L"ja-jp", L"3.8.0.1099", false, false},
        {L"{8e3d9a10-42f7-4b5c-a1e6-0d59c7b3f284}", L"", L"3.8.0.1099", false, true},
        {L"", L"JA-JP", L"3.8.0.1099", false, true}, {L"", L"EN-US", L"3.8.0.1100", false, false},
        {L"", L"EN-US", L"3.8.0.999", false, false}, {L"", L"EN-US", L"", false, false},
        {L"", L"EN-US", L"10.0.0.1000", false, true}};  // clang-format on
    for (const auto& [szMarker, szLanguage, szVersion, bApplied, bNeeded] : rows) {
        WriteProduct(L"{2B7F61C4-9A0E-4F83-B5D2-6E18A4C0973B}", szMarker);
        WriteProduct(L"Language", szLanguage);
        WriteProduct(L"Version", szVersion);
        SCOPED_TRACE(String::ToUtf8(std::wstring(szMarker) + L" " + szLanguage + L" " + szVersion));
        EXPECT_EQ(bApplied, CheckIfNewProdNameApplied(m_machine));
        EXPECT_EQ(bNeeded, NeedToApplyNewName(m_machine));
    }
    TagNewProdNameApplied(m_machine);
    EXPECT_TRUE(CheckIfNewProdNameApplied(m_machine));
}

TEST_F(NewNameTest, OnlyATableWithTheNewNameSparesTheQuestionAndWithoutAnInstallFolderItWaits)
{
    EXPECT_TRUE(NeedToInformUser(m_machine));
    const char* const entries[] = {"S_STR_PRODUCT_NAME=Kazmere Qorvault", "S_STR_PRODUCT_NAME=Kazmere qorvault",
                                   "S_OTHER=x"};
    for (const char* szEntries : entries) {
        SetTable(L"EN-US", szEntries);
        EXPECT_EQ(szEntries != entries[0], NeedToInformUser(m_machine)) << szEntries;
    }
    EXPECT_TRUE(CanScheduleNewName(m_machine));
    for (const wchar_t* szFolder : {L"", L"KZVLT"}) {
        WriteProduct(L"ProductPath", szFolder);
        EXPECT_FALSE(CanScheduleNewName(m_machine)) << szFolder;
    }
}

TEST_F(NewNameTest, TheCommandIsRegisteredEvenIfTheBackupFails)
{
    const auto prepare = [&](std::size_t uCommands) {
        PreparePostUdActionForNewName(m_machine);
        EXPECT_EQ(uCommands, RunOnceCommands().count(m_install.PathOf(L"Brevant.exe /ApplyNewName")));
    };
    m_install.MakeFolder(L"qorshcutbackup.xml");
    prepare(1);
    m_install.Write(L"qorshcut.xml", "new");
    prepare(2);
    fs::remove(m_install.PathOf(L"qorshcutbackup.xml"));
    m_install.Write(L"qorshcutbackup.xml", "old");
    prepare(3);
    EXPECT_EQ("new", m_install.Read(L"qorshcutbackup.xml"));
    EXPECT_EQ("new", m_install.Read(L"qorshcut.xml"));
}

TEST_F(NewNameTest, TheQuestionTakesItsTextsFromTheInstructionFileAndOnlyOkRestarts)
{
    const std::string strTexts = "[RestartNotification_DE-DE]\ntext=Titel\ntext=Text! =x\ntext=more\n";
    const std::string strTitle = "[RestartNotification_DE-DE]\nother=x\ntext=Titel\n";
    // The shown texts (empty while the console changes sessions), the flags of the restart.
    const std::tuple<std::string, Answers, std::wstring, std::wstring, UINT> rows[] = {
        // clang-format off
        {"[RestartNotification_FR-FR]\ntext=F\n", {1, IDCANCEL}, L"Kazmere Keystride", L"You must restart", 0},
        {strTitle, {1, IDCANCEL}, L"Titel", L"You must restart", 0},
        {strTexts, {1, 0}, L"Titel", L"Text! =x", 0},
        {strTexts, {0xFFFFFFFF}, L"", L"", 0},
        {strTexts, {3}, L"Titel", L"Text! =x", EWX_REBOOT},
        {strTexts, {3, IDOK, ERROR_INVALID_HANDLE}, L"Titel", L"Text! =x", 0},
        // The call succeeds although the token does not have the privilege.
        {strTexts, {3, IDOK, ERROR_NOT_ALL_ASSIGNED}, L"Titel", L"Text! =x", 0},
        {strTexts, {3, IDOK, 0, ERROR_SHUTDOWN_IN_PROGRESS}, L"Titel", L"Text! =x", EWX_REBOOT}};
    // clang-format on
    WriteProduct(L"Language", L"DE-DE");
    for (const auto& [strLines, answers, tstrTitle, tstrMessageStart, uFlags] : rows) {
        SCOPED_TRACE(strLines);
        Instruct(strLines);
        s_answers = answers;
        s_asked = {};
        RemindToReboot(m_machine);
        EXPECT_EQ(tstrTitle, s_asked.tstrTitle);
        EXPECT_THAT(s_asked.tstrMessage, StartsWith(tstrMessageStart));
        EXPECT_EQ(tstrTitle.empty() ? 0U : 0x40041U, s_asked.dwStyle) << "0 without a question at the console";
        EXPECT_EQ(uFlags, s_asked.uExitFlags) << "no program is forced to close; 0 without the privilege";
    }
}

TEST_F(NewNameTest, WithoutThePrivilegeThereIsNoRestart)
{
    s_answers = {};
    for (const char* szCall : {"OpenProcessToken", "LookupPrivilegeValueW"}) {
        SystemWatch watch(m_install.Path());
        watch.Fail(szCall, ERROR_NOT_READY);
        s_asked = {};
        RemindToReboot(m_machine);
        EXPECT_EQ(0U, s_asked.uExitFlags) << szCall;
    }
}

// A system test on a whole machine checks all places with the name.
TEST_F(NewNameTest, NamesMissingInTheTableAreBuiltInEvenIfShortcutsFail)
{
    WriteProduct(L"Language", L"DE-DE");
    WriteProduct(L"ProductName", L"old");
    m_install.Write(L"qorshcutbackup.xml", "<S>");
    const std::tuple<const char*, std::wstring, std::wstring> rows[] = {
        {nullptr, L"", L""}, {"S_OTHER=x", L"Kazmere Qorvault", L"Kazmere Qorvault ToolBar"}};
    for (const auto& [szEntries, tstrName, tstrToolbar] : rows) {
        if (szEntries) SetTable(L"DE-DE", szEntries);
        PostUdActionForNewName(m_machine);
        const std::tuple<HKEY, std::wstring, const wchar_t*, std::wstring> places[] = {
            // clang-format off
            {HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\KZVLT", L"ProductName", szEntries ? tstrName : L"old"},
            {HKEY_CLASSES_ROOT, L"CLSID\\{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}", L"", tstrName + L" BHO"},
            {HKEY_CLASSES_ROOT, L"CLSID\\{E2905B7D-8C13-4A6F-9D42-5F7B1E0C38A6}", L"", tstrName + L" ActiveX"},
            {HKEY_CLASSES_ROOT, L"CLSID\\{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}", L"", tstrToolbar}};
        // clang-format on
        for (const auto& [hRoot, tstrKey, szValue, tstrData] : places) {
            EXPECT_EQ(RawText(tstrData), ReadRaw(hRoot, tstrKey, szValue)) << String::ToUtf8(tstrKey + tstrName);
            EXPECT_EQ(std::nullopt, ReadRaw(HKEY_CLASSES_ROOT, L"Wow6432Node\\" + tstrKey, szValue));
        }
    }
}
