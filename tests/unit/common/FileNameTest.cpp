#include "common/KzComn_FileName.h"
#include "common/KzComn_String.h"

#include <gtest/gtest.h>

using namespace KzCommon;

TEST(FileName, OnlyNamesThatStayInTheirFolderArePlain)
{
    for (const wchar_t* szName : {L"Kazmere Qorvault", L"a..b", L".hidden", L"CONsole", L"COM0", L"COM10"}) {
        EXPECT_TRUE(Storage::File::IsPlainName(szName)) << String::ToUtf8(szName);
    }
    for (const wchar_t* szName : {L"", L".", L"..", L".. .", L"  ", L"a\\b", L"..\\b", L"a/b", L"C:", L"a:stream",
                                  L"a*", L"a?", L"a\nb", L"a<", L"nul", L"NUL.txt", L"Com1", L"lpt9 .x", L"CONIN$"}) {
        EXPECT_FALSE(Storage::File::IsPlainName(szName)) << String::ToUtf8(szName);
    }
}
