// How the verbs end where something is missing or wrong: the exit code, and words of the output or of the errors.
#include "check/fleet/Rollup.h"
#include "check/ready/Ready.h"
#include "check/sign/CheckSignature.h"
#include "check/simulate/Plan.h"
#include "check/start/NewUpdate.h"
#include "check/trace/TraceSummary.h"
#include "check/undo/Undo.h"
#include "check/update/CommandLine.h"
#include "check/verify/Diff.h"
#include "check/verify/Manifest.h"
#include "check/verify/Verify.h"
#include "unit/check/CheckFixture.h"

#include <shellapi.h>

#include <span>

TEST_F(UpdateTest, EveryVerbSaysWhatIsMissing)
{
    // An update without an instruction file, on a product of which only the folder exists.
    Bring({L"p1\\Share\\Setting\\readme.htm"});
    const TempFolder folder;
    folder.MakeFolder(L"i");
    folder.MakeFolder(L"e");
    folder.MakeFolder(L"f\\QorPaFrwk.ini");
    folder.MakeFolder(L"f\\Component");
    folder.Write(L"empty.json", "");
    folder.Write(L"key.pub",
                 "-----BEGIN PUBLIC KEY-----\nMFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEYnsDr126BgjcMd/JN1UQOy/DaDYc\n"
                 "hJO7K0eZEi6c/GwBZkffrM4kr7U//m1Up81Hq4E0fy/ryaIz6SFvPqe1zw==\n-----END PUBLIC KEY-----\n");
    // "@" means the folder, "#" the update.
    const std::tuple<int (*)(const Arguments&, Output&), const wchar_t*, int, const char*> rows[] = {
        {RunNew, L"@empty.json", kCannotRead, "empty.json: is a file\n"},
        {RunLint, L"@none", kCannotRead, "none: cannot be read: "},
        {RunLint, L"@e", kCannotRead, "e: not an update: "},
        {RunLint, L"@f", kCannotRead, "QorPaFrwk.ini: cannot be read: access denied"},
        {RunLint, L"# --installed @none", kCannotRead, "none: cannot be read: "},
        {RunPlan, L"#", kCannotRead, "no product is installed on this machine; "},
        {RunPlan, L"# --installed @none", kCannotRead, "none: cannot be read: no such folder"},
        {RunPlan, L"# --installed @i", kClean, "readme.htm"},
        {RunPlan, L"# --language A --language B", kWrongUse, "--language: "},
        {RunReady, L"# --installed @none", kCannotRead, "none: cannot be read: no such folder"},
        {RunManifest, L"@e", kCannotRead, "e: not an update: "},
        {RunCheckSignature, L"# --key @key.pub", kCannotRead, "QorUpdate.json: cannot be read: "},
        {RunSign, L"#", kWrongUse, "--with COMMAND is missing\n"},
        {RunSign, L"# --with none.exe", kCannotRead, "none.exe: no such file"},
        {RunSign, L"# --with \"cmd.exe /c exit 7 &rem\"", kCannotRead, "ended with exit code 7\n"},
        {RunCheckSignature, L"#", kWrongUse, "--key FILE is missing\n"},
        {RunCheckSignature, L"# --key @none", kCannotRead, "none: cannot be read: "},
        {RunCheckSignature, L"# --key @empty.json", kCannotRead, " on the curve P-256 in PEM\n"},
        {RunUndo, L"#", kWrongUse, "--output NEW is missing: "},
        {RunUndo, L"# --output @", kCannotRead, ": is not empty; "},
        {RunUndo, L"# --output @new --installed @i", kClean, "{InstalledDir}UpdateInfo.ini: an update needs it\n"},
        {RunDiff, L"# @none", kCannotRead, "none: cannot be read: "},
        {RunDiff, L"@empty.json #", kCannotRead, "empty.json: "},
        {RunVerify, L"--pending arrived", kWrongUse, "--pending: only with --detect\n"},
        {RunVerify, L"", kCannotRead, "no product is installed on this machine; "},
        {RunVerify, L"--installed @none", kCannotRead, "none: no such folder; "},
        {RunVerify, L"--installed @i", kCannotRead, "no update on this machine has brought its manifest"},
        {RunVerify, L"@none --installed @i", kCannotRead, "none: cannot be read: "},
        {RunRollup, L"@none", kCannotRead, "none: cannot be read: "},
        {RunRollup, L"@e --machines @none", kCannotRead, "none: cannot be read: "},
        {RunRollup, L"@", kFound, "ignored: "},
        {RunRollup, L"@e", kFound, "0 machines"},
        {RunTrace, L"@none", kCannotRead, "none: cannot be read: "},
        {RunTrace, L"@empty.json", kCannotRead, "empty.json: "},
    };
    for (const auto& [pfnRun, szLine, iExitCode, szText] : rows) {
        std::wstring tstrLine = szLine;
        KzCommon::String::ReplaceAll(tstrLine, L"@", folder.Path());
        KzCommon::String::ReplaceAll(tstrLine, L"#", m_update.Path());
        int cWords = 0;
        wchar_t** const words = ::CommandLineToArgvW((L"BrevantCheck.exe verb " + tstrLine).c_str(), &cWords);
        const Verb verb{L"verb", L"", L"", ~0U, 0, SIZE_MAX, pfnRun};
        Output output;
        EXPECT_EQ(RunCommandLine({&verb, 1}, std::span(words, cWords).subspan(1), output), iExitCode) << tstrLine;
        EXPECT_THAT(output.strText + KzCommon::String::ToUtf8(output.tstrErrors), HasSubstr(szText)) << tstrLine;
        ::LocalFree(words);
    }
}

// A standard user can keep the file open, so that no program can read it.
TEST_F(UpdateTest, ASignatureDoesNotCountWhileTheInstalledVersionCannotBeRead)
{
    constexpr std::string_view kSignature =
        "3046022100a8b67c44baa6ddf062c2bc07bcda113ac7a941b3417f01a5a9887a2b2a07c9bc022100f764b636e61465aa9d12"
        "f31ec4999dbf883eaae51368f8a3e01239e1f7bda416";
    std::string strSignature;
    for (std::size_t u = 0; u < kSignature.size(); u += 2) {
        strSignature += static_cast<char>(std::stoi(std::string(kSignature.substr(u, 2)), nullptr, 16));
    }
    Write(L"Component\\p1\\Share\\Setting\\QorUpdate.json.sig", strSignature);
    Write(
        L"Component\\p1\\Share\\Setting\\QorUpdate.json",
        R"({"format": 2, "component": {"product": "p1", "resource": ""}, "folders": [], "files": [], "deletions": [], "registry": [],
"update_information": [{"section": "S", "key": "A_Version", "value": "1.0"}], "not_covered": [], "languages": [],
"update": "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb",
"contents": [{"file": "a", "size": 1, "sha256": "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"}]})");
    const TempFolder folder;
    folder.Write(L"key.pub",
                 "-----BEGIN PUBLIC KEY-----\nMFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEsFIVy061PCpFHony5TXzTogj6cFv\n"
                 "OT3LPD+f6WfEAuPX2WX25mG3+iW5/GWPcYcVZc469JMqxP1dThAnqN278g==\n-----END PUBLIC KEY-----\n");
    folder.Write(L"UpdateInfo.ini", "[S]\nA_Version=9.0\n");
    Arguments arguments;
    arguments.operands = {m_update.Path()};
    arguments.keys = {folder.Path() + L"key.pub"};
    arguments.optInstalled = folder.Path();
    const auto told = [&] {
        Output output;
        EXPECT_EQ(RunCheckSignature(arguments, output), kFound);
        return "\n" + output.strText;
    };
    EXPECT_THAT(told(), HasSubstr("\nA_Version: 1.0 is older than the installed 9.0; --older accepts it\n"));
    folder.Write(L"UpdateInfo.ini", "[S]\nA_Version=9.0 beta\n");
    EXPECT_THAT(told(),
                HasSubstr("\nA_Version: 1.0 and the installed 9.0 beta cannot be compared; --older accepts that\n"));
    const KzCommon::UniqueFile held = Hold(folder.Path() + L"UpdateInfo.ini", false);
    EXPECT_THAT(told(), HasSubstr("UpdateInfo.ini: the installed version cannot be read: another program has the file "
                                  "open; --older accepts that\n"));
    arguments.bOlder = true;
    EXPECT_THAT(told(), Not(HasSubstr("version")));
}
