#include "common/KzComn_Registry.h"

#include "common/KzComn_AccessControl.h"

#include <algorithm>

namespace KzCommon::Storage {

namespace {

constexpr DWORD kEnumNameCharacters = 255;

void ThrowOnError(LSTATUS lStatus, const std::source_location& where = std::source_location::current())
{
    if (lStatus != ERROR_SUCCESS) Throw(static_cast<DWORD>(lStatus), where);
}

}  // namespace

void Registry::Open(const Key& key, const wchar_t* szSubKey)
{
    std::wstring tstrPath = key.m_szPath ? key.m_szPath : L"";
    if (!tstrPath.empty() && szSubKey && *szSubKey) tstrPath.append(L"\\").append(szSubKey);
    OpenExisting(key.m_hRoot, tstrPath, KEY_QUERY_VALUE);
}

void Registry::OpenOrCreate(HKEY hRoot, const std::wstring& tstrPath)
{
    if (tstrPath.empty()) Throw(ERROR_BAD_ARGUMENTS);
    AccessControl::SecurityAttributes attributes;
    HKEY hKey = nullptr;
    constexpr REGSAM kAccess = KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY;
    ThrowOnError(::RegCreateKeyExW(hRoot, tstrPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, kAccess | ViewBits(),
                                   attributes.Get(), &hKey, nullptr));
    Adopt(hRoot, hKey, tstrPath);
}

void Registry::OpenForDelete(HKEY hRoot, const std::wstring& tstrPath)
{
    OpenExisting(hRoot, tstrPath, DELETE | KEY_SET_VALUE);
}

void Registry::OpenForEnumerate(HKEY hRoot, const std::wstring& tstrPath)
{
    OpenExisting(hRoot, tstrPath, KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS);
}

void Registry::Close()
{
    m_hKey.Reset();
    m_hRoot = nullptr;
    m_tstrPath.clear();
}

void Registry::Flush()
{
    RequireOpen();
    ThrowOnError(::RegFlushKey(m_hKey.Get()));
}

bool Registry::TryReadBinary(const std::wstring& tstrName, ByteArray& bytes, DWORD* pdwError)
{
    return Guarded(pdwError, [&] { ReadBinary(tstrName, bytes); });
}

void Registry::ReadBinary(const std::wstring& tstrName, ByteArray& bytes)
{
    DWORD dwType = REG_BINARY;
    ReadSized(tstrName, dwType, bytes);
}

bool Registry::TryReadString(const std::wstring& tstrName, const std::wstring& tstrDefault, std::wstring& tstrValue,
                             DWORD* pdwError)
{
    return Guarded(pdwError, [&] { tstrValue = ReadString(tstrName, tstrDefault); });
}

std::wstring Registry::ReadString(const std::wstring& tstrName, const std::wstring& tstrDefault)
{
    std::wstring tstrValue = tstrDefault;
    DWORD dwType = REG_SZ;
    ByteArray bytes;
    ReadSized(tstrName, dwType, bytes);
    tstrValue.assign(bytes.Size() / sizeof(wchar_t), L'\0');
    std::copy_n(bytes.Data(), tstrValue.size() * sizeof(wchar_t), reinterpret_cast<BYTE*>(tstrValue.data()));
    if (dwType != REG_MULTI_SZ) tstrValue.resize(std::min(tstrValue.size(), tstrValue.find(L'\0')));
    return tstrValue;
}

bool Registry::TryReadDword(const std::wstring& tstrName, DWORD& dwValue, DWORD* pdwError)
{
    return Guarded(pdwError, [&] { ReadDword(tstrName, dwValue); });
}

void Registry::ReadDword(const std::wstring& tstrName, DWORD& dwValue)
{
    ReadFixed(tstrName, REG_DWORD, &dwValue, sizeof(dwValue));
}

void Registry::WriteBinary(const std::wstring& tstrName, const ByteArray& bytes)
{
    Write(tstrName, REG_BINARY, bytes.Data(), static_cast<DWORD>(bytes.Size()));
}

void Registry::WriteString(const std::wstring& tstrName, const std::wstring& tstrValue)
{
    Write(tstrName, REG_SZ, tstrValue.c_str(), static_cast<DWORD>((tstrValue.size() + 1) * sizeof(wchar_t)));
}

void Registry::WriteQword(const std::wstring& tstrName, ULONGLONG ullValue)
{
    Write(tstrName, REG_QWORD, &ullValue, sizeof(ullValue));
}

void Registry::WriteDword(const std::wstring& tstrName, DWORD dwValue)
{
    Write(tstrName, REG_DWORD, &dwValue, sizeof(dwValue));
}

void Registry::DeleteSubKey(const std::wstring& tstrName)
{
    RequireOpen();
    ThrowOnError(::RegDeleteKeyW(m_hKey.Get(), tstrName.c_str()));
}

void Registry::SetPath(const std::wstring& tstrPath)
{
    m_tstrPath = tstrPath;
}

void Registry::DeleteValue(const std::wstring& tstrName)
{
    RequireOpen();
    ThrowOnError(::RegDeleteValueW(m_hKey.Get(), tstrName.c_str()));
}

std::wstring Registry::EnumSubKey(DWORD dwIndex)
{
    RequireOpen();
    wchar_t szName[kEnumNameCharacters] = {};
    DWORD cchName = kEnumNameCharacters;
    ThrowOnError(::RegEnumKeyExW(m_hKey.Get(), dwIndex, szName, &cchName, nullptr, nullptr, nullptr, nullptr));
    return {szName, cchName};
}

std::wstring Registry::EnumValue(DWORD dwIndex)
{
    RequireOpen();
    wchar_t szName[kEnumNameCharacters] = {};
    DWORD cchName = kEnumNameCharacters;
    ThrowOnError(::RegEnumValueW(m_hKey.Get(), dwIndex, szName, &cchName, nullptr, nullptr, nullptr, nullptr));
    return {szName, cchName};
}

void Registry::ReadStored(const std::wstring& tstrName, DWORD& dwType, std::string& strBytes)
{
    RequireOpen();
    DWORD dwFound = REG_NONE;
    DWORD cbFound = 0;
    ThrowOnError(::RegQueryValueExW(m_hKey.Get(), tstrName.c_str(), nullptr, &dwFound, nullptr, &cbFound));
    std::string strRead(cbFound, '\0');
    ThrowOnError(::RegQueryValueExW(m_hKey.Get(), tstrName.c_str(), nullptr, &dwFound,
                                    reinterpret_cast<BYTE*>(strRead.data()), &cbFound));
    strRead.resize(cbFound);
    dwType = dwFound;
    strBytes = std::move(strRead);
}

void Registry::ReadQword(const std::wstring& tstrName, ULONGLONG& ullValue)
{
    ReadFixed(tstrName, REG_QWORD, &ullValue, sizeof(ullValue));
}

void Registry::OpenExisting(HKEY hRoot, const std::wstring& tstrPath, REGSAM dwAccess)
{
    if (tstrPath.empty()) Throw(ERROR_BAD_ARGUMENTS);
    HKEY hKey = nullptr;
    ThrowOnError(::RegOpenKeyExW(hRoot, tstrPath.c_str(), 0, dwAccess | ViewBits(), &hKey));
    Adopt(hRoot, hKey, tstrPath);
}

void Registry::Adopt(HKEY hRoot, HKEY hKey, const std::wstring& tstrPath)
{
    m_hKey.Reset(hKey);
    m_hRoot = hRoot;
    m_tstrPath = tstrPath;
}

void Registry::RequireOpen(const std::source_location& where) const
{
    if (!m_hRoot || !m_hKey) Throw(ERROR_INVALID_HANDLE, where);
}

void Registry::ReadFixed(const std::wstring& tstrName, DWORD dwType, void* pvValue, DWORD cbValue)
{
    RequireOpen();
    BYTE bytes[sizeof(ULONGLONG)] = {};
    DWORD dwFound = 0;
    DWORD cbFound = cbValue;
    const LSTATUS lStatus = ::RegQueryValueExW(m_hKey.Get(), tstrName.c_str(), nullptr, &dwFound, bytes, &cbFound);
    // A value of another type may be too long for the buffer: report the wrong type instead of the call's code.
    if (lStatus == ERROR_MORE_DATA) Throw(ERROR_INVALID_DATA);
    ThrowOnError(lStatus);
    if (dwFound != dwType || cbFound != cbValue) Throw(ERROR_INVALID_DATA);
    std::copy_n(bytes, cbValue, static_cast<BYTE*>(pvValue));
}

void Registry::ReadSized(const std::wstring& tstrName, DWORD& dwType, ByteArray& bytes)
{
    RequireOpen();
    const bool bText = dwType != REG_BINARY;
    DWORD dwFound = 0;
    DWORD cbFound = 0;
    ThrowOnError(::RegQueryValueExW(m_hKey.Get(), tstrName.c_str(), nullptr, &dwFound, nullptr, &cbFound));
    const bool bTextFound = dwFound == REG_SZ || dwFound == REG_EXPAND_SZ || dwFound == REG_MULTI_SZ;
    if (bText ? !bTextFound : dwFound != REG_BINARY) Throw(ERROR_INVALID_DATA);

    ByteArray read;
    read.Allocate(cbFound);
    DWORD dwAgain = 0;
    DWORD cbAgain = cbFound;
    ThrowOnError(::RegQueryValueExW(m_hKey.Get(), tstrName.c_str(), nullptr, &dwAgain, read.Data(), &cbAgain));
    if (dwAgain != dwFound || cbAgain != cbFound) Throw(ERROR_INVALID_DATA);

    bytes.Allocate(cbFound);
    std::copy_n(read.Data(), cbFound, bytes.Data());
    dwType = dwFound;
}

void Registry::Write(const std::wstring& tstrName, DWORD dwType, const void* pvData, DWORD cbData)
{
    RequireOpen();
    ThrowOnError(::RegSetValueExW(m_hKey.Get(), tstrName.c_str(), 0, dwType, static_cast<const BYTE*>(pvData), cbData));
}

REGSAM Registry::ViewBits() const noexcept
{
    switch (m_dwView) {
        case eView32Bit: return KEY_WOW64_32KEY;
        case eView64Bit: return KEY_WOW64_64KEY;
        default: return 0;
    }
}

namespace Reg {

namespace {

template <class Action>
bool Act(DWORD dwView, DWORD* pdwError, Action&& action)
{
    const bool bOk = Guarded(pdwError, [&] {
        Registry registry(dwView);
        action(registry);
        registry.Close();
    });
    if (bOk && pdwError) *pdwError = ERROR_SUCCESS;
    return bOk;
}

}  // namespace

bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, const std::wstring& tstrValue,
                DWORD dwView, DWORD* pdwError)
{
    return Act(dwView, pdwError, [&](Registry& registry) {
        registry.OpenOrCreate(hRoot, tstrPath);
        registry.WriteString(tstrName, tstrValue);
    });
}

bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD dwValue, DWORD dwView,
                DWORD* pdwError)
{
    return Act(dwView, pdwError, [&](Registry& registry) {
        registry.OpenOrCreate(hRoot, tstrPath);
        registry.WriteDword(tstrName, dwValue);
    });
}

bool StoreValue(HKEY hRoot, const wchar_t* szPath, const wchar_t* szName, DWORD dwValue, DWORD dwView, DWORD* pdwError)
{
    return StoreValue(hRoot, std::wstring(szPath ? szPath : L""), std::wstring(szName ? szName : L""), dwValue, dwView,
                      pdwError);
}

bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, ULONGLONG ullValue,
                DWORD dwView, DWORD* pdwError)
{
    return Act(dwView, pdwError, [&](Registry& registry) {
        registry.OpenOrCreate(hRoot, tstrPath);
        registry.WriteQword(tstrName, ullValue);
    });
}

bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, std::wstring& tstrValue,
               DWORD dwView, DWORD* pdwError)
{
    return Act(dwView, pdwError, [&](Registry& registry) {
        registry.Open(Key(hRoot, tstrPath.c_str()));
        tstrValue = registry.ReadString(tstrName, tstrValue);
    });
}

bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD& dwValue, DWORD dwView,
               DWORD* pdwError)
{
    return Act(dwView, pdwError, [&](Registry& registry) {
        registry.Open(Key(hRoot, tstrPath.c_str()));
        registry.ReadDword(tstrName, dwValue);
    });
}

bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, ULONGLONG& ullValue,
               DWORD dwView, DWORD* pdwError)
{
    return Act(dwView, pdwError, [&](Registry& registry) {
        registry.Open(Key(hRoot, tstrPath.c_str()));
        registry.ReadQword(tstrName, ullValue);
    });
}

bool ReadStored(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD& dwType,
                std::string& strBytes, DWORD dwView, DWORD* pdwError)
{
    return Act(dwView, pdwError, [&](Registry& registry) {
        registry.Open(Key(hRoot, tstrPath.c_str()));
        registry.ReadStored(tstrName, dwType, strBytes);
    });
}

bool HasKey(HKEY hRoot, const std::wstring& tstrPath, DWORD dwView)
{
    DWORD dwError = ERROR_SUCCESS;
    return Act(dwView, &dwError, [&](Registry& registry) { registry.Open(Key(hRoot, tstrPath.c_str())); }) ||
           dwError == ERROR_ACCESS_DENIED;
}

bool DeleteValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD dwView, DWORD* pdwError)
{
    return Act(dwView, pdwError, [&](Registry& registry) {
        registry.OpenForDelete(hRoot, tstrPath);
        registry.DeleteValue(tstrName);
    });
}

}  // namespace Reg

}  // namespace KzCommon::Storage
