// Trace files, taken apart into lines and runs.
#pragma once

#include <windows.h>

#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Check {

enum class TraceLevel { eStep, eProgress, eFailure, eOther };

/// One message, with what stands before and after it. The texts belong to the reader.
struct TraceLine {
    LONGLONG llMilliseconds = 0;    ///< local time, since the first day of 1970
    std::wstring_view tstrTime;     ///< as it is written, without the milliseconds
    std::wstring_view tstrProcess;  ///< hexadecimal, as it is written
    TraceLevel eLevel = TraceLevel::eOther;
    std::wstring_view tstrModule;  ///< "Brevant"
    std::wstring_view tstrMessage;
    std::wstring_view tstrSource;  ///< "RestartReminder.cpp"; empty when the line was cut off
};

/// The lines of one process, from its start to its last line.
struct TraceRun {
    std::vector<TraceLine> lines;
};

/// Reads trace files and sorts their lines into runs. Files that were rolled (NAME.1, NAME.2, ...) and those of other
/// days (NAME_20261121) belong together: a run goes on from one to the next.
class TraceReader {
public:
    /// Adds the file at `tstrPath` and those that were rolled out of its name, or that it was rolled out of. False with
    /// the code when it cannot be read; ERROR_INVALID_DATA (13) when there is no line of a trace in it.
    [[nodiscard]] bool Add(const std::wstring& tstrPath, DWORD* pdwError);

    /// The runs of all files, by the time of their first line.
    [[nodiscard]] std::vector<TraceRun> Runs() const;

    /// The rolled files that are gone, or cannot be read, between others of their trace and day.
    [[nodiscard]] std::vector<std::wstring> MissingFiles() const;

    static constexpr std::size_t kMaxBytes = std::size_t{256} * 1024 * 1024;

private:
    /// The files of one trace in the order in which they were written: by day, then from the oldest rolled one on.
    using Order = std::pair<std::wstring, int>;
    struct File {
        std::wstring tstrBase;  ///< its path before it was rolled
        std::vector<TraceLine> lines;
    };
    using Files = std::map<Order, File>;

    [[nodiscard]] bool AddOne(const std::wstring& tstrBase, unsigned uNumber, DWORD* pdwError);

    std::deque<std::wstring> m_texts;
    std::map<std::wstring, Files> m_traces;  // by full path without day and number, in lower case
};

}  // namespace Check
