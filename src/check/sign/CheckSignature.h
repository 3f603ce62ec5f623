// "sign" and "check-signature": an update that arrives as its author made it.
#pragma once

#include "check/update/CommandLine.h"
#include "check/update/Update.h"

#include <string>
#include <vector>

namespace Check {

/// Why an update is not as its manifest says, one line each: files that differ, are missing or too many, packages of
/// other names. Every file stays open until the last one is compared, so that no program can change it.
[[nodiscard]] std::vector<std::wstring> CompareFiles(const Update& update, std::string_view strManifest);

/// Run the verbs.
[[nodiscard]] int RunSign(const Arguments& arguments, Output& output);
[[nodiscard]] int RunCheckSignature(const Arguments& arguments, Output& output);

}  // namespace Check
