// "trace": what the runs of a trace did, for support.
#pragma once

#include "check/trace/TraceReader.h"
#include "check/update/CommandLine.h"

#include <string>
#include <vector>

namespace Check {

/// How a run ended, as far as its lines tell.
enum class RunEnd {
    eWhole,   ///< the last line is there
    eCutOff,  ///< it is not: the program was ended, or is still running
    eAsking,  ///< the same, and the user was being asked
    eUnknown  ///< the lines that would tell are not traced
};

/// A line of the failure level, equal ones counted.
struct TraceFailure {
    std::wstring tstrMessage;
    std::wstring tstrSource;
    std::wstring tstrWords;  ///< the code in words; empty without a code
    std::wstring tstrNote;   ///< the page to read, or why the line is no fault
    std::wstring tstrAfter;  ///< the progress line before it, where the line itself does not say what it is about
    std::size_t cTimes = 1;
};

struct RunSummary {
    std::wstring tstrTime;
    std::wstring tstrProgram;  ///< program and switch
    std::wstring tstrProcess;
    LONGLONG llMilliseconds = 0;
    RunEnd eEnd = RunEnd::eUnknown;
    bool bLacksBeginning = false;       ///< its first lines were in a file that is gone
    std::vector<std::wstring> figures;  ///< "24 files handed to the restart"
    std::vector<TraceFailure> failures;
    std::vector<TraceFailure> harmless;  ///< lines that look like failures and are none
};

/// How a run ended, by its lines.
[[nodiscard]] RunEnd EndOf(const TraceRun& run);

/// What a run did and what failed in it.
[[nodiscard]] RunSummary SummarizeRun(const TraceRun& run);

/// One block of lines; with `bAll` also the lines that are no failures.
[[nodiscard]] std::wstring FormatRun(const RunSummary& summary, bool bAll);

/// The verb.
[[nodiscard]] int RunTrace(const Arguments& arguments, Output& output);

}  // namespace Check
