// "diff": compares two updates by their expected states.
#pragma once

#include "check/update/CommandLine.h"
#include "check/verify/ExpectedState.h"

#include <optional>
#include <string>
#include <vector>

namespace Check {

/// One item that only one of two updates has, or that both have in different ways.
struct Difference {
    const char* szKind;                  ///< "file", "value", ...
    std::wstring tstrWhat;               ///< the file's place, the value's key and name, ...
    std::optional<std::wstring> optOld;  ///< what the old update does with it; empty: it does not have it
    std::optional<std::wstring> optNew;
};

/// The kinds of which one of the states knows nothing, because the format of its manifest has no place for them.
[[nodiscard]] std::vector<const char*> KindsNotCompared(const ExpectedState& older, const ExpectedState& newer);

/// The differences by kind, each kind in ordinal order, without KindsNotCompared(). Does not compare identities and
/// tool versions.
[[nodiscard]] std::vector<Difference> CompareStates(const ExpectedState& older, const ExpectedState& newer);

/// Runs the verb.
[[nodiscard]] int RunDiff(const Arguments& arguments, Output& output);

}  // namespace Check
