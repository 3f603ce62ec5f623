#include "check/simulate/SimulatedMachine.h"
#include "support/RegistryFixture.h"

#include <gmock/gmock.h>

#include <regex>

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
    const std::string strText = std::regex_replace(std::string(R"(Windows Registry Editor Version 5.00

; comment
"Lost"="before any key"
[HKEY_LOCAL_MACHINE\SOFTWARE\Vault]
@="unnamed"
"Path"="C:\\a \"b\""
"Number" = dword:0000003C
"Long"=hex(b):01,00,00,00,00,00,00,80
"Parts"=hex(7):61,00,00,00,\
  62,00,00,00,00,00
"None"=hex:
"Gone"="x"
"gone"=-
"Bad"=dword:xyz
"Bad"=octal:01
"Open
[HKEY_LOCAL_MACHINE\SOFTWARE\Old]
"a"="b"
[-hkey_local_machine\Software\OLD]
"After"="removed"
[HKEY_ELSEWHERE\x])"),
                                                   std::regex("\n"), "\r\n");
    const std::wstring tstrText(strText.begin(), strText.end());
    const std::string strUtf16(reinterpret_cast<const char*>(tstrText.data()), tstrText.size() * 2);
    for (const std::string& strBytes : {strText, "\xEF\xBB\xBF" + strText, "\xFF\xFE" + strUtf16}) {
        SimulatedMachine machine(nullptr);
        EXPECT_THAT(machine.LoadRegistryText(strBytes), ElementsAre(4, 15, 16, 17, 21, 22));
        EXPECT_EQ(RawText(L"unnamed"), Stored(machine, L""));
        EXPECT_EQ(RawText(L"C:\\a \"b\""), Stored(machine, L"path"));
        EXPECT_EQ(RawNumber(60), Stored(machine, L"Number"));
        EXPECT_EQ(RawNumber(0x8000000000000001, REG_QWORD), Stored(machine, L"Long"));
        EXPECT_EQ(RawText(std::wstring(L"a\0b\0", 4), REG_MULTI_SZ), Stored(machine, L"Parts"));
        EXPECT_EQ((RawValue{REG_BINARY, ""}), Stored(machine, L"None"));
        EXPECT_EQ(std::nullopt, Stored(machine, L"Gone"));
        EXPECT_EQ(std::nullopt, Stored(machine, L"Bad"));
        EXPECT_FALSE(machine.HasKey({.tstrKeyPath = L"SOFTWARE\\Old", .tstrName = {}}));
    }
}
