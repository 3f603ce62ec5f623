#include "common/KzComn_Registry.h"
#include "support/Testing.h"

using namespace Storage;
using namespace std::string_literals;

namespace {

const std::wstring kPath = L"Software\\Kazmere\\Test";
const HKEY kRoot = HKEY_LOCAL_MACHINE;

class RegistryStorage : public RegistryTest {
protected:
    Registry m_registry;
    DWORD m_dwCode = 77;
};

/// Checks the results of reading a string, a double word and a quad word, each "CODE:VALUE".
void ExpectReads(const std::wstring& tstrPath, const std::wstring& tstrName, const std::wstring (&expected)[3])
{
    std::wstring tstrValue = L"default";
    DWORD dwValue = 77;
    ULONGLONG ullValue = 77;
    const auto read = [&](auto& value) {
        DWORD dwCode = 1;
        const bool bOk = Reg::ReadValue(kRoot, tstrPath, tstrName, value, 0, &dwCode);
        EXPECT_EQ(bOk, dwCode == 0);
        return std::to_wstring(dwCode) + L":";
    };
    const std::wstring codes[] = {read(tstrValue), read(dwValue), read(ullValue)};
    EXPECT_EQ(expected[0], codes[0] + tstrValue);
    EXPECT_EQ(expected[1], codes[1] + std::to_wstring(dwValue));
    EXPECT_EQ(expected[2], codes[2] + std::to_wstring(ullValue));
}

TEST_F(RegistryStorage, EveryReadTakesItsOwnTypesAndLeavesTheDefaultOtherwise)
{
    // The value, the only read that accepts it (0 string, 1 double word, 2 quad word, 4 none), and its result.
    const std::tuple<RawValue, std::size_t, std::wstring> rows[] = {
        // clang-format off
        {RawText(L"text"), 0, L"text"}, {{REG_SZ, ""}, 0, L""}, {RawText(L"first\0second"s), 0, L"first"},
        {{REG_SZ, "u\0n\0"s}, 0, L"un"}, {{REG_SZ, "o\0d\0d"s}, 0, L"od"},
        {RawText(L"%SystemRoot%\\x", REG_EXPAND_SZ), 0, L"%SystemRoot%\\x"},
        {RawText(L"one\0two\0"s, REG_MULTI_SZ), 0, L"one\0two\0\0"s}, {{REG_NONE, "\1\2\3\4"}, 4, L""},
        {RawNumber(12345678), 1, L"12345678"}, {{REG_DWORD, "\1\2"}, 4, L""}, {{REG_BINARY, "\1\2\3\4"}, 4, L""},
        {RawNumber(123456789012, REG_QWORD), 2, L"123456789012"}};  // clang-format on
    for (const auto& [value, uRead, tstrRead] : rows) {
        SCOPED_TRACE(value.strBytes + std::to_string(value.dwType));
        WriteRaw(kRoot, kPath, L"v", value);
        std::wstring expected[] = {L"13:default", L"13:77", L"13:77"};
        if (uRead < std::size(expected)) expected[uRead] = L"0:" + tstrRead;
        ExpectReads(kPath, L"v", expected);
    }
    for (const std::wstring& tstrPath : {kPath, kPath + L"\\none"}) {
        ExpectReads(tstrPath, L"none", {L"2:default", L"2:77", L"2:77"});
    }
    ExpectReads(L"", L"v", {L"160:default", L"160:77", L"160:77"});
}

TEST_F(RegistryStorage, WritesAndDeletionsFailWithTheirCode)
{
    EXPECT_TRUE(Reg::StoreValue(kRoot, kPath + L"\\sub", L"name", L"value"s, 0, &m_dwCode));
    EXPECT_EQ(0U, m_dwCode);
    m_registry.Open(Storage::Key(kRoot, kPath.c_str()), L"sub");
    EXPECT_EQ(L"value", m_registry.ReadString(L"name", L""));
    EXPECT_EQ(ERROR_ACCESS_DENIED, CodeOf([&] { m_registry.WriteDword(L"name", 1); }));
    EXPECT_TRUE(Reg::DeleteValue(kRoot, kPath + L"\\sub", L"name", 0, &m_dwCode));
    EXPECT_FALSE(Reg::DeleteValue(kRoot, kPath + L"\\sub", L"name", 0, &m_dwCode));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_dwCode);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, CodeOf([&] { m_registry.OpenForDelete(kRoot, kPath + L"\\none"); }));
    m_registry.Close();
    EXPECT_EQ(ERROR_INVALID_HANDLE, CodeOf([&] { m_registry.ReadString(L"a", L""); }));
    EXPECT_EQ(ERROR_BAD_ARGUMENTS, CodeOf([&] { m_registry.OpenOrCreate(kRoot, L""); }));
}

// Protects the developer's machine: without redirection each of these would write to its registry.
TEST_F(RegistryStorage, NoTestBeginsWithoutRedirection)
{
    for (const HKEY hRoot : {HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT}) {
        EXPECT_EXIT(
            {
                ::RegOverridePredefKey(hRoot, nullptr);
                RequireRedirection();
            },
            testing::ExitedWithCode(kNotRedirected), "not redirected");
    }
}

}  // namespace
