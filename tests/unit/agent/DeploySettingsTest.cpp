#include "agent/DeploySettings.h"

#include "unit/agent/AgentFixture.h"

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

class DeploySettingsTest : public WatchedAgentTest {
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
        const std::size_t uValue = strText.find("K=");
        return uValue == std::string::npos ? "" : strText.substr(uValue + 2, 3);
    }
};

}  // namespace

TEST_F(DeploySettingsTest, TheUpdateInformationIsChangedBeforeItIsDeployed)
{
    const DWORD kReadOnly = FILE_ATTRIBUTE_READONLY;
    // The package's own file; the leftover of an interrupted run ("folder"); the installed file's attributes; the code
    // for the failed move of the finished copy; the results for the package's and the installed file.
    const std::tuple<const char*, std::string, std::string, DWORD, DWORD, std::string, std::string> rows[] = {
        // clang-format off
            {"none brought", "", "", 0, 0, "new", "old"},
            {"after an interrupted run", "", "[S]\nK=half\n", kReadOnly, 0, "new", "old"},
            {"a folder has the name", "", "folder", 0, 0, "new", "old"},
            {"brought, after an interrupted run", "[S]\nK=own\n", "[S]\nK=half\n", 0, 0, "own", "new"},
            {"the place is refused", "", "", 0, ERROR_DISK_FULL, "", "new"}};  // clang-format on
    for (const auto& [szRow, strBrought, strLeftover, dwOld, dwMoveCode, strBroughtAfter, strInstalled] : rows) {
        SCOPED_TRACE(szRow);
        fs::remove_all(m_install.PathOf(kDownload));
        m_install.Write(L"UpdateInfo.ini", "[S]\nK=old\n", dwOld);
        m_install.MakeFolder(kSetting);
        if (!strBrought.empty()) m_install.Write(kSetting + L"UpdateInfo.ini", strBrought);
        if (strLeftover == "folder") m_install.MakeFolder(kLeftover);
        if (strLeftover.starts_with('[')) m_install.Write(kLeftover, strLeftover);
        m_watch.Fail("MoveFileExW", dwMoveCode, L"UpdateInfo.ini");
        EXPECT_TRUE(PrepareSettings(m_run));
        EXPECT_EQ(ValueIn(kSetting + L"UpdateInfo.ini"), strBroughtAfter);
        EXPECT_EQ(ValueIn(L"UpdateInfo.ini"), strInstalled);
        EXPECT_EQ(m_install.Read(kLeftover), std::nullopt);
    }
}

TEST_F(DeploySettingsTest, TheLanguagesFilesBecomeTheInstalledOnesWithTheUsersValues)
{
    WriteProduct(L"Language", L"DE-DE");
    Instruct("[QOR_CONFIG_MERGE]\nmigrate=/A\n");
    m_install.Write(L"config.xml", "<r><A>mine</A></r>");
    m_install.Write(kSetting + L"config_DE-DE.xml", "<r><A>new</A></r>", FILE_ATTRIBUTE_READONLY);
    for (const wchar_t* szName : {L"qorshcut_DE-DE.xml", L"config_EN-US.xml", L"readme.htm"})
        m_install.Write(kSetting + szName, String::ToUtf8(szName));
    // The package's files with the installed names (read-only, in another language), and the user's kept settings
    // before and after.
    const std::tuple<const char*, std::string, std::string, std::string> rows[] = {
        {"the first run", "", "", ""},
        {"a read-only file in the package", "<r><A>en</A></r>", "", ""},
        {"kept by a failed or interrupted run", "<r><A>mine</A></r>", "<r><A>mine</A></r>", ""},
        {"kept by an earlier run", "", "<r><A>lost by it</A></r>", "<r><A>lost by it</A></r>"}};
    m_watch.m_fault = [&](auto&&...) {
        EXPECT_NE(m_install.Read(kSetting + L"config.xml"), "<r><A>new</A></r>") << "a run may end anywhere";
        return ERROR_SUCCESS;
    };
    for (const auto& [szRow, strThere, strKept, strKeptAfter] : rows) {
        SCOPED_TRACE(szRow);
        for (const wchar_t* szName : {L"config.xml", L"qorshcut.xml"})
            if (!strThere.empty()) m_install.Write(kSetting + szName, strThere, FILE_ATTRIBUTE_READONLY);
        if (!strKept.empty()) m_install.Write(L"config.previous.xml", strKept);
        EXPECT_TRUE(PrepareSettings(m_run));
        EXPECT_EQ(m_install.Read(L"config.previous.xml").value_or(""), strKeptAfter);
        EXPECT_THAT(m_install.Read(kSetting + L"config.xml"), Optional(HasSubstr("<A>mine</A>")));
        EXPECT_EQ(m_install.Read(kSetting + L"qorshcut.xml"), "qorshcut_DE-DE.xml");
        EXPECT_EQ(m_install.Read(WorkingName(L"config")), std::nullopt);
    }
    // A working copy that stays read-only, and a kept file that cannot be deleted.
    m_watch.Fail("SetFileAttributesW", ERROR_ACCESS_DENIED, L".unfinished");
    const UniqueFile held = HoldFile(m_install.Write(L"config.previous.xml", "<r><A>mine</A></r>"), FILE_SHARE_READ);
    EXPECT_TRUE(PrepareSettings(m_run));
    EXPECT_THAT(m_install.Read(kSetting + L"config.xml"), Optional(HasSubstr("<A>mine</A>")));
    EXPECT_EQ(m_install.Read(WorkingName(L"config")), std::nullopt);
    EXPECT_EQ(m_install.Read(kSetting + L"readme.htm"), "readme.htm");
}

TEST_F(DeploySettingsTest, TheUsersSettingsAreNeverLostWhereTheMergeCannotBeFinished)
{
    Instruct("[QOR_CONFIG_MERGE]\nmigrate=/A\nmigrate=/B\n");
    const std::string strUsers = "<r><A>mine</A><B>mine</B></r>";
    m_install.Write(L"config.xml", strUsers);
    // The language's file, the failing call and its file, a part of the deployed file, and whether the user's is kept.
    const std::tuple<const char*, const char*, std::string_view, const wchar_t*, const char*, bool> rows[] = {
        {"refused values", "<r><A type='int'>1</A><B/></r>", "", L"", "<B>mine</B>", true},
        {"broken", "<r>", "", L"", "<r>", true},
        {"no space for the copy", "<r><A/><B/></r>", "CopyFileW", L".unfinished", "<A>mine</A><B>mine</B>", false},
        {"no space for one, and broken", "<r>", "CopyFileW", L".unfinished", "<r>", true},
        {"the move to its place is refused", "<r><A/><B/></r>", "MoveFileExW", L"Setting\\config.xml", "", true},
        {"no language's file", "", "", L"", "<A>mine</A><B>mine</B>", false}};
    for (const auto& [szRow, szLanguage, strCall, szPlaceEnd, szDeployed, bKept] : rows) {
        SCOPED_TRACE(szRow);
        fs::remove_all(m_install.PathOf(kDownload));
        fs::remove(m_install.PathOf(L"config.previous.xml"));
        m_install.Write(kSetting + L"config.xml", "<r><A>shipped</A><B>shipped</B></r>");
        if (*szLanguage) m_install.Write(kSetting + L"config_EN-US.xml", szLanguage);
        RunContext run(m_machine);
        run.paths.ReadProductFolders();
        m_watch.m_fault = [&](std::string_view strDone, const std::wstring& tstrPlace) {
            const std::string strNow = m_install.Read(kSetting + L"config.xml").value_or("");
            const bool bAsShipped = strNow.find("shipped") != std::string::npos;
            const bool bMerged = strNow.find("<A>mine</A>") != std::string::npos;
            EXPECT_TRUE(bAsShipped || bMerged || m_install.Read(L"config.previous.xml") == strUsers) << strDone;
            const bool bPlain = strCall == "MoveFileExW" && strDone == "CopyFileW";  // the fallback
            return (strDone == strCall || bPlain) && tstrPlace.ends_with(szPlaceEnd) ? ERROR_DISK_FULL : ERROR_SUCCESS;
        };
        EXPECT_TRUE(PrepareSettings(run));
        m_watch.Fail("", ERROR_SUCCESS);
        EXPECT_THAT(m_install.Read(kSetting + L"config.xml"), Optional(HasSubstr(szDeployed)));
        EXPECT_EQ(m_install.Read(L"config.previous.xml").value_or(""), bKept ? strUsers : "");
        EXPECT_EQ(run.paths.IsKeptFile(m_install.PathOf(L"x\\..\\CONFIG.previous.xml")), bKept || *szPlaceEnd == L'.');
        EXPECT_EQ(m_install.Read(WorkingName(L"config")), std::nullopt);
    }
}

TEST_F(DeploySettingsTest, OnlyWorkingCopiesOfEndedRunsAreDeleted)
{
    m_install.MakeFolder(kSetting);
    const IdleProcess other;
    const std::wstring tstrOther = WorkingName(L"UpdateInfo", other.Id());
    const std::vector<std::wstring> others{tstrOther, kDownload + L"UpdateInfo-0000000.unfinished",
                                           kDownload + L"UpdateInfo-0000000g.unfinished",
                                           kDownload + L"user-00000000.unfinished"};
    const std::vector<std::wstring> leftovers{WorkingName(L"config", 0xFFFFFFF0), kLeftover,
                                              WorkingName(L"UpdateInfo", 0xFFFFFFF0)};
    for (const std::wstring& tstrName : others) m_install.Write(tstrName, "");
    for (const std::wstring& tstrName : leftovers) m_install.Write(tstrName, "", FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(PrepareSettings(m_run));
    other.End();
    for (const std::wstring& tstrName : leftovers) EXPECT_EQ(m_install.Read(tstrName), std::nullopt);
    for (const std::wstring& tstrName : others) EXPECT_EQ(m_install.Read(tstrName), "");
    EXPECT_TRUE(PrepareSettings(m_run));
    EXPECT_EQ(m_install.Read(tstrOther), std::nullopt);
}

TEST_F(DeploySettingsTest, WithoutSettingsAndBehindALinkOnlyTheRegistryIsPatched)
{
    m_install.MakeFolder(kDownload);
    EXPECT_FALSE(PrepareSettings(m_run));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", L"Name"), RawNumber(7));

    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X");
    m_install.Write(kSetting + L"config.xml", "");
    m_install.Write(kSetting + L"config_EN-US.xml", "new");
    m_watch.m_tstrLink = L"Setting";
    EXPECT_TRUE(PrepareSettings(m_run));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", L"Name"), RawNumber(7));
    EXPECT_EQ(m_install.Read(kSetting + L"config.xml"), "");
    EXPECT_EQ(ValueIn(kSetting + L"UpdateInfo.ini") + ValueIn(L"UpdateInfo.ini"), "old");
}
