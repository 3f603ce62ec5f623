#include "common/QorCommon_Touchpad.h"

#include <gtest/gtest.h>

TEST(Touchpad, VersionsAreComparedPartByPartAsNumbers)
{
    const std::tuple<const wchar_t*, const wchar_t*, bool> rows[] = {// clang-format off
        {L"10.2.0.2", L"10.2.0.3", true}, {L"10.2.0.3", L"10.2.0.3", false}, {L"10.10.0.1", L"10.9", false},
        {L"10.2", L"10.2.0.3", true}, {L"10.2.0.3.1", L"10.2.0.3", false}, {L"9.9.9.9", L"10", true},
        {L"x.1", L"0.1", false}, {L"-1", L"0", true}, {L"...", L"1", true}, {L"1", L"...", false}};  // clang-format on
    for (const auto& [szCurrent, szMinimum, bOlder] : rows) {
        EXPECT_EQ(bOlder, QorCommon::IsDriverOlder(szCurrent, szMinimum)) << szCurrent << szMinimum;
    }
}
