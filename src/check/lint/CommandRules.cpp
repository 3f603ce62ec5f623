// B050 to B057: run-once commands.
#include "check/lint/CommandWords.h"
#include "check/lint/Lint.h"
#include "check/lint/ProductFiles.h"
#include "check/lint/SecretText.h"
#include "check/update/Deliveries.h"
#include "check/update/Instructions.h"
#include "check/update/OpenFolder.h"

#include "agent/RunOnce.h"
#include "common/KzComn_File.h"
#include "common/KzComn_NamePattern.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <string_view>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMaxCommandCharacters = 260;  // Windows passes longer values of its run-once key over

bool BeginsWithDrive(const std::wstring& tstrText)
{
    return tstrText.size() > 2 && tstrText[1] == L':' && tstrText[2] == L'\\';
}

/// One command.
struct CommandCheck {
    const IniRecord& record;
    std::wstring tstrExpanded;
    std::vector<Word> words;  ///< placeholders expanded
    Report& report;

    void Add(Rule eRule, std::size_t uAt, const std::wstring& tstrText, const std::wstring& tstrSuggestion = {}) const
    {
        AddAs(RowOf(eRule).eSeverity, eRule, uAt, tstrText, tstrSuggestion);
    }
    void AddAs(Severity eSeverity, Rule eRule, std::size_t uAt, const std::wstring& tstrText,
               const std::wstring& tstrSuggestion = {}) const
    {
        const TextPosition place{record.valuePlace.uLine, static_cast<unsigned>(record.valuePlace.uColumn + uAt)};
        report.AddAs(eSeverity, eRule, kInstructionFile, place, tstrText, tstrSuggestion);
    }
};

void CheckLength(const CommandCheck& check)
{
    const std::size_t cch = check.tstrExpanded.size();
    if (cch <= kMaxCommandCharacters) return;
    const bool bRegistered = IsRecordLengthValid(MakeRunOnceRecord(MakeUniqueName(), check.tstrExpanded));
    check.Add(Rule::eCommandTooLong, 0,
              L"the command has " + std::to_wstring(cch) + L" characters, expanded: " +
                  (bRegistered ? L"Windows runs at most 260" : L"it is not even registered"));
}

/// The command with the output of "echo" replaced by spaces: that output is text, not a path.
std::wstring WithoutEchoedText(std::wstring tstrCommand)
{
    const std::wstring tstrLower = String::LowerCase(tstrCommand);
    std::size_t uEcho = 0;
    while ((uEcho = tstrLower.find(L"echo ", uEcho)) != std::wstring::npos) {
        const bool bWord = uEcho == 0 || std::wstring_view(L" \"@&|(").find(tstrLower[uEcho - 1]) != std::wstring::npos;
        for (uEcho += 5; bWord && uEcho < tstrCommand.size(); ++uEcho) {
            if (std::wstring_view(L"><&|\"").find(tstrCommand[uEcho]) != std::wstring_view::npos) break;
            tstrCommand[uEcho] = L' ';
        }
    }
    return tstrCommand;
}

/// Reports a placeholder outside quotes whose folder contains spaces on most machines.
void CheckQuotes(const CommandCheck& check)
{
    const CustomerFolders usual(kUsualInstallFolder, L"...");
    bool bQuotes = false;
    const std::wstring tstrCommand = WithoutEchoedText(WithPlainQuotes(check.record.tstrValue));
    for (std::size_t uAt = 0; uAt < tstrCommand.size(); ++uAt) {
        if (tstrCommand[uAt] == L'"') bQuotes = !bQuotes;
        if (bQuotes || tstrCommand[uAt] != L'{') continue;
        for (const Placeholder& placeholder : kPlaceholders) {
            const std::wstring tstrText = placeholder.szText;
            if (tstrCommand.compare(uAt, tstrText.size(), tstrText) != 0) continue;
            const std::wstring tstrFolder = usual.Expand(tstrText);
            if (tstrFolder.find(L' ') == std::wstring::npos) continue;
            check.Add(Rule::eUnquotedPath, uAt, tstrText + L" is outside quotes and contains spaces: " + tstrFolder);
            return;
        }
    }
}

/// Reports a path that ends without an extension at a space and continues after it. False if there is one.
bool CheckBlanks(const CommandCheck& check)
{
    const std::vector<Word> words = SplitCommand(WithoutEchoedText(WithPlainQuotes(check.record.tstrValue)));
    for (std::size_t u = 0; u + 1 < words.size(); ++u) {
        const std::wstring& tstrText = words[u].tstrText;
        const std::wstring& tstrNext = words[u + 1].tstrText;
        const std::size_t uName = tstrText.rfind(L'\\') + 1;
        const bool bBreaksOff = !words[u].bQuoted && BeginsWithDrive(tstrText) && uName < tstrText.size() &&
                                tstrText.find(L'.', uName) == std::wstring::npos;
        const bool bGoesOn = !words[u + 1].bQuoted && tstrNext.find(L'\\') != std::wstring::npos &&
                             !BeginsWithDrive(tstrNext) &&
                             std::wstring_view(L"\\/-%{").find(tstrNext.front()) == std::wstring_view::npos;
        if (!bBreaksOff || !bGoesOn) continue;
        check.Add(Rule::eUnquotedPath, words[u].uBegin, L"the path ends at the space: \"" + tstrText + L"\"",
                  L"\"" + tstrText + L" " + tstrNext + L"\"");
        return false;
    }
    return true;
}

/// Whether a word, or the first one in its quotes, removes what may be gone.
bool IsRemoval(const Word& word)
{
    const std::wstring tstrVerb = String::LowerCase(word.tstrText.substr(0, word.tstrText.find(L' ')));
    return tstrVerb == L"del" || tstrVerb == L"erase" || tstrVerb == L"rd" || tstrVerb == L"rmdir";
}

/// Files that lie in the download folders until the restart moves them.
void CheckMovedFiles(const CommandCheck& check, const Folder& installed, const MovedSources& sources)
{
    if (std::any_of(check.words.begin(), check.words.end(), IsRemoval)) return;
    for (const Word& word : check.words) {
        const std::size_t uAt = String::LowerCase(word.tstrText).find(String::LowerCase(installed / kComponents));
        if (uAt == std::wstring::npos) continue;
        const std::wstring tstrPath = word.tstrText.substr(uAt + installed.Text().size());
        const std::wstring tstrFolder = String::FolderPart(tstrPath);
        const std::wstring tstrName = tstrPath.substr(tstrFolder.size());
        const auto itFolder = sources.find(tstrFolder);
        const bool bFile =
            itFolder != sources.end() &&
            std::any_of(itFolder->second.begin(), itFolder->second.end(), [&](const std::wstring& tstrMoved) {
                return Storage::File::MatchesPattern(tstrMoved, tstrName);
            });
        const std::wstring tstrBelow = String::EnsureBackslash(tstrPath);
        const auto itBelow = sources.lower_bound(tstrBelow);
        const bool bFolder = itBelow != sources.end() && String::StartsWithNoCase(itBelow->first, tstrBelow);
        if (!bFile && !bFolder) continue;
        check.Add(Rule::eCommandNamesMovedFile, 0,
                  L"the restart moves \"" + word.tstrText.substr(uAt) +
                      L"\" away before the command starts: name the place where it is deployed");
        return;
    }
}

void CheckProgram(const CommandCheck& check)
{
    if (check.words.empty()) return;
    const std::wstring& tstrProgram = check.words.front().tstrText;
    const bool bOther = tstrProgram.find_first_of(L"%{}") != std::wstring::npos;
    if (tstrProgram.starts_with(L'\'')) {
        check.Add(Rule::eRelativeProgram, 0,
                  L"single quotes are part of a program's name: write double quotes, \", around the path");
    } else if (!bOther && tstrProgram.find(L'\\') != std::wstring::npos && !String::IsFullPath(tstrProgram)) {
        check.Add(Rule::eRelativeProgram, 0,
                  L"\"" + tstrProgram + L"\" is no full path: from which folder it starts is not known");
    }
}

/// What the files that commands start are looked for in.
struct Places {
    const ProductFiles& files;
    const CustomerFolders& folders;
};

/// B056 of a name without a folder.
void CheckBareName(const CommandCheck& check, const StartedFile& started, const Places& places)
{
    const std::wstring tstrName = L"\"" + started.tstrFile + L"\"";
    const auto warn = [&](const std::wstring& tstrText, const std::wstring& tstrSuggestion) {
        check.AddAs(Severity::eWarning, Rule::eStartedFile, started.uAt, tstrText, tstrSuggestion);
    };
    const std::wstring tstrBrought = places.files.NearestOf(places.folders.InstalledDir() / started.tstrFile);
    const bool bBrought = String::EqualsNoCase(tstrBrought.substr(String::FolderPart(tstrBrought).size()),
                                               started.tstrFile.substr(String::FolderPart(started.tstrFile).size()));
    const std::wstring tstrFull = bBrought ? L"\"" + (kInstalledDir + tstrBrought) + L"\"" : std::wstring();
    switch (started.eKind) {
        case StartedFile::Kind::eBuiltIn:
            check.Add(Rule::eStartedFile, started.uAt,
                      tstrName + L" is no program: the command interpreter carries it out",
                      L"cmd.exe /c " + check.record.tstrValue);
            break;
        case StartedFile::Kind::eLibrary:
            if (bBrought) warn(tstrName + L" is looked for in Windows' folders: name its full path", tstrFull);
            break;
        case StartedFile::Kind::eDocument:
            warn(tstrName + L" is looked for in a folder that is not known: name its full path", tstrFull);
            break;
        case StartedFile::Kind::eProgram:
            if (IsWindowsProgram(started.tstrFile)) break;
            warn(tstrName + L" is no program that every Windows has: name its full path",
                 bBrought ? tstrFull : NearestWindowsProgram(started.tstrFile));
            break;
    }
}

/// B056 and B057 of a full path.
void CheckStartedPath(const CommandCheck& check, const StartedFile& started, const Places& places)
{
    const std::wstring tstrPath = Storage::Directory::FullPath(started.tstrFile);
    const std::wstring tstrName =
        L"\"" +
        (places.files.IsInstallPath(tstrPath) ? kInstalledDir + places.folders.InstalledDir().Relative(tstrPath)
                                              : tstrPath) +
        L"\"";
    if (IsUsersFolder(tstrPath, places.folders.InstalledDir())) {
        const bool bProgramData = String::StartsWithNoCase(std::wstring_view(tstrPath).substr(2), L"\\ProgramData\\");
        check.AddAs(bProgramData ? Severity::eWarning : Severity::eError, Rule::eStartsInUsersFolder, started.uAt,
                    tstrName +
                        L" is in a folder where standard users can write, and runs as an administrator: "
                        L"start it from the install folder");
        return;
    }
    const auto has = [&](const std::wstring& tstrFile) {
        return places.files.HasFile(tstrFile) || places.files.IsDownloaded(tstrFile);
    };
    if (has(tstrPath) || (started.eKind == StartedFile::Kind::eProgram && has(tstrPath + L".exe"))) return;
    if (places.files.IsInstallPath(tstrPath)) {
        const bool bDownload = String::IsBelow(tstrPath, places.folders.InstalledDir() / L"Component\\");
        const bool bKnown = places.files.AreInstalledKnown() || bDownload;
        const std::wstring tstrNear = places.files.NearestOf(tstrPath);
        check.AddAs(bKnown ? Severity::eError : Severity::eWarning, Rule::eStartedFile, started.uAt,
                    tstrName + L" does not come with the update" +
                        (bDownload                          ? L""
                         : places.files.IsDeleted(tstrPath) ? L", which deletes it"
                         : bKnown                           ? L" and is not installed"
                                                            : L"; --installed tells whether it is installed"),
                    tstrNear.empty() ? tstrNear : kInstalledDir + tstrNear);
        return;
    }
    if (!String::StartsWithNoCase(std::wstring_view(tstrPath).substr(2), L"\\Windows\\")) {
        check.AddAs(Severity::eWarning, Rule::eStartedFile, started.uAt,
                    tstrName + L" is part of neither the update nor the product nor Windows");
        return;
    }
    // What Windows has differs between its versions: only a slip of a known name counts.
    const std::wstring tstrFile = tstrPath.substr(String::FolderPart(tstrPath).size());
    if (Storage::File::IsExisted(tstrPath) || IsWindowsProgram(tstrFile)) return;
    const std::wstring tstrNear = NearestWindowsProgram(tstrFile);
    if (tstrNear.empty()) return;
    check.AddAs(Severity::eWarning, Rule::eStartedFile, started.uAt, tstrName + L" is no program of every Windows",
                String::FolderPart(tstrPath) + tstrNear);
}

void CheckStarted(const CommandCheck& check, const Places& places)
{
    for (const StartedFile& started : ListStarted(check.record.tstrValue, places.folders)) {
        const bool bDrive =
            started.tstrFile.size() > 2 && String::IsFullPath(started.tstrFile) && started.tstrFile[1] == L':';
        const bool bBare = started.tstrFile.find_first_of(L"\\/:") == std::wstring::npos;
        const bool bRelative = started.eKind == StartedFile::Kind::eDocument && !String::IsFullPath(started.tstrFile) &&
                               started.tstrFile.find(L':') == std::wstring::npos;
        if (bBare || bRelative) {
            CheckBareName(check, started, places);
        } else if (bDrive) {  // of shares nothing is known, and B054 tells of programs
            CheckStartedPath(check, started, places);
        }
    }
}

/// B064.
void CheckGivenSecret(const CommandCheck& check)
{
    const std::wstring& tstrCommand = check.record.tstrValue;
    const std::optional<std::size_t> optNamed = FindSecret(tstrCommand);
    if (const std::optional<std::size_t> optAt = optNamed ? optNamed : FindGivenPassword(tstrCommand)) {
        check.AddAs(Severity::eWarning, Rule::eSecretInClear, *optAt,
                    L"the command gives a secret away: everybody who gets the update can read it");
    }
}

void CheckKeyboardFilter(const CommandCheck& check)
{
    const std::size_t uAt = String::LowerCase(check.record.tstrValue).find(L"kbfilter.ini");
    if (uAt == std::wstring::npos || IsKeyboardFilterCommand(check.record.tstrValue)) return;
    check.Add(Rule::eKeyboardFilterCase, uAt,
              L"the command is not taken for one of the keyboard filter: it runs with old drivers as well",
              L"kbfilter.ini");
}

}  // namespace

void CheckCommands(const LintContext& context, Report& report)
{
    const Update& update = context.update;
    const Folder installed = update.InstalledFolder().value_or(kUsualInstallFolder);
    const CustomerFolders folders(installed, update.Product().tstrDownloadPath);
    const auto sources = ListMovedSources(SortDeliveries(update));
    const ProductFiles files(update, context.instructions);
    for (const Instruction& instruction : ListInstructions(context.instructions)) {
        if (FormOf(instruction.pKey->eEffect) != RecordForm::eCommand) continue;
        const IniRecord& record = *instruction.pRecord;
        const std::wstring tstrExpanded = folders.Expand(record.tstrValue);
        const CommandCheck check{record, tstrExpanded, SplitExpanded(record.tstrValue, folders), report};
        const std::size_t uExclamation = record.tstrValue.find(L'!');
        if (uExclamation != std::wstring::npos) {
            check.Add(Rule::eCommandExclamation, uExclamation,
                      L"the command ends here: \"" + record.tstrValue.substr(0, uExclamation) + L"\" is registered");
        }
        CheckLength(check);
        CheckQuotes(check);
        if (CheckBlanks(check)) CheckStarted(check, {files, folders});
        CheckMovedFiles(check, installed, sources);
        CheckProgram(check);
        CheckGivenSecret(check);
        CheckKeyboardFilter(check);
    }
}

}  // namespace Check
