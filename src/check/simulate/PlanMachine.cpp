#include "check/simulate/PlanMachine.h"

#include "agent/DeployFramework.h"
#include "agent/NewNameDecision.h"
#include "agent/PostRestartRename.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMostRegistryBytes = std::size_t{64} * 1024 * 1024;
/// The files that the update client copies to the install folder.
constexpr const wchar_t* kLaidFiles[] = {L"QorPaFrwk.ini", L"UpdateInfo.ini"};
constexpr wchar_t kLaidFolder[] = L"Component";

void LayUpdate(SimulatedMachine& machine, const PlanFolders& folders)
{
    if (String::EqualsNoCase(folders.updateDir.Text(), folders.installedDir.Text())) return;
    if (machine.HasFolder(folders.updateDir / kLaidFolder)) {
        machine.LayOver(folders.installedDir / kLaidFolder, folders.updateDir / kLaidFolder);
    }
    for (const wchar_t* const szFile : kLaidFiles) {
        const std::wstring tstrFile = folders.updateDir / szFile;
        if (machine.HasFile(tstrFile)) machine.AddFileFrom(folders.installedDir / szFile, tstrFile);
    }
}

/// What an installed product has elsewhere on drive C: is in this folder of a copy of it.
void LayOutside(SimulatedMachine& machine, const Folder& installedDir)
{
    const Folder outside = installedDir / kOutsideFolder;
    std::vector<std::wstring> folders;
    const auto lay = [&](const Storage::Directory::Entry& entry) {
        if (entry.bFolder) {
            folders.push_back(entry.tstrName);
        } else {
            machine.AddFileFrom(L"C:\\" + entry.tstrName, outside / entry.tstrName);
        }
    };
    static_cast<void>(machine.ForEachEntry(outside, L"*", lay, nullptr));
    for (const std::wstring& tstrName : folders) machine.LayOver(L"C:\\" + tstrName, outside / tstrName);
}

/// Adds the name to the decision about it: the one that the product has when its texts have arrived.
void AddNewName(const Machine& machine, std::vector<PlanStep>& steps)
{
    for (PlanStep& step : steps) {
        for (Change& change : step.changes) {
            if (change.eAction != Action::eNewName) continue;
            change.tstrTarget = NewProductName(machine);
            if (change.eOutcome == Outcome::eNew && change.tstrTarget.empty()) {
                change.tstrReason += L"; without StringTable.ini of the product's language the name becomes empty";
            }
        }
    }
}

}  // namespace

std::vector<std::size_t> PrepareForPlan(SimulatedMachine& machine, const PlanFolders& folders)
{
    if (folders.bCopy) LayOutside(machine, folders.installedDir);
    LayUpdate(machine, folders);
    std::vector<std::size_t> unknown;
    std::string strBytes;
    if (folders.bCopy &&
        machine.ReadContent(folders.installedDir / kRegistryFile, kMostRegistryBytes, strBytes, nullptr)) {
        // The file describes another machine, so this machine's values of the product do not count.
        machine.RemoveKey({.tstrKeyPath = Frwk::Utility::kProductKey, .tstrName = {}});
        unknown = machine.LoadRegistryText(strBytes);
    }
    const RegistryPlace path{.tstrKeyPath = Frwk::Utility::kProductKey,
                             .tstrName = L"ProductPath",
                             .dwView = Frwk::Utility::ProductRegistryView()};
    RegistryData known = std::wstring();
    const bool bKnown = machine.ReadValue(path, known, nullptr) &&
                        String::EqualsNoCase(Folder(std::get<std::wstring>(known)).Text(), folders.installedDir.Text());
    if (!bKnown) machine.SetValue(path, ToStored(folders.installedDir));
    if (!folders.tstrLanguage.empty()) {
        machine.SetValue({.tstrKeyPath = Frwk::Utility::kProductKey,
                          .tstrName = L"Language",
                          .dwView = Frwk::Utility::ProductRegistryView()},
                         ToStored(folders.tstrLanguage));
    }
    machine.SetKnownFolder(KnownFolder::eProgram, folders.installedDir);
    return unknown;
}

void RunAgent(Machine& machine)
{
    if (DeployFramework(machine)) DecideAboutNewName(machine, [] {});
}

PlannedRun PlanRun(const Machine& base, const PlanFolders& folders, const std::function<void(Machine&)>& run,
                   bool bTrace)
{
    constexpr DWORD kAllLevels = kTraceStep | kTraceInfo | kTraceError;
    PlannedRun planned;
    SimulatedMachine machine(&base);
    planned.unknownLines = PrepareForPlan(machine, folders);
    if (bTrace) {
        GlobalDebugLog().OpenFor(L"Brevant", kAllLevels,
                                 [&](const std::wstring& tstrLine) { planned.tstrTrace += tstrLine; });
    }
    run(machine);
    if (bTrace) CloseGlobalDebugLog();
    machine.Restart();
    planned.steps = machine.Steps();
    AddNewName(machine, planned.steps);
    SimulatedMachine before(&base);
    const std::wstring tstrSettings = folders.installedDir / L"config.xml";
    planned.lost = ListLostSettings(before, tstrSettings, machine, tstrSettings);
    return planned;
}

}  // namespace Check
