#include "common/Frwk_Utility.h"
#include "common/KzComn_String.h"
#include "common/QorCommon_Touchpad.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;

TEST(Touchpad, VersionsAreComparedPartByPartAsNumbers)
{
    const struct {
        const wchar_t* szCurrent;
        const wchar_t* szMinimum;
        bool bOlder;
    } rows[] = {{L"10.2.0.2", L"10.2.0.3", true},
                {L"10.2.0.3", L"10.2.0.3", false},
                {L"10.10.0.1", L"10.9", false},
                {L"10.2", L"10.2.0.3", true},
                {L"10.2.0.3.1", L"10.2.0.3", false},
                {L"9.9.9.9", L"10", true},
                {L"11", L"10.2.0.3", false},
                {L"x.1", L"0.1", false},
                {L"-1", L"0", true},
                {L"...", L"1", true},
                {L"1", L"...", false}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.bOlder, QorCommon::IsDriverOlder(row.szCurrent, row.szMinimum))
            << KzCommon::String::ToUtf8(row.szCurrent) << " and " << KzCommon::String::ToUtf8(row.szMinimum);
    }
    const RecordedTrace trace;
    EXPECT_FALSE(QorCommon::IsDriverOlder(L"10.3.1", L"10.2.1"));
    EXPECT_THAT(trace.Messages(),
                ElementsAre("@@@ current_ver = 10, min_ver = 10", "@@@ current_ver = 3, min_ver = 2"));
}

class TouchpadTest : public RegistryTest {};

TEST_F(TouchpadTest, WithoutTouchpadTheMarkDecides)
{
    EXPECT_FALSE(QorCommon::IsETDExistAndDriverNotUpToDate()) << "no mark";
    const std::pair<RawValue, bool> rows[] = {
        {RawText(L"1"), true},   {RawText(L"yes"), false}, {RawText(L"0"), false},
        {RawText(L"11"), false}, {RawText(L" 1"), false},  {{REG_DWORD, std::string("\1\0\0\0", 4)}, false}};
    for (const auto& [value, bAffected] : rows) {
        WriteRaw(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, L"KeystrokeBlackList", value);
        EXPECT_EQ(bAffected, QorCommon::IsETDExistAndDriverNotUpToDate());
    }
}
