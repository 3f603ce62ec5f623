// The run-once commands of the instruction file.
#include "agent/QorDeployAgent.h"

#include "common/KzComn_DebugLog.h"
#include "common/QorCommon_Touchpad.h"

using namespace KzCommon;

void FrameworkDeployAgent::PostRunScript()
{
    const OperationTrace trace(L"FrameworkDeployAgent::PostRunScript()");
    SectionRecords records;
    DWORD dwError = ERROR_SUCCESS;
    if (!ReadInstructions(L"Run", records, dwError)) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::PostRunScript() - QueryValue failed. [0x%08x]", dwError);
        return;
    }
    const bool bTouchpadTooOld = QorCommon::IsETDExistAndDriverNotUpToDate();
    ForEachRecord(records, L"SysRunOnce", [&](const std::wstring& tstrCommand) {
        // The keyboard filter of that touchpad does not work with an old driver.
        if (bTouchpadTooOld && tstrCommand.find(L"kbfilter.ini") != std::wstring::npos) return;
        RegisterSysRunOnce(tstrCommand);
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::PostRunScript() - add to sys RunOnce: [%s]", tstrCommand.c_str());
    });
}

void FrameworkDeployAgent::RegisterSysRunOnce(const std::wstring& tstrCommand)
{
    const OperationTrace trace(L"FrameworkDeployAgent::RegisterSysRunOnce()");
    std::wstring tstrExpanded = tstrCommand;
    m_pathValues.ExpandPlaceholders(tstrExpanded);
    PatchReg(op_reg_add,
             L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce!" + MakeUniqueName() + L"!REG_SZ!" + tstrExpanded);
}
