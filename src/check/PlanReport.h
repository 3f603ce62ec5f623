// The forms in which a plan is written.
#pragma once

#include "check/Plan.h"

#include <string>

namespace Check {

/// For a person: one line a change below its operation, then one that counts them.
[[nodiscard]] std::wstring FormatPlanText(const Plan& plan);

/// JSON, in UTF-8: {"update", "installed", "steps": [{"step", "changes": [{"action", "outcome", "target", ...}]}],
/// "count"}.
[[nodiscard]] std::string FormatPlanJson(const Plan& plan);

}  // namespace Check
