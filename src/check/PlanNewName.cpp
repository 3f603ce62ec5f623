// The product's new name in a plan.
#include "check/PlanSteps.h"

#include "agent/NewNameDecision.h"
#include "agent/RestartReminder.h"
#include "common/Frwk_Utility.h"
#include "common/L10nReader.h"

namespace Check {

namespace {

/// Why the name is not due; empty when it is.
std::wstring WhyNotDue(const PlanWork& work)
{
    if (work.forecast.ProductText(kMarkerName, L"") == kMarkerData) return L"it has been scheduled before";
    std::wstring tstrBuild;
    const std::wstring tstrVersion = work.forecast.ProductText(L"Version", L"");
    switch (JudgeNewName(work.forecast.ProductText(L"Language", L""), tstrVersion, tstrBuild)) {
        case NewNameNeed::eJapanese: return L"the product's language is ja-jp";
        case NewNameNeed::eVersionInvalid: return L"the product's version \"" + tstrVersion + L"\" has no build number";
        case NewNameNeed::eNewEnough: return L"build " + tstrBuild + L" of the product has it";
        case NewNameNeed::eDue: break;
    }
    return {};
}

/// The name that the installed product shows, as far as its English texts tell.
std::wstring ShownName(const std::wstring& tstrInstallDir)
{
    CL10nReader reader;
    const wchar_t* const szName = reader.ParseTable(tstrInstallDir + L"Resource\\EN-US\\StringTable.ini", L"")
                                      ? reader.GetString(L"S_STR_PRODUCT_NAME")
                                      : nullptr;
    return szName ? szName : L"";
}

void PlanQuestion(PlanWork& work)
{
    Change change{.eAction = Action::eAsk, .eOutcome = Outcome::eNew};
    constexpr const Section& kSection = SectionOf(L"RestartNotification_", L"RemindToReboot");
    SectionRecords records;
    if (!work.Read(kSection, records, work.Language())) {
        change.tstrReason = std::exchange(work.plan.steps.back().tstrReason, {}) + L": built-in texts";
    }
    const Notification notification = MakeNotification(records);
    change.tstrName = notification.tstrTitle;
    change.tstrTarget = notification.tstrMessage;
    if (ShownName(work.paths.InstallDir()) == kNewProductName) {
        change.eOutcome = Outcome::eStay;
        change.tstrReason = L"not asked: the product's texts have the new name";
    }
    work.Add(std::move(change));
}

}  // namespace

void PlanNewName(PlanWork& work)
{
    work.Begin(L"DecideAboutNewName");
    Change decision{.eAction = Action::eNewName, .eOutcome = Outcome::eNew, .bAtRestart = true};
    decision.tstrTarget = kNewProductName;
    decision.tstrReason = WhyNotDue(work);
    const bool bDue = decision.tstrReason.empty();
    if (!bDue) decision.eOutcome = Outcome::eStay;
    work.Add(std::move(decision));
    if (!bDue) return;
    PlanValue(work, Frwk::Utility::kProductKey, kMarkerName, {REG_SZ, kMarkerData});
    const std::wstring& tstrFolder = work.paths.InstallDir();
    static_cast<void>(PlanCopy(work, Action::eCopy, tstrFolder + kShortcutFile, tstrFolder + kShortcutBackupFile));
    PlanCommand(work, kNewNameCommand);
    PlanQuestion(work);
}

}  // namespace Check
