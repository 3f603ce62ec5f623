// The user's settings, carried over into the configuration file that an update brings.
#pragma once

#include <string>

/// Carries the user's values of the "migrate" tags over into "config.xml" in `tstrFolder` (trailing backslash).
void MergeConfig(const std::wstring& tstrFolder);
