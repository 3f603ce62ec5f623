// B030 to B039: folders and files that the instruction file creates and removes.
#include "check/lint/Lint.h"
#include "check/lint/ProductFiles.h"
#include "check/update/Deliveries.h"
#include "check/update/Instructions.h"
#include "check/update/OpenFolder.h"

#include "agent/FileOperations.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileName.h"
#include "common/KzComn_NamePattern.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <set>
#include <string_view>

using namespace KzCommon;

namespace Check {

namespace {

/// What a file record is checked against.
struct FileContext {
    const Update& update;
    CustomerFolders folders;
    Deliveries brought;
    MovedSources sources;
    String::NoCaseSet created;  ///< folders, with trailing backslash
    std::size_t cCommands = 0;  ///< that are read after the removals
    std::size_t cTexts = 0;     ///< of the question, which are read later still
};

/// One record of QOR_DIR or QOR_FILE.
struct FileCheck {
    const IniRecord& record;
    int iOp;
    FileRecord parsed;
    const CustomerFolders& folders;
    Report& report;

    [[nodiscard]] bool IsFolder() const { return parsed.traits.bFolder; }
    [[nodiscard]] bool Deletes() const { return parsed.traits.eAction == Action::eDelete; }
    /// Whether it changes files before the run ends.
    [[nodiscard]] bool ChangesFilesNow() const { return !parsed.traits.bFolder && !parsed.traits.bAtRestart; }
    /// Without "..", as Windows takes it.
    [[nodiscard]] Check::Folder Folder() const
    {
        return Storage::Directory::FullPath(WithoutPrefix(parsed.tstrFolder));
    }
    void Add(Rule eRule, const std::wstring& tstrText, const std::wstring& tstrSuggestion = {}) const
    {
        report.Add(eRule, kInstructionFile, record.valuePlace, tstrText, tstrSuggestion);
    }
    /// The same with another record as the suggestion, unless that would be refused as well.
    void AddWithRecord(Rule eRule, const std::wstring& tstrText, const std::wstring& tstrRecord) const;
};

/// A name may have single quotes in it, so only those around a path are taken away.
std::wstring WithoutQuotes(std::wstring tstrText)
{
    std::erase(tstrText, L'"');
    if (tstrText.starts_with(L'\'')) tstrText.erase(0, 1);
    if (tstrText.ends_with(L'\'')) tstrText.pop_back();
    return tstrText;
}

/// A path whose beginning is left of a placeholder: that mistake has a rule of its own.
bool BeginsWithBraces(const std::wstring& tstrPath)
{
    return tstrPath.find_first_of(L"{}") < tstrPath.find(L'\\');
}

/// False for a record that the agent refuses.
bool CheckRefusal(const FileCheck& check)
{
    const bool bTooLong = check.parsed.tstrPath.size() > _MAX_PATH || check.parsed.eRefusal == FileRefusal::eTooLong;
    if (bTooLong) {
        check.Add(Rule::ePathTooLong, L"the path has " + std::to_wstring(check.parsed.tstrPath.size()) +
                                          L" characters, at most 260 are taken");
        return false;
    }
    switch (check.parsed.eRefusal) {
        case FileRefusal::eNone:
        case FileRefusal::eTooLong: return true;
        case FileRefusal::eNotSplit:
            check.Add(Rule::ePathTooLong, L"a part of the path has more than 255 characters");
            return false;
        case FileRefusal::eNotAFullPath: break;
    }
    if (BeginsWithBraces(check.parsed.tstrPath)) return false;
    const std::wstring& tstrPath = check.parsed.tstrPath;
    const bool bFull = String::IsFullPath(tstrPath);
    const bool bQuoted = tstrPath.starts_with(L'\'') || tstrPath.find(L'"') != std::wstring::npos;
    // What begins with a variable or a quote is meant to be a full path.
    const bool bRelative = !bFull && tstrPath.find(L':') == std::wstring::npos && tstrPath.find_first_of(L"%'") != 0;
    const std::size_t uName = std::min(tstrPath.find_first_not_of(L"\\/"), tstrPath.size());
    const std::wstring tstrShown = L"\"" + tstrPath + L"\" is ";
    check.AddWithRecord(Rule::eNoFullPath,
                        bQuoted ? L"the quotes are part of the path, which needs none for its spaces: remove the quotes"
                                : tstrShown + (bFull ? L"a whole drive or share" : L"no full path"),
                        bQuoted     ? WithoutQuotes(check.record.tstrValue)
                        : bRelative ? kInstalledDir + tstrPath.substr(uName)
                                    : std::wstring());
    return false;
}

/// One name of a path; with `bPattern` the last one of a file record.
void CheckName(const FileCheck& check, const std::wstring& tstrName, bool bPattern)
{
    if (!bPattern && tstrName.find_first_of(L"*?") != std::wstring::npos) {
        check.Add(Rule::eWildcardInFolder, L"\"" + tstrName + L"\" is a folder: only a file's name may be a pattern");
        return;
    }
    const bool bDots = tstrName.find_first_not_of(L'.') == std::wstring::npos;
    const bool bCharacter = std::any_of(tstrName.begin(), tstrName.end(), [](wchar_t ch) {
        return ch < L' ' || std::wstring_view(L"<>\"|:").find(ch) != std::wstring_view::npos;
    });
    if (tstrName.find(L'"') != std::wstring::npos) {
        check.AddWithRecord(Rule::eNameNotAllowed,
                            L"Windows allows no quotes in the name \"" + tstrName + L"\": remove the quotes",
                            WithoutQuotes(check.record.tstrValue));
    } else if (bCharacter || Storage::File::IsDevice(tstrName)) {
        check.Add(Rule::eNameNotAllowed, L"Windows does not allow the name \"" + tstrName + L"\"");
    } else if (!bPattern && !bDots && (tstrName.ends_with(L'.') || tstrName.ends_with(L' '))) {
        check.Add(Rule::eNameNotAllowed, L"Windows drops the end of the name \"" + tstrName + L"\"");
    }
}

void CheckNames(const FileCheck& check)
{
    const std::wstring& tstrPath = check.parsed.tstrPath;
    std::size_t uBegin = Storage::Directory::RootLength(tstrPath);
    while ((uBegin = tstrPath.find_first_not_of(L"\\/", uBegin)) != std::wstring::npos) {
        const std::size_t uEnd = std::min(tstrPath.find_first_of(L"\\/", uBegin), tstrPath.size());
        const bool bPattern = check.Deletes() && !check.IsFolder() && uEnd == tstrPath.size();
        CheckName(check, tstrPath.substr(uBegin, uEnd - uBegin), bPattern);
        uBegin = uEnd;
    }
}

void FileCheck::AddWithRecord(Rule eRule, const std::wstring& tstrText, const std::wstring& tstrRecord) const
{
    // The suggestion is checked like a record of its own: an invalid one would not help.
    Report findings;
    const FileCheck other{record, iOp, ParseFileRecord(iOp, folders.Expand(tstrRecord)), folders, findings};
    const bool bTaken = !tstrRecord.empty() && other.parsed.eRefusal == FileRefusal::eNone && CheckRefusal(other);
    if (bTaken) CheckNames(other);
    Add(eRule, tstrText, bTaken && findings.Sorted().empty() ? tstrRecord : std::wstring());
}

void CheckFolderAsFile(const FileCheck& check, const FileContext& around)
{
    if (check.IsFolder()) return;
    const bool bNoName = check.parsed.tstrPattern.empty();
    // Nothing else of this machine is looked at: a record may name a share on a server.
    const bool bKnown = around.update.InstalledFolder() &&
                        String::IsBelow(check.parsed.tstrPath, around.folders.InstalledDir()) &&
                        Storage::Directory::IsExisted(check.parsed.tstrPath);
    if (bNoName || bKnown) {
        check.Add(Rule::eFolderAsFile,
                  L"\"" + check.parsed.tstrPath + L"\" is a folder: nothing is removed; folders belong into [QOR_DIR]");
    }
}

/// How many files a deletion takes away, and the gravest case.
struct Losses {
    std::size_t cFiles = 0;
    bool bForGood = false;
    std::wstring tstrExample;

    void Add(const std::wstring& tstrPath, bool bGone)
    {
        if (cFiles++ == 0 || (bGone && !bForGood)) tstrExample = tstrPath;
        bForGood = bForGood || bGone;
    }
};

/// One file that this update brings into a place that is cleared. Deletions are looked up during the run and carried
/// out after the moves.
void AddLoss(Losses& losses, const FileCheck& check, const FileContext& around, const Delivery& file)
{
    const bool bAtOnce = file.eWhen == PackageLayout::When::eNow;
    const bool bUnknown = !around.update.InstalledFolder();
    if (!bAtOnce && !bUnknown && !Storage::File::IsExisted(file.tstrDestination)) return;
    losses.Add(file.tstrDestination, bAtOnce || !check.ChangesFilesNow());
}

Losses LossesIn(const FileCheck& check, const FileContext& around)
{
    Losses losses;
    const std::wstring tstrFolder = check.Folder();
    if (check.IsFolder()) {
        for (auto it = around.brought.lower_bound(tstrFolder);
             it != around.brought.end() && String::StartsWithNoCase(it->first, tstrFolder); ++it) {
            for (const Delivery& file : it->second) AddLoss(losses, check, around, file);
        }
        return losses;
    }
    const auto itFolder = around.brought.find(tstrFolder);
    if (itFolder == around.brought.end()) return losses;
    for (const Delivery& file : itFolder->second) {
        const std::wstring tstrName = file.tstrDestination.substr(tstrFolder.size());
        if (Storage::File::MatchesPattern(tstrName, check.parsed.tstrPattern)) AddLoss(losses, check, around, file);
    }
    return losses;
}

/// Files that are deleted from the download folder before the restart can move them.
void AddDeletedSources(Losses& losses, const FileCheck& check, const FileContext& around)
{
    if (!check.ChangesFilesNow()) return;
    const std::wstring& tstrInstalled = around.folders.InstalledDir();
    const std::wstring tstrFolder = check.Folder();
    if (tstrFolder.size() <= tstrInstalled.size()) return;
    const auto itSources = around.sources.find(tstrFolder.substr(tstrInstalled.size()));
    if (itSources == around.sources.end()) return;
    for (const std::wstring& tstrName : itSources->second) {
        if (Storage::File::MatchesPattern(tstrName, check.parsed.tstrPattern)) losses.Add(tstrFolder + tstrName, true);
    }
}

void CheckLosses(const FileCheck& check, const FileContext& around)
{
    if (!check.Deletes()) return;
    Losses losses = LossesIn(check, around);
    AddDeletedSources(losses, check, around);
    if (losses.cFiles == 0) {
        const bool bCreated = check.IsFolder() && around.created.contains(check.Folder().Text());
        if (bCreated) {
            check.report.AddAs(Severity::eWarning, Rule::eDeletesWhatItBrings, kInstructionFile,
                               check.record.valuePlace, L"the folder is created by this update");
        }
        return;
    }
    const std::wstring tstrMore =
        losses.cFiles > 1 ? L" and " + std::to_wstring(losses.cFiles - 1) + L" more" : std::wstring();
    check.report.AddAs(losses.bForGood ? Severity::eError : Severity::eWarning, Rule::eDeletesWhatItBrings,
                       kInstructionFile, check.record.valuePlace,
                       L"this update brings \"" + losses.tstrExample + L"\"" + tstrMore +
                           (losses.bForGood ? L": gone in the end" : L": missing until the restart"));
}

/// The instruction file is read section by section: what comes after the removals is not found any more. A deletion at
/// the restart does no harm.
void CheckInstructionsKept(const FileCheck& check, const FileContext& around)
{
    if (!check.ChangesFilesNow() || !String::EqualsNoCase(check.Folder(), around.folders.InstalledDir()) ||
        !Storage::File::MatchesPattern(kInstructionFile, check.parsed.tstrPattern)) {
        return;
    }
    const auto add = [&](Severity eSeverity, const wchar_t* szLost) {
        check.report.AddAs(eSeverity, Rule::eDeletesInstructions, kInstructionFile, check.record.valuePlace,
                           L"\"" + check.parsed.tstrPattern + L"\" " + (check.Deletes() ? L"deletes" : L"replaces") +
                               L" the instruction file before " + szLost);
    };
    if (around.cCommands > 0) {
        add(Severity::eError, L"[Run] is read: all commands are lost; narrow the pattern");
    } else if (around.cTexts > 0) {
        add(Severity::eWarning, L"the question's texts are read: it is in English; narrow the pattern");
    }
}

void CheckUsersFolder(const FileCheck& check, const FileContext& around)
{
    const std::wstring tstrFolder = check.Folder();
    if (!IsUsersFolder(tstrFolder, around.folders.InstalledDir())) return;
    const std::wstring tstrReplaced = L"until the restart a user may replace \"" + tstrFolder + L"\" by a link";
    if (check.parsed.traits.eAction == Action::eCreateFolder) {
        check.Add(Rule::eFolderUsersWrite,
                  L"\"" + tstrFolder + L"\" inherits its access list: every user may create files in it");
    } else if (check.IsFolder()) {
        check.Add(Rule::eDelayedInUsersFolder, tstrReplaced + L": clear it with delete_now, folder by folder");
    } else if (check.parsed.traits.bAtRestart) {
        check.Add(Rule::eDelayedInUsersFolder, tstrReplaced, check.Deletes() ? L"delete_now" : L"");
    }
}

/// The folder of a QOR_DIR "add" (with trailing backslash) and those above it, which are created with it.
void AddCreated(String::NoCaseSet& created, std::wstring tstrFolder)
{
    while (tstrFolder.size() > 3 && created.insert(tstrFolder).second) {
        tstrFolder.pop_back();
        tstrFolder = String::FolderPart(tstrFolder);
    }
}

/// Reports destination folders that no record creates. Places outside the install folder are unknown.
void CheckDestinations(const FileContext& around, Report& report)
{
    const std::wstring& tstrInstalled = around.folders.InstalledDir();
    if (!around.update.InstalledFolder()) return;
    for (const auto& [tstrLower, files] : around.brought) {
        const std::wstring tstrFolder = String::FolderPart(files.front().tstrDestination);
        if (!String::IsBelow(tstrFolder, tstrInstalled) || around.created.count(tstrLower) > 0 ||
            Storage::Directory::IsExisted(tstrFolder))
            continue;
        const std::wstring tstrName = tstrFolder.substr(tstrInstalled.size());
        report.Add(Rule::eNoDestinationFolder, files.front().tstrSource, {},
                   L"the installed product has no folder \"" + tstrName + L"\" and [QOR_DIR] adds none: " +
                       std::to_wstring(files.size()) + (files.size() == 1 ? L" file stays" : L" files stay") +
                       L" behind",
                   std::wstring(L"add={InstalledDir}") + tstrName.substr(0, tstrName.size() - 1));
    }
}

/// Files that Windows does not take where long paths are not switched on: in their places, or where they are
/// downloaded.
void CheckLengths(const FileContext& around, Report& report)
{
    const std::size_t cchInstalled = around.folders.InstalledDir().Text().size();
    for (const auto& [tstrLower, files] : around.brought) {
        const auto lengthOf = [&](const Delivery& file) {
            return std::max(file.tstrDestination.size(), cchInstalled + file.tstrSource.size());
        };
        const auto isLong = [&](const Delivery& file) {
            return lengthOf(file) >= MAX_PATH;
        };
        const auto itFirst = std::find_if(files.begin(), files.end(), isLong);
        if (itFirst == files.end()) continue;
        const bool bInPlace = itFirst->tstrDestination.size() >= MAX_PATH;
        const auto cMore = std::count_if(std::next(itFirst), files.end(), isLong);
        report.Add(Rule::ePathTooLong, itFirst->tstrSource, {},
                   std::wstring(bInPlace ? L"in its place" : L"in the download folder") + L" the path has " +
                       std::to_wstring(bInPlace ? itFirst->tstrDestination.size() : lengthOf(*itFirst)) +
                       L" characters: without long paths switched on Windows takes 259" +
                       (cMore > 0 ? L"; and " + std::to_wstring(cMore) + L" more" : std::wstring()));
    }
}

void CheckPath(const Instruction& instruction, FileContext& around, Report& report)
{
    const int iOp = FileOpOf(instruction.pKey->eEffect);
    const FileCheck check{*instruction.pRecord, iOp,
                          ParseFileRecord(iOp, around.folders.Expand(instruction.pRecord->tstrValue)), around.folders,
                          report};
    if (!CheckRefusal(check)) return;
    if (check.parsed.traits.eAction == Action::eCreateFolder) AddCreated(around.created, check.Folder());
    CheckNames(check);
    CheckFolderAsFile(check, around);
    CheckLosses(check, around);
    CheckInstructionsKept(check, around);
    CheckUsersFolder(check, around);
}

}  // namespace

void CheckFileRecords(const LintContext& context, Report& report)
{
    const std::wstring tstrInstalled = context.update.InstalledFolder().value_or(kUsualInstallFolder);
    FileContext around{context.update,
                       CustomerFolders(tstrInstalled, context.update.Product().tstrDownloadPath),
                       SortDeliveries(context.update),
                       {},
                       {},
                       0,
                       0};
    around.sources = ListMovedSources(around.brought);
    const std::vector<Instruction> instructions = ListInstructions(context.instructions);
    std::vector<const Instruction*> paths;
    for (const Instruction& instruction : instructions) {
        switch (FormOf(instruction.pKey->eEffect)) {
            case RecordForm::ePath: paths.push_back(&instruction); break;
            case RecordForm::eCommand: ++around.cCommands; break;
            case RecordForm::eText: ++around.cTexts; break;
            case RecordForm::eRegistryValue:
            case RecordForm::eTag:
            case RecordForm::eIniValue: break;  // no files
        }
    }
    for (const Instruction* const pInstruction : paths) CheckPath(*pInstruction, around, report);
    CheckDestinations(around, report);
    CheckLengths(around, report);
}

}  // namespace Check
