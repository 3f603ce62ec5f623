#include "check/verify/MergedSettings.h"

#include "check/update/ErrorText.h"
#include "check/update/XmlForm.h"

#include "common/KzComn_XmlParser.h"
#include "config/ConfigValue.h"

#include <algorithm>
#include <set>

using namespace KzCommon;
using Config::TagPath;
using Storage::XmlElement;

namespace Check {

namespace {

using FoldedTags = std::set<std::wstring>;

/// A tag path for case-insensitive comparison; empty for an invalid one.
std::wstring Folded(const std::wstring& tstrTag)
{
    const auto path = TagPath::Parse(tstrTag);
    return path ? path->Folded() : std::wstring();
}

/// All elements below the root, including sections.
FoldedTags TagsIn(const XmlElement& root)
{
    FoldedTags tags;
    ForEachTag(root, [&](const XmlElement&, const TagPath& path) { tags.insert(path.Folded()); });
    return tags;
}

/// The first of the tags that is not in `there`; empty if all are.
std::wstring FirstMissing(const std::vector<std::wstring>& tags, const FoldedTags& there)
{
    const auto itMissing = std::find_if(tags.begin(), tags.end(),
                                        [&](const std::wstring& tstrTag) { return !there.contains(Folded(tstrTag)); });
    return itMissing == tags.end() ? std::wstring() : *itMissing;
}

/// The migrated settings that the user had; empty when the kept file is unreadable.
std::vector<std::wstring> KeptTags(const std::vector<std::wstring>& carriedOver, std::string_view strKept)
{
    std::vector<std::wstring> kept;
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        const FoldedTags users = TagsIn(*Storage::XmlParser().ParseText(strKept)->GetRoot());
        std::copy_if(carriedOver.begin(), carriedOver.end(), std::back_inserter(kept),
                     [&](const std::wstring& tstrTag) { return users.contains(Folded(tstrTag)); });
    }));
    return kept;
}

}  // namespace

ExpectedSettings SettingsOf(const XmlElement& root, const std::vector<std::wstring>& migrated)
{
    ExpectedSettings expected;
    expected.tstrRoot = root.GetName();
    FoldedTags known;
    ForEachTag(root, [&](const XmlElement& element, const TagPath& path) {
        if (known.insert(path.Folded()).second && !element.GetFirstChild()) expected.tags.push_back(path.Text());
    });
    FoldedTags listed;
    for (const std::wstring& tstrTag : migrated) {
        const auto path = TagPath::Parse(tstrTag);
        if (path && listed.insert(path->Folded()).second) expected.carriedOver.push_back(path->Text());
    }
    return expected;
}

std::wstring WhyNotMerged(const ExpectedSettings& expected, std::string_view strMerged, std::string_view strKept)
{
    try {
        const auto document = Storage::XmlParser().ParseText(strMerged);
        const XmlElement& root = *document->GetRoot();
        if (!root.IsNamed(expected.tstrRoot)) return L"not <" + expected.tstrRoot + L">";
        const FoldedTags there = TagsIn(root);
        std::wstring tstrMissing = FirstMissing(expected.tags, there);
        if (tstrMissing.empty() && !strKept.empty()) {
            tstrMissing = FirstMissing(KeptTags(expected.carriedOver, strKept), there);
        }
        return tstrMissing.empty() ? tstrMissing : L"there is no " + tstrMissing;
    } catch (Storage::Exception* pException) {
        return ReasonOf(*Storage::CaughtException(pException));
    }
}

}  // namespace Check
