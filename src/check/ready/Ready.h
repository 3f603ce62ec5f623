// "ready": whether a deployment would succeed on this machine, now.
#pragma once

#include "check/simulate/Plan.h"
#include "check/update/CommandLine.h"
#include "check/update/Update.h"
#include "check/verify/PendingMoves.h"

#include "common/KzComn_Machine.h"

#include <string>
#include <vector>

namespace Check {

/// An obstacle; the row of its number has the remedy.
struct ReadyFinding {
    unsigned uNumber = 0;
    std::wstring tstrWhat;  ///< a drive, a file, a folder
    std::wstring tstrReason;
};

/// What the caller could not examine, and why.
struct NotExamined {
    std::wstring tstrWhat;
    std::wstring tstrReason;
};

struct ReadyReport {
    std::vector<ReadyFinding> findings;  ///< by number
    std::vector<NotExamined> notExamined;
};

/// What the checks look at.
struct ReadyContext {
    const KzCommon::Machine& machine;
    const Update& update;
    const Folder& installed;
    const Plan& plan;
    const std::vector<PendingMove>& pending;  ///< the machine's list, before the deployment
};

/// Carries out all checks.
[[nodiscard]] ReadyReport CheckReadiness(const ReadyContext& context);

/// The word and the remedy of a number.
[[nodiscard]] const wchar_t* NameOfCheck(unsigned uNumber);
[[nodiscard]] const wchar_t* RemedyOf(unsigned uNumber);

/// Runs the verb.
[[nodiscard]] int RunReady(const Arguments& arguments, Output& output);

}  // namespace Check
