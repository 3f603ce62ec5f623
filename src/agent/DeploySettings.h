// The settings step: the changes of an update besides replacing files.
#pragma once

#include "agent/RunContext.h"

/// Prepares the settings before their files are copied: patches the registry, selects the settings files of the
/// product's language, merges the configuration and edits the update information. When the package has no settings
/// folder, it patches only the registry and returns false, with a trace line.
[[nodiscard]] bool PrepareSettings(RunContext& run);
