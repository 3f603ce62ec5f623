#include "check/lint/Report.h"
#include "check/update/CommandLine.h"
#include "check/update/HostPaths.h"
#include "check/update/LongPath.h"
#include "unit/check/CheckFixture.h"

#include <gmock/gmock.h>
#include <windows.h>
#include <json/json.h>
#include <shellapi.h>

#include <set>
#include <sstream>

using namespace testing;
using namespace Check;

namespace {

Report Sample()
{
    Report report;
    report.Add(Rule::eNoTagPath, L"b \u00FC\\#1.xml", {}, L"whole file");
    report.Add(Rule::eNoRecord, L"a.ini", {10, 1}, L"later");
    report.Add(Rule::eUnknownKey, L"a.ini", {9, 12}, L"key", L"add");
    report.AddAs(Severity::eWarning, Rule::eUnknownKey, L"C:\\i\\x.ini", {9, 2}, L"elsewhere");
    return report;
}

}  // namespace

TEST(ReportTest, LinesAreSortedByPathAndPlaceAndCounted)
{
    EXPECT_EQ(FormatText(Sample(), L"/tmp/u"),
              L"C:\\i\\x.ini:9:2: warning B005: elsewhere\n"
              L"/tmp/u/a.ini:9:12: error B005: key; did you mean \"add\"?\n"
              L"/tmp/u/a.ini:10:1: error B002: later\n"
              L"/tmp/u/b \u00FC/#1.xml: error B060: whole file\n"
              L"3 errors, 1 warning\n");
    EXPECT_THAT(FormatText(Sample(), L"C:/v\\u\\"), HasSubstr(L"\nC:/v\\u\\a.ini:9:12: "));
    EXPECT_EQ(FormatText({}, L""), L"0 errors, 0 warnings\n");
}

TEST(ReportTest, TextsOfAFileStayOnOneLine)
{
    Report report;
    report.Add(Rule::eUnknownKey, L"a.ini", {1, 1}, L"a\r\n\x1B[2Jb" + std::wstring(5000, L'x'), L"c\x9B");
    const Finding finding = report.Sorted().front();
    EXPECT_THAT(finding.tstrText, AllOf(StartsWith(L"a   [2Jbxxx"), EndsWith(L"xxx..."), SizeIs(2003)));
    EXPECT_EQ(finding.tstrSuggestion, L"c ");
}

// Readers of the format depend on these members.
TEST(ReportTest, SarifNamesEveryRuleAndThePlaceOfEveryFinding)
{
    Report report = Sample();
    ::SetEnvironmentVariableW(L"BREVANT_GUIDES", L"https://guides.example/b");
    for (const RuleRow& row : Rules()) report.Add(row.eRule, L"Component\\f.ini", {1, 0}, L"half \xD83D");
    Json::Value log;
    const std::string strLog = FormatSarif(report, L"\\\\server\\\u00DC x\\", {});
    ::SetEnvironmentVariableW(L"BREVANT_GUIDES", nullptr);
    EXPECT_THAT(FormatSarif(report, L"C:\\", {}), HasSubstr("/guides/check-rules.md#b001-encoding\""));
    EXPECT_THAT(strLog, Each(Truly([](char ch) { return ch == '\n' || (ch >= ' ' && ch <= '~'); })));
    std::istringstream(strLog) >> log;
    EXPECT_EQ(log["version"], "2.1.0");
    const Json::Value& run = log["runs"][0];
    EXPECT_EQ(run["columnKind"], "utf16CodeUnits");
    EXPECT_EQ(run["originalUriBaseIds"]["UPDATE"]["uri"], "file://server/%C3%9C%20x/");
    const Json::Value& rules = run["tool"]["driver"]["rules"];
    EXPECT_THAT(rules[0]["helpUri"].asString(), EndsWith("#b001-encoding")) << "the heading's anchor";
    std::set<std::string> ids;
    for (const Json::Value& rule : rules) {
        EXPECT_TRUE(ids.insert(rule["id"].asString()).second) << rule["id"];
        EXPECT_THAT(rule["help"]["text"].asString(), EndsWith(".")) << rule["id"];
        EXPECT_THAT(rule["helpUri"].asString(), StartsWith("https://guides.example/b/check-rules.md#b")) << rule["id"];
    }
    const Json::Value& results = run["results"];
    ASSERT_EQ(results.size(), 4U + Rules().size());
    EXPECT_EQ(results[0]["level"], "warning") << "differs from its rule";
    for (const Json::Value& result : results) EXPECT_EQ(result["ruleId"], rules[result["ruleIndex"].asUInt()]["id"]);
    const std::pair<Json::ArrayIndex, const char*> places[] = {
        {0, R"({"artifactLocation":{"uri":"file:///C:/i/x.ini"},"region":{"startColumn":2,"startLine":9}})"},
        {1, R"({"artifactLocation":{"uri":"Component/f.ini","uriBaseId":"UPDATE"},"region":{"startLine":1}})"},
        {results.size() - 1, R"({"artifactLocation":{"uri":"b%20%C3%BC/%231.xml","uriBaseId":"UPDATE"}})"},
    };
    Json::StreamWriterBuilder oneLine;
    oneLine["indentation"] = "";
    for (const auto& [uResult, szPlace] : places) {
        EXPECT_EQ(Json::writeString(oneLine, results[uResult]["locations"][0]["physicalLocation"]), szPlace);
    }
}

// What is written in the place of a wrong word, by the families' own findings.
TEST_F(UpdateTest, SarifOffersTheRightWordAsAFix)
{
    Bring({L"p1\\64bit\\p1\\a.exe"});
    Write(L"Component\\p1\\Share\\Setting\\config_EN-US.xml", "<C><Sync><Minutes>1</Minutes></Sync></C>");
    Instruct(
        "; one line more\n[QOR_DIRR]\nadd={InstalledDir}a\n[QOR_FILE]\n  "
        "Delete={InstalledDir}a\ndelete={InstaledDir}b\n"
        "[QOR_REGISTRY_PATCH]\nadd=@!n!REG_QWORD!1\nadd=@!n!REG_DWORD!0x10\nadd=SOFTWAR\\a!n!REG_SZ!x\n"
        "[QOR_CONFIG_MERGE]\nmigrate=/Sync/Minute\nmigrate=/Sync/Minute\nmigrate=\\Sync\\Minutes\n");
    Arguments arguments;
    arguments.operands = {m_update.Path()};
    arguments.eFormat = Format::eSarif;
    const auto fixes = [&](std::vector<std::string>& fingerprints) {
        Output output;
        EXPECT_EQ(RunLint(arguments, output), kFound);
        Json::Value log;
        std::istringstream(output.strText) >> log;
        std::vector<std::string> found;
        for (const Json::Value& result : log["runs"][0]["results"]) {
            fingerprints.push_back(result["partialFingerprints"]["brevantFinding/v1"].asString());
            if (!result.isMember("fixes")) continue;
            const Json::Value& change = result["fixes"][0]["artifactChanges"][0];
            EXPECT_EQ(change["artifactLocation"], result["locations"][0]["physicalLocation"]["artifactLocation"]);
            const Json::Value& region = change["replacements"][0]["deletedRegion"];
            found.push_back(result["ruleId"].asString() + " " + region["startLine"].asString() + ":" +
                            region["startColumn"].asString() + "-" + region["endColumn"].asString() + " " +
                            change["replacements"][0]["insertedContent"]["text"].asString());
        }
        return found;
    };
    std::vector<std::string> before;
    EXPECT_THAT(fixes(before),
                ElementsAre("B003 2:2-10 QOR_DIR", "B005 5:3-9 delete", "B010 6:8-21 {InstalledDir}",
                            "B021 8:22-31 REG_QDWORD", "B022 9:32-36 16", "B028 10:5-14 SOFTWARE\\a",
                            "B061 12:9-21 /Sync/Minutes", "B061 13:9-21 /Sync/Minutes", "B060 14:9-22 /Sync/Minutes"));
    EXPECT_EQ(std::set(before.begin(), before.end()).size(), before.size()) << "each finding has one of its own";

    Write(kInstructionFile, "; a line above\n" + m_update.Read(kInstructionFile).value_or(""));
    std::vector<std::string> after;
    static_cast<void>(fixes(after));
    EXPECT_EQ(before, after) << "places do not count";
}

TEST(HostPathsTest, FilesOfTheHostsDriveGetTheHostsNames)
{
    const wchar_t szText[] =
        L"XYZ:\\b Z:\\a b\\c.ini: x <- Z:\\u  (the place of \\\\?\\Z:\\y) run \"Z:\\i\" A\\Z, B\\Z:\\b, Z:\\d, Z:c - x";
    EXPECT_EQ(WithHostPaths(szText, L"Z:"),
              L"XYZ:\\b /a b/c.ini: x <- /u  (the place of /y) run \"/i\" A\\Z, B\\/b, /d, Z:c - x");
    EXPECT_EQ(WithHostPaths(szText, L""), szText);
    for (const wchar_t ch : std::wstring_view(L"\"<>|*?;\r\n"))
        EXPECT_EQ(WithHostPaths(std::wstring(L"Z:\\a") + ch + L"\\b", L"Z:"), std::wstring(L"/a") + ch + L"\\b");
    EXPECT_EQ(HostPathOf(L"z:\\a\\", L"Z:"), L"/a/");
    for (const auto& [szPath, szLong] : {std::pair(L"C:\\a", L"\\\\?\\C:\\a"),
                                         {L"\\\\s\\a", L"\\\\?\\UNC\\s\\a"},
                                         {L"\\\\?\\C:\\a", L"\\\\?\\C:\\a"},
                                         {L"a\\b", L"a\\b"}})
        EXPECT_EQ(AtAnyLength(szPath), szLong);
    EXPECT_EQ(WithoutPrefix(L"\\\\.\\C:\\a") + WithoutPrefix(L"\\\\?\\UNC\\s") + WithoutPrefix(L"\\\\?\\C:"),
              L"C:\\a\\\\?\\UNC\\s\\\\?\\C:");
    EXPECT_EQ(HostPathOf(L"C:\\a", L"Z:"), std::nullopt);
    Json::Value value;
    value["a"].append("Z:\\b");
    ShowHostPaths(value, L"Z:");
    EXPECT_EQ(value["a"][0].asString(), "/b");
}

TEST(CommandLineTest, WrongUseHelpAndARunHaveTheirExitCodes)
{
    static Arguments s_arguments;
    const auto run = [](const Arguments& arguments, Output&) -> int {
        s_arguments = arguments;
        return kFound;
    };
    const Verb verb{L"lint", L"UPDATE", L"help", kInstalled | kLanguage | kStrict | kFormatSarif, 1, 1, run};
    const std::pair<int, std::vector<const wchar_t*>> rows[] = {
        {kFound, {L"lint u", L"lint u --format sarif --language A --language B", L"lint -- --u"}},
        {kClean, {L"lint --help", L"--help", L"--version"}},
        {kWrongUse, {L"", L"lnit u", L"lint", L"lint u v", L"lint u --all", L"lint u --format json"}},
        {kWrongUse, {L"lint u --installed", L"lint u --installed \"\"", L"--version u"}},
    };
    for (const auto& [iExitCode, lines] : rows) {
        for (const std::wstring tstrLine : lines) {
            int cWords = 0;
            wchar_t** const words = ::CommandLineToArgvW((L"BrevantCheck.exe " + tstrLine).c_str(), &cWords);
            Output output;
            EXPECT_EQ(RunCommandLine({&verb, 1}, std::span(words, cWords).subspan(1), output), iExitCode) << tstrLine;
            EXPECT_EQ(output.tstrErrors.empty(), iExitCode != kWrongUse) << tstrLine;
            ::LocalFree(words);
        }
    }
    EXPECT_THAT(s_arguments.operands, ElementsAre(L"--u"));
}
