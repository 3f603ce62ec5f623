// The question to the user whether to restart for the new product name.
#pragma once

#include "agent/InstructionFile.h"

#include <string>

/// The texts of the question.
struct Notification {
    std::wstring tstrTitle;
    std::wstring tstrMessage;
};

/// Title and message out of the records of the language's section, each on its own replaced by a built-in English text
/// when it is missing.
[[nodiscard]] Notification MakeNotification(const SectionRecords& records);

/// Asks at the active console, in whichever session the program runs, and restarts Windows when the user agrees. Title
/// and message are the first two "text" records of the instruction file's section "RestartNotification_" plus the
/// installation's language, each on its own replaced by a built-in English text when it is missing. Waits for the
/// answer.
void RemindToReboot(KzCommon::Machine& machine);
