#include "support/RegistryFixture.h"

#include "common/KzComn_Handle.h"

#include <utility>

using KzCommon::UniqueRegistryKey;

namespace {
const std::pair<HKEY, const wchar_t*> kRoots[] = {{HKEY_LOCAL_MACHINE, L"\\HKLM"}, {HKEY_CLASSES_ROOT, L"\\HKCR"}};
}

RedirectedRegistry::RedirectedRegistry()
    : m_tstrPath(L"Software\\Kazmere\\Tests\\" + std::to_wstring(::GetCurrentProcessId()))
{
    for (const auto& [hRoot, szName] : kRoots) {
        UniqueRegistryKey key;
        EXPECT_EQ(ERROR_SUCCESS, ::RegCreateKeyW(HKEY_CURRENT_USER, (m_tstrPath + szName).c_str(), key.Receive()));
        EXPECT_EQ(ERROR_SUCCESS, ::RegOverridePredefKey(hRoot, key.Get()));
    }
}

RedirectedRegistry::~RedirectedRegistry()
{
    for (const auto& [hRoot, szName] : kRoots) ::RegOverridePredefKey(hRoot, nullptr);
    EXPECT_EQ(ERROR_SUCCESS, ::RegDeleteTreeW(HKEY_CURRENT_USER, m_tstrPath.c_str()));
    ::RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Kazmere\\Tests");
}

void WriteRaw(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, const RawValue& value)
{
    EXPECT_EQ(ERROR_SUCCESS, ::RegSetKeyValueW(hRoot, tstrPath.c_str(), tstrName.c_str(), value.dwType,
                                               value.strBytes.data(), static_cast<DWORD>(value.strBytes.size())));
}

std::optional<RawValue> ReadRaw(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName)
{
    UniqueRegistryKey key;
    if (::RegOpenKeyExW(hRoot, tstrPath.c_str(), 0, KEY_QUERY_VALUE, key.Receive()) != ERROR_SUCCESS) return {};
    RawValue value;
    DWORD cb = 0;
    if (::RegQueryValueExW(key.Get(), tstrName.c_str(), nullptr, &value.dwType, nullptr, &cb) != ERROR_SUCCESS) {
        return {};
    }
    value.strBytes.resize(cb);
    BYTE* pbData = reinterpret_cast<BYTE*>(value.strBytes.data());
    EXPECT_EQ(ERROR_SUCCESS, ::RegQueryValueExW(key.Get(), tstrName.c_str(), nullptr, nullptr, pbData, &cb));
    return value;
}

RawValue RawText(const std::wstring& tstrText, DWORD dwType)
{
    return {dwType, {reinterpret_cast<const char*>(tstrText.c_str()), (tstrText.size() + 1) * sizeof(wchar_t)}};
}
