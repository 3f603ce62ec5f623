#include "agent/RunOnce.h"

#include "agent/Sections.h"

#include "common/KzComn_DebugLog.h"

using namespace KzCommon;

namespace {

/// Reports a command that is not registered.
void ReportUnregistered(const RunContext& run, const std::wstring& tstrExpanded, Outcome eOutcome,
                        const wchar_t* szReason)
{
    Change change{.eAction = Action::eRunOnce, .eOutcome = eOutcome, .bAtRestart = true};
    change.tstrTarget = tstrExpanded;
    change.tstrReason = szReason;
    run.machine.Report(change);
}

void ReportLeftOut(const RunContext& run, std::wstring tstrCommand)
{
    run.paths.ExpandPlaceholders(tstrCommand);
    ReportUnregistered(run, tstrCommand, Outcome::eStay,
                       L"left out: the touchpad's driver is too old for the keyboard filter");
}

}  // namespace

bool IsKeyboardFilterCommand(const std::wstring& tstrCommand)
{
    return tstrCommand.find(L"kbfilter.ini") != std::wstring::npos;
}

std::wstring MakeRunOnceRecord(const std::wstring& tstrName, const std::wstring& tstrExpanded)
{
    return kRunOnceKey + (L"!" + tstrName) + L"!REG_SZ!" + tstrExpanded;
}

void PostRunScript(const RunContext& run)
{
    const OperationTrace trace(L"FrameworkDeployAgent::PostRunScript()");
    run.machine.BeginOperation(L"PostRunScript");
    constexpr const Section& kSection = SectionOf(L"Run", L"PostRunScript");
    SectionRecords records;
    if (!ReadSection(run.machine, kSection, records)) return;
    const bool bTouchpadTooOld = run.machine.IsTouchpadDriverTooOld();
    ForEachRecord(kSection, records, [&](const SectionKey& key, const std::wstring& tstrCommand) {
        // The touchpad's keyboard filter does not work with an old driver.
        if (bTouchpadTooOld && IsKeyboardFilterCommand(tstrCommand)) return ReportLeftOut(run, tstrCommand);
        RegisterSysRunOnce(run, tstrCommand);
        TraceRecord(key, tstrCommand);
    });
}

void RegisterSysRunOnce(const RunContext& run, const std::wstring& tstrCommand)
{
    const OperationTrace trace(L"FrameworkDeployAgent::RegisterSysRunOnce()");
    std::wstring tstrExpanded = tstrCommand;
    run.paths.ExpandPlaceholders(tstrExpanded);
    const std::wstring tstrRecord = MakeRunOnceRecord(MakeUniqueName(), tstrExpanded);
    if (!IsRecordLengthValid(tstrRecord)) {
        ReportUnregistered(run, tstrExpanded, Outcome::eFail,
                           L"longer than 1023 characters together with its registry key");
    }
    PatchReg(run, op_reg_add, tstrRecord);
}
