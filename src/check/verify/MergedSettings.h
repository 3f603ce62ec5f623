// A configuration file that the agent makes out of the update's and the user's: no two machines have the same.
#pragma once

#include "common/KzComn_XmlElement.h"

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// What such a file is to hold on every machine. Names and paths only, never a value.
struct ExpectedSettings {
    std::wstring tstrRoot;           ///< the outermost element's name
    std::vector<std::wstring> tags;  ///< settings, "/Parent/Child"
    /// What is carried over besides where the user has it. A merge that failed leaves it in the file that was kept.
    std::vector<std::wstring> carriedOver;
};

/// The promise of an update's configuration file; `migrated`: the records of what is carried over.
[[nodiscard]] ExpectedSettings SettingsOf(const KzCommon::Storage::XmlElement& root,
                                          const std::vector<std::wstring>& migrated);

/// Why a merged file is not as it was promised: where it is not well-formed, or the first setting that it lacks; empty
/// when it is. `strKept`: the user's file that a failed merge has kept; empty when there is none. Expat.
[[nodiscard]] std::wstring WhyNotMerged(const ExpectedSettings& expected, std::string_view strMerged,
                                        std::string_view strKept);

}  // namespace Check
