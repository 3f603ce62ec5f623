#include "agent/RunOnce.h"

#include "agent/Sections.h"

#include "common/KzComn_DebugLog.h"
#include "common/QorCommon_Touchpad.h"

using namespace KzCommon;

bool IsKeyboardFilterCommand(const std::wstring& tstrCommand)
{
    return tstrCommand.find(L"kbfilter.ini") != std::wstring::npos;
}

std::wstring MakeRunOnceRecord(const std::wstring& tstrName, const std::wstring& tstrExpanded)
{
    return kRunOnceKey + (L"!" + tstrName) + L"!REG_SZ!" + tstrExpanded;
}

void PostRunScript(const PathValues& pathValues)
{
    const OperationTrace trace(L"FrameworkDeployAgent::PostRunScript()");
    constexpr const Section& kSection = SectionOf(L"Run", L"PostRunScript");
    SectionRecords records;
    if (!ReadSection(kSection, records)) return;
    const bool bTouchpadTooOld = QorCommon::IsETDExistAndDriverNotUpToDate();
    ForEachRecord(kSection, records, [&](const SectionKey&, const std::wstring& tstrCommand) {
        // The keyboard filter of that touchpad does not work with an old driver.
        if (bTouchpadTooOld && IsKeyboardFilterCommand(tstrCommand)) return;
        RegisterSysRunOnce(pathValues, tstrCommand);
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::PostRunScript() - add to sys RunOnce: [%s]", tstrCommand.c_str());
    });
}

void RegisterSysRunOnce(const PathValues& pathValues, const std::wstring& tstrCommand)
{
    const OperationTrace trace(L"FrameworkDeployAgent::RegisterSysRunOnce()");
    std::wstring tstrExpanded = tstrCommand;
    pathValues.ExpandPlaceholders(tstrExpanded);
    PatchReg(pathValues, op_reg_add, MakeRunOnceRecord(MakeUniqueName(), tstrExpanded));
}
