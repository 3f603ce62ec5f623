#include "check/start/NewUpdate.h"

#include "common/KzComn_String.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

using namespace testing;
using namespace Check;

TEST(NewUpdateTest, NoNameOfTheStarterIsLeft)
{
    // The product's name looks like a version, which is no reason to fill in again.
    std::string strAll;
    for (const NewFile& file : MakeNewUpdate({L"A & B 3.9.3.1140", L"12.0.3.0", {L"FR-FR", L"de-DE", L"DE-DE-1996"}})) {
        strAll += "\n" + KzCommon::String::ToUtf8(file.tstrPath) + "\n" + file.strBytes;
    }
    std::erase(strAll, '\0');  // of UTF-16
    for (const char* const szOld : {"3.9.3\\", "3.9.3l", "Kazmere Qorvault", "1139", "EN-US"})
        EXPECT_THAT(strAll, Not(HasSubstr(szOld)));
    for (const char* const szNew :
         {"rem 12.0.3.0:", "arg=\"\">A &amp; B 3.9.3.1140<", "<title>A &amp; B 3.9.3.1140</",
          "\"Version\"=\"12.0.2.0\"\r\n\"ProductName\"=\"A & B 3.9.3.1140\"", "\"Language\"=\"FR-FR\"",
          "p-1r1o1\\DE-DE-1996\\StringTable.ini\n", "Version!12.0.3.0\r\n",
          "\r\n\r\n[RestartNotification_de-DE]\r\ntext=A & B 3.9.3.1140\r\ntext=Please restart the computer to finish"})
        EXPECT_THAT(strAll, HasSubstr(szNew));
}

TEST(NewUpdateTest, NamesThatCannotBeUsed)
{
    const NewNames good;
    EXPECT_EQ(FaultOf(good), L"");
    EXPECT_EQ(FaultOf({L"Söhne & Co. (1)" + std::wstring(49, L'x'), L"65535.0.0.0", {L"ZH-HANT-TW", L"ENG-12345678"}}),
              L"");
    for (const wchar_t* szProduct : {L"", L" a", L"a ", L"a.", L"a\\b", L"a:b", L"a\"b", L"a\nb"}) {
        EXPECT_THAT(FaultOf({szProduct, good.tstrVersion, good.languages}), StartsWith(L"--product: "));
    }
    EXPECT_THAT(FaultOf({std::wstring(65, L'x'), good.tstrVersion, good.languages}), StartsWith(L"--product: "));
    for (const wchar_t* szVersion : {L"", L"3.9", L"3.9.3", L"3.9.3.1.2", L"3.9.3.x", L"3..9.3.1", L"3.9.3.01",
                                     L"3.9.3.65536", L"0.0.0.0", L"-1.0.0.0"}) {
        EXPECT_THAT(FaultOf({good.tstrProduct, szVersion, good.languages}), StartsWith(L"--version: "));
    }
    for (const wchar_t* szLanguage :
         {L"E", L"ENGL", L"EN-", L"EN_US", L"EN-U", L"\x00C4N-US", L"EN-US\\..", L"1N", L"EN-123456789"}) {
        EXPECT_THAT(FaultOf({good.tstrProduct, good.tstrVersion, {szLanguage}}),
                    EndsWith(L"is no language, such as EN-US"));
    }
    EXPECT_THAT(FaultOf({good.tstrProduct, good.tstrVersion, {L"EN-US", L"en-us"}}), EndsWith(L"is there twice"));
}

TEST(NewUpdateTest, OnlyAFolderWithoutFilesIsTaken)
{
    const TempFolder folder;
    Arguments arguments;
    arguments.languages = {L"EN-US", L"FR-FR"};
    arguments.operands = {folder.PathOf(L"a\\b\\")};
    Output output;
    EXPECT_EQ(RunNew(arguments, output), kClean);
    EXPECT_THAT(output.strText, HasSubstr("the texts of FR-FR are"));
    EXPECT_THAT(folder.List(), Contains(L"a\\b\\update\\QorPaFrwk.ini"));
    const auto before = folder.List();
    for (const wchar_t* szName : {L"a", L"a\\b", L"a\\b\\README.md", L"a\\b\\README.md\\c"}) {
        arguments.operands = {folder.PathOf(szName)};
        Output refused;
        EXPECT_EQ(RunNew(arguments, refused), kCannotRead) << szName;
        EXPECT_THAT(refused.tstrErrors, HasSubstr(szName));
        EXPECT_EQ(refused.strText, "");
    }
    EXPECT_EQ(folder.List(), before);
}
