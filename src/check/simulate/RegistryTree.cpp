#include "check/simulate/RegistryTree.h"

#include "common/KzComn_Result.h"

#include <algorithm>
#include <cstring>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kLongestKeyName = 255;      // of a key
constexpr std::size_t kLongestValueName = 16383;  // of a value
constexpr wchar_t kTop[] = L"SYSTEM\\CurrentControlSet";

/// Root, view and path of a key as an identifier. Trailing backslashes of the path are ignored.
std::wstring KeyOf(const RegistryPlace& place)
{
    const bool b32Bit = place.dwView == Storage::eView32Bit;
    std::wstring tstrKey = NameOfRoot(place.hRoot) + (b32Bit ? L" (32)\\" : L"\\") + place.tstrKeyPath;
    while (tstrKey.ends_with(L'\\')) tstrKey.pop_back();
    return tstrKey;
}

std::wstring_view Above(std::wstring_view tstrKey)
{
    return tstrKey.substr(0, std::min(tstrKey.rfind(L'\\'), tstrKey.size()));
}

bool HasLongName(std::wstring_view tstrPath)
{
    while (!tstrPath.empty()) {
        const std::size_t uEnd = std::min(tstrPath.find(L'\\'), tstrPath.size());
        if (uEnd > kLongestKeyName) return true;
        tstrPath.remove_prefix(std::min(uEnd + 1, tstrPath.size()));
    }
    return false;
}

/// The code for an invalid key path.
DWORD JudgePath(const RegistryPlace& place)
{
    if (place.tstrKeyPath.empty()) return ERROR_BAD_ARGUMENTS;
    if (place.tstrKeyPath.starts_with(L'\\')) return ERROR_BAD_PATHNAME;
    return ERROR_SUCCESS;
}

std::wstring TextOf(const StoredValue& value)
{
    std::wstring tstrText(value.strBytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(tstrText.data(), value.strBytes.data(), tstrText.size() * sizeof(wchar_t));
    if (value.dwType != REG_MULTI_SZ) tstrText.resize(std::min(tstrText.size(), tstrText.find(L'\0')));
    return tstrText;
}

bool IsText(DWORD dwType)
{
    return dwType == REG_SZ || dwType == REG_EXPAND_SZ || dwType == REG_MULTI_SZ;
}

template <class Number>
StoredValue StoredNumber(DWORD dwType, Number number)
{
    return {dwType, std::string(reinterpret_cast<const char*>(&number), sizeof(number))};
}

template <class Number>
bool ReadNumber(const StoredValue& value, DWORD dwType, Number& number)
{
    if (value.dwType != dwType || value.strBytes.size() != sizeof(number)) return false;
    std::memcpy(&number, value.strBytes.data(), sizeof(number));
    return true;
}

}  // namespace

RegistryTree::RegistryTree(const Machine* pBase) : m_pBase(pBase)
{
    if (pBase) return;
    // The keys that every machine has below the root.
    for (const wchar_t* const szKey : {L"SOFTWARE", kTop}) PutKey({.tstrKeyPath = szKey, .tstrName = {}});
}

bool RegistryTree::IsHidden(const std::wstring& tstrKey) const
{
    if (!m_pBase) return true;
    for (std::wstring_view tstr = tstrKey; !m_removed.empty(); tstr = Above(tstr)) {
        if (m_removed.contains(tstr)) return true;
        if (Above(tstr) == tstr) break;
    }
    return false;
}

bool RegistryTree::Read(const RegistryPlace& place, StoredValue& value, DWORD* pdwError) const
{
    if (const DWORD dwCode = JudgePath(place)) return Storage::Fail(dwCode, pdwError);
    const std::wstring tstrKey = KeyOf(place);
    if (const auto itKey = m_keys.find(tstrKey); itKey != m_keys.end()) {
        const auto itValue = itKey->second.find(place.tstrName);
        if (itValue != itKey->second.end()) {
            if (!itValue->second) return Storage::Fail(ERROR_FILE_NOT_FOUND, pdwError);
            value = *itValue->second;
            return true;
        }
    }
    return IsHidden(tstrKey) ? Storage::Fail(ERROR_FILE_NOT_FOUND, pdwError)
                             : m_pBase->ReadStored(place, value, pdwError);
}

bool RegistryTree::HasKey(const RegistryPlace& place) const
{
    if (JudgePath(place) != ERROR_SUCCESS) return false;
    const std::wstring tstrKey = KeyOf(place);
    return m_keys.contains(tstrKey) || (!IsHidden(tstrKey) && m_pBase->HasKey(place));
}

DWORD RegistryTree::WhyNotWritable(const RegistryPlace& place) const
{
    if (const DWORD dwCode = JudgePath(place)) return dwCode;
    if (HasLongName(place.tstrKeyPath) || place.tstrName.size() > kLongestValueName) return ERROR_INVALID_PARAMETER;
    // Windows refuses to create a key directly below the root.
    RegistryPlace top = place;
    top.tstrKeyPath.resize(std::min(top.tstrKeyPath.size(), top.tstrKeyPath.find(L'\\')));
    return place.hRoot != HKEY_LOCAL_MACHINE || HasKey(top) ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

bool RegistryTree::Write(const RegistryPlace& place, StoredValue value, DWORD* pdwError)
{
    if (const DWORD dwCode = WhyNotWritable(place)) return Storage::Fail(dwCode, pdwError);
    Put(place, std::move(value));
    return true;
}

bool RegistryTree::Delete(const RegistryPlace& place, DWORD* pdwError)
{
    StoredValue value;
    if (!Read(place, value, pdwError)) return false;
    Put(place, std::nullopt);
    return true;
}

void RegistryTree::Put(const RegistryPlace& place, std::optional<StoredValue> optValue)
{
    PutKey(place);
    m_keys[KeyOf(place)].insert_or_assign(place.tstrName, std::move(optValue));
}

void RegistryTree::PutKey(const RegistryPlace& place)
{
    const std::wstring tstrKey = KeyOf(place);
    for (std::wstring_view tstr = tstrKey; tstr.find(L'\\') != std::wstring_view::npos; tstr = Above(tstr)) {
        if (!m_keys.try_emplace(std::wstring(tstr)).second) break;
    }
}

void RegistryTree::RemoveKey(const RegistryPlace& place)
{
    const std::wstring tstrKey = KeyOf(place);
    std::erase_if(m_keys, [&](const auto& key) {
        return String::EqualsNoCase(key.first, tstrKey) || String::IsBelow(key.first, tstrKey + L'\\');
    });
    m_removed.insert(tstrKey);
}

static_assert(std::variant_size_v<RegistryData> == 3);  // both of these know all of them

StoredValue ToStored(const RegistryData& data)
{
    if (const auto* const pText = std::get_if<std::wstring>(&data)) {
        return {REG_SZ, {reinterpret_cast<const char*>(pText->c_str()), (pText->size() + 1) * sizeof(wchar_t)}};
    }
    if (const auto* const pNumber = std::get_if<DWORD>(&data)) return StoredNumber(REG_DWORD, *pNumber);
    return StoredNumber(REG_QWORD, std::get<ULONGLONG>(data));
}

bool FromStored(const StoredValue& value, RegistryData& data, DWORD* pdwError)
{
    bool bFits = false;
    if (auto* const pText = std::get_if<std::wstring>(&data)) {
        bFits = IsText(value.dwType);
        if (bFits) *pText = TextOf(value);
    } else if (auto* const pNumber = std::get_if<DWORD>(&data)) {
        bFits = ReadNumber(value, REG_DWORD, *pNumber);
    } else {
        bFits = ReadNumber(value, REG_QWORD, std::get<ULONGLONG>(data));
    }
    return bFits || Storage::Fail(ERROR_INVALID_DATA, pdwError);
}

std::wstring ShowStored(const StoredValue& value)
{
    DWORD dwNumber = 0;
    ULONGLONG ullNumber = 0;
    if (ReadNumber(value, REG_DWORD, dwNumber)) return std::to_wstring(dwNumber);
    if (ReadNumber(value, REG_QWORD, ullNumber)) return std::to_wstring(ullNumber);
    if (!IsText(value.dwType)) {
        return L"(type " + std::to_wstring(value.dwType) + L", " + std::to_wstring(value.strBytes.size()) + L" bytes)";
    }
    std::wstring tstrText = TextOf(value);
    while (tstrText.ends_with(L'\0')) tstrText.pop_back();
    std::replace(tstrText.begin(), tstrText.end(), L'\0', L';');
    return tstrText;
}

std::wstring NameOfRoot(HKEY hRoot)
{
    if (hRoot == HKEY_LOCAL_MACHINE) return L"HKEY_LOCAL_MACHINE";
    if (hRoot == HKEY_CURRENT_USER) return L"HKEY_CURRENT_USER";
    if (hRoot == HKEY_CLASSES_ROOT) return L"HKEY_CLASSES_ROOT";
    if (hRoot == HKEY_USERS) return L"HKEY_USERS";
    return std::to_wstring(reinterpret_cast<ULONG_PTR>(hRoot));
}

}  // namespace Check
