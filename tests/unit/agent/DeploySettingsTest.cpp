#include "agent/DeploySettings.h"

#include "support/watch/SystemWatch.h"
#include "unit/agent/AgentFixture.h"

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

    const std::string m_strCopyFailed =
        "!!! Failed to copy UpdateInfo.ini to iUD download source folder, error code is ";
};

}  // namespace

TEST_F(DeploySettingsTest, TheUpdateInformationIsChangedWhereItWillBeDeployedFrom)
{
    struct {
        const char* szRow;
        const char* szBrought;   // the package's own file
        const char* szLeftover;  // what an ended run left behind, or "folder"
        DWORD dwMoveCode;        // with which the finished copy cannot take its place
        std::string strBrought, strInstalled, strCode;
    } rows[] = {
        // clang-format off
        {"none brought", "", "", 0, "new", "old", ""},
        {"after an ended run", "", "[S]\nK=half\n", 0, "new", "old", ""},
        {"the name is taken by a folder", "", "folder", 0, "new", "old", ""},
        {"one brought", "[S]\nK=brought\n", "", 0, "old", "new", "80. Modify installed one."},
        {"one brought after an ended run", "[S]\nK=brought\n", "[S]\nK=half\n", 0, "old", "new",
         "80. Modify installed one."},
        {"the place is refused", "", "", ERROR_DISK_FULL, "", "new", "112. Modify installed one."}};  // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.szRow);
        m_install.Write(L"UpdateInfo.ini", "[S]\nK=old\n");
        m_install.MakeFolder(kSetting);
        ::DeleteFileW(m_install.PathOf(kSetting + L"UpdateInfo.ini").c_str());
        ::DeleteFileW(m_install.PathOf(kLeftover).c_str());
        ::RemoveDirectoryW(m_install.PathOf(kLeftover).c_str());
        if (*row.szBrought) m_install.Write(kSetting + L"UpdateInfo.ini", row.szBrought);
        if (*row.szLeftover == 'f') m_install.MakeFolder(kLeftover);
        if (*row.szLeftover == '[') m_install.Write(kLeftover, row.szLeftover);
        m_trace.Clear();
        const SystemWatch watch(m_install.Path());
        watch.SetFault([&](std::string_view strCall, const std::wstring& tstrPlace) {
            return strCall == "MoveFileExW" && tstrPlace.ends_with(L"UpdateInfo.ini") ? row.dwMoveCode : ERROR_SUCCESS;
        });
        EXPECT_TRUE(PrepareSettings(m_paths));
        EXPECT_EQ(ValueIn(kSetting + L"UpdateInfo.ini"), row.strBrought);
        EXPECT_EQ(ValueIn(L"UpdateInfo.ini"), row.strInstalled);
        EXPECT_EQ(CountTraced(m_strCopyFailed + row.strCode), row.strCode.empty() ? 0 : 1);
        const std::wstring tstrTarget =
            m_install.PathOf(row.strInstalled == "new" ? L"UpdateInfo.ini" : kSetting + L"UpdateInfo.ini");
        EXPECT_EQ(CountTraced(".w. [Enter] DeployVersion(" + String::ToUtf8(tstrTarget) + ")"), 1);
        EXPECT_TRUE(row.strBrought == "old" || !m_install.Read(kLeftover)) << "what is finished leaves nothing behind";
    }
}

TEST_F(DeploySettingsTest, TheLanguagesFilesBecomeTheInstalledOnes)
{
    WriteProduct(L"Language", L"DE-DE");
    for (const wchar_t* szName : {L"config_DE-DE.xml", L"qorshcut_DE-DE.xml", L"config_EN-US.xml", L"readme.htm"}) {
        m_install.Write(kSetting + szName, String::ToUtf8(szName));
    }
    EXPECT_TRUE(PrepareSettings(m_paths));
    EXPECT_EQ(m_install.Read(kSetting + L"config.xml"), "config_DE-DE.xml");
    EXPECT_EQ(m_install.Read(kSetting + L"qorshcut.xml"), "qorshcut_DE-DE.xml");
    EXPECT_EQ(m_install.Read(kSetting + L"readme.htm"), "readme.htm");
    const std::string strSetting = String::ToUtf8(m_install.PathOf(kSetting));
    EXPECT_EQ(CountTraced("!!! Failed to do file copy. dest='" + strSetting + "readme.htm', src='" + strSetting +
                          "readme_DE-DE.htm', error code=2"),
              1);
}

TEST_F(DeploySettingsTest, WithoutSettingsOnlyTheRegistryIsPatched)
{
    m_install.MakeFolder(kDownload);
    EXPECT_FALSE(PrepareSettings(m_paths));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", L"Name"), RawNumber(7));
    EXPECT_EQ(CountTraced("!!! No files under directory '" + String::ToUtf8(m_install.PathOf(kSetting)) + "'"), 1);
    EXPECT_EQ(ValueIn(L"UpdateInfo.ini"), "old");
}

TEST_F(DeploySettingsTest, WhatALinkLeadsToIsNotChanged)
{
    m_install.Write(kSetting + L"config.xml", "");
    m_install.Write(kSetting + L"config_EN-US.xml", "new");
    const SystemWatch watch(m_install.Path());
    watch.SetLink(L"Setting");
    EXPECT_TRUE(PrepareSettings(m_paths));
    EXPECT_EQ(m_install.Read(kSetting + L"config.xml"), "");
    EXPECT_EQ(ValueIn(kSetting + L"UpdateInfo.ini"), "");
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, L"SOFTWARE\\X", L"Name"), RawNumber(7));
}
