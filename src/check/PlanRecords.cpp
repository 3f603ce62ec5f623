// The registry values, keys of INI files and commands of a plan.
#include "check/PlanSteps.h"

#include "agent/IniEdits.h"
#include "agent/RegistryPatch.h"
#include "agent/RunOnce.h"
#include "agent/SettingsFiles.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_IniFile.h"
#include "common/QorCommon_Touchpad.h"

using namespace KzCommon;

namespace Check {

namespace {

/// Windows lets nobody make a key directly below the root.
bool IsBelowKeyOfMachine(const std::wstring& tstrKeyPath)
{
    UniqueRegistryKey hKey;
    const std::wstring tstrFirst = tstrKeyPath.substr(0, tstrKeyPath.find(L'\\'));
    return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, tstrFirst.c_str(), 0, KEY_QUERY_VALUE, hKey.Receive()) !=
           ERROR_FILE_NOT_FOUND;
}

/// A value that the record cannot write, and why.
bool IsRefused(const RegistryRecord& record, std::wstring& tstrReason)
{
    switch (record.eType) {
        case RegistryType::eMultiText: tstrReason = L"REG_MULTI_SZ is not supported"; return true;
        case RegistryType::eUnknown:
            tstrReason = record.tstrType.empty() ? L"the record has no type" : L"there is no type " + record.tstrType;
            return true;
        default: break;
    }
    if (record.tstrKeyPath.empty()) tstrReason = L"the record has no key";
    if (record.tstrKeyPath.starts_with(L'\\')) tstrReason = L"the key path begins with a backslash";
    if (!IsBelowKeyOfMachine(record.tstrKeyPath)) tstrReason = L"Windows lets nobody make a key below the root";
    return !tstrReason.empty();
}

/// What else there is to know about a record that is carried out.
std::wstring RemarkOn(const RegistryRecord& record)
{
    const bool bNumber = record.eType == RegistryType::eDword || record.eType == RegistryType::eQword;
    if (bNumber && record.tstrData != ValueOf(record).tstrText) {
        return L"\"" + record.tstrData + L"\" is no decimal number of that size";
    }
    return record.bTooManyFields ? L"what follows the fourth field is left out" : L"";
}

Change ChangeOf(Action eAction, const std::wstring& tstrKeyPath, const std::wstring& tstrName)
{
    Change change{.eAction = eAction, .eOutcome = Outcome::eFail};
    change.tstrTarget = L"HKEY_LOCAL_MACHINE\\" + tstrKeyPath;
    change.tstrName = tstrName;
    return change;
}

void Write(PlanWork& work, Change change, const std::wstring& tstrKeyPath, const HeldValue& value)
{
    const std::optional<HeldValue> optOld = work.forecast.Value(tstrKeyPath, change.tstrName);
    change.eOutcome = !optOld ? Outcome::eNew : *optOld == value ? Outcome::eStay : Outcome::eReplace;
    if (optOld) change.optOld = optOld->tstrText;
    change.optNew = value.tstrText;
    work.forecast.SetValue(tstrKeyPath, change.tstrName, value);
    work.Add(std::move(change));
}

void PlanDelete(PlanWork& work, const RegistryRecord& record)
{
    Change change = ChangeOf(Action::eDeleteValue, record.tstrKeyPath, record.tstrValueName);
    const std::optional<HeldValue> optOld = work.forecast.Value(record.tstrKeyPath, record.tstrValueName);
    change.eOutcome = optOld ? Outcome::eRemove : Outcome::eStay;
    if (optOld) {
        change.optOld = optOld->tstrText;
        work.forecast.SetValue(record.tstrKeyPath, record.tstrValueName, std::nullopt);
    } else {
        change.tstrReason = L"there is no such value";
    }
    work.Add(std::move(change));
}

void PlanAdd(PlanWork& work, const RegistryRecord& record, bool bOnlyMissing)
{
    Change change = ChangeOf(Action::eWriteValue, record.tstrKeyPath, record.tstrValueName);
    if (IsRefused(record, change.tstrReason)) return work.Add(std::move(change));
    change.tstrReason = RemarkOn(record);
    if (bOnlyMissing && work.forecast.LeavesAlone(record)) {
        change.eOutcome = Outcome::eStay;
        change.tstrReason = L"there is one already";
        if (const auto optOld = work.forecast.Value(record.tstrKeyPath, record.tstrValueName)) {
            change.optOld = optOld->tstrText;
        }
        return work.Add(std::move(change));
    }
    if (bOnlyMissing) change.tstrName = NameWrittenIfNone(record);
    Write(work, std::move(change), record.tstrKeyPath, ValueOf(record));
}

}  // namespace

void PlanRegistryRecord(PlanWork& work, RegOp eOp, const std::wstring& tstrRecord)
{
    if (!IsRecordLengthValid(tstrRecord)) {
        Change change{.eAction = Action::eWriteValue, .eOutcome = Outcome::eFail};
        change.tstrTarget = tstrRecord;
        change.tstrReason = kTooLong;
        return work.Add(std::move(change));
    }
    RegistryRecord record = ParseRegistryRecord(tstrRecord);
    record.tstrData = work.Expand(record.tstrData);
    if (eOp == op_reg_delete) {
        PlanDelete(work, record);
    } else {
        PlanAdd(work, record, eOp == op_reg_add_if_non);
    }
}

namespace {

/// The INI file whose keys are changed, and what it will hold.
class IniPlan {
public:
    IniPlan(PlanWork& work, std::wstring tstrTarget, std::wstring tstrRead)
        : m_work(work), m_tstrTarget(std::move(tstrTarget)), m_tstrRead(std::move(tstrRead))
    {
    }

    void Add(const std::wstring& tstrRecord)
    {
        if (IsRecordLengthValid(tstrRecord)) return Add(ParseIniRecord(tstrRecord));
        Change change = Begin();
        change.tstrName = tstrRecord;
        change.tstrReason = kTooLong;
        m_work.Add(std::move(change));
    }

    void Add(const ::IniRecord& record)
    {
        Change change = Begin();
        change.tstrName = L"[" + record.tstrSection + L"] " + record.tstrKey;
        if (!record.IsComplete()) {
            change.tstrReason = L"the record has not its three fields";
            return m_work.Add(std::move(change));
        }
        const std::wstring tstrId = LowerCase(record.tstrSection) + L'\n' + LowerCase(record.tstrKey);
        const auto itKnown = m_values.find(tstrId);
        change.optOld = itKnown != m_values.end() ? itKnown->second : ReadNow(record);
        change.optNew = m_values[tstrId] = record.tstrValue;
        change.eOutcome = !change.optOld                   ? Outcome::eNew
                          : change.optOld == change.optNew ? Outcome::eStay
                                                           : Outcome::eReplace;
        if (record.bTooManyFields) change.tstrReason = L"what follows the third field is left out";
        m_work.Add(std::move(change));
    }

private:
    [[nodiscard]] Change Begin() const
    {
        Change change{.eAction = Action::eWriteIni, .eOutcome = Outcome::eFail};
        change.tstrTarget = m_tstrTarget;
        return change;
    }

    [[nodiscard]] std::optional<std::wstring> ReadNow(const ::IniRecord& record) const
    {
        static const std::wstring kNone(1, L'\x1');
        std::wstring tstrValue = kNone;
        static_cast<void>(Storage::Guarded(nullptr, [&] {
            Storage::IniFile file;
            file.Open(m_tstrRead);
            tstrValue = file.ReadString(record.tstrSection, record.tstrKey, kNone);
        }));
        if (tstrValue == kNone) return std::nullopt;
        return tstrValue;
    }

    PlanWork& m_work;
    std::wstring m_tstrTarget;
    std::wstring m_tstrRead;
    std::map<std::wstring, std::wstring> m_values;
};

}  // namespace

void PlanValue(PlanWork& work, const std::wstring& tstrKeyPath, const std::wstring& tstrName, const HeldValue& value)
{
    Write(work, ChangeOf(Action::eWriteValue, tstrKeyPath, tstrName), tstrKeyPath, value);
}

void PlanUpdateInfo(PlanWork& work, const std::wstring& tstrSettingDir)
{
    constexpr const Section& kSection = SectionOf(L"UPDATE_INFO", L"ModifyUpdateInfo");
    const std::wstring tstrInstalled = work.paths.UpdateInfoFile();
    const std::wstring tstrRead = work.forecast.PlaceNow(tstrInstalled);
    const std::wstring tstrCopy = work.forecast.PlaceThen(tstrSettingDir) + kUpdateInfoFile;
    work.Begin(kSection.szReader);
    const bool bCopied = IsUpdateInfoCopied(tstrRead, tstrSettingDir + kUpdateInfoFile);
    if (bCopied) static_cast<void>(PlanCopy(work, Action::eCopy, tstrInstalled, tstrCopy));
    SectionRecords records;
    if (!work.Read(kSection, records)) return;
    IniPlan file(work, bCopied ? tstrCopy : tstrInstalled, tstrRead);
    ForEachRecord(kSection, records, [&](const SectionKey&, const std::wstring& tstrRecord) { file.Add(tstrRecord); });
    file.Add(DeployedVersion());
}

void PlanCommand(PlanWork& work, const std::wstring& tstrCommand)
{
    Change change{.eAction = Action::eRunOnce, .eOutcome = Outcome::eNew, .bAtRestart = true};
    const std::wstring tstrRecord = MakeRunOnceRecord(MakeUniqueName(), work.Expand(tstrCommand));
    const RegistryRecord record = ParseRegistryRecord(tstrRecord);
    change.tstrTarget = work.Expand(record.tstrData);
    if (!IsRecordLengthValid(tstrRecord)) {
        change.eOutcome = Outcome::eFail;
        change.tstrReason = L"longer than 1023 characters together with its registry key";
    } else if (record.bTooManyFields) {
        change.tstrReason = L"cut off at its \"!\"";
    }
    work.Add(std::move(change));
}

void PlanCommands(PlanWork& work)
{
    constexpr const Section& kSection = SectionOf(L"Run", L"PostRunScript");
    work.Begin(kSection.szReader);
    SectionRecords records;
    if (!work.Read(kSection, records)) return;
    const bool bTouchpadTooOld = QorCommon::IsETDExistAndDriverNotUpToDate();
    ForEachRecord(kSection, records, [&](const SectionKey&, const std::wstring& tstrCommand) {
        if (!bTouchpadTooOld || !IsKeyboardFilterCommand(tstrCommand)) return PlanCommand(work, tstrCommand);
        Change change{.eAction = Action::eRunOnce, .eOutcome = Outcome::eStay, .bAtRestart = true};
        change.tstrTarget = work.Expand(tstrCommand);
        change.tstrReason = L"left out: the touchpad's driver is too old for the keyboard filter";
        work.Add(std::move(change));
    });
}

}  // namespace Check
