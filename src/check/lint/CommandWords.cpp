#include "check/lint/CommandWords.h"

#include "check/update/Suggestion.h"

#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

#include <algorithm>
#include <iterator>
#include <optional>

using namespace KzCommon;

namespace Check {

namespace {

using Kind = StartedFile::Kind;

/// "if exist a if exist b ..." and "cmd /c cmd /c ..." end somewhere.
constexpr unsigned kMostLevels = 8;

/// Windows' variables, and what they stand for on most machines.
constexpr std::pair<const wchar_t*, const wchar_t*> kVariables[] = {
    {L"%systemroot%", L"C:\\Windows"},
    {L"%windir%", L"C:\\Windows"},
    {L"%systemdrive%", L"C:"},
    {L"%comspec%", L"C:\\Windows\\System32\\cmd.exe"},
    {L"%programdata%", L"C:\\ProgramData"},
    {L"%allusersprofile%", L"C:\\ProgramData"},
    {L"%public%", L"C:\\Users\\Public"},
    {L"%userprofile%", L"C:\\Users\\User"},
    {L"%appdata%", L"C:\\Users\\User\\AppData\\Roaming"},
    {L"%localappdata%", L"C:\\Users\\User\\AppData\\Local"},
    {L"%temp%", L"C:\\Users\\User\\AppData\\Local\\Temp"},
    {L"%tmp%", L"C:\\Users\\User\\AppData\\Local\\Temp"},
};

/// Programs that open another file: the argument after that option or, if the row has no option, the first argument
/// that is not an option.
struct OpenerRow {
    const wchar_t* szProgram;
    const wchar_t* szOption;
    Kind eKind = Kind::eDocument;
};
constexpr OpenerRow kOpeners[] = {
    {L"wscript", L""},
    {L"cscript", L""},
    {L"mshta", L""},
    {L"regedit", L""},
    {L"reg", L"import"},
    {L"powershell", L"-file"},
    {L"pwsh", L"-file"},
    {L"msiexec", L"/i"},
    {L"msiexec", L"/package"},
    {L"msiexec", L"/p"},
    {L"msiexec", L"/update"},
    {L"rundll32", L"", Kind::eLibrary},
    {L"regsvr32", L"", Kind::eLibrary},
    {L"start", L"", Kind::eProgram},
    {L"call", L"", Kind::eProgram},
};

/// What the command interpreter ignores before a command.
constexpr wchar_t kBeforeCommand[] = L" \t@()";

/// Words of the command interpreter's own.
constexpr std::wstring_view kBuiltIns[] = {
    L"assoc",  L"call",     L"cd",       L"chdir", L"cls",  L"copy",  L"date", L"del", L"dir", L"echo",
    L"else",   L"endlocal", L"erase",    L"exit",  L"for",  L"ftype", L"goto", L"if",  L"md",  L"mkdir",
    L"mklink", L"move",     L"path",     L"pause", L"popd", L"pushd", L"rd",   L"rem", L"ren", L"rename",
    L"rmdir",  L"set",      L"setlocal", L"start", L"time", L"title", L"type", L"ver", L"vol",
};

/// Programs of every Windows that updates are likely to start, to be known also where there is no real Windows.
constexpr std::wstring_view kWindowsPrograms[] = {
    L"attrib",     L"bcdedit", L"cacls",    L"certutil", L"cmd",      L"cscript",  L"dism",     L"expand",
    L"explorer",   L"fc",      L"find",     L"findstr",  L"fsutil",   L"icacls",   L"ie4uinit", L"mofcomp",
    L"mshta",      L"msiexec", L"net",      L"net1",     L"netsh",    L"notepad",  L"ping",     L"pnputil",
    L"powershell", L"reg",     L"regedit",  L"regsvr32", L"robocopy", L"rundll32", L"sc",       L"schtasks",
    L"setx",       L"sfc",     L"shutdown", L"taskkill", L"tasklist", L"takeown",  L"timeout",  L"wevtutil",
    L"where",      L"wmic",    L"wscript",  L"wusa",     L"xcopy",
};

template <std::size_t cWords>
bool IsIn(const std::wstring_view (&words)[cWords], std::wstring_view tstrWord)
{
    return std::find(std::begin(words), std::end(words), tstrWord) != std::end(words);
}

/// The name of a program in lower case, without its folder and ".exe".
std::wstring ProgramName(const std::wstring& tstrPath)
{
    std::wstring tstrName = String::LowerCase(tstrPath.substr(String::FolderPart(tstrPath).size()));
    if (tstrName.ends_with(L".exe")) tstrName.resize(tstrName.size() - 4);
    return tstrName;
}

bool IsPowerShell(std::wstring_view tstrProgram)
{
    return tstrProgram == L"powershell" || tstrProgram == L"pwsh";
}

/// Whether the brace is that of a placeholder and begins no block.
bool IsPlaceholderAt(std::wstring_view tstrText, std::size_t uAt)
{
    return tstrText[uAt] == L'{' && uAt + 1 < tstrText.size() && ::IsCharAlphaNumericW(tstrText[uAt + 1]) &&
           tstrText.find(L'}', uAt) < tstrText.find_first_of(L" ;", uAt);
}

std::wstring ExpandVariables(std::wstring tstrText)
{
    for (const auto& [szVariable, szFolder] : kVariables) {
        std::size_t uAt = 0;
        while ((uAt = String::LowerCase(tstrText).find(szVariable)) != std::wstring::npos) {
            tstrText.replace(uAt, std::wcslen(szVariable), szFolder);
        }
    }
    return tstrText;
}

/// Finds the files that one command starts.
class StartedFiles {
public:
    explicit StartedFiles(const CustomerFolders& folders) : m_folders(folders) {}

    /// A command at `uAt` of the whole; `bInterpreter`: the command interpreter carries it out.
    void Add(std::wstring_view tstrCommand, std::size_t uAt, bool bInterpreter, unsigned uLevel);

    std::vector<StartedFile> m_files;

private:
    void AddFile(Kind eKind, std::wstring tstrFile, std::size_t uAt);
    void AddSequence(std::wstring_view tstrCommands, std::size_t uAt, unsigned uLevel);
    void AddOpened(const std::vector<Word>& words, const std::wstring& tstrName, std::size_t uAt);
    void AddJoined(const std::vector<Word>& words, const OpenerRow& row, std::size_t uAt);
    void AddPowerShell(const std::vector<Word>& words, std::size_t uAt);
    void AddScripted(std::wstring_view tstrScript, std::size_t uAt);
    [[nodiscard]] std::wstring Expand(const std::wstring& tstrText) const
    {
        return ExpandVariables(m_folders.Expand(tstrText));
    }

    const CustomerFolders& m_folders;
};

void StartedFiles::AddFile(Kind eKind, std::wstring tstrFile, std::size_t uAt)
{
    tstrFile.resize(std::min(tstrFile.find_first_of(L"<>"), tstrFile.size()));
    const bool bVariable = tstrFile.find_first_of(L"%{}*?\"'") != std::wstring::npos;
    if (!bVariable && !tstrFile.empty()) m_files.push_back({eKind, std::move(tstrFile), uAt});
}

/// The commands between "&" and "|" outside quotes, in brackets or not.
void StartedFiles::AddSequence(std::wstring_view tstrCommands, std::size_t uAt, unsigned uLevel)
{
    if (uLevel == kMostLevels) return;
    bool bQuotes = false;
    unsigned uOpen = 0;  // brackets that begin a command; any other bracket is part of a word
    std::size_t uBegin = 0;
    for (std::size_t u = 0; u <= tstrCommands.size(); ++u) {
        const wchar_t ch = u < tstrCommands.size() ? tstrCommands[u] : L'&';
        if (ch == L'"') bQuotes = !bQuotes;
        const std::wstring_view tstrSoFar = tstrCommands.substr(uBegin, u - uBegin);
        if (ch == L'(' && tstrSoFar.find_first_not_of(kBeforeCommand) == std::wstring_view::npos) ++uOpen;
        const bool bClosed = ch == L')' && !bQuotes && uOpen > 0;
        const bool bEnd = u == tstrCommands.size() || bClosed || (!bQuotes && (ch == L'&' || ch == L'|'));
        if (!bEnd) continue;
        if (bClosed) --uOpen;
        Add(tstrCommands.substr(uBegin, u - uBegin), uAt + uBegin, true, uLevel + 1);
        uBegin = u + 1;
    }
}

/// The index of the first word of the command that "if", "else" or "for" carries out, if one follows.
std::optional<std::size_t> IndexOfInner(const std::vector<Word>& words, const std::wstring& tstrName)
{
    std::size_t u = 1;
    const auto is = [&](std::wstring_view tstrWord) {
        return u < words.size() && String::EqualsNoCase(words[u].tstrText, tstrWord);
    };
    if (tstrName == L"for") {
        while (u < words.size() && !is(L"do")) ++u;
        ++u;
    } else if (tstrName == L"if") {
        while (is(L"/i") || is(L"not")) ++u;
        u += is(L"exist") || is(L"defined") || is(L"errorlevel") ? 2 : 1;
    }
    return u < words.size() ? std::optional(u) : std::nullopt;
}

void StartedFiles::Add(std::wstring_view tstrCommand, std::size_t uAt, bool bInterpreter, unsigned uLevel)
{
    const std::size_t uFirst =
        std::min(tstrCommand.find_first_not_of(bInterpreter ? kBeforeCommand : L" \t"), tstrCommand.size());
    tstrCommand.remove_prefix(uFirst);
    uAt += uFirst;
    const std::vector<Word> words = SplitCommand(tstrCommand);
    if (words.empty()) return;
    const std::wstring& tstrFirst = words.front().tstrText;
    // Quotes around all of a command, not around a program's name.
    const std::size_t uDot = tstrFirst.rfind(L'.');
    const bool bWhole = bInterpreter && words.size() == 1 && words.front().bQuoted &&
                        tstrFirst.find(L' ', uDot == std::wstring::npos ? 0 : uDot) != std::wstring::npos;
    if (bWhole) return AddSequence(tstrFirst, uAt + 1, uLevel);

    const std::wstring tstrProgram = Expand(tstrFirst);
    const std::wstring tstrName = ProgramName(tstrProgram);
    if (tstrFirst.starts_with(L"echo.")) return;
    if (!IsIn(kBuiltIns, tstrName)) {
        AddFile(Kind::eProgram, tstrProgram, uAt);
    } else if (!bInterpreter) {
        return AddFile(Kind::eBuiltIn, tstrProgram, uAt);
    }
    if (tstrName == L"if" || tstrName == L"else" || tstrName == L"for") {
        const std::optional<std::size_t> optInner = IndexOfInner(words, tstrName);
        if (!optInner) return;
        const std::size_t uInner = words[*optInner].uBegin;
        return AddSequence(tstrCommand.substr(uInner), uAt + uInner, uLevel);
    }
    if (IsPowerShell(tstrName)) AddPowerShell(words, uAt);
    if (tstrName != L"cmd") return AddOpened(words, tstrName, uAt);
    for (const Word& word : words) {
        const std::wstring tstrOption = String::LowerCase(word.tstrText.substr(0, 2));
        if (tstrOption != L"/c" && tstrOption != L"/k") continue;
        return AddSequence(tstrCommand.substr(word.uBegin + 2), uAt + word.uBegin + 2, uLevel);
    }
}

/// Whether a word is an option; PowerShell takes the beginning of one as well.
bool IsOption(const std::wstring& tstrWord, const std::wstring& tstrName, std::wstring_view tstrOption)
{
    const std::wstring tstrLower = String::LowerCase(tstrWord);
    return tstrLower == tstrOption ||
           (IsPowerShell(tstrName) && tstrLower.size() > 1 && tstrOption.starts_with(tstrLower));
}

/// The commands of PowerShell: what is after the option, else a first word that is no option and no option's value.
void StartedFiles::AddPowerShell(const std::vector<Word>& words, std::size_t uAt)
{
    const auto itOption = std::ranges::find_if(
        words, [](const Word& word) { return IsOption(word.tstrText, L"powershell", L"-command"); });
    const auto itBegin = itOption != words.end() ? std::next(itOption)
                                                 : std::find_if(words.begin() + 1, words.end(), [](const Word& word) {
                                                       return word.tstrText.starts_with(L'&') ||
                                                              String::LowerCase(word.tstrText).ends_with(L".ps1");
                                                   });
    const bool bFile =
        itOption == words.end() && itBegin != words.end() && IsOption((itBegin - 1)->tstrText, L"powershell", L"-file");
    if (bFile) return;  // that option has a row of its own
    std::wstring tstrScript;
    for (auto it = itBegin; it != words.end(); ++it) {
        tstrScript.resize(it->uBegin - itBegin->uBegin + (it->bQuoted ? 1 : 0), L' ');
        tstrScript += it->tstrText;
    }
    if (itBegin != words.end()) AddScripted(tstrScript, uAt + itBegin->uBegin);
}

/// The files in the place of a command: at the beginning, and after "&", ".", ";", "|" and Start-Process.
void StartedFiles::AddScripted(std::wstring_view tstrScript, std::size_t uAt)
{
    constexpr std::wstring_view kStarters[] = {L".", L"start-process", L"saps", L"start"};
    constexpr std::wstring_view kStarted[] = {L".ps1", L".exe", L".cmd", L".bat", L".vbs", L".msi"};
    bool bCommand = true;
    for (std::size_t u = 0; u < tstrScript.size();) {
        const wchar_t ch = tstrScript[u];
        if (std::wstring_view(L" \t&;|(){,").find(ch) != std::wstring_view::npos && !IsPlaceholderAt(tstrScript, u)) {
            bCommand = bCommand || std::wstring_view(L"&;|({").find(ch) != std::wstring_view::npos;
            ++u;
            continue;
        }
        const bool bQuoted = ch == L'\'';
        const std::size_t uBegin = bQuoted ? u + 1 : u;
        const std::size_t uEnd =
            std::min(tstrScript.find_first_of(bQuoted ? L"'" : L" \t&;|)'", uBegin), tstrScript.size());
        const std::wstring tstrWord(tstrScript.substr(uBegin, uEnd - uBegin));
        const std::wstring tstrLower = String::LowerCase(tstrWord);
        u = bQuoted ? uEnd + 1 : uEnd;
        if (bCommand && tstrLower.starts_with(L'-')) continue;  // an option of Start-Process
        const bool bStarted = bCommand && tstrWord.find(L'$') == std::wstring::npos &&
                              std::ranges::any_of(kStarted, [&](auto tstrEnd) { return tstrLower.ends_with(tstrEnd); });
        const bool bProgram = tstrLower.ends_with(L".exe");
        if (bStarted) AddFile(bProgram ? Kind::eProgram : Kind::eDocument, Expand(tstrWord), uAt + uBegin);
        bCommand = IsIn(kStarters, tstrLower);
    }
}

/// msiexec takes its file directly behind the option as well: /i"a.msi".
void StartedFiles::AddJoined(const std::vector<Word>& words, const OpenerRow& row, std::size_t uAt)
{
    constexpr std::wstring_view kInstall = L"/i";
    if (row.szOption != kInstall) return;
    for (const Word& word : words) {
        if (!String::StartsWithNoCase(word.tstrText, kInstall)) continue;
        AddFile(row.eKind, Expand(word.tstrText.substr(kInstall.size())), uAt + word.uBegin + kInstall.size());
    }
}

void StartedFiles::AddOpened(const std::vector<Word>& words, const std::wstring& tstrName, std::size_t uAt)
{
    for (const OpenerRow& row : kOpeners) {
        if (tstrName != row.szProgram) continue;
        const bool bFirst = row.szOption[0] == L'\0';
        std::size_t u = 1;
        if (bFirst) {
            const auto isOption = [](const Word& word) {
                return word.tstrText.starts_with(L'/') || word.tstrText.starts_with(L'-');
            };
            // Of "start" the first text in quotes is the window's title.
            if (tstrName == L"start" && words.size() > 1 && words[1].bQuoted) ++u;
            while (u < words.size() && isOption(words[u])) ++u;
        } else {
            while (u < words.size() && !IsOption(words[u].tstrText, tstrName, row.szOption)) ++u;
            ++u;
        }
        if (u >= words.size()) {
            AddJoined(words, row, uAt);
            continue;
        }
        std::wstring tstrFile = Expand(words[u].tstrText);
        if (row.eKind == Kind::eLibrary) tstrFile.resize(std::min(tstrFile.find(L','), tstrFile.size()));
        AddFile(row.eKind, std::move(tstrFile), uAt + words[u].uBegin);
    }
}

}  // namespace

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

std::vector<Word> SplitExpanded(std::wstring_view tstrCommand, const CustomerFolders& folders)
{
    std::vector<Word> words = SplitCommand(WithPlainQuotes(std::wstring(tstrCommand)));
    for (Word& word : words) word.tstrText = folders.Expand(word.tstrText);
    return words;
}

std::vector<StartedFile> ListStarted(std::wstring_view tstrCommand, const CustomerFolders& folders)
{
    StartedFiles started(folders);
    started.Add(WithPlainQuotes(std::wstring(tstrCommand)), 0, false, 0);
    return std::move(started.m_files);
}

bool IsWindowsProgram(const std::wstring& tstrName)
{
    const std::wstring tstrProgram = ProgramName(tstrName);
    if (IsIn(kWindowsPrograms, tstrProgram)) return true;
    const WindowsMachine machine;
    const auto isIn = [&](KnownFolder eFolder) {
        const std::wstring tstrFolder = machine.FolderOf(eFolder);
        return Storage::File::IsExisted(tstrFolder + tstrName) ||
               Storage::File::IsExisted(tstrFolder + tstrProgram + L".exe");
    };
    return isIn(KnownFolder::eSystem) || isIn(KnownFolder::eWindows);
}

std::wstring NearestWindowsProgram(const std::wstring& tstrName)
{
    const std::vector<std::wstring> names(std::begin(kWindowsPrograms), std::end(kWindowsPrograms));
    const std::wstring tstrNear = NearestOf(ProgramName(tstrName), names);
    return tstrNear.empty() ? tstrNear : tstrNear + L".exe";
}

}  // namespace Check
