// An event in the Windows log about the arrival of an update.
#pragma once

#include "check/verify/Record.h"

#include <windows.h>

namespace Check {

/// The message numbers in the program's message resource, one for each verdict; see BrevantCheck.rc.
enum EventNumber : DWORD { kEventArrived = 1, kEventPending = 2, kEventMissing = 3, kEventUnknown = 4 };

/// Writes one event of the source "BrevantCheck" to the application log: information for an update that has arrived or
/// waits for the restart, otherwise a warning. False with the code. ReportEventW.
[[nodiscard]] bool WriteEvent(const Record& record, DWORD* pdwError);

}  // namespace Check
