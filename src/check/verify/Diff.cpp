#include "check/verify/Diff.h"

#include "check/update/HostPaths.h"
#include "check/update/JsonText.h"
#include "check/update/OpenUpdate.h"
#include "check/update/ShownText.h"
#include "check/verify/FoundValue.h"
#include "check/verify/Manifest.h"

#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

/// What an update does with each item of one kind, by the item's name.
using Items = String::NoCaseMap<std::wstring>;

std::wstring MomentOf(bool bAtRestart)
{
    return bAtRestart ? L"at the restart" : L"at once";
}

void ListPackages(const ExpectedState& state, Items& items)
{
    items[L"product"] = state.tstrProduct;
    items[L"resource"] = state.tstrResource;
}

void ListFolders(const ExpectedState& state, Items& items)
{
    for (const std::wstring& tstrFolder : state.folders) items[tstrFolder];
}

std::wstring NameOf(const ExpectedFile& file)
{
    return file.tstrLanguage.empty() ? file.tstrPlace : file.tstrPlace + L" for " + file.tstrLanguage;
}

void ListFiles(const ExpectedState& state, Items& items)
{
    for (const ExpectedFile& file : state.files) {
        std::wstring& tstrText = items[NameOf(file)];
        tstrText = MomentOf(file.bAtRestart);
        if (file.optSettings) tstrText = L"merged with the user's, " + tstrText;
        if (!file.optContent) continue;
        tstrText = std::to_wstring(file.optContent->ullSize) + L" bytes, SHA-256 " +
                   String::FromAnsi(file.optContent->strSha256) + L", " + tstrText;
    }
}

void ListSettings(const ExpectedState& state, Items& items)
{
    for (const ExpectedFile& file : state.files) {
        if (!file.optSettings) continue;
        for (const std::wstring& tstrTag : file.optSettings->tags)
            items[NameOf(file) + L" " + tstrTag] = L"the update's";
        for (const std::wstring& tstrTag : file.optSettings->carriedOver) {
            items[NameOf(file) + L" " + tstrTag] = L"the user's, carried over";
        }
    }
}

void ListDeletions(const ExpectedState& state, Items& items)
{
    for (const ExpectedDeletion& deletion : state.deletions) items[deletion.tstrPlace] = MomentOf(deletion.bAtRestart);
}

void ListValues(const ExpectedState& state, Items& items)
{
    for (const ExpectedValue& value : state.registry) {
        std::wstring& tstrText = items[value.tstrKeyPath + L": " + value.tstrValueName];
        switch (value.eState) {
            case ValueState::eAbsent: tstrText = L"deleted"; continue;
            case ValueState::eData: tstrText.clear(); break;  // a manifest may name a value twice
            case ValueState::eAnyData: tstrText = L"if it is missing: "; break;
        }
        tstrText += DescribeValue(value.eType, value.tstrData, value.ullData);
    }
}

void ListUpdateInfo(const ExpectedState& state, Items& items)
{
    for (const ExpectedIniKey& value : state.updateInfo) {
        items[L"[" + value.tstrSection + L"] " + value.tstrKey] = value.tstrValue;
    }
}

template <UncoveredKind eKind>
void ListUncovered(const ExpectedState& state, Items& items)
{
    for (const UncoveredPart& part : state.uncovered) {
        if (part.eKind != eKind) continue;
        const bool bName = eKind == UncoveredKind::eNewName;
        const std::wstring tstrLanguage = part.tstrLanguage.empty() ? L"" : L" for " + part.tstrLanguage;
        items[bName ? part.tstrLanguage : part.tstrWhat + tstrLanguage] = bName ? part.tstrWhat : part.tstrDetail;
    }
}

void ListLanguageTags(const ExpectedState& state, Items& items)
{
    for (const std::wstring& tstrLanguage : state.languages) items.try_emplace(tstrLanguage);
}

struct KindRow {
    const char* szKind;
    void (*pfnList)(const ExpectedState& state, Items& items);
    unsigned uSince = kOldestManifestFormat;  ///< the first format of manifests that has this kind
};
constexpr KindRow kKinds[] = {
    {"package", &ListPackages},
    {"language", &ListLanguageTags, kManifestFormat},
    {"folder", &ListFolders},
    {"file", &ListFiles},
    {"setting", &ListSettings, kManifestFormat},
    {"deletion", &ListDeletions},
    {"value", &ListValues},
    {"update information", &ListUpdateInfo},
    {"command", &ListUncovered<UncoveredKind::eCommand>, kManifestFormat},
    {"shortcut", &ListUncovered<UncoveredKind::eShortcut>, kManifestFormat},
    {"new name", &ListUncovered<UncoveredKind::eNewName>, kManifestFormat},
    {"not restored", &ListUncovered<UncoveredKind::eNotRestored>, kManifestFormat},
};

/// Both states say something of this kind, or neither can.
bool IsCompared(const KindRow& row, const ExpectedState& older, const ExpectedState& newer)
{
    return older.uFormat == newer.uFormat || row.uSince <= std::min(older.uFormat, newer.uFormat);
}

void CompareItems(const char* szKind, const Items& older, const Items& newer, std::vector<Difference>& differences)
{
    for (const auto& [tstrWhat, tstrOld] : older) {
        const auto itNew = newer.find(tstrWhat);
        if (itNew == newer.end()) {
            differences.push_back({szKind, tstrWhat, tstrOld, std::nullopt});
        } else if (itNew->second != tstrOld) {
            differences.push_back({szKind, tstrWhat, tstrOld, itNew->second});
        }
    }
    for (const auto& [tstrWhat, tstrNew] : newer) {
        if (!older.contains(tstrWhat)) differences.push_back({szKind, tstrWhat, std::nullopt, tstrNew});
    }
}

/// An update's folder, or a manifest.
bool ReadState(const std::wstring& tstrOperand, ExpectedState& state, Output& output)
{
    if (!Storage::Directory::IsExisted(tstrOperand)) return ReadManifest(tstrOperand, state, output.tstrErrors);
    Update update;
    Arguments arguments;
    arguments.operands = {tstrOperand};
    return OpenUpdate(arguments, update, output) && CollectManifest(update, false, state, output.tstrErrors);
}

wchar_t SignOf(const Difference& difference)
{
    if (!difference.optOld) return L'+';
    return difference.optNew ? L'~' : L'-';
}

std::wstring FormatDifferences(const std::vector<Difference>& differences, const std::vector<const char*>& missing)
{
    std::wstring tstrText;
    for (const char* const szMissing : missing) {
        tstrText += (tstrText.empty() ? L"not compared: " : L", ") + String::FromAnsi(szMissing);
    }
    if (!missing.empty()) tstrText += L": a manifest of format 1 says nothing of them\n";
    const char* szKind = "";
    for (const Difference& difference : differences) {
        if (difference.szKind != szKind) tstrText += String::FromAnsi(szKind = difference.szKind) + L"\n";
        std::wstring tstrLine = std::wstring(L"  ") + SignOf(difference) + L" " + difference.tstrWhat;
        const std::wstring tstrOld = difference.optOld.value_or(L"");
        const std::wstring tstrNew = difference.optNew.value_or(L"");
        if (difference.optOld && difference.optNew) {
            tstrLine += L": " + tstrOld + L" -> " + tstrNew;
        } else if (!(tstrOld + tstrNew).empty()) {
            tstrLine += L": " + tstrOld + tstrNew;
        }
        tstrText += OnOneLine(std::move(tstrLine)) + L"\n";
    }
    const bool bEqual = differences.empty() && missing.empty();
    return tstrText + (bEqual ? L"equal" : Counted(differences.size(), L"difference", L"differences")) + L"\n";
}

std::string FormatDifferencesAsJson(const std::vector<Difference>& differences, const std::vector<const char*>& missing)
{
    Json::Value root;
    root["equal"] = differences.empty() && missing.empty();
    root["not_compared"] = Json::Value(Json::arrayValue);
    for (const char* const szMissing : missing) root["not_compared"].append(szMissing);
    root["differences"] = Json::Value(Json::arrayValue);
    for (const Difference& difference : differences) {
        Json::Value json;
        json["kind"] = difference.szKind;
        json["what"] = ToJson(difference.tstrWhat);
        if (difference.optOld) json["old"] = ToJson(*difference.optOld);
        if (difference.optNew) json["new"] = ToJson(*difference.optNew);
        root["differences"].append(json);
    }
    return ToJsonText(root);
}

}  // namespace

std::vector<const char*> KindsNotCompared(const ExpectedState& older, const ExpectedState& newer)
{
    std::vector<const char*> missing;
    for (const KindRow& row : kKinds) {
        if (!IsCompared(row, older, newer)) missing.push_back(row.szKind);
    }
    return missing;
}

std::vector<Difference> CompareStates(const ExpectedState& older, const ExpectedState& newer)
{
    std::vector<Difference> differences;
    for (const KindRow& row : kKinds) {
        if (!IsCompared(row, older, newer)) continue;
        Items before;
        Items after;
        row.pfnList(older, before);
        row.pfnList(newer, after);
        CompareItems(row.szKind, before, after, differences);
    }
    return differences;
}

int RunDiff(const Arguments& arguments, Output& output)
{
    ExpectedState older;
    ExpectedState newer;
    if (!ReadState(arguments.operands[0], older, output) || !ReadState(arguments.operands[1], newer, output)) {
        return kCannotRead;
    }
    const std::vector<Difference> differences = CompareStates(older, newer);
    const std::vector<const char*> missing = KindsNotCompared(older, newer);
    output.strText = arguments.eFormat == Format::eJson ? FormatDifferencesAsJson(differences, missing)
                                                        : String::ToUtf8(FormatDifferences(differences, missing));
    return differences.empty() && missing.empty() ? kClean : kFound;
}

}  // namespace Check
