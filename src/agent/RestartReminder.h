// Asks the user to restart for the new product name.
#pragma once

#include "agent/InstructionFile.h"

#include <string>

/// The texts of the question.
struct Notification {
    std::wstring tstrTitle;
    std::wstring tstrMessage;
};

/// Takes title and message from the records of the language's section. A missing text is replaced with a built-in
/// English one.
[[nodiscard]] Notification MakeNotification(const SectionRecords& records);

/// Asks in the active console session, also from another session, and restarts Windows when the user agrees. Title and
/// message are the first two "text" records of the section "RestartNotification_" plus the installation's language; see
/// MakeNotification(). Waits for the answer.
void RemindToReboot(KzCommon::Machine& machine);
