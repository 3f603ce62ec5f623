// The output formats of a plan.
#pragma once

#include "check/simulate/Plan.h"

#include <string>

namespace Check {

/// Text: one line per change below its operation, with paths relative to the plan's folders, then a line with the
/// numbers of changes.
[[nodiscard]] std::wstring FormatPlanText(const Plan& plan);

/// JSON, in ASCII: {"update", "installed", "steps": [{"step", "changes": [{"action", "outcome", "target", ...}]}],
/// "count"}.
[[nodiscard]] std::string FormatPlanJson(const Plan& plan);

}  // namespace Check
