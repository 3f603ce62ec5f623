#include "check/verify/Diff.h"
#include "check/verify/Manifest.h"
#include "check/verify/Record.h"
#include "BrevantVersion.h"
#include "unit/check/VerifyFixture.h"

using KzCommon::String::ReplaceAll;
using KzCommon::String::ToUtf8;

namespace {

const std::wstring kDebugLog = L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\";
constexpr char kDefault[] = "add_if_non=@!(Default)!REG_SZ!x";

/// One file that an update moves.
ExpectedState OneFile(std::wstring tstrPlace, std::wstring tstrSource)
{
    ExpectedState expected;
    expected.files.push_back({std::move(tstrPlace), std::move(tstrSource), true, {}, std::nullopt});
    return expected;
}

}  // namespace

TEST_F(VerifyTest, TheLastMoveToAPlaceWinsAndLanguagesAndSubfoldersGoTheirWays)
{
    std::string strContent;
    for (const wchar_t* const szFile :
         {L"Share\\Engine\\both.dll", L"Share\\UI\\BOTH.DLL", L"Share\\UI\\below\\no step.dll",
          L"Share\\Task\\daily\\t.xml", L"64bit\\p1\\Driver\\d.sys", L"Share\\7-Zip\\Driver\\d.sys",
          L"Share\\Setting\\readme_DE-DE.htm", L"Share\\Setting\\readme_FR-FR.htm", L"Share\\Setting\\readme.htm",
          L"Engine\\Preload\\e.bin", L"..\\r1\\images\\i.png", L"Share\\UI\\~kzcomn-00000abc-01.tmp"}) {
        Write(std::wstring(L"Component\\p1\\") + szFile, strContent += 'x');
    }
    std::string strFound;
    ExpectedState expected = Collect();
    for (const ExpectedFile& file : expected.files) {
        strFound += ToUtf8(file.tstrPlace + (file.bAtRestart ? L" r" : L" n") + file.tstrLanguage) +
                    std::to_string(file.optContent ? file.optContent->ullSize : 99) + "\n";
    }
    EXPECT_EQ(strFound,
              "{AppData}Kazmere\\KZVLT\\Engine\\Preload\\e.bin r10\n{InstalledDir}BOTH.DLL r2\n"
              "{InstalledDir}Driver\\d.sys r6\n{InstalledDir}readme.htm r9\n{InstalledDir}readme.htm rDE-DE7\n"
              "{InstalledDir}readme.htm rFR-FR8\n{InstalledDir}readme_DE-DE.htm r7\n{InstalledDir}readme_FR-FR.htm r8\n"
              "{InstalledDir}Resource\\images\\i.png r11\n{InstalledDir}Task\\daily\\t.xml r4\n"
              "{InstalledDir}UpdateInfo.ini r99\n{SystemDrive}d.sys n5\n");
    std::erase_if(expected.files, [](const ExpectedFile& file) { return !file.tstrPlace.ends_with(L"readme.htm"); });
    const std::wstring tstrReadme = m_machine.Write(L"readme.htm", "xxxxxxx");
    EXPECT_THAT(Verify(expected), ElementsAre("0", "ARRIVED readme.htm"));
    m_machine.Write(L"readme.htm", "xxxxxxxx");
    EXPECT_THAT(Verify(expected), ElementsAre("0", StartsWith("CHANGED SINCE readme.htm (the one for FR-FR")));
    ::MoveFileW(m_machine.PathOf(L"readme.htm").c_str(), m_machine.PathOf(L"moved.htm").c_str());
    EXPECT_THAT(Verify(expected, L"@moved.htm|!@readme.htm|"),
                ElementsAre("3010", StartsWith("STILL WAITING readme.htm (the one for FR-FR")));
    m_machine.Write(L"readme.htm", "xxxxxxx");
    for (const bool bShared : {true, false}) {
        const auto hHeld = Hold(tstrReadme, bShared);
        const char* const szLine =
            bShared ? "ARRIVED readme.htm" : "UNKNOWN readme.htm (another program has the file open)";
        EXPECT_THAT(Verify(expected), ElementsAre(bShared ? "0" : "1", szLine));
    }
    const auto hHeld = Hold(m_update.PathOf(L"Component\\p1\\Share\\UI\\BOTH.DLL"), false);
    std::wstring tstrErrors;
    EXPECT_FALSE(CollectExpectedState(Open(), expected, tstrErrors));
    EXPECT_THAT(tstrErrors, HasSubstr(L"BOTH.DLL: cannot be read: another program"));
}

// Support's case: the author's output, redirected by Windows PowerShell 5.1, on a customer's machine.
TEST_F(VerifyTest, NothingHasArrivedWhereNothingRan)
{
    WriteProduct(L"Language", L"DE-DE");
    const std::string strMerge = "[QOR_CONFIG_MERGE]\nmigrate=/a\n";
    const std::string strVersion = "[COMPONENT_LIST]\nComponent103_iUD_Version=" BREVANT_VERSION;
    // The record of the update information, which a file more replaces, and that information after the run.
    const std::pair<std::string, std::string> rows[] = {
        {"modify=C!Component101_Version!3.9\nmodify=C!Component102_Version!1.2\nmodify=C!Same!1\n",
         "[C]\nSame=1\nComponent101_Version=3.9\nComponent102_Version=1.2\n" + strVersion},
        {"modify=C!Other!2\n", "[C]\nOther=2\n" + strVersion},
        {"", "[C]\nSame=1\n"},
    };
    Write(L"Component\\p1\\Share\\Setting\\config_DE-DE.xml", "<c><a>1</a></c>");
    for (const auto& [strRecords, strUpdateInfo] : rows) {
        Instruct(strMerge + (strRecords.empty() ? "" : "[UPDATE_INFO]\n" + strRecords));
        if (strRecords.empty()) Bring({L"p1\\Share\\UI\\a.dll"});
        Output made;
        Arguments arguments;
        arguments.operands = {m_update.Path()};
        ASSERT_EQ(RunManifest(arguments, made), kClean);
        std::wstring tstrManifest;
        ASSERT_TRUE(KzCommon::String::FromUtf8(made.strText, tstrManifest));
        ReplaceAll(tstrManifest, L"\n", L"\r\n");
        arguments.operands = {m_machine.Write(L"Trace\\update.json", Utf16(tstrManifest))};
        const auto verify = [&] {
            Output said;
            const int iExitCode = RunVerify(arguments, said);
            return std::to_string(iExitCode) + " " + said.strText;
        };
        m_machine.Write(L"config.xml", "<c><a>2</a></c>");
        m_machine.Write(L"config_DE-DE.xml", "<c><a>1</a></c>");  // the same in both versions
        m_machine.Write(L"UpdateInfo.ini", "[C]\nSame=1\nComponent102_Version=1.2\n" + strVersion);
        const std::string strBefore = verify();
        for (const wchar_t* const szName : {L"config.xml", L"UpdateInfo.ini"}) {
            const std::string strPath = ToUtf8(m_machine.PathOf(szName));
            EXPECT_THAT(strBefore, AllOf(StartsWith("1 "), HasSubstr("UNKNOWN           " + strPath + " (")));
        }
        m_machine.Write(L"UpdateInfo.ini", strUpdateInfo);
        m_machine.Write(L"a.dll", "");
        EXPECT_THAT(verify(), AllOf(StartsWith("0 "), Not(HasSubstr("UNKNOWN")))) << strRecords;
        arguments.eFormat = Format::eJson;
        EXPECT_THAT(verify(), HasSubstr("\"complete\" : true"));
        ::DeleteFileW(m_machine.PathOf(L"a.dll").c_str());
    }
    // Values that the machine already had or never had are as expected without the update.
    for (const wchar_t* const szName : {L"Share\\UI\\a.dll", L"Share\\Setting\\config_DE-DE.xml"})
        ::DeleteFileW(m_update.PathOf(std::wstring(L"Component\\p1\\") + szName).c_str());
    Write(L"Component\\p1\\Share\\Setting\\config.xml", "<c><a>1</a></c>");
    WriteRaw(HKEY_LOCAL_MACHINE, kVault, L"Had", RawText(L"y"));
    Instruct(strMerge + "[QOR_REGISTRY_PATCH]\nadd_if_non=@!Had!REG_SZ!x\ndelete=@!Never\n");
    EXPECT_THAT(Verify(Collect()), Contains(StartsWith("UNKNOWN config.xml")));
}

TEST_F(VerifyTest, MergedSettingsAreCheckedByTheirContents)
{
    Write(kInstructionFile, "[QOR_CONFIG_MERGE]\nmigrate=/b/new\nmigrate=/own\n");
    Write(L"Component\\p1\\Share\\Setting\\config_de-DE.xml", "<c><a>1</a><b><new/><new/></b></c>");
    ExpectedState made = Collect();
    std::erase_if(made.files, [](const ExpectedFile& file) { return !file.optSettings; });
    made.updateInfo = {{L"C", L"Component101_Version", L"3.9"}};  // the update has run
    m_machine.Write(L"UpdateInfo.ini", "[C]\nComponent101_Version=3.9\n");
    ExpectedState expected;
    std::wstring tstrError;
    ASSERT_TRUE(ParseManifest(FormatManifest(made), expected, tstrError)) << ToUtf8(tstrError);
    // The merged file, the user's kept file (null: none), and the result.
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"<C><A>secret</A><b><New>2</New></b></C>", nullptr, "ARRIVED config.xml"},
        {"<c><a>secret</a><b/></c>", nullptr, "DIFFERENT config.xml (there is no /b/new)"},
        {"<d><a/><b><new/></b></d>", nullptr, "DIFFERENT config.xml (not <c>)"},
        {"<c><a/><b><new/></b>", nullptr, "DIFFERENT config.xml (line 1: "},
        {"<c><a/><b><new/></b></c>", "<c><other/></c>", "ARRIVED config.xml"},
        {"<c><a/><b><new/></b></c>", "<c><own>secret</own></c>", "DIFFERENT config.xml (there is no /own)"},
        {"<c><a/><b><new/></b><own>1</own></c>", "<c><own>1</own></c>", "ARRIVED config.xml"},
        {"<c><a/><b><new/></b><own/></c>", "<c><own>1</own></c>", "DIFFERENT config.xml (/own has another"},
        {"<c><a/><b><new/></b><own type=\"int\"/></c>", "<c><own>x</own></c>", "ARRIVED config.xml"},
    };
    for (const auto& [szMerged, szKept, szLine] : rows) {
        m_machine.Write(L"config.xml", szMerged);
        m_machine.Write(L"config.previous.xml", szKept ? szKept : "");
        EXPECT_THAT(Verify(expected), Contains(StartsWith(szLine))) << szMerged;
    }
    m_machine.Write(L"Component\\p1\\Share\\Setting\\config.xml", "<c/>");
    EXPECT_THAT(Verify(expected).back(), StartsWith("LEFT IN DOWNLOAD config.xml"));
    Write(L"Component\\p1\\Share\\Setting\\config_de-DE.xml", "<c>");  // refused, and deployed unchanged
    EXPECT_EQ(Collect().files.front().optContent.value_or(Content()).ullSize, 3U);
}

TEST_F(VerifyTest, RegistryValuesAreWhatAllPassesTogetherMakeOfThem)
{
    m_update.MakeFolder(L"Component\\p1");
    const auto verify = [&](const std::string& strRecords) {
        Instruct("[QOR_REGISTRY_PATCH]\n" + strRecords + "\n");
        return Verify(Collect()).back();
    };
    const std::wstring tstrFolder = m_machine.Path();
    const std::tuple<const char*, RawValue, const char*> rows[] = {
        // REG_NONE: no value
        {"add=@!N!REG_DWORD!7\ndelete=software\\vault!n", RawNumber(7),
         "VALUE RIGHT HKEY_LOCAL_MACHINE\\software\\vault: n"},
        {"add=@!N!REG_DWORD!7\nadd=@!N!REG_DWORD!8", RawNumber(7),
         "VALUE DIFFERS N (promised REG_DWORD 8, is REG_DWORD 7)"},
        {"add_if_non=@!N!REG_DWORD!7", RawNumber(1), "VALUE RIGHT N"},
        {"add_if_non=@!N!REG_DWORD!7", {}, "VALUE DIFFERS N (promised REG_DWORD 7, is not there)"},
        {"add_if_non=@!N!REG_DWORD!7", RawText(L"7"), "VALUE DIFFERS N (promised REG_DWORD 7, is \"7\")"},
        {"delete=@!N\nadd_if_non=@!N!REG_QDWORD!7", RawNumber(1, REG_QWORD),
         "VALUE DIFFERS N (promised REG_QDWORD 7, is REG_QDWORD 1)"},
        {"add=@!N!REG_SZ!x\nadd_if_non=@!N!REG_SZ!y", RawText(L"x"), "VALUE RIGHT N"},
        {"add=@!N!REG_SZ!x\nadd_if_non=@!N!REG_DWORD!2", RawNumber(2), "VALUE RIGHT N"},
        {"add=@!N!REG_DWORD!3943305780\nadd_if_non=@!N!REG_DWORD!7", RawNumber(7), "VALUE RIGHT N"},
        {"add=@!N!REG_SZ!!!default_val!REG_SZ!!", RawText(L"default_val"), "VALUE RIGHT N"},
        {"add=@!N!REG_DWORD!0x7", RawNumber(0), "VALUE RIGHT N"},
        {"delete=@!N", RawText(L""), "VALUE DIFFERS N (promised none, is \"\")"},
        {"delete=\\@!N", RawText(L"x"), "VALUE RIGHT HKEY_LOCAL_MACHINE\\\\SOFTWARE\\Vault: N"},
        {"add=\\@!N!REG_SZ!x", RawText(L"x"),
         "VALUE DIFFERS HKEY_LOCAL_MACHINE\\\\SOFTWARE\\Vault: N (promised \"x\", is not there)"},
        {"delete=@!N", {REG_BINARY, "x"}, "VALUE DIFFERS N (promised none, is of another type)"},
        {"add=@!N!REG_SZ!{InstalledDir}{UdComponentsSrcDir}", RawText(tstrFolder + tstrFolder + L"Component\\p1\\"),
         "VALUE RIGHT N"},
        {"add=@!N!REG_MULTI_SZ!x", {}, "0"},
        {kDefault, RawText(L"x"), "VALUE DIFFERS (unnamed) (promised \"x\", is not there)"},
    };
    for (const auto& [szRecords, is, szLine] : rows) {
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kVault);
        if (is.dwType != REG_NONE) WriteRaw(HKEY_LOCAL_MACHINE, kVault, L"N", is);
        EXPECT_EQ(verify(szRecords), szLine) << szRecords;
    }
    // The literal name had no value, so the unnamed value was written.
    WriteRaw(HKEY_LOCAL_MACHINE, kVault, L"", RawText(L"x"));
    EXPECT_EQ(verify(kDefault), "VALUE RIGHT (unnamed)");
    WriteRaw(HKEY_LOCAL_MACHINE, kVault, L"", RawText(L"y"));
    WriteRaw(HKEY_LOCAL_MACHINE, kVault, L"(Default)", RawText(L"z"));
    EXPECT_EQ(verify(kDefault), "VALUE RIGHT (unnamed)");
}

TEST_F(VerifyTest, DeletionsFoldersAndUpdateInformation)
{
    Instruct(
        "[QOR_DIR]\nadd={InstalledDir}Lang\ndelete={InstalledDir}Legacy\ndelete=C:\\Elsewhere\n"
        "[QOR_FILE]\ndelete={InstalledDir}Old*.dll\ndelete={InstalledDir}a*\\b\ndelete_now={InteractiveLogDir}*.old\n"
        "[UPDATE_INFO]\nmodify=S!K!a\nmodify=s!k!' b'\n");
    Write(L"Component\\p1\\Share\\UI\\OldButNew.dll", "new");
    Write(L"Component\\p1\\Share\\Setting\\x.txt", "x");
    const ExpectedState expected = Collect();
    EXPECT_EQ(expected.deletions.size(), 3u);
    m_machine.Write(L"OldButNew.dll", "new");
    m_machine.Write(L"x.txt", "x");
    m_machine.MakeFolder(L"Lang");
    m_machine.Write(L"UpdateInfo.ini", "[S]\nK=' b'\n[COMPONENT_LIST]\nComponent103_iUD_Version=" BREVANT_VERSION "\n");
    const auto kept = Verify(expected);
    EXPECT_THAT(kept, Contains("0"));
    EXPECT_THAT(
        kept, IsSupersetOf({"ARRIVED Lang", "DELETED Legacy\\", "DELETED Old*.dll", "VALUE RIGHT UpdateInfo.ini: [s] k",
                            "VALUE RIGHT UpdateInfo.ini: [COMPONENT_LIST] Component103_iUD_Version"}));

    m_machine.Write(L"Old1.dll", "");
    m_machine.Write(L"Legacy\\a\\b.txt", "");
    m_machine.Write(L"UpdateInfo.ini", "[S]\nK=a\n");
    EXPECT_THAT(Verify(expected), IsSupersetOf({"1", "NOT DELETED Old1.dll", "NOT DELETED Legacy\\ (1 file)",
                                                "VALUE DIFFERS UpdateInfo.ini: [s] k (promised \"' b'\", is \"a\")"}));
    EXPECT_THAT(Verify(expected, L"@Legacy\\a\\b.txt||"), Contains("NOT DELETED Legacy\\ (1 file)"));
    m_optArrived = 1;  // long before those files were created
    EXPECT_THAT(Verify(expected),
                IsSupersetOf({StartsWith("CHANGED SINCE Old1.dll"), StartsWith("CHANGED SINCE Legacy")}));
    m_optArrived = MAXULONGLONG;  // after
    const std::wstring tstrInfo = L"Component\\p1\\Share\\Setting\\UpdateInfo.ini";
    const std::wstring tstrPending =
        L"@Old1.dll||@Legacy\\a\\b.txt||@Legacy\\a||@Legacy||@" + tstrInfo + L"|!@UpdateInfo.ini|";
    m_machine.Write(tstrInfo, "[S]\nK=' b'\n[COMPONENT_LIST]\nComponent103_iUD_Version=" BREVANT_VERSION "\n");
    EXPECT_THAT(Verify(expected, tstrPending),
                IsSupersetOf({"3010", "STILL WAITING Old1.dll", "STILL WAITING Legacy\\ (1 file)",
                              "STILL WAITING UpdateInfo.ini", "STILL WAITING UpdateInfo.ini: [s] k"}));
    EXPECT_THAT(Verify(expected, L"@Legacy||@Legacy\\a\\b.txt||@Legacy\\a||"),
                Contains("NOT DELETED Legacy\\ (1 file)"))
        << "not empty, and not tried again";
    m_machine.Write(tstrInfo, "[S]\nK=c\n");
    EXPECT_THAT(Verify(expected, tstrPending), Contains(StartsWith("VALUE DIFFERS UpdateInfo.ini: [s] k")));

    Instruct("[QOR_DIR]\ndelete={InstalledDir}Legacy\n");
    EXPECT_TRUE(Collect().deletions.empty()) << "without QOR_FILE";
    Write(L"Component\\p1\\Share\\Setting\\UpdateInfo.ini", "[S]\n");
    Instruct("[UPDATE_INFO]\nmodify=S!K!a\n");
    EXPECT_THAT(Collect().updateInfo, IsEmpty()) << "the update's own file replaces the changed one";
}

TEST_F(VerifyTest, RecordsNameTheirPlacesInManySpellings)
{
    std::string strOther = ToUtf8(m_machine.Path());
    std::replace(strOther.begin(), strOther.end(), '\\', '/');
    Instruct(R"([QOR_DIR]
        add={InstalledDir}/Lang/
        add={InstalledDir}none\..\Policy
        delete=C:/ProgramData\\.\QvNone
        delete={InstalledDir}..\Other
        delete=C:\QvElsewhere
        delete={AppData}x
        delete=\ProgramData\x
        [QOR_FILE]
        delete={InstalledDir}Sub/a*.dll
        delete=)" +
             strOther +
             "Sub/b*.dll\ndelete=c:\\PROGRAMDATA\\qvnone*.x\ndelete=C:\\qvnone*.sys\n"
             "delete=C:\\Windows\\qvnone.sys\n");
    ExpectedState expected;
    std::wstring tstrErrors;
    ASSERT_TRUE(CollectExpectedState(Open(), expected, tstrErrors));
    EXPECT_THAT(expected.folders, ElementsAre(L"{InstalledDir}Lang", L"{InstalledDir}Policy"));
    std::vector<std::wstring> places;
    for (const ExpectedDeletion& deletion : expected.deletions) places.push_back(deletion.tstrPlace);
    EXPECT_THAT(places, UnorderedElementsAre(L"C:\\ProgramData\\QvNone", L"{InstalledDir}Sub\\a*.dll",
                                             m_machine.PathOf(L"Sub\\b*.dll"), L"c:\\PROGRAMDATA\\qvnone*.x",
                                             L"C:\\qvnone*.sys"));
    for (const wchar_t* const szLeftOut : {L"{InstalledDir}..\\Other:", L"C:\\QvElsewhere:", L"{AppData}x:",
                                           L"\\ProgramData\\x:", L"C:\\Windows\\qvnone.sys:"}) {
        EXPECT_THAT(tstrErrors, HasSubstr(szLeftOut));
    }
    m_machine.MakeFolder(L"Lang");
    for (const wchar_t* const szName : {L"Sub\\a1.dll", L"Sub\\b1.dll", L"Sub\\c1.dll"}) m_machine.Write(szName, "");
    // A manifest from another source may have such places.
    expected.folders.emplace_back(L"{InstalledDir}/Lang/");
    for (const wchar_t* const szPlace : {L"{InstalledDir}Sub/d/../c*.dll", L"{InstalledDir}Sub/../../x", L"{AppData}x"})
        expected.deletions.push_back({szPlace, false, true});
    EXPECT_THAT(
        Verify(expected),
        UnorderedElementsAre("1", "ARRIVED Lang", "ARRIVED Lang", "MISSING Policy", "DELETED C:\\ProgramData\\QvNone\\",
                             "DELETED C:\\ProgramData\\qvnone*.x", "DELETED C:\\qvnone*.sys", "NOT DELETED Sub\\a1.dll",
                             "NOT DELETED Sub\\b1.dll", "NOT DELETED Sub\\c1.dll", StartsWith("REFUSED"),
                             StartsWith("REFUSED {AppData}x")));
}

TEST_F(VerifyTest, FilesKeptForTheUserAreNotDeletedByAPattern)
{
    const std::tuple<const char*, const wchar_t*, const char*> rows[] = {
        {"*.xml", L"config.previous.xml", "DELETED *.xml"},
        {"*.xml", L"CONFIG.previous.9.XML", "DELETED *.xml"},
        {"*.xml", L"config.previous.10.xml", "NOT DELETED config.previous.10.xml"},
        {"Sub\\*.xml", L"Sub\\config.previous.xml", "NOT DELETED Sub\\config.previous.xml"},
        {"config.previous.xml", L"config.previous.xml", "NOT DELETED config.previous.xml"}};
    for (const auto& [szPattern, szFile, szLine] : rows) {
        Instruct(std::string("[QOR_DIR]\nadd={InstalledDir}x\n[QOR_FILE]\ndelete={InstalledDir}") + szPattern + "\n");
        m_machine.Write(szFile, "");
        EXPECT_THAT(Verify(Collect()), Contains(szLine));
        ::DeleteFileW(m_machine.PathOf(szFile).c_str());
    }
}

TEST_F(VerifyTest, APlaceOutsideTheFoldersIsRefusedAndNeverOpened)
{
    m_machine.Write(L"outside.txt", "secret");
    WriteRaw(HKEY_LOCAL_MACHINE, kDebugLog + L"InteractiveSession", L"LogFolder", RawText(L"no full path"));
    for (const wchar_t* const szPlace :
         {L"C:\\Windows\\win.ini", L"{InstalledDir}..\\outside.txt", L"{InstalledDir}a\\..\\..\\outside.txt",
          L"..\\outside.txt", L"{InstalledDir}a:b", L"{InstalledDir}NUL", L"{InstalledDir}a\\com1.txt",
          L"{InstalledDir}\\\\server\\share\\x", L"{InstalledDir}a/../x", L"{SystemDrive}windows\\win.ini",
          L"{Installeddir}x", L"{InstalledDir}a\\ .\\x", L"{InstalledDir}x*", L"{InteractiveLogDir}x",
          L"a\nARRIVED b"}) {
        EXPECT_THAT(Verify(OneFile(szPlace, L"Component\\x")), ElementsAre("1", StartsWith("REFUSED"))) << szPlace;
    }
    for (const wchar_t* const szSource :
         {L"Component\\..\\x", L"outside.txt", L"Component\\", L"C:\\x", L"Component"}) {
        EXPECT_THAT(Verify(OneFile(L"{InstalledDir}x", szSource)),
                    ElementsAre("1", HasSubstr("not a file of a package")))
            << szSource;
    }
    EXPECT_THAT(Verify(OneFile(L"{InstalledDir}console", L"Component\\x")), ElementsAre("1", "MISSING console"));
}

TEST(RecordTest, IsSmallWhereTheUpdateHasArrived)
{
    Record record;
    record.open.assign(60, {Verdict::eChangedSince, std::wstring(100, L'x'), L""});
    record.eVerdict = MachineVerdict::eArrived;
    EXPECT_THAT(FormatRecord(record).size(), AllOf(Gt(3900u), Le(4096u)));
}

TEST_F(VerifyTest, AManifestContainsTheWholeExpectedState)
{
    Instruct(
        "[QOR_REGISTRY_PATCH]\nadd=@!A!REG_QDWORD!18446744073709551615\ndelete=@!B\n"
        "add_if_non=@!(Default)!REG_SZ!x\nadd_if_non=@!C!REG_SZ!y\n"
        "[QOR_DIR]\nadd={InstalledDir}Lang\ndelete={InstalledDir}Legacy\n[QOR_FILE]\ndelete_now={InstalledDir}*.x\n"
        "[UPDATE_INFO]\nmodify=COMPONENT_LIST!Component101_Version!3.9\n");
    Write(kInstructionFile, m_update.Read(kInstructionFile).value_or("") + "[Run]\nSysRunOnce=c.exe /x\n");
    for (const wchar_t* const szFolder : {L"FR-FR", L"deeper\\DE-DE"}) {
        Write(std::wstring(L"Component\\r1\\") + szFolder + L"\\StringTable.ini",
              "[Global]\nS_STR_PRODUCT_NAME=Vault\n");
    }
    Write(L"Component\\p1\\Share\\UI\\\u00E9\U0001F511.dll", "new");
    Write(L"Component\\p1\\Share\\Setting\\readme_DE-DE.htm", "de");
    const ExpectedState expected = Collect();
    std::vector<std::wstring> uncovered;
    for (const UncoveredPart& part : expected.uncovered) uncovered.push_back(part.tstrWhat + L"|" + part.tstrLanguage);
    EXPECT_THAT(uncovered, ElementsAre(L"c.exe /x|", L"Vault|FR-FR"));
    EXPECT_THAT(expected.languages, ElementsAre(L"FR-FR"));
    const std::string strManifest = FormatManifest(expected);
    EXPECT_THAT(strManifest, HasSubstr("11507a0e2f5e69d5dfa40a62a1bd7b6ee57e6bcd85c67c9b8431b36fff21c437"));
    EXPECT_THAT(strManifest, HasSubstr("\"Component101_Version\" : \"3.9\""));
    EXPECT_THAT(strManifest, HasSubstr("\\u00e9\\ud83d\\udd11.dll"));
    EXPECT_THAT(strManifest, Each(Truly([](char ch) { return ch == '\n' || (ch >= ' ' && ch <= '~'); })));
    std::wstring tstrWide;
    ASSERT_TRUE(KzCommon::String::FromUtf8(strManifest, tstrWide));
    for (const std::string& strForm : {strManifest, "\xEF\xBB\xBF" + strManifest, Utf16(tstrWide)}) {
        ExpectedState read;
        std::wstring tstrError;
        ASSERT_TRUE(ParseManifest(strForm, read, tstrError)) << ToUtf8(tstrError);
        EXPECT_EQ(FormatManifest(read), strManifest);
        EXPECT_THAT(read.files, Contains(Field(&ExpectedFile::tstrPlace, L"{InstalledDir}\u00E9\U0001F511.dll")));
    }
    std::string strFirst = strManifest;
    strFirst.replace(strFirst.find("t\" : 2"), 6, "t\" : 1");
    ExpectedState first;
    std::wstring tstrNone;
    ASSERT_TRUE(ParseManifest(strFirst, first, tstrNone));
    EXPECT_THAT(KindsNotCompared(first, expected), SizeIs(6));
    EXPECT_THAT(CompareStates(first, expected), IsEmpty());
    const std::pair<std::string, std::string> damages[] = {
        {"\"format\" : 2", "\"format\" : 3"},
        {"\"format\" : 2", "\"format\" : 1e99"},
        {"\"when\" : \"now\"", "\"when\" : \"then\""},
        {"18446744073709551615", "18446744073709551616"},
        {"\"state\" : \"any\"", "\"state\" : []"},
        {"\"folders\" :", "\"folder\" :"},
        {"\"REG_QDWORD\"", "\"REG_DWORD\""},
        {"11507a0e", "11507"},
        {"11507a0e", "11507A0E"},
        {"{InstalledDir}Lang", "\\u0000"},
        {"\"sha256\"", "\"sha\""},
        {strManifest, std::string(100'000, '[')},
        {strManifest, std::string("\xFF\xFE\x00", 3)},
    };
    for (const auto& [strFrom, strTo] : damages) {
        std::string strDamaged = strManifest;
        const auto uFound = strDamaged.find(strFrom);
        ASSERT_NE(uFound, std::string::npos) << strFrom;
        strDamaged.replace(uFound, strFrom.size(), strTo);
        ExpectedState read;
        std::wstring tstrError;
        EXPECT_FALSE(ParseManifest(strDamaged, read, tstrError)) << strTo.substr(0, 40);
        EXPECT_FALSE(tstrError.empty()) << strTo.substr(0, 40);
    }
}
