// The rules for the form of the instruction file, and for the update's packages and files.
#include "check/verify/Manifest.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_XmlParser.h"
#include "config/ConfigProtection.h"
#include "unit/check/LintFixture.h"

// Each text between empty lines there is checked; the indented lines are what lint must say of it. A line with " := "
// begins the content of another file, "(none)" that of a missing one. The files of the update are then as before; those
// of the installed product stay.
TEST_F(LintTest, MistakesOfTheExamples)
{
    std::istringstream lines(ToldIn(kFindings, "MistakesOfTheExamples") + "\n");
    std::vector<std::pair<std::wstring, std::string>> files{{kInstructionFile, ""}};
    std::string strText;
    for (std::string strLine; std::getline(lines, strLine);) {
        if (!strLine.empty()) {
            if (strLine.starts_with("    ")) continue;
            strText += strLine + "\n";
            const std::size_t uMark = strLine.find(" := ");
            if (uMark != std::string::npos)
                files.emplace_back(KzCommon::String::FromAnsi(strLine.substr(0, uMark)), "");
            files.back().second += (uMark == std::string::npos ? strLine : strLine.substr(uMark + 4)) + "\n";
            continue;
        }
        if (strText.empty()) continue;
        m_strTold += "\n" + strText;
        CheckChanged(files);
        files = {{kInstructionFile, ""}};
        strText.clear();
    }
    EXPECT_THAT(m_strTold, HasSubstr(": error B"));
}

TEST_F(LintTest, FormOfTheInstructionFile)
{
    // The agent's last buffer has 32512 characters; a section may use all but its two closing zeros and one more.
    std::string strFull = "[RestartNotification_EN-US]\n";
    for (int i = 0; i < 40; ++i) strFull += "text=" + std::string(806, 'x') + "\n";
    strFull += "text=" + std::string(23, 'x');
    ExpectIn(kInstructionFile, "", "\n", R"(
        ; a comment$$  [Run]  $	SysRunOnce=net.exe a=b==c =>
        [run]$SysRunOnce=net.exe$[RestartNotification_EN-US]$text=a$text=b =>
        [Run]$SysRunOnce$;SysRunOnce => B002 2:1
        add=C:\a => B002 1:1
        [Runs]$SysRunOnce=a$[RestartNotification_]$text=a => B003 1:2 Run, B003 3:2 RestartNotification_EN-US
        [RestartNotificaton_DE-DE]$text=a => B003 1:2 RestartNotification_DE-DE
        [QOR_DIR]$add=C:\a$[qor_dir]$add=C:\b$add=C:\c => B004 3:2
        [Run]$sysrunonce=a$ SysRunOnec=a$SysRunOnce==net.exe$SysRunOnce =a
        &  => B005 2:1 SysRunOnce, B005 3:2 SysRunOnce, B005 4:1 SysRunOnce, B005 5:1 SysRunOnce=, B056w 5:13
        [Run]$SysRunOnce=$SysRunOnce=  => B006 2:12, B006 3:12
        [QOR_REGISTRY_PATCH]$add=SAM!N!REG_SZ!#1011#$add=SAM!O!REG_SZ!#1010# => B006 2:5
        [Run]$SysRunOnce=none.exe #1015# => B006 2:12
    )");
    EXPECT_EQ(Lint(strFull + "\n").find("B007"), std::string::npos);
    EXPECT_THAT(Lint(strFull + "x\n"), StartsWith("B007 1:2"));
    ExpectFiles(kInstructionFile,
                {
                    {"", "B008"},
                    {"[QOR_FILE]\ndelete=C:\\a\\b\n[UPDATE_INFO]\nmodify=S!K!V\n", "B008 1:2"},
                    {"[QOR_DIR]\ndelete=C:\\a\n[QOR_FILE]\n[UPDATE_INFO]\nmodify=S!K!V\n", "B008 1:2"},
                    {"[QOR_DIR]\r\nadd=C:\\a\radd=C:\\b\r\n[QOR_FILE]\ndelete=C:\\a\n[UPDATE_INFO]\nmodify=S!K!1.2\n",
                     "B100 2:9"},
                    {"[QOR_DIR]\radd=C:\\a\r[QOR_FILE]\rdelete=C:\\a", "B042w, B100 1:10"},
                });
}

TEST_F(LintTest, OnlyUtf16WithBomAndAsciiAreTheSameEverywhere)
{
    const std::string strAnsi = m_update.Read(kInstructionFile).value_or("") + "[Run]\n";
    const std::wstring tstrRun = KzCommon::String::FromAnsi(strAnsi) + L"SysRunOnce=net.exe ";
    ExpectFiles(kInstructionFile,
                {
                    {Utf16(tstrRun + L"\U0001F511\n"), ""},
                    {Utf16(tstrRun + L"\U0001F511\n") + "x", "B001 9:1"},
                    {Utf16(tstrRun + L"\xD83D.\nSysRunOnce=net.exe \xDD11\n"), "B001 8:20, B001 9:20"},
                    {Utf16(tstrRun).substr(2), "B001 1:1"},
                    {"\xEF\xBB\xBF" + strAnsi, "B001 1:1"},
                    {"\xEF\xBB\xBF; \xFC\n" + strAnsi, "B001 1:1"},
                    {std::string("\xFE\xFF\0[\0X\0]\0\n\0k", 12), "B042w, B001 1:1, B003 1:2"},
                    {strAnsi + "SysRunOnce=net.exe a\xFC\n", "B001 8:21"},
                });
}

TEST_F(LintTest, ScanAndWindowsAgreeAboutTheRecordsOfOddLines)
{
    const std::string strOdd =
        "[S]\nk=v\nk = v\n\tk=v \n\v\fk=v\x1a\n \v;c\n \f\n;c=v\n ;c=v\n#h=v\nk=\nk==\nk==v\n=v\nnone\n[T\n\n "
        "\nk=\"v\"\nk=v;c\r\nk=v\r\r\nk=v\n"
        "[T]\nk=v\n[S]\nk=second\n";
    Write(L"odd.ini", strOdd);
    IniScan scan;
    scan.Scan(strOdd);
    ASSERT_TRUE(scan.Find(L"s"));
    std::vector<std::pair<std::wstring, std::wstring>> scanned;
    for (const Check::IniRecord& record : scan.Find(L"s")->records) {
        if (record.IsRecord()) scanned.emplace_back(record.tstrKey, record.tstrValue);
    }
    const std::wstring tstrPath = m_update.PathOf(L"odd.ini");
    EXPECT_EQ(KzCommon::Storage::Ini::ReadSection(tstrPath, L"S", {256, 256, 4096}).entries, scanned);
    // Where they do not, no place can be trusted.
    Instruct("[Run]\nSysRunOnce=a\nSysRunOnce=b\n");
    scan = {};
    scan.Scan("[Run]\nSysRunOnce=a\n[QOR_DIR]\n[QOR_FILE]\n[QOR_CONFIG_MERGE]\nmigrate=/a\n");
    Report report;
    CheckForm({Open(), scan, {}}, report);
    s_found.insert(IdOf(Rule::eScanDiffers));
    m_strTold = ToUtf8(FormatText(report, L""));
}

TEST_F(LintTest, FilesOfPackages)
{
    Bring({L"p1\\Share\\Pattern\\p.ptn", L"p1\\Share\\UI\\Test\\a.htm", L"p1\\a.htm", L"p1\\32bit\\p1\\a.dll",
           L"p1\\64bit\\a.dll", L"p1\\Share\\UI\\THUMBS.DB", L"p1\\Share\\Task\\.DS_Store", L"r1\\EN-US\\help\\a.htm",
           L"p1\\Share\\Setting\\~$readme.doc", L"other\\64bit\\other\\a.dll", L"p1\\64bit\\p1\\Drivr\\d.sys",
           L"p1\\Share\\Setting\\config_old\\a.xml"});
    Write(L"Component\\p1\\64bit\\p1\\Empty.dll", "");
    Write(L"Component\\p1\\Share\\Task\\Empty.cmd", "");
    Write(L"Component\\p1\\Share\\UI\\empty.txt", "");
    for (const wchar_t* const szName : {L"Share\\UI\\a.html", L"64bit\\p1\\Driver\\k.ini"})  // moved; copied at once
        ::SetFileAttributesW(m_update.PathOf(L"Component\\p1\\" + std::wstring(szName)).c_str(),
                             FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(
        Findings(),
        "B070 Component\\other, B071 Component\\p1\\64bit\\a.dll Component\\p1\\64bit\\p1\\a.dll, "
        "B075w Component\\p1\\64bit\\p1\\Driver\\k.ini, "
        "B070w Component\\p1\\64bit\\p1\\Drivr\\d.sys 64bit\\p1\\Driver\\, B078 Component\\p1\\64bit\\p1\\Empty.dll, "
        "B070w Component\\p1\\Share\\Pattern\\p.ptn Share\\Patterns\\, "
        "B077w Component\\p1\\Share\\Setting\\~$readme.doc, B077w Component\\p1\\Share\\Task\\.DS_Store, "
        "B078 Component\\p1\\Share\\Task\\Empty.cmd, B077w Component\\p1\\Share\\UI\\THUMBS.DB, B070w "
        "Component\\p1\\Share\\UI\\Test\\a.htm Share\\UI\\, "
        "B070w Component\\p1\\a.htm");

    // Without the inner folder nothing of the platform arrives, which is one finding.
    ::SetFileAttributesW(m_update.PathOf(L"Component\\p1\\64bit\\p1\\Driver\\k.ini").c_str(), FILE_ATTRIBUTE_NORMAL);
    for (const wchar_t* const szName :
         {L"Driver\\k.ini", L"Driver\\", L"Drivr\\d.sys", L"Drivr\\", L"Brevant.exe", L"Empty.dll", L""})
        Remove(std::wstring(L"Component\\p1\\64bit\\p1\\") + szName);
    EXPECT_THAT(Findings(), HasSubstr("B071 Component\\p1\\64bit\\a.dll Component\\p1\\64bit\\p1\\a.dll, "));
}

TEST_F(LintTest, PackagesThatAreNamed)
{
    Install(L"");  // which may have the packages of earlier updates
    const auto expect = [&](const std::string& strTable) {
        ExpectIn(L"UpdateInfo.ini", "[COMPONENT_LIST]\n", "\n[S]\nK=1\n", strTable);
    };
    expect(R"(
        Component101_DownloadPath=p1x$Component2_DownloadPath=r1 => B074 2:27 p1
        Component101_DownloadPath=p1$component2_downloadpath = r2 => B074 3:27 r1
        Component101_DownloadPath=..\p1 => B074 2:27 p1
        Component101_DownloadPath=p1$Component1_DownloadPath=p2$Component2_DownloadPath= => B070 r1
        Component101_DownloadPath=p1$[OTHER]$Component2_DownloadPath=r2 => B070 r1
        Component2_DownloadPath=r1 => B070 p1
    )");
    BringTable(L"..\\other\\EN-US");
    expect("Component101_DownloadPath=p1 => B070 other");
    Bring({L"a\\p1\\64bit\\a\\p1\\a.dll", L"a\\p1\\Share\\Setting\\a.txt", L"a\\r1\\EN-US\\readme.htm",
           L"c21t2101v0.0.0l1p-1r1o1\\EN-US\\a.htm"});
    expect(R"(
        Component101_DownloadPath=p1$Component2_DownloadPath=resource => B074 3:25 other
        Component101_DownloadPath=p1$Component2_DownloadPath=r2 => B074 3:25 r1
        Component101_DownloadPath=p1$Component2_DownloadPath=\other => B074 3:25 other
        Component101_DownloadPath=a/p1$Component2_DownloadPath=.\a\r1\ =>
        Component101_DownloadPath=a/p1$Component2_DownloadPath=a\r11 => B074 3:25 a\r1
    )");
    m_optInstalled.reset();
    expect(R"(
        Component101_DownloadPath=othr$Component2_DownloadPath=r1
        &  => B070 Component\a, B070 Component\c21t2101v0.0.0l1p-1r1o1, B070w Component\other\EN-US\StringTable.ini,
        &  B070 Component\p1, B042w 5:2, B074 2:27 other
        Component101_DownloadPath=p1 => B070 Component\a, B070 Component\other, B070 Component\r1
    )");
}

TEST_F(LintTest, SectionsThatNeedTheProductPackage)
{
    const std::string strSections =
        "[QOR_REGISTRY_PATCH]\nadd=SAM!N!REG_SZ!a\n[QOR_CONFIG_MERGE]\nmigrate=/ProxySettings/"
        "Server\n[UPDATE_INFO]\nmodify=S!K!V\n";
    for (const wchar_t* const szName : {L"a.txt", L""}) Remove(m_tstrSetting + szName);
    ::SetFileAttributesW(m_update.PathOf(L"Component\\p1\\64bit\\p1\\Driver\\k.ini").c_str(), FILE_ATTRIBUTE_READONLY);
    Bring({L"p1\\Share\\UI\\Thumbs.db"});
    const std::string strFiles =
        "B075w Component\\p1\\64bit\\p1\\Driver\\k.ini, B077w Component\\p1\\Share\\UI\\Thumbs.db, ";
    EXPECT_EQ(Lint(strSections), strFiles + "B073 3:2, B042w 5:2");
    Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p2\nComponent2_DownloadPath=r1\n[S]\nK=1\n");
    EXPECT_EQ(Lint(strSections), strFiles + "B073 3:2, B042w 5:2, B074 2:27 UpdateInfo.ini p1")
        << "as if it were right";
    Remove(L"UpdateInfo.ini");
    EXPECT_EQ(Lint(strSections), strFiles + "B073 3:2, B042w 5:2, B070 UpdateInfo.ini p1");
    Bring({L"p2\\Share\\UI\\a.html"});  // either may be meant
    EXPECT_EQ(Lint(strSections), "B070 Component\\p1, B070 Component\\p2, B070 UpdateInfo.ini");
}

TEST_F(LintTest, ALanguageHasAllOfItsFilesOrNone)
{
    BringTable(L"DE-DE");
    const auto texts = [&](const std::string& strTag) {
        return "[RestartNotification_" + strTag + "]\ntext=a\ntext=b\n";
    };
    EXPECT_EQ(Lint(texts("DE-DE")), "") << "every machine needs the English table";
    for (const wchar_t* const szName : {L"config_EN-US.xml", L"config_DE-DE.xml"})
        Write(m_tstrSetting + szName, "<a/>");
    Bring({L"p1\\Share\\Setting\\readme_en-us.htm", L"p1\\Share\\Setting\\readme_DE-DE.htm"});
    EXPECT_EQ(Lint(texts("EN-US") + texts("DE-DE")), "");
    EXPECT_EQ(Lint(texts("EN-US")), "B072w");
    // A wrong tag is one finding at its name; a language that lacks the others is no slip.
    EXPECT_EQ(Lint(texts("EN-US") + texts("de")), "B072 4:2 RestartNotification_DE-DE");
    m_languages = {L"DE"};  // which says that it is no slip
    EXPECT_THAT(Lint(texts("EN-US") + texts("de")), HasSubstr("config_DE.xml"));
    m_languages.clear();
    BringTable(L"DE_DE");
    Remove(L"Component\\r1\\DE-DE\\StringTable.ini");
    EXPECT_EQ(Lint(texts("EN-US") + texts("DE-DE")), "B072 Component\\r1\\DE_DE\\StringTable.ini DE-DE");
    BringTable(L"DE-DE");
    Remove(L"Component\\r1\\DE_DE\\StringTable.ini");
    Write(m_tstrSetting + L"qorshcut_DE-DE.xml", "<a/>");
    EXPECT_EQ(Lint(texts("EN-US") + texts("DE-DE")), "B072 Component\\p1\\Share\\Setting\\qorshcut_EN-US.xml");
    Write(m_tstrSetting + L"qorshcut.xml", "<a/>");
    m_languages = {L"FR-FR"};  // it was said to be served
    EXPECT_EQ(
        Lint(texts("EN-US") + texts("DE-DE")),
        "B072 Component\\p1\\Share\\Setting\\config_FR-FR.xml, B072 Component\\p1\\Share\\Setting\\readme_FR-FR.htm, "
        "B072 Component\\r1\\FR-FR\\StringTable.ini, B072w");
}

TEST_F(LintTest, Configuration)
{
    Write(m_tstrSetting + L"config_EN-US.xml",
          "<Settings><Window><Skin>a</Skin><Size/></Window><Part><A/></Part><Part/></Settings>");
    ExpectRecords("QOR_CONFIG_MERGE", "migrate=", R"(
        /Window/Skin$window//SKIN/$/ProxySettings/Server$/Part =>
        /$\Window\Skin$/Window/Skin,/Window/Size => B060 2:9, B060 3:9 /Window/Skin, B060 4:9
        /Window/Skni$/Window$/Settings/Window/Skin => B061w 2:9 /Window/Skin, B061w 3:9, B061w 4:9 /Window/Skin
    )");
    Remove(m_tstrSetting + L"config_EN-US.xml");
    Instruct("");
    Config::ValueProtection protection;
    DWORD dwError = ERROR_SUCCESS;
    ASSERT_TRUE(protection.Open(Config::kStoreKey, dwError));
    const auto sealed = [&](const wchar_t* szPath, const wchar_t* szValue) {
        std::wstring tstrText;
        EXPECT_TRUE(protection.Protect(*Config::TagPath::Parse(szPath), szValue, tstrText, dwError));
        return "<Pin type=\"int\" protected=\"1\">" + ToUtf8(tstrText) + "</Pin>";
    };
    ExpectIn(m_tstrSetting + L"config.xml", "<Settings>\n<ProxySettings>\n", "</ProxySettings></Settings>",
             sealed(L"/ProxySettings/Pin", L"12") + " =>\n" + sealed(L"/ProxySettings/Pin", L"x") + " => B063 3:1\n" +
                 sealed(L"/ProxySettings/Password", L"12") + " => B064 3:1\n" + R"(
        <Port type="int"> -8080$</Port><Enable type="bool"/><Any type="text"><Port type="int">8</Port></Any> =>
        <Port type="int">80a</Port>$<Port type="int">9223372036854775808</Port> => B063 3:1, B063 4:1
        <Enable type="bool">true</Enable>$<Enable type="bool">2</Enable> => B063 3:1 1, B063 4:1
        <Enable type="boolean">1</Enable>$<Enable type="boolean">true</Enable> => B063 3:1 bool, B063 4:1
        <Enable type="Bool">1</Enable> => B063 3:1 bool
        <Pin protected="true">12</Pin> => B064 3:1 <Pin protected="1"/>
        <Pin protected="0">12</Pin>$<Password protected="1"/> =>
        <Password protected="1">geheim</Password> => B064 3:1
        <Password Protected="1">geheim</Password> => B064 3:1 <Password protected="1"/>
        <password>geheim</password> => B064 3:1 <password protected="1"/>
        <Password/> => B064w 3:1 <Password protected="1"/>
        <ApiToken>geheim</ApiToken> => B064w 3:1 <ApiToken protected="1"/>
        <ApiToken> $</ApiToken><AskPassword type="bool">1</AskPassword><TokenLength>8</TokenLength> =>
        <Port typ="int">8</Port><Server Type="string" hint=""/> => B066 3:1 type, B066 3:25 type
        <Prot type="int">8</Prot><Servers/> => B066w 3:1 Port, B066w 3:26 Server
        <Server/><Servers/> =>
        <#1008# type="int">x</#1008#>$<#1009# type="int">x</#1009#> => B063 3:1
        <a><Password>12</Password></a>$<Port type="int">x</Port> => B064w 3:4 <Password protected="1"/>, B063 4:1
    )");
    for (const wchar_t* const szName :
         {L"Setting\\config.previous.xml", L"Setting\\Config.Previous.2.xml", L"UI\\config.previous.xml"}) {
        const std::wstring tstrFile = std::wstring(L"Component\\p1\\Share\\") + szName;
        Write(m_tstrSetting + L"config.xml", "<a/>");
        Write(tstrFile, "x");
        EXPECT_EQ(Findings(tstrFile), "B065") << szName;
        Remove(tstrFile);
    }
    for (const wchar_t* szOther : {L"config.previous.20.xml", L"config.previous.1.xml", L"config.previous.a.xml"})
        Write(m_tstrSetting + szOther, "<a/>");
    EXPECT_EQ(Findings(), "");
}

TEST_F(LintTest, SettingsOfEveryLanguageAndOfTheInstalledFile)
{
    const std::wstring tstrEnglish = m_tstrSetting + L"config_EN-US.xml";
    BringTable(L"DE-DE");
    const auto expect = [&](const std::string& strTable) {
        ExpectIn(m_tstrSetting + L"config_DE-DE.xml", "<a>\n", "</a>", strTable);
    };
    Write(tstrEnglish, "<a>\n<w>\n<SKIN>a</SKIN></w></a>");
    expect(R"(
        <W>$<Skin/></W> =>
        <W>$<Skni/></W> => B067w 3:1
        <W>$<Size/></W> => B067w 2:1, B067w 2:1 Component\p1\Share\Setting\config_EN-US.xml
    )");
    Write(tstrEnglish, "<a>\n<W>\n<Skin/></W>\n<Sync><a/><b/></Sync></a>");
    expect("<W>$<Skin/></W> => B067w");
    Write(tstrEnglish, "<a>\n<W>\n<Skin/></W></a>");
    expect(R"(<W>$<Skin type="bool"/></W> => B067w 3:1)");
    BringTable(L"FR-FR");
    Write(m_tstrSetting + L"config_FR-FR.xml", "<a><W><Skni/></W></a>");
    expect(R"(<W>$<Skni/></W> => B067w 3:1 Component\p1\Share\Setting\config_EN-US.xml Skni)");
    Instruct("[QOR_CONFIG_MERGE]\nmigrate=/W/Skin\n");  // the name that is right
    expect(R"(<W>$<Skni/></W> => B066w 3:1 Skin, B066w 1:7 Component\p1\Share\Setting\config_FR-FR.xml Skin)");
    Instruct("");
    Install();
    Write(L"installed\\config.xml", "<b><W><Skin>dark</Skin></W></b>");
    expect(R"(
        <W>$<Skni/></W> => B066w 3:1 Skin, B068w 3:1 Component\p1\Share\Setting\config_EN-US.xml,
        &  B066w 1:7 Component\p1\Share\Setting\config_FR-FR.xml Skin
    )");
    for (const std::wstring& tstrFile :
         {m_tstrSetting + L"config_FR-FR.xml", std::wstring(L"Component\\r1\\FR-FR\\StringTable.ini")})
        Remove(tstrFile);
    Write(tstrEnglish, "<c><A/><B>2</B></c>");
    Write(m_tstrSetting + L"config_DE-DE.xml", "<c>\n<A>2</A><B/></c>");
    Write(L"installed\\config.xml", "<c><A>1</A><B>1</B></c>");
    ExpectRecords("QOR_CONFIG_MERGE", "migrate=", R"(
        /A => B068w 1:8 Component\p1\Share\Setting\config_EN-US.xml
        /A$/B =>
    )");
    Write(L"installed\\registry.reg", "[HKEY_LOCAL_MACHINE\\Software\\Kazmere\\KZVLT]\n\"Language\"=\"DE-DE\"\n");
    ExpectRecords("QOR_CONFIG_MERGE", "migrate=", R"(/A => B068w 2:9 Component\p1\Share\Setting\config_DE-DE.xml)");
    m_optInstalled.reset();
    EXPECT_EQ(Findings(), "") << "no product is known";
}

TEST_F(LintTest, Shortcuts)
{
    Install();
    Write(L"installed\\old.exe", "");
    Bring({L"p1\\Share\\Setting\\readme_EN-US.htm", L"p1\\Share\\Task\\a.task"});
    const std::pair<const char*, const char*> words[] = {{"<S>", "<Shortcut lnk=\"Brevant.exe\">"},
                                                         {"<S ([^ >]*)>", "<Shortcut lnk=\"$1\">"},
                                                         {"</S>", "</Shortcut>"},
                                                         {"<D>", "<Desktop available=\"1\">$$"},
                                                         {"<D (\\w+)>", "<Desktop available=\"$1\">$$"},
                                                         {"</D>", "</Desktop>"},
                                                         {"<M>", "<StartMenu available=\"1\">$$"},
                                                         {"</M>", "</StartMenu>"},
                                                         {"<F ([^=<>]*)>", "<Folder name=\"$1\">$$"},
                                                         {"</F>", "</Folder>"}};
    const auto expect = [&](std::string strTable) {
        for (const auto& [szShort, szLong] : words)
            strTable = std::regex_replace(strTable, std::regex(szShort), szLong);
        ExpectIn(m_tstrSetting + L"qorshcut_EN-US.xml", "<Links>", "</Links>", strTable);
    };
    expect(R"(
        <D><S>A</S></D><M><F M\P><S>A</S><F T><S>B</S></F></F></M> =>
        <D><S>..\A</S><S>A?</S><S>$  A$</S><S></S></D> => B081 2:1, B081 2:44, B081 2:85, B081 4:12
        <D><S>a..b. c</S></D><M><F ><S>A</S></F></M> =>
        <M><F CON><S>A</S></F></M> => B081 2:1, B083 2:1
        <M><F #259#></F></M> =>
        <M><F #200#><F #59#></F></F></M> => B081 3:1
        <D><S old.exe>A</S><S readme.htm>B</S><S task/A.TASK>C</S><S Task>E</S><S .\x\..\BREVANT.EXE>D</S></D> =>
        <D><S Brevant.ex>A</S><S Task\dail>B</S></D> => B082 2:1 Brevant.exe, B082 2:40
        <D><S ..\QorPaFrwk.ini>A</S></D> => B082 2:1
        <D><S>A</S>$<S old.exe>a</S></D> => B086 3:1
        <D><Shortcut Lnk="Brevant.exe">A</S></D> => B082 2:1, B084 2:1 lnk
        <D><Shortcut lnk="Brevant.exe" icon="old.exe">A</S></D> =>
        <D><Shortcut lnk="Brevant.exe" icon="old.exe,1">A</S></D> => B085 2:1
        <D 0><S none.exe>A</S></D> => B083w 1:8
        <D 0></D> =>
        <D true><S>A</S></D> => B083 1:8
        <M><S>A</S></M> => B083 2:1
        <M><F M><Desktop><S>A</S></D></F></M> => B083 3:1
        <D><S old.exe>A<S>B</S></S></D> => B083 2:26
        <D><S>M\A</S></D> => B083 2:1
        <M><F M\P></F><F M><S>P\A</S><S>Q\A</S></F></M> => B083 4:43
        <M><F M\P></F><F ><S>M\A</S></F></M> =>
        <Desk_top available="1"><S>A</S></Desk_top><Note>n</Note> => B084 1:8 Desktop, B084 1:83
        <M><F M><Group><S>A</S></Group><Note/></F></M> => B084 3:1, B084 3:56
        <D><Shortcutt lnk="old.exe">A</Shortcutt></D> => B084 2:1 Shortcut
        <desktop available="1" Name=""/><STARTMENU availabel="1"/> => B084 1:8, B084 1:40 available
        <M><Folder name="M" nam="N">$<shortcut lnk="old.exe" icons="" hotkey="" desc="" arg="">A</shortcut></F></M>
        &  => B084 2:1 name, B084 3:1 icon, B084 3:1
        <Desktop xml:lang="de" available="1"/> =>
    )");
    m_optInstalled.reset();
    expect("<D><S old.exe>A</S></D> => B082w 2:1");
}

TEST_F(LintTest, XmlIsRefusedWhereTheProductRefusesIt)
{
    for (const auto& [szFile, strRule] :
         {std::pair(L"config_EN-US.xml", std::string("B062")), {L"qorshcut.xml", "B080"}}) {
        const std::wstring tstrFile = m_tstrSetting + szFile;
        ExpectIn(tstrFile, "<a>\n", "", "<Desktop/></a> =>\n<b></a> => " + strRule + " 2:6\n");
        ExpectIn(tstrFile, "<a>\n", "", "<Port>$ => " + strRule + " 3:1\n");
        Write(tstrFile, Utf16(L"<a>\n<Port>\n</Prt ></a>"));
        EXPECT_EQ(Findings(tstrFile), strRule + " 3:3");
        {
            const auto hHeld = Hold(m_update.PathOf(tstrFile), true);
            EXPECT_EQ(Findings(tstrFile), strRule + " 3:3") << "a file that an editor has open";
        }
        const std::string strLargest = "<a/>" + std::string(KzCommon::Storage::XmlParser::kMaxBytes - 4, ' ');
        Write(tstrFile, strLargest);
        EXPECT_EQ(Findings(tstrFile), "");
        Write(tstrFile, strLargest + " ");
        EXPECT_EQ(Findings(tstrFile), strRule);
        Remove(tstrFile);
    }
}

TEST_F(LintTest, StringTablesAndNotifications)
{
    const std::wstring tstrName = L"S_STR_PRODUCT_NAME=Qorvault\n";
    // The largest buffer has 28672 characters; a section may use all but its two closing zeros and one more.
    const std::wstring tstrFill =
        L"[Global]\n" + tstrName + L"K=" + std::wstring(28672 - 3 - tstrName.size() - 3, L'x');
    const std::wstring tstrTable = L"Component\\p1\\Share\\Resource\\EN-US\\StringTable.ini";
    ExpectFiles(tstrTable, {
                               {Utf16(L"[Global]\n" + tstrName), ""},
                               {Utf16(L"[Global]\nS_STR_PRODUCT_NAMES=Qorvault\n"), "B090 2:1 S_STR_PRODUCT_NAME"},
                               {Utf16(L"[Global]\nS_STR_PRODUCT_NAME=\n"), "B090 1:2"},
                               {Utf16(L"[Global]\nS_STR_PRODUCT_NAME='Qorvault'\n"), "B093w 2:20 Qorvault"},
                               {Utf16(L"[Global]\rS_STR_PRODUCT_NAME=Qorvault\r"), "B100 1:9"},
                               {Utf16(L"[Globe]\n" + tstrName), "B090"},
                               {Utf16(tstrFill), ""},
                               {Utf16(tstrFill + L"x"), "B090 1:2"},
                               {"[Global]\nS_STR_PRODUCT_NAME=Qorvault f\xFCr\n", "B090 2:30"},
                               {"[Global]\nS_STR_PRODUCT_NAME=Qorvault\n", ""},
                           });
    ExpectIn(kInstructionFile, "[RestartNotification_EN-US]\n", "\n", R"(
        text=title$text=message =>
        text=title => B091w 1:2
        text=title$text=message$text=more$text=more => B091w 4:1
        text="title"$text=Press "Yes" => B093w 2:6 title
    )");
}

TEST_F(LintTest, ANewNameThatIsDueHasAStringTable)
{
    const std::wstring tstrTable = L"Component\\r1\\EN-US\\StringTable.ini";
    Remove(tstrTable);
    const std::string strTexts = "$[RestartNotification_EN-US]$text=a$text=b";
    const std::string strVersion = "[QOR_REGISTRY_PATCH]$add=software\\kazmere\\kzvlt\\!version!REG_SZ!3.8.0.";
    const std::string strQuestion = "[RestartNotification_EN-US]\ntext=a\ntext=b\n";
    const auto expect = [&](const std::string& strTable) {
        ExpectIn(kInstructionFile, "", "\n", strTable);
    };
    expect(strVersion + "1099" + strTexts + " => B028w 2:5 software\\kazmere\\kzvlt, B092 3:2\n" + strVersion + "1100" +
           strTexts + " => B028w 2:5 software\\kazmere\\kzvlt\n" + strTexts.substr(1) + " => B092w 1:2");
    // The product is installed on this machine.
    Install();
    WriteProduct(L"ProductPath", *m_optInstalled);
    WriteProduct(L"Version", L"3.8.0.1099");
    EXPECT_EQ(Lint(""), "B092");
    EXPECT_EQ(Lint("[QOR_REGISTRY_PATCH]\nadd=Software\\Kazmere\\KZVLT!Version!REG_SZ!3.8.0.1100\n"), "");
    WriteProduct(L"Language", L"ja-jp");
    EXPECT_EQ(Lint(strQuestion), "");
    WriteProduct(L"Language", L"DE-DE");
    Write(L"installed\\Resource\\EN-US\\StringTable.ini", "");
    EXPECT_EQ(Lint(strQuestion), "B092 1:2") << "no table of the product's language";
    m_languages = {L"EN-US", L"FR-FR"};
    EXPECT_EQ(Lint(strQuestion), "B072w, B092 1:2");
    m_languages = {L"EN-US"};
    EXPECT_EQ(Lint(strQuestion), "");
    m_languages.clear();
    WriteProduct(L"ProductPath", L"C:\\elsewhere");
    EXPECT_EQ(Lint(strQuestion), "") << "any table, because the language is unknown";
    Remove(L"installed\\Resource\\EN-US\\StringTable.ini");
    EXPECT_EQ(Lint(strQuestion), "B092w 1:2");
}

TEST_F(LintTest, AManifestThatIsNotTodaysIsStale)
{
    const std::wstring tstrShipped = m_tstrSetting + kShippedManifest;
    Output output;
    Arguments arguments;
    arguments.operands = {m_update.Path()};
    arguments.bInto = true;
    ASSERT_EQ(RunManifest(arguments, output), kClean);
    const std::string strGood = m_update.Read(tstrShipped).value_or("");
    std::wstring tstrWide;
    ASSERT_TRUE(KzCommon::String::FromUtf8(strGood, tstrWide));
    ExpectFiles(tstrShipped, {
                                 {Utf16(tstrWide), ""},
                                 {"\xEF\xBB\xBF" + strGood, ""},
                                 {std::regex_replace(strGood, std::regex("\n"), "\r\n"), ""},
                                 {"", "B076"},
                                 {std::regex_replace(strGood, std::regex("a\\.html"), "b.html"), "B076"},
                                 {strGood, ""},
                             });
    Write(L"Component\\p1\\Share\\UI\\a.html", "changed");
    EXPECT_EQ(Findings(tstrShipped), "B076");
    Write(m_tstrSetting + L"config.xml", "<c/>");
    for (const std::wstring tstrFile : {L"p1\\Share\\Setting\\QorUpdate.json", L"p1\\Share\\UI\\a.html",
                                        L"p1\\Share\\Setting\\config.xml", L"r1\\EN-US\\StringTable.ini"}) {
        const auto hHeld = Hold(m_update.PathOf(L"Component\\" + tstrFile), false);
        static_cast<void>(Findings());
    }
    Remove(m_tstrSetting + L"config.xml");
    ASSERT_EQ(RunManifest(arguments, output), kClean);
    EXPECT_EQ(Findings(), "");
}
