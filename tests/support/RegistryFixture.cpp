#include "support/RegistryFixture.h"

#include "common/KzComn_Handle.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

using KzCommon::UniqueRegistryKey;

namespace {

const std::pair<HKEY, const wchar_t*> kRoots[] = {{HKEY_LOCAL_MACHINE, L"\\HKLM"}, {HKEY_CLASSES_ROOT, L"\\HKCR"}};

void RemoveRedirection(const std::wstring& tstrPath)
{
    for (const auto& [hRoot, szName] : kRoots) ::RegOverridePredefKey(hRoot, nullptr);
    EXPECT_EQ(ERROR_SUCCESS, ::RegDeleteTreeW(HKEY_CURRENT_USER, tstrPath.c_str()));
    ::RegDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Kazmere\\Tests");
}

}  // namespace

RegistryTest::RegistryTest() : m_tstrPath(L"Software\\Kazmere\\Tests\\" + std::to_wstring(::GetCurrentProcessId()))
{
    for (const auto& [hRoot, szName] : kRoots) {
        UniqueRegistryKey key;
        EXPECT_EQ(ERROR_SUCCESS, ::RegCreateKeyW(HKEY_CURRENT_USER, (m_tstrPath + szName).c_str(), key.Receive()));
        EXPECT_EQ(ERROR_SUCCESS, ::RegOverridePredefKey(hRoot, key.Get()));
    }
    RequireRedirection();
}

RegistryTest::~RegistryTest()
{
    RemoveRedirection(m_tstrPath);
}

void RegistryTest::RequireRedirection() const
{
    for (const auto& [hRoot, szName] : kRoots) {
        const std::wstring tstrProbe = m_tstrPath + szName + L"\\brevant-probe";
        UniqueRegistryKey probe;
        EXPECT_EQ(ERROR_SUCCESS, ::RegCreateKeyW(HKEY_CURRENT_USER, tstrProbe.c_str(), probe.Receive()));
        // The core's function, which this code imports, and advapi32's.
        const FARPROC pfnOld = ::GetProcAddress(::LoadLibraryW(L"advapi32.dll"), "RegOpenKeyExW");
        for (const auto pfnOpen :
             {&::RegOpenKeyExW, reinterpret_cast<decltype(&::RegOpenKeyExW)>(reinterpret_cast<void*>(pfnOld))}) {
            UniqueRegistryKey found;
            if (pfnOpen(hRoot, L"brevant-probe", 0, KEY_READ, found.Receive()) == ERROR_SUCCESS) continue;
            RemoveRedirection(m_tstrPath);
            std::fputs("The registry is not redirected: the tests would change this machine's.\n", stderr);
            std::exit(kNotRedirected);
        }
        ::RegDeleteKeyW(HKEY_CURRENT_USER, tstrProbe.c_str());
    }
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
    RawValue value{REG_NONE, std::string(0x10000, '\0')};
    DWORD cb = 0x10000;
    const LSTATUS lError = ::RegQueryValueExW(key.Get(), tstrName.c_str(), nullptr, &value.dwType,
                                              reinterpret_cast<BYTE*>(value.strBytes.data()), &cb);
    EXPECT_TRUE(lError == ERROR_SUCCESS || lError == ERROR_FILE_NOT_FOUND) << lError;
    if (lError != ERROR_SUCCESS) return {};
    value.strBytes.resize(cb);
    return value;
}

RawValue RawText(const std::wstring& tstrText, DWORD dwType)
{
    return {dwType, {reinterpret_cast<const char*>(tstrText.c_str()), (tstrText.size() + 1) * sizeof(wchar_t)}};
}

RawValue RawNumber(ULONGLONG ullNumber, DWORD dwType)
{
    return {dwType, {reinterpret_cast<const char*>(&ullNumber), dwType == REG_QWORD ? 8U : 4U}};
}

void WriteProduct(const std::wstring& tstrName, const std::wstring& tstrText)
{
    WriteRaw(HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\KZVLT", tstrName, RawText(tstrText));
}
