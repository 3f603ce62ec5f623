#include "agent/ComponentFiles.h"

#include "agent/QorDeployAgent.h"
#include "common/KzComn_File.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_Retry.h"
#include "support/watch/SystemWatch.h"
#include "unit/agent/AgentFixture.h"

#include <filesystem>
#include <fstream>

using namespace KzCommon;

namespace {

const std::wstring kProduct = L"Component\\c21t2103v0.0.0l1p1r1o1\\";
const std::wstring kResource = L"Component\\c21t2101v0.0.0l1p-1r1o1\\";

class ComponentFilesTest : public AgentTest {
protected:
    ComponentFilesTest() { m_run.paths.ReadProductFolders(); }

    bool CopyTree(const wchar_t* szFrom, bool bRecurse = true)
    {
        return CopyDirectory(m_run, m_install.PathOf(szFrom), L"*.*", m_install.Path(), bRecurse, true);
    }
    /// The delayed moves since the last call.
    [[nodiscard]] std::vector<std::wstring> Moves() { return std::exchange(m_watch.m_moves, {}); }
    /// Makes the calls of one function fail.
    void Fail(std::string_view strFunction, DWORD dwCode, const std::wstring& tstrPlaceEnd = L"")
    {
        m_watch.m_fault = [=](std::string_view strCall, const std::wstring& tstrPlace) {
            return strCall == strFunction && tstrPlace.ends_with(tstrPlaceEnd) ? dwCode : ERROR_SUCCESS;
        };
    }

    SystemWatch m_watch{m_install.Path()};
};

}  // namespace

// A system test on a whole machine checks all destinations of the packages.
TEST_F(ComponentFilesTest, PackagesAreCopiedInStepOrderEvenWithoutInstructions)
{
    const std::wstring tstrPackage = kProduct + L"64bit\\c21t2103v0.0.0l1p1r1o1\\", tstrShare = kProduct + L"Share\\";
    for (const std::wstring& tstrName : {kResource + L"f", tstrShare + L"Setting\\f", tstrShare + L"Resource\\sub\\f",
                                         tstrShare + L"UI\\f", tstrShare + L"UI\\sub\\f", tstrPackage + L"f"}) {
        m_install.Write(tstrName, "");
    }
    m_install.Write(tstrPackage + L"Driver\\k.sys", "new");
    m_install.Write(L"Driver\\k.sys", "old");
    FrameworkDeployAgent agent(m_machine);
    agent.DoPreAction();
    EXPECT_TRUE(agent.DoDeploy());
    agent.DoPostAction();
    const auto resource = EndsWith(L"l1p-1r1o1\\f > Resource\\f");
    EXPECT_THAT(Moves(), ElementsAre(EndsWith(L"l1p1r1o1\\f > f"), EndsWith(L"UI\\f > f"),
                                     EndsWith(L" > Resource\\sub\\f"), EndsWith(L"Setting\\f > f"), resource));
    EXPECT_EQ(m_install.Read(L"Driver\\k.sys"), "new");
    EXPECT_EQ(CountTraced(StartsWith("!!! Failed to do file copy. dest='C:\\k.sys', src='")), 1)
        << "refused outside the sandbox";

    std::vector<std::string> lines = m_trace.Messages();
    std::erase_if(lines, [](const std::string& strLine) { return !strLine.ends_with("failed. [0x00000002]"); });
    const std::string strLine = "!!! *** FrameworkDeployAgent::";
    EXPECT_THAT(lines, ElementsAre(StartsWith(strLine + "CreateDirBeforeReboot() - QueryValue "),
                                   StartsWith(strLine + "PatchRegistry() - QueryValue "),
                                   StartsWith(strLine + "MergeConfig() - QueryValue(QOR_CONFIG_MERGE) "),
                                   StartsWith(strLine + "ModifyUpdateInfo() - QueryValue "),
                                   StartsWith(strLine + "RemoveFileAfterReboot() - QueryValue "),
                                   StartsWith(strLine + "PostRunScript() - QueryValue ")));
    std::filesystem::remove_all(m_install.PathOf(kProduct));
    EXPECT_TRUE(agent.DoDeploy());
    EXPECT_THAT(Moves(), ElementsAre(resource)) << "the other package is missing";
    EXPECT_EQ(CountTraced(HasSubstr("[Enter] FrameworkDeployAgent::DeployProgramPackage()")), 1);
}

TEST_F(ComponentFilesTest, AWalkEntersFoldersInOrderAndDoesNotFollowLinks)
{
    for (const wchar_t* szName : {L"a", L"m\\b", L"m\\n\\c", L"z", L"~kzcomn-fffffff0-00.tmp"})
        m_install.Write(L"src\\" + std::wstring(szName), "");
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\m\\b > m\\b", L"src\\m\\n\\c > m\\n\\c", L"src\\z > z"));
    EXPECT_TRUE(CopyTree(L"src", false));
    EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\z > z"));
    EXPECT_TRUE(CopyTree(L"none"));
    EXPECT_THAT(m_trace.Messages(), Not(Contains(StartsWith("!!!"))));

    const std::string strLine = "!!! *** FrameworkDeployAgent::CopyDirectory() - [" + m_strInstall;
    m_watch.m_tstrLink = L"m";
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\z > z"));
    EXPECT_EQ(CountTraced(strLine + "src\\m] is a link and is not followed."), 1);
    m_watch.m_tstrLink = L"src";
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), IsEmpty());
    EXPECT_EQ(CountTraced(strLine + "src\\] is a link and is not followed."), 1);
    Fail("MoveFileExW", ERROR_DISK_FULL);
    m_watch.m_tstrLink = L"link";
    m_install.Write(L"link", "old");
    EXPECT_FALSE(Storage::File::Copy(m_install.PathOf(L"link"), m_install.Write(L"new", "new"), true, nullptr));
    EXPECT_EQ(m_install.Read(L"link"), "old") << "a link is never followed for writing";
}

// Files of an update are never copied through a folder where users can put a link: not now, not staged, not at the
// restart.
TEST_F(ComponentFilesTest, NothingIsCopiedWhereALinkLeadsElsewhere)
{
    const std::wstring tstrSource = m_install.Write(L"src\\sub\\a", "new");
    m_install.Write(L"src\\b", "new");
    m_install.Write(L"Link\\b", "old");
    m_install.MakeFolder(L"Link\\sub");
    m_watch.m_tstrLink = L"Link";
    EXPECT_TRUE(CopyDirectory(m_run, m_install.PathOf(L"src"), L"*.*", m_install.PathOf(L"Link"), true, false));
    EXPECT_TRUE(CopyDirectory(m_run, m_install.PathOf(L"src"), L"*.*", m_install.PathOf(L"Link"), true, true));
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, L"\\\\?\\" + m_install.PathOf(L"Link\\sub\\a")));
    EXPECT_THAT(Moves(), IsEmpty());
    const std::string strCopy = "!!! Failed to do file copy. dest='" + m_strInstall + "Link\\";
    const std::string strMove = "!!! ::MoveFileEx(" + m_strInstall + "src\\";
    EXPECT_THAT(m_trace.Messages(), IsSupersetOf({AllOf(StartsWith(strCopy + "b'"), EndsWith("error code=681")),
                                                  AllOf(StartsWith(strCopy + "sub\\a'"), EndsWith("error code=681"))}));
    EXPECT_EQ(CountTraced(AllOf(StartsWith(strMove), EndsWith(" failed: 0x000002A9"))), 3);

    DWORD dwError = 0;
    EXPECT_FALSE(Storage::File::Copy(m_install.PathOf(L"Link\\new"), tstrSource, false, &dwError)) << "staged, too";
    EXPECT_EQ(Storage::Directory::kStoppedOnLink, dwError);
    EXPECT_FALSE(Storage::File::Backup(m_install.PathOf(L"Link\\new"), tstrSource, &dwError));
    EXPECT_EQ(Storage::Directory::kStoppedOnLink, dwError);
    EXPECT_THAT(m_install.List(),
                ElementsAre(L"Link\\", L"Link\\b", L"Link\\sub\\", L"src\\", L"src\\b", L"src\\sub\\", L"src\\sub\\a"));
    EXPECT_EQ(m_install.Read(L"Link\\b"), "old");
}

TEST_F(ComponentFilesTest, AnUnlistableFolderIsTracedAndTheRestIsCopied)
{
    for (const wchar_t* szName : {L"src\\m\\b", L"src\\z"}) m_install.Write(szName, "");
    for (const DWORD dwCode : {ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED}) {
        Fail("FindFirstFileW", dwCode, L"\\m\\*.*");
        EXPECT_TRUE(CopyTree(L"src"));
        EXPECT_THAT(Moves(), ElementsAre(L"src\\z > z"));
    }
    EXPECT_EQ(CountTraced(StartsWith("!!! *** FrameworkDeployAgent::CopyDirectory() - ::FindFirstFile(" + m_strInstall +
                                     "src\\m\\")),
              2);
}

TEST_F(ComponentFilesTest, TheVolumeIsLookedUpOncePerFolderAndEveryFileGetsAWarning)
{
    for (const wchar_t* szName : {L"src\\a", L"src\\b"}) m_install.Write(szName, "");
    m_watch.m_tstrMountPoint = L"C:\\mnt\\";
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\b > b"));
    EXPECT_THAT(m_watch.m_volumeQuestions, ElementsAre(m_install.PathOf(L"src\\"), m_install.Path()));
    for (const char* szFile : {"src\\a", "a", "src\\b", "b"}) {
        EXPECT_EQ(CountTraced("!!! \"" + m_strInstall + szFile + "\" contains a volume mount point \"C:\\mnt\\\""), 1);
    }
    Fail("GetVolumePathNameW", ERROR_INVALID_FUNCTION);
    m_install.Write(L"other\\c", "");
    EXPECT_TRUE(CopyTree(L"other"));
    EXPECT_THAT(Moves(), ElementsAre(L"other\\c > c"));
    EXPECT_EQ(CountTraced("!!! ::GetVolumePathName(" + m_strInstall + "other\\c) failed: 1"), 1);
}

// The runtime finds no drive in the long form of a path, so the agent treats it as another drive.
TEST_F(ComponentFilesTest, AFileForAnotherDriveIsStagedUnderTheFirstFreeName)
{
    const std::wstring tstrSource = m_install.Write(L"src\\a", "new");
    const std::wstring tstrLong = L"\\\\?\\" + m_install.PathOf(L"a");
    const std::string strLong = String::ToUtf8(tstrLong);
    m_install.Write(L"a0", "taken");
    EXPECT_TRUE(CopyFileAfterReboot(m_run, tstrSource, tstrLong));
    EXPECT_THAT(Moves(), ElementsAre(L"\\\\?\\a1 > \\\\?\\a"));
    EXPECT_EQ(m_install.Read(L"a1"), "new");
    const std::string strName = "@@@ tsTempFileWithIndex: " + strLong;
    EXPECT_THAT(m_trace.Messages(),
                IsSupersetOf({std::string("@@@ copy to a different drive"), strName + "0", strName + "1",
                              "@@@ ::CopyFile(" + strLong + "0) failed: ERROR_ALREADY_EXISTS"}));

    // A refused move also deletes its staged copy, and keeps the package's file on its own drive.
    Fail("MoveFileExW", ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, tstrLong));
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, m_install.PathOf(L"b")));
    EXPECT_THAT(m_install.List(), ElementsAre(L"a0", L"a1", L"src\\", L"src\\a"));
    EXPECT_EQ(CountTraced(StartsWith("!!! ::MoveFileEx(" + strLong + "2, " + strLong + ") failed: 0x000005AA")), 1);

    {
        const UniqueFile held = Hold(L"src\\a");
        m_watch.m_bHurry = true;
        EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, tstrLong));
        EXPECT_EQ(m_watch.m_dwPausedMs, Storage::kInUseRepetitions * Storage::kHeldPauseMs)
            << "the agent waits once, not for each name";
    }
    m_trace.Clear();
    for (int iIndex = 0; iIndex < 100; ++iIndex) m_install.Write(L"a" + std::to_wstring(iIndex), "taken");
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, tstrLong));
    EXPECT_EQ(CountTraced("!!! could not create temp file"), 1);
    m_watch.m_fault = [](std::string_view strCall, const std::wstring& tstrPlace) {
        if (strCall != "CopyFileW") return ERROR_SUCCESS;
        std::ofstream(std::filesystem::path(tstrPlace)) << "half";
        return ERROR_DISK_FULL;
    };
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, L"\\\\?\\" + m_install.PathOf(L"c")));
    EXPECT_THAT(m_install.List(), Not(Contains(StartsWith(L"c")))) << "an incomplete copy is deleted";
    EXPECT_EQ(CountTraced("!!! could not create temp file"), 2);
    EXPECT_EQ(CountTraced(AllOf(StartsWith("!!! ::CopyFile("), EndsWith("failed: 0x00000070"))), 100)
        << "every name is tried after any failure";
}

// Windows leaves a read-only file as it is at the restart.
TEST_F(ComponentFilesTest, WhatAMoveReplacesIsNoLongerReadOnly)
{
    const std::wstring tstrNew = m_install.Write(L"src\\a", "new"), tstrOld = m_install.Write(L"a", "old");
    const std::string strStays =
        "!!! *** KzCommon::Storage::File - [" + m_strInstall + "a] stays read-only and is not replaced. [0x00000005]";
    struct Row {
        std::string_view strFails;
        DWORD dwCode;
        bool bMoves, bReadOnly;
        int iLines;
    };
    for (const Row& row : std::initializer_list<Row>{{"", ERROR_SUCCESS, true, false, 0},
                                                     {"MoveFileExW", ERROR_NO_SYSTEM_RESOURCES, false, true, 0},
                                                     {"SetFileAttributesW", ERROR_ACCESS_DENIED, true, true, 1}}) {
        ::SetFileAttributesW(tstrOld.c_str(), FILE_ATTRIBUTE_READONLY);
        Fail(row.strFails, row.dwCode);
        EXPECT_EQ(CopyFileAfterReboot(m_run, tstrNew, tstrOld), row.bMoves);
        Fail("", ERROR_SUCCESS);
        EXPECT_EQ(Moves().size(), row.bMoves ? 1U : 0U) << row.strFails;
        EXPECT_EQ((::GetFileAttributesW(tstrOld.c_str()) & FILE_ATTRIBUTE_READONLY) != 0, row.bReadOnly)
            << row.strFails;
        EXPECT_EQ(CountTraced(strStays), row.iLines) << row.strFails;
    }
    m_watch.m_tstrLink = L"Link";
    ::SetFileAttributesW(m_install.Write(L"Link\\a", "").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrNew, m_install.PathOf(L"Link\\a")));
    EXPECT_TRUE(::GetFileAttributesW(m_install.PathOf(L"Link\\a").c_str()) & FILE_ATTRIBUTE_READONLY);
}

TEST_F(ComponentFilesTest, UpdateInformationInUseIsADeploymentFailure)
{
    m_install.Write(kProduct + L"Share\\UI\\f", "x");
    m_install.Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\n");
    FrameworkDeployAgent agent(m_machine);
    {
        const UniqueFile held = Hold(L"UpdateInfo.ini");
        m_watch.m_bHurry = true;
        EXPECT_FALSE(agent.DoDeploy());
    }
    EXPECT_THAT(Moves(), IsEmpty());
    EXPECT_EQ(CountTraced("!!! *** PathValues::ReadDownloadPath() - [" + m_strInstall +
                          "UpdateInfo.ini] cannot be read. [0x00000020]"),
              2);
    EXPECT_TRUE(agent.DoDeploy());
    EXPECT_THAT(Moves(), ElementsAre(HasSubstr(L"Share\\UI\\f > f")));
    EXPECT_EQ(CountTraced(StartsWith("@@@ CDeployComponentsAction::CopyDirectory(")), 0)
        << "without settings nothing is copied";
    WriteProduct(L"ProductPath", L"");
    EXPECT_TRUE(agent.DoDeploy()) << "no folder is known and no file is in use";
}
