#include "unit/agent/AgentFixture.h"

#include "common/KzComn_Process.h"

class PathValuesTest : public AgentTest {
protected:
    void SetLogFolder(const std::wstring& tstrSession, const wchar_t* szFolder)
    {
        const std::wstring tstrKey = L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\" + tstrSession + L"Session";
        WriteRaw(HKEY_LOCAL_MACHINE, tstrKey, L"LogFolder", RawText(szFolder));
        m_paths.ReadLogFolders();
    }
    [[nodiscard]] std::wstring Expand(std::wstring tstrText) const
    {
        m_paths.ExpandPlaceholders(tstrText);
        return tstrText;
    }
    const std::wstring m_tstrInstall = m_install.Path();
};

TEST_F(PathValuesTest, ExpandsExactPlaceholdersEverywhereInTheText)
{
    SetLogFolder(L"Interactive", L"C:\\I");
    SetLogFolder(L"Service", L"C:\\S\\");
    m_paths.ReadProductFolders();
    const std::wstring tstrWindows = KzCommon::Process::WindowsFolder();
    const std::pair<const wchar_t*, std::wstring> rows[] = {
        // clang-format off
        {L"{InstalledDir}a {InstalledDir}b", m_tstrInstall + L"a " + m_tstrInstall + L"b"}, {L"", L""},
        {L"{UdComponentsSrcDir}x", m_tstrInstall + L"Component\\c21t2103v0.0.0l1p1r1o1\\x"},
        {L"{installeddir}a", L"{installeddir}a"},
        {L"{InteractiveLogDir}{ServiceLogDir}{InstallerLogDir}", L"C:\\I\\C:\\S\\" + tstrWindows + L"Temp\\"},
        {L"{ProtectedLogDir}x", L"x"}};  // not configured: one empty folder
    // clang-format on
    for (const auto& [szText, tstrExpanded] : rows) EXPECT_EQ(Expand(szText), tstrExpanded);
}

TEST_F(PathValuesTest, TheProtectedFolderFansOutOverProfilesButAPlaceholderTakesTheFirst)
{
    const std::pair<const wchar_t*, std::vector<std::wstring>> rows[] = {
        // clang-format off
        {L"%USERPROFILE%\\Logs", {L"C:\\Users\\a\\Logs\\", L"D:\\b\\Logs\\"}}, {L"C:\\P", {L"C:\\P\\"}},
        {L"%USERPROFILE%X\\\\Logs", {L"C:\\Users\\a\\Logs\\", L"D:\\b\\Logs\\"}},
        {L"%USERPROFILE%", {L"C:\\Users\\a\\", L"D:\\b\\"}}, {L"%userprofile%\\L", {L"%userprofile%\\L\\"}}};
    // clang-format on
    SetLogFolder(L"Protected", L"%USERPROFILE%\\Logs");
    EXPECT_EQ(Expand(L"{ProtectedLogDir}x"), L"{ProtectedLogDir}x") << "without profiles";
    const std::wstring tstrList = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\";
    WriteRaw(HKEY_LOCAL_MACHINE, tstrList + L"1", L"ProfileImagePath",
             RawText(L"%SystemDrive%\\Users\\a", REG_EXPAND_SZ));
    WriteRaw(HKEY_LOCAL_MACHINE, tstrList + L"2", L"ProfileImagePath", RawText(L""));
    WriteRaw(HKEY_LOCAL_MACHINE, tstrList + L"3", L"ProfileImagePath", RawText(L"D:\\b\\"));
    for (const auto& [szFolder, folders] : rows) {
        SetLogFolder(L"Protected", szFolder);
        EXPECT_EQ(m_paths.ProtectedLogDirs(), folders);
        EXPECT_EQ(Expand(L"{ProtectedLogDir}"), folders.front());
    }
}

TEST_F(PathValuesTest, DownloadFoldersComeFromTheKeyOfThisPlatformOrTheDefault)
{
    m_install.Write(L"UpdateInfo.ini",
                    "[COMPONENT_LIST]\nComponent1_DownloadPath=wrong\nComponent2_DownloadPath=res\\\n");
    m_paths.ReadProductFolders();
    EXPECT_EQ(m_paths.ProductDownloadPath(), L"c21t2103v0.0.0l1p1r1o1") << "the 32-bit key says nothing here";
    EXPECT_EQ(m_paths.ReadResourceDownloadDir(), m_tstrInstall + L"Component\\res\\");
    m_install.Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=right\n");
    m_paths.ReadProductFolders();
    EXPECT_EQ(m_paths.ProductDownloadDir(), m_tstrInstall + L"Component\\right\\");
    WriteProduct(L"ProductPath", L"");
    m_paths.ReadProductFolders();
    EXPECT_EQ(m_paths.ProductDownloadDir() + m_paths.ReadResourceDownloadDir(), L"") << "below an unknown folder";
}
