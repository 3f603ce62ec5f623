#include "unit/agent/AgentFixture.h"

#include "agent/NewNameDecision.h"
#include "agent/PostRestartRename.h"
#include "agent/RestartReminder.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

#include <wtsapi32.h>

#include <filesystem>

using namespace testing;
using namespace KzCommon;

namespace {

const wchar_t kMarkerName[] = L"{2B7F61C4-9A0E-4F83-B5D2-6E18A4C0973B}";
const wchar_t kMarkerData[] = L"{8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}";

/// What the message box was asked for, the answer that it gives (0: the call fails), and what became of it.
struct {
    std::wstring tstrTitle, tstrMessage;
    DWORD dwStyle, dwTimeout, dwAnswer;
    bool bConsole, bWait;
    UINT uExitFlags;
} s_asked;

BOOL WINAPI NoteExit(UINT uFlags, DWORD)
{
    s_asked.uExitFlags = uFlags;
    return TRUE;
}

class NewNameTest : public AgentTest {
protected:
    NewNameTest() { s_asked = {}; }
    ~NewNameTest() override { std::filesystem::remove_all(m_resources); }

    static void SetProductValue(const wchar_t* szName, const std::wstring& tstrValue)
    {
        WriteRaw(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, szName, RawText(tstrValue));
    }
    /// Puts a string table beside the test program.
    void SetTable(const wchar_t* szLanguage, const std::string& strEntries)
    {
        const std::filesystem::path folder = m_resources / szLanguage;
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        std::filesystem::rename(m_install.Write(L"table", "[Global]\r\n" + strEntries), folder / L"StringTable.ini");
    }

    const std::filesystem::path m_resources = Process::ProgramFolder() + L"Resource";
};

}  // namespace

// The linker takes these instead of the system's.
extern "C" {
decltype(&::ExitWindowsEx) __imp_ExitWindowsEx = &NoteExit;

BOOL WINAPI WTSSendMessageW(HANDLE hServer, DWORD dwSession, LPWSTR szTitle, DWORD cbTitle, LPWSTR szMessage,
                            DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pdwAnswer, BOOL bWait)
{
    const bool bConsole = hServer == WTS_CURRENT_SERVER_HANDLE && dwSession == ::WTSGetActiveConsoleSessionId();
    *pdwAnswer = s_asked.dwAnswer;
    s_asked = {
        {szTitle, cbTitle / 2}, {szMessage, cbMessage / 2}, dwStyle, dwTimeout, *pdwAnswer, bConsole, bWait != 0, 0};
    return *pdwAnswer != 0;
}
}

TEST_F(NewNameTest, TheDecisionReadsMarkerLanguageAndBuildExactly)
{
    const struct {
        const wchar_t *szMarker, *szLanguage, *szVersion;
        bool bApplied, bNeeded;
    } rows[] = {
        {kMarkerData, L"EN-US", L"3.8.0.1099", true, true},
        {L"{8e3d9a10-42f7-4b5c-a1e6-0d59c7b3f284}", L"", L"3.8.0.1099", false, true},
        {L"", L"ja-jp", L"3.8.0.1099", false, false},
        {L"", L"JA-JP", L"3.8.0.1099", false, true},
        {L"", L"EN-US", L"3.8.0.1100", false, false},
        {L"", L"EN-US", L"3.8.0.999", false, false},
        {L"", L"EN-US", L"", false, false},
        {L"", L"EN-US", L"10.0.0.1000", false, true},
    };
    for (const auto& row : rows) {
        SetProductValue(kMarkerName, row.szMarker);
        SetProductValue(L"Language", row.szLanguage);
        SetProductValue(L"Version", row.szVersion);
        EXPECT_EQ(row.bApplied, CheckIfNewProdNameApplied());
        EXPECT_EQ(row.bNeeded, NeedToApplyNewName()) << String::ToUtf8(row.szVersion);
    }
    EXPECT_EQ(2, CountTraced("!!! Product version key is invalid. Do not apply new name."));
    TagNewProdNameApplied();
    EXPECT_TRUE(CheckIfNewProdNameApplied());
}

TEST_F(NewNameTest, ThePreparationKeepsTheOldDescriptionAndRegistersTheRun)
{
    PreparePostUdActionForNewName();
    EXPECT_EQ(1, CountTraced("!!! Failed to backup old shortcut configuration. Error code = 2"));
    m_install.Write(L"qorshcut.xml", "<new/>");
    m_install.Write(L"qorshcutbackup.xml", "<older/>");
    PreparePostUdActionForNewName();
    EXPECT_EQ("<new/>", m_install.Read(L"qorshcutbackup.xml"));

    Storage::Registry runOnce;
    runOnce.OpenForEnumerate(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce");
    for (const DWORD dwIndex : {0UL, 1UL}) {
        EXPECT_EQ(m_install.Path() + L"Brevant.exe /ApplyNewName", runOnce.ReadString(runOnce.EnumValue(dwIndex), L""));
    }
}

TEST_F(NewNameTest, OnlyATableWithTheNewNameSparesTheUserTheQuestion)
{
    EXPECT_TRUE(NeedToInformUser());
    const std::pair<const char*, bool> rows[] = {{"S_STR_PRODUCT_NAME=Kazmere Qorvault", false},
                                                 {"S_STR_PRODUCT_NAME=Kazmere qorvault", true},
                                                 {"S_OTHER=Kazmere Qorvault", true}};
    for (const auto& [szEntries, bInform] : rows) {
        SetTable(L"EN-US", szEntries);
        EXPECT_EQ(bInform, NeedToInformUser()) << szEntries;
    }
}

TEST_F(NewNameTest, TheQuestionTakesItsTextsFromTheInstructionFileAndOnlyOkRestarts)
{
    const struct {
        const char* szLines;
        std::wstring tstrTitle, tstrMessageStart;
        DWORD dwAnswer;
    } rows[] = {
        {"[RestartNotification_FR-FR]\r\ntext=F\r\n", L"Kazmere Keystride", L"You must restart", 0},
        {"[RestartNotification_DE-DE]\r\nother=x\r\ntext=Titel\r\n", L"Titel", L"You must restart", IDCANCEL},
        {"[RestartNotification_DE-DE]\r\ntext=Titel\r\ntext=Text! =x\r\ntext=more\r\n", L"Titel", L"Text! =x", IDOK},
    };
    SetProductValue(L"Language", L"DE-DE");
    for (const auto& row : rows) {
        Instruct(row.szLines);
        s_asked.dwAnswer = row.dwAnswer;
        RemindToReboot();
        EXPECT_EQ(row.tstrTitle, s_asked.tstrTitle);
        EXPECT_EQ(row.tstrMessageStart, s_asked.tstrMessage.substr(0, row.tstrMessageStart.size()));
        EXPECT_EQ(0x40041U, s_asked.dwStyle);
        EXPECT_TRUE(s_asked.bConsole && s_asked.bWait && s_asked.dwTimeout == 0);
        EXPECT_EQ(row.dwAnswer == IDOK ? UINT{EWX_REBOOT} : 0U, s_asked.uExitFlags) << "and nothing closed by force";
    }
    EXPECT_EQ(1, CountTraced("!!! *** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x00000002]"));
    EXPECT_EQ(2, CountTraced("@@@ Restart later..."));
}

TEST_F(NewNameTest, TheNamesOfTheLanguageGoWhereTheyShow)
{
    const struct {
        const char* szEntries;
        std::wstring tstrProduct, tstrToolbar;
    } rows[] = {
        {"S_STR_PRODUCT_NAME=Tresor\r\nS_TOOLBAR_DISPLAY_NAME=Leiste\r\n", L"Tresor", L"Leiste"},
        {"S_OTHER=x\r\n", L"Kazmere Qorvault", L"Kazmere Qorvault ToolBar"},
        {nullptr, L"", L""},
    };
    const auto nameOf = [](const wchar_t* szClass) {
        return ReadRaw(HKEY_CLASSES_ROOT, szClass, L"");
    };
    SetProductValue(L"Language", L"DE-DE");
    for (const auto& row : rows) {
        SetProductValue(L"ProductName", L"old");
        std::filesystem::remove_all(m_resources);
        if (row.szEntries) SetTable(L"DE-DE", row.szEntries);
        PostUdActionForNewName();
        EXPECT_EQ(row.szEntries ? row.tstrProduct : L"old", Frwk::Utility::GetStrFromHKLM_KZVLT(L"ProductName", L""));
        EXPECT_EQ(
            RawText(row.tstrProduct),
            ReadRaw(HKEY_LOCAL_MACHINE,
                    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{5A1C2E77-3B90-4d6e-9F21-7C04B8E2D913}",
                    L"DisplayName"));
        EXPECT_EQ(RawText(row.tstrProduct + L" BHO"), nameOf(L"CLSID\\{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}"));
        EXPECT_EQ(RawText(row.tstrProduct + L" ActiveX"), nameOf(L"CLSID\\{E2905B7D-8C13-4A6F-9D42-5F7B1E0C38A6}"));
        EXPECT_EQ(RawText(row.tstrToolbar), nameOf(L"CLSID\\{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}"));
        EXPECT_FALSE(nameOf(L"Wow6432Node\\CLSID\\{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}"));
    }
    EXPECT_EQ(3, CountTraced("!!! qorshcutbackup.xml does not exist!"));
    EXPECT_EQ(3, CountTraced("!!! qorshcut.xml does not exist!"));
}
