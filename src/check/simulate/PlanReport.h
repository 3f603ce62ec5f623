// The forms in which a plan is written.
#pragma once

#include "check/simulate/Plan.h"

#include <string>

namespace Check {

/// For a person: one line a change below its operation, paths below the plan's folders without them, then one that
/// counts the changes.
[[nodiscard]] std::wstring FormatPlanText(const Plan& plan);

/// JSON, in ASCII: {"update", "installed", "steps": [{"step", "changes": [{"action", "outcome", "target", ...}]}],
/// "count"}.
[[nodiscard]] std::string FormatPlanJson(const Plan& plan);

}  // namespace Check
