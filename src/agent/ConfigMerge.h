// The user's settings, carried over into the configuration file that an update brings.
#pragma once

#include <string>

/// Carries the user's values of the "migrate" tags over into "config.xml" in `tstrFolder` (trailing backslash). False,
/// with the user's file kept under the name of KeptFileFor(), unless every value got there.
bool MergeConfig(const std::wstring& tstrFolder);

/// The name under which the user's file is kept beside it: "config.previous.xml", or, where that holds the settings of
/// an earlier time, the first of "config.previous.2.xml" to "config.previous.9.xml" that is free or holds the same;
/// when none is, the last.
[[nodiscard]] std::wstring KeptFileFor(const std::wstring& tstrUsersFile);

/// The user's file that was kept last; empty when none was.
[[nodiscard]] std::wstring NewestKeptFile(const std::wstring& tstrUsersFile);

/// Keeps the user's file while "config.xml" in `tstrFolder` is made anew: an earlier run may have registered its move,
/// and a run that is ended before the merge would put it in place without the user's values. The kept file's path;
/// empty when nothing needs to be kept, or the same is kept already, or it cannot be done.
[[nodiscard]] std::wstring KeepDuringMerge(const std::wstring& tstrFolder);

/// Removes what KeepDuringMerge() has kept.
void DropKept(const std::wstring& tstrKept);
