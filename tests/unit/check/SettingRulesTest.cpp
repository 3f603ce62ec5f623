#include "unit/check/CheckFixture.h"

#include "config/ConfigProtection.h"

class SettingRulesTest : public CheckTest {
protected:
    SettingRulesTest()
        : CheckTest([](const LintContext& context, Report& report) {
              CheckConfiguration(context, report);
              CheckShortcuts(context, report);
          })
    {
        m_bWarnings = true;
    }

    const std::wstring m_tstrSetting = L"Component\\p1\\Share\\Setting\\";
};

TEST_F(SettingRulesTest, MigratedSettingsAreInTheFileOrTheDefaults)
{
    const Row rows[] = {
        {"/Window/Skin", {}},
        {"window//SKIN/", {}},
        {"/ProxySettings/Server", {}},  // known only from the defaults
        {"/", {"B060 2:9"}},
        {"\\Window\\Skin", {"B060 2:9 /Window/Skin"}},
        {"/Window/Skin,/Window/Size", {"B060 2:9"}},
        {"/Window/Skni", {"warning B061 2:9 /Window/Skin"}},
        {"/Window", {"warning B061 2:9"}},
        {"/Settings/Window/Skin", {"warning B061 2:9 /Window/Skin"}},  // the root is not part of the path
    };
    Write(m_tstrSetting + L"config_EN-US.xml", "<Settings><Window><Skin>a</Skin><Size/></Window></Settings>");
    Expect(rows, "[QOR_CONFIG_MERGE]\nmigrate=", "\n");
}

TEST_F(SettingRulesTest, ValuesFitTheirTypeAndSecretsAreProtected)
{
    Config::ValueProtection protection;
    DWORD dwError = ERROR_SUCCESS;
    ASSERT_TRUE(protection.Open(Config::kStoreKey, dwError));
    const auto sealed = [&](const wchar_t* szPath, const wchar_t* szValue) {
        std::wstring tstrText;
        EXPECT_TRUE(protection.Protect(*Config::TagPath::Parse(szPath), szValue, tstrText, dwError));
        return KzCommon::String::ToUtf8(tstrText);
    };
    const Row rows[] = {
        {"<Port type=\"int\"> -8080\n</Port>", {}},
        {"<Port type=\"int\">80a</Port>", {"B063 3:1"}},
        {"<Port type=\"int\">9223372036854775808</Port>", {"B063 3:1"}},
        {"<Enable type=\"bool\"/>", {}},
        {"<Enable type=\"bool\">true</Enable>", {"B063 3:1 1"}},
        {"<Enable type=\"bool\">2</Enable>", {"B063 3:1"}},
        {"<Enable type=\"boolean\">1</Enable>", {"B063 3:1 bool"}},
        {"<Enable type=\"boolean\">true</Enable>", {"B063 3:1"}},  // a suggestion alone would not do
        {"<Enable type=\"Bool\">1</Enable>", {"B063 3:1 bool"}},
        {"<Any type=\"text\"><Port type=\"int\">8</Port></Any>", {}},  // a section has no value
        {"<Pin type=\"int\" protected=\"1\">" + sealed(L"/ProxySettings/Pin", L"12") + "</Pin>", {}},
        {"<Pin type=\"int\" protected=\"1\">" + sealed(L"/ProxySettings/Pin", L"x") + "</Pin>", {"B063 3:1"}},
        {"<Pin protected=\"1\">" + sealed(L"/ProxySettings/Password", L"12") + "</Pin>", {"B064 3:1"}},
        {"<Pin protected=\"true\">12</Pin>", {"B064 3:1 <Pin protected=\"1\"/>"}},
        {"<Pin protected=\"0\">12</Pin>", {}},
        {"<Password protected=\"1\"/>", {}},
        {"<Password protected=\"1\">geheim</Password>", {"B064 3:1"}},
        {"<Password Protected=\"1\">geheim</Password>", {"B064 3:1 <Password protected=\"1\"/>"}},
        {"<password>geheim</password>", {"B064 3:1 <password protected=\"1\"/>"}},
        {"<Password/>", {"warning B064 3:1 <Password protected=\"1\"/>"}},
        {"<ApiToken>geheim</ApiToken>", {"warning B064 3:1 <ApiToken protected=\"1\"/>"}},
        {"<ApiToken> \n</ApiToken><AskPassword type=\"bool\">1</AskPassword><TokenLength>8</TokenLength>", {}},
        {"<Port typ=\"int\">8</Port><Server Type=\"string\" hint=\"\"/>", {"B066 3:1 type", "B066 3:25 type"}},
        {"<Prot type=\"int\">8</Prot><Servers/>", {"warning B066 3:1 Port", "warning B066 3:26 Server"}},
        {"<Server/><Servers/>", {}},
        {"<a><Password>12</Password></a>\n<Port type=\"int\">x</Port>",
         {"warning B064 3:4 <Password protected=\"1\"/>", "B063 4:1"}},
    };
    Expect(rows, "<Settings>\n<ProxySettings>\n", "</ProxySettings></Settings>", m_tstrSetting + L"config.xml");
}

TEST_F(SettingRulesTest, SettingsHaveOneNameInEveryLanguageAndInTheInstalledFile)
{
    const std::wstring tstrGerman = m_tstrSetting + L"config_DE-DE.xml";
    const auto expect = [&](const std::string& strGerman, const std::string& strEnglish,
                            const std::vector<std::string>& findings) {
        Write(tstrGerman, "<a>\n" + strGerman + "</a>");
        Write(m_tstrSetting + L"config_EN-US.xml", "<a>\n" + strEnglish + "</a>");
        EXPECT_EQ(findings, Findings(tstrGerman)) << strGerman;
    };
    const std::string strEnglish = "warning B067 3:1 Component\\p1\\Share\\Setting\\config_EN-US.xml";
    expect("<W>\n<Skin/></W>", "<w>\n<SKIN>a</SKIN></w>", {});
    expect("<W>\n<Skin/></W>", "<W>\n<Skin/></W>\n<Sync><a/><b/></Sync>", {"warning B067 0:0"});
    expect("<W>\n<Skni/></W>", "<W>\n<Skin/></W>", {"warning B067 3:1"});  // either may be right
    expect("<W>\n<Skin type=\"bool\"/></W>", "<W>\n<Skin type=\"int\"/></W>", {"warning B067 3:1"});
    expect("<W>\n<Skni/></W>", "<W>\n<Size/></W>",
           {"warning B067 2:1", "warning B067 2:1 Component\\p1\\Share\\Setting\\config_EN-US.xml"});
    Write(m_tstrSetting + L"config_FR-FR.xml", "<a><W><Skni/></W></a>");
    expect("<W>\n<Skni/></W>", "<W>\n<Skin/></W>", {strEnglish + " Skni"});
    Write(kInstructionFile, "[QOR_CONFIG_MERGE]\nmigrate=/W/Skin\n");
    const std::string strFrench = "warning B066 1:7 Component\\p1\\Share\\Setting\\config_FR-FR.xml Skin";
    expect("<W>\n<Skni/></W>", "<W>\n<Skin/></W>", {"warning B066 3:1 Skin", strFrench});
    m_optInstalled = m_update.MakeFolder(L"installed");
    Write(L"installed\\config.xml", "<b><W><Skin>dark</Skin></W></b>");
    expect("<W>\n<Skni/></W>", "<W>\n<Skin/></W>", {"warning B066 3:1 Skin", strFrench});
}

TEST_F(SettingRulesTest, AValueOfTheInstalledProductThatIsNotCarriedOverIsFound)
{
    const TempFolder installed;
    installed.Write(L"config.xml", "<c><A>1</A><B>1</B></c>");
    Write(m_tstrSetting + L"config_DE-DE.xml", "<c>\n<A>2</A><B/></c>");
    Write(m_tstrSetting + L"config_EN-US.xml", "<c><A/><B>2</B></c>");
    const std::string strConfig = KzCommon::String::ToUtf8(m_tstrSetting) + "config_";
    const std::string strRecords = "[QOR_CONFIG_MERGE]\nmigrate=/A\n";
    EXPECT_THAT(Lint(strRecords), IsEmpty()) << "no product is known";
    m_optInstalled = installed.Path();
    EXPECT_THAT(Lint(strRecords), ElementsAre("warning B068 1:8 " + strConfig + "EN-US.xml"));
    installed.Write(L"registry.reg",
                    "REGEDIT4\r\n[HKEY_LOCAL_MACHINE\\Software\\Kazmere\\KZVLT]\r\n\"Language\"=\"DE-DE\"");
    EXPECT_THAT(Lint(strRecords), ElementsAre("warning B068 2:9 " + strConfig + "DE-DE.xml"));
    EXPECT_THAT(Lint(strRecords + "migrate=/B\n"), IsEmpty());
}

TEST_F(SettingRulesTest, TheNameOfTheUsersKeptSettingsIsTheAgents)
{
    const std::wstring tstrSecond = m_tstrSetting + L"Config.Previous.2.xml";
    for (const std::wstring& tstrFile : {m_tstrSetting + L"config.previous.xml", tstrSecond,
                                         std::wstring(L"Component\\p1\\Share\\UI\\config.previous.xml")}) {
        Write(tstrFile, "");
        EXPECT_THAT(Findings(tstrFile), ElementsAre("B065 0:0")) << tstrFile;
        ::DeleteFileW(m_update.PathOf(tstrFile).c_str());
    }
    for (const wchar_t* szOther : {L"config.previous.20.xml", L"config.previous.1.xml", L"config.previous.a.xml"})
        Write(m_tstrSetting + szOther, "");
    Write(m_tstrSetting + L"Sync\\config.previous.xml", "");
    Write(L"Component\\p1\\Share\\Patterns\\config.previous.xml", "");
    EXPECT_THAT(Findings(), IsEmpty());
}

TEST_F(SettingRulesTest, ShortcutsAreMadeInPlacesThatAreCreatedAndLeadToFilesThatAreThere)
{
    m_optInstalled = m_update.MakeFolder(L"installed");
    Write(L"installed\\old.exe", "");
    Bring({L"p1\\Share\\Setting\\readme_EN-US.htm", L"p1\\Share\\Task\\daily\\a.task"});
    const auto link = [](const std::string& strName, const std::string& strTarget = "Brevant.exe") {
        return "<Shortcut lnk=\"" + strTarget + "\">" + strName + "</Shortcut>";
    };
    const auto desktop = [](const std::string& strContent, const std::string& strAvailable = "1") {
        return "<Desktop available=\"" + strAvailable + "\">\n" + strContent + "</Desktop>";
    };
    const auto menu = [](const std::string& strContent) {
        return "<StartMenu available=\"1\">\n" + strContent + "</StartMenu>";
    };
    const auto folder = [](const std::string& strName, const std::string& strContent) {
        return "<Folder name=\"" + strName + "\">\n" + strContent + "</Folder>";
    };
    const Row rows[] = {
        {desktop(link("A")) + menu(folder("M\\P", link("A") + folder("T", link("B")))), {}},
        // names
        {desktop(link("..\\A")), {"B081 2:1"}},
        {desktop(link("a..b. c")), {}},
        {desktop(link("A?")), {"B081 2:1"}},
        {desktop(link("\n  A\n")), {"B081 2:1"}},
        {desktop(link("")), {"B081 2:1"}},
        {menu(folder("", link("A"))), {}},
        {menu(folder("CON", link("A"))), {"B081 2:1", "B083 2:1"}},
        {menu(folder(std::string(259, 'x'), "")), {}},
        {menu(folder(std::string(200, 'x'), folder(std::string(59, 'y'), ""))), {"B081 3:1"}},
        // targets
        {desktop(link("A", "old.exe") + link("B", "readme.htm") + link("C", "task/daily/A.TASK")), {}},
        {desktop(link("A", "Task\\daily") + link("B", ".\\x\\..\\BREVANT.EXE")), {}},
        {desktop(link("A", "Brevant.ex")), {"B082 2:1 Brevant.exe"}},
        {desktop("<Shortcut lnk=\"Brevant.exe\" icon=\"old.exe\">A</Shortcut>"), {}},
        {desktop("<Shortcut lnk=\"Brevant.exe\" icon=\"old.exe,1\">A</Shortcut>"), {"B085 2:1"}},
        {desktop("<Shortcut lnk=\"Brevant.exe\" icon=\"Task\\daily\">A</Shortcut>"), {"B085 2:1"}},
        {desktop(link("A") + "\n" + link("a", "old.exe")), {"B086 3:1"}},
        {desktop(link("A", "Task\\dail")), {"B082 2:1"}},
        {desktop(link("A", "..\\QorPaFrwk.ini")), {"B082 2:1"}},  // exists, but not in the install folder
        {desktop("<Shortcut Lnk=\"Brevant.exe\">A</Shortcut>"), {"B082 2:1", "B084 2:1 lnk"}},
        // places
        {desktop(link("A", "none.exe"), "0"), {"warning B083 1:8"}},
        {desktop("", "0"), {}},
        {desktop(link("A"), "true"), {"B083 1:8"}},
        {menu(link("A")), {"B083 2:1"}},
        {menu(folder("M", "<Desktop>" + link("A") + "</Desktop>")), {"B083 3:1"}},
        {desktop("<Shortcut lnk=\"old.exe\">A" + link("B") + "</Shortcut>"), {"B083 2:26"}},
        {desktop(link("M\\A")), {"B083 2:1"}},
        {menu(folder("M\\P", "") + folder("M", link("P\\A") + link("Q\\A"))), {"B083 4:43"}},
        {menu(folder("M\\P", "") + folder("", link("M\\A"))), {}},
        // elements and attributes
        {"<Desk_top available=\"1\">" + link("A") + "</Desk_top><Note>n</Note>", {"B084 1:8 Desktop", "B084 1:83"}},
        {menu(folder("M", "<Group>" + link("A") + "</Group><Note/>")), {"B084 3:1", "B084 3:56"}},
        {desktop("<Shortcutt lnk=\"old.exe\">A</Shortcutt>"), {"B084 2:1 Shortcut"}},
        {"<desktop available=\"1\" Name=\"\"/><STARTMENU availabel=\"1\"/>", {"B084 1:8", "B084 1:40 available"}},
        {menu(
             folder("M\" nam=\"N", "<shortcut lnk=\"old.exe\" icons=\"\" hotkey=\"\" desc=\"\" arg=\"\">A</shortcut>")),
         {"B084 2:1 name", "B084 3:1 icon", "B084 3:1"}},
        {"<Desktop xml:lang=\"de\" available=\"1\"/>", {}},
    };
    const std::wstring tstrShortcuts = m_tstrSetting + L"qorshcut_EN-US.xml";
    Expect(rows, "<Links>", "</Links>", tstrShortcuts);
    m_optInstalled.reset();
    const Row unknown[] = {{desktop(link("A", "old.exe")), {"warning B082 2:1"}}};
    Expect(unknown, "<a>", "</a>", tstrShortcuts);
}
