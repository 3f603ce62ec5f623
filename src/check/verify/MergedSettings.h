// Configuration files that the agent merges from the update's and the user's file: different on every machine.
#pragma once

#include "common/KzComn_XmlElement.h"

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// The contents of a merged file on every machine: only names and paths, never values.
struct ExpectedSettings {
    std::wstring tstrRoot;           ///< the outermost element's name
    std::vector<std::wstring> tags;  ///< settings of the update's file, "/Parent/Child"
    /// The settings whose values are the user's if there are any. After a failed merge they are in the kept file.
    std::vector<std::wstring> carriedOver;
};

/// The expected contents of an update's configuration file; `migrated` has the records with the settings to migrate.
[[nodiscard]] ExpectedSettings SettingsOf(const KzCommon::Storage::XmlElement& root,
                                          const std::vector<std::wstring>& migrated);

/// Why a merged file differs from the expected one: the position where it is not well-formed, or the first setting that
/// is missing or has lost the user's value; empty if it does not differ. `strKept` is the user's file kept by a failed
/// merge, otherwise empty. Expat.
[[nodiscard]] std::wstring WhyNotMerged(const ExpectedSettings& expected, std::string_view strMerged,
                                        std::string_view strKept);

}  // namespace Check
