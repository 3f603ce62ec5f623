#include "check/undo/UndoParts.h"

#include "check/verify/Manifest.h"

#include "agent/NewNameDecision.h"
#include "common/Frwk_Utility.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMostOfSection = 32'000;  // Windows reads 32,509 characters
constexpr wchar_t kNoRecord[] = L"no record can write such a value";

/// Values of the product's key that no record may write.
struct KeptValue {
    const wchar_t* szName;
    const wchar_t* szReason;
};
constexpr KeptValue kKeptValues[] = {{L"ProductPath", L"the agent finds the product by it"},
                                     {L"DoUpdateDeploy", L"every run of the agent writes it"},
                                     {L"FrwkDeployTick", L"every run of the agent writes it"},
                                     {kMarkerName, L"without it the product would take its new name once more"}};

/// Whether a record can have the text as one of its fields, and reads it unchanged.
bool IsField(const std::wstring& tstrText)
{
    return !tstrText.empty() && String::Trim(tstrText, L" \t") == tstrText &&
           std::none_of(tstrText.begin(), tstrText.end(), [](wchar_t ch) { return ch < L' ' || ch == L'!'; });
}

/// The last fields of a record that writes the value; empty when none can.
std::wstring TypeAndData(const StoredValue& stored)
{
    RegistryData data = std::wstring();
    if (stored.dwType == REG_DWORD) data = DWORD{0};
    if (stored.dwType == REG_QWORD) data = ULONGLONG{0};
    if (!FromStored(stored, data, nullptr) || ToStored(data) != stored) return {};
    if (const DWORD* const pdwData = std::get_if<DWORD>(&data)) return L"!REG_DWORD!" + std::to_wstring(*pdwData);
    if (const ULONGLONG* const pullData = std::get_if<ULONGLONG>(&data)) {
        return L"!REG_QDWORD!" + std::to_wstring(*pullData);
    }
    const std::wstring& tstrText = std::get<std::wstring>(data);
    const bool bPlaceholder = tstrText.find(L"Dir}") != std::wstring::npos;
    return IsField(tstrText) && !bPlaceholder ? L"!REG_SZ!" + tstrText : std::wstring();
}

/// Why no record may write the value; null when one may.
const wchar_t* WhyKept(const NamePair& value)
{
    if (!String::EqualsNoCase(value.first, Frwk::Utility::kProductKey)) return nullptr;
    for (const KeptValue& row : kKeptValues) {
        if (String::EqualsNoCase(row.szName, value.second)) return row.szReason;
    }
    return nullptr;
}

/// False when no record can restore the value.
bool AddValue(const UndoContext& context, const NamePair& value, UndoSection& section)
{
    const auto& [tstrKey, tstrName] = value;
    const bool bLiteral = tstrName == L"(Default)";  // a record with it may mean the unnamed value
    if (!IsField(tstrKey) || (!tstrName.empty() && !IsField(tstrName)) || bLiteral) return false;
    StoredValue stored;
    if (!context.before.ReadStored(PlaceOf(value), stored, nullptr)) {
        if (tstrName.empty()) section.lines.emplace_back(L"; BrevantCheck: B020");
        return AddRecord(section, L"delete", tstrName.empty() ? tstrKey : tstrKey + L"!" + tstrName);
    }
    const std::wstring tstrData = TypeAndData(stored);
    if (tstrData.empty()) return false;
    if (!tstrName.empty()) return AddRecord(section, L"add", tstrKey + L"!" + tstrName + tstrData);
    section.lines.emplace_back(L"; BrevantCheck: B024");
    return AddRecord(section, L"add_if_non", tstrKey + L"!(Default)" + tstrData);
}

void AddUndoValues(const UndoContext& context, UndoParts& parts)
{
    for (const NamePair& value : context.touched.values) {
        if (const wchar_t* const szReason = WhyKept(value)) {
            parts.reasons[NameOfValue(value)] = szReason;
        } else if (!IsSameValue(context.before, context.after, value)) {
            parts.bAny = true;
            if (!AddValue(context, value, parts.valueRecords)) parts.reasons[NameOfValue(value)] = kNoRecord;
        }
    }
}

/// A version in the name of the package that no other package has: "c21t2103v3.9.3.0l1p1r1o1".
std::wstring NewPackageName(const UndoContext& context)
{
    std::wstring tstrName = context.update.Product().tstrDownloadPath;
    tstrName.erase(0, tstrName.rfind(L'\\') + 1);
    const std::size_t uVersion = tstrName.find(L'v');
    const std::size_t uEnd = uVersion == std::wstring::npos ? uVersion : tstrName.find(L'l', uVersion);
    const std::size_t uWhere = std::min(uEnd, tstrName.size());
    const wchar_t* const szAdded = uEnd == std::wstring::npos ? L"-undo" : L".0";
    do tstrName.insert(uWhere, szAdded);
    while (context.after.HasAny(context.installed / kComponents + tstrName));
    return tstrName;
}

/// Removals need a record in both sections.
void CompleteRemovals(UndoParts& parts)
{
    const bool bFolders = !parts.folderRecords.lines.empty();
    const bool bFiles = !parts.fileRecords.lines.empty();
    if (bFiles && !bFolders) static_cast<void>(AddRecord(parts.folderRecords, L"add", L"{InstalledDir}"));
    if (bFiles || !bFolders) return;
    static_cast<void>(AddRecord(parts.fileRecords, L"delete_now", L"{InstalledDir}QorUndo.none"));
}

}  // namespace

std::wstring NameOfPath(const Folder& installed, const std::wstring& tstrPath)
{
    return installed.Contains(tstrPath) ? L"{InstalledDir}" + installed.Relative(tstrPath) : tstrPath;
}

std::wstring NameOfKeyPath(std::wstring tstrKey)
{
    // Windows reads several backslashes as one.
    while (tstrKey.find(L"\\\\") != std::wstring::npos) String::ReplaceAll(tstrKey, L"\\\\", L"\\");
    if (tstrKey.ends_with(L'\\')) tstrKey.pop_back();
    return L"HKEY_LOCAL_MACHINE\\" + tstrKey;
}

std::wstring NameOfValue(const NamePair& value)
{
    return NameOfKeyPath(value.first) + L" : " + (value.second.empty() ? L"(unnamed)" : value.second);
}

std::wstring NameOfKey(const NamePair& key)
{
    return L"{InstalledDir}UpdateInfo.ini [" + key.first + L"] " + key.second;
}

bool IsOfUpdates(const Folder& installed, const std::wstring& tstrPath)
{
    for (const wchar_t* const szName : {kInstructionFile, kUpdateInfoFile, kShippedManifest}) {
        if (String::EqualsNoCase(tstrPath, installed / szName)) return true;
    }
    if (String::EqualsNoCase(tstrPath, installed / kShippedManifest + kSignatureEnd)) return true;
    const Folder components = installed / kComponents;
    return components.Contains(tstrPath) || String::EqualsNoCase(Folder(tstrPath).Text(), components.Text());
}

bool AddRecord(UndoSection& section, const wchar_t* szKey, const std::wstring& tstrValue)
{
    const std::wstring tstrLine = szKey + (L"=" + tstrValue);
    if (!IsRecordLengthValid(tstrValue) || section.cCharacters + tstrLine.size() >= kMostOfSection) return false;
    section.cCharacters += tstrLine.size() + 1;
    section.lines.push_back(tstrLine);
    return true;
}

UndoParts MakeUndo(const UndoContext& context)
{
    UndoParts parts;
    parts.tstrPackage = NewPackageName(context);
    AddUndoValues(context, parts);
    AddUndoSettings(context, parts);
    AddUndoFiles(context, parts);
    AddUndoInfo(context, parts);
    CompleteRemovals(parts);
    return parts;
}

}  // namespace Check
