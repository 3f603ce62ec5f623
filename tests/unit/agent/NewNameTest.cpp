#include "unit/agent/AgentFixture.h"

#include "agent/NewNameDecision.h"
#include "agent/PostRestartRename.h"
#include "agent/RestartReminder.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_Process.h"

#include <wtsapi32.h>

#include <filesystem>

using namespace KzCommon;

namespace {

/// What the message box was asked for, the answer that it gives (0: the call fails), and what became of it.
struct {
    std::wstring tstrTitle, tstrMessage;
    DWORD dwStyle, dwAnswer;
    UINT uExitFlags;
    bool bExitFails;
    DWORD dwSession;
} s_asked;

BOOL WINAPI NoteExit(UINT uFlags, DWORD)
{
    s_asked.uExitFlags = uFlags;
    ::SetLastError(ERROR_SHUTDOWN_IN_PROGRESS);
    return !s_asked.bExitFails;
}

DWORD WINAPI ConsoleSession()
{
    return s_asked.dwSession;
}

class NewNameTest : public AgentTest {
protected:
    ~NewNameTest() override { std::filesystem::remove_all(m_resources); }

    /// Puts a string table beside the test program.
    void SetTable(const wchar_t* szLanguage, const char* szEntries) const
    {
        std::filesystem::remove_all(m_resources);
        std::filesystem::create_directories(m_resources / szLanguage);
        std::filesystem::rename(m_install.Write(L"table", std::string("[Global]\n") + szEntries),
                                m_resources / szLanguage / L"StringTable.ini");
    }

    const std::filesystem::path m_resources = Process::ProgramFolder() + L"Resource";
};

}  // namespace

// The linker takes these instead of the system's.
extern "C" {
decltype(&::ExitWindowsEx) __imp_ExitWindowsEx = &NoteExit;
decltype(&::WTSGetActiveConsoleSessionId) __imp_WTSGetActiveConsoleSessionId = &ConsoleSession;

BOOL WINAPI WTSSendMessageW(HANDLE hServer, DWORD dwSession, LPWSTR szTitle, DWORD cbTitle, LPWSTR szMessage,
                            DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pdwAnswer, BOOL bWait)
{
    const bool bConsole = hServer == WTS_CURRENT_SERVER_HANDLE && dwSession == s_asked.dwSession;
    s_asked.tstrTitle.assign(szTitle, cbTitle / 2);
    s_asked.tstrMessage.assign(szMessage, cbMessage / 2);
    s_asked.dwStyle = bConsole && bWait && dwTimeout == 0 ? dwStyle : 0;
    *pdwAnswer = s_asked.dwAnswer;
    return *pdwAnswer != 0;
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
        EXPECT_EQ(bApplied, CheckIfNewProdNameApplied());
        EXPECT_EQ(bNeeded, NeedToApplyNewName()) << szVersion;
    }
    TagNewProdNameApplied();
    EXPECT_TRUE(CheckIfNewProdNameApplied());
}

TEST_F(NewNameTest, OnlyATableWithTheNewNameSparesTheUserTheQuestion)
{
    EXPECT_TRUE(NeedToInformUser());
    const char* const entries[] = {"S_STR_PRODUCT_NAME=Kazmere Qorvault", "S_STR_PRODUCT_NAME=Kazmere qorvault",
                                   "S_OTHER=x"};
    for (const char* szEntries : entries) {
        SetTable(L"EN-US", szEntries);
        EXPECT_EQ(szEntries != entries[0], NeedToInformUser()) << szEntries;
    }
}

TEST_F(NewNameTest, WithoutAnInstallFolderTheNewNameWaits)
{
    EXPECT_TRUE(CanScheduleNewName());
    for (const wchar_t* szFolder : {L"", L"KZVLT"}) {
        WriteProduct(L"ProductPath", szFolder);
        EXPECT_FALSE(CanScheduleNewName()) << szFolder;
    }
    EXPECT_EQ(2, CountTraced("!!! *** CanScheduleNewName() - the install folder is not known, the new name is not "
                             "scheduled."));
}

TEST_F(NewNameTest, TheCommandIsRegisteredWhateverBecomesOfTheBackup)
{
    const wchar_t szRunOnce[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
    const auto prepare = [&](DWORD cCommands) {
        PreparePostUdActionForNewName();
        DWORD cValues = 0;
        UniqueRegistryKey key;
        EXPECT_EQ(ERROR_SUCCESS, ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, szRunOnce, 0, KEY_READ, key.Receive()));
        ::RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &cValues, nullptr, nullptr,
                           nullptr, nullptr);
        EXPECT_EQ(cCommands, cValues);
    };
    prepare(1);
    EXPECT_EQ(1, CountTraced("!!! Failed to backup old shortcut configuration. Error code = 2"));
    m_install.Write(L"qorshcut.xml", "new");
    const std::wstring tstrBackup = m_install.Write(L"qorshcutbackup.xml", "old");
    prepare(2);
    EXPECT_EQ("new", m_install.Read(L"qorshcutbackup.xml"));
    EXPECT_EQ("new", m_install.Read(L"qorshcut.xml"));
    std::filesystem::remove(tstrBackup);
    m_install.MakeFolder(L"qorshcutbackup.xml");
    prepare(3);
    EXPECT_EQ(1, CountTraced("!!! Failed to backup old shortcut configuration. Error code = 5"));
}

TEST_F(NewNameTest, TheQuestionTakesItsTextsFromTheInstructionFileAndOnlyOkRestarts)
{
    const std::tuple<const char*, const wchar_t*, const wchar_t*, DWORD> rows[] = {
        // clang-format off
        {"[RestartNotification_FR-FR]\ntext=F\n", L"Kazmere Keystride", L"You must restart", 0},
        {"[RestartNotification_DE-DE]\nother=x\ntext=Titel\n", L"Titel", L"You must restart", IDCANCEL},
        {"[RestartNotification_DE-DE]\ntext=Titel\ntext=Text! =x\ntext=more\n", L"Titel", L"Text! =x", IDOK}};
    // clang-format on
    WriteProduct(L"Language", L"DE-DE");
    for (const auto& [szLines, szTitle, szMessageStart, dwAnswer] : rows) {
        Instruct(szLines);
        s_asked = {};
        s_asked.dwAnswer = dwAnswer;
        RemindToReboot();
        EXPECT_EQ(szTitle, s_asked.tstrTitle);
        EXPECT_TRUE(s_asked.tstrMessage.starts_with(szMessageStart));
        EXPECT_EQ(0x40041U, s_asked.dwStyle) << "0 unless it waits at the console for as long as it takes";
        EXPECT_EQ(dwAnswer == IDOK ? UINT{EWX_REBOOT} : 0U, s_asked.uExitFlags) << "and nothing closed by force";
    }
    EXPECT_EQ(1, CountTraced("!!! *** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x00000002]"));
    EXPECT_EQ(2, CountTraced("@@@ Restart later..."));
}

TEST_F(NewNameTest, AQuestionThatCannotBePutAndARestartThatIsRefusedLeaveTheirLines)
{
    s_asked = {};
    s_asked.dwAnswer = IDOK;
    s_asked.dwSession = 0xFFFFFFFF;
    RemindToReboot();
    EXPECT_EQ(L"", s_asked.tstrTitle) << "nobody is asked while the console changes hands";
    EXPECT_EQ(0U, s_asked.uExitFlags);
    EXPECT_EQ(1, CountTraced("@@@ Restart later..."));
    s_asked.dwSession = 3;
    s_asked.bExitFails = true;
    RemindToReboot();
    EXPECT_EQ(L"Kazmere Keystride", s_asked.tstrTitle);
    EXPECT_EQ(1, CountTraced("!!! *** ::ExitWindowsEx() failed. [0x0000045b]"));
    EXPECT_EQ(1, CountTraced("!!! ReStartWindows() failed."));
}

TEST_F(NewNameTest, WithoutATextOfTheLanguageTheNamesAreTheNewOnesOrEmpty)
{
    WriteProduct(L"Language", L"DE-DE");
    WriteProduct(L"ProductName", L"old");
    PostUdActionForNewName();
    EXPECT_EQ(L"old", Frwk::Utility::GetStrFromHKLM_KZVLT(L"ProductName", L"")) << "an empty name is not written";
    EXPECT_EQ(RawText(L" BHO"), ReadRaw(HKEY_CLASSES_ROOT, L"CLSID\\{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}", L""));
    SetTable(L"DE-DE", "S_OTHER=x\n");
    PostUdActionForNewName();
    EXPECT_EQ(L"Kazmere Qorvault", Frwk::Utility::GetStrFromHKLM_KZVLT(L"ProductName", L""));
    EXPECT_EQ(RawText(L"Kazmere Qorvault ToolBar"),
              ReadRaw(HKEY_CLASSES_ROOT, L"CLSID\\{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}", L""));
}

TEST_F(NewNameTest, EveryPlaceTakesItsNameWhateverBecomesOfTheShortcuts)
{
    SetTable(L"EN-US", "S_STR_PRODUCT_NAME=N\nS_TOOLBAR_DISPLAY_NAME=T\n");
    m_install.Write(L"qorshcutbackup.xml", "<S>");
    PostUdActionForNewName();
    const std::tuple<HKEY, std::wstring, const wchar_t*, const wchar_t*> rows[] = {
        // clang-format off
        {HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\KZVLT", L"ProductName", L"N"},
        {HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\"
                             L"{5A1C2E77-3B90-4d6e-9F21-7C04B8E2D913}", L"DisplayName", L"N"},
        {HKEY_CLASSES_ROOT, L"CLSID\\{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}", L"", L"N BHO"},
        {HKEY_CLASSES_ROOT, L"CLSID\\{E2905B7D-8C13-4A6F-9D42-5F7B1E0C38A6}", L"", L"N ActiveX"},
        {HKEY_CLASSES_ROOT, L"CLSID\\{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}", L"", L"T"}};
    // clang-format on
    for (const auto& [hRoot, tstrKey, szValue, szName] : rows) {
        EXPECT_EQ(RawText(szName), ReadRaw(hRoot, tstrKey, szValue)) << KzCommon::String::ToUtf8(tstrKey);
        EXPECT_EQ(std::nullopt, ReadRaw(HKEY_CLASSES_ROOT, L"Wow6432Node\\" + tstrKey, szValue));
    }
    EXPECT_EQ(1, CountTraced("!!! FAILED*** ShortCutXmlHandler::ParseXml(" +
                             KzCommon::String::ToUtf8(m_install.PathOf(L"qorshcutbackup.xml")) + ") failed."));
    EXPECT_EQ(1, CountTraced("!!! qorshcut.xml does not exist!"));
}
