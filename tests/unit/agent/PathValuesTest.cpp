#include "unit/agent/AgentFixture.h"

#include "common/KzComn_Process.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const wchar_t kProfileList[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

class PathValuesTest : public AgentTest {
protected:
    static void SetLogFolder(const wchar_t* szSession, const wchar_t* szFolder)
    {
        WriteRaw(HKEY_LOCAL_MACHINE, std::wstring(L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\") + szSession, L"LogFolder",
                 RawText(szFolder));
    }
    [[nodiscard]] std::wstring Expand(std::wstring tstrText) const
    {
        m_paths.ExpandPlaceholders(tstrText);
        return tstrText;
    }

    PathValues m_paths;
};

TEST_F(PathValuesTest, ExpandsExactPlaceholdersEverywhereInTheText)
{
    SetLogFolder(L"InteractiveSession", L"C:\\I");
    SetLogFolder(L"ServiceSession", L"C:\\S\\");
    m_paths.ReadLogFolders();
    m_paths.ReadProductFolders();
    const std::wstring tstrInstall = m_install.Path();
    const struct {
        const wchar_t* szText;
        std::wstring tstrExpanded;
    } rows[] = {
        {L"{InstalledDir}a {InstalledDir}b", tstrInstall + L"a " + tstrInstall + L"b"},
        {L"{installeddir}a", L"{installeddir}a"},
        {L"{UdComponentsSrcDir}x", tstrInstall + L"Component\\c21t2103v0.0.0l1p1r1o1\\x"},
        {L"{InteractiveLogDir}|{ServiceLogDir}|{InstallerLogDir}",
         L"C:\\I\\|C:\\S\\|" + KzCommon::Process::WindowsFolder() + L"Temp\\"},
        {L"{ProtectedLogDir}x", L"x"},  // not configured: one empty folder
        {L"plain", L"plain"},
        {L"", L""},
    };
    for (const auto& row : rows) EXPECT_EQ(Expand(row.szText), row.tstrExpanded);
}

TEST_F(PathValuesTest, TheProtectedFolderFansOutOverProfilesButAPlaceholderTakesTheFirst)
{
    const struct {
        const wchar_t* szFolder;
        std::vector<std::wstring> folders;
    } rows[] = {
        {L"%USERPROFILE%\\Logs", {L"C:\\Users\\a\\Logs\\", L"C:\\Users\\b\\Logs\\", L"D:\\c\\Logs\\"}},
        {L"%USERPROFILE%X\\\\Logs", {L"C:\\Users\\a\\Logs\\", L"C:\\Users\\b\\Logs\\", L"D:\\c\\Logs\\"}},
        {L"%USERPROFILE%", {L"C:\\Users\\a\\", L"C:\\Users\\b\\", L"D:\\c\\"}},
        {L"%userprofile%\\Logs", {L"%userprofile%\\Logs\\"}},
        {L"C:\\P", {L"C:\\P\\"}},
    };
    for (const wchar_t* szKey : {L"\\1", L"\\2", L"\\4"})
        WriteRaw(HKEY_LOCAL_MACHINE, std::wstring(kProfileList) + szKey, L"x", RawText(L""));
    WriteRaw(HKEY_LOCAL_MACHINE, std::wstring(kProfileList) + L"\\1", L"ProfileImagePath",
             RawText(L"%SystemDrive%\\Users\\a", REG_EXPAND_SZ));
    WriteRaw(HKEY_LOCAL_MACHINE, std::wstring(kProfileList) + L"\\2", L"ProfileImagePath", RawText(L"C:\\Users\\b\\"));
    WriteRaw(HKEY_LOCAL_MACHINE, std::wstring(kProfileList) + L"\\4", L"ProfileImagePath", RawText(L"D:\\c"));
    WriteRaw(HKEY_LOCAL_MACHINE, std::wstring(kProfileList) + L"\\3", L"NoFolder", RawText(L""));
    for (const auto& row : rows) {
        SetLogFolder(L"ProtectedSession", row.szFolder);
        m_paths.ReadLogFolders();
        EXPECT_EQ(m_paths.ProtectedLogDirs(), row.folders);
        EXPECT_EQ(Expand(L"{ProtectedLogDir}"), row.folders.front());
    }
}

TEST_F(PathValuesTest, WithoutProfilesTheProtectedPlaceholderStays)
{
    SetLogFolder(L"ProtectedSession", L"%USERPROFILE%\\Logs");
    m_paths.ReadLogFolders();
    EXPECT_EQ(Expand(L"{ProtectedLogDir}x"), L"{ProtectedLogDir}x");
    EXPECT_EQ(
        CountTraced("!!! FrameworkDeployAgent::GetProtectedLogPath - Frwk::Utility::EnumUserProfileFolders() failed. "
                    "error[0x00000002]"),
        1);
}

TEST_F(PathValuesTest, DownloadFoldersComeFromTheKeyOfThisPlatformOrTheDefault)
{
    m_install.Write(L"UpdateInfo.ini",
                    "[COMPONENT_LIST]\r\nComponent1_DownloadPath=wrong\r\nComponent2_DownloadPath=res\\\r\n");
    m_paths.ReadProductFolders();
    EXPECT_EQ(m_paths.ProductDownloadPath(), L"c21t2103v0.0.0l1p1r1o1") << "the 32-bit key says nothing here";
    EXPECT_EQ(m_paths.ReadResourceDownloadDir(), m_install.Path() + L"Component\\res\\");
    m_install.Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\r\nComponent101_DownloadPath=right\r\n");
    m_paths.ReadProductFolders();
    EXPECT_EQ(m_paths.ProductDownloadDir(), m_install.Path() + L"Component\\right\\");

    WriteRaw(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, L"ProductPath", RawText(L""));
    m_paths.ReadProductFolders();
    EXPECT_THAT(m_paths.ProductDownloadDir() + m_paths.ReadResourceDownloadDir(), IsEmpty())
        << "below an unknown folder";
}

TEST_F(PathValuesTest, EveryUniqueNameIsAnother)
{
    const std::wstring tstrName = MakeUniqueName();
    EXPECT_EQ(tstrName.size(), 36u);
    EXPECT_NE(tstrName, MakeUniqueName());
}

}  // namespace
