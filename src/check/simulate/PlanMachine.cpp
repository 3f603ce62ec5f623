#include "check/simulate/PlanMachine.h"

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

}  // namespace

std::vector<std::size_t> PrepareForPlan(SimulatedMachine& machine, const PlanFolders& folders)
{
    LayUpdate(machine, folders);
    std::vector<std::size_t> unknown;
    std::string strBytes;
    if (folders.bTakeRegistryFile &&
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
    SimulatedMachine before(&base);
    const std::wstring tstrSettings = folders.installedDir / L"config.xml";
    planned.lost = ListLostSettings(before, tstrSettings, machine, tstrSettings);
    return planned;
}

}  // namespace Check
