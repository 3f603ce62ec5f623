// The findings in the form that editors and build servers read: SARIF 2.1.0.
#include "check/lint/Report.h"
#include "check/update/JsonText.h"
#include "BrevantVersion.h"

#include "common/KzComn_String.h"

#include <cctype>
#include <cstdio>

using namespace KzCommon;

namespace Check {

namespace {

/// The name under which the update's folder is known within the log.
constexpr char kFolderId[] = "UPDATE";

/// The characters of a path as part of a URI, in UTF-8, backslashes turned.
std::string EscapePath(std::wstring_view tstrPath)
{
    std::string strUri;
    for (const char ch : String::ToUtf8(tstrPath)) {
        const auto uch = static_cast<unsigned char>(ch);
        if (ch == '\\' || ch == '/') {
            strUri += '/';
        } else if (uch < 0x80 && (std::isalnum(uch) || std::string_view("-._~").find(ch) != std::string_view::npos)) {
            strUri += ch;
        } else {
            char szEscaped[4] = {};
            ::snprintf(szEscaped, sizeof(szEscaped), "%%%02X", static_cast<unsigned>(uch));
            strUri += szEscaped;
        }
    }
    return strUri;
}

/// A full path as a file URI: a drive keeps its colon, a share is a host.
std::string FileUri(const std::wstring& tstrPath)
{
    if (tstrPath.starts_with(L"\\\\")) return "file:" + EscapePath(tstrPath);
    return "file:///" + EscapePath(tstrPath.substr(0, 1)) + ":" + EscapePath(tstrPath.substr(2));
}

const char* LevelOf(Severity eSeverity)
{
    return eSeverity == Severity::eError ? "error" : "warning";
}

Json::Value DescribeRules()
{
    Json::Value rules(Json::arrayValue);
    for (const RuleRow& row : Rules()) {
        const std::wstring tstrId = IdOf(row.eRule);
        Json::Value rule;
        rule["id"] = ToJson(tstrId);
        rule["name"] = ToJson(row.szName);
        rule["shortDescription"]["text"] = ToJson(row.szHelp);
        rule["help"]["text"] = ToJson(std::wstring(row.szHelp) + L" See docs/check-rules.md, " + tstrId + L".");
        rule["defaultConfiguration"]["level"] = LevelOf(row.eSeverity);
        rules.append(rule);
    }
    return rules;
}

Json::Value DescribeLocation(const Finding& finding)
{
    Json::Value physical;
    if (String::IsFullPath(finding.tstrPath)) {
        physical["artifactLocation"]["uri"] = FileUri(finding.tstrPath);
    } else {
        physical["artifactLocation"]["uri"] = EscapePath(finding.tstrPath);
        physical["artifactLocation"]["uriBaseId"] = kFolderId;
    }
    if (finding.place.uLine > 0) {
        physical["region"]["startLine"] = finding.place.uLine;
        if (finding.place.uColumn > 0) physical["region"]["startColumn"] = finding.place.uColumn;
    }
    Json::Value location;
    location["physicalLocation"] = physical;
    return location;
}

Json::Value DescribeResults(const Report& report)
{
    Json::Value results(Json::arrayValue);
    for (const Finding& finding : report.Sorted()) {
        std::wstring tstrText = finding.tstrText;
        if (!finding.tstrSuggestion.empty()) tstrText += L"; did you mean \"" + finding.tstrSuggestion + L"\"?";
        Json::Value result;
        result["ruleId"] = ToJson(IdOf(finding.eRule));
        result["ruleIndex"] = static_cast<Json::UInt>(&RowOf(finding.eRule) - Rules().data());
        result["level"] = LevelOf(finding.eSeverity);
        result["message"]["text"] = ToJson(tstrText);
        result["locations"].append(DescribeLocation(finding));
        results.append(result);
    }
    return results;
}

}  // namespace

std::string FormatSarif(const Report& report, const std::wstring& tstrFolder)
{
    Json::Value driver;
    driver["name"] = "BrevantCheck";
    driver["version"] = BREVANT_VERSION;
    driver["rules"] = DescribeRules();
    Json::Value run;
    run["tool"]["driver"] = driver;
    run["columnKind"] = "utf16CodeUnits";
    run["originalUriBaseIds"][kFolderId]["uri"] = FileUri(tstrFolder);
    run["results"] = DescribeResults(report);
    Json::Value log;
    log["$schema"] = "https://docs.oasis-open.org/sarif/sarif/v2.1.0/errata01/os/schemas/sarif-schema-2.1.0.json";
    log["version"] = "2.1.0";
    log["runs"].append(run);
    return ToJsonText(log);
}

}  // namespace Check
