// The sections and keys of the instruction file that the agent reads.
#pragma once

#include <algorithm>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// A section, and the keys of all who read it.
struct KnownSection {
    const wchar_t* szName;
    bool bLanguage;  ///< the name goes on with a language tag
    std::vector<std::wstring> keys;

    [[nodiscard]] bool HasKey(const std::wstring& tstrKey) const
    {
        return std::find(keys.begin(), keys.end(), tstrKey) != keys.end();
    }
};

/// All of them, as the agent's own tables have them.
[[nodiscard]] std::span<const KnownSection> KnownSections();

/// The row of a section, its name compared without regard to case as Windows does; null for an unknown one.
[[nodiscard]] const KnownSection* FindKnownSection(std::wstring_view tstrName);

}  // namespace Check
