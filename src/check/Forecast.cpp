#include "check/Forecast.h"

#include "check/NamePattern.h"
#include "check/Presence.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cstring>

using namespace KzCommon;

namespace Check {

namespace {

std::wstring WithoutBackslash(std::wstring tstrPath)
{
    while (!tstrPath.empty() && tstrPath.back() == L'\\') tstrPath.pop_back();
    return tstrPath;
}

/// Paths in the order in which they were met, each once, whatever its case.
class PathList {
public:
    void Add(const std::wstring& tstrPath)
    {
        if (m_known.insert(LowerCase(tstrPath)).second) m_paths.push_back(tstrPath);
    }
    [[nodiscard]] std::vector<std::wstring> Take() { return std::move(m_paths); }

private:
    std::vector<std::wstring> m_paths;
    std::set<std::wstring> m_known;
};

/// A text's lines or parts, in which the registry keeps zeros.
std::wstring ShownText(const std::vector<BYTE>& bytes, DWORD dwType)
{
    std::wstring tstrText(bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(tstrText.data(), bytes.data(), tstrText.size() * sizeof(wchar_t));
    if (dwType != REG_MULTI_SZ) return tstrText.substr(0, tstrText.find(L'\0'));
    while (!tstrText.empty() && tstrText.back() == L'\0') tstrText.pop_back();
    std::replace(tstrText.begin(), tstrText.end(), L'\0', L';');
    return tstrText;
}

HeldValue Shown(DWORD dwType, const std::vector<BYTE>& bytes)
{
    HeldValue value{dwType, {}};
    ULONGLONG ullNumber = 0;
    const bool bNumber = (dwType == REG_DWORD && bytes.size() == sizeof(DWORD)) ||
                         (dwType == REG_QWORD && bytes.size() == sizeof(ULONGLONG));
    if (bNumber) {
        std::memcpy(&ullNumber, bytes.data(), bytes.size());
        value.tstrText = std::to_wstring(ullNumber);
    } else if (dwType == REG_SZ || dwType == REG_EXPAND_SZ || dwType == REG_MULTI_SZ) {
        value.tstrText = ShownText(bytes, dwType);
    } else {
        value.tstrText = L"(type " + std::to_wstring(dwType) + L", " + std::to_wstring(bytes.size()) + L" bytes)";
    }
    return value;
}

std::optional<HeldValue> ReadNow(const std::wstring& tstrKeyPath, const std::wstring& tstrName)
{
    UniqueRegistryKey key;
    if (tstrKeyPath.empty() ||
        ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, tstrKeyPath.c_str(), 0, KEY_QUERY_VALUE, key.Receive()) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    DWORD dwType = REG_NONE;
    DWORD cb = 0;
    LSTATUS lStatus = ::RegQueryValueExW(key.Get(), tstrName.c_str(), nullptr, &dwType, nullptr, &cb);
    std::vector<BYTE> bytes;
    while (lStatus == ERROR_SUCCESS || lStatus == ERROR_MORE_DATA) {
        bytes.resize(std::max<DWORD>(cb, 1));
        cb = static_cast<DWORD>(bytes.size());
        lStatus = ::RegQueryValueExW(key.Get(), tstrName.c_str(), nullptr, &dwType, bytes.data(), &cb);
        if (lStatus != ERROR_SUCCESS) continue;
        bytes.resize(cb);
        return Shown(dwType, bytes);
    }
    return std::nullopt;
}

}  // namespace

HeldValue ValueOf(const RegistryRecord& record)
{
    switch (record.eType) {
        case RegistryType::eDword: return {REG_DWORD, std::to_wstring(record.dwData)};
        case RegistryType::eQword: return {REG_QWORD, std::to_wstring(record.ullData)};
        case RegistryType::eText: return {REG_SZ, record.tstrData};
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: break;
    }
    return {};
}

Forecast::Forecast(std::wstring tstrUpdateDir, std::wstring tstrInstalledDir)
    : m_tstrUpdateDir(std::move(tstrUpdateDir)), m_tstrInstalledDir(std::move(tstrInstalledDir))
{
}

std::wstring Forecast::PlaceNow(const std::wstring& tstrPath) const
{
    if (!String::IsBelow(tstrPath, m_tstrInstalledDir)) return tstrPath;
    const std::wstring tstrName = tstrPath.substr(m_tstrInstalledDir.size());
    // Only what the update client lays there belongs to an update.
    const bool bLaid = String::IsBelow(tstrName, L"Component\\") || String::EqualsNoCase(tstrName, kInstructionFile) ||
                       String::EqualsNoCase(tstrName, kUpdateInfoFile);
    const std::wstring tstrInUpdate = m_tstrUpdateDir + tstrName;
    return bLaid && ::GetFileAttributesW(tstrInUpdate.c_str()) != INVALID_FILE_ATTRIBUTES ? tstrInUpdate : tstrPath;
}

std::wstring Forecast::PlaceThen(const std::wstring& tstrPath) const
{
    return String::IsBelow(tstrPath, m_tstrUpdateDir) ? m_tstrInstalledDir + tstrPath.substr(m_tstrUpdateDir.size())
                                                      : tstrPath;
}

DWORD Forecast::AttributesNow(const std::wstring& tstrPath) const
{
    const auto [itPath, bNew] = m_attributes.try_emplace(LowerCase(tstrPath));
    if (bNew) itPath->second = ::GetFileAttributesW(PlaceNow(tstrPath).c_str());
    return itPath->second;
}

bool Forecast::HasFile(const std::wstring& tstrPath) const
{
    const std::wstring tstrKey = LowerCase(tstrPath);
    if (m_gone.contains(tstrKey)) return false;
    return m_files.contains(tstrKey) || !(AttributesNow(tstrPath) & FILE_ATTRIBUTE_DIRECTORY);
}

bool Forecast::HasFolder(const std::wstring& tstrPath) const
{
    if (m_folders.contains(LowerCase(WithoutBackslash(tstrPath)))) return true;
    const DWORD dwAttributes = AttributesNow(tstrPath);
    return dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool Forecast::IsReadOnly(const std::wstring& tstrPath) const
{
    if (!HasFile(tstrPath)) return false;
    const DWORD dwAttributes = AttributesNow(tstrPath);
    return dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_READONLY);
}

DWORD Forecast::WhyUnknown(const std::wstring& tstrPath) const
{
    if (HasFolder(tstrPath)) return ERROR_SUCCESS;
    DWORD dwError = ERROR_SUCCESS;
    static_cast<void>(AttributesOf(PlaceNow(tstrPath), dwError));
    return MeansNothingThere(dwError) ? DWORD{ERROR_SUCCESS} : dwError;
}

std::vector<std::wstring> Forecast::FilesIn(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                            DWORD& dwError) const
{
    PathList files;
    const auto gather = [&](const Storage::Directory::Entry& entry) {
        const std::wstring tstrPath = tstrFolder + entry.tstrName;
        if (!entry.bFolder && !m_gone.contains(LowerCase(tstrPath))) files.Add(tstrPath);
    };
    const auto list = [&](const std::wstring& tstrPlace) {
        DWORD dwFailure = ERROR_SUCCESS;
        const bool bListed = Storage::Directory::ForEachEntry(tstrPlace, tstrPattern, gather, &dwFailure);
        if (!bListed && !MeansNothingThere(dwFailure)) dwError = dwFailure;
    };
    list(tstrFolder);
    if (const std::wstring tstrLaid = PlaceNow(tstrFolder); tstrLaid != tstrFolder) list(tstrLaid);
    for (const std::wstring& tstrPath : AddedFilesIn(tstrFolder, tstrPattern)) files.Add(tstrPath);
    return files.Take();
}

std::vector<std::wstring> Forecast::AddedFilesIn(const std::wstring& tstrFolder, const std::wstring& tstrPattern) const
{
    std::vector<std::wstring> files;
    for (const auto& [tstrKey, tstrPath] : m_files) {
        const bool bHere = String::EqualsNoCase(String::FolderPart(tstrPath), tstrFolder);
        if (bHere && MatchesPattern(tstrPath.substr(tstrFolder.size()), tstrPattern)) files.push_back(tstrPath);
    }
    return files;
}

std::vector<std::wstring> Forecast::Tree(const std::wstring& tstrFolder, DWORD& dwError) const
{
    const std::wstring tstrTop = WithoutBackslash(tstrFolder);
    PathList paths;
    const auto add = [&](const std::wstring& tstrPath) {
        const std::wstring tstrThen = PlaceThen(tstrPath);
        if (!String::EqualsNoCase(tstrThen, tstrTop)) paths.Add(tstrThen);
    };
    for (const std::wstring& tstrPlace : std::set<std::wstring>{tstrTop, PlaceNow(tstrTop)}) {
        if (!Storage::Directory::IsExisted(tstrPlace)) continue;
        DWORD dwFailure = ERROR_SUCCESS;
        const bool bListed = Storage::Directory::ForEachInTree(tstrPlace + L'\\', add, &dwFailure);
        if (!bListed && !MeansNothingThere(dwFailure)) dwError = dwFailure;
    }
    for (const auto* pNoted : {&m_files, &m_folders}) {
        for (auto itPath = pNoted->rbegin(); itPath != pNoted->rend(); ++itPath) {
            if (String::IsBelow(itPath->second, tstrTop + L'\\')) add(itPath->second);
        }
    }
    paths.Add(tstrTop);
    return paths.Take();
}

void Forecast::AddFile(const std::wstring& tstrPath)
{
    const std::wstring tstrKey = LowerCase(tstrPath);
    m_gone.erase(tstrKey);
    m_files[tstrKey] = tstrPath;
}

void Forecast::RemoveFile(const std::wstring& tstrPath)
{
    const std::wstring tstrKey = LowerCase(tstrPath);
    m_files.erase(tstrKey);
    m_gone.insert(tstrKey);
}

void Forecast::AddFolder(const std::wstring& tstrPath)
{
    for (std::wstring tstr = WithoutBackslash(tstrPath); !tstr.empty() && tstr.back() != L':' && !HasFolder(tstr);
         tstr = WithoutBackslash(String::FolderPart(tstr))) {
        m_folders[LowerCase(tstr)] = tstr;
    }
}

const std::optional<HeldValue>* Forecast::Noted(const std::wstring& tstrKeyPath, const std::wstring& tstrName) const
{
    const auto itValue = m_values.find({LowerCase(KeyPathOf(tstrKeyPath)), LowerCase(tstrName)});
    return itValue == m_values.end() ? nullptr : &itValue->second;
}

std::optional<HeldValue> Forecast::Value(const std::wstring& tstrKeyPath, const std::wstring& tstrName) const
{
    const std::optional<HeldValue>* const pNoted = Noted(tstrKeyPath, tstrName);
    return pNoted ? *pNoted : ReadNow(tstrKeyPath, tstrName);
}

std::wstring Forecast::ProductText(const wchar_t* szName, const wchar_t* szDefault) const
{
    const std::optional<HeldValue>* const pNoted = Noted(Frwk::Utility::kProductKey, szName);
    if (!pNoted) return Frwk::Utility::GetStrFromHKLM_KZVLT(szName, szDefault);
    return *pNoted && (*pNoted)->dwType == REG_SZ ? (*pNoted)->tstrText : szDefault;
}

bool Forecast::LeavesAlone(const RegistryRecord& record) const
{
    const std::optional<HeldValue>* const pNoted = Noted(record.tstrKeyPath, record.tstrValueName);
    if (!pNoted) return IsValueThere(record);
    if (!*pNoted || (*pNoted)->dwType != ValueOf(record).dwType) return false;
    RegistryRecord held = record;
    held.tstrData = (*pNoted)->tstrText;
    held.dwData = String::ToDwordStrict(held.tstrData);
    held.ullData = String::ToQwordStrict(held.tstrData);
    return !CountsAsMissing(held);
}

void Forecast::SetValue(const std::wstring& tstrKeyPath, const std::wstring& tstrName,
                        std::optional<HeldValue> optValue)
{
    m_values[{LowerCase(KeyPathOf(tstrKeyPath)), LowerCase(tstrName)}] = std::move(optValue);
}

}  // namespace Check
