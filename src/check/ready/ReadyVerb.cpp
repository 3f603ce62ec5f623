// The verb "ready" and its output.
#include "check/ready/Ready.h"

#include "check/update/HostPaths.h"
#include "check/update/JsonText.h"
#include "check/update/ShownText.h"

#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

using namespace KzCommon;

namespace Check {

namespace {

std::wstring FormatText(const ReadyReport& report)
{
    std::wstring tstrText;
    const auto add = [&](std::wstring tstrLine) {
        tstrText += OnOneLine(std::move(tstrLine)) + L"\n";
    };
    for (const ReadyFinding& finding : report.findings) {
        add(std::to_wstring(finding.uNumber) + L" " + NameOfCheck(finding.uNumber) + L": " + finding.tstrWhat + L": " +
            finding.tstrReason);
        add(std::wstring(L"    ") + RemedyOf(finding.uNumber));
    }
    for (const NotExamined& place : report.notExamined)
        add(L"not examined: " + place.tstrWhat + L": " + place.tstrReason);
    return tstrText + (report.findings.empty() ? L"ready" : Counted(report.findings.size(), L"finding", L"findings")) +
           L"\n";
}

std::string FormatJson(const ReadyReport& report)
{
    Json::Value root;
    root["ready"] = report.findings.empty();
    root["findings"] = root["not_examined"] = Json::Value(Json::arrayValue);
    for (const ReadyFinding& finding : report.findings) {
        Json::Value json;
        json["number"] = finding.uNumber;
        json["name"] = ToJson(NameOfCheck(finding.uNumber));
        json["what"] = ToJson(finding.tstrWhat);
        json["reason"] = ToJson(finding.tstrReason);
        json["remedy"] = ToJson(RemedyOf(finding.uNumber));
        root["findings"].append(std::move(json));
    }
    for (const NotExamined& place : report.notExamined) {
        Json::Value json;
        json["what"] = ToJson(place.tstrWhat);
        json["reason"] = ToJson(place.tstrReason);
        root["not_examined"].append(std::move(json));
    }
    ShowHostPaths(root);
    return ToJsonText(root);
}

}  // namespace

int RunReady(const Arguments& arguments, Output& output)
{
    Update update;
    Plan plan;
    if (!OpenPlan(arguments, update, plan, output)) return kCannotRead;
    // Whatever the checks said then would be about a machine on which the agent finds no product.
    if (!plan.bRegistered) {
        output.tstrErrors +=
            plan.installedDir.Text() +
            L": this machine's registry knows no product there; \"ready\" examines the machine on which "
            L"the update will be deployed, or the folder DIR of --installed with its registry.reg\n";
        return kCannotRead;
    }
    const WindowsMachine machine;
    const std::vector<PendingMove> pending = ReadPendingMoves(machine);
    const ReadyReport report = CheckReadiness({machine, update, plan.installedDir, plan, pending});
    output.strText =
        arguments.eFormat == Format::eJson ? FormatJson(report) : String::ToUtf8(WithHostPaths(FormatText(report)));
    return report.findings.empty() ? kClean : kFound;
}

}  // namespace Check
