#include "unit/check/CheckFixture.h"

// In tables with the lines of one section, the first record is on line 2.
using PlaceholderRulesTest = RulesTest<CheckPlaceholders>;

TEST_F(PlaceholderRulesTest, OnlyKnownOnesInTheirPlaces)
{
    const Row rows[] = {
        {"[QOR_DIR]\nadd={InstalledDir}a\nadd=C:\\{0C6E93B1-7F24-4a8d-B1C5-E82A47D9F560}\nadd=C:\\{0}\n", {}},
        {"[QOR_DIR]\nadd={installedDir}a\n", {"B010 2:5 {InstalledDir}"}},
        {"[QOR_DIR]\nadd={InstallDir}a\n", {"B010 2:5 {InstalledDir}"}},
        {"[QOR_DIR]\nadd={InstalledDir\\a\n", {"B010 2:5 {InstalledDir}"}},
        {"[QOR_DIR]\nadd=InstalledDir}a\n", {"B010 2:5 {InstalledDir}"}},
        {"[QOR_FILE]\ndelete={WinDir}\\a\n", {"B010 2:8"}},
        {"[Run]\nSysRunOnce=powershell { Get-Date }\nSysRunOnce=a {b}\n", {"B010 3:14"}},
        {"[QOR_REGISTRY_PATCH]\nadd=K!N!REG_SZ!{InstalledDir}\nadd=K{InstalledDir}!N!REG_SZ!{InstalledDir}\n",
         {"B011 3:6"}},
        {"[QOR_REGISTRY_PATCH]\ndelete=K!{installeddir}\n", {"B011 2:10"}},
        {"[UPDATE_INFO]\nmodify=S!K!{x}\nmodify=S!K!{InstalledDir}\n", {"B011 3:12"}},
        {"[RestartNotification_X]\ntext={InstalledDir}\n", {"B011 2:6"}},
        {"[QOR_FILE]\ndelete={InstallerLogDir}a\ndelete={ServiceLogDir}a\n", {"B012 3:8"}},
    };
    Expect(rows);
}

using RegistryRulesTest = RulesTest<CheckRegistry>;

TEST_F(RegistryRulesTest, FieldsTypesAndData)
{
    const Row rows[] = {
        {"add=SAM!N!REG_SZ!a=b\nadd=SAM!O!REG_SZ!\ndelete=SAM!P\nadd=SAM!Q!REG_DWORD!4294967295\nadd=SAM!R!REG_DWORD!"
         "00\n",
         {}},
        {"add=SAM!N!REG_SZ\nadd=SAM!O\nadd=SAM!!REG_SZ!x\ndelete=!K!P\n",
         {"B020 2:5", "B020 3:5", "B020 4:5", "B020 5:8"}},
        {"add=SAM!N!REG_SZ!a!b\nadd=SAM!O!REG_SZ!!a\n", {"B020 2:20", "B020 3:5"}},
        {"delete=SAM\ndelete=SAM!P!REG_SZ\n", {"B020 2:8", "B020 3:14"}},
        {"add=SAM!N!REG_QWORD!1\nadd=SAM!O!reg_sz!1\nadd=SAM!P!REG_MULTI_SZ!a\nadd=SAM!Q!REG_BINARY!1\n",
         {"B021 2:11 REG_QDWORD", "B021 3:11 REG_SZ", "B021 4:11", "B021 5:11"}},
        {"add=SAM!N!DWORD!1\nadd=SAM!O!string!a\n", {"B021 2:11 REG_DWORD", "B021 3:11"}},
        {"add=SAM!N!REG_DWORD!0x10\nadd=SAM!O!REG_DWORD! 5\nadd=SAM!P!REG_DWORD!-1\nadd=SAM!Q!REG_DWORD!4294967296\n",
         {"B022 2:21 16", "B022 3:21 5", "B022 4:21 4294967295", "B022 5:21"}},
        {"add=SAM!N!REG_QDWORD!4294967296\nadd=SAM!O!REG_QDWORD!1e3\nadd=SAM!P!REG_DWORD!\n",
         {"B022 3:22", "B022 4:11"}},
        {"add=SAM\\HKLM!N!REG_SZ!a\nadd=hklm:\\K!N!REG_SZ!a\ndelete=HKEY_CURRENT_USER\\K!N\n",
         {"B023 3:5", "B023 4:8"}},
        {"add=HKLM/SOFTWARE/K!N!REG_SZ!a\nadd=HKLM\\SOFTWARE\\\\K!N!REG_SZ!a\n",
         {"B023 2:5 SOFTWARE\\K", "B023 3:5", "B028 3:5"}},
        {"add=SOFTWARE/K!N!REG_SZ!a\nadd=SFTWARE/K!N!REG_SZ!a\nadd=Software\\Kazmere/KZVLT!N!REG_SZ!a\nadd=SAM\\a/b!N!"
         "REG_SZ!a\n",
         {"B028 2:5 SOFTWARE\\K", "B028 3:5", "B028 4:5 Software\\Kazmere\\KZVLT"}},
        {"add=SAM!Proxy_Password!REG_SZ!geheim\nadd=SAM!Address!REG_SZ!http://a/?Token=b\n",
         {"B064 2:31", "B064 3:40"}},
        {"add=SAM!PasswordLength!REG_SZ!8\nadd=SAM!Token!REG_SZ!\nadd=SAM!Secret!REG_DWORD!7\nadd=SAM!a!REG_SZ!Token: "
         "none\n",
         {}},
        {"add=SAM!N!REG_SZ!HKLM\\K\nadd=HKEY_LOCAL_MACHINE!N!REG_SZ!a\n", {"B023 3:5"}},
        {"add_if_non=SAM!(Default)!REG_SZ!a\nadd=SAM\\L!(Default)!REG_SZ!a\ndelete=SAM\\M!(default)\nadd=SAM\\N!"
         "Default!REG_SZ!a\n",
         {"B024 2:16", "B024 3:11", "B024 4:14"}},
        {"add_if_non=SAM!N!REG_DWORD!3943305780\nadd_if_non=SAM!O!REG_DWORD!3943305781\n", {"B026 2:28"}},
        {"add_if_non=SAM!N!REG_SZ!!!default_val!REG_SZ!!\nadd=SAM!O!REG_DWORD!3943305780\n",
         {"B026 2:27", "B026 3:21"}},
        {"add=SAM\\K ! N!REG_SZ! a \n", {"B027 2:5", "B027 2:12"}},
        {"add=SFTWARE\\K!N!REG_SZ!a\nadd=hardware!N!REG_SZ!a\ndelete=K!N\n", {"B028 2:5 SOFTWARE\\K", "B028 4:8"}},
        {"add=SAM\\" + std::string(255, 'k') + "!N!REG_SZ!a\nadd=SAM\\" + std::string(256, 'k') + "!N!REG_SZ!a\n",
         {"B028 3:5"}},
        {"add=\\SAM!N!REG_SZ!a\ndelete=SAM\\\\\\L!N\nadd=SAM\\L\\!O!REG_SZ!a\nadd=SAM\\M!N!REG_SZ!a\\\\b\\\n",
         {"B028 2:5 SAM", "B028 3:8 SAM\\L", "B028 4:5 SAM\\L"}},
        {"add=\"SAM\\L\"!N!REG_SZ!a\nadd=\"SAM\\M!N!REG_SZ!a\"\n", {"B028 2:5 SAM\\L", "B028 3:5 SAM\\M"}},
    };
    Expect(rows, "[QOR_REGISTRY_PATCH]\n");
}

TEST_F(RegistryRulesTest, ValuesAsTheInstalledProductHasThem)
{
    const Row rows[] = {
        {"add=software\\vault!theme!REG_DWORD!1\nadd_if_non=SOFTWARE\\Vault!Columns!REG_QDWORD!1\n",
         {"B120 2:26", "B120 3:35"}},
        {"add=SOFTWARE\\Vault!Theme!REG_SZ!a\nadd=SOFTWARE\\Vault!New!REG_SZ!a\nadd=SAM\\Vault!Theme!REG_DWORD!1\n",
         {}},
        {"add=SOFTWARE\\Vault!Version!REG_SZ!3.8.0.999\n", {"B046 2:35"}},
        {"add=SOFTWARE\\Vault!Version!REG_SZ!3.10.0.1\nadd_if_non=SOFTWARE\\Vault!Theme!REG_SZ!1.0\n", {}},
    };
    const std::string strSection = "[QOR_REGISTRY_PATCH]\n";
    EXPECT_THAT(Lint(strSection + rows[0].strText), IsEmpty()) << "no product is known";
    m_optInstalled = m_update.MakeFolder(L"installed");
    Write(L"installed\\registry.reg",
          "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vault]\n\"Theme\"=\"dark\"\n\"Columns\"=dword:00000004\n"
          "\"Version\"=\"3.9.0.1105\"\n");
    Expect(rows, strSection);
    // Without that file this machine counts, when the product is its own.
    ::DeleteFileW(m_update.PathOf(L"installed\\registry.reg").c_str());
    WriteProduct(L"Version", L"3.9.0.1105");
    const std::string strVersion = strSection + "add=Software\\Kazmere\\KZVLT!Version!REG_SZ!3.8.1\n";
    EXPECT_THAT(Lint(strVersion), IsEmpty());
    WriteProduct(L"ProductPath", *m_optInstalled);
    EXPECT_THAT(Lint(strVersion), ElementsAre("B046 2:43"));
}

// All deletes, then all adds, then all adds of missing values, in any order of the lines.
TEST_F(RegistryRulesTest, RecordsUndoneByAnotherPass)
{
    const Row rows[] = {
        {"add=SAM!N!REG_SZ!a\nadd=SAM!O!REG_SZ!a\ndelete=SAM\\L!N\nadd_if_non=SAM!P!REG_SZ!a\n", {}},
        {"add=SAM!N!REG_SZ!a\ndelete=sam\\!n\n", {"B025 3:1", "B028 3:8 sam"}},
        {"add_if_non=SAM!N!REG_SZ!a\ndelete=SAM!N\n", {"B025 3:1"}},
        {"add=SAM!N!REG_SZ!a\nadd=SAM!n!REG_DWORD!1\n", {"B025 2:1"}},
        {"add_if_non=SAM!N!REG_SZ!a\nadd=SAM!N!REG_SZ!b\n", {"B025 2:1"}},
        {"add_if_non=SAM!N!REG_SZ!a\nadd=SAM!N!REG_DWORD!1\n", {"B025 3:1"}},
        {"add=SAM!N!REG_DWORD!3943305780\nadd_if_non=SAM!N!REG_DWORD!1\n", {"B025 2:1", "B026 2:21"}},
        {"delete=SAM!N\ndelete=SAM!N\n", {"B025 3:1"}},
        {"add=SAM!N!REG_SZ!a\nadd=SAM!N!REG_MULTI_SZ!1\n", {"B021 3:11"}},
        {"delete=SAM\nadd_if_non=SAM!(Default)!REG_SZ!a\n", {"B025 2:1", "B020 2:8", "B024 3:16"}},
    };
    Expect(rows, "[QOR_REGISTRY_PATCH]\n");
}

TEST_F(RegistryRulesTest, TheValueThatTheAgentFindsItsFolderBy)
{
    m_bWarnings = true;
    const std::string strKey = "SOFTWARE\\Kazmere\\KZVLT";
    const Row rows[] = {
        {"add=" + strKey + "!ProductPath!REG_SZ!C:\\b\n", {"B029 2:28"}},
        {"add=software\\KAZMERE\\kzvlt\\!productpath!REG_SZ!{UdComponentsSrcDir}\n",
         {"warning B028 2:5 software\\KAZMERE\\kzvlt", "B029 2:29"}},
        {"delete=" + strKey + "!PRODUCTPATH\n", {"B029 2:31"}},
        {"add=" + strKey + "!ProductPath!REG_DWORD!1\n", {"B029 2:28"}},
        {"add_if_non=" + strKey + "!ProductPath!REG_QDWORD!1\n", {"B029 2:35"}},  // another type is overwritten
        {"add_if_non=" + strKey + "!ProductPath!REG_SZ!C:\\b\n", {"warning B029 2:35"}},
        {"add=" + strKey + "!ProductPath!REG_SZ!c:\\program files\\KAZMERE\\kzvlt\n",
         {"warning B029 2:28 {InstalledDir}"}},
        // the same folder, another value, another key (not read by any program), records that write nothing
        {"add=" + strKey + "!ProductPath!REG_SZ!{InstalledDir}\n", {}},
        {"add=" + strKey + "!ProductPaths!REG_SZ!C:\\b\nadd=" + strKey + "\\Vault!ProductPath!REG_SZ!C:\\b\n", {}},
        {"add=SOFTWARE\\Wow6432Node\\Kazmere\\KZVLT!ProductPath!REG_SZ!C:\\b\ndelete=" + strKey + "\n",
         {"warning B020 3:8"}},
        {"add=" + strKey + "!ProductPath!REG_MULTI_SZ!C:\\b\n", {"B021 2:40"}},
    };
    Expect(rows, "[QOR_REGISTRY_PATCH]\n");
}

using UpdateInfoRulesTest = RulesTest<CheckUpdateInfo>;

TEST_F(UpdateInfoRulesTest, FieldsAndTheVersion)
{
    Write(L"Component\\p1\\Share\\Setting\\a.txt", "");
    const Row rows[] = {
        {"[UPDATE_INFO]\nmodify=S!K!V\n", {}},
        {"[UPDATE_INFO]\nnothing\n", {}},
        {"[UPDATE_INFO]\nmodify=S!K!\nmodify=S!K!a!b\nmodify=S!!K!a\nmodify=S !K!a\n",
         {"B040 2:8", "B040 3:14", "B040 4:8", "B040 5:8"}},
        {"[Run]\nSysRunOnce=a\n", {"B042 0:0"}},
        {"[UPDATE_INFO]\n; nothing\n", {"B042 1:2"}},
    };
    Expect(rows);
    Write(L"Component\\p1\\Share\\Setting\\updateinfo.INI", "");
    EXPECT_THAT(Lint(rows[0].strText), ElementsAre("B041 0:0 Component\\p1\\Share\\Setting\\updateinfo.INI"));
}

TEST_F(UpdateInfoRulesTest, TextsThatTheFileStoresAndKeysThatCanBeReadAgain)
{
    m_bWarnings = true;
    Write(L"Component\\p1\\Share\\Setting\\a.txt", "");
    const auto lint = [&](const std::wstring& tstrRecord) {
        return Lint(Utf16(L"[UPDATE_INFO]\nmodify=" + tstrRecord));
    };
    const std::wstring tstrForeign = L"S!K!V \u6f22";
    EXPECT_THAT(lint(tstrForeign), ElementsAre("B043 2:14")) << "the update's own file is ASCII";
    EXPECT_THAT(lint(L"S\u00e9!K!\u6f22"), ElementsAre("warning B045 2:8 S", "B043 2:9")) << "once a record";
    EXPECT_THAT(lint(L"S!A=B!V"), ElementsAre("B044 2:10"));
    EXPECT_THAT(lint(L"S!;K!V"), ElementsAre("B044 2:10"));
    EXPECT_THAT(lint(L"S![K]!V"), ElementsAre("B044 2:10"));
    EXPECT_THAT(lint(L"S! ;K!V"), ElementsAre("warning B040 2:10", "B044 2:10"));
    EXPECT_THAT(lint(L"S!K[!;V"), IsEmpty());
    EXPECT_THAT(lint(L"S!K;L!a=b!"), IsEmpty());
    EXPECT_THAT(lint(L"S!K!"), ElementsAre("B040 2:8"));

    m_optInstalled = m_update.MakeFolder(L"installed");
    const std::string strInfo = Utf16(L"[COMPONENT_LIST]\nComponent101_DownloadPath=p1\n[S]\nK=1\n");
    Write(L"installed\\UpdateInfo.ini", strInfo);
    EXPECT_THAT(lint(tstrForeign), IsEmpty()) << "the installed file is the one that is changed";
    for (const std::string& strOther :
         {strInfo.substr(2), std::string("\xEF\xBB\xBF[S]\nK=1\n"), std::string("[S]\nK=1\n")}) {
        Write(L"installed\\UpdateInfo.ini", strOther);
        EXPECT_THAT(lint(tstrForeign), ElementsAre("B043 2:14")) << strOther.size();
    }
    m_optInstalled.reset();
    Write(L"UpdateInfo.ini", strInfo);
    EXPECT_THAT(lint(tstrForeign), IsEmpty());
    ::DeleteFileW(m_update.PathOf(L"UpdateInfo.ini").c_str());
    EXPECT_THAT(lint(tstrForeign), ElementsAre("warning B043 2:14")) << "the file is unknown";
}

TEST_F(UpdateInfoRulesTest, KeysAndVersionsAsTheFileHasThem)
{
    Write(L"Component\\p1\\Share\\Setting\\a.txt", "");
    const Row rows[] = {
        {"s!k!1.2\nmodify=S!K!1.10\nmodify=S!K!other\n", {}},
        {"S!K!1.1.9\n", {"B046 2:12"}},
        {"S!J!1.2\nmodify=S!Other!1\n", {"B045 2:10 K", "B045 3:10"}},
        {"COMPONENT_LST!K!1.2\nmodify=T!K!1.2\n", {"B045 2:8 COMPONENT_LIST", "B045 3:8 S"}},
        {"S!K!password=geheim\n", {"B064 2:21"}},
    };
    Expect(rows, "[UPDATE_INFO]\nmodify=");
}

TEST_F(UpdateInfoRulesTest, WithoutSettingsTheRecordsHaveNoEffect)
{
    Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\nComponent101_DownloadPath=p2\n[S]\nK=V\n");
    EXPECT_THAT(Lint("[UPDATE_INFO]\nmodify=S!K!V\n"), IsEmpty());
    Write(L"Component\\p2\\Share\\UI\\a.htm", "");
    EXPECT_THAT(Lint("[UPDATE_INFO]\nmodify=S!K!V\n"), ElementsAre("B042 1:2"));
}

using CommandRulesTest = RulesTest<CheckCommands>;

TEST_F(CommandRulesTest, WhatACommandMayBe)
{
    Write(L"Component\\p1\\Share\\Task\\a.vbs", "");
    Write(L"Component\\p1\\Share\\Task\\a b.cmd", "");
    const std::string strInstalled = "net.exe \"{InstalledDir}";  // 31 characters after the quote, expanded
    const std::string strFill(260 - 8 - 31 - 2, 'x');
    const Row rows[] = {
        {"net.exe \"C:\\b c\\d\"", {}},
        {"net.exe /c echo Done!", {"B050 2:32"}},
        {strInstalled + strFill + "\"", {}},
        {strInstalled + strFill + "x\"", {"B051 2:12"}},
        {"wscript.exe {InstalledDir}Task\\a.vbs", {"B052 2:24"}},
        {"cmd.exe /c echo a>{InstalledDir}b", {"B052 2:30"}},
        {"cmd.exe /c echo {InstalledDir}>\"{InstalledDir}a.txt\"", {}},
        {"cmd.exe /c \"\"{InstalledDir}Task\\a b.cmd\" /q\"", {}},
        {"cmd.exe /c \"del /q \"{InstalledDir}a*\"\"", {}},
        {"cmd.exe /c if exist C:\\a start \"\" \"{InstalledDir}Brevant.exe\"", {}},
        {"cmd.exe /c copy \"{InstalledDir}a\" {InstalledDir}b", {"B052 2:46"}},
        {"sc.exe config a binPath= \"\\\"{InstalledDir}a.exe\\\" /k\"", {}},
        {"xcopy.exe \"{InstalledDir}Task\\\" {InstalledDir}b", {"B052 2:44"}},
        {"C:\\Program Files\\a\\b.exe /s", {"B052 2:12 \"C:\\Program Files\\a\\b.exe\""}},
        {"C:\\b\\a.exe c\\d \"C:\\Program Files\\a\"", {"B056 2:12"}},
        {"C:\\b\\a C:\\c\\d", {"B056 2:12"}},
        {"wscript.exe \"{UdComponentsSrcDir}Share\\Task\\a.vbs\"", {"B053 2:12"}},
        {"xcopy.exe \"{InstalledDir}component\\P1\\Share\\Task\" C:\\a", {"B053 2:12"}},
        {"cmd.exe /c copy \"{UdComponentsSrcDir}Share\\Task\\*.vbs\" C:\\a", {"B053 2:12"}},
        {"wscript.exe \"{UdComponentsSrcDir}Share\\Task\\b.vbs\"", {"B056 2:24"}},
        {"cmd.exe /c rd /s /q \"{UdComponentsSrcDir}\"", {}},
        {"cmd.exe /c copy \"{UdComponentsSrcDir}64bit\\p1\\Driver\\k.ini\" C:\\", {}},
        {"Task\\a.exe", {"B054 2:12"}},
        {"net.exe Task\\a.vbs", {}},
        {"net.exe C:\\KbFilter.ini", {"B055 2:23 kbfilter.ini"}},
        {"net.exe C:\\kbfilter.ini", {}},
    };
    Expect(rows, "[Run]\nSysRunOnce=", "\n");
}

TEST_F(CommandRulesTest, WhatIsStartedIsThereAndNotInUsersHands)
{
    m_bWarnings = true;
    Bring({L"p1\\Share\\Task\\a.vbs", L"p1\\Share\\Task\\b.reg", L"p1\\64bit\\p1\\Vault.dll"});
    const Row rows[] = {
        // there
        {"\"{InstalledDir}Brevant\" /x", {}},
        {"cscript.exe //B //nologo \"{InstalledDir}Task\\A.VBS\" none.vbs", {}},
        {"reg.exe import \"{InstalledDir}Task\\b.reg\"", {}},
        {"rundll32 \"{InstalledDir}Vault.dll\",Register none.dll", {}},
        {"rundll32.exe shell32.dll,Control_RunDLL", {}},
        {"%SystemRoot%\\System32\\cmd.exe /q /c if not exist C:\\a (\"%ComSpec%\" /c rd C:\\b) & del C:\\c", {}},
        {"C:\\Windows\\System32\\ofanotherversion.exe /u", {}},
        {"msiexec.exe /x {6F1B3A52-0000-4d6e-9F21-7C04B8E2D913} /qn", {}},
        {"%Other%\\a.exe", {}},
        {"cmd.exe /c echo start C:\\none.exe>\"{InstallerLogDir}a.cmd\"", {}},
        // not there
        {"\"{InstalledDir}Brevnt.exe\"", {"warning B056 2:12 {InstalledDir}Brevant.exe"}},
        {"wscript.exe //B \"{InstalledDir}a.vbs\"", {"warning B056 2:28 {InstalledDir}Task\\a.vbs"}},
        {"powershell -NoProfile -f \"{InstalledDir}x.ps1\"", {"warning B056 2:37"}},
        {"powershell -c \"$a=1; & '{InstalledDir}x.ps1' 1;Start-Process -Wait '{InstalledDir}y.exe' z.ps1\"",
         {"warning B056 2:36", "warning B056 2:80"}},
        {"powershell -Command \"& 'x.ps1'\"", {"warning B056 2:36"}},
        {"powershell -NoProfile -Command \"& '{InstalledDir}Task\\a.vbs'; Remove-Item x.ps1\"", {}},
        {"msiexec /qn /i C:\\setup\\x.msi", {"warning B056 2:27"}},
        {"msiexec /qn /i\"C:\\setup\\x.msi\"", {"warning B056 2:26"}},
        {"msiexec.exe /i{6F1B3A52-0000-4d6e-9F21-7C04B8E2D913} /qn", {}},
        {"cmd.exe /c copy C:\\a C:\\b & \"{InstalledDir}none.cmd\"", {"warning B056 2:40"}},
        {"cmd.exe /c \"call \"{InstalledDir}x y.cmd\" & reg import C:\\x.reg\"",
         {"warning B056 2:29", "warning B056 2:66"}},
        {"cmd.exe /c for %i in (1 2) do start \"t\" /wait C:\\no.exe", {"warning B056 2:58"}},
        {"cmd.exe /c \"C:\\no.exe /q\"", {"warning B056 2:24"}},
        {"wscritp.exe //B", {"warning B056 2:12 wscript.exe"}},
        {"C:\\Windows\\System32\\wscritp.exe", {"warning B056 2:12 C:\\Windows\\System32\\wscript.exe"}},
        {"Brevant.exe /x", {"warning B056 2:12 \"{InstalledDir}Brevant.exe\""}},
        {"wscript.exe Task\\a.vbs", {"warning B056 2:24 \"{InstalledDir}Task\\a.vbs\""}},
        {"regsvr32 /s Vault.dll", {"warning B056 2:24 \"{InstalledDir}Vault.dll\""}},
        {"del C:\\a", {"B056 2:12 cmd.exe /c del C:\\a"}},
        // in users' hands
        {"C:\\ProgramData\\Kazmere\\a.exe", {"warning B057 2:12"}},
        {"cmd.exe /c \"%TEMP%\\a.cmd\"", {"B057 2:23"}},
        {"wscript.exe \"{InstallerLogDir}a.vbs\"", {"B057 2:24"}},
        {"reg.exe import C:\\Users\\Public\\Downloads\\a.reg", {"B057 2:27"}},
        // secrets
        {"net.exe /Password:geheim", {"warning B064 2:30"}},
        {"net.exe --api-token geheim", {"warning B064 2:32"}},
        {"net.exe /password:* token C:\\a /PasswordLength:8", {}},
        {"cmd.exe /c \"net user me geheim /add\"", {"warning B064 2:36"}},
        {"schtasks /create /tn a /ru me /rp geheim", {"warning B064 2:46"}},
        {"net use Z: \\\\s\\a geheim /user:me", {"warning B064 2:29"}},
        {"cmd.exe /c net user me * /add & net use Z: \\\\s\\a /user:me", {}},
    };
    Expect(rows, "[Run]\nSysRunOnce=", "\n");

    m_optInstalled = m_update.MakeFolder(L"installed");
    Write(L"installed\\old.exe", "x");
    Write(L"installed\\drive_c\\Tools\\a.exe", "x");
    const std::string strCommands =
        "[Run]\nSysRunOnce=\"{InstalledDir}old.exe\"\nSysRunOnce=\"{InstalledDir}none.exe\"\nSysRunOnce=C:\\Tools\\a."
        "exe\n";
    EXPECT_THAT(Lint(strCommands), ElementsAre("B056 3:12"));
    EXPECT_THAT(Lint(strCommands + "[QOR_FILE]\ndelete={InstalledDir}o*.exe\n"), ElementsAre("B056 2:12", "B056 3:12"));
    EXPECT_THAT(Lint(strCommands + "[QOR_DIR]\ndelete={InstalledDir}\n"), ElementsAre("B056 2:12", "B056 3:12"));
}

using SuppressionsTest = RulesTest<LintUpdate>;

TEST_F(SuppressionsTest, ACommentTakesTheWarningsOfTheNextLineOrOfAll)
{
    Bring({L"p1\\Share\\Setting\\a.txt", L"r1\\EN-US\\readme.htm"});
    const std::string strHead = "[UPDATE_INFO]\nmodify=S!K!V\n[QOR_REGISTRY_PATCH]\n";
    const std::string strRecord = "add=SAM!N!REG_SZ!{ServiceLogDir}\n";
    const std::string strOther = "add=SAM!O!REG_SZ!{ServiceLogDir}\n";
    const Row rows[] = {
        {strHead + "; BrevantCheck: B012 the folder is for tests\n\n; why\n" + strRecord + strOther, {"B012 8:18"}},
        {strHead + "; BrevantCheck: B011\n; B012\n" + strRecord, {"B012 6:18"}},
        {"; BrevantCheck: B012\n" + strHead + strRecord + strOther, {}},
        {"; BrevantCheck: B021\n" + strHead + "; BrevantCheck: B021\nadd=SAM!N!REG_BINARY!1\n", {"B021 6:11"}},
    };
    Expect(rows);
}
