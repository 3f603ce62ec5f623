#include "check/start/NewUpdate.h"
#include "check/start/StarterFiles.h"

#include "common/KzComn_String.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

#include <map>

using namespace testing;
using namespace Check;

namespace {

/// The files of a new update; their UTF-16 as UTF-8 after a "U+FEFF".
std::map<std::wstring, std::string> Made(const NewNames& names)
{
    std::map<std::wstring, std::string> files;
    for (const NewFile& file : MakeNewUpdate(names)) {
        std::string strText = file.strBytes;
        if (strText.starts_with("\xFF\xFE")) {
            strText = KzCommon::String::ToUtf8(
                {reinterpret_cast<const wchar_t*>(file.strBytes.data()), file.strBytes.size() / sizeof(wchar_t)});
        }
        EXPECT_TRUE(files.emplace(file.tstrPath, strText).second) << KzCommon::String::ToUtf8(file.tstrPath);
    }
    return files;
}

}  // namespace

TEST(NewUpdateTest, TheStartersOwnNamesGiveTheStarter)
{
    std::map<std::wstring, std::string> files;
    for (const NewFile& file : MakeNewUpdate({})) files[file.tstrPath] = file.strBytes;
    ASSERT_FALSE(StarterFiles().empty());
    EXPECT_EQ(files.size(), StarterFiles().size());
    for (const StarterFile& file : StarterFiles()) {
        EXPECT_EQ(files[file.tstrPath], file.strBytes) << KzCommon::String::ToUtf8(file.tstrPath);
    }
}

TEST(NewUpdateTest, EveryNameIsFilledIn)
{
    const std::wstring kProduct = L"update\\Component\\c21t2103v12.0.3l1p1r1o1\\";
    const std::wstring kSetting = kProduct + L"Share\\Setting\\";
    // The product's name looks like a version, which is no reason to fill in again.
    auto files = Made({L"A & B 3.9.3.1140", L"12.0.3.0", {L"FR-FR", L"de-DE", L"DE-DE-1996"}});
    for (const auto& [tstrPath, strText] : files) {
        const std::string strPath = KzCommon::String::ToUtf8(tstrPath);
        EXPECT_THAT(strPath, Not(AnyOf(HasSubstr("3.9.3"), HasSubstr("EN-US")))) << strPath;
        EXPECT_THAT(strText, Not(AnyOf(HasSubstr("Kazmere Qorvault"), HasSubstr("1139"), HasSubstr("EN-US"))))
            << strPath;
    }
    EXPECT_THAT(files[kProduct + L"64bit\\c21t2103v12.0.3l1p1r1o1\\Qorvault.cmd"], HasSubstr("rem 12.0.3.0:"));
    EXPECT_THAT(files[kSetting + L"qorshcut_FR-FR.xml"],
                HasSubstr("\"Opens your passwords\" arg=\"\">A &amp; B 3.9.3.1140<"));
    EXPECT_THAT(files[L"installed\\registry.reg"],
                HasSubstr("\"Version\"=\"12.0.2.0\"\r\n\"ProductName\"=\"A & B 3.9.3.1140\"\r\n"
                          "\"Language\"=\"FR-FR\"\r\n"));
    EXPECT_THAT(files[L"update\\Component\\c21t2101v12.0.3l1p-1r1o1\\DE-DE-1996\\StringTable.ini"],
                HasSubstr("Toolbar\r\n"));
    EXPECT_THAT(files[L"update\\QorPaFrwk.ini"],
                AllOf(HasSubstr("Version!12.0.3.0\r\n"),
                      EndsWith("\r\n\r\n[RestartNotification_FR-FR]\r\ntext=A & B 3.9.3.1140\r\n"
                               "text=Please restart the computer to finish the update.\r\n"
                               "\r\n[RestartNotification_de-DE]\r\ntext=A & B 3.9.3.1140\r\n"
                               "text=Please restart the computer to finish the update.\r\n"
                               "\r\n[RestartNotification_DE-DE-1996]\r\ntext=A & B 3.9.3.1140\r\n"
                               "text=Please restart the computer to finish the update.\r\n")));

    files = Made({L"X", L"1.0.0.0", {L"DE-DE"}});
    EXPECT_THAT(files[kSetting], IsEmpty());
    EXPECT_THAT(files[L"update\\Component\\c21t2101v1.0.0l1p-1r1o1\\DE-DE\\StringTable.ini"],
                HasSubstr("=X-Schl\xC3\xBCsselleiste\r\n"));
    EXPECT_THAT(files[L"update\\UpdateInfo.ini"], HasSubstr("Component101_Version=0.0.0.0\r\n"));
}

TEST(NewUpdateTest, NamesThatCannotBeUsed)
{
    const NewNames good;
    EXPECT_EQ(FaultOf(good), L"");
    EXPECT_EQ(FaultOf({L"Söhne & Co. (1)", L"65535.0.0.0", {L"ZH-HANT-TW", L"ENG"}}), L"");
    for (const wchar_t* szProduct : {L"", L" a", L"a ", L"a.", L"a\\b", L"a:b", L"a\"b", L"a\nb"}) {
        EXPECT_THAT(FaultOf({szProduct, good.tstrVersion, good.languages}), StartsWith(L"--product: "));
    }
    EXPECT_THAT(FaultOf({std::wstring(65, L'x'), good.tstrVersion, good.languages}), StartsWith(L"--product: "));
    for (const wchar_t* szVersion : {L"", L"3.9", L"3.9.3", L"3.9.3.1.2", L"3.9.3.x", L"3..9.3.1", L"3.9.3.01",
                                     L"3.9.3.65536", L"0.0.0.0", L"-1.0.0.0"}) {
        EXPECT_THAT(FaultOf({good.tstrProduct, szVersion, good.languages}), StartsWith(L"--version: "));
    }
    for (const wchar_t* szLanguage : {L"E", L"ENGL", L"EN-", L"EN_US", L"EN-U", L"\x00C4N-US", L"EN-US\\..", L"1N"}) {
        EXPECT_THAT(FaultOf({good.tstrProduct, good.tstrVersion, {szLanguage}}),
                    EndsWith(L"is no language, such as EN-US"));
    }
    EXPECT_THAT(FaultOf({good.tstrProduct, good.tstrVersion, {L"EN-US", L"en-us"}}), EndsWith(L"is there twice"));
}

TEST(NewUpdateTest, OnlyAFolderWithoutFilesIsTaken)
{
    const TempFolder folder;
    Arguments arguments;
    arguments.languages = {L"EN-US"};
    arguments.operands = {folder.PathOf(L"a\\b\\")};
    Output output;
    EXPECT_EQ(RunNew(arguments, output), kClean);
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
