#include "agent/ComponentFiles.h"

#include "agent/DeployFramework.h"
#include "common/KzComn_File.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_Retry.h"
#include "unit/agent/AgentFixture.h"

#include <fstream>

namespace {

const std::wstring kProduct = L"Component\\c21t2103v0.0.0l1p1r1o1\\";

class ComponentFilesTest : public WatchedAgentTest {
protected:
    ComponentFilesTest() { m_run.paths.ReadProductFolders(); }

    bool CopyTree(const wchar_t* szFrom, bool bRecurse = true)
    {
        return CopyDirectory(m_run, m_install.PathOf(szFrom), L"*.*", m_install.Path(), bRecurse, true);
    }
};

}  // namespace

TEST_F(ComponentFilesTest, AWalkEntersFoldersInOrderAndDoesNotFollowLinks)
{
    for (const wchar_t* szName : {L"a", L"m\\b", L"m\\n\\c", L"z", L"~kzcomn-fffffff0-00.tmp"})
        m_install.Write(L"src\\" + std::wstring(szName), "");
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\m\\b > m\\b", L"src\\m\\n\\c > m\\n\\c", L"src\\z > z"));
    EXPECT_TRUE(CopyTree(L"src", false));
    EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\z > z"));
    EXPECT_TRUE(CopyTree(L"none"));
    EXPECT_TRUE(CopyDirectory(m_run, m_install.PathOf(L"src"), L"*.*", L"", true, true));
    EXPECT_TRUE(CopyDirectory(m_run, L"", L"*.*", m_install.Path(), true, true));
    EXPECT_THAT(Moves(), IsEmpty());

    for (const DWORD dwCode : {ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED}) {
        m_watch.Fail("FindFirstFileW", dwCode, L"\\m\\*.*");
        EXPECT_TRUE(CopyTree(L"src"));
        EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\z > z")) << "the rest is copied";
    }
    m_watch.m_tstrLink = L"m";
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\z > z"));
    m_watch.m_tstrLink = L"src";
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), IsEmpty());
    m_watch.Fail("MoveFileExW", ERROR_DISK_FULL);
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
    m_install.Write(L"Link\\b", "old", FILE_ATTRIBUTE_READONLY);
    m_install.MakeFolder(L"Link\\sub");
    m_watch.m_tstrLink = L"Link";
    for (const bool bAfterReboot : {false, true})
        CopyDirectory(m_run, m_install.PathOf(L"src"), L"*.*", m_install.PathOf(L"Link"), true, bAfterReboot);
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, L"\\\\?\\" + m_install.PathOf(L"Link\\sub\\a")));
    EXPECT_THAT(Moves(), IsEmpty());
    DWORD dwError = 0;
    EXPECT_FALSE(Storage::File::Copy(m_install.PathOf(L"Link\\new"), tstrSource, false, &dwError)) << "staged, too";
    EXPECT_EQ(Storage::Directory::kStoppedOnLink, dwError);
    EXPECT_THAT(m_install.List(),
                ElementsAre(L"Link\\", L"Link\\b", L"Link\\sub\\", L"src\\", L"src\\b", L"src\\sub\\", L"src\\sub\\a"));
    EXPECT_EQ(m_install.Read(L"Link\\b"), "old");
    EXPECT_TRUE(m_install.Attributes(L"Link\\b") & FILE_ATTRIBUTE_READONLY);
}

TEST_F(ComponentFilesTest, TheVolumeIsLookedUpOncePerFolderAndEveryFileGetsAWarning)
{
    for (const wchar_t* szName : {L"src\\a", L"src\\b"}) m_install.Write(szName, "");
    m_watch.m_tstrMountPoint = L"C:\\mnt\\";
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(m_watch.m_volumeQuestions, ElementsAre(m_install.PathOf(L"src\\"), m_install.Path()));
    m_watch.Fail("GetVolumePathNameW", ERROR_INVALID_FUNCTION);
    m_install.Write(L"other\\c", "");
    EXPECT_TRUE(CopyTree(L"other"));
    EXPECT_THAT(Moves(), ElementsAre(L"src\\a > a", L"src\\b > b", L"other\\c > c"));
}

// The runtime finds no drive in the long form of a path, so the agent treats it as another drive.
TEST_F(ComponentFilesTest, AFileForAnotherDriveIsStagedUnderTheFirstFreeName)
{
    const std::wstring tstrSource = m_install.Write(L"src\\a", "new");
    const std::wstring tstrLong = L"\\\\?\\" + m_install.PathOf(L"a");
    m_install.Write(L"a0", "taken");
    EXPECT_TRUE(CopyFileAfterReboot(m_run, tstrSource, tstrLong));
    EXPECT_THAT(Moves(), ElementsAre(L"\\\\?\\a1 > \\\\?\\a"));
    EXPECT_EQ(m_install.Read(L"a1"), "new");

    std::wstring tstrSameDrive = tstrSource;
    tstrSameDrive.front() = static_cast<wchar_t>(::towlower(tstrSameDrive.front()));
    EXPECT_TRUE(CopyFileAfterReboot(m_run, tstrSameDrive, m_install.PathOf(L"b")));
    EXPECT_THAT(Moves(), ElementsAre(EndsWith(L"src\\a > b"))) << "not staged";

    // A refused move also deletes its staged copy, and keeps the package's file on its own drive.
    m_watch.Fail("MoveFileExW", ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, tstrLong));
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, m_install.PathOf(L"b")));
    EXPECT_THAT(m_install.List(), ElementsAre(L"a0", L"a1", L"src\\", L"src\\a"));
    m_watch.FailFirst("MoveFileExW", 3, ERROR_SHARING_VIOLATION);
    EXPECT_TRUE(CopyFileAfterReboot(m_run, tstrSource, m_install.PathOf(L"b"))) << "retried";
    {
        const UniqueFile held = Hold(L"src\\a");
        m_watch.m_dwPausedMs = 0;
        EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, tstrLong));
        EXPECT_EQ(m_watch.m_dwPausedMs, Storage::kInUseRepetitions * Storage::kHeldPauseMs) << "once for all names";
    }
    for (int iIndex = 0; iIndex < 100; ++iIndex) m_install.Write(L"a" + std::to_wstring(iIndex), "taken");
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, tstrLong));
    m_watch.m_fault = [](std::string_view strCall, const std::wstring& tstrPlace) {
        if (strCall != "CopyFileW") return ERROR_SUCCESS;
        std::ofstream(fs::path(tstrPlace)) << "half";
        return tstrPlace.ends_with(L'1') ? ERROR_HANDLE_DISK_FULL : ERROR_DISK_FULL;
    };
    EXPECT_FALSE(CopyFileAfterReboot(m_run, tstrSource, L"\\\\?\\" + m_install.PathOf(L"c")));
    EXPECT_THAT(m_install.List(), Not(Contains(StartsWith(L"c")))) << "an incomplete copy is deleted";
}

TEST_F(ComponentFilesTest, UpdateInformationInUseIsADeploymentFailureAndTheLastPhaseStillRuns)
{
    m_install.Write(kProduct + L"Share\\UI\\f", "x");
    m_install.Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\n");
    Instruct("[QOR_DIR]\nadd={InstalledDir}made\n[Run]\nSysRunOnce=a.exe\n");
    const std::wstring tstrSettings = L"SOFTWARE\\Kazmere\\KZVLT";
    {
        const UniqueFile held = Hold(L"UpdateInfo.ini");
        EXPECT_FALSE(DeployFramework(m_machine));
    }
    EXPECT_THAT(Moves(), IsEmpty());
    EXPECT_THAT(m_install.List(), Contains(L"made\\"));
    EXPECT_THAT(RunOnceCommands(), ElementsAre(L"a.exe"));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, tstrSettings, L"DoUpdateDeploy"), RawNumber(1));
    EXPECT_TRUE(DeployFramework(m_machine));
    EXPECT_THAT(Moves(), ElementsAre(HasSubstr(L"Share\\UI\\f > f")));
    m_watch.Fail("RegCreateKeyExW", ERROR_NOT_READY);
    EXPECT_TRUE(DeployFramework(m_machine)) << "without its flags";
    WriteProduct(L"ProductPath", L"");
    EXPECT_TRUE(DeployFramework(m_machine)) << "no folder is known and no file is in use";
}
