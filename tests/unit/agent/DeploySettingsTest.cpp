#include "agent/DeploySettings.h"

#include "support/watch/SystemWatch.h"
#include "unit/agent/AgentFixture.h"

#include <filesystem>

using namespace KzCommon;

namespace {

const std::wstring kDownload = L"Component\\c21t2103v0.0.0l1p1r1o1\\";
const std::wstring kSetting = kDownload + L"Share\\Setting\\";

/// The working copy of a process.
std::wstring WorkingName(const wchar_t* szBase, DWORD dwProcess = ::GetCurrentProcessId())
{
    wchar_t szProcess[9] = {};
    ::_snwprintf_s(szProcess, _TRUNCATE, L"%08lx", dwProcess);
    return kDownload + szBase + L"-" + szProcess + L".unfinished";
}
const std::wstring kLeftover = WorkingName(L"UpdateInfo");

class DeploySettingsTest : public AgentTest {
protected:
    DeploySettingsTest()
    {
        Instruct("[UPDATE_INFO]\nmodify=S!K!new\n[QOR_REGISTRY_PATCH]\nadd=SOFTWARE\\X!Name!REG_DWORD!7\n");
        m_install.Write(L"UpdateInfo.ini", "[S]\nK=old\n");
        m_run.paths.ReadProductFolders();
    }
    /// The value that the instruction file changes; "" if the file does not exist.
    [[nodiscard]] std::string ValueIn(const std::wstring& tstrName) const
    {
        const std::string strText = m_install.Read(tstrName).value_or("");
        return strText.find("K=new") != std::string::npos ? "new"
               : strText.find("K=") != std::string::npos  ? "old"
                                                          : "";
    }
};

}  // namespace

TEST_F(DeploySettingsTest, TheUpdateInformationIsChangedBeforeItIsDeployed)
{
    // The package's own file; the leftover of an interrupted run ("folder"); the code for the failed move of the
    // finished copy; the results for the package's and the installed file.
    const std::tuple<const char*, const char*, std::string, DWORD, const char*, const char*, std::string> rows[] = {
        // clang-format off
        {"none brought", "", "", 0, "new", "old", ""},
        {"after an interrupted run", "", "[S]\nK=half\n", 0, "new", "old", ""},
        {"a folder has the name", "", "folder", 0, "new", "old", ""},
        {"one brought", "[S]\nK=brought\n", "", 0, "old", "new", "80"},
        {"the update's own file after an interrupted run", "[S]\nK=brought\n", "[S]\nK=half\n", 0, "old", "new", "80"},
        {"installed read-only", "", "", 0, "new", "old", ""},
        {"the place is refused", "", "", ERROR_DISK_FULL, "", "new", "112"}};  // clang-format on
    for (const auto& [szRow, szBrought, strLeftover, dwMoveCode, szBroughtAfter, szInstalledAfter, strCode] : rows) {
        SCOPED_TRACE(szRow);
        m_install.Write(L"UpdateInfo.ini", "[S]\nK=old\n");
        std::filesystem::remove_all(m_install.PathOf(kDownload));
        m_install.MakeFolder(kSetting);
        if (szRow == std::string_view("installed read-only")) {
            ::SetFileAttributesW(m_install.PathOf(L"UpdateInfo.ini").c_str(), FILE_ATTRIBUTE_READONLY);
        }
        if (*szBrought) m_install.Write(kSetting + L"UpdateInfo.ini", szBrought);
        if (strLeftover == "folder") m_install.MakeFolder(kLeftover);
        if (strLeftover.starts_with('[')) m_install.Write(kLeftover, strLeftover);
        m_trace.Clear();
        SystemWatch watch(m_install.Path());
        watch.m_fault = [&](std::string_view strCall, const std::wstring& tstrPlace) {
            return strCall == "MoveFileExW" && tstrPlace.ends_with(L"UpdateInfo.ini") ? dwMoveCode : ERROR_SUCCESS;
        };
        EXPECT_TRUE(PrepareSettings(m_run));
        EXPECT_EQ(ValueIn(kSetting + L"UpdateInfo.ini"), szBroughtAfter);
        EXPECT_EQ(ValueIn(L"UpdateInfo.ini"), szInstalledAfter);
        const std::string strFailed = "!!! Failed to copy UpdateInfo.ini to iUD download source folder, error code is ";
        EXPECT_EQ(CountTraced(AllOf(StartsWith(strFailed + strCode), EndsWith(". Modify installed one."))),
                  strCode.empty() ? 0 : 1);
        const std::wstring tstrTarget = (*szInstalledAfter == 'n' ? L"" : kSetting) + L"UpdateInfo.ini";
        EXPECT_EQ(CountTraced(".w. [Enter] DeployVersion(" + m_strInstall + String::ToUtf8(tstrTarget) + ")"), 1);
        EXPECT_EQ(m_install.Read(kLeftover), std::nullopt);
        ::SetFileAttributesW(m_install.PathOf(L"UpdateInfo.ini").c_str(), FILE_ATTRIBUTE_NORMAL);
    }
}

TEST_F(DeploySettingsTest, TheLanguagesFilesBecomeTheInstalledOnesWithTheUsersValues)
{
    WriteProduct(L"Language", L"DE-DE");
    Instruct("[QOR_CONFIG_MERGE]\nmigrate=/A\n");
    m_install.Write(L"config.xml", "<r><A>mine</A></r>");
    m_install.Write(kSetting + L"config_DE-DE.xml", "<r><A>new</A></r>");
    ::SetFileAttributesW(m_install.PathOf(kSetting + L"config_DE-DE.xml").c_str(), FILE_ATTRIBUTE_READONLY);
    for (const wchar_t* szName : {L"qorshcut_DE-DE.xml", L"config_EN-US.xml", L"readme.htm"}) {
        m_install.Write(kSetting + szName, String::ToUtf8(szName));
    }
    // The package's files with the installed names (read-only, in another language), and the user's kept settings
    // before and after.
    const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
        {"the first run", "", "", ""},
        {"a read-only file in the package", "<r><A>en</A></r>", "", ""},
        {"kept by a failed or interrupted run", "<r><A>mine</A></r>", "<r><A>mine</A></r>", ""},
        {"kept by an earlier run", "", "<r><A>lost by it</A></r>", "<r><A>lost by it</A></r>"}};
    for (const auto& [szRow, szThere, szKept, szKeptAfter] : rows) {
        SCOPED_TRACE(szRow);
        for (const wchar_t* szName : {L"config.xml", L"qorshcut.xml"}) {
            const std::wstring tstrPath = m_install.PathOf(kSetting + szName);
            ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
            if (*szThere) m_install.Write(kSetting + szName, szThere);
            if (*szThere) ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_READONLY);
        }
        if (*szKept) m_install.Write(L"config.previous.xml", szKept);
        SystemWatch watch(m_install.Path());
        watch.m_fault = [&](auto&&...) {
            EXPECT_NE(m_install.Read(kSetting + L"config.xml"), "<r><A>new</A></r>") << "a run may end anywhere";
            return ERROR_SUCCESS;
        };
        EXPECT_TRUE(PrepareSettings(m_run));
        EXPECT_EQ(m_install.Read(L"config.previous.xml").value_or(""), szKeptAfter);
        EXPECT_THAT(m_install.Read(kSetting + L"config.xml"), Optional(HasSubstr("<A>mine</A>")));
        EXPECT_EQ(m_install.Read(kSetting + L"qorshcut.xml"), "qorshcut_DE-DE.xml");
        EXPECT_EQ(m_install.Read(WorkingName(L"config")), std::nullopt);
    }
    EXPECT_EQ(m_install.Read(kSetting + L"readme.htm"), "readme.htm");
    const std::string strSetting = m_strInstall + String::ToUtf8(kSetting);
    EXPECT_EQ(CountTraced("!!! Failed to do file copy. dest='" + strSetting + "readme.htm', src='" + strSetting +
                          "readme_DE-DE.htm', error code=2"),
              4);
}

TEST_F(DeploySettingsTest, TheUsersSettingsAreNeverLostWhereTheMergeCannotBeFinished)
{
    Instruct("[QOR_CONFIG_MERGE]\nmigrate=/A\nmigrate=/B\n");
    const std::string strUsers = "<r><A>mine</A><B>mine</B></r>";
    m_install.Write(L"config.xml", strUsers);
    // The language's file, the failing call and its file, the deployed content (after ";": required parts), and whether
    // the user's file is kept.
    const std::tuple<const char*, const char*, std::string_view, const wchar_t*, const char*, bool> rows[] = {
        {"refused values", "<r><A type='int'>1</A><B/></r>", "", L"", "<B>mine</B>", true},
        {"broken", "<r>", "", L"", "<r>", true},
        {"no space for the copy", "<r><A/><B/></r>", "CopyFileW", L".unfinished", "<A>mine</A><B>mine</B>", false},
        {"no space for one, and broken", "<r>", "CopyFileW", L".unfinished", "<r>", true},
        {"the move to its place is refused", "<r><A/><B/></r>", "MoveFileExW", L"Setting\\config.xml", "", true},
        {"no language's file", "", "", L"", "<A>mine</A><B>mine</B>", false}};
    for (const auto& [szRow, szLanguage, strCall, szPlaceEnd, szDeployed, bKept] : rows) {
        SCOPED_TRACE(szRow);
        std::filesystem::remove_all(m_install.PathOf(kDownload));
        std::filesystem::remove(m_install.PathOf(L"config.previous.xml"));
        m_install.Write(kSetting + L"config.xml", "<r><A>shipped</A><B>shipped</B></r>");
        if (*szLanguage) m_install.Write(kSetting + L"config_EN-US.xml", szLanguage);
        RunContext run(m_machine);
        run.paths.ReadProductFolders();
        SystemWatch watch(m_install.Path());
        watch.m_fault = [&](std::string_view strDone, const std::wstring& tstrPlace) {
            const std::string strNow = m_install.Read(kSetting + L"config.xml").value_or("");
            const bool bAsShipped = strNow.find("shipped") != std::string::npos;
            const bool bMerged = strNow.find("<A>mine</A>") != std::string::npos;
            EXPECT_TRUE(bAsShipped || bMerged || m_install.Read(L"config.previous.xml") == strUsers) << strDone;
            const bool bPlace = tstrPlace.ends_with(szPlaceEnd);
            const bool bPlain = strCall == "MoveFileExW" && strDone == "CopyFileW" && bPlace;  // the fallback
            return (strDone == strCall && bPlace) || bPlain ? ERROR_DISK_FULL : ERROR_SUCCESS;
        };
        EXPECT_TRUE(PrepareSettings(run));
        EXPECT_THAT(m_install.Read(kSetting + L"config.xml"), Optional(HasSubstr(szDeployed)));
        EXPECT_EQ(m_install.Read(L"config.previous.xml").value_or(""), bKept ? strUsers : "");
        EXPECT_EQ(run.paths.IsKeptFile(m_install.PathOf(L"x\\..\\CONFIG.previous.xml")), bKept || *szPlaceEnd == L'.');
        EXPECT_EQ(m_install.Read(WorkingName(L"config")), std::nullopt);
    }
}

TEST_F(DeploySettingsTest, OnlyWorkingCopiesOfEndedRunsAreDeleted)
{
    m_install.MakeFolder(kSetting);
    PROCESS_INFORMATION other{};
    STARTUPINFOW start{};
    start.cb = sizeof(start);
    wchar_t szProgram[] = L"cmd.exe /c pause";
    ASSERT_TRUE(::CreateProcessW(nullptr, szProgram, nullptr, nullptr, FALSE, CREATE_SUSPENDED | CREATE_NO_WINDOW,
                                 nullptr, nullptr, &start, &other));
    const std::wstring tstrOther = WorkingName(L"UpdateInfo", other.dwProcessId);
    const std::vector<std::wstring> others{tstrOther, kDownload + L"UpdateInfo-0000000.unfinished",
                                           kDownload + L"UpdateInfo-0000000g.unfinished",
                                           kDownload + L"user-00000000.unfinished"};
    for (const std::wstring& tstrName : others) m_install.Write(tstrName, "");
    const std::vector<std::wstring> leftovers{WorkingName(L"config", 0xFFFFFFF0), WorkingName(L"UpdateInfo"),
                                              WorkingName(L"UpdateInfo", 0xFFFFFFF0)};
    for (const std::wstring& tstrName : leftovers) {
        ::SetFileAttributesW(m_install.Write(tstrName, "").c_str(), FILE_ATTRIBUTE_READONLY);
    }
    EXPECT_TRUE(PrepareSettings(m_run));
    ::TerminateProcess(other.hProcess, 0);
    ::WaitForSingleObject(other.hProcess, INFINITE);
    for (const std::wstring& tstrName : leftovers) EXPECT_EQ(m_install.Read(tstrName), std::nullopt);
    for (const std::wstring& tstrName : others) EXPECT_EQ(m_install.Read(tstrName), "");
    EXPECT_TRUE(PrepareSettings(m_run));
    EXPECT_EQ(m_install.Read(tstrOther), std::nullopt);
    ::CloseHandle(other.hThread);
    ::CloseHandle(other.hProcess);
}

TEST_F(DeploySettingsTest, WithoutSettingsAndBehindALinkOnlyTheRegistryIsPatched)
{
    m_install.MakeFolder(kDownload);
    EXPECT_FALSE(PrepareSettings(m_run));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", L"Name"), RawNumber(7));
    EXPECT_EQ(CountTraced("!!! No files under directory '" + m_strInstall + String::ToUtf8(kSetting) + "'"), 1);

    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X");
    m_install.Write(kSetting + L"config.xml", "");
    m_install.Write(kSetting + L"config_EN-US.xml", "new");
    SystemWatch watch(m_install.Path());
    watch.m_tstrLink = L"Setting";
    EXPECT_TRUE(PrepareSettings(m_run));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", L"Name"), RawNumber(7));
    EXPECT_EQ(m_install.Read(kSetting + L"config.xml"), "");
    EXPECT_EQ(ValueIn(kSetting + L"UpdateInfo.ini") + ValueIn(L"UpdateInfo.ini"), "old");
}
