#include "common/KzComn_FileName.h"
#include "common/KzComn_String.h"

#include <gtest/gtest.h>

TEST(FileName, OnlyNamesThatStayInTheirFolderArePlain)
{
    using namespace std::string_view_literals;
    const std::pair<std::wstring_view, bool> rows[] = {
        {L"Kazmere Qorvault", true},
        {L"a..b", true},
        {L".hidden", true},
        {L"CONsole", true},
        {L"COM0", true},
        {L"", false},
        {L".", false},
        {L"..", false},
        {L".. .", false},
        {L"  ", false},
        {L"a\\b", false},
        {L"..\\b", false},
        {L"a/b", false},
        {L"C:", false},
        {L"a:stream", false},
        {L"a*", false},
        {L"a?", false},
        {L"a\nb", false},
        {L"a\0b"sv, false},
        {L"a<", false},
        {L"nul", false},
        {L"NUL.txt", false},
        {L"Com1", false},
        {L"lpt9 .x", false},
        {L"CONIN$", false},
    };
    for (const auto& [tstrName, bPlain] : rows) {
        EXPECT_EQ(bPlain, KzCommon::Storage::File::IsPlainName(tstrName)) << KzCommon::String::ToUtf8(tstrName);
    }
}
