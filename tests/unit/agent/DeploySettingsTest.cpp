#include "agent/DeploySettings.h"

#include "support/watch/SystemWatch.h"
#include "unit/agent/AgentFixture.h"

#include <filesystem>

using namespace KzCommon;

namespace {

const std::wstring kDownload = L"Component\\c21t2103v0.0.0l1p1r1o1\\";
const std::wstring kSetting = kDownload + L"Share\\Setting\\";
const std::wstring kLeftover = kDownload + L"UpdateInfo.unfinished";

class DeploySettingsTest : public AgentTest {
protected:
    DeploySettingsTest()
    {
        Instruct("[UPDATE_INFO]\nmodify=S!K!new\n[QOR_REGISTRY_PATCH]\nadd=SOFTWARE\\X!Name!REG_DWORD!7\n");
        m_install.Write(L"UpdateInfo.ini", "[S]\nK=old\n");
        m_paths.ReadProductFolders();
    }
    /// The value that the instruction file changes; "" where there is no such file.
    [[nodiscard]] std::string ValueIn(const std::wstring& tstrName) const
    {
        const std::string strText = m_install.Read(tstrName).value_or("");
        return strText.find("K=new") != std::string::npos ? "new"
               : strText.find("K=") != std::string::npos  ? "old"
                                                          : "";
    }
};

}  // namespace

TEST_F(DeploySettingsTest, TheUpdateInformationIsChangedWhereItWillBeDeployedFrom)
{
    // The package's own file, what an ended run left behind ("folder"), with which code the finished copy cannot take
    // its place, and what becomes of the package's file and of the installed one.
    const std::tuple<const char*, const char*, std::string, DWORD, const char*, const char*, std::string> rows[] = {
        // clang-format off
        {"none brought", "", "", 0, "new", "old", ""},
        {"after an ended run", "", "[S]\nK=half\n", 0, "new", "old", ""},
        {"the name is taken by a folder", "", "folder", 0, "new", "old", ""},
        {"one brought", "[S]\nK=brought\n", "", 0, "old", "new", "80"},
        {"one brought after an ended run", "[S]\nK=brought\n", "[S]\nK=half\n", 0, "old", "new", "80"},
        {"the place is refused", "", "", ERROR_DISK_FULL, "", "new", "112"}};  // clang-format on
    for (const auto& [szRow, szBrought, strLeftover, dwMoveCode, szBroughtAfter, szInstalledAfter, strCode] : rows) {
        SCOPED_TRACE(szRow);
        m_install.Write(L"UpdateInfo.ini", "[S]\nK=old\n");
        std::filesystem::remove_all(m_install.PathOf(kDownload));
        m_install.MakeFolder(kSetting);
        if (*szBrought) m_install.Write(kSetting + L"UpdateInfo.ini", szBrought);
        if (strLeftover == "folder") m_install.MakeFolder(kLeftover);
        if (strLeftover.starts_with('[')) m_install.Write(kLeftover, strLeftover);
        m_trace.Clear();
        SystemWatch watch(m_install.Path());
        watch.m_fault = [&](std::string_view strCall, const std::wstring& tstrPlace) {
            return strCall == "MoveFileExW" && tstrPlace.ends_with(L"UpdateInfo.ini") ? dwMoveCode : ERROR_SUCCESS;
        };
        EXPECT_TRUE(PrepareSettings(m_paths));
        EXPECT_EQ(ValueIn(kSetting + L"UpdateInfo.ini"), szBroughtAfter);
        EXPECT_EQ(ValueIn(L"UpdateInfo.ini"), szInstalledAfter);
        const std::string strFailed = "!!! Failed to copy UpdateInfo.ini to iUD download source folder, error code is ";
        EXPECT_EQ(CountTraced(AllOf(StartsWith(strFailed + strCode), EndsWith(". Modify installed one."))),
                  strCode.empty() ? 0 : 1);
        const std::wstring tstrTarget = (*szInstalledAfter == 'n' ? L"" : kSetting) + L"UpdateInfo.ini";
        EXPECT_EQ(CountTraced(".w. [Enter] DeployVersion(" + m_strInstall + String::ToUtf8(tstrTarget) + ")"), 1);
        // What is finished leaves nothing behind; beside a file that the update brings lies what an ended run left.
        EXPECT_EQ(m_install.Read(kLeftover).value_or(""), *szBrought ? strLeftover : "");
    }
}

TEST_F(DeploySettingsTest, TheLanguagesFilesBecomeTheInstalledOnesWithTheUsersValues)
{
    WriteProduct(L"Language", L"DE-DE");
    Instruct("[QOR_CONFIG_MERGE]\nmigrate=/A\n");
    m_install.Write(L"config.xml", "<r><A>mine</A></r>");
    m_install.Write(kSetting + L"config_DE-DE.xml", "<r><A>new</A></r>");
    for (const wchar_t* szName : {L"qorshcut_DE-DE.xml", L"config_EN-US.xml", L"readme.htm"}) {
        m_install.Write(kSetting + szName, String::ToUtf8(szName));
    }
    EXPECT_TRUE(PrepareSettings(m_paths));  // the restart moves what this leaves
    SystemWatch watch(m_install.Path());
    watch.m_fault = [&](auto&&...) {
        const bool bWithoutTheUsers = m_install.Read(kSetting + L"config.xml") == "<r><A>new</A></r>";
        EXPECT_TRUE(!bWithoutTheUsers || m_install.Read(L"config.previous.xml")) << "a run may be ended anywhere";
        return ERROR_SUCCESS;
    };
    for (const char* szOlder : {"", "of a merge that failed"}) {
        if (*szOlder) m_install.Write(L"config.previous.xml", szOlder);
        EXPECT_TRUE(PrepareSettings(m_paths));
        EXPECT_EQ(m_install.Read(L"config.previous.xml").value_or(""), szOlder);
        EXPECT_THAT(m_install.Read(kSetting + L"config.xml"), Optional(HasSubstr("<A>mine</A>")));
    }
    EXPECT_EQ(m_install.Read(kSetting + L"qorshcut.xml"), "qorshcut_DE-DE.xml");
    EXPECT_EQ(m_install.Read(kSetting + L"readme.htm"), "readme.htm");
    const std::string strSetting = m_strInstall + String::ToUtf8(kSetting);
    EXPECT_EQ(CountTraced("!!! Failed to do file copy. dest='" + strSetting + "readme.htm', src='" + strSetting +
                          "readme_DE-DE.htm', error code=2"),
              3);
}

TEST_F(DeploySettingsTest, WithoutSettingsAndBehindALinkOnlyTheRegistryIsPatched)
{
    m_install.MakeFolder(kDownload);
    EXPECT_FALSE(PrepareSettings(m_paths));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", L"Name"), RawNumber(7));
    EXPECT_EQ(CountTraced("!!! No files under directory '" + m_strInstall + String::ToUtf8(kSetting) + "'"), 1);

    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X");
    m_install.Write(kSetting + L"config.xml", "");
    m_install.Write(kSetting + L"config_EN-US.xml", "new");
    SystemWatch watch(m_install.Path());
    watch.m_tstrLink = L"Setting";
    EXPECT_TRUE(PrepareSettings(m_paths));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", L"Name"), RawNumber(7));
    EXPECT_EQ(m_install.Read(kSetting + L"config.xml"), "");
    EXPECT_EQ(ValueIn(kSetting + L"UpdateInfo.ini") + ValueIn(L"UpdateInfo.ini"), "old");
}
