#include "check/simulate/SimulatedMachine.h"
#include "support/RegistryFixture.h"

#include <gmock/gmock.h>

using namespace testing;
using namespace KzCommon;
using Check::SimulatedMachine;

namespace {

constexpr wchar_t kKey[] = L"SOFTWARE\\Vault";

std::optional<RawValue> Stored(const SimulatedMachine& machine, const std::wstring& tstrName)
{
    StoredValue value;
    if (!machine.ReadStored({.tstrKeyPath = kKey, .tstrName = tstrName}, value, nullptr)) return std::nullopt;
    return RawValue{value.dwType, value.strBytes};
}

}  // namespace

TEST(RegistryText, ValuesOfEveryTypeAreTakenAndUnknownLinesNamed)
{
    const std::string strText =
        "Windows Registry Editor Version 5.00\r\n\r\n"
        "; comment\r\n"
        "\"Lost\"=\"before any key\"\r\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vault]\r\n"
        "@=\"unnamed\"\r\n"
        "\"Path\"=\"C:\\\\a \\\"b\\\"\"\r\n"
        "\"Number\" = dword:0000003C\r\n"
        "\"Long\"=hex(b):01,00,00,00,00,00,00,80\r\n"
        "\"Parts\"=hex(7):61,00,00,00,\\\r\n  62,00,00,00,\\\r\n  00,00\r\n"
        "\"Bytes\"=hex:de,ad\r\n"
        "\"None\"=hex:\r\n"
        "\"Gone\"=\"x\"\r\n"
        "\"gone\"=-\r\n"
        "\"Bad\"=dword:xyz\r\n"
        "\"Open\r\n"
        "nonsense\r\n"
        "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Old]\r\n\"a\"=\"b\"\r\n"
        "[-hkey_local_machine\\Software\\OLD]\r\n"
        "\"After\"=\"removed\"\r\n"
        "[HKEY_ELSEWHERE\\x]";
    const std::wstring tstrText(strText.begin(), strText.end());
    const std::string strUtf16(reinterpret_cast<const char*>(tstrText.data()), tstrText.size() * 2);
    for (const std::string& strBytes : {strText, "\xEF\xBB\xBF" + strText, "\xFF\xFE" + strUtf16}) {
        SimulatedMachine machine(nullptr);
        EXPECT_THAT(machine.LoadRegistryText(strBytes), ElementsAre(4, 17, 18, 19, 23, 24));
        EXPECT_EQ(RawText(L"unnamed"), Stored(machine, L""));
        EXPECT_EQ(RawText(L"C:\\a \"b\""), Stored(machine, L"path"));
        EXPECT_EQ(RawNumber(60), Stored(machine, L"Number"));
        EXPECT_EQ(RawNumber(0x8000000000000001, REG_QWORD), Stored(machine, L"Long"));
        EXPECT_EQ(RawText(std::wstring(L"a\0b\0", 4), REG_MULTI_SZ), Stored(machine, L"Parts"));
        EXPECT_EQ((RawValue{REG_BINARY, "\xDE\xAD"}), Stored(machine, L"Bytes"));
        EXPECT_EQ((RawValue{REG_BINARY, ""}), Stored(machine, L"None"));
        EXPECT_EQ(std::nullopt, Stored(machine, L"Gone"));
        EXPECT_EQ(std::nullopt, Stored(machine, L"Bad"));
        EXPECT_FALSE(machine.HasKey({.tstrKeyPath = L"SOFTWARE\\Old", .tstrName = {}}));
    }
}
