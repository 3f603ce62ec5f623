#include "check/KnownSections.h"

#include "agent/Sections.h"
#include "common/KzComn_String.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

/// A section that several operations read stands in the agent's table once for each of them.
std::vector<KnownSection> MergeReadings()
{
    std::vector<KnownSection> sections;
    for (const ::Section& row : kSections) {
        const std::wstring_view tstrName = row.szName;
        auto itKnown = std::find_if(sections.begin(), sections.end(),
                                    [&](const KnownSection& known) { return tstrName == known.szName; });
        if (itKnown == sections.end()) itKnown = sections.insert(itKnown, {row.szName, row.bLanguage, {}});
        for (const SectionKey& key : row.keys) itKnown->keys.emplace_back(key.szKey);
    }
    return sections;
}

}  // namespace

std::span<const KnownSection> KnownSections()
{
    static const std::vector<KnownSection> s_sections = MergeReadings();
    return s_sections;
}

const KnownSection* FindKnownSection(std::wstring_view tstrName)
{
    for (const KnownSection& section : KnownSections()) {
        const std::wstring_view tstrKnown = section.szName;
        const bool bLonger = tstrName.size() > tstrKnown.size();
        if (bLonger && !section.bLanguage) continue;
        if (!bLonger && section.bLanguage) continue;
        if (String::StartsWithNoCase(tstrName, tstrKnown)) return &section;
    }
    return nullptr;
}

}  // namespace Check
