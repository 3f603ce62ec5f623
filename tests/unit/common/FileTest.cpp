#include "common/KzComn_File.h"
#include "common/KzComn_FileName.h"
#include "common/KzComn_String.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

using namespace KzCommon;
using namespace KzCommon::Storage;
using ::testing::ElementsAre;

TEST(File, FoldersAreCreatedWithTheirParents)
{
    const TempFolder folder;
    folder.Write(L"dir\\file", "");
    const std::tuple<std::wstring, bool, DWORD> rows[] = {// clang-format off
        {folder.PathOf(L"a\\b\\"), true, ERROR_DIRECTORY}, {folder.PathOf(L"a\\b"), true, ERROR_DIRECTORY},
        {folder.PathOf(L"e\\\\f\\\\"), true, ERROR_DIRECTORY}, {L"C:\\", true, ERROR_DIRECTORY},
        {folder.PathOf(L"dir\\file"), false, 0}, {folder.PathOf(L"dir\\file\\g"), false, ERROR_PATH_NOT_FOUND},
        {L"Q:\\none\\such", false, ERROR_PATH_NOT_FOUND}, {L"", false, ERROR_BAD_ARGUMENTS}};  // clang-format on
    for (const auto& [tstrPath, bCreated, dwExists] : rows) {
        DWORD dwError = 0;
        EXPECT_EQ(bCreated, Directory::Create(tstrPath, nullptr, &dwError)) << String::ToUtf8(tstrPath);
        EXPECT_EQ(bCreated, dwError == 0);
        dwError = 0;
        EXPECT_EQ(dwExists == 0, File::IsExisted(tstrPath, &dwError)) << String::ToUtf8(tstrPath);
        EXPECT_EQ(dwExists, dwError) << String::ToUtf8(tstrPath);
        EXPECT_EQ(bCreated, Directory::IsExisted(tstrPath)) << String::ToUtf8(tstrPath);
    }
    EXPECT_THAT(folder.List(), ElementsAre(L"a\\", L"a\\b\\", L"dir\\", L"dir\\file", L"e\\", L"e\\f\\"));
}

TEST(File, WholeDrivesAndSharesAreRecognized)
{
    // A path, the length of its drive or share, and whether that is the whole path.
    const std::tuple<const wchar_t*, std::size_t, bool> rows[] = {
        // clang-format off
        {L"C:\\", 2, true}, {L"C:\\a", 2, false}, {L"C:\\a\\..", 2, true}, {L"C:/", 2, true},
        {L"\\\\s\\h", 5, true}, {L"\\\\s\\h\\", 5, true}, {L"\\\\s", 3, true}, {L"\\\\s\\h\\a", 5, false},
        {L"\\\\?\\C:\\", 6, true}, {L"\\\\?\\C:\\a", 6, false}, {L"\\\\?\\UNC\\s\\h\\", 11, true},
        {L"\\\\?\\UNC\\s\\h\\a\\b", 11, false}};  // clang-format on
    for (const auto& [szPath, cchRoot, bRoot] : rows) {
        SCOPED_TRACE(String::ToUtf8(szPath));
        EXPECT_EQ(cchRoot, Directory::RootLength(Directory::FullPath(szPath)));
        EXPECT_EQ(bRoot, Directory::IsRoot(szPath));
    }
}

TEST(File, OnlyNamesThatStayInTheirFolderArePlain)
{
    const wchar_t* const plain[] = {L"Kazmere Qorvault", L"a..b", L".hidden", L"CONsole", L"COM0", L"COM10"};
    const wchar_t* const others[] = {
        // clang-format off
        L"", L".", L"..", L".. .", L"  ", L"a\\b", L"..\\b", L"a/b", L"C:", L"a:stream", L"a*", L"a?", L"a\nb", L"a<",
        L"nul", L"NUL.txt", L"Com1", L"lpt9 .x", L"COM\u00B9", L"CONIN$"};  // clang-format on
    for (const wchar_t* szName : plain) EXPECT_TRUE(File::IsPlainName(szName)) << String::ToUtf8(szName);
    for (const wchar_t* szName : others) EXPECT_FALSE(File::IsPlainName(szName)) << String::ToUtf8(szName);
}
