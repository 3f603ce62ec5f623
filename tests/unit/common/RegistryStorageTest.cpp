#include "common/KzComn_Registry.h"
#include "support/RegistryFixture.h"

#include <functional>

using namespace KzCommon::Storage;
using namespace std::string_literals;

namespace {

const std::wstring kPath = L"Software\\Kazmere\\Test";
const HKEY kRoot = HKEY_LOCAL_MACHINE;

class RegistryStorage : public RegistryTest {};

void ExpectCode(DWORD dwExpected, const std::function<void()>& operation)
{
    DWORD dwCode = ERROR_SUCCESS;
    EXPECT_EQ(dwExpected == 0, Guarded(&dwCode, operation));
    EXPECT_EQ(dwExpected, dwCode);
}

TEST_F(RegistryStorage, EveryReadTakesItsOwnTypesOnly)
{
    // The value, the only read that takes it (string, double word, quad word, bytes), the text that it gives.
    const std::tuple<RawValue, char, std::wstring> rows[] = {
        // clang-format off
        {RawText(L"text"), 'S', L"text"}, {{REG_SZ, ""}, 'S', L""}, {RawText(L"first\0second"s), 'S', L"first"},
        {{REG_SZ, "u\0n\0"s}, 'S', L"un"}, {{REG_SZ, "o\0d\0d"s}, 'S', L"od"},
        {RawText(L"%SystemRoot%\\x", REG_EXPAND_SZ), 'S', L"%SystemRoot%\\x"},
        {RawText(L"one\0two\0"s, REG_MULTI_SZ), 'S', L"one\0two\0\0"s}, {{REG_NONE, "\1\2\3\4"}, ' ', L""},
        {RawNumber(0x04030201), 'D', L""}, {{REG_DWORD, "\1\2"}, ' ', L""}, {{REG_BINARY, "\1\2\3\4"}, 'B', L""},
        {RawNumber(0x0807060504030201, REG_QWORD), 'Q', L""}};  // clang-format on
    Registry registry;
    registry.OpenOrCreate(kRoot, kPath);
    for (const auto& [value, chRead, tstrRead] : rows) {
        SCOPED_TRACE(value.strBytes + std::to_string(value.dwType));
        WriteRaw(kRoot, kPath, L"v", value);
        std::wstring tstrValue;
        DWORD dwValue = 77;
        ULONGLONG ullValue = 77;
        KzCommon::ByteArray bytes;
        const auto codeFor = [ch = chRead](char chOther) {
            return ch == chOther ? 0UL : DWORD{ERROR_INVALID_DATA};
        };
        ExpectCode(codeFor('S'), [&] { tstrValue = registry.ReadString(L"v", L"default"); });
        ExpectCode(codeFor('D'), [&] { registry.ReadDword(L"v", dwValue); });
        ExpectCode(codeFor('Q'), [&] { registry.ReadQword(L"v", ullValue); });
        ExpectCode(codeFor('B'), [&] { registry.ReadBinary(L"v", bytes); });
        EXPECT_EQ(tstrRead, tstrValue);
        EXPECT_EQ(chRead == 'D' ? 0x04030201U : 77U, dwValue);
        EXPECT_EQ(chRead == 'Q' ? 0x0807060504030201U : 77U, ullValue);
        EXPECT_EQ(chRead == 'B' ? 4U : 0U, bytes.Size());
    }
}

TEST_F(RegistryStorage, FailuresHaveTheirCode)
{
    Registry registry;
    DWORD dwCode = 77;
    ExpectCode(ERROR_INVALID_HANDLE, [&] { registry.WriteDword(L"a", 1); });
    ExpectCode(ERROR_FILE_NOT_FOUND, [&] { registry.OpenForDelete(kRoot, kPath); });
    ExpectCode(ERROR_BAD_ARGUMENTS, [&] { registry.Open(Key(kRoot, nullptr), L"Software"); });
    EXPECT_TRUE(Reg::StoreValue(kRoot, kPath + L"\\sub", L"name", L"value"s, 0, &dwCode));
    EXPECT_EQ(0U, dwCode);
    registry.Open(Key(kRoot, kPath.c_str()), L"sub");
    EXPECT_EQ(L"value", registry.ReadString(L"name", L""));
    ExpectCode(ERROR_FILE_NOT_FOUND, [&] { registry.ReadString(L"none", L"a default is no answer"); });
    ExpectCode(ERROR_ACCESS_DENIED, [&] { registry.WriteDword(L"name", 1); });
    ExpectCode(0x800300FD, [] { throw std::bad_alloc(); });
}

TEST_F(RegistryStorage, NothingWorksOnAKeyThatIsNotOpenOrAnEmptyPath)
{
    Registry registry;
    KzCommon::ByteArray bytes;
    DWORD dwValue = 7;
    ULONGLONG ullValue = 7;
    const std::function<void()> unopened[] = {// clang-format off
        [&] { registry.Flush(); }, [&] { registry.ReadBinary(L"a", bytes); }, [&] { registry.ReadString(L"a", L""); },
        [&] { registry.ReadDword(L"a", dwValue); }, [&] { registry.ReadQword(L"a", ullValue); },
        [&] { registry.WriteBinary(L"a", bytes); }, [&] { registry.WriteString(L"a", L""); },
        [&] { registry.WriteQword(L"a", 1); }, [&] { registry.DeleteSubKey(L"a"); },
        [&] { registry.DeleteValue(L"a"); }, [&] { registry.EnumSubKey(0); }, [&] { registry.EnumValue(0); }};
    const std::function<void()> nowhere[] = {
        [&] { registry.OpenOrCreate(kRoot, L""); }, [&] { registry.OpenForDelete(kRoot, L""); },
        [&] { registry.OpenForEnumerate(kRoot, L""); }, [&] { registry.Open(Key(kRoot, L"")); }};  // clang-format on
    registry.OpenOrCreate(kRoot, kPath);
    registry.Close();
    EXPECT_EQ(L"", registry.Path());
    for (const auto& operation : unopened) ExpectCode(ERROR_INVALID_HANDLE, operation);
    for (const auto& operation : nowhere) ExpectCode(ERROR_BAD_ARGUMENTS, operation);
}

TEST_F(RegistryStorage, AnObjectThatOpensAnotherKeyWorksOnThatOne)
{
    Registry registry;
    for (const wchar_t* szKey : {L"a", L"b"}) {
        registry.OpenOrCreate(kRoot, kPath + L"\\" + szKey);
        registry.WriteString(L"name", szKey);
    }
    EXPECT_EQ(kPath + L"\\b", registry.Path());
    EXPECT_EQ(RawText(L"a"), ReadRaw(kRoot, kPath + L"\\a", L"name"));
    registry.OpenForEnumerate(kRoot, kPath);
    EXPECT_EQ(L"ab", registry.EnumSubKey(0) + registry.EnumSubKey(1));
    ExpectCode(ERROR_NO_MORE_ITEMS, [&] { registry.EnumSubKey(2); });
    ExpectCode(ERROR_NO_MORE_ITEMS, [&] { registry.EnumValue(0); });
    registry.OpenOrCreate(kRoot, kPath);
    registry.DeleteSubKey(L"a");
    ExpectCode(ERROR_FILE_NOT_FOUND, [&] { registry.DeleteSubKey(L"a"); });
    registry.OpenForDelete(kRoot, kPath + L"\\b");
    registry.DeleteValue(L"name");
    ExpectCode(ERROR_FILE_NOT_FOUND, [&] { registry.DeleteValue(L"name"); });
}

TEST_F(RegistryStorage, AFailedReadLeavesTheDefaultAndASuccessClearsTheCode)
{
    WriteRaw(kRoot, kPath, L"text", RawText(L"t"));
    WriteRaw(kRoot, kPath, L"word", RawNumber(5));
    WriteRaw(kRoot, kPath, L"quad", RawNumber(6, REG_QWORD));
    // The value, the codes of the three reads, and what they leave in the caller's variables.
    const std::tuple<std::wstring, std::wstring, DWORD, std::wstring, DWORD, ULONGLONG> rows[] = {
        // clang-format off
        {kPath, L"text", 0, L"t", 77, 77}, {kPath, L"word", 0, L"default", 5, 77}, {kPath, L"quad", 0, L"default", 77, 6},
        {kPath, L"none", ERROR_FILE_NOT_FOUND, L"default", 77, 77},
        {kPath + L"\\none", L"text", ERROR_FILE_NOT_FOUND, L"default", 77, 77},
        {L"", L"text", ERROR_BAD_ARGUMENTS, L"default", 77, 77}};  // clang-format on
    for (const auto& [tstrPath, tstrName, dwCode, tstrLeft, dwLeft, ullLeft] : rows) {
        SCOPED_TRACE(tstrPath.empty() ? "no path" : "path" + std::to_string(tstrName.size()));
        std::wstring tstrValue = L"default";
        DWORD dwValue = 77;
        ULONGLONG ullValue = 77;
        DWORD codes[] = {1, 1, 1};
        EXPECT_EQ(tstrLeft != L"default", Reg::ReadValue(kRoot, tstrPath, tstrName, tstrValue, 0, &codes[0]));
        EXPECT_EQ(dwLeft != 77, Reg::ReadValue(kRoot, tstrPath, tstrName, dwValue, 0, &codes[1]));
        EXPECT_EQ(ullLeft != 77, Reg::ReadValue(kRoot, tstrPath, tstrName, ullValue, 0, &codes[2]));
        EXPECT_EQ(tstrLeft, tstrValue);
        EXPECT_EQ(dwLeft, dwValue);
        EXPECT_EQ(ullLeft, ullValue);
        const DWORD dwOther = dwCode ? dwCode : DWORD{ERROR_INVALID_DATA};
        EXPECT_EQ(tstrLeft != L"default" ? 0 : dwOther, codes[0]);
        EXPECT_EQ(dwLeft != 77 ? 0 : dwOther, codes[1]);
        EXPECT_EQ(ullLeft != 77 ? 0 : dwOther, codes[2]);
    }
    DWORD dwError = 1;
    EXPECT_TRUE(Reg::DeleteValue(kRoot, kPath, L"text", 0, &dwError));
    EXPECT_EQ(0U, dwError);
    EXPECT_FALSE(Reg::DeleteValue(kRoot, kPath, L"text", 0, &dwError));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, dwError);
}

}  // namespace
