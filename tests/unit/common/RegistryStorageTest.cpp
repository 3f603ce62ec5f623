#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"
#include "support/RegistryFixture.h"

#include <functional>

using namespace KzCommon;
using namespace KzCommon::Storage;
using namespace std::string_literals;

namespace {

const std::wstring kPath = L"Software\\Kazmere\\Test";

/// The code that an operation throws, or 0.
DWORD CodeOf(const std::function<void()>& operation)
{
    DWORD dwCode = ERROR_SUCCESS;
    static_cast<void>(Guarded(&dwCode, operation));
    return dwCode;
}

class RegistryStorage : public RegistryTest {
protected:
    void OpenForReading() { m_registry.Open(Key(HKEY_LOCAL_MACHINE, kPath.c_str())); }
    Registry m_registry;
};

TEST_F(RegistryStorage, EveryReadTakesItsOwnTypesOnly)
{
    constexpr DWORD kOk = ERROR_SUCCESS;
    constexpr DWORD kAbsent = ERROR_FILE_NOT_FOUND;
    constexpr DWORD kBad = ERROR_INVALID_DATA;
    const struct {
        RawValue value;
        DWORD dwString;
        std::wstring tstrRead;
        DWORD dwDword;
        DWORD dwQword;
        DWORD dwBinary;
    } rows[] = {
        {RawText(L"text"), kOk, L"text", kBad, kBad, kBad},
        {RawText(L""), kOk, L"", kBad, kBad, kBad},
        {{REG_SZ, ""}, kOk, L"", kBad, kBad, kBad},
        {RawText(L"first\0second"s), kOk, L"first", kBad, kBad, kBad},
        {{REG_SZ, "u\0n\0"s}, kOk, L"un", kBad, kBad, kBad},
        {{REG_SZ, "o\0d\0d"s}, kOk, L"od", kBad, kBad, kBad},
        {RawText(L"%SystemRoot%\\x", REG_EXPAND_SZ), kOk, L"%SystemRoot%\\x", kBad, kBad, kBad},
        {RawText(L"one\0two\0"s, REG_MULTI_SZ), kOk, L"one\0two\0\0"s, kBad, kBad, kBad},
        {{REG_DWORD, "\1\2\3\4"}, kBad, L"", kOk, kBad, kBad},
        {{REG_DWORD, "\1\2"}, kBad, L"", kBad, kBad, kBad},
        {{REG_BINARY, "\1\2\3\4"}, kBad, L"", kBad, kBad, kOk},
        {{REG_BINARY, ""}, kBad, L"", kBad, kBad, kOk},
        {{REG_QWORD, "\1\2\3\4\5\6\7\10"}, kBad, L"", kBad, kOk, kBad},
        {{REG_NONE, "\1\2\3\4"}, kBad, L"", kBad, kBad, kBad},
    };
    WriteRaw(HKEY_LOCAL_MACHINE, kPath, L"other", RawText(L""));
    OpenForReading();
    EXPECT_EQ(kAbsent, CodeOf([&] { m_registry.ReadString(L"value", L"default"); })) << "a default is no answer";
    const std::size_t cRows = std::size(rows);
    for (std::size_t uRow = 0; uRow < cRows; ++uRow) {
        SCOPED_TRACE(uRow);
        const auto& row = rows[uRow];
        WriteRaw(HKEY_LOCAL_MACHINE, kPath, L"value", row.value);
        std::wstring tstrValue = L"untouched";
        DWORD dwValue = 77;
        ULONGLONG ullValue = 77;
        ByteArray bytes;
        DWORD dwCode = kOk;
        EXPECT_EQ(row.dwString == kOk, m_registry.TryReadString(L"value", L"default", tstrValue, &dwCode));
        EXPECT_EQ(row.dwString, dwCode);
        EXPECT_EQ(row.dwString == kOk ? row.tstrRead : L"untouched", tstrValue);
        dwCode = kOk;
        EXPECT_EQ(row.dwDword == kOk, m_registry.TryReadDword(L"value", dwValue, &dwCode));
        EXPECT_EQ(row.dwDword, dwCode);
        EXPECT_EQ(row.dwDword == kOk ? 0x04030201U : 77U, dwValue);
        dwCode = kOk;
        EXPECT_EQ(row.dwBinary == kOk, m_registry.TryReadBinary(L"value", bytes, &dwCode));
        EXPECT_EQ(row.dwBinary, dwCode);
        const std::string strBytes(reinterpret_cast<const char*>(bytes.Data()), bytes.Size());
        EXPECT_EQ(row.dwBinary == kOk ? row.value.strBytes : "", strBytes);
        EXPECT_EQ(row.dwQword, CodeOf([&] { m_registry.ReadQword(L"value", ullValue); }));
        EXPECT_EQ(row.dwQword == kOk ? 0x0807060504030201U : 77U, ullValue);
    }
}

TEST_F(RegistryStorage, WritesAreStoredInTheirType)
{
    m_registry.OpenOrCreate(HKEY_LOCAL_MACHINE, kPath);
    ByteArray bytes;
    bytes.Allocate(3);
    bytes.Data()[1] = 9;
    m_registry.WriteString(L"text", L"täxt");
    m_registry.WriteString(L"empty", L"");
    m_registry.WriteString(L"", L"unnamed");
    m_registry.WriteDword(L"number", 0x89ABCDEF);
    m_registry.WriteQword(L"big", 0x123456789ABCDEF0);
    m_registry.WriteBinary(L"bytes", bytes);
    m_registry.WriteBinary(L"nothing", ByteArray());
    const std::pair<const wchar_t*, RawValue> rows[] = {
        {L"text", RawText(L"täxt")},
        {L"empty", {REG_SZ, "\0\0"s}},
        {L"", RawText(L"unnamed")},
        {L"number", {REG_DWORD, "\xEF\xCD\xAB\x89"}},
        {L"big", {REG_QWORD, "\xF0\xDE\xBC\x9A\x78\x56\x34\x12"}},
        {L"bytes", {REG_BINARY, "\0\x09\0"s}},
        {L"nothing", {REG_BINARY, ""}},
    };
    for (const auto& [szName, value] : rows) {
        EXPECT_EQ(value, ReadRaw(HKEY_LOCAL_MACHINE, kPath, szName)) << String::ToUtf8(szName);
    }
    EXPECT_EQ(DWORD{ERROR_OBJECT_ALREADY_EXISTS}, CodeOf([&] { m_registry.ReadBinary(L"bytes", bytes); }));
}

TEST_F(RegistryStorage, NothingWorksOnAClosedKey)
{
    DWORD dwValue = 0;
    ULONGLONG ullValue = 0;
    ByteArray bytes;
    const std::function<void()> operations[] = {
        [&] { m_registry.Flush(); },
        [&] { m_registry.ReadBinary(L"a", bytes); },
        [&] { m_registry.ReadString(L"a", L""); },
        [&] { m_registry.ReadDword(L"a", dwValue); },
        [&] { m_registry.ReadQword(L"a", ullValue); },
        [&] { m_registry.WriteBinary(L"a", bytes); },
        [&] { m_registry.WriteString(L"a", L""); },
        [&] { m_registry.WriteQword(L"a", 0); },
        [&] { m_registry.WriteDword(L"a", 0); },
        [&] { m_registry.DeleteSubKey(L"a"); },
        [&] { m_registry.DeleteValue(L"a"); },
        [&] { m_registry.EnumSubKey(0); },
        [&] { m_registry.EnumValue(0); },
    };
    const auto expectClosed = [&] {
        for (const auto& operation : operations) EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, CodeOf(operation));
    };
    expectClosed();
    m_registry.OpenOrCreate(HKEY_LOCAL_MACHINE, kPath);
    EXPECT_EQ(kPath, m_registry.Path());
    m_registry.Close();
    EXPECT_EQ(L"", m_registry.Path());
    expectClosed();
}

TEST_F(RegistryStorage, OpensReachTheirKeyWithTheirRightsOnly)
{
    const Key key(HKEY_LOCAL_MACHINE, kPath.c_str());
    const Key noPath(HKEY_LOCAL_MACHINE, nullptr);
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, CodeOf([&] { m_registry.Open(key); }));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, CodeOf([&] { m_registry.OpenForDelete(HKEY_LOCAL_MACHINE, kPath); }));
    const std::function<void()> withoutPath[] = {
        [&] { m_registry.Open(noPath); },
        [&] { m_registry.Open(noPath, L"Software"); },
        [&] { m_registry.OpenOrCreate(HKEY_LOCAL_MACHINE, L""); },
        [&] { m_registry.OpenForDelete(HKEY_LOCAL_MACHINE, L""); },
        [&] { m_registry.OpenForEnumerate(HKEY_LOCAL_MACHINE, L""); },
    };
    for (const auto& open : withoutPath) EXPECT_EQ(DWORD{ERROR_BAD_ARGUMENTS}, CodeOf(open));

    m_registry.OpenOrCreate(HKEY_LOCAL_MACHINE, kPath + L"\\one");
    m_registry.WriteString(L"name", L"value");
    m_registry.Close();
    m_registry.OpenOrCreate(HKEY_LOCAL_MACHINE, kPath + L"\\two");
    m_registry.Close();

    m_registry.Open(key, L"one");
    EXPECT_EQ(L"value", m_registry.ReadString(L"name", L""));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, CodeOf([&] { m_registry.WriteDword(L"name", 1); }));
    m_registry.Close();

    m_registry.OpenForEnumerate(HKEY_LOCAL_MACHINE, kPath);
    EXPECT_EQ(L"one", m_registry.EnumSubKey(0));
    EXPECT_EQ(L"two", m_registry.EnumSubKey(1));
    EXPECT_EQ(DWORD{ERROR_NO_MORE_ITEMS}, CodeOf([&] { m_registry.EnumSubKey(2); }));
    m_registry.Close();
    m_registry.OpenForEnumerate(HKEY_LOCAL_MACHINE, kPath + L"\\one");
    EXPECT_EQ(L"name", m_registry.EnumValue(0));
    EXPECT_EQ(DWORD{ERROR_NO_MORE_ITEMS}, CodeOf([&] { m_registry.EnumValue(1); }));
    m_registry.Close();

    m_registry.OpenForDelete(HKEY_LOCAL_MACHINE, kPath + L"\\one");
    m_registry.DeleteValue(L"name");
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, CodeOf([&] { m_registry.DeleteValue(L"name"); }));
    m_registry.Close();
    m_registry.OpenOrCreate(HKEY_LOCAL_MACHINE, kPath);
    m_registry.DeleteSubKey(L"one");
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, CodeOf([&] { m_registry.DeleteSubKey(L"one"); }));
}

TEST_F(RegistryStorage, ExceptionSaysWhereItWasRaised)
{
    try {
        m_registry.Open(Key(HKEY_LOCAL_MACHINE, L"absent"));
        FAIL();
    } catch (KzCommon::Exception::Base* pException) {
        const std::unique_ptr<KzCommon::Exception::Base> caught(pException);
        EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, caught->ErrorCode());
        EXPECT_STREQ("KzComn_Registry.cpp", caught->Module());
        EXPECT_GT(caught->Line(), 0U);
    }
}

TEST_F(RegistryStorage, OneCallFormsReportTheirCode)
{
    const std::wstring tstrName = L"value";
    DWORD dwCode = 77;
    EXPECT_TRUE(Reg::StoreValue(HKEY_LOCAL_MACHINE, kPath, tstrName, std::wstring(L"text"), 0, &dwCode));
    EXPECT_EQ(0U, dwCode);
    std::wstring tstrValue = L"default";
    EXPECT_TRUE(Reg::ReadValue(HKEY_LOCAL_MACHINE, kPath, tstrName, tstrValue, 0, nullptr));
    EXPECT_EQ(L"text", tstrValue);
    DWORD dwValue = 5;
    EXPECT_FALSE(Reg::ReadValue(HKEY_LOCAL_MACHINE, kPath, tstrName, dwValue, 0, &dwCode));
    EXPECT_EQ(DWORD{ERROR_INVALID_DATA}, dwCode);
    EXPECT_EQ(5U, dwValue);
    EXPECT_TRUE(Reg::StoreValue(HKEY_LOCAL_MACHINE, kPath, tstrName, ULONGLONG{1} << 40, 0, &dwCode));
    ULONGLONG ullValue = 0;
    EXPECT_TRUE(Reg::ReadValue(HKEY_LOCAL_MACHINE, kPath, tstrName, ullValue, 0, &dwCode));
    EXPECT_EQ(ULONGLONG{1} << 40, ullValue);
    EXPECT_TRUE(Reg::DeleteValue(HKEY_LOCAL_MACHINE, kPath, tstrName, 0, &dwCode));
    EXPECT_FALSE(Reg::DeleteValue(HKEY_LOCAL_MACHINE, kPath, tstrName, 0, &dwCode));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, dwCode);
    EXPECT_FALSE(Reg::ReadValue(HKEY_LOCAL_MACHINE, kPath, tstrName, tstrValue, 0, nullptr));

    EXPECT_TRUE(Reg::StoreValue(HKEY_LOCAL_MACHINE, kPath.c_str(), nullptr, DWORD{7}, 0, &dwCode));
    EXPECT_TRUE(Reg::ReadValue(HKEY_LOCAL_MACHINE, kPath, L"", dwValue, 0, &dwCode));
    EXPECT_EQ(7U, dwValue);
    EXPECT_FALSE(Reg::StoreValue(HKEY_LOCAL_MACHINE, nullptr, L"value", DWORD{7}, 0, &dwCode));
    EXPECT_EQ(DWORD{ERROR_BAD_ARGUMENTS}, dwCode);
    EXPECT_FALSE(Guarded(&dwCode, [] { throw std::bad_alloc(); }));
    EXPECT_EQ(0x800300FDU, dwCode);
}

}  // namespace
