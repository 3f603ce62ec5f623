#include "check/trace/TraceSummary.h"

#include "check/trace/KnownFailures.h"
#include "check/update/ErrorText.h"
#include "check/update/RowOrder.h"
#include "check/update/ShownText.h"

#include "agent/Sections.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::wstring_view kAgent = L"Brevant";
constexpr std::wstring_view kParameter = L"Paramter is ";

/// The counted kinds of changes, in display order.
enum class Figure {
    eFolders,
    eMoves,
    eValues,
    eSettings,
    eIniValues,
    eCopies,
    eRemovals,
    eCommands,
    eShortcuts,
    eNone
};

struct FigureRow {
    Figure eFigure;
    const wchar_t* szOne;
    const wchar_t* szMany;
};
constexpr FigureRow kFigures[] = {
    {Figure::eFolders, L"folder to create", L"folders to create"},
    {Figure::eMoves, L"file for the restart", L"files for the restart"},
    {Figure::eValues, L"registry record", L"registry records"},
    {Figure::eSettings, L"setting to carry over", L"settings to carry over"},
    {Figure::eIniValues, L"change of the update information", L"changes of the update information"},
    {Figure::eCopies, L"file to copy at once", L"files to copy at once"},
    {Figure::eRemovals, L"removal", L"removals"},
    {Figure::eCommands, L"command for the restart", L"commands for the restart"},
    {Figure::eShortcuts, L"shortcut", L"shortcuts"},
};
static_assert(IsInOrder(kFigures, &FigureRow::eFigure));
static_assert(std::size(kFigures) == static_cast<std::size_t>(Figure::eNone));

constexpr Figure FigureOf(FileOp eOp)
{
    const Action eAction = TraitsOf(eOp)->eAction;
    if (eAction == Action::eCreateFolder) return Figure::eFolders;
    return eAction == Action::eDelete ? Figure::eRemovals : Figure::eCopies;
}

/// The figure that counts the records of an effect by their lines.
constexpr Figure FigureOf(RecordEffect eEffect)
{
    switch (FormOf(eEffect)) {
        case RecordForm::ePath: return FigureOf(FileOpOf(eEffect));
        case RecordForm::eRegistryValue: return Figure::eValues;
        case RecordForm::eTag: return Figure::eSettings;
        case RecordForm::eIniValue: return Figure::eIniValues;
        case RecordForm::eCommand: return Figure::eCommands;
        case RecordForm::eText: break;
    }
    return Figure::eNone;
}

/// Whether the section has a line for exactly the counted records.
constexpr bool AreCountedByLine(const Section& section)
{
    return std::ranges::all_of(section.keys, [](const SectionKey& key) {
        return key.LineStart().empty() == (FigureOf(key.eEffect) == Figure::eNone);
    });
}
static_assert(std::ranges::all_of(kSections, &AreCountedByLine));

/// The figure that counts a line.
Figure FigureOf(const TraceLine& line)
{
    if (line.eLevel == TraceLevel::eStep) {
        const bool bShortcut = line.tstrMessage.starts_with(L"[Enter] ShortCutXmlHandler::CreateShortCut()");
        return bShortcut ? Figure::eShortcuts : Figure::eNone;
    }
    if (line.eLevel != TraceLevel::eProgress) return Figure::eNone;
    if (line.tstrMessage.starts_with(L"src: ")) return Figure::eMoves;
    for (const Section& section : kSections) {
        for (const SectionKey& key : section.keys) {
            const std::wstring_view tstrStart = key.LineStart();
            if (!tstrStart.empty() && line.tstrMessage.starts_with(tstrStart)) return FigureOf(key.eEffect);
        }
    }
    return Figure::eNone;
}

/// A line after which a run may end or must continue.
struct EndRow {
    std::wstring_view tstrPart;
    RunEnd eEnd;
};
constexpr EndRow kEnds[] = {
    {L"--> New Brand applied", RunEnd::eWhole},
    {L"No need to change product name", RunEnd::eWhole},
    {L"Product version key is invalid.", RunEnd::eWhole},
    {L"NO need to apply new brand", RunEnd::eWhole},
    {L"tsProductName==", RunEnd::eWhole},
    {L"RemindToReboot()", RunEnd::eCutOff},
    {L"To display notification dialog...", RunEnd::eAsking},
    {L"Restart later...", RunEnd::eWhole},
    {L"To restart system...", RunEnd::eWhole},
    {L"Patch Agent failed to perform update", RunEnd::eWhole},
    {L"Write default registrys", RunEnd::eWhole},
};
constexpr std::wstring_view kStop = L"***QorPatchTool.exe stop.";
constexpr std::wstring_view kNoParameter = L"Paramter is not right";

}  // namespace

RunEnd EndOf(const TraceRun& run)
{
    if (run.lines.front().tstrModule != kAgent) return RunEnd::eUnknown;
    RunEnd eEnd = RunEnd::eUnknown;
    bool bParameter = true;
    for (const TraceLine& line : run.lines) {
        if (line.eLevel == TraceLevel::eProgress && eEnd == RunEnd::eUnknown) eEnd = RunEnd::eCutOff;
        if (line.tstrMessage == kNoParameter) bParameter = false;
        if (line.tstrMessage == kStop && !bParameter) eEnd = RunEnd::eWhole;
        for (const EndRow& row : kEnds) {
            if (line.tstrMessage.find(row.tstrPart) != std::wstring_view::npos) eEnd = row.eEnd;
        }
    }
    return eEnd;
}

namespace {

/// Whether the first line of a run that traces its progress is missing.
bool LacksBeginning(const TraceRun& run)
{
    const bool bProgress = std::any_of(run.lines.begin(), run.lines.end(),
                                       [](const TraceLine& line) { return line.eLevel == TraceLevel::eProgress; });
    return bProgress && run.lines.front().tstrModule == kAgent &&
           std::none_of(run.lines.begin(), run.lines.end(),
                        [](const TraceLine& line) { return line.tstrMessage.starts_with(kParameter); });
}

std::wstring ProgramOf(const TraceRun& run)
{
    std::wstring tstrProgram(run.lines.front().tstrModule);
    for (const TraceLine& line : run.lines) {
        if (line.tstrMessage == kNoParameter) return tstrProgram + L" without an argument";
        if (line.eLevel == TraceLevel::eProgress && line.tstrMessage.starts_with(kParameter)) {
            return tstrProgram + L" " + std::wstring(line.tstrMessage.substr(kParameter.size()));
        }
    }
    return tstrProgram;
}

std::vector<std::wstring> FiguresOf(const TraceRun& run)
{
    std::size_t counts[std::size(kFigures) + 1] = {};
    for (const TraceLine& line : run.lines) ++counts[static_cast<std::size_t>(FigureOf(line))];
    std::vector<std::wstring> figures;
    for (const FigureRow& row : kFigures) {
        const std::size_t cLines = counts[static_cast<std::size_t>(row.eFigure)];
        if (cLines > 0) figures.push_back(Counted(cLines, row.szOne, row.szMany));
    }
    return figures;
}

/// Adds a failure, or counts a repetition.
void AddFailure(const TraceLine& line, std::wstring_view tstrAfter, const wchar_t* szNote,
                std::vector<TraceFailure>& failures)
{
    // A message with a path or a text needs no context.
    if (line.tstrMessage.find_first_of(L"\\'") != std::wstring_view::npos) tstrAfter = {};
    const auto itSame = std::find_if(failures.begin(), failures.end(), [&](const TraceFailure& failure) {
        return failure.tstrMessage == line.tstrMessage && failure.tstrSource == line.tstrSource &&
               failure.tstrAfter == tstrAfter;
    });
    if (itSame != failures.end()) {
        ++itSame->cTimes;
        return;
    }
    const std::optional<DWORD> optCode = CodeOf(line.tstrMessage);
    failures.push_back({std::wstring(line.tstrMessage), std::wstring(line.tstrSource),
                        optCode ? DescribeError(*optCode) : std::wstring(), szNote, std::wstring(tstrAfter)});
}

std::wstring FormatDuration(LONGLONG llMilliseconds)
{
    wchar_t szText[64] = {};
    const LONGLONG llSeconds = llMilliseconds / 1000;
    if (llSeconds < 60) {
        ::_snwprintf(szText, std::size(szText) - 1, L"%lld.%03lld s", llSeconds, llMilliseconds % 1000);
    } else {
        ::_snwprintf(szText, std::size(szText) - 1, L"%lld:%02lld:%02lld h", llSeconds / 3600, llSeconds / 60 % 60,
                     llSeconds % 60);
    }
    return szText;
}

const wchar_t* WordsOfEnd(RunEnd eEnd)
{
    switch (eEnd) {
        case RunEnd::eCutOff: return L"  CUT OFF: its last line is missing; it was ended, or is still running\n";
        case RunEnd::eAsking:
            return L"  CUT OFF while the user was asked to restart, or still waiting for the answer\n";
        case RunEnd::eWhole:
        case RunEnd::eUnknown: break;
    }
    return L"";
}

std::wstring FormatFailure(const TraceFailure& failure, const wchar_t* szNote)
{
    std::wstring tstrText = L"    !!! " + OnOneLine(failure.tstrMessage) + L" - " + OnOneLine(failure.tstrSource);
    if (failure.cTimes > 1) tstrText += L" (" + std::to_wstring(failure.cTimes) + L" times)";
    tstrText += L"\n";
    if (!failure.tstrAfter.empty()) tstrText += L"        after: " + OnOneLine(failure.tstrAfter) + L"\n";
    if (!failure.tstrWords.empty()) tstrText += L"        code: " + failure.tstrWords + L"\n";
    return tstrText + L"        " + szNote + failure.tstrNote + L"\n";
}

std::size_t CountLines(const std::vector<TraceFailure>& failures)
{
    std::size_t cLines = 0;
    for (const TraceFailure& failure : failures) cLines += failure.cTimes;
    return cLines;
}

}  // namespace

RunSummary SummarizeRun(const TraceRun& run)
{
    const TraceLine& first = run.lines.front();
    RunSummary summary;
    summary.tstrTime = first.tstrTime;
    summary.tstrProgram = ProgramOf(run);
    summary.tstrProcess = first.tstrProcess;
    summary.llMilliseconds = std::max<LONGLONG>(0, run.lines.back().llMilliseconds - first.llMilliseconds);
    summary.eEnd = EndOf(run);
    summary.bLacksBeginning = LacksBeginning(run);
    summary.figures = FiguresOf(run);
    std::wstring_view tstrAfter;
    for (const TraceLine& line : run.lines) {
        if (line.eLevel == TraceLevel::eProgress) tstrAfter = line.tstrMessage;
        if (line.eLevel != TraceLevel::eFailure) continue;
        const wchar_t* const szWhy = WhyHarmless(line);
        AddFailure(line, szWhy ? std::wstring_view() : tstrAfter, szWhy ? szWhy : PageOf(line.tstrSource),
                   szWhy ? summary.harmless : summary.failures);
    }
    return summary;
}

std::wstring FormatRun(const RunSummary& summary, bool bAll)
{
    std::wstring tstrText = summary.tstrTime + L"  " + OnOneLine(summary.tstrProgram) + L"  (process " +
                            summary.tstrProcess + L", " + FormatDuration(summary.llMilliseconds) + L")\n";
    std::wstring tstrFigures;
    for (const std::wstring& tstrFigure : summary.figures)
        tstrFigures += (tstrFigures.empty() ? L"" : L", ") + tstrFigure;
    if (!tstrFigures.empty()) tstrText += L"  " + tstrFigures + L"\n";
    if (summary.bLacksBeginning) tstrText += L"  BEGINNING MISSING: the file with its first lines is missing\n";
    tstrText += WordsOfEnd(summary.eEnd);
    const std::size_t cFailures = CountLines(summary.failures);
    tstrText += cFailures == 0 ? L"  no failures\n" : L"  " + Counted(cFailures, L"failure", L"failures") + L"\n";
    for (const TraceFailure& failure : summary.failures) tstrText += FormatFailure(failure, L"read: ");
    const std::size_t cHarmless = CountLines(summary.harmless);
    if (cHarmless == 0) return tstrText;
    tstrText += L"  " + Counted(cHarmless, L"harmless line that looks like a failure",
                                L"harmless lines that look like failures");
    tstrText += bAll ? L"\n" : L" (--all shows them)\n";
    if (!bAll) return tstrText;
    for (const TraceFailure& failure : summary.harmless) tstrText += FormatFailure(failure, L"no fault: ");
    return tstrText;
}

int RunTrace(const Arguments& arguments, Output& output)
{
    TraceReader reader;
    int iExitCode = kClean;
    for (const std::wstring& tstrFile : arguments.operands) {
        DWORD dwError = ERROR_SUCCESS;
        if (reader.Add(tstrFile, &dwError)) continue;
        const bool bNoTrace = dwError == ERROR_INVALID_DATA;
        output.tstrErrors += tstrFile +
                             (bNoTrace ? std::wstring(L": no trace") : L": cannot be read: " + DescribeError(dwError)) +
                             L"\n";
        iExitCode = kCannotRead;
    }
    std::size_t cFailed = 0;
    std::size_t cCutOff = 0;
    const std::vector<TraceRun> runs = reader.Runs();
    for (const TraceRun& run : runs) {
        const RunSummary summary = SummarizeRun(run);
        output.strText += String::ToUtf8(FormatRun(summary, arguments.bAll) + L"\n");
        cFailed += summary.failures.empty() ? 0 : 1;
        cCutOff += summary.eEnd == RunEnd::eCutOff || summary.eEnd == RunEnd::eAsking ? 1 : 0;
    }
    for (const std::wstring& tstrFile : reader.MissingFiles()) {
        output.strText += String::ToUtf8(tstrFile + L" is missing or unreadable: its lines are missing above\n");
    }
    output.strText += String::ToUtf8(Counted(runs.size(), L"run", L"runs") + L", " + std::to_wstring(cFailed) +
                                     L" with failures, " + std::to_wstring(cCutOff) + L" cut off\n");
    return iExitCode;
}

}  // namespace Check
