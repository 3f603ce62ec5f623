// "trace": summarizes the runs of a trace for support.
#pragma once

#include "check/trace/TraceReader.h"
#include "check/update/CommandLine.h"

#include <string>
#include <vector>

namespace Check {

/// How a run ended, according to its lines.
enum class RunEnd {
    eWhole,   ///< the last line exists
    eCutOff,  ///< it is missing: the program was ended or is still running
    eAsking,  ///< likewise, while the user was asked a question
    eUnknown  ///< the deciding lines are not traced
};

/// A line of the failure level, with the number of equal ones.
struct TraceFailure {
    std::wstring tstrMessage;
    std::wstring tstrSource;
    std::wstring tstrWords;  ///< the text of the code; empty without a code
    std::wstring tstrNote;   ///< the page to read, or why the line is harmless
    std::wstring tstrAfter;  ///< the previous progress line, if the line itself has no context
    std::size_t cTimes = 1;
};

struct RunSummary {
    std::wstring tstrTime;
    std::wstring tstrProgram;  ///< program and switch
    std::wstring tstrProcess;
    LONGLONG llMilliseconds = 0;
    RunEnd eEnd = RunEnd::eUnknown;
    bool bLacksBeginning = false;       ///< the file with its first lines is missing
    std::vector<std::wstring> figures;  ///< "24 files handed to the restart"
    std::vector<TraceFailure> failures;
    std::vector<TraceFailure> harmless;  ///< lines that look like failures but are harmless
};

/// How a run ended, by its lines.
[[nodiscard]] RunEnd EndOf(const TraceRun& run);

/// The changes and failures of a run.
[[nodiscard]] RunSummary SummarizeRun(const TraceRun& run);

/// One block of lines; with `bAll` also the harmless lines.
[[nodiscard]] std::wstring FormatRun(const RunSummary& summary, bool bAll);

/// Runs the verb.
[[nodiscard]] int RunTrace(const Arguments& arguments, Output& output);

}  // namespace Check
