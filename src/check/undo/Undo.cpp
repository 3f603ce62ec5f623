#include "check/undo/Undo.h"

#include "check/simulate/FullPath.h"
#include "check/simulate/Plan.h"
#include "check/simulate/PlanMachine.h"
#include "check/undo/UndoParts.h"
#include "check/update/ErrorText.h"
#include "check/update/HostPaths.h"
#include "check/update/NewFolder.h"
#include "check/update/OpenFolder.h"
#include "check/update/ShownText.h"
#include "check/verify/Manifest.h"
#include "check/verify/PendingMoves.h"

#include "agent/NewNameDecision.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_WindowsMachine.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

/// Deploys an update on a machine in memory, and restarts it.
void Deploy(SimulatedMachine& machine, const PlanFolders& folders, Touched& touched)
{
    static_cast<void>(PrepareForPlan(machine, folders));
    RunAgent(machine);
    machine.Restart();
    touched.Add(machine.Steps());
}

std::wstring ReasonFor(const UndoParts& parts, const std::wstring& tstrName, bool bBefore, bool bNow)
{
    const auto itReason = parts.reasons.find(tstrName);
    if (itReason != parts.reasons.end()) return itReason->second;
    if (bBefore && bNow) return L"it is not as before";
    return bNow ? L"it stays" : L"it does not come back";
}

/// Lists the differences between the machine before the update and after its undo.
class Differences {
public:
    Differences(const UndoContext& context, const UndoParts& parts) : m_context(context), m_parts(parts) {}

    [[nodiscard]] std::vector<UncoveredPart> List()
    {
        AddPaths();
        AddValues();
        AddKeys();
        for (std::wstring tstrCommand : m_context.touched.commands) {
            String::ReplaceAll(tstrCommand, m_context.installed.Text(), L"{InstalledDir}");
            if (tstrCommand == kNewNameCommand) continue;  // named below
            Add(L"the effects of the command " + tstrCommand, L"they are not known");
        }
        if (m_context.touched.bNewName) {
            Add(L"the new name with its shortcuts and pinned items", L"the product keeps its new name");
        }
        Add(L"{InstalledDir}QorUpdate.json", L"it is the manifest of this update");
        Add(L"{InstalledDir}QorUpdate.json.sig", L"it is the signature of that manifest, when it has one");
        Add(L"{InstalledDir}QorPaFrwk.ini, {InstalledDir}Component and the download paths in UpdateInfo.ini",
            L"the update client writes them");
        return std::move(m_list);
    }

private:
    void Add(const std::wstring& tstrWhat, const std::wstring& tstrReason)
    {
        m_list.push_back({UncoveredKind::eNotRestored, OnOneLine(tstrWhat), OnOneLine(tstrReason)});
    }

    void AddPaths()
    {
        const SimulatedMachine& before = m_context.before;
        for (const std::wstring& tstrPath : m_context.touched.paths) {
            if (IsOfUpdates(m_context.installed, tstrPath) || IsSamePath(before, m_context.after, tstrPath)) continue;
            const bool bFolder = before.HasFolder(tstrPath) || m_context.after.HasFolder(tstrPath);
            const std::wstring tstrName = NameOfPath(m_context.installed, tstrPath) + (bFolder ? L"\\" : L"");
            Add(tstrName, ReasonFor(m_parts, tstrName, before.HasAny(tstrPath), m_context.after.HasAny(tstrPath)));
        }
    }

    void AddValues()
    {
        String::NoCaseSet newKeys;
        for (const NamePair& value : m_context.touched.values) {
            const RegistryPlace place = PlaceOf(value);
            AddNewKeys(value.first, newKeys);
            if (IsSameValue(m_context.before, m_context.after, value)) continue;
            StoredValue stored;
            const std::wstring tstrName = NameOfValue(value);
            Add(tstrName, ReasonFor(m_parts, tstrName, m_context.before.ReadStored(place, stored, nullptr),
                                    m_context.after.ReadStored(place, stored, nullptr)));
        }
    }

    /// The key of a value and those above it, as far as the update has created them.
    void AddNewKeys(const std::wstring& tstrKey, String::NoCaseSet& named)
    {
        for (std::size_t uEnd = 0; uEnd < tstrKey.size(); ++uEnd) {
            uEnd = std::min(tstrKey.find(L'\\', uEnd), tstrKey.size());
            const std::wstring tstrAbove = tstrKey.substr(0, uEnd);
            const RegistryPlace place = PlaceOf({tstrAbove, {}});
            const bool bNew = !m_context.before.HasKey(place) && m_context.after.HasKey(place);
            if (bNew && named.insert(NameOfKeyPath(tstrAbove)).second) {
                Add(NameOfKeyPath(tstrAbove), L"no record deletes a key");
            }
        }
    }

    void AddKeys()
    {
        const std::wstring tstrFile = m_context.installed / kUpdateInfoFile;
        if (!m_context.before.HasFile(tstrFile)) Add(L"{InstalledDir}UpdateInfo.ini", L"an update needs it");
        for (const auto& [key, szReason] : m_parts.keptKeys) Add(NameOfKey(key), szReason);
        for (const NamePair& key : m_context.touched.iniKeys) {
            if (m_parts.keptKeys.contains(key)) continue;
            const std::wstring tstrBefore = ReadKey(m_context.before, tstrFile, key);
            const std::wstring tstrNow = ReadKey(m_context.after, tstrFile, key);
            if (tstrBefore == tstrNow) continue;
            const std::wstring tstrName = NameOfKey(key);
            Add(tstrName, ReasonFor(m_parts, tstrName, !tstrBefore.empty(), !tstrNow.empty()));
        }
    }

    const UndoContext& m_context;
    const UndoParts& m_parts;
    std::vector<UncoveredPart> m_list;
};

/// The instruction file. It is for one product, in one language, and goes back on purpose.
std::wstring FormatInstructions(const UndoParts& parts, const std::vector<UncoveredPart>& notRestored)
{
    std::wstring tstrText =
        L"; Restores what another update has replaced or removed, on the product for which it was made.\r\n"
        L"; BrevantCheck: B046 B068 B072 B077 B078 NO-EFFECT\r\n";
    for (const UncoveredPart& part : notRestored) {
        tstrText += L"; " + std::wstring(kNotRestored) + part.tstrWhat + kWhyNot + part.tstrDetail + L"\r\n";
    }
    for (const UndoSection* const pSection :
         {&parts.folderRecords, &parts.fileRecords, &parts.valueRecords, &parts.settingRecords, &parts.infoRecords}) {
        if (pSection->lines.empty()) continue;
        tstrText += L"\r\n[" + std::wstring(pSection->szName) + L"]\r\n";
        for (const std::wstring& tstrLine : pSection->lines) tstrText += tstrLine + L"\r\n";
    }
    return tstrText;
}

/// Writes one file of the new update, with an error line when it cannot be written.
bool Report(const std::wstring& tstrPath, bool bWritten, DWORD dwError, Output& output)
{
    if (!bWritten) output.tstrErrors += tstrPath + L": cannot be written: " + DescribeError(dwError) + L"\n";
    return bWritten;
}

bool WriteText(const std::wstring& tstrPath, const std::wstring& tstrText, Output& output)
{
    DWORD dwError = ERROR_SUCCESS;
    const bool bWritten = WriteNewFile(tstrPath, ToUtf16File(tstrText), &dwError);
    return Report(tstrPath, bWritten, dwError, output);
}

bool CopyInstalled(const SimulatedMachine& before, const std::wstring& tstrPath, const std::wstring& tstrFrom,
                   Output& output)
{
    SimulatedMachine::Content content;
    DWORD dwError = ERROR_SUCCESS;
    bool bWritten = before.OpenContent(tstrFrom, content, &dwError);
    if (bWritten && !content.tstrReal.empty()) {
        bWritten = CopyNewFile(tstrPath, content.tstrReal, &dwError);
    } else if (bWritten) {
        dwError = ERROR_NOT_SUPPORTED;
        bWritten = content.optBytes && WriteNewFile(tstrPath, *content.optBytes, &dwError);
    }
    return Report(tstrPath, bWritten, dwError, output);
}

/// Writes the manifest of the new update into it, with the list in the instruction file.
bool ShipManifest(const Folder& folder, Output& output)
{
    Arguments arguments;
    arguments.operands = {folder};
    arguments.bInto = true;
    Output written;
    const bool bWritten = RunManifest(arguments, written) == kClean;
    if (!bWritten) output.tstrErrors += written.tstrErrors;
    return bWritten;
}

/// Creates the folder of the package, which may be empty.
bool MakePackage(const UndoParts& parts, const Folder& folder, Output& output)
{
    const Folder package = folder / kComponents + parts.tstrPackage;
    DWORD dwError = ERROR_SUCCESS;
    const bool bMade = MakeFolder(package, &dwError);
    return Report(package, bMade, dwError, output);
}

/// Writes everything but the list. The manifest's folder decides whether the settings step takes place.
bool WriteUpdate(const UndoParts& parts, const SimulatedMachine& before, const Folder& folder, Output& output)
{
    const bool bFiles = std::all_of(parts.files.begin(), parts.files.end(), [&](const auto& file) {
        return CopyInstalled(before, folder / file.first, file.second, output);
    });
    return bFiles && WriteText(folder / kUpdateInfoFile, parts.tstrUpdateInfo, output) &&
           WriteText(folder / kInstructionFile, FormatInstructions(parts, {}), output) &&
           MakePackage(parts, folder, output) && ShipManifest(folder, output);
}

std::string Summary(const std::wstring& tstrGiven, const UndoParts& parts, const std::vector<UncoveredPart>& list)
{
    std::wstring tstrText = WithHostPaths(tstrGiven) + L": written; it brings " +
                            Counted(parts.files.size(), L"file", L"files") +
                            L". It does not restore, as its manifest says:\n";
    for (const UncoveredPart& part : list) tstrText += L"  " + part.tstrWhat + L": " + part.tstrDetail + L"\n";
    return String::ToUtf8(tstrText);
}

int NotComplete(const std::wstring& tstrGiven, const Folder& folder, Output& output)
{
    if (Storage::Directory::IsExisted(folder)) output.tstrErrors += tstrGiven + L": not complete; delete it\n";
    return kCannotRead;
}

/// A folder in the form in which the machine in memory names it.
Folder PlainFolder(const std::wstring& tstrFolder)
{
    return FullPath(tstrFolder).WithoutBackslash().Text();
}

/// Whether the new update would change the update that it undoes, or the product.
bool IsInside(const std::wstring& tstrGiven, const UndoContext& context)
{
    const Folder folder = PlainFolder(tstrGiven);
    return String::StartsWithNoCase(folder.Text(), PlainFolder(context.update.Root()).Text()) ||
           String::StartsWithNoCase(folder.Text(), context.installed);
}

/// Whether the product is between two states.
bool WaitsForRestart(const Machine& machine, const Folder& installed)
{
    const std::vector<PendingMove> moves = ReadPendingMoves(machine);
    return std::any_of(moves.begin(), moves.end(), [&](const PendingMove& move) {
        return installed.Contains(move.tstrSource) || installed.Contains(move.tstrDestination);
    });
}

/// Writes the update that undoes the one of the context, for the product in a folder as its registry names it, and
/// deploys it in memory to list what it does not restore.
int WriteUndo(UndoContext& context, const Folder& installedDir, const std::wstring& tstrGiven, Output& output)
{
    const Folder folder = Storage::Directory::FullPath(tstrGiven);
    const UndoParts parts = MakeUndo(context);
    if (!WriteUpdate(parts, context.before, folder, output)) return NotComplete(tstrGiven, folder, output);
    const std::vector<std::wstring> commands = context.touched.commands;
    Deploy(context.after, {folder, installedDir}, context.touched);
    context.touched.commands = commands;  // the machine's list has them once more
    const std::vector<UncoveredPart> notRestored = Differences(context, parts).List();
    if (!WriteText(folder / kInstructionFile, FormatInstructions(parts, notRestored), output) ||
        !ShipManifest(folder, output)) {
        return NotComplete(tstrGiven, folder, output);
    }
    for (const DoubtfulPlace& place : ListDoubtfulPlaces(folder)) {
        output.tstrErrors += place.tstrPlace + L": " + Describe(place) + L"; an elevated agent will deploy it\n";
    }
    if (!parts.bAny) {
        output.tstrErrors += context.update.GivenFolder() +
                             L": nothing to restore; is it deployed already, or does its UpdateInfo.ini not name its "
                             L"packages?\n";
    }
    output.strText = Summary(tstrGiven, parts, notRestored);
    return kClean;
}

}  // namespace

int RunUndo(const Arguments& arguments, Output& output)
{
    if (!arguments.optOutput) {
        output.tstrErrors += L"--output NEW is missing: the folder of the new update\n";
        return kWrongUse;
    }
    Update update;
    Plan plan;
    if (!IsFreeFolder(*arguments.optOutput, output) || !OpenPlan(arguments, update, plan, output)) return kCannotRead;
    const WindowsMachine machine;
    const bool bCopy = arguments.optInstalled.has_value();
    SimulatedMachine before(&machine);
    SimulatedMachine after(&machine);
    static_cast<void>(PrepareForPlan(before, {plan.installedDir, plan.installedDir, bCopy}));
    // The registry may write the folder in its own way.
    UndoContext context{update, PlainFolder(plan.installedDir), before, after, {}};
    if (IsInside(*arguments.optOutput, context)) {
        output.tstrErrors += *arguments.optOutput + L": is in the folder of the update or of the product\n";
        return kWrongUse;
    }
    if (WaitsForRestart(machine, context.installed)) {
        output.tstrErrors +=
            context.installed.Text() +
            L": files wait for the restart; restart Windows first, so that there is a state to restore\n";
        return kCannotRead;
    }
    Deploy(after, {update.Root(), plan.installedDir, bCopy}, context.touched);
    const Folder now = PlainFolder(Frwk::Utility::GetInstalledFolder(after));
    if (!String::EqualsNoCase(now.Text(), context.installed.Text())) {
        output.tstrErrors += update.GivenFolder() + L": changes ProductPath: no later update finds the product\n";
        return kCannotRead;
    }
    return WriteUndo(context, plan.installedDir, *arguments.optOutput, output);
}

}  // namespace Check
