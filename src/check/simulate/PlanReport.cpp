#include "check/simulate/PlanReport.h"

#include "check/update/HostPaths.h"
#include "check/update/JsonText.h"
#include "check/update/RowOrder.h"
#include "check/update/ShownText.h"

#include "common/KzComn_String.h"

#include <iterator>

namespace Check {

namespace {

/// The name of an action in JSON and in text.
struct ActionRow {
    Action eAction;
    const char* szName;
    const wchar_t* szShown;
};
constexpr ActionRow kActions[] = {
    {Action::eCreateFolder, "createFolder", L"folder "},
    {Action::eMove, "move", L""},
    {Action::eStage, "stage", L""},
    {Action::eCopy, "copy", L""},
    {Action::eKeep, "keep", L""},
    {Action::eWriteValue, "writeValue", L""},
    {Action::eDeleteValue, "deleteValue", L""},
    {Action::eCarryOver, "carryOver", L""},
    {Action::eWriteIni, "writeIni", L""},
    {Action::eDelete, "delete", L""},
    {Action::eRunOnce, "runOnce", L"run "},
    {Action::eAsk, "ask", L"ask "},
    {Action::eNewName, "newName", L"new name "},
};

struct OutcomeRow {
    Outcome eOutcome;
    const char* szName;
    wchar_t chSign;
    const wchar_t* szCounted;
};
constexpr OutcomeRow kOutcomes[] = {
    {Outcome::eNew, "new", L'+', L"new"},
    {Outcome::eReplace, "replace", L'~', L"replaced"},
    {Outcome::eRemove, "remove", L'-', L"removed"},
    {Outcome::eStay, "stay", L'=', L"unchanged"},
    {Outcome::eFail, "fail", L'!', L"not possible"},
    {Outcome::eUnknown, "unknown", L'?', L"unknown"},
};

static_assert(IsInOrder(kActions, &ActionRow::eAction) && IsInOrder(kOutcomes, &OutcomeRow::eOutcome));

const ActionRow& RowOf(Action eAction)
{
    return kActions[static_cast<std::size_t>(eAction)];
}

const OutcomeRow& RowOf(Outcome eOutcome)
{
    return kOutcomes[static_cast<std::size_t>(eOutcome)];
}

/// The number of changes per outcome and at the restart.
struct Count {
    std::size_t outcomes[std::size(kOutcomes)] = {};
    std::size_t cAtRestart = 0;
};

Count CountOf(const Plan& plan)
{
    Count count;
    for (const PlanStep& step : plan.steps) {
        for (const Change& change : step.changes) {
            ++count.outcomes[static_cast<std::size_t>(change.eOutcome)];
            const bool bHappens = change.eOutcome < Outcome::eStay;
            if (change.bAtRestart && bHappens) ++count.cAtRestart;
        }
    }
    return count;
}

/// A path relative to one of the plan's folders, if it is below one.
std::wstring_view Short(std::wstring_view tstrPath, const Plan& plan)
{
    for (const Folder* pFolder : {&plan.installedDir, &plan.updateDir}) {
        if (pFolder->Contains(tstrPath)) return tstrPath.substr(pFolder->Text().size());
    }
    return tstrPath;
}

std::wstring Line(const Change& change, const Plan& plan)
{
    const bool bCommand = change.eAction == Action::eRunOnce;  // show it in full
    std::wstring tstrLine;
    const auto add = [&](std::initializer_list<std::wstring_view> parts) {
        for (const std::wstring_view tstrPart : parts) tstrLine += tstrPart;
    };
    add({L"  ", {&RowOf(change.eOutcome).chSign, 1}, L" ", RowOf(change.eAction).szShown});
    add({bCommand ? change.tstrTarget : Short(change.tstrTarget, plan)});
    if (!change.tstrName.empty()) add({L"  ", change.tstrName});
    const std::wstring tstrOld = change.optOld.value_or(L"");
    if (change.optNew && change.eOutcome == Outcome::eReplace) {
        add({L": \"", tstrOld, L"\" -> \"", *change.optNew, L"\""});
    } else if (change.optNew || change.optOld) {
        add({L": \"", change.optNew ? *change.optNew : tstrOld, L"\""});
    }
    if (!change.tstrSource.empty()) add({L"  <- ", Short(change.tstrSource, plan)});
    if (!change.tstrStaged.empty()) add({L"  via ", Short(change.tstrStaged, plan)});
    if (change.bAtRestart) add({L"  [restart]"});
    if (!change.tstrReason.empty()) add({L"  (", change.tstrReason, L")"});
    return OnOneLine(std::move(tstrLine)) + L"\n";
}

Json::Value JsonOf(const Change& change)
{
    Json::Value value(Json::objectValue);
    value["action"] = RowOf(change.eAction).szName;
    value["outcome"] = RowOf(change.eOutcome).szName;
    value["atRestart"] = change.bAtRestart;
    value["target"] = ToJson(change.tstrTarget);
    const auto put = [&](const char* szName, const std::wstring& tstrText) {
        if (!tstrText.empty()) value[szName] = ToJson(tstrText);
    };
    put("name", change.tstrName);
    put("source", change.tstrSource);
    put("staged", change.tstrStaged);
    put("reason", change.tstrReason);
    if (change.optOld) value["old"] = ToJson(*change.optOld);
    if (change.optNew) value["new"] = ToJson(*change.optNew);
    return value;
}

}  // namespace

std::wstring FormatPlanText(const Plan& plan)
{
    std::wstring tstrText = L"What \"/DeployFramework\" would do in " + plan.installedDir.Text() + L"\n";
    if (plan.updateDir.Text() != plan.installedDir.Text())
        tstrText += L"with the update in " + plan.updateDir.Text() + L"\n";
    for (const PlanStep& step : plan.steps) {
        if (step.changes.empty() && step.tstrReason.empty()) continue;
        tstrText += L"\n" + step.tstrName;
        if (!step.tstrReason.empty()) tstrText += OnOneLine(L": nothing, " + step.tstrReason);
        tstrText += L"\n";
        for (const Change& change : step.changes) tstrText += Line(change, plan);
    }
    if (!plan.lost.empty()) tstrText += L"\nSettings of the user's that are not carried over\n";
    for (const LostSetting& setting : plan.lost) {
        tstrText += OnOneLine(L"  LEFT BEHIND " + TextOf(setting)) + L"\n";
    }
    const Count count = CountOf(plan);
    tstrText += L"\n";
    for (const OutcomeRow& row : kOutcomes) {
        tstrText += std::to_wstring(count.outcomes[static_cast<std::size_t>(row.eOutcome)]) + L" " + row.szCounted +
                    (row.eOutcome == Outcome::eUnknown ? L"; " : L", ");
    }
    return tstrText + std::to_wstring(count.cAtRestart) + L" at the restart\n";
}

std::string FormatPlanJson(const Plan& plan)
{
    Json::Value root(Json::objectValue);
    root["update"] = ToJson(plan.updateDir.Text());
    root["installed"] = ToJson(plan.installedDir.Text());
    root["steps"] = Json::Value(Json::arrayValue);
    for (const PlanStep& step : plan.steps) {
        Json::Value value(Json::objectValue);
        value["step"] = ToJson(step.tstrName);
        if (!step.tstrReason.empty()) value["reason"] = ToJson(step.tstrReason);
        value["changes"] = Json::Value(Json::arrayValue);
        for (const Change& change : step.changes) value["changes"].append(JsonOf(change));
        root["steps"].append(std::move(value));
    }
    root["leftBehind"] = Json::Value(Json::arrayValue);
    for (const LostSetting& setting : plan.lost) {
        Json::Value value(Json::objectValue);
        value["setting"] = ToJson(setting.tstrTag);
        value["old"] = ToJson(setting.tstrOld);
        value["new"] = ToJson(setting.tstrNew);
        root["leftBehind"].append(std::move(value));
    }
    const Count count = CountOf(plan);
    for (const OutcomeRow& row : kOutcomes) {
        root["count"][row.szName] = Json::UInt64{count.outcomes[static_cast<std::size_t>(row.eOutcome)]};
    }
    root["count"]["atRestart"] = Json::UInt64{count.cAtRestart};
    ShowHostPaths(root);
    return ToJsonText(root);
}

}  // namespace Check
