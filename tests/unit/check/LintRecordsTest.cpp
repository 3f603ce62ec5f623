// The rules for the records of the instruction file.
#include "common/KzComn_NamePattern.h"
#include "unit/check/LintFixture.h"

TEST_F(LintTest, RegistryRecords)
{
    // All deletes, then all adds, then all adds of missing values, in any order of the lines.
    ExpectRecords("QOR_REGISTRY_PATCH", "", R"(
        add=SAM!N!REG_SZ!a$add=SAM!O!REG_SZ!a$delete=SAM\L!N$add_if_non=SAM!P!REG_SZ!a =>
        add=SAM!N!REG_SZ!a$delete=sam\!n => B025w 3:1, B028w 3:8 sam
        add_if_non=SAM!N!REG_SZ!a$delete=SAM!N => B025w 3:1
        add=SAM!N!REG_SZ!a$add=SAM!n!REG_DWORD!1 => B025w 2:1
        add_if_non=SAM!N!REG_SZ!a$add=SAM!N!REG_SZ!b => B025w 2:1
        add_if_non=SAM!N!REG_SZ!a$add=SAM!N!REG_DWORD!1 => B025w 3:1
        add=SAM!N!REG_DWORD!3943305780$add_if_non=SAM!N!REG_DWORD!1 => B025w 2:1, B026w 2:21
        add=SAM!N!REG_SZ!a$add=SAM!N!REG_MULTI_SZ!1 => B021 3:11
    )");
}

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

TEST_F(LintTest, FilesAndFolders)
{
    Bring({L"p1\\Share\\Task\\daily\\t.task"});
    ExpectRecords("QOR_DIR", "", R"(
        add={InstalledDir}a b.c$delete=\\server\share\a$add={InstalledDir}..\a =>
        add=a\b$add=\b$add=C:b$delete=C:\ => B030 2:5 {InstalledDir}a\b, B030 3:5 {InstalledDir}b, B030 4:5, B030 5:8
        add=%InstalledDir%a$add='{InstalledDir}a' => B030 2:5, B030 3:5 {InstalledDir}a
        add=C:\#200#\#56#$add=C:\#200#\#57# => B031 3:5
        delete=C:\a*$add=C:\?\b => B034 2:8, B034 3:5
        add=C:\a|b$add=C:\nul\a$add=C:\a.\b$add=C:\b \c$add=C:\c:d => B035 2:5, B035 3:5, B035 4:5, B035 5:5, B035 6:5
        delete={InstalledDir}Driver$delete={InstalledDir}Drive$delete={InstalledDir}Task => B033 2:8, B033 4:8
        add={InstalledDir}New\a$delete={InstalledDir}new => B033w 3:8
        delete=C:\ProgramData\Kazmere\Old => B038w 2:8
        add=C:\ProgramData\Kazmere\KZVLT\New$add={InteractiveLogDir}Old => B039w 2:5, B012w 3:5, B039w 3:5
        add={InstalledDir}New$add=C:\Kazmere\New =>
    )");
    ExpectRecords("QOR_FILE", "", R"(
        delete={InstalledDir}*.d?l$delete_now=D:\* =>
        delete=old.txt$delete_now={ServiceLogDir}*.log => B030 2:8 {InstalledDir}old.txt, B012w 3:12
        delete="{InstalledDir}a b.*"$delete_now={InstalledDir}"a b"\c
        &  => B030 2:8 {InstalledDir}a b.*, B035 3:12 {InstalledDir}a b\c
        delete=a*\b$delete="a.txt" => B030 2:8, B030 3:8
        delete=C:\#200#\#56#$delete=C:\#200#\#57#$delete=C:\#256# => B031 3:8, B031 4:8
        delete=C:\a*\b$delete_now=C:\a\b<$delete={InstalledDir}Legacy\ => B034 2:8, B035 3:12, B036 4:8
        delete={InstalledDir}A.HTML$delete={InstalledDir}*.htm$delete_now={InstalledDir}a.*
        &  => B033 2:8, B033 3:8, B033w 4:12
        delete={InstalledDir}a.htm$delete={InstalledDir}Legacy\a.html$delete={InstalledDir}UpdateInfo.in =>
        delete={InstalledDir}x\../A.html => B033 2:8
        delete_now={UdComponentsSrcDir}Share\UI\*$delete={UdComponentsSrcDir}Share\UI\* => B033 2:12
        delete={InstalledDir}UpdateInfo.ini => B033 2:8
        delete={ServiceLogDir}*.log$delete={InstallerLogDir}a\*.log
        &  => B012w 2:8, B038w 2:8 delete_now, B038w 3:8 delete_now
        delete=D:\programdata\Kazmere\KZVLT\a.dat$delete=C:\Users\Public\a.txt
        &  => B038w 2:8 delete_now, B038w 3:8 delete_now
        delete=\\?\C:\ProgramData\a.dat$delete=C:\Documents and Settings\Public\a.txt
        &  => B038w 2:8 delete_now, B038w 3:8 delete_now
        delete_now={ServiceLogDir}*.log$delete=C:\ProgramDatas\a$delete={InstalledDir}ProgramData\a => B012w 2:12
        delete=\\server\ProgramData\a$delete=C:\Windows\a =>
    )");
    // The instruction file stays until it is read: no finding without a later reader, or for a deletion at the restart.
    ExpectIn(kInstructionFile, "[QOR_FILE]\n", "\n", R"(
        delete_now={InstalledDir}QorPaFrwk.ini$[Run]$SysRunOnce=net.exe => B037 2:12
        delete_now={InstalledDir}q*.in?$[Run]$SysRunOnce=net.exe => B037 2:12
        delete_now={InstalledDir}x\..\QORPAFRWK.*$[Run]$SysRunOnce=net.exe => B037 2:12
        delete_now={InstalledDir}Q*.ini$[RestartNotification_EN-US]$text=a$text=b => B037w 2:12
        delete_now=\\?\C:\Program Files\Kazmere\KZVLT\q*.ini$[Run]$SysRunOnce=net.exe => B037 2:12
        delete_now={InstalledDir}QorPaFrwk.ini.$[Run]$SysRunOnce=net.exe => B037 2:12
        delete_now={InstalledDir}Q*.ini$[Run] =>
        delete_now={InstalledDir}Task\*.ini$delete_now={InstalledDir}Qor*.in$[Run]$SysRunOnce=net.exe =>
        delete={InstalledDir}Q*.ini$[Run]$SysRunOnce=net.exe =>
    )");
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
