#include "unit/agent/AgentFixture.h"

#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class FileOperationsTest : public AgentTest {};

TEST_F(FileOperationsTest, DeletesMatchingFilesNowReadOnlyOnesTooAndLeavesTheRest)
{
    for (const wchar_t* szName : {L"old\\a.dll", L"old\\b.dll", L"old\\c.txt", L"old\\sub\\d.dll"})
        m_install.Write(szName, "x");
    m_install.MakeFolder(L"old\\folder.dll");
    ::SetFileAttributesW(m_install.PathOf(L"old\\b.dll").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    m_agent.PerformFileOperation(L"{InstalledDir}old\\*.dll", op_file_delete_now);
    EXPECT_THAT(m_install.List(),
                ElementsAre(L"old\\", L"old\\c.txt", L"old\\folder.dll\\", L"old\\sub\\", L"old\\sub\\d.dll"));
}

TEST_F(FileOperationsTest, CreatesAFolderWithItsParents)
{
    m_agent.PerformFileOperation(L"{InstalledDir}a\\b\\c", op_dir_add);
    EXPECT_THAT(m_install.List(), ElementsAre(L"a\\", L"a\\b\\", L"a\\b\\c\\"));
    m_agent.PerformFileOperation(L"{InstalledDir}a\\b\\c", op_dir_add);
    EXPECT_EQ(
        CountTraced("@@@ Directory '" + KzCommon::String::ToUtf8(m_install.PathOf(L"a\\b\\c")) + "' is already there."),
        1);
}

TEST_F(FileOperationsTest, WhatCannotBeDoneLeavesItsLine)
{
    m_install.Write(L"file", "x");
    const std::string strInstall = KzCommon::String::ToUtf8(m_install.Path());
    const auto pathOf = [&](std::size_t cch) {
        return m_install.Path() + std::wstring(cch - m_install.Path().size(), L'p');
    };
    const struct {
        std::wstring tstrRecord;
        int iOp;
        std::string strTraced;
    } rows[] = {
        {L"", op_dir_add, "!!! PerformFileOperation(tszData==empty || tszData.size()>1023)"},
        {std::wstring(1024, L'x'), op_file_delete, "!!! PerformFileOperation(tszData==empty || tszData.size()>1023)"},
        {L"C:\\x", -1, "!!! PerformFileOperation(op<op_begin_file || op>op_end_file)"},
        {L"C:\\x", 5, "!!! PerformFileOperation(op<op_begin_file || op>op_end_file)"},
        {L"{InstalledDir}none", op_dir_delete, "!!! No files under directory '" + strInstall + "none'"},
        {L"{InstalledDir}file\\below", op_dir_add,
         "!!! Failed to create directory '" + strInstall + "file\\below', error = "},
        {L"{InstalledDir}*.none", op_file_delete_now,
         "!!! Failed to delete file '" + strInstall + "*.none', error = 2."},
        {L"{InstalledDir}no\\*.*", op_file_delete, "!!! Failed to delete file '" + strInstall + "no\\*.*', error = 3."},
        {pathOf(261), op_file_delete, "!!! _MAX_PATH<strPath.length() --> 261. Cnnot do further."},
        {pathOf(261), op_file_delete_now, "!!! _MAX_PATH<strPath.length() --> 261. Cannot do further."},
        {L"C:\\" + std::wstring(256, L'n'), op_file_delete_now, "!!! Failed to do _tsplitpath_s(), error code = 111."},
        {L"*.*", op_file_delete_now, "!!! Failed to delete file '*.*', error = 161."},
        {L"C:\\", op_dir_delete, "!!! Failed to delete file 'C:\\*', error = 161."},
        {L"new", op_dir_add, "!!! Failed to create directory 'new', error = 161."},
        {L"{InteractiveLogDir}*.log", op_file_delete, "!!! Failed to delete file '*.log', error = 161."},
    };
    for (const auto& row : rows) {
        m_trace.Clear();
        m_agent.PerformFileOperation(row.tstrRecord, row.iOp);
        EXPECT_THAT(m_trace.Messages(), Contains(HasSubstr(row.strTraced)));
    }
    EXPECT_THAT(m_install.List(), ElementsAre(L"file"));
}

// The delayed moves themselves are the system's; which path meets which reader is not.
TEST_F(FileOperationsTest, RemovalNeedsBothSections)
{
    m_install.Write(L"gone", "x");
    Instruct("[QOR_FILE]\r\ndelete_now={InstalledDir}gone\r\n");
    m_agent.RemoveFileAfterReboot();
    EXPECT_TRUE(m_install.Read(L"gone"));
    EXPECT_EQ(CountTraced("!!! *** FrameworkDeployAgent::RemoveFileAfterReboot() - QueryValue failed. [0x00000002]"),
              1);

    Instruct("[QOR_DIR]\r\nadd={InstalledDir}new\r\n[QOR_FILE]\r\ndelete_now=\\\r\ndelete_now={InstalledDir}gone\r\n");
    m_agent.RemoveFileAfterReboot();
    EXPECT_FALSE(m_install.Read(L"gone"));
    EXPECT_FALSE(KzCommon::Storage::Directory::IsExisted(m_install.PathOf(L"new")))
        << "folders are made by another operation";
}

}  // namespace
