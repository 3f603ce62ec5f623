// B050 to B055: run-once commands.
#include "check/lint/Lint.h"
#include "check/update/Deliveries.h"
#include "check/update/Instructions.h"

#include "agent/RunOnce.h"
#include "common/KzComn_NamePattern.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <string_view>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMaxCommandCharacters = 260;  // Windows passes longer values of its run-once key over

/// A word of a command line: what stands between blanks, where quotes hold blanks together.
struct Word {
    std::size_t uBegin;
    std::wstring tstrText;  ///< without quotes
    bool bQuoted = false;   ///< begins with a quote
};

/// The command, equally long, without the quotes that open and close nothing for its reader: the outer ones of what the
/// command interpreter carries out ("cmd /c ""C:\a b" c""), and those that a backslash hands on ("\"C:\a b\" c").
std::wstring WithPlainQuotes(std::wstring tstrCommand)
{
    // Behind a name a backslash is the end of a folder, and the quote is one.
    const std::wstring tstrEscape = L"\\\"";
    const std::size_t uEscape = tstrCommand.find(tstrEscape);
    const bool bEscapes = uEscape != std::wstring::npos && uEscape > 0 &&
                          std::wstring_view(L" \"=").find(tstrCommand[uEscape - 1]) != std::wstring_view::npos;
    if (bEscapes) String::ReplaceAll(tstrCommand, tstrEscape, L"\\'");

    const std::wstring tstrLower = String::LowerCase(tstrCommand);
    const std::size_t uOption = std::min(tstrLower.find(L" /c \""), tstrLower.find(L" /k \""));
    if (uOption != std::wstring::npos && tstrCommand.ends_with(L'"') &&
        std::count(tstrCommand.begin(), tstrCommand.end(), L'"') > 2) {
        tstrCommand[uOption + 4] = L' ';
        tstrCommand.back() = L' ';
    }
    return tstrCommand;
}

std::vector<Word> SplitCommand(std::wstring_view tstrCommand)
{
    std::vector<Word> words;
    bool bQuotes = false;
    bool bWord = false;
    for (std::size_t u = 0; u < tstrCommand.size(); ++u) {
        const wchar_t ch = tstrCommand[u];
        const bool bBlank = !bQuotes && (ch == L' ' || ch == L'\t');
        if (!bBlank && !bWord) words.push_back({u, {}, ch == L'"'});
        bWord = !bBlank;
        if (ch == L'"') {
            bQuotes = !bQuotes;
        } else if (!bBlank) {
            words.back().tstrText += ch;
        }
    }
    return words;
}

/// The same with placeholders expanded after the splitting, whether their blanks are in quotes or not.
std::vector<Word> SplitExpanded(std::wstring_view tstrCommand, const CustomerFolders& folders)
{
    std::vector<Word> words = SplitCommand(WithPlainQuotes(std::wstring(tstrCommand)));
    for (Word& word : words) word.tstrText = folders.Expand(word.tstrText);
    return words;
}

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
        const TextPosition place{record.valuePlace.uLine, static_cast<unsigned>(record.valuePlace.uColumn + uAt)};
        report.Add(eRule, kInstructionFile, place, tstrText, tstrSuggestion);
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

/// The command with blanks for what "echo" of the command interpreter writes: that is text and no path.
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

/// A placeholder that stands for a folder with blanks on most machines, outside quotes.
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
            check.Add(Rule::eUnquotedPath, uAt, tstrText + L" stands outside quotes and has blanks: " + tstrFolder);
            return;
        }
    }
}

/// A path written out that breaks off without an extension at a blank and goes on after it.
void CheckBlanks(const CommandCheck& check)
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
        check.Add(Rule::eUnquotedPath, words[u].uBegin, L"the path ends at the blank: \"" + tstrText + L"\"",
                  L"\"" + tstrText + L" " + tstrNext + L"\"");
        return;
    }
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
    if (!bOther && tstrProgram.find(L'\\') != std::wstring::npos && !String::IsFullPath(tstrProgram)) {
        check.Add(Rule::eRelativeProgram, 0,
                  L"\"" + tstrProgram + L"\" is no full path: from which folder it starts is not known");
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
        CheckBlanks(check);
        CheckMovedFiles(check, installed, sources);
        CheckProgram(check);
        CheckKeyboardFilter(check);
    }
}

}  // namespace Check
