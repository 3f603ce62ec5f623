#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"
#include "support/RegistryFixture.h"

#include <functional>

using namespace KzCommon;
using namespace KzCommon::Storage;
using namespace std::string_literals;

namespace {

const std::wstring kPath = L"Software\\Kazmere\\Test";
const HKEY kRoot = HKEY_LOCAL_MACHINE;

/// The code that an operation throws, or 0.
DWORD CodeOf(const std::function<void()>& operation)
{
    DWORD dwCode = ERROR_SUCCESS;
    static_cast<void>(Guarded(&dwCode, operation));
    return dwCode;
}

class RegistryStorage : public RegistryTest {
protected:
    Registry m_registry;
};

TEST_F(RegistryStorage, EveryReadTakesItsOwnTypesOnly)
{
    const struct {
        RawValue value;
        char chRead;  // the only read that takes it: string, double word, quad word, bytes
        std::wstring tstrRead;
    } rows[] = {
        {RawText(L"text"), 'S', L"text"},
        {{REG_SZ, ""}, 'S', L""},
        {RawText(L"first\0second"s), 'S', L"first"},
        {{REG_SZ, "u\0n\0"s}, 'S', L"un"},
        {{REG_SZ, "o\0d\0d"s}, 'S', L"od"},
        {RawText(L"%SystemRoot%\\x", REG_EXPAND_SZ), 'S', L"%SystemRoot%\\x"},
        {RawText(L"one\0two\0"s, REG_MULTI_SZ), 'S', L"one\0two\0\0"s},
        {{REG_DWORD, "\1\2\3\4"}, 'D', L""},
        {{REG_DWORD, "\1\2"}, ' ', L""},
        {{REG_BINARY, "\1\2\3\4"}, 'B', L""},
        {{REG_BINARY, ""}, 'B', L""},
        {{REG_QWORD, "\1\2\3\4\5\6\7\10"}, 'Q', L""},
        {{REG_NONE, "\1\2\3\4"}, ' ', L""},
    };
    WriteRaw(kRoot, kPath, L"other", RawText(L""));
    m_registry.Open(Key(kRoot, kPath.c_str()));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, CodeOf([&] { m_registry.ReadString(L"value", L"a default is no answer"); }));
    for (const auto& row : rows) {
        SCOPED_TRACE(String::ToUtf8(row.tstrRead) + row.chRead + std::to_string(row.value.dwType));
        WriteRaw(kRoot, kPath, L"value", row.value);
        std::wstring tstrValue;
        DWORD dwValue = 77;
        ULONGLONG ullValue = 77;
        ByteArray bytes;
        const auto codeFor = [&](char chRead) {
            return row.chRead == chRead ? DWORD{} : DWORD{ERROR_INVALID_DATA};
        };
        EXPECT_EQ(codeFor('S'), CodeOf([&] { tstrValue = m_registry.ReadString(L"value", L"default"); }));
        EXPECT_EQ(codeFor('D'), CodeOf([&] { m_registry.ReadDword(L"value", dwValue); }));
        EXPECT_EQ(codeFor('Q'), CodeOf([&] { m_registry.ReadQword(L"value", ullValue); }));
        EXPECT_EQ(codeFor('B'), CodeOf([&] { m_registry.ReadBinary(L"value", bytes); }));
        EXPECT_EQ(row.tstrRead, tstrValue);
        EXPECT_EQ(row.chRead == 'D' ? 0x04030201U : 77U, dwValue);
        EXPECT_EQ(row.chRead == 'Q' ? 0x0807060504030201U : 77U, ullValue);
        EXPECT_EQ(row.chRead == 'B' ? row.value.strBytes.size() : 0U, bytes.Size());
    }
}

TEST_F(RegistryStorage, WritesAreStoredInTheirType)
{
    m_registry.OpenOrCreate(kRoot, kPath);
    ByteArray bytes;
    bytes.Allocate(3);
    bytes.Data()[1] = 9;
    m_registry.WriteString(L"text", L"täxt");
    m_registry.WriteString(L"empty", L"");
    m_registry.WriteString(L"", L"unnamed");
    m_registry.WriteDword(L"number", 0x89ABCDEF);
    m_registry.WriteQword(L"big", 0x123456789ABCDEF0);
    m_registry.WriteBinary(L"bytes", bytes);
    const std::pair<const wchar_t*, RawValue> rows[] = {{L"text", RawText(L"täxt")},
                                                        {L"empty", {REG_SZ, "\0\0"s}},
                                                        {L"", RawText(L"unnamed")},
                                                        {L"number", {REG_DWORD, "\xEF\xCD\xAB\x89"}},
                                                        {L"big", {REG_QWORD, "\xF0\xDE\xBC\x9A\x78\x56\x34\x12"}},
                                                        {L"bytes", {REG_BINARY, "\0\x09\0"s}}};
    for (const auto& [szName, value] : rows) EXPECT_EQ(value, ReadRaw(kRoot, kPath, szName)) << String::ToUtf8(szName);
    DWORD dwCode = ERROR_SUCCESS;
    EXPECT_FALSE(m_registry.TryReadBinary(L"bytes", bytes, &dwCode));
    EXPECT_EQ(DWORD{ERROR_OBJECT_ALREADY_EXISTS}, dwCode) << "the array holds bytes already";
}

TEST_F(RegistryStorage, NothingWorksOnAClosedKey)
{
    DWORD dwValue = 0;
    ByteArray bytes;
    m_registry.OpenOrCreate(kRoot, kPath);
    m_registry.Close();
    EXPECT_EQ(L"", m_registry.Path());
    const std::function<void()> operations[] = {
        [&] { m_registry.Flush(); },
        [&] { m_registry.ReadBinary(L"a", bytes); },
        [&] { m_registry.ReadDword(L"a", dwValue); },
        [&] { m_registry.WriteString(L"a", L""); },
        [&] { m_registry.DeleteSubKey(L"a"); },
        [&] { m_registry.DeleteValue(L"a"); },
        [&] { m_registry.EnumSubKey(0); },
        [&] { m_registry.EnumValue(0); },
    };
    for (const auto& operation : operations) EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, CodeOf(operation));
}

TEST_F(RegistryStorage, OpensReachTheirKeyWithTheirRightsOnly)
{
    const Key key(kRoot, kPath.c_str());
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, CodeOf([&] { m_registry.Open(key); }));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, CodeOf([&] { m_registry.OpenForDelete(kRoot, kPath); }));
    EXPECT_EQ(DWORD{ERROR_BAD_ARGUMENTS}, CodeOf([&] { m_registry.Open(Key(kRoot, nullptr), L"Software"); }));
    EXPECT_EQ(DWORD{ERROR_BAD_ARGUMENTS}, CodeOf([&] { m_registry.OpenOrCreate(kRoot, L""); }));
    WriteRaw(kRoot, kPath + L"\\one", L"name", RawText(L"value"));
    WriteRaw(kRoot, kPath + L"\\two", L"", RawText(L""));

    m_registry.Open(key, L"one");
    EXPECT_EQ(L"value", m_registry.ReadString(L"name", L""));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, CodeOf([&] { m_registry.WriteDword(L"name", 1); }));
    m_registry.OpenForEnumerate(kRoot, kPath);
    EXPECT_EQ(L"two", m_registry.EnumSubKey(1));
    EXPECT_EQ(DWORD{ERROR_NO_MORE_ITEMS}, CodeOf([&] { m_registry.EnumSubKey(2); }));
    m_registry.OpenForEnumerate(kRoot, kPath + L"\\one");
    EXPECT_EQ(L"name", m_registry.EnumValue(0));
    EXPECT_EQ(DWORD{ERROR_NO_MORE_ITEMS}, CodeOf([&] { m_registry.EnumValue(1); }));
    m_registry.OpenOrCreate(kRoot, kPath);
    m_registry.DeleteSubKey(L"one");
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, CodeOf([&] { m_registry.DeleteSubKey(L"one"); }));
}

TEST_F(RegistryStorage, ExceptionSaysWhereItWasRaised)
{
    try {
        m_registry.Open(Key(kRoot, L"absent"));
        FAIL();
    } catch (KzCommon::Exception::Base* pException) {
        const std::unique_ptr<KzCommon::Exception::Base> caught(pException);
        EXPECT_STREQ("KzComn_Registry.cpp", caught->Module());
        EXPECT_GT(caught->Line(), 0U);
    }
}

TEST_F(RegistryStorage, OneCallFormsReportTheirCode)
{
    const std::wstring tstrName = L"value";
    DWORD dwCode = 77;
    EXPECT_TRUE(Reg::StoreValue(kRoot, kPath, tstrName, ULONGLONG{1} << 40, 0, &dwCode));
    EXPECT_EQ(0U, dwCode);
    ULONGLONG ullValue = 0;
    EXPECT_TRUE(Reg::ReadValue(kRoot, kPath, tstrName, ullValue, 0, nullptr));
    EXPECT_EQ(ULONGLONG{1} << 40, ullValue);
    DWORD dwValue = 5;
    EXPECT_FALSE(Reg::ReadValue(kRoot, kPath, tstrName, dwValue, 0, &dwCode));
    EXPECT_EQ(DWORD{ERROR_INVALID_DATA}, dwCode);
    EXPECT_EQ(5U, dwValue);
    EXPECT_TRUE(Reg::DeleteValue(kRoot, kPath, tstrName, 0, nullptr));
    EXPECT_FALSE(Reg::DeleteValue(kRoot, kPath, tstrName, 0, &dwCode));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, dwCode);

    EXPECT_TRUE(Reg::StoreValue(kRoot, kPath.c_str(), nullptr, DWORD{7}, 0, &dwCode));
    EXPECT_TRUE(Reg::ReadValue(kRoot, kPath, L"", dwValue, 0, &dwCode));
    EXPECT_EQ(7U, dwValue);
    EXPECT_FALSE(Reg::StoreValue(kRoot, nullptr, L"value", DWORD{7}, 0, &dwCode));
    EXPECT_EQ(DWORD{ERROR_BAD_ARGUMENTS}, dwCode);
    EXPECT_FALSE(Guarded(&dwCode, [] { throw std::bad_alloc(); }));
    EXPECT_EQ(0x800300FDU, dwCode);
}

}  // namespace
