#include "unit/agent/AgentFixture.h"

class PathValuesTest : public AgentTest {
protected:
    void SetLogFolder(const std::wstring& tstrSession, const wchar_t* szFolder)
    {
        const std::wstring tstrKey = L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\" + tstrSession + L"Session";
        WriteRaw(HKEY_LOCAL_MACHINE, tstrKey, L"LogFolder", RawText(szFolder));
        m_run.paths.ReadLogFolders();
    }
    [[nodiscard]] std::wstring Expand(std::wstring tstrText) const
    {
        m_run.paths.ExpandPlaceholders(tstrText);
        return tstrText;
    }
    const std::wstring m_tstrInstall = m_install.Path();
};

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
    WriteRaw(HKEY_LOCAL_MACHINE, tstrList + L"4", L"Other", RawText(L"x"));
    SetLogFolder(L"Service", L"C:\\S{ServiceLogDir}\\");
    EXPECT_EQ(Expand(L"{ServiceLogDir}{service}"), L"C:\\S{ServiceLogDir}\\{service}") << "not expanded again";
    for (const auto& [szFolder, folders] : rows) {
        SetLogFolder(L"Protected", szFolder);
        EXPECT_EQ(m_run.paths.ProtectedLogDirs(), folders) << String::ToUtf8(szFolder);
        EXPECT_EQ(Expand(L"{ProtectedLogDir}"), folders.front());
    }
}

TEST_F(PathValuesTest, DownloadFoldersComeFromTheKeyOfThisPlatformOrTheDefault)
{
    m_install.Write(L"UpdateInfo.ini",
                    "[COMPONENT_LIST]\nComponent1_DownloadPath=wrong\nComponent2_DownloadPath=res\\\n");
    m_run.paths.ReadProductFolders();
    EXPECT_EQ(m_run.paths.ProductDownloadPath(), L"c21t2103v0.0.0l1p1r1o1") << "the 32-bit key is ignored here";
    EXPECT_EQ(m_run.paths.ReadResourceDownloadDir(), m_tstrInstall + L"Component\\res\\");
    m_install.Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=right\n");
    const std::jthread holder = HoldForAMoment(m_install.PathOf(L"UpdateInfo.ini"));
    m_run.paths.ReadProductFolders();
    EXPECT_EQ(m_run.paths.ProductDownloadDir(), m_tstrInstall + L"Component\\right\\");
    ::DeleteFileW(m_install.PathOf(L"UpdateInfo.ini").c_str());
    m_install.MakeFolder(L"UpdateInfo.ini");
    m_run.paths.ReadProductFolders();
    EXPECT_EQ(m_run.paths.ProductDownloadPath(), L"c21t2103v0.0.0l1p1r1o1") << "a folder is not a file in use";
    WriteProduct(L"ProductPath", L"");
    m_run.paths.ReadProductFolders();
    EXPECT_EQ(m_run.paths.ProductDownloadDir() + m_run.paths.ReadResourceDownloadDir(), L"")
        << "below an unknown folder";
}

TEST_F(PathValuesTest, ADownloadPathNamesAFolderBelowComponentOrCountsAsMissing)
{
    const std::pair<const wchar_t*, const wchar_t*> paths[] = {// clang-format off
        {L"new", L"new"}, {L"a\\b", L"a\\b"}, {L"c21t2101v0.0.0l1p-1r1o1", L"c21t2101v0.0.0l1p-1r1o1"}, {L"a..b", L"a..b"},
        {L"CONsole", L"CONsole"}, {L".cache", L".cache"},
        // Other spellings that Windows accepts.
        {L"new\\", L"new"}, {L"res1/", L"res1"}, {L".\\res1", L"res1"}, {L"a/b", L"a\\b"}, {L"a\\\\b/\\", L"a\\b"},
        {L"a/./b/.", L"a\\b"}, {L"a\\..\\b", L"b"}, {L"a\\b\\..\\..\\c", L"c"}, {L"a.", L"a"}, {L"a. .", L"a"},
        {L"a.\\b", L"a\\b"}, {L"./a . /", L"a"}};  // clang-format on
    const wchar_t* const others[] = {// clang-format off
        L"..", L"..\\..\\Pub", L"a\\..\\..\\b", L"../b", L"a/../../b", L".", L"./", L"a\\..", L"...", L". .", L"a\\...",
        L"a\\b .\\c", L"a \\b", L"a..\\b", L"C:", L"C:\\Pub", L"C:a", L"./C:/Pub", L"\\Pub", L"/Pub", L"\\",
        L"\\\\server\\share", L"//server/share", L"\\\\?\\C:\\Pub", L"\\\\.\\NUL", L"a:stream", L"a::$DATA", L"NUL",
        L"a\\com1.x", L"./nul", L"a*", L"a\tb"};                                       // clang-format on
    const auto read = [&](const std::wstring& tstrPath) {
        m_install.Write(L"UpdateInfo.ini",
                        "[COMPONENT_LIST]\nComponent101_DownloadPath=" + String::ToUtf8(tstrPath) + "\n");
        m_run.paths.ReadProductFolders();
        return m_run.paths.ProductDownloadPath();
    };
    for (const auto& [szPath, szNormal] : paths) {
        EXPECT_EQ(read(szPath), szNormal) << String::ToUtf8(szPath);
        EXPECT_EQ(m_run.paths.ProductDownloadDir(), m_tstrInstall + L"Component\\" + szNormal + L"\\");
    }
    for (const wchar_t* szPath : others) EXPECT_EQ(read(szPath), L"c21t2103v0.0.0l1p1r1o1") << String::ToUtf8(szPath);
}
