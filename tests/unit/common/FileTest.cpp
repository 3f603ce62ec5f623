#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

using namespace KzCommon::Storage;
using ::testing::ElementsAre;

namespace {

class FileTest : public ::testing::Test {
protected:
    TempFolder m_folder;
    DWORD m_dwError = ERROR_SUCCESS;
};

TEST_F(FileTest, ExistenceTellsFilesFromFolders)
{
    m_folder.Write(L"dir\\file", "");
    const std::pair<std::wstring, DWORD> rows[] = {{m_folder.PathOf(L"dir\\file"), ERROR_SUCCESS},
                                                   {m_folder.PathOf(L"dir"), ERROR_DIRECTORY},
                                                   {m_folder.PathOf(L"dir\\"), ERROR_DIRECTORY},
                                                   {m_folder.PathOf(L"dir\\none"), ERROR_FILE_NOT_FOUND},
                                                   {L"", ERROR_BAD_ARGUMENTS}};
    for (const auto& [tstrPath, dwCode] : rows) {
        m_dwError = ERROR_SUCCESS;
        EXPECT_EQ(dwCode == ERROR_SUCCESS, File::IsExisted(tstrPath, &m_dwError));
        EXPECT_EQ(dwCode, m_dwError) << KzCommon::String::ToUtf8(tstrPath);
        EXPECT_EQ(dwCode == ERROR_DIRECTORY, Directory::IsExisted(tstrPath)) << KzCommon::String::ToUtf8(tstrPath);
    }
}

TEST_F(FileTest, CopyReplacesOnlyWhenAsked)
{
    const std::wstring tstrSource = m_folder.Write(L"source", "new");
    const std::wstring tstrTarget = m_folder.Write(L"target", "old");
    EXPECT_FALSE(File::Copy(tstrTarget, tstrSource, false, &m_dwError));
    EXPECT_TRUE(m_dwError == ERROR_FILE_EXISTS || m_dwError == ERROR_ALREADY_EXISTS) << m_dwError;
    EXPECT_EQ("old", m_folder.Read(L"target"));
    EXPECT_TRUE(File::Copy(tstrTarget, tstrSource, true, &m_dwError));
    EXPECT_EQ("new", m_folder.Read(L"target"));
    for (const auto& [tstrTo, tstrFrom] : {std::pair(tstrTarget, L""), std::pair(std::wstring(), L"C:\\source")}) {
        EXPECT_FALSE(File::Copy(tstrTo, tstrFrom, true, &m_dwError));
        EXPECT_EQ(DWORD{ERROR_BAD_ARGUMENTS}, m_dwError);
    }
}

TEST_F(FileTest, FoldersAreCreatedWithTheirParents)
{
    m_folder.Write(L"file", "");
    const std::pair<std::wstring, bool> rows[] = {{m_folder.PathOf(L"a\\b\\c\\"), true},
                                                  {m_folder.PathOf(L"a\\b\\c"), true},
                                                  {L"C:\\", true},
                                                  {m_folder.PathOf(L"e\\\\f\\\\"), true},
                                                  {m_folder.PathOf(L"file\\g"), false},
                                                  {L"", false},
                                                  {L"Q:\\none\\such", false}};
    for (const auto& [tstrPath, bOk] : rows) {
        m_dwError = ERROR_SUCCESS;
        EXPECT_EQ(bOk, Directory::Create(tstrPath, nullptr, &m_dwError)) << KzCommon::String::ToUtf8(tstrPath);
        EXPECT_EQ(bOk, m_dwError == ERROR_SUCCESS) << m_dwError;
    }
    EXPECT_THAT(m_folder.List(), ElementsAre(L"a\\", L"a\\b\\", L"a\\b\\c\\", L"e\\", L"e\\f\\", L"file"));
}

TEST_F(FileTest, DeletingTriesAllThatMatchAndReportsTheFirstFailure)
{
    for (const wchar_t* szName : {L"1.txt", L"2.txt", L"3.txt", L"dir.txt\\4.txt", L"keep.log"}) {
        m_folder.Write(szName, "");
    }
    ::SetFileAttributesW(m_folder.PathOf(L"1.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    KzCommon::UniqueFile open(
        ::CreateFileW(m_folder.PathOf(L"2.txt").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_FALSE(Directory::DeleteFiles(m_folder.Path(), L"*.txt", &m_dwError));
    EXPECT_EQ(DWORD{ERROR_SHARING_VIOLATION}, m_dwError);
    EXPECT_THAT(m_folder.List(), ElementsAre(L"2.txt", L"dir.txt\\", L"dir.txt\\4.txt", L"keep.log"));
    open.Reset();
    EXPECT_TRUE(Directory::DeleteFiles(m_folder.Path(), L"*.txt", &m_dwError));
    EXPECT_FALSE(Directory::DeleteFiles(m_folder.Path(), L"*.txt", &m_dwError)) << "a folder is no file";
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_dwError);
}

}  // namespace
