// Opens the update that a verb is called with.
#pragma once

#include "check/update/CommandLine.h"
#include "check/update/Update.h"

namespace Check {

/// Opens the update in the verb's first operand. False, with an error line, when it is unreadable.
[[nodiscard]] bool OpenUpdate(const Arguments& arguments, Update& update, Output& output);

/// Adds an error line with the file or folder and the text of the Win32 code. Returns kCannotRead.
int CannotRead(const std::wstring& tstrPath, DWORD dwError, Output& output);

}  // namespace Check
