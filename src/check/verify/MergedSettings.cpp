#include "check/verify/MergedSettings.h"

#include "check/update/ErrorText.h"
#include "check/update/XmlForm.h"

#include "common/KzComn_XmlParser.h"
#include "config/ConfigStore.h"
#include "config/ConfigValue.h"

#include <algorithm>
#include <map>
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

/// The elements that hold values, by folded tag; of several for one tag the first counts.
using Elements = std::map<std::wstring, const XmlElement*>;

Elements ValuesIn(const XmlElement& root)
{
    Elements elements;
    ForEachTag(root, [&](const XmlElement& element, const TagPath& path) {
        if (!element.GetFirstChild()) elements.emplace(path.Folded(), &element);
    });
    return elements;
}

/// Whether the merge takes a value over as it is, so that the two texts can be compared.
bool IsComparable(const Config::Value& users, const XmlElement& merged)
{
    return !users.bProtected && Config::ProtectionOf(merged) == Config::Protection::eNone &&
           Config::Fits(Config::TypeOfName(merged.GetAttribute(L"type")), users.tstrText);
}

/// The first of the user's settings that the merged file does not have, or has with another value; empty if all are as
/// they were. An unreadable kept file shows nothing.
std::wstring FirstLost(const std::vector<std::wstring>& carriedOver, const XmlElement& merged, std::string_view strKept)
{
    std::wstring tstrLost;
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        const auto kept = Storage::XmlParser().ParseText(strKept);
        const Elements users = ValuesIn(*kept->GetRoot());
        const Elements there = ValuesIn(merged);
        for (const std::wstring& tstrTag : carriedOver) {
            const auto itUsers = users.find(Folded(tstrTag));
            if (itUsers == users.end()) continue;
            const auto itThere = there.find(itUsers->first);
            if (itThere == there.end()) {
                tstrLost = L"there is no " + tstrTag;
                return;
            }
            const Config::Value value = Config::ValueOf(*itUsers->second);
            if (IsComparable(value, *itThere->second) && Config::ValueOf(*itThere->second) != value) {
                tstrLost = tstrTag + L" has another value than in the file kept for the user";
                return;
            }
        }
    }));
    return tstrLost;
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
        const std::wstring tstrMissing = FirstMissing(expected.tags, there);
        if (!tstrMissing.empty()) return L"there is no " + tstrMissing;
        return strKept.empty() ? std::wstring() : FirstLost(expected.carriedOver, root, strKept);
    } catch (Storage::Exception* pException) {
        return ReasonOf(*Storage::CaughtException(pException));
    }
}

}  // namespace Check
