#include "agent/NewNameDecision.h"

#include "agent/RestartReminder.h"
#include "agent/RunOnce.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"
#include "common/L10nReader.h"

using namespace KzCommon;

namespace {

// The build number starts at a fixed position of the version ("3.8.0.1099"), whether or not there is a dot before it.
constexpr std::size_t kBuildStart = 6;
constexpr std::size_t kBuildLength = 4;
constexpr wchar_t kBuildPlace[] = L"characters 7 to 10";
static_assert(kBuildStart + 1 == 7 && kBuildStart + kBuildLength == 10);
const wchar_t kFirstBuildWithNewName[] = L"1100";

void ReportDecision(Machine& machine, Outcome eOutcome, const std::wstring& tstrReason)
{
    Change change{.eAction = Action::eNewName, .eOutcome = eOutcome, .bAtRestart = true};
    change.tstrReason = tstrReason;
    machine.Report(change);
}

/// The reason for the decision.
std::wstring ReasonOf(NewNameNeed eNeed, const std::wstring& tstrVersion, const std::wstring& tstrBuild)
{
    const std::wstring tstrProduct = L"the product's version \"" + tstrVersion + L"\" has ";
    const std::wstring tstrBelow = std::wstring(L"below \"") + kFirstBuildWithNewName + L"\"";
    const std::wstring tstrRead = tstrProduct + L"the build \"" + tstrBuild + L"\" (" + kBuildPlace + L"), ";
    switch (eNeed) {
        case NewNameNeed::eJapanese: return L"not due: the product's language is ja-jp";
        case NewNameNeed::eVersionInvalid:
            return tstrVersion.empty() ? L"refused: the product has no version"
                                       : L"refused: " + tstrProduct +
                                             L"fewer than 10 characters; the build is read "
                                             L"from " +
                                             kBuildPlace;
        case NewNameNeed::eNewEnough: return L"not due: " + tstrRead + L"which is not " + tstrBelow;
        case NewNameNeed::eDue: return L"due: " + tstrRead + L"which is " + tstrBelow;
    }
    return {};
}

}  // namespace

bool CheckIfNewProdNameApplied(const Machine& machine)
{
    Trace(kTraceStep, L"CheckIfNewProdNameApplied()");
    const std::wstring tstrMarker = Frwk::Utility::GetStrFromHKLM_KZVLT(machine, kMarkerName, L"");
    Trace(kTraceInfo, L"val = %s", tstrMarker.c_str());
    if (tstrMarker == kMarkerData) {
        Trace(kTraceInfo, L"     == {8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}   --> New Brand applied");
        return true;
    }
    Trace(kTraceInfo, L"     != {8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}   --> New Brand NOT YET applied");
    return false;
}

NewNameNeed JudgeNewName(const std::wstring& tstrLanguage, const std::wstring& tstrVersion, std::wstring& tstrBuild)
{
    // Case-sensitive: only the lower-case tag keeps the name.
    if (tstrLanguage == L"ja-jp") return NewNameNeed::eJapanese;
    if (tstrVersion.size() < kBuildStart + kBuildLength) return NewNameNeed::eVersionInvalid;
    tstrBuild = tstrVersion.substr(kBuildStart, kBuildLength);
    return tstrBuild < kFirstBuildWithNewName ? NewNameNeed::eDue : NewNameNeed::eNewEnough;
}

bool NeedToApplyNewName(Machine& machine)
{
    Trace(kTraceStep, L"NeedToApplyNewName()");
    const std::wstring tstrLanguage = Frwk::Utility::GetStrFromHKLM_KZVLT(machine, L"Language", L"");
    Trace(kTraceInfo, L"Installed language=%s (No need to apply this change if language==JA-JP)", tstrLanguage.c_str());
    const std::wstring tstrVersion = Frwk::Utility::GetStrFromHKLM_KZVLT(machine, L"Version", L"");
    std::wstring tstrBuild;
    const NewNameNeed eNeed = JudgeNewName(tstrLanguage, tstrVersion, tstrBuild);
    const std::wstring tstrReason = ReasonOf(eNeed, tstrVersion, tstrBuild);
    if (eNeed == NewNameNeed::eDue) {
        machine.Explain(tstrReason);
    } else {
        ReportDecision(machine, Outcome::eStay, tstrReason);
    }
    if (eNeed == NewNameNeed::eJapanese) {
        Trace(kTraceInfo, L"No need to change product name for Japanese version.");
        return false;
    }
    Trace(kTraceInfo, L"Installed product version = %s", tstrVersion.c_str());
    if (eNeed == NewNameNeed::eVersionInvalid) {
        Trace(kTraceError, L"Product version key is invalid. Do not apply new name.");
        return false;
    }
    Trace(kTraceInfo, L"Build# = %s", tstrBuild.c_str());
    if (eNeed == NewNameNeed::eDue) {
        Trace(kTraceInfo, L"Need to apply new brand");
        return true;
    }
    Trace(kTraceInfo, L"NO need to apply new brand");
    return false;
}

bool CanScheduleNewName(const Machine& machine)
{
    if (String::IsFullPath(Frwk::Utility::GetInstalledFolder(machine))) return true;
    Trace(kTraceError, L"*** CanScheduleNewName() - the install folder is not known, the new name is not scheduled.");
    return false;
}

void TagNewProdNameApplied(Machine& machine)
{
    Trace(kTraceStep, L"TagNewProdNameApplied(), write registry %s to be %s", kMarkerName, kMarkerData);
    Frwk::Utility::WriteToRegHKLM_KZVLT(machine, kMarkerName, kMarkerData);
}

void PreparePostUdActionForNewName(Machine& machine)
{
    Trace(kTraceStep, L"PreparePostUdActionForNewName()");
    const std::wstring tstrSource = Frwk::Utility::InstalledFile(machine, kShortcutFile);
    const std::wstring tstrDestination = Frwk::Utility::InstalledFile(machine, kShortcutBackupFile);
    Trace(kTraceInfo, L"Backup file -- (sDstPath=%s, sSrcPath=%s", tstrDestination.c_str(), tstrSource.c_str());
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.CopyNow(tstrDestination, tstrSource, CopyMode::eOverwrite, &dwError)) {
        Trace(kTraceError, L"Failed to backup old shortcut configuration. Error code = %d", dwError);
    }
    Trace(kTraceInfo, L"Prepare RunOnce key for after-reboot actions: {InstalledDir}Brevant.exe /ApplyNewName");
    RegisterSysRunOnce(RunContext(machine), kNewNameCommand);
}

bool NeedToInformUser(const Machine& machine)
{
    Trace(kTraceStep, L"NeedToInformUser()");
    std::wstring tstrProductName;
    Trace(kTraceInfo, L"Read StringTable.ini...");
    CL10nReader reader(machine);
    if (reader.ParseL10nFile(L"EN-US", L"")) {
        const wchar_t* szName = reader.GetString(kProductNameText);
        if (szName) tstrProductName = szName;
    }
    Trace(kTraceInfo, L"tsProductName=='%s'", tstrProductName.c_str());
    return tstrProductName != kNewProductName;
}

void DecideAboutNewName(Machine& machine, const std::function<void()>& beforeQuestion)
{
    machine.BeginOperation(L"DecideAboutNewName");
    if (CheckIfNewProdNameApplied(machine)) {
        return ReportDecision(machine, Outcome::eStay, L"not due: an earlier run has scheduled it");
    }
    if (!NeedToApplyNewName(machine)) return;
    if (!CanScheduleNewName(machine)) return ReportDecision(machine, Outcome::eFail, L"the install folder is unknown");
    ReportDecision(machine, Outcome::eNew, {});
    // The marker comes first: the rename is scheduled at most once, even if its preparation fails.
    TagNewProdNameApplied(machine);
    PreparePostUdActionForNewName(machine);
    if (NeedToInformUser(machine)) {
        beforeQuestion();
        return RemindToReboot(machine);
    }
    Change change{.eAction = Action::eAsk, .eOutcome = Outcome::eStay};
    change.tstrReason = L"not asked: the product's texts have the new name";
    machine.Report(change);
}
