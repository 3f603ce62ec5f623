#include "check/CommandLine.h"
#include "check/Report.h"
#include "check/Suggestion.h"

#include <gmock/gmock.h>
#include <json/json.h>

#include <memory>
#include <set>

using namespace testing;
using namespace Check;

namespace {

Report Sample()
{
    Report report;
    report.Add(Rule::eNoTagPath, L"b \u00FC\\#1.xml", {}, L"whole file");
    report.Add(Rule::eUnknownKey, L"a.ini", {10, 1}, L"later");
    report.Add(Rule::eUnknownKey, L"a.ini", {9, 12}, L"key", L"add");
    report.AddAs(Severity::eWarning, Rule::eUnknownKey, L"C:\\i\\x.ini", {9, 2}, L"elsewhere");
    return report;
}

Json::Value ParseJson(const std::string& strText)
{
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    EXPECT_TRUE(reader->parse(strText.data(), strText.data() + strText.size(), &value, nullptr));
    return value;
}

const std::string kSmall = "abcdefghijklmnopqrstuvwxyz";

bool IsMadeOf(const std::string& strText, const std::string& strCharacters)
{
    return !strText.empty() && strText.find_first_not_of(strCharacters) == std::string::npos;
}

}  // namespace

TEST(ReportTest, LinesAreSortedByPathAndPlaceAndCounted)
{
    EXPECT_EQ(FormatText(Sample(), L"/tmp/u"),
              L"C:\\i\\x.ini:9:2: warning B005: elsewhere\n"
              L"/tmp/u/a.ini:9:12: error B005: key; did you mean \"add\"?\n"
              L"/tmp/u/a.ini:10:1: error B005: later\n"
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
    EXPECT_TRUE(finding.tstrText.starts_with(L"a   [2Jbxxx") && finding.tstrText.ends_with(L"xxx..."));
    EXPECT_EQ(finding.tstrSuggestion, L"c ");
}

// What the format's schema asks for.
TEST(ReportTest, SarifHasTheMembersThatReadersRelyOn)
{
    Report report = Sample();
    for (const RuleRow& row : Rules()) report.Add(row.eRule, L"Component\\f.ini", {1, 0}, L"half \xD83D");
    const Json::Value log = ParseJson(FormatSarif(report, L"\\\\server\\\u00DC x\\"));
    EXPECT_THAT(log.getMemberNames(), UnorderedElementsAre("$schema", "version", "runs"));
    ASSERT_EQ(log["runs"].size(), 1U);
    const Json::Value& run = log["runs"][0];
    EXPECT_EQ(run["originalUriBaseIds"]["UPDATE"]["uri"], "file://server/%C3%9C%20x/");
    EXPECT_EQ(run["columnKind"], "utf16CodeUnits");
    const Json::Value& driver = run["tool"]["driver"];
    EXPECT_THAT(driver["name"].asString(), Not(IsEmpty()));
    EXPECT_TRUE(IsMadeOf(driver["version"].asString(), "0123456789.")) << driver["version"];
    std::set<std::string> ids;
    for (const Json::Value& rule : driver["rules"]) {
        EXPECT_TRUE(ids.insert(rule["id"].asString()).second) << rule["id"];
        EXPECT_TRUE(IsMadeOf(rule["name"].asString(), kSmall + "0123456789-")) << rule["name"];
        for (const char* szText : {"shortDescription", "help"}) {
            EXPECT_TRUE(rule[szText]["text"].asString().ends_with(".")) << rule["id"];
        }
        EXPECT_THAT(rule["defaultConfiguration"]["level"].asString(), AnyOf("error", "warning"));
    }
    ASSERT_EQ(run["results"].size(), 4U + Rules().size());
    for (const Json::Value& result : run["results"]) {
        const Json::Value& rule = driver["rules"][result["ruleIndex"].asUInt()];
        EXPECT_EQ(result["ruleId"], rule["id"]);
        EXPECT_THAT(result["level"].asString(), AnyOf("error", "warning"));
        EXPECT_THAT(result["message"]["text"].asString(), Not(IsEmpty()));
        ASSERT_EQ(result["locations"].size(), 1U);
        const Json::Value& place = result["locations"][0]["physicalLocation"];
        const Json::Value& file = place["artifactLocation"];
        EXPECT_TRUE(IsMadeOf(file["uri"].asString(), kSmall + "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789%/:._~-"));
        EXPECT_EQ(file.isMember("uriBaseId"), !file["uri"].asString().starts_with("file:"));
        for (const char* szNumber : {"startLine", "startColumn"}) {
            EXPECT_TRUE(!place["region"].isMember(szNumber) || place["region"][szNumber].asUInt() > 0);
        }
    }
}

TEST(ReportTest, SarifNamesRulesAndPlacesInItsOwnWay)
{
    const Json::Value log = ParseJson(FormatSarif(Sample(), L"C:\\up date\\"));
    const Json::Value& run = log["runs"][0];
    EXPECT_EQ(log["version"], "2.1.0");
    EXPECT_EQ(run["originalUriBaseIds"]["UPDATE"]["uri"], "file:///C:/up%20date/");
    const Json::Value& results = run["results"];
    ASSERT_EQ(results.size(), 4U);
    EXPECT_EQ(results[0]["level"], "warning");
    const Json::Value& elsewhere = results[0]["locations"][0]["physicalLocation"];
    EXPECT_EQ(elsewhere["artifactLocation"]["uri"], "file:///C:/i/x.ini");
    EXPECT_EQ(elsewhere["region"]["startLine"], 9);
    const Json::Value& whole = results[3]["locations"][0]["physicalLocation"];
    EXPECT_EQ(whole["artifactLocation"]["uri"], "b%20%C3%BC/%231.xml");
    EXPECT_FALSE(whole.isMember("region"));
}

TEST(SuggestionTest, ASlipIsFoundAndAnotherWordIsNot)
{
    const std::vector<std::wstring> words{L"add", L"add_if_non", L"SysRunOnce"};
    for (const auto& [szWord, szNear] : {std::pair(L"Add", L"add"),
                                         {L"dad", L"add"},
                                         {L"ad", L"add"},
                                         {L"add_if_none", L"add_if_non"},
                                         {L"SystemRunOnce", L"SysRunOnce"},
                                         {L"delete", L""},
                                         {L"", L""}}) {
        EXPECT_EQ(NearestOf(szWord, words), szNear) << szWord;
    }
}

TEST(CommandLineTest, WrongUseIsToldFromAHelpRequestAndARun)
{
    static Arguments s_arguments;
    const Verb verb{L"lint",
                    L"UPDATE",
                    L"help",
                    kInstalled | kLanguage | kStrict | kFormatSarif,
                    1,
                    1,
                    [](const Arguments& arguments, Output&) -> int {
                        s_arguments = arguments;
                        return kFound;
                    }};
    using Words = std::vector<const wchar_t*>;
    const std::pair<Words, int> rows[] = {
        {{L"lint", L"u"}, kFound},
        {{L"lint", L"u", L"--format", L"sarif", L"--language", L"A", L"--language", L"B"}, kFound},
        {{L"lint", L"--", L"--u"}, kFound},
        {{L"lint", L"--help"}, kClean},
        {{L"--help"}, kClean},
        {{L"--version"}, kClean},
        {{}, kWrongUse},
        {{L"lnit", L"u"}, kWrongUse},
        {{L"lint"}, kWrongUse},
        {{L"lint", L"u", L"v"}, kWrongUse},
        {{L"lint", L"u", L"--all"}, kWrongUse},
        {{L"lint", L"u", L"--format", L"json"}, kWrongUse},
        {{L"lint", L"u", L"--installed"}, kWrongUse},
        {{L"lint", L"u", L"--installed", L""}, kWrongUse},
    };
    for (const auto& [words, iExitCode] : rows) {
        Output output;
        EXPECT_EQ(RunCommandLine({&verb, 1}, words, output), iExitCode) << PrintToString(words);
        EXPECT_EQ(output.tstrErrors.empty(), iExitCode != kWrongUse) << PrintToString(words);
    }
    EXPECT_EQ(s_arguments.operands, std::vector<std::wstring>{L"--u"});
}
