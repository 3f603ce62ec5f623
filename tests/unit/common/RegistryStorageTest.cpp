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

}  // namespace
