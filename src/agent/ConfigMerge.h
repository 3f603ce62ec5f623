// The user's settings, carried over into the configuration file that an update brings.
#pragma once

#include <string>

/// The user's file is kept under this name in the install folder when not every value got over.
inline constexpr wchar_t kKeptConfigFile[] = L"config.previous.xml";

/// Carries the user's values of the "migrate" tags over into "config.xml" in `tstrFolder` (trailing backslash). False,
/// with the user's file kept as "config.previous.xml", unless every value got there.
bool MergeConfig(const std::wstring& tstrFolder);

/// Keeps the user's file as "config.previous.xml" while "config.xml" in `tstrFolder` is made anew: an earlier run may
/// have registered its move, and a run that is ended before the merge would put it in place without the user's values.
/// False when nothing needs to be kept, or something is kept already, or it cannot be done.
[[nodiscard]] bool KeepDuringMerge(const std::wstring& tstrFolder);

/// Removes what KeepDuringMerge() has kept.
void DropKept();
