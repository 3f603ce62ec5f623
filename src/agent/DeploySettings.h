// The settings step: what the update changes besides replacing files.
#pragma once

#include "agent/RunContext.h"

/// What the settings step does before its files are copied: patches the registry, makes the settings files of the
/// product's language the installed ones, merges the configuration and edits the update information. False, with a
/// trace line, when the package has no settings folder: then only the registry is patched.
[[nodiscard]] bool PrepareSettings(RunContext& run);
