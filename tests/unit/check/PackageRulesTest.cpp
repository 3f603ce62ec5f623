#include "unit/check/CheckFixture.h"

#include "common/KzComn_NamePattern.h"

using FileRulesTest = RulesTest<CheckFileRecords>;

TEST_F(FileRulesTest, PathsThatWindowsAndTheAgentTake)
{
    const std::string strLong = "C:\\" + std::string(200, 'x') + "\\" + std::string(56, 'x');
    const Row folders[] = {
        {"add={InstalledDir}a b.c\ndelete=\\\\server\\share\\a\nadd={InstalledDir}..\\a\n", {}},
        {"add=a\\b\nadd=\\b\nadd=C:b\ndelete=C:\\\nadd=C:\\\n",
         {"B030 2:5 {InstalledDir}a\\b", "B030 3:5 {InstalledDir}b", "B030 4:5", "B030 5:8"}},
        {"add=%InstalledDir%a\nadd='{InstalledDir}a'\n", {"B030 2:5", "B030 3:5 {InstalledDir}a"}},
        {"add=" + strLong + "\nadd=" + strLong + "x\n", {"B031 3:5"}},
        {"delete=C:\\a*\nadd=C:\\?\\b\n", {"B034 2:8", "B034 3:5"}},
        {"add=C:\\a|b\nadd=C:\\nul\\a\nadd=C:\\a.\\b\nadd=C:\\b \\c\nadd=C:\\c:d\n",
         {"B035 2:5", "B035 3:5", "B035 4:5", "B035 5:5", "B035 6:5"}},
    };
    Expect(folders, "[QOR_DIR]\n");
    const Row files[] = {
        {"delete={InstalledDir}*.d?l\ndelete_now=D:\\*\n", {}},
        {"delete=old.txt\ndelete_now={ServiceLogDir}*.log\n", {"B030 2:8 {InstalledDir}old.txt"}},
        {"delete=\"{InstalledDir}a b.*\"\ndelete_now={InstalledDir}\"a b\"\\c\n",
         {"B030 2:8 {InstalledDir}a b.*", "B035 3:12 {InstalledDir}a b\\c"}},
        {"delete=a*\\b\ndelete=\"a.txt\"\n", {"B030 2:8", "B030 3:8"}},  // the suggestion would be refused, too
        {"delete=" + strLong + "\ndelete=" + strLong + "x\n", {"B031 3:8"}},
        {"delete=C:\\" + std::string(256, 'x') + "\n", {"B031 2:8"}},
        {"delete=C:\\a*\\b\n", {"B034 2:8"}},
        {"delete_now=C:\\a\\b<\n", {"B035 2:12"}},
        {"delete={InstalledDir}Legacy\\\n", {"B036 2:8"}},
    };
    Expect(files, "[QOR_FILE]\n");

    // 259 characters in the default download folder, and one more.
    const std::wstring tstrFile = std::wstring(120, L'd') + L"\\" + std::wstring(83, L'f');
    for (const wchar_t* const szTask : {L"Component\\p1\\Share\\Task\\", L"Component\\p1\\Share\\Task\\e"}) {
        Write(szTask + tstrFile, "");
    }
    EXPECT_THAT(Lint(""), ElementsAre(StartsWith("B031 0:0 Component\\p1\\Share\\Task\\ed")));
}

TEST_F(FileRulesTest, DeletionsOfTheUpdatesOwnFiles)
{
    const Row files[] = {
        {"delete={InstalledDir}A.HTML\n", {"B033 2:8"}},
        {"delete={InstalledDir}*.htm\n", {"B033 2:8"}},
        {"delete_now={InstalledDir}a.*\n", {"B033 2:12"}},
        {"delete={InstalledDir}a.htm\ndelete={InstalledDir}Legacy\\a.html\ndelete={InstalledDir}UpdateInfo.ini\n", {}},
        {"delete={InstalledDir}x\\../A.html\n", {"B033 2:8"}},
        {"delete_now={UdComponentsSrcDir}Share\\UI\\*\n", {"B033 2:12"}},
        {"delete={UdComponentsSrcDir}Share\\UI\\*\n", {}},
    };
    Expect(files, "[QOR_FILE]\n");
    Write(L"Component\\p1\\Share\\Setting\\a.txt", "");
    EXPECT_THAT(Lint("[QOR_FILE]\ndelete={InstalledDir}UpdateInfo.ini\n"), ElementsAre("B033 2:8"));
    Write(L"Component\\p1\\Share\\Task\\daily\\t.task", "");
    const Row folders[] = {
        {"delete={InstalledDir}Driver\ndelete={InstalledDir}Drive\ndelete={InstalledDir}Task",
         {"B033 2:8", "B033 4:8"}},
        {"add={InstalledDir}New\\a\ndelete={InstalledDir}new\n", {"B033 3:8"}},
    };
    Expect(folders, "[QOR_DIR]\n");
}

// A deletion lists its files during the run, when the update's own files do not exist yet, except those copied at once.
TEST_F(FileRulesTest, WithAnInstalledProductItsFilesAndFoldersCount)
{
    m_optInstalled = m_update.PathOf(L"installed");
    Write(L"installed\\Driver\\x", "");
    Bring({L"p1\\Share\\Patterns\\p.ptn", L"p1\\Share\\Task\\daily\\t.task"});
    EXPECT_THAT(Lint("[QOR_DIR]\nadd={InstalledDir}Task\\daily\n"),
                ElementsAre("B032 0:0 Component\\p1\\Share\\Patterns\\p.ptn add={InstalledDir}Patterns"));
    const std::string strFolders = "[QOR_DIR]\nadd={InstalledDir}Task\\daily\nadd={InstalledDir}Patterns\n[QOR_FILE]\n";
    const auto lint = [&](const std::string& strLine) {
        return Lint(strFolders + strLine + "\n");
    };
    EXPECT_THAT(lint("delete={InstalledDir}a.html"), IsEmpty());
    EXPECT_THAT(lint("delete_now={InstalledDir}Driver\\*"), ElementsAre("B033 5:12"));
    EXPECT_THAT(lint("delete={InstalledDir}Driver"), ElementsAre("B036 5:8"));
    Write(L"installed\\a.html", "");
    EXPECT_THAT(lint("delete={InstalledDir}a.html"), ElementsAre("B033 5:8"));
}

TEST_F(FileRulesTest, TheInstructionFileStaysUntilItIsRead)
{
    m_bWarnings = true;
    const Row rows[] = {
        {"delete_now={InstalledDir}QorPaFrwk.ini\n[Run]\nSysRunOnce=a\n", {"B037 4:12"}},
        {"delete_now={InstalledDir}q*.in?\n[Run]\nSysRunOnce=a\n", {"B037 4:12"}},
        {"delete_now={InstalledDir}x\\..\\QORPAFRWK.*\n[Run]\nSysRunOnce=a\n", {"B037 4:12"}},
        {"delete_now={InstalledDir}*.ini\n[RestartNotification_X]\ntext=a\n", {"warning B037 4:12"}},
        {"delete_now=\\\\?\\C:\\Program Files\\Kazmere\\KZVLT\\*.ini\n[Run]\nSysRunOnce=a\n", {"B037 4:12"}},
        {"delete_now={InstalledDir}QorPaFrwk.ini.\n[Run]\nSysRunOnce=a\n", {"B037 4:12"}},
        // no later reader; the name of another folder; deletion at the restart
        {"delete_now={InstalledDir}*.ini\n[Run]\n", {}},
        {"delete_now={InstalledDir}Task\\*.ini\ndelete_now={InstalledDir}Qor*.in\n[Run]\nSysRunOnce=a\n", {}},
        {"delete={InstalledDir}*.ini\n[Run]\nSysRunOnce=a\n", {}},
    };
    Expect(rows, "[QOR_DIR]\nadd={InstalledDir}a\n[QOR_FILE]\n");
}

TEST_F(FileRulesTest, FoldersInWhichEveryUserCanPutALink)
{
    m_bWarnings = true;
    const Row files[] = {
        {"delete={ServiceLogDir}*.log\ndelete={InstallerLogDir}a\\*.log\n",
         {"warning B038 2:8 delete_now", "warning B038 3:8 delete_now"}},
        {"delete=D:\\programdata\\Kazmere\\KZVLT\\a.dat\ndelete=C:\\Users\\Public\\a.txt\n",
         {"warning B038 2:8 delete_now", "warning B038 3:8 delete_now"}},
        {"delete=\\\\?\\C:\\ProgramData\\a.dat\ndelete=C:\\Documents and Settings\\Public\\a.txt\n",
         {"warning B038 2:8 delete_now", "warning B038 3:8 delete_now"}},
        {"delete_now={ServiceLogDir}*.log\ndelete=C:\\ProgramDatas\\a\ndelete={InstalledDir}ProgramData\\a\n", {}},
        {"delete=\\\\server\\ProgramData\\a\ndelete=C:\\Windows\\a\n", {}},
    };
    Expect(files, "[QOR_FILE]\n");
    const Row folders[] = {
        {"delete=C:\\ProgramData\\Kazmere\\Old\n", {"warning B038 2:8"}},
        {"add=C:\\ProgramData\\Kazmere\\KZVLT\\New\nadd={InteractiveLogDir}Old\n",
         {"warning B039 2:5", "warning B039 3:5"}},
        {"add={InstalledDir}New\nadd=C:\\Kazmere\\New\n", {}},
    };
    Expect(folders, "[QOR_DIR]\n");
}

TEST(PatternTest, MatchesAsWindowsListsFiles)
{
    const std::tuple<const wchar_t*, const wchar_t*, bool> rows[] = {
        {L"a.txt", L"*", true},        {L"a", L"*.*", true},
        {L"A.TXT", L"a.t?t", true},    {L"a.txt", L"?.tx", false},
        {L"aXbXc", L"a*b*c", true},    {L"aXbX", L"a*b*c", false},
        {L"a.html", L"*.htm", true},   {L"a.html", L"a.htm", false},
        {L"a.htm", L"*.html", false},  {L"", L"*", true},
        {L"a.txt", L"a?.txt", true},   {L"a.txt", L"a.txt?", true},
        {L"a.txt", L"?????", false},   {L"a", L"a.?", true},
        {L"a.txt", L"a.txt. ", true},  {L"a.txt", L"*.", false},
        {L"a", L"*.", true},           {L"a.txt", L"*xt.", true},
        {L"a", L"a.b*", false},        {L"ab", L"a", false},
        {L"a.b.c", L"*.?", true},      {L"a.htm", L"b?.htm", false},
        {L"a.html", L"a?.htm", false}, {L"ab.html", L"?b.htm", false},
        {L"ab.html", L"a*.htm", true}, {L"seventh.html", L"*h.htm", false},
    };
    for (const auto& [szName, szPattern, b] : rows)
        EXPECT_EQ(KzCommon::Storage::File::MatchesPattern(szName, szPattern), b) << szPattern;
}

class PackageRulesTest : public RulesTest<CheckPackages> {
protected:
    PackageRulesTest() { Bring({L"r1\\EN-US\\readme.htm"}); }
};

TEST_F(PackageRulesTest, FilesWhereNoStepLooks)
{
    Bring({L"p1\\Share\\Task\\daily\\t.task", L"p1\\32bit\\p1\\a.dll", L"r1\\EN-US\\help\\a.htm"});
    EXPECT_THAT(Lint(""), IsEmpty());
    Bring({L"p1\\Share\\Pattern\\p.ptn", L"p1\\Share\\UI\\Test\\a.htm", L"p1\\a.htm"});
    EXPECT_THAT(Lint(""), ElementsAre("B070 0:0 Component\\p1\\Share\\Pattern\\p.ptn Share\\Patterns\\",
                                      "B070 0:0 Component\\p1\\Share\\UI\\Test\\a.htm Share\\UI\\",
                                      "B070 0:0 Component\\p1\\a.htm"));
}

TEST_F(PackageRulesTest, FoldersThatAreNotNamedAsTheAgentLooksForThem)
{
    m_optInstalled = m_update.Path();  // which may have the packages of earlier updates
    Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p2\nComponent2_DownloadPath=r1\n");
    Write(L"Component\\p2\\64bit\\a.dll", "");
    EXPECT_THAT(Lint(""), ElementsAre("B071 0:0 Component\\p2\\64bit\\a.dll Component\\p2\\64bit\\p2\\a.dll"));
    Write(L"Component\\p2\\64bit\\p2\\b.dll", "x");
    EXPECT_THAT(Lint(""), ElementsAre("B071 0:0 Component\\p2\\64bit\\a.dll Component\\p2\\64bit\\p2\\a.dll"))
        << "beside the existing folder";
    Bring({L"p2\\64bit\\p2\\a.dll", L"other\\EN-US\\readme.htm"});
    ::DeleteFileW(m_update.PathOf(L"Component\\p2\\64bit\\a.dll").c_str());
    EXPECT_THAT(Lint(""), IsEmpty());
}

TEST_F(PackageRulesTest, APackageThatIsNamedIsThere)
{
    m_bWarnings = true;
    m_optInstalled = m_update.Path();
    const auto lint = [&](const std::string& strInfo) {
        Write(L"UpdateInfo.ini", strInfo);
        return Lint("");
    };
    const std::string strProduct = "[component_list]\nComponent101_DownloadPath=p1\n";
    EXPECT_THAT(lint("[COMPONENT_LIST]\nComponent101_DownloadPath=p1x\nComponent2_DownloadPath=r1\n"),
                ElementsAre("B074 2:27 UpdateInfo.ini p1"));
    EXPECT_THAT(lint(strProduct + "component2_downloadpath = r2\n"), ElementsAre("B074 3:27 UpdateInfo.ini r1"));
    EXPECT_THAT(lint("[COMPONENT_LIST]\nComponent101_DownloadPath=..\\p1\n"),
                ElementsAre("B074 2:27 UpdateInfo.ini p1"));
    // An update with one package needs no other; keys of another Windows version or section are ignored.
    EXPECT_THAT(lint(strProduct + "Component1_DownloadPath=p2\nComponent2_DownloadPath=\n"), IsEmpty());
    EXPECT_THAT(lint(strProduct + "[OTHER]\nComponent2_DownloadPath=r2\n"), IsEmpty());
    EXPECT_THAT(lint("[COMPONENT_LIST]\nComponent2_DownloadPath=r1\n"), ElementsAre("B070 0:0 UpdateInfo.ini p1"));
    Bring({L"other\\EN-US\\StringTable.ini"});
    EXPECT_THAT(lint(strProduct), ElementsAre("B070 0:0 UpdateInfo.ini other"));
    EXPECT_THAT(lint(strProduct + "Component2_DownloadPath=resource\n"), ElementsAre("B074 3:25 UpdateInfo.ini other"));
    EXPECT_THAT(lint(strProduct + "Component2_DownloadPath=r2\n"), ElementsAre("B074 3:25 UpdateInfo.ini r1"));

    Bring({L"a\\p1\\64bit\\a\\p1\\a.dll", L"a\\r1\\EN-US\\StringTable.ini", L"c21t2101v0.0.0l1p-1r1o1\\EN-US\\a.htm"});
    const std::string strNested = "[COMPONENT_LIST]\nComponent101_DownloadPath=a/p1\n";
    EXPECT_THAT(lint(strNested + "Component2_DownloadPath=.\\a\\r1\\\n"), IsEmpty());
    EXPECT_THAT(lint(strNested + "Component2_DownloadPath=a\\r11\n"), ElementsAre("B074 3:25 UpdateInfo.ini a\\r1"));
    EXPECT_THAT(lint(strProduct + "Component2_DownloadPath=\\other\n"), ElementsAre("B074 3:25 UpdateInfo.ini other"))
        << "refused, even if the agent's default folder exists";
}

TEST_F(PackageRulesTest, APackageThatNothingDeploysIsAnError)
{
    m_bWarnings = true;
    Bring({L"other\\64bit\\other\\a.dll"});
    EXPECT_THAT(Lint(""), ElementsAre("B070 0:0 Component\\other"));
    Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=othr\nComponent2_DownloadPath=r1\n");
    EXPECT_THAT(Lint(""), ElementsAre("B070 0:0 Component\\p1", "B074 2:27 UpdateInfo.ini other"));
    Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p1\n");
    EXPECT_THAT(Lint(""), ElementsAre("B070 0:0 Component\\other", "B070 0:0 Component\\r1"));
    m_optInstalled = m_update.Path();
    EXPECT_THAT(Lint(""), IsEmpty()) << "an install folder may have them";
}

TEST_F(PackageRulesTest, FilesThatComeByMistake)
{
    m_bWarnings = true;
    Bring({L"p1\\Share\\UI\\THUMBS.DB", L"p1\\Share\\Task\\.DS_Store", L"p1\\Share\\Setting\\~$readme.doc"});
    Write(L"Component\\p1\\64bit\\p1\\Empty.dll", "");
    Write(L"Component\\p1\\Share\\Task\\a.cmd", "");
    Write(L"Component\\p1\\Share\\Task\\empty.txt", "");
    EXPECT_THAT(Lint(""), UnorderedElementsAre("B078 0:0 Component\\p1\\64bit\\p1\\Empty.dll",
                                               "B078 0:0 Component\\p1\\Share\\Task\\a.cmd",
                                               "warning B077 0:0 Component\\p1\\Share\\Setting\\~$readme.doc",
                                               "warning B077 0:0 Component\\p1\\Share\\Task\\.DS_Store",
                                               "warning B077 0:0 Component\\p1\\Share\\UI\\THUMBS.DB"));
}

TEST_F(PackageRulesTest, FilesCopiedAtOnceMustNotBeReadOnly)
{
    m_bWarnings = true;
    const auto makeReadOnly = [&](const wchar_t* szName) {
        EXPECT_TRUE(::SetFileAttributesW(m_update.PathOf(szName).c_str(), FILE_ATTRIBUTE_READONLY));
    };
    makeReadOnly(L"Component\\p1\\Share\\UI\\a.html");
    EXPECT_THAT(Lint(""), IsEmpty()) << "the file is moved";
    makeReadOnly(L"Component\\p1\\64bit\\p1\\Driver\\k.ini");
    EXPECT_THAT(Lint(""), ElementsAre("warning B075 0:0 Component\\p1\\64bit\\p1\\Driver\\k.ini"));
}

TEST_F(PackageRulesTest, SectionsThatNeedTheProductPackage)
{
    const std::string strSections =
        "[QOR_REGISTRY_PATCH]\nadd=K!N!REG_SZ!a\n[QOR_CONFIG_MERGE]\nmigrate=/A/B\n[UPDATE_INFO]\nmodify=S!K!V\n"
        "[QOR_DIR]\nadd=C:\\a\n";
    EXPECT_THAT(Lint(strSections), ElementsAre("B073 3:2"));
    Write(L"Component\\p1\\Share\\Setting\\a.txt", "");
    EXPECT_THAT(Lint(strSections), IsEmpty());
    Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p2\nComponent2_DownloadPath=r1\n");
    EXPECT_THAT(Lint(strSections), ElementsAre("B074 2:27 UpdateInfo.ini p1")) << "as if the name were right";
    ::DeleteFileW(m_update.PathOf(L"UpdateInfo.ini").c_str());
    EXPECT_THAT(Lint(strSections),
                ElementsAre("B070 0:0 Component\\p1", "B070 0:0 Component\\r1", "B070 0:0 UpdateInfo.ini"));
}

class LanguageRulesTest : public RulesTest<CheckLanguages> {
protected:
    LanguageRulesTest() { Bring({L"r1\\EN-US\\readme.htm"}); }
};

TEST_F(LanguageRulesTest, ALanguageHasAllOfItsFilesOrNone)
{
    Bring({L"r1\\DE-DE\\StringTable.ini", L"r1\\EN-US\\StringTable.ini"});
    EXPECT_THAT(Lint("[RestartNotification_DE-DE]\ntext=a\n"), IsEmpty()) << "every machine needs the English table";
    Bring({L"p1\\Share\\Setting\\config_EN-US.xml", L"p1\\Share\\Setting\\config_DE-DE.xml",
           L"p1\\Share\\Setting\\readme_en-us.htm", L"p1\\Share\\Setting\\readme_DE-DE.htm"});
    const std::string strTexts = "[RestartNotification_EN-US]\ntext=a\ntext=b\n[RestartNotification_DE-DE]\ntext=a\n";
    EXPECT_THAT(Lint(strTexts), IsEmpty());
    EXPECT_THAT(Lint("[RestartNotification_EN-US]\ntext=a\n"), ElementsAre("B072 0:0"));
    Write(L"Component\\p1\\Share\\Setting\\qorshcut_DE-DE.xml", "");
    EXPECT_THAT(Lint(strTexts), ElementsAre("B072 0:0 Component\\p1\\Share\\Setting\\qorshcut_EN-US.xml"));
    Write(L"Component\\p1\\Share\\Setting\\qorshcut.xml", "");
    m_languages = {L"FR-FR"};
    EXPECT_THAT(Lint(strTexts),
                UnorderedElementsAre("B072 0:0", "B072 0:0 Component\\p1\\Share\\Setting\\config_FR-FR.xml",
                                     "B072 0:0 Component\\p1\\Share\\Setting\\readme_FR-FR.htm",
                                     "B072 0:0 Component\\r1\\FR-FR\\StringTable.ini"));
}

TEST_F(LanguageRulesTest, AWrongTagIsOneFindingAtItsName)
{
    const std::wstring tstrSetting = L"p1\\Share\\Setting\\";
    Bring({tstrSetting + L"config_EN-US.xml", tstrSetting + L"config_DE-DE.xml", tstrSetting + L"readme_EN-UK.htm",
           tstrSetting + L"readme_DE-DE.htm", L"r1\\EN-US\\StringTable.ini", L"r1\\DE_DE\\StringTable.ini"});
    const auto texts = [](const std::string& strTag) {
        return "[RestartNotification_EN-US]\ntext=a\n[RestartNotification_" + strTag + "]\ntext=a\n";
    };
    EXPECT_THAT(Lint(texts("de")), ElementsAre("B072 0:0 Component\\p1\\Share\\Setting\\readme_EN-UK.htm EN-US",
                                               "B072 0:0 Component\\r1\\DE_DE\\StringTable.ini DE-DE",
                                               "B072 3:2 RestartNotification_DE-DE"));
    // A language of its own that lacks the others is no slip.
    m_languages = {L"en-uk", L"DE_DE"};
    EXPECT_THAT(Lint(texts("DE-DE")), SizeIs(8));
}
