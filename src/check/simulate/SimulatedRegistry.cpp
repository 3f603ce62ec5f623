// The registry of a machine in memory.
#include "check/simulate/SimulatedMachine.h"

#include "agent/RunOnce.h"
#include "common/KzComn_Result.h"

using namespace KzCommon;

namespace Check {

namespace {

Change ChangeOf(Action eAction, const RegistryPlace& place)
{
    Change change{.eAction = eAction, .eOutcome = Outcome::eFail};
    change.tstrTarget = NameOfRoot(place.hRoot) + L"\\" + place.tstrKeyPath;
    change.tstrName = place.tstrName;
    return change;
}

}  // namespace

bool SimulatedMachine::ReadValue(const RegistryPlace& place, RegistryData& data, DWORD* pdwError) const
{
    StoredValue value;
    return m_registry.Read(place, value, pdwError) && FromStored(value, data, pdwError);
}

bool SimulatedMachine::ReadStored(const RegistryPlace& place, StoredValue& value, DWORD* pdwError) const
{
    return m_registry.Read(place, value, pdwError);
}

bool SimulatedMachine::StoreValue(const RegistryPlace& place, const RegistryData& data, DWORD* pdwError)
{
    const StoredValue value = ToStored(data);
    const DWORD dwCode = m_registry.WhyNotWritable(place);
    const bool bCommand = place.hRoot == HKEY_LOCAL_MACHINE && String::EqualsNoCase(place.tstrKeyPath, kRunOnceKey);
    if (bCommand) {
        RecordCommand(value, dwCode);
    } else {
        RecordValue(place, value, dwCode);
    }
    return m_registry.Write(place, value, pdwError);
}

void SimulatedMachine::RecordCommand(const StoredValue& value, DWORD dwCode)
{
    const bool bOk = dwCode == ERROR_SUCCESS;
    Change change{.eAction = Action::eRunOnce, .eOutcome = bOk ? Outcome::eNew : Outcome::eFail, .bAtRestart = true};
    change.tstrTarget = ShowStored(value);
    if (!bOk) change.tstrReason = DescribeRefusal(dwCode);
    Record(std::move(change));
}

void SimulatedMachine::RecordValue(const RegistryPlace& place, const StoredValue& value, DWORD dwCode)
{
    Change change = ChangeOf(Action::eWriteValue, place);
    if (dwCode != ERROR_SUCCESS) {
        change.tstrReason = WhyNotWritten(place, dwCode);
        Record(std::move(change));
        return;
    }
    StoredValue old;
    const bool bOld = m_registry.Read(place, old, nullptr);
    change.eOutcome = !bOld ? Outcome::eNew : old == value ? Outcome::eStay : Outcome::eReplace;
    if (bOld) change.optOld = ShowStored(old);
    change.optNew = ShowStored(value);
    Record(std::move(change));
}

std::wstring SimulatedMachine::WhyNotWritten(const RegistryPlace& place, DWORD dwCode) const
{
    if (dwCode == ERROR_BAD_ARGUMENTS) return L"the record has no key";
    RegistryPlace top = place;
    top.tstrKeyPath.resize(std::min(top.tstrKeyPath.size(), top.tstrKeyPath.find(L'\\')));
    const bool bBelowRoot = place.hRoot == HKEY_LOCAL_MACHINE && !m_registry.HasKey(top);
    if (dwCode == ERROR_INVALID_PARAMETER && bBelowRoot) return L"Windows allows no key directly below the root";
    return DescribeRefusal(dwCode);
}

bool SimulatedMachine::DeleteValue(const RegistryPlace& place, DWORD* pdwError)
{
    Change change = ChangeOf(Action::eDeleteValue, place);
    StoredValue old;
    if (m_registry.Read(place, old, nullptr)) change.optOld = ShowStored(old);
    DWORD dwError = ERROR_SUCCESS;
    const bool bOk = m_registry.Delete(place, &dwError);
    change.eOutcome = bOk ? Outcome::eRemove : dwError == ERROR_FILE_NOT_FOUND ? Outcome::eStay : Outcome::eFail;
    if (!bOk) {
        change.tstrReason = dwError == ERROR_FILE_NOT_FOUND ? L"there is no such value" : WhyNotWritten(place, dwError);
    }
    Record(std::move(change));
    return bOk || Storage::Fail(dwError, pdwError);
}

void SimulatedMachine::Report(const Change& change)
{
    static const std::wstring s_tstrRoot = NameOfRoot(HKEY_LOCAL_MACHINE) + L"\\";
    Change reported = change;
    const bool bStays = change.eAction == Action::eWriteValue && change.eOutcome == Outcome::eStay;
    if (bStays && !change.optOld && String::IsBelow(change.tstrTarget, s_tstrRoot)) {
        StoredValue old;
        const RegistryPlace place{.tstrKeyPath = change.tstrTarget.substr(s_tstrRoot.size()),
                                  .tstrName = change.tstrName};
        if (m_registry.Read(place, old, nullptr)) reported.optOld = ShowStored(old);
    }
    Record(std::move(reported));
}

}  // namespace Check
