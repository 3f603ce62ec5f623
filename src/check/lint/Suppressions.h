// Warnings about what the author means to do.
#pragma once

#include "check/lint/Report.h"
#include "check/update/IniScan.h"

namespace Check {

/// Takes the warnings out of the report that a comment of the instruction file calls intended, by the numbers of their
/// rules: "; BrevantCheck: B012 B024". It counts for the next line, before the first section for the whole update.
/// Errors stay.
void RemoveSuppressed(const IniScan& scan, Report& report);

}  // namespace Check
