#include "check/lint/Report.h"
#include "check/update/CommandLine.h"
#include "check/update/Suggestion.h"

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
    EXPECT_THAT(FormatText(Sample(), L"C:\\u\\"), HasSubstr(L"\nC:\\u\\a.ini:9:12: "));
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

// What readers of the format rely on.
TEST(ReportTest, SarifNamesEveryRuleAndThePlaceOfEveryFinding)
{
    Report report = Sample();
    for (const RuleRow& row : Rules()) report.Add(row.eRule, L"Component\\f.ini", {1, 0}, L"half \xD83D");
    Json::Value log;
    const std::string strLog = FormatSarif(report, L"\\\\server\\\u00DC x\\");
    EXPECT_THAT(strLog, Each(Truly([](char ch) { return ch == '\n' || (ch >= ' ' && ch <= '~'); })));
    std::istringstream(strLog) >> log;
    EXPECT_EQ(log["version"], "2.1.0");
    const Json::Value& run = log["runs"][0];
    EXPECT_EQ(run["columnKind"], "utf16CodeUnits");
    EXPECT_EQ(run["originalUriBaseIds"]["UPDATE"]["uri"], "file://server/%C3%9C%20x/");
    const Json::Value& rules = run["tool"]["driver"]["rules"];
    std::set<std::string> ids;
    for (const Json::Value& rule : rules) {
        EXPECT_TRUE(ids.insert(rule["id"].asString()).second) << rule["id"];
        EXPECT_THAT(rule["help"]["text"].asString(), EndsWith(".")) << rule["id"];
    }
    const Json::Value& results = run["results"];
    ASSERT_EQ(results.size(), 4U + Rules().size());
    EXPECT_EQ(results[0]["level"], "warning") << "unlike its rule";
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

TEST(SuggestionTest, ASlipIsFoundAndAnotherWordIsNot)
{
    const std::vector<std::wstring> words{L"add", L"add_if_non", L"SysRunOnce"};
    const std::pair<const wchar_t*, std::vector<const wchar_t*>> rows[] = {
        {L"add", {L"Add", L"dad", L"ad"}},
        {L"add_if_non", {L"add_if_none", L"tad_if_nan"}},
        {L"SysRunOnce", {L"SystemRunOnce"}},
        {L"", {L"delete", L""}},
    };
    for (const auto& [szNear, slips] : rows) {
        for (const wchar_t* const szWord : slips) EXPECT_EQ(NearestOf(szWord, words), szNear) << szWord;
    }
}

TEST(CommandLineTest, WrongUseIsToldFromAHelpRequestAndARun)
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
        {kWrongUse, {L"lint u --installed", L"lint u --installed \"\""}},
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
