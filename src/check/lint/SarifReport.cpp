// The findings in the form that editors and build servers read: SARIF 2.1.0.
#include "check/lint/Report.h"
#include "check/update/HostPaths.h"
#include "check/update/JsonText.h"
#include "check/verify/Sha256.h"
#include "BrevantVersion.h"

#include "agent/InstructionFile.h"
#include "common/KzComn_Environment.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>
#include <map>

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
    if (const auto host = HostPathOf(tstrPath)) return "file://" + EscapePath(*host);
    if (tstrPath.starts_with(L"\\\\")) return "file:" + EscapePath(tstrPath);
    return "file:///" + EscapePath(tstrPath.substr(0, 1)) + ":" + EscapePath(tstrPath.substr(2));
}

/// Where the guides are: the folder or page that the environment names, else the folder that is shipped beside the
/// program.
std::string GuidesUri()
{
    const std::wstring tstrVariable = L"%BREVANT_GUIDES%";
    const std::wstring tstrGuides = Process::ExpandEnvironment(tstrVariable);
    if (tstrGuides == tstrVariable || tstrGuides.empty()) return FileUri(Process::ProgramFolder() + L"guides\\");
    return String::ToUtf8(tstrGuides) + (tstrGuides.ends_with(L'/') ? "" : "/");
}

/// Which part of the text at a finding's place its suggestion replaces: up to this character, which belongs to it or
/// does not, or all of the key, value or section's name. Other rules suggest what is written elsewhere.
struct WordRow {
    Rule eRule;
    wchar_t chEnd = L'\0';
    bool bWithEnd = false;
};
constexpr WordRow kWords[] = {
    {Rule::eUnknownSection},     {Rule::eUnknownKey},           {Rule::eUnknownPlaceholder, L'}', true},
    {Rule::eRegistryType, L'!'}, {Rule::eRegistryNumber, L'!'}, {Rule::eKeyPath, L'!'},
    {Rule::eNoTagPath},          {Rule::eUnknownTag},
};

/// The rest of the section's name, key or value that is at a place of the instruction file; empty for any other place.
std::wstring TextAt(const IniScan& instructions, TextPosition place)
{
    const auto rest = [&](TextPosition start, const std::wstring& tstrText) {
        const bool bIn = start.uLine == place.uLine && place.uColumn >= start.uColumn &&
                         place.uColumn - start.uColumn < tstrText.size();
        return bIn ? tstrText.substr(place.uColumn - start.uColumn) : std::wstring();
    };
    for (const IniSection& section : instructions.Sections()) {
        if (section.place.uLine == place.uLine) return rest(section.place, section.tstrName);
        for (const IniRecord& record : section.records) {
            if (record.place.uLine != place.uLine) continue;
            const std::wstring tstrValue = rest(record.valuePlace, record.tstrValue);
            return tstrValue.empty() ? rest(record.place, record.tstrKey) : tstrValue;
        }
    }
    return {};
}

/// The word that the suggestion of a finding replaces; empty when it is not known.
std::wstring WordOf(const Finding& finding, const IniScan& instructions)
{
    const auto row = std::find_if(std::begin(kWords), std::end(kWords),
                                  [&](const WordRow& word) { return word.eRule == finding.eRule; });
    if (row == std::end(kWords) || finding.tstrSuggestion.empty() || finding.tstrPath != kInstructionFile) return {};
    const std::wstring tstrText = TextAt(instructions, finding.place);
    const std::size_t uEnd = row->chEnd ? tstrText.find(row->chEnd) : std::wstring::npos;
    return tstrText.substr(0, uEnd == std::wstring::npos ? uEnd : uEnd + (row->bWithEnd ? 1 : 0));
}

const char* LevelOf(Severity eSeverity)
{
    return eSeverity == Severity::eError ? "error" : "warning";
}

Json::Value DescribeRules()
{
    const std::string strGuides = GuidesUri();
    Json::Value rules(Json::arrayValue);
    for (const RuleRow& row : Rules()) {
        const std::wstring tstrId = IdOf(row.eRule);
        std::string strAnchor = String::ToUtf8(tstrId + L"-" + row.szName);
        strAnchor.front() = 'b';
        Json::Value rule;
        rule["id"] = ToJson(tstrId);
        rule["name"] = ToJson(row.szName);
        rule["shortDescription"]["text"] = ToJson(row.szHelp);
        rule["help"]["text"] = ToJson(std::wstring(row.szHelp) + L" See docs/check-rules.md, " + tstrId + L".");
        rule["helpUri"] = strGuides + "check-rules.md#" + strAnchor;
        rule["defaultConfiguration"]["level"] = LevelOf(row.eSeverity);
        rules.append(rule);
    }
    return rules;
}

Json::Value DescribeFile(const Finding& finding)
{
    Json::Value file;
    if (String::IsFullPath(finding.tstrPath)) {
        file["uri"] = FileUri(finding.tstrPath);
    } else {
        file["uri"] = EscapePath(finding.tstrPath);
        file["uriBaseId"] = kFolderId;
    }
    return file;
}

Json::Value DescribeLocation(const Finding& finding)
{
    Json::Value physical;
    physical["artifactLocation"] = DescribeFile(finding);
    if (finding.place.uLine > 0) {
        physical["region"]["startLine"] = finding.place.uLine;
        if (finding.place.uColumn > 0) physical["region"]["startColumn"] = finding.place.uColumn;
    }
    Json::Value location;
    location["physicalLocation"] = physical;
    return location;
}

Json::Value DescribeFix(const Finding& finding, const std::wstring& tstrWord)
{
    Json::Value replacement;
    Json::Value& region = replacement["deletedRegion"];
    region["startLine"] = finding.place.uLine;
    region["startColumn"] = finding.place.uColumn;
    region["endColumn"] = finding.place.uColumn + static_cast<Json::UInt>(tstrWord.size());
    replacement["insertedContent"]["text"] = ToJson(finding.tstrSuggestion);
    Json::Value change;
    change["artifactLocation"] = DescribeFile(finding);
    change["replacements"].append(replacement);
    Json::Value fix;
    fix["description"]["text"] = ToJson(L"Write \"" + finding.tstrSuggestion + L"\".");
    fix["artifactChanges"].append(change);
    return fix;
}

/// Names a finding by everything but its place, so that it is the same one after lines were added above it; equal ones
/// are counted.
class Fingerprints {
public:
    std::string Next(const Finding& finding)
    {
        const std::string strKey =
            String::ToUtf8(IdOf(finding.eRule) + L"\n" + finding.tstrPath + L"\n" + finding.tstrText);
        Content content;
        if (!ContentReader::HashBytes(strKey, content, nullptr)) return {};
        return content.strSha256.substr(0, kDigits) + ":" + std::to_string(++m_counts[strKey]);
    }

private:
    static constexpr std::size_t kDigits = 16;
    std::map<std::string, unsigned> m_counts;
};

Json::Value DescribeResults(const Report& report, const IniScan& instructions)
{
    Json::Value results(Json::arrayValue);
    Fingerprints fingerprints;
    for (const Finding& finding : report.Sorted()) {
        std::wstring tstrText = finding.tstrText;
        if (!finding.tstrSuggestion.empty()) tstrText += L"; did you mean \"" + finding.tstrSuggestion + L"\"?";
        Json::Value result;
        result["ruleId"] = ToJson(IdOf(finding.eRule));
        result["ruleIndex"] = static_cast<Json::UInt>(&RowOf(finding.eRule) - Rules().data());
        result["level"] = LevelOf(finding.eSeverity);
        result["message"]["text"] = ToJson(tstrText);
        result["locations"].append(DescribeLocation(finding));
        result["partialFingerprints"]["brevantFinding/v1"] = fingerprints.Next(finding);
        const std::wstring tstrWord = WordOf(finding, instructions);
        if (!tstrWord.empty()) result["fixes"].append(DescribeFix(finding, tstrWord));
        results.append(result);
    }
    return results;
}

}  // namespace

std::string FormatSarif(const Report& report, const std::wstring& tstrFolder, const IniScan& instructions)
{
    Json::Value driver;
    driver["name"] = "BrevantCheck";
    driver["version"] = BREVANT_VERSION;
    driver["rules"] = DescribeRules();
    Json::Value run;
    run["tool"]["driver"] = driver;
    run["columnKind"] = "utf16CodeUnits";
    run["originalUriBaseIds"][kFolderId]["uri"] = FileUri(tstrFolder);
    run["results"] = DescribeResults(report, instructions);
    ShowHostPaths(run["results"]);
    Json::Value log;
    log["$schema"] = "https://docs.oasis-open.org/sarif/sarif/v2.1.0/errata01/os/schemas/sarif-schema-2.1.0.json";
    log["version"] = "2.1.0";
    log["runs"].append(run);
    return ToJsonText(log);
}

}  // namespace Check
