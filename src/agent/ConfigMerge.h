// The user's settings, carried over into the configuration file that an update brings.
#pragma once

#include "agent/RunContext.h"

#include <string>

/// The configuration file that takes the user's values.
struct ConfigTarget {
    std::wstring tstrPath;     ///< "config.xml" of the update's settings, as the trace names it
    std::wstring tstrWritten;  ///< the file that is written: that one, or a copy that is to take its place
};

/// Carries the user's values of the "migrate" tags over. False, with the user's file kept, unless every value got
/// there.
bool MergeConfig(RunContext& run, const ConfigTarget& target);

/// Keeps the user's file under the name of KeptFileFor() (SettingsFiles.h), where there is one and the update's is
/// about to replace it.
void KeepUsersFile(RunContext& run, const ConfigTarget& target);

/// Deletes the kept files that hold what the user's file holds (KeptFilesLike()): of one whose values were all carried
/// over nothing is left to be kept. One with other content may hold values that an earlier update has lost: it stays.
void DropKeptFiles(KzCommon::Machine& machine);
