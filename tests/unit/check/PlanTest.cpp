#include "agent/NewNameDecision.h"
#include "check/simulate/PlanReport.h"
#include "support/watch/SystemWatch.h"
#include "unit/check/CheckFixture.h"

namespace {

using Lines = std::vector<std::string>;

/// An update and an installed product in separate folders, and the plan for them.
class PlanTest : public UpdateTest {
protected:
    PlanTest()
    {
        m_update.MakeFolder(L"Component\\p1\\Share");
        m_optInstalled = m_installed.Path();
        WriteProduct(L"Language", L"xy");
        WriteProduct(L"Version", L"3.8.0.1100");
    }

    /// The lines of one operation, with "I:\" for the installed folder.
    [[nodiscard]] Lines Planned(const std::string& strStep) const
    {
        const auto before = std::pair(m_update.List(), m_installed.List());
        std::wstring tstrText = FormatPlanText(MakePlan(Open(), m_installed.Path()));
        EXPECT_EQ(before, std::pair(m_update.List(), m_installed.List()));
        KzCommon::String::ReplaceAll(tstrText, m_installed.Path(), L"I:\\");
        KzCommon::String::ReplaceAll(tstrText, L" HKEY_LOCAL_MACHINE\\SOFTWARE\\Vault", L"");
        std::istringstream text(KzCommon::String::ToUtf8(tstrText));
        Lines lines;
        bool bHere = false;
        for (std::string strLine; std::getline(text, strLine);) {
            const bool bChange = strLine.starts_with("  ");
            if (!bChange) bHere = strLine.starts_with(strStep);
            strLine.erase(0, bChange ? 2 : strStep.size());
            if (bHere && !strLine.empty()) lines.push_back(strLine);
        }
        return lines;
    }

    TempFolder m_installed;
};

}  // namespace

TEST_F(PlanTest, AnUpdateInAnotherFolderIsCopiedOverTheProduct)
{
    Instruct(
        "[QOR_DIR]\nadd={InstalledDir}New\\Deep\nadd={InstalledDir}Resource\\New\ndelete={UdComponentsSrcDir}Share\n"
        "[QOR_FILE]\ndelete={InstalledDir}*.dll\ndelete_now={InstalledDir}n.*\ndelete_now={InstalledDir}n.*\n");
    m_installed.Write(L"n.txt", "");
    Bring({L"p1\\64bit\\p1\\a.dll", L"p1\\64bit\\p1\\Driver\\d.sys", L"p1\\Share\\UI\\A.DLL",
           L"p1\\Share\\Task\\t.task", L"r1\\New\\x.txt"});
    m_installed.Write(L"A.dll", "");
    m_installed.MakeFolder(L"Driver");
    ::SetFileAttributesW(m_installed.Write(L"Driver\\d.sys", "").c_str(), FILE_ATTRIBUTE_READONLY);

    Bring({L"p1\\Share\\Task\\" + std::wstring(220, L'u')});
    const std::pair<const char*, std::vector<const char*>> rows[] = {
        {"CreateDirBeforeReboot", {"+ folder New\\Deep", "+ folder Resource\\New"}},
        {"DeployFrameworkFiles", {"~ a.dll  <- Component\\p1\\64bit\\p1\\a.dll  [restart]"}},
        {"DeployUIFiles", {"(replaces I:\\Component\\p1\\64bit\\p1\\a.dll)"}},
        {"DeployDriverFiles", {"(the file there is read-only)"}},
        {"DeployTaskFiles",
         {"[restart]  (the folder is missing)", "(longer than 259 characters, there or in the download folder)"}},
        {"DeployResourceFiles", {"+ Resource\\New\\x.txt  <- Component\\r1\\New\\x.txt  [restart]"}},
        {"RemoveFileAfterReboot", {"- Component\\p1\\Share\\Task  [restart]", "- n.txt", "= n.*  (no file matches)"}},
        {"PatchRegistry", {"no section [QOR_REGISTRY_PATCH] with a record"}},
    };
    for (const auto& [szStep, endings] : rows) {
        const Lines lines = Planned(szStep);
        for (const char* const szEnding : endings) EXPECT_THAT(lines, Contains(EndsWith(szEnding))) << szStep;
    }
    Instruct("[QOR_FILE]\ndelete={InstalledDir}*.dll\n");
    EXPECT_THAT(Planned("RemoveFileAfterReboot"), ElementsAre(HasSubstr("no section [QOR_DIR]")));
}

TEST_F(PlanTest, UnlistableFoldersAreUnknown)
{
    Instruct(
        "[QOR_DIR]\ndelete={InstalledDir}Closed\n"
        "[QOR_FILE]\ndelete={InstalledDir}Closed\\*.tmp\ndelete_now={InstalledDir}*.tmp\n");
    m_installed.Write(L"Closed\\a.tmp", "");
    const Update update = Open();
    SystemWatch watch(m_installed.Path().substr(0, 3));
    watch.m_fault = [](std::string_view strCall, const std::wstring& tstrPlace) -> DWORD {
        const bool bClosed = strCall == "FindFirstFileW" && tstrPlace.find(L"Closed\\") != std::wstring::npos;
        return bClosed ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    };
    const Plan plan = MakePlan(update, m_installed.Path());
    const std::string strText = KzCommon::String::ToUtf8(FormatPlanText(plan));
    EXPECT_THAT(strText, AllOf(HasSubstr("\n  ? Closed  [restart]  (the folder cannot be listed: access denied"),
                               HasSubstr("\n  ? Closed\\*.tmp  [restart]  (the folder cannot be listed: access denied"),
                               HasSubstr("\n  = *.tmp  (no file matches)\n"), HasSubstr(", 2 unknown; ")));
    EXPECT_THAT(FormatPlanJson(plan), HasSubstr("\"unknown\" : 2"));
}

TEST_F(PlanTest, SkippedItemsHaveAReason)
{
    Write(L"Component\\p1\\Share\\Setting\\UpdateInfo.ini", "");
    m_installed.Write(L"UpdateInfo.ini", "");
    Instruct("[UPDATE_INFO]\nmodify=A!B!1\n[QOR_REGISTRY_PATCH]\ndelete=" + std::string(1024, 'x') + "\n");
    EXPECT_THAT(Planned("ModifyUpdateInfo"), Contains(HasSubstr("it already exists: the installed file is changed")));
    EXPECT_THAT(Planned("SelectLanguageFile"),
                Contains(HasSubstr("Setting\\config_xy.xml  (there is no such file to copy)")));
    EXPECT_THAT(Planned("PatchRegistry"), ElementsAre(HasSubstr("longer than 1023 characters")));
    Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=..\\x\n");
    EXPECT_THAT(Planned("DeployProgramPackage"),
                ElementsAre(HasSubstr("because Component101_DownloadPath=..\\x is no")));
}

TEST_F(PlanTest, RegistryRecordsAreSeenInTheOrderOfTheRun)
{
    WriteRaw(HKEY_LOCAL_MACHINE, kVault, L"Expand", RawText(L"%a%", REG_EXPAND_SZ));
    WriteRaw(HKEY_LOCAL_MACHINE, kVault, L"Number", RawNumber(7));
    WriteRaw(HKEY_LOCAL_MACHINE, kVault, L"Bytes", {REG_BINARY, "abc"});
    const std::pair<std::string, Lines> rows[] = {
        {"add_if_non=@!Expand!REG_SZ!x", {"=  Expand: \"%a%\"  (it already exists)"}},
        {"add_if_non=@!Number!REG_SZ!x", {"~  Number: \"7\" -> \"x\""}},
        {"add=@!Number!REG_DWORD!7", {"=  Number: \"7\""}},
        {"add=@!Number!REG_QDWORD!7", {"~  Number: \"7\" -> \"7\""}},
        {"add=@!Bytes!REG_SZ!{InstalledDir}x", {"~  Bytes: \"(type 3, 3 bytes)\" -> \"I:\\x\""}},
        {"add=@!A!REG_MULTI_SZ!x", {"!  A  (REG_MULTI_SZ is not supported)"}},
        {"add=Vault!A!REG_SZ!x", {"! HKEY_LOCAL_MACHINE\\Vault  A  (Windows allows no key directly below the root)"}},
        {"add_if_non=@!(Default)!REG_SZ!x\nadd_if_non=@!(Default)!REG_SZ!y", {"+: \"x\"", "~: \"x\" -> \"y\""}},
        {"add_if_non=@!number!REG_DWORD!8\nadd=@!Number!REG_DWORD!3943305780\ndelete=@!None",
         {"=  None  (there is no such value)", "~  Number: \"7\" -> \"3943305780\"",
          "~  number: \"3943305780\" -> \"8\""}},
        {"add=@!A!REG_DWORD!7\nadd_if_non=@!A!REG_SZ!x", {"+  A: \"7\"", "~  A: \"7\" -> \"x\""}},
        {"add_if_non=@!Number!REG_DWORD!8\ndelete=@!NUMBER", {"-  NUMBER: \"7\"", "+  Number: \"8\""}},
    };
    for (const auto& [strRecords, expected] : rows) {
        Instruct("[QOR_REGISTRY_PATCH]\n" + strRecords + "\n");
        EXPECT_EQ(expected, Planned("PatchRegistry")) << strRecords;
    }
    EXPECT_EQ(RawNumber(7), ReadRaw(HKEY_LOCAL_MACHINE, kVault, L"Number"));
}

TEST_F(PlanTest, SettingsAreCarriedOverWithoutShowingSecrets)
{
    const std::string strTarget = "Component\\p1\\Share\\Setting\\config.xml  ";
    Instruct(
        "[QOR_CONFIG_MERGE]\nmigrate=/ProxySettings/Password\nmigrate=/A\nmigrate=/B\nmigrate=/C\nmigrate=/D\n"
        "migrate=/S\n");
    m_installed.Write(L"config.xml",
                      "<c><ProxySettings><Password>hidden</Password></ProxySettings><A>1</A><C type='int'>5</C>"
                      "<S protected='1'/></c>");
    Write(L"Component\\p1\\Share\\Setting\\config_xy.xml", "<c><A>1</A><C type='int'>4</C><D>x</D><S>x</S></c>");
    EXPECT_THAT(
        Planned("MergeConfig"),
        ElementsAre("= " + strTarget + "/A: \"1\"",
                    "= " + strTarget + "/B  (left alone: the installed file has no such setting)",
                    "~ " + strTarget + "/C: \"4\" -> \"5\"",
                    "= " + strTarget + "/D  (left alone: the installed file has no such setting)",
                    "+ " + strTarget + "/ProxySettings/Password  (a secret)", "~ " + strTarget + "/S  (a secret)"));
    // A file kept by an earlier run is deleted if it has the same settings; one with other settings stays.
    m_installed.Write(L"config.previous.xml", m_installed.Read(L"config.xml").value());
    m_installed.Write(L"config.previous.2.xml", "<c><A>lost</A></c>");
    EXPECT_EQ("- config.previous.xml  (kept by an earlier run: the same settings are carried over)",
              Planned("SelectLanguageFile").back());
    for (const wchar_t* szName : {L"config.previous.xml", L"config.previous.2.xml"})
        ::DeleteFileW(m_installed.PathOf(szName).c_str());
    // The update's file cannot accept one of them, so the user's file is kept.
    Write(L"Component\\p1\\Share\\Setting\\config_xy.xml", "<c><A type='bool'>1</A><C type='bool'>0</C></c>");
    EXPECT_THAT(Planned("MergeConfig"),
                Contains("! " + strTarget + "/C  (left alone: the update's file cannot take the value)"));
    EXPECT_EQ("+ config.previous.xml  <- config.xml", Planned("MergeConfig").back());
}

TEST_F(PlanTest, SettingsThatAreNotCarriedOverAreNamed)
{
    const char* const szLost = "Settings of the user's that are not carried over";
    Instruct("[QOR_CONFIG_MERGE]\nmigrate=/P/A\nmigrate=/ProxySettings/Server\n");
    m_installed.Write(L"config.xml",
                      "<c><P><A>1</A><B>mine</B><C>old</C><D>same</D><E/><F type='int'>x</F><G type='int'/><H>h</H></P>"
                      "<ProxySettings><Server>s</Server><Password>hidden</Password><Port type='int'>8080</Port>"
                      "</ProxySettings></c>");
    EXPECT_THAT(Planned(szLost), IsEmpty()) << "the update brings no file";
    Write(L"Component\\p1\\Share\\Setting\\config_xy.xml",
          "<c><P><A>2</A><B/><D>same</D><E>new</E><F type='int'>1</F><G type='int'>1</G>"
          "<H type='int'>y</H></P></c>");
    EXPECT_THAT(Planned(szLost), ElementsAre("LEFT BEHIND /P/B: mine -> (empty)", "LEFT BEHIND /P/C: old -> (none)",
                                             "LEFT BEHIND /P/E: (empty) -> new", "LEFT BEHIND /P/F: x -> 1",
                                             "LEFT BEHIND /P/H: h -> (no valid value)",
                                             "LEFT BEHIND /ProxySettings/Password: (secret) -> (none)"));
    Write(L"Component\\p1\\Share\\Setting\\config_zz.xml", "<c><P><A>2</A><B>mine</B></P></c>");
    const Plan plan = MakePlan(Open(), m_installed.Path(), {.tstrLanguage = L"zz"});
    ASSERT_EQ(plan.lost.size(), 6U);
    EXPECT_EQ(TextOf(plan.lost[0]), L"/P/C: old -> (none)");
    EXPECT_THAT(FormatPlanJson(plan), HasSubstr("\"setting\" : \"/P/C\""));
    m_installed.Write(L"config.xml", "<c><ProxySettings><Password type='int'>hidden</Password></ProxySettings></c>");
    EXPECT_THAT(Planned(szLost), ElementsAre("LEFT BEHIND /ProxySettings/Password: (secret) -> (none)"));
}

TEST_F(PlanTest, AFolderWithoutARegistryIsReported)
{
    Instruct("[QOR_DIR]\nadd=C:\\K19\n[QOR_FILE]\ndelete_now=C:\\K19\\a.*\n");
    m_installed.Write(L"drive_c\\K19\\a.txt", "");
    Arguments arguments;
    arguments.operands = {m_update.Path()};
    arguments.optInstalled = m_installed.Path();
    arguments.languages = {L"EN-US"};
    for (const bool bFile : {false, true}) {
        if (bFile) m_installed.Write(L"registry.reg", "REGEDIT4\r\n");
        Output output;
        EXPECT_EQ(RunPlan(arguments, output), kClean);
        EXPECT_EQ(output.tstrErrors.find(L"registry.reg: missing") == std::wstring::npos, bFile) << bFile;
        EXPECT_THAT(output.strText, HasSubstr("- C:\\K19\\a.txt\n"));
    }
}

TEST_F(PlanTest, TheNewNameIsDueOrNotAndWhy)
{
    const auto decided = [&] {
        return Planned("DecideAboutNewName");
    };
    // The name is that of the product's own texts, here of the update's.
    Bring({L"r1\\xy\\StringTable.ini"});
    m_installed.MakeFolder(L"Resource\\xy");
    Write(L"Component\\r1\\xy\\StringTable.ini", "[Global]\nS_STR_PRODUCT_NAME=Vault\n");
    EXPECT_EQ(decided(),
              Lines{"= new name Vault  [restart]  (not due: the product's version \"3.8.0.1100\" has the build "
                    "\"1100\" (characters 7 to 10), which is not below \"1100\")"});
    WriteProduct(L"Version", L"4.1.0.90");
    EXPECT_THAT(decided(), ElementsAre(HasSubstr("(refused: the product's version \"4.1.0.90\" has fewer than 10")));
    // A record of the update itself can make it due.
    Instruct(
        "[QOR_REGISTRY_PATCH]\nadd=Software\\Kazmere\\KZVLT!Version!REG_SZ!3.8.0.1099\n"
        "[RestartNotification_xy]\ntext=Title\n");
    m_installed.Write(L"qorshcut.xml", "");
    EXPECT_THAT(decided(),
                ElementsAre(StartsWith("+ new name Vault  [restart]  (due: "), _,
                            "+ qorshcutbackup.xml  <- qorshcut.xml", "+ run I:\\Brevant.exe /ApplyNewName  [restart]",
                            AllOf(StartsWith("+ ask You must restart"), EndsWith("Title"))));
    m_installed.Write(L"Resource\\EN-US\\StringTable.ini", "[Global]\nS_STR_PRODUCT_NAME=Kazmere Qorvault\n");
    EXPECT_THAT(decided().back(), StartsWith("= ask"));
    WriteProduct(kMarkerName, kMarkerData);
    EXPECT_THAT(decided(), ElementsAre(HasSubstr("an earlier run has scheduled it")));
    WriteProduct(kMarkerName, L"");
    WriteProduct(L"Language", L"ja-jp");
    EXPECT_THAT(decided(), ElementsAre(HasSubstr("ja-jp")));
}
