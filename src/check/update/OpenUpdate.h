// The update that a verb was called with.
#pragma once

#include "check/update/CommandLine.h"
#include "check/update/Update.h"

namespace Check {

/// Opens the update that is the verb's first operand. False, with a line of errors, when it cannot be read.
[[nodiscard]] bool OpenUpdate(const Arguments& arguments, Update& update, Output& output);

/// Adds a line of errors that names the file or folder and the Win32 code in words. Returns kCannotRead.
int CannotRead(const std::wstring& tstrPath, DWORD dwError, Output& output);

}  // namespace Check
