// "sign" and "check-signature": an update that arrives as its author made it.
#pragma once

#include "check/update/CommandLine.h"

namespace Check {

/// Run the verbs.
[[nodiscard]] int RunSign(const Arguments& arguments, Output& output);
[[nodiscard]] int RunCheckSignature(const Arguments& arguments, Output& output);

}  // namespace Check
