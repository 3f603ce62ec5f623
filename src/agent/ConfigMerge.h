// Migrates the user's settings into the configuration file of an update.
#pragma once

#include "agent/RunContext.h"

#include <string>

/// The configuration file that receives the user's values.
struct ConfigTarget {
    std::wstring tstrPath;     ///< "config.xml" of the update's settings, shown in the trace
    std::wstring tstrWritten;  ///< the file to write: `tstrPath` or a copy that will replace it
};

/// Migrates the user's values of the "migrate" tags. False, with the user's file kept, unless all of them are written.
bool MergeConfig(RunContext& run, const ConfigTarget& target);

/// Keeps the user's file, if it exists and the update's file will replace it, under the name of KeptFileFor()
/// (SettingsFiles.h).
void KeepUsersFile(RunContext& run, const ConfigTarget& target);

/// Deletes the kept files with the same content as the user's file (KeptFilesLike()): all of their values have been
/// migrated. Kept files with other content stay, because they may contain values that an earlier update lost.
void DropKeptFiles(KzCommon::Machine& machine);
