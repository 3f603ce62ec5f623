// The rules for the records of the instruction file.
#include "common/KzComn_NamePattern.h"
#include "unit/check/LintFixture.h"

TEST_F(LintTest, RegistryValuesAsTheInstalledProductHasThem)
{
    const auto expect = [&](const std::string& strTable) {
        ExpectRecords("QOR_REGISTRY_PATCH", "", strTable);
    };
    expect(R"(add=software\vault!theme!REG_DWORD!1 =>)");
    Install();
    Write(L"installed\\registry.reg",
          "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vault]\n\"Theme\"=\"dark\"\n\"Columns\"=dword:00000004\n"
          "\"Version\"=\"3.9.0.1105\"\n");
    expect(R"(
        add=software\vault!theme!REG_DWORD!1$add_if_non=SOFTWARE\Vault!Columns!REG_QDWORD!1 => B120w 2:26, B120w 3:35
        add=SOFTWARE\Vault!Theme!REG_SZ!a$add=SOFTWARE\Vault!New!REG_SZ!a$add=SAM\Vault!Theme!REG_DWORD!1 =>
        add=SOFTWARE\Vault!Version!REG_SZ!3.8.0.999 => B046w 2:35
        add=SOFTWARE\Vault!Version!REG_SZ!3.10.0.1$add_if_non=SOFTWARE\Vault!Theme!REG_SZ!1.0 =>
    )");
    // Without that file this machine counts, when the product is its own.
    Remove(L"installed\\registry.reg");
    WriteProduct(L"Version", L"3.9.0.1105");
    expect(R"(add=Software\Kazmere\KZVLT!Version!REG_SZ!3.8.1 =>)");
    WriteProduct(L"ProductPath", *m_optInstalled);
    expect(R"(add=Software\Kazmere\KZVLT!Version!REG_SZ!3.8.1 => B046w 2:43)");
}

TEST_F(LintTest, PathsThatAreTooLong)
{
    // 259 characters in the default download folder, and one more.
    const std::wstring tstrFile = std::wstring(120, L'd') + L"\\" + std::wstring(83, L'f');
    for (const wchar_t* const szEnd : {L"", L"2"}) Bring({L"p1\\Share\\Task\\e" + tstrFile + szEnd});
    Bring({L"p1\\Share\\Task\\" + tstrFile});
    EXPECT_EQ(Lint(""), "B031 Component\\p1\\Share\\Task\\e" + ToUtf8(tstrFile));
}

TEST(PatternTest, MatchesAsWindowsListsFiles)
{
    const std::tuple<const wchar_t*, std::vector<const wchar_t*>, std::vector<const wchar_t*>> rows[] = {
        // name, patterns that match, patterns that do not
        {L"a.txt", {L"*", L"A.T?T", L"a?.txt", L"a.txt?", L"a.txt. ", L"*xt."}, {L"?.tx", L"?????", L"*."}},
        {L"a", {L"*.*", L"a.?", L"*."}, {L"a.b*", L"ab"}},
        {L"aXbXc", {L"a*b*c"}, {L"a*b", L"ab*"}},
        {L"ab.html", {L"*.htm", L"a*.htm", L"*.html"}, {L"ab.htm", L"?b.htm", L"a?.htm", L"*.htm?l"}},
        {L"seventh.html", {}, {L"*h.htm"}},
        {L"a.b.c", {L"*.?"}, {}},
    };
    for (const auto& [szName, matching, others] : rows) {
        for (const bool bMatch : {true, false}) {
            for (const wchar_t* const szPattern : bMatch ? matching : others)
                EXPECT_EQ(KzCommon::Storage::File::MatchesPattern(szName, szPattern), bMatch) << szName << szPattern;
        }
    }
}

// A deletion lists its files during the run, when the update's own files do not exist yet, except those copied at once.
TEST_F(LintTest, FilesAndFoldersOfTheInstalledProduct)
{
    Install();
    Write(L"installed\\Driver\\x", "");
    Bring({L"p1\\Share\\Patterns\\p.ptn", L"p1\\Share\\Task\\daily\\t.task"});
    EXPECT_EQ(Lint("[QOR_DIR]\nadd={InstalledDir}Task\\daily\n"),
              "B032 Component\\p1\\Share\\Patterns\\p.ptn add={InstalledDir}Patterns");
    const std::string strFolders = "[QOR_DIR]\nadd={InstalledDir}Task\\daily\nadd={InstalledDir}Patterns\n";
    ExpectIn(kInstructionFile, strFolders + "[QOR_FILE]\n", "\n", R"(
        delete={InstalledDir}a.html$delete_now={InstalledDir}Driver\*$delete={InstalledDir}Driver => B033 6:12, B036 7:8
    )");
    Write(L"installed\\a.html", "");
    EXPECT_EQ(Lint(strFolders + "[QOR_FILE]\ndelete={InstalledDir}a.html\n"), "B033 5:8");
}

TEST_F(LintTest, UpdateInformation)
{
    ExpectIn(kInstructionFile, "", "\n[QOR_DIR]\nadd=C:\\a\n[QOR_FILE]\ndelete=C:\\*.none", R"(
        [UPDATE_INFO]$nothing => B002 2:1
        [UPDATE_INFO]$; nothing => B042w 1:2
    )");
    Write(kInstructionFile, "[QOR_DIR]\nadd=C:\\a\n[QOR_FILE]\ndelete=C:\\*.none");
    EXPECT_EQ(Findings(), "B042w");
    Bring({L"p1\\Share\\Setting\\updateinfo.INI"});
    EXPECT_EQ(Lint(""), "B041 Component\\p1\\Share\\Setting\\updateinfo.INI");
    for (const wchar_t* const szName : {L"a.txt", L"updateinfo.INI", L""}) Remove(m_tstrSetting + szName);
    EXPECT_EQ(Lint(""), "B042w 5:2") << "without settings the records have no effect";
}

// The installed file is the one that is changed; without it the update's.
TEST_F(LintTest, UpdateInformationStoresTexts)
{
    const auto lint = [&] {
        Write(kInstructionFile, Utf16(L"[UPDATE_INFO]\nmodify=S!K!V \u6f22\n[QOR_DIR]\nadd=C:\\a\n[QOR_FILE]\n"
                                      L"delete=C:\\*.none\n"));
        return Findings();
    };
    EXPECT_EQ(lint(), "B043 2:14") << "the update's own file is ASCII";
    const std::string strInfo = Utf16(KzCommon::String::FromAnsi(kInfo));
    Install();
    for (const auto& [strBytes, szFindings] : {std::pair(strInfo, ""),
                                               {strInfo.substr(2), "B043 2:14"},
                                               {"\xEF\xBB\xBF[S]\nK=1\n", "B043 2:14"},
                                               {std::string("[S]\nK=1\n"), "B043 2:14"}}) {
        Write(L"installed\\UpdateInfo.ini", strBytes);
        EXPECT_EQ(lint(), szFindings) << strBytes.size();
    }
    m_optInstalled.reset();
    Write(L"UpdateInfo.ini", strInfo);
    EXPECT_EQ(lint(), "");
    Remove(L"UpdateInfo.ini");
    EXPECT_THAT(lint(), HasSubstr("B043w 2:14")) << "the file is unknown";
}

TEST_F(LintTest, Commands)
{
    Bring({L"p1\\Share\\Task\\a.vbs", L"p1\\Share\\Task\\a b.cmd", L"p1\\Share\\Task\\b.reg",
           L"p1\\64bit\\p1\\Vault.dll"});
    // Expanded, {InstalledDir} has 17 characters more.
    ExpectRecords("Run", "SysRunOnce=", R"(
        net.exe "C:\b c\d"$cmd.exe /c echo {InstalledDir}>"{InstalledDir}a.txt" =>
        cmd.exe /c ""{InstalledDir}Task\a b.cmd" /q"$cmd.exe /c "del /q "{InstalledDir}a*"" =>
        cmd.exe /c if exist C:\a start "" "{InstalledDir}Brevant.exe"$sc.exe config a binPath= "\"{InstalledDir}a.exe\" /k" =>
        net.exe /c echo Done! => B050 2:32
        net.exe "{InstalledDir}#219#"$net.exe "{InstalledDir}#220#"$net.exe "{InstalledDir}#970#" => B051 3:12, B051 4:12
        wscript.exe {InstalledDir}Task\a.vbs$cmd.exe /c echo a>{InstalledDir}b => B052 2:24, B052 3:30
        cmd.exe /c copy "{InstalledDir}a" {InstalledDir}b$xcopy.exe "{InstalledDir}Task\" {InstalledDir}b
        &  => B052 2:46, B052 3:44
        C:\Program Files\a\b.exe /s => B052 2:12 "C:\Program Files\a\b.exe"
        wscript.exe "{UdComponentsSrcDir}Share\Task\a.vbs"$xcopy.exe "{InstalledDir}component\P1\Share\Task" C:\a
        &  => B053 2:12, B053 3:12
        cmd.exe /c copy "{UdComponentsSrcDir}Share\Task\*.vbs" C:\a => B053 2:12
        cmd.exe /c rd /s /q "{UdComponentsSrcDir}"$cmd.exe /c copy "{UdComponentsSrcDir}64bit\p1\Driver\k.ini" C:\ =>
        Task\a.exe$net.exe Task\a.vbs => B054w 2:12
        net.exe C:\KbFilter.ini$net.exe C:\kbfilter.ini => B055w 2:23 kbfilter.ini
    )");
    // The file that a command starts exists, or the checker cannot know.
    ExpectRecords("Run", "SysRunOnce=", R"(
        "{InstalledDir}Brevant" /x$cscript.exe //B //nologo "{InstalledDir}Task\A.VBS" none.vbs$%Other%\a.exe =>
        reg.exe import "{InstalledDir}Task\b.reg"$rundll32 "{InstalledDir}Vault.dll",Register none.dll =>
        rundll32.exe shell32.dll,Control_RunDLL$C:\Windows\System32\ofanotherversion.exe /u =>
        %SystemRoot%\System32\cmd.exe /q /c if not exist C:\a ("%ComSpec%" /c rd C:\b) & del C:\c =>
        msiexec.exe /x {6F1B3A52-0000-4d6e-9F21-7C04B8E2D913} /qn$msiexec.exe /i{6F1B3A52-0000-4d6e-9F21-7C04B8E2D913} /qn =>
        cmd.exe /c echo start C:\none.exe>"{InstallerLogDir}a.cmd" =>
        C:\b\a.exe c\d "C:\Program Files\a"$C:\b\a C:\c\d => B056w 2:12, B056w 3:12
        wscript.exe "{UdComponentsSrcDir}Share\Task\b.vbs" => B056 2:24
        "{InstalledDir}Brevnt.exe" => B056w 2:12 {InstalledDir}Brevant.exe
        wscript.exe //B "{InstalledDir}a.vbs" => B056w 2:28 {InstalledDir}Task\a.vbs
        powershell -NoProfile -f "{InstalledDir}x.ps1"$msiexec /qn /i C:\setup\x.msi$msiexec /qn /i"C:\setup\x.msi"
        &  => B056w 2:37, B056w 3:27, B056w 4:26
        cmd.exe /c copy C:\a C:\b & "{InstalledDir}none.cmd" => B056w 2:40
        cmd.exe /c (ping 1 & C:\no\b.exe)$cmd.exe /c if exist C:\a (net use) else (if a==b (ping.exe)) & sc => B056w 2:33
        cmd.exe /c "call "{InstalledDir}x y.cmd" & reg import C:\x.reg" => B056w 2:29, B056w 2:66
        cmd.exe /c for %i in (1 2) do start "t" /wait C:\no.exe$cmd.exe /c "C:\no.exe /q" => B056w 2:58, B056w 3:24
        wscritp.exe //B$C:\Windows\System32\wscritp.exe
        &  => B056w 2:12 wscript.exe, B056w 3:12 C:\Windows\System32\wscript.exe
        Brevant.exe /x$wscript.exe Task\a.vbs
        &  => B056w 2:12 "{InstalledDir}Brevant.exe", B056w 3:24 "{InstalledDir}Task\a.vbs"
        regsvr32 /s Vault.dll$del C:\a => B056w 2:24 "{InstalledDir}Vault.dll", B056 3:12 cmd.exe /c del C:\a
        C:\ProgramData\Kazmere\a.exe$cmd.exe /c "%TEMP%\a.cmd" => B057w 2:12, B057 3:23
        wscript.exe "{InstallerLogDir}a.vbs"$reg.exe import C:\Users\Public\Downloads\a.reg => B057 2:24, B057 3:27
        powershell -c "Get-Date; & '{InstalledDir}x.ps1' 1;Start-Process -Wait '{InstalledDir}y.exe' z.ps1"
        &  => B056w 2:40, B056w 2:84
        powershell -Command "& 'x.ps1'"$powershell -Command "& '{InstalledDir}Task\a.vbs'; Remove-Item x.ps1"
        &  => B056w 2:36
        powershell -c "if(1){C:\no.ps1 }" => B056w 2:33
        net.exe /Password:geheim$net.exe --api-key geheim => B064w 2:30, B064w 3:30
        cmd.exe /c "net user me geheim /add"$schtasks /create /tn a /ru me /rp geheim => B064w 2:36, B064w 3:46
        net use Z: \\s\a geheim /user:me$cmd.exe /c net user me * /add & net use Z: \\s\a /user:me => B064w 2:29
        net.exe /password:* token C:\a /PasswordLength:8 =>
    )");
    Install();
    Write(L"installed\\Old\\old.exe", "x");
    Write(L"installed\\drive_c\\Tools\\a.exe", "x");
    ExpectRecords("Run", "SysRunOnce=", R"(
        "{InstalledDir}Old\old.exe"$"{InstalledDir}none.exe"$C:\Tools\a.exe => B056 3:12
    )");
    ExpectIn(kInstructionFile, "[Run]\nSysRunOnce=\"{InstalledDir}Old\\old.exe\"\n", "\n", R"(
        [QOR_FILE]$delete={InstalledDir}Old\o*.exe => B056 2:12
        [QOR_DIR]$delete={InstalledDir}Old => B056 2:12
    )");
}

TEST_F(LintTest, ACommentTakesTheWarningsOfTheNextLineOrOfAll)
{
    ExpectRecords("QOR_FILE", "", R"(
        ; BrevantCheck: B012 the folder is for tests$$; why$delete_now={ServiceLogDir}a$delete_now={ServiceLogDir}b
        &  => B012w 6:12
        ; BrevantCheck: B011$; B012$delete_now={ServiceLogDir}a => B012w 4:12
        ; BrevantCheck: B036$delete={InstalledDir}Legacy\ => B036 3:8
    )");
    EXPECT_EQ(Lint("; BrevantCheck: B012\n[QOR_FILE]\ndelete_now={ServiceLogDir}a\ndelete_now={ServiceLogDir}b\n"), "");
}
