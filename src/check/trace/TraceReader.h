// Splits trace files into lines and runs.
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

/// One message with its fields. The texts belong to the reader.
struct TraceLine {
    LONGLONG llMilliseconds = 0;    ///< local time since 1 January 1970
    std::wstring_view tstrTime;     ///< original text, without milliseconds
    std::wstring_view tstrProcess;  ///< original text, hexadecimal
    TraceLevel eLevel = TraceLevel::eOther;
    std::wstring_view tstrModule;  ///< "Brevant"
    std::wstring_view tstrMessage;
    std::wstring_view tstrSource;  ///< "RestartReminder.cpp"; empty when the line was cut off
};

/// The lines of one process, from its start to its last line.
struct TraceRun {
    std::vector<TraceLine> lines;
};

/// Reads trace files and sorts their lines into runs. Rolled files (NAME.1, NAME.2, ...) and files of other days
/// (NAME_20261121) belong together: a run may continue from one to the next.
class TraceReader {
public:
    /// Adds the file at `tstrPath` and the other rolled files of the same name. False with the code when it is
    /// unreadable; ERROR_INVALID_DATA (13) when it contains no trace line.
    [[nodiscard]] bool Add(const std::wstring& tstrPath, DWORD* pdwError);

    /// The runs of all files, by the time of their first line.
    [[nodiscard]] std::vector<TraceRun> Runs() const;

    /// The rolled files that are missing or unreadable between others of the same trace and day.
    [[nodiscard]] std::vector<std::wstring> MissingFiles() const;

    static constexpr std::size_t kMaxBytes = std::size_t{256} * 1024 * 1024;

private:
    /// The order in which the files of one trace were written: by day, then from the oldest rolled file.
    using Order = std::pair<std::wstring, int>;
    struct File {
        std::wstring tstrBase;  ///< the path before it was rolled
        std::vector<TraceLine> lines;
    };
    using Files = std::map<Order, File>;

    [[nodiscard]] bool AddOne(const std::wstring& tstrBase, unsigned uNumber, DWORD* pdwError);

    std::deque<std::wstring> m_texts;
    std::map<std::wstring, Files> m_traces;  // by full path without day and number, in lower case
};

}  // namespace Check
