#include "check/simulate/RegistryText.h"

#include "check/simulate/RegistryTree.h"
#include "common/KzComn_String.h"

#include <cstring>
#include <cwchar>

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kSpaces[] = L" \t\r";

struct RootRow {
    const wchar_t* szName;
    HKEY hRoot;
};
const RootRow kRoots[] = {{L"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
                          {L"HKLM", HKEY_LOCAL_MACHINE},
                          {L"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
                          {L"HKCU", HKEY_CURRENT_USER},
                          {L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
                          {L"HKCR", HKEY_CLASSES_ROOT},
                          {L"HKEY_USERS", HKEY_USERS}};

std::wstring DecodeExport(std::string_view strBytes)
{
    if (strBytes.starts_with("\xFF\xFE")) return String::FromUtf16(strBytes.substr(2));
    if (strBytes.starts_with("\xEF\xBB\xBF")) strBytes.remove_prefix(3);
    std::wstring tstrText;
    return String::FromUtf8(strBytes, tstrText) ? tstrText : String::FromAnsi(strBytes);
}

/// Reads a quoted text, in which "\\" and "\"" are one character each, and removes it from the line.
bool TakeQuoted(std::wstring_view& tstrLine, std::wstring& tstrText)
{
    if (!tstrLine.starts_with(L'"')) return false;
    for (std::size_t u = 1; u < tstrLine.size(); ++u) {
        if (tstrLine[u] == L'"') {
            tstrLine.remove_prefix(u + 1);
            return true;
        }
        if (tstrLine[u] == L'\\' && u + 1 < tstrLine.size()) ++u;
        tstrText.push_back(tstrLine[u]);
    }
    return false;
}

bool ReadNumber(std::wstring_view tstrText, std::size_t cDigits, DWORD& dwNumber)
{
    const std::wstring tstrDigits(String::Trim(tstrText, kSpaces));
    if (tstrDigits.empty() || tstrDigits.size() > cDigits ||
        tstrDigits.find_first_not_of(L"0123456789abcdefABCDEF") != std::wstring::npos) {
        return false;
    }
    dwNumber = std::wcstoul(tstrDigits.c_str(), nullptr, 16);
    return true;
}

bool ReadBytes(std::wstring_view tstrText, std::string& strBytes)
{
    while (!(tstrText = String::Trim(tstrText, kSpaces)).empty()) {
        const std::size_t uEnd = std::min(tstrText.find(L','), tstrText.size());
        DWORD dwByte = 0;
        if (!ReadNumber(tstrText.substr(0, uEnd), 2, dwByte)) return false;
        strBytes.push_back(static_cast<char>(dwByte));
        tstrText.remove_prefix(std::min(uEnd + 1, tstrText.size()));
    }
    return true;
}

bool ReadData(std::wstring_view tstrData, StoredValue& value)
{
    if (tstrData.starts_with(L'"')) {
        std::wstring tstrText;
        if (!TakeQuoted(tstrData, tstrText) || !String::Trim(tstrData, kSpaces).empty()) return false;
        value = ToStored(tstrText);
        return true;
    }
    const std::size_t uColon = tstrData.find(L':');
    if (uColon == std::wstring_view::npos) return false;
    const std::wstring_view tstrType = tstrData.substr(0, uColon);
    tstrData.remove_prefix(uColon + 1);
    if (String::EqualsNoCase(tstrType, L"dword")) {
        DWORD dwNumber = 0;
        if (!ReadNumber(tstrData, 8, dwNumber)) return false;
        value = ToStored(dwNumber);
        return true;
    }
    value.dwType = REG_BINARY;
    if (String::StartsWithNoCase(tstrType, L"hex(") && tstrType.ends_with(L')')) {
        if (!ReadNumber(tstrType.substr(4, tstrType.size() - 5), 8, value.dwType)) return false;
    } else if (!String::EqualsNoCase(tstrType, L"hex")) {
        return false;
    }
    return ReadBytes(tstrData, value.strBytes);
}

/// Interprets the lines of one file.
class Reader {
public:
    explicit Reader(const RegistryTextTaker& taker) : m_taker(taker) {}

    /// False for an unknown line.
    [[nodiscard]] bool Take(std::wstring_view tstrLine)
    {
        if (tstrLine.empty() || tstrLine.starts_with(L';')) return true;
        if (tstrLine.starts_with(L"Windows Registry Editor") || tstrLine == L"REGEDIT4") return true;
        return tstrLine.starts_with(L'[') ? TakeKey(tstrLine) : TakeValue(tstrLine);
    }

private:
    [[nodiscard]] bool TakeKey(std::wstring_view tstrLine)
    {
        m_bKey = false;
        if (!tstrLine.ends_with(L']')) return false;
        tstrLine = tstrLine.substr(1, tstrLine.size() - 2);
        const bool bRemove = tstrLine.starts_with(L'-');
        if (bRemove) tstrLine.remove_prefix(1);
        const std::size_t uSlash = std::min(tstrLine.find(L'\\'), tstrLine.size());
        for (const RootRow& row : kRoots) {
            if (!String::EqualsNoCase(tstrLine.substr(0, uSlash), row.szName)) continue;
            m_place.hRoot = row.hRoot;
            m_place.tstrKeyPath = tstrLine.substr(std::min(uSlash + 1, tstrLine.size()));
            m_place.tstrName.clear();
            m_bKey = !bRemove;
            const auto& tell = bRemove ? m_taker.removeKey : m_taker.key;
            if (tell) tell(m_place);
            return true;
        }
        return false;
    }

    [[nodiscard]] bool TakeValue(std::wstring_view tstrLine)
    {
        m_place.tstrName.clear();
        if (tstrLine.starts_with(L'@')) {
            tstrLine.remove_prefix(1);
        } else if (!TakeQuoted(tstrLine, m_place.tstrName)) {
            return false;
        }
        tstrLine = String::Trim(tstrLine, kSpaces);
        if (!m_bKey || !tstrLine.starts_with(L'=')) return false;
        tstrLine = String::Trim(tstrLine.substr(1), kSpaces);
        std::optional<StoredValue> optValue;
        if (tstrLine != L"-" && !ReadData(tstrLine, optValue.emplace())) return false;
        if (m_taker.value) m_taker.value(m_place, std::move(optValue));
        return true;
    }

    const RegistryTextTaker& m_taker;
    RegistryPlace m_place;
    bool m_bKey = false;  // the next value's line belongs to m_place
};

}  // namespace

std::vector<std::size_t> ReadRegistryText(std::string_view strBytes, const RegistryTextTaker& taker)
{
    const std::wstring tstrAll = DecodeExport(strBytes);
    Reader reader(taker);
    std::vector<std::size_t> unknown;
    std::wstring tstrJoined;
    std::size_t uNumber = 0;
    std::wstring_view tstrRest = tstrAll;
    while (!tstrRest.empty()) {
        ++uNumber;
        const std::size_t uEnd = std::min(tstrRest.find(L'\n'), tstrRest.size());
        const std::wstring_view tstrLine = String::Trim(tstrRest.substr(0, uEnd), kSpaces);
        tstrRest.remove_prefix(std::min(uEnd + 1, tstrRest.size()));
        // A backslash continues bytes on the next line.
        const bool bBytes = !tstrJoined.empty() || tstrLine.find(L"=hex") != std::wstring_view::npos;
        tstrJoined += tstrLine;
        if (bBytes && tstrLine.ends_with(L'\\') && !tstrRest.empty()) {
            tstrJoined.pop_back();
            continue;
        }
        if (!reader.Take(tstrJoined)) unknown.push_back(uNumber);
        tstrJoined.clear();
    }
    return unknown;
}

}  // namespace Check
