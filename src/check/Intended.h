// Warnings about what the author means to do.
#pragma once

#include "check/IniScan.h"
#include "check/Report.h"

namespace Check {

/// Takes the warnings out of the report that a comment of the instruction file calls intended, by the numbers of their
/// rules: "; BrevantCheck: B012 B024". It counts for the next line, before the first section for the whole update.
/// Errors stay.
void RemoveIntended(const IniScan& scan, Report& report);

}  // namespace Check
