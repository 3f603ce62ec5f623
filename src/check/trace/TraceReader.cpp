#include "check/trace/TraceReader.h"

#include "check/update/Instructions.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Result.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"

#include <algorithm>
#include <chrono>
#include <optional>

using namespace KzCommon;

namespace Check {

namespace {

constexpr unsigned kMaxRolled = 9;
/// Without progress lines, only the time between lines distinguishes two processes with the same id.
constexpr LONGLONG kLongPause = 60LL * 60 * 1000;
constexpr std::wstring_view kStartMessage = L"Paramter is ";
constexpr std::wstring_view kBeforeStart = L"*** Frwk::Utility::GetInstalledFolder() - ProductPath cannot be read.";

/// Parses a line from its beginning.
class Cursor {
public:
    explicit Cursor(std::wstring_view tstrText) : m_tstrText(tstrText) {}

    /// Takes at least one and at most `cMost` digits of the base and returns their text.
    std::wstring_view Digits(bool bHex, std::size_t cMost)
    {
        std::size_t cDigits = 0;
        while (cDigits < std::min(cMost, m_tstrText.size()) && IsDigit(m_tstrText[cDigits], bHex)) ++cDigits;
        m_bOk = m_bOk && cDigits > 0;
        return Take(cDigits);
    }
    int Number(std::size_t cDigits)
    {
        int iNumber = 0;
        for (const wchar_t ch : Digits(false, cDigits)) iNumber = iNumber * 10 + (ch - L'0');
        return iNumber;
    }
    void Expect(std::wstring_view tstrPart)
    {
        m_bOk = m_bOk && m_tstrText.starts_with(tstrPart);
        if (m_bOk) Take(tstrPart.size());
    }
    void Require(bool bOk) { m_bOk = m_bOk && bOk; }
    std::wstring_view Until(std::wstring_view tstrEnd)
    {
        const std::size_t uEnd = m_tstrText.find(tstrEnd);
        m_bOk = m_bOk && uEnd != std::wstring_view::npos;
        if (!m_bOk) return {};
        const std::wstring_view tstrTaken = Take(uEnd);
        Take(tstrEnd.size());
        return tstrTaken;
    }
    std::wstring_view Take(std::size_t cch)
    {
        cch = std::min(cch, m_tstrText.size());
        const std::wstring_view tstrTaken = m_tstrText.substr(0, cch);
        m_tstrText.remove_prefix(cch);
        return tstrTaken;
    }
    [[nodiscard]] bool IsOk() const noexcept { return m_bOk; }
    [[nodiscard]] std::wstring_view Rest() const noexcept { return m_tstrText; }

private:
    static bool IsDigit(wchar_t ch, bool bHex) noexcept
    {
        return (ch >= L'0' && ch <= L'9') || (bHex && ch >= L'a' && ch <= L'f');
    }

    std::wstring_view m_tstrText;
    bool m_bOk = true;
};

TraceLevel LevelOf(std::wstring_view tstrTag)
{
    if (tstrTag == L".w.") return TraceLevel::eStep;
    if (tstrTag == L"@@@") return TraceLevel::eProgress;
    return tstrTag == L"!!!" ? TraceLevel::eFailure : TraceLevel::eOther;
}

/// "21/11/2026 08:37:01.796"
LONGLONG ParseTime(Cursor& cursor)
{
    using namespace std::chrono;
    const int iDay = cursor.Number(2);
    cursor.Expect(L"/");
    const int iMonth = cursor.Number(2);
    cursor.Expect(L"/");
    const int iYear = cursor.Number(4);
    cursor.Expect(L" ");
    const int iHour = cursor.Number(2);
    cursor.Expect(L":");
    const int iMinute = cursor.Number(2);
    cursor.Expect(L":");
    const int iSecond = cursor.Number(2);
    cursor.Expect(L".");
    const int iMilliseconds = cursor.Number(3);
    const year_month_day date = year(iYear) / month(static_cast<unsigned>(iMonth)) / day(static_cast<unsigned>(iDay));
    cursor.Require(date.ok());
    if (!date.ok()) return 0;
    const auto time = hours(iHour) + minutes(iMinute) + seconds(iSecond) + milliseconds(iMilliseconds);
    return duration_cast<milliseconds>(sys_days(date).time_since_epoch() + time).count();
}

/// A line's fields and message (the whole rest); empty for a line of another form.
std::optional<TraceLine> ParseHead(std::wstring_view tstrText)
{
    constexpr std::size_t kTimeCharacters = 19;
    Cursor cursor(tstrText);
    TraceLine line;
    line.tstrTime = tstrText.substr(0, std::min(kTimeCharacters, tstrText.size()));
    line.llMilliseconds = ParseTime(cursor);
    cursor.Expect(L" ");
    line.tstrProcess = cursor.Digits(true, 8);
    cursor.Expect(L":");
    cursor.Digits(true, 8);
    cursor.Expect(L" ");
    line.eLevel = LevelOf(cursor.Take(3));
    cursor.Expect(L" <");
    line.tstrModule = cursor.Until(L"> ");
    line.tstrMessage = cursor.Rest();
    return cursor.IsOk() ? std::optional(line) : std::nullopt;
}

/// The length of a line before " - Source.cpp(12)", and that source; the whole length for a line without it.
std::size_t FindSource(std::wstring_view tstrText, std::wstring_view& tstrSource)
{
    const std::size_t uDash = tstrText.rfind(L" - ");
    if (uDash == std::wstring_view::npos || !tstrText.ends_with(L')')) return tstrText.size();
    const std::wstring_view tstrPlace = tstrText.substr(uDash + 3);
    const std::wstring_view tstrName = tstrPlace.substr(0, tstrPlace.find(L'('));
    if (!tstrName.ends_with(L".cpp")) return tstrText.size();
    tstrSource = tstrName;
    return uDash;
}

/// The lines of a file. Text between two lines belongs to the message of the first.
std::vector<TraceLine> ParseLines(std::wstring_view tstrText)
{
    std::vector<TraceLine> lines;
    while (!tstrText.empty()) {
        const std::size_t uEnd = std::min(tstrText.find(L'\n'), tstrText.size());
        std::wstring_view tstrLine = tstrText.substr(0, uEnd);
        tstrText.remove_prefix(std::min(uEnd + 1, tstrText.size()));
        if (tstrLine.ends_with(L'\r')) tstrLine.remove_suffix(1);
        if (tstrLine.starts_with(L'\xFEFF')) tstrLine.remove_prefix(1);  // of an appended file
        if (std::optional<TraceLine> line = ParseHead(tstrLine)) {
            line->tstrMessage = line->tstrMessage.substr(0, FindSource(line->tstrMessage, line->tstrSource));
            lines.push_back(*line);
        } else if (!lines.empty() && lines.back().tstrSource.empty()) {
            TraceLine& last = lines.back();
            const wchar_t* const pchEnd = tstrLine.data() + FindSource(tstrLine, last.tstrSource);
            last.tstrMessage = {last.tstrMessage.data(), static_cast<std::size_t>(pchEnd - last.tstrMessage.data())};
        }
    }
    return lines;
}

std::wstring Decode(std::string_view strBytes)
{
    if (strBytes.starts_with("\xEF\xBB\xBF")) strBytes.remove_prefix(3);
    std::wstring tstrText;
    if (String::FromUtf8(strBytes, tstrText)) return tstrText;
    // Invalid UTF-8 is replaced: a damaged file is still useful.
    const int cb = static_cast<int>(strBytes.size());
    tstrText.resize(strBytes.size());
    const int cch =
        ::MultiByteToWideChar(CP_UTF8, 0, strBytes.data(), cb, tstrText.data(), static_cast<int>(tstrText.size()));
    tstrText.resize(static_cast<std::size_t>(cch));
    return tstrText;
}

/// The path before the file was rolled, and its number; 0 for a file that was not rolled.
std::pair<std::wstring, unsigned> SplitNumber(const std::wstring& tstrPath)
{
    const std::size_t uDot = tstrPath.rfind(L'.');
    const bool bNumber = uDot != std::wstring::npos && uDot + 2 == tstrPath.size() && tstrPath[uDot + 1] >= L'1' &&
                         tstrPath[uDot + 1] <= L'9';
    if (!bNumber) return {tstrPath, 0};
    return {tstrPath.substr(0, uDot), static_cast<unsigned>(tstrPath[uDot + 1] - L'0')};
}

std::wstring RolledPath(const std::wstring& tstrBase, unsigned uNumber)
{
    return tstrBase + L"." + std::to_wstring(uNumber);
}

/// The path without its day, in lower case, and the day: "_20261121" before the extension.
std::pair<std::wstring, std::wstring> SplitDay(const std::wstring& tstrBase)
{
    constexpr std::size_t kDigits = 8;
    std::wstring tstrName = String::LowerCase(tstrBase);
    const std::size_t uFile = tstrName.rfind(L'\\') + 1;
    const std::size_t uDot = tstrName.rfind(L'.');
    const std::size_t uEnd = uDot != std::wstring::npos && uDot > uFile ? uDot : tstrName.size();
    if (uEnd - uFile <= kDigits || tstrName[uEnd - kDigits - 1] != L'_') return {tstrName, {}};
    const std::wstring tstrDay = tstrName.substr(uEnd - kDigits, kDigits);
    if (tstrDay.find_first_not_of(L"0123456789") != std::wstring::npos) return {tstrName, {}};
    return {tstrName.erase(uEnd - kDigits - 1, kDigits + 1), tstrDay};
}

/// Sorts the lines of one trace into runs.
class RunSorter {
public:
    explicit RunSorter(std::vector<TraceRun>& runs) : m_runs(runs) {}

    void Add(const TraceLine& line)
    {
        const std::pair key(line.tstrProcess, line.tstrModule);
        const auto itOpen = m_open.find(key);
        if (itOpen == m_open.end()) {
            m_open[key] = Begin(line, std::nullopt);
            return;
        }
        Open& open = itOpen->second;
        const bool bStart = line.eLevel == TraceLevel::eProgress && line.tstrMessage.starts_with(kStartMessage);
        const bool bPause =
            !open.bProgress && line.llMilliseconds - m_runs[open.uRun].lines.back().llMilliseconds > kLongPause;
        if ((bStart && open.bProgress) || bPause) {
            open = Begin(line, bStart ? TakeHead(m_runs[open.uRun]) : std::nullopt);
        } else {
            m_runs[open.uRun].lines.push_back(line);
            open.bProgress = open.bProgress || line.eLevel == TraceLevel::eProgress;
        }
    }

private:
    struct Open {
        std::size_t uRun = 0;
        bool bProgress = false;
    };

    Open Begin(const TraceLine& line, const std::optional<TraceLine>& optHead)
    {
        m_runs.emplace_back();
        if (optHead) m_runs.back().lines.push_back(*optHead);
        m_runs.back().lines.push_back(line);
        return {m_runs.size() - 1, line.eLevel == TraceLevel::eProgress};
    }

    /// Takes the one line that precedes a run's first line from the end of the previous run.
    static std::optional<TraceLine> TakeHead(TraceRun& run)
    {
        const TraceLine last = run.lines.back();
        if (run.lines.size() < 2 || !last.tstrMessage.starts_with(kBeforeStart)) return std::nullopt;
        run.lines.pop_back();
        return last;
    }

    std::vector<TraceRun>& m_runs;
    std::map<std::pair<std::wstring_view, std::wstring_view>, Open> m_open;
};

}  // namespace

bool TraceReader::Add(const std::wstring& tstrPath, DWORD* pdwError)
{
    const auto [tstrBase, uGiven] = SplitNumber(Storage::Directory::FullPath(tstrPath));
    if (!AddOne(tstrBase, uGiven, pdwError)) return false;
    for (unsigned uNumber = 0; uNumber <= kMaxRolled; ++uNumber) {
        if (uNumber != uGiven) static_cast<void>(AddOne(tstrBase, uNumber, nullptr));
    }
    return true;
}

bool TraceReader::AddOne(const std::wstring& tstrBase, unsigned uNumber, DWORD* pdwError)
{
    const auto [tstrName, tstrDay] = SplitDay(tstrBase);
    Files& files = m_traces[tstrName];
    const Order order(tstrDay, -static_cast<int>(uNumber));
    if (files.contains(order)) return true;
    std::string strBytes;
    const std::wstring tstrPath = uNumber > 0 ? RolledPath(tstrBase, uNumber) : tstrBase;
    if (!Storage::File::ReadWhole(tstrPath, kMaxBytes, strBytes, pdwError)) return false;
    m_texts.push_back(Decode(strBytes));
    std::vector<TraceLine> lines = ParseLines(m_texts.back());
    if (lines.empty()) return Storage::Fail(ERROR_INVALID_DATA, pdwError);
    files.emplace(order, File{tstrBase, std::move(lines)});
    return true;
}

std::vector<TraceRun> TraceReader::Runs() const
{
    std::vector<TraceRun> runs;
    for (const auto& [tstrName, files] : m_traces) {
        RunSorter sorter(runs);
        for (const auto& [order, file] : files) {
            for (const TraceLine& line : file.lines) sorter.Add(line);
        }
    }
    std::stable_sort(runs.begin(), runs.end(), [](const TraceRun& left, const TraceRun& right) {
        return left.lines.front().llMilliseconds < right.lines.front().llMilliseconds;
    });
    return runs;
}

std::vector<std::wstring> TraceReader::MissingFiles() const
{
    std::vector<std::wstring> missing;
    for (const auto& [tstrName, files] : m_traces) {
        for (auto itLater = files.begin(), itEarlier = files.end(); itLater != files.end(); itEarlier = itLater++) {
            const bool bSameDay = itEarlier != files.end() && itEarlier->first.first == itLater->first.first;
            if (!bSameDay) continue;
            for (int i = itEarlier->first.second + 1; i < itLater->first.second; ++i) {
                missing.push_back(RolledPath(itLater->second.tstrBase, static_cast<unsigned>(-i)));
            }
        }
    }
    return missing;
}

}  // namespace Check
