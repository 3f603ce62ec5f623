#include "agent/ComponentFiles.h"

#include "agent/QorDeployAgent.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Process.h"
#include "support/watch/SystemWatch.h"
#include "unit/agent/AgentFixture.h"

using namespace KzCommon;

namespace {

const std::wstring kProduct = L"Component\\c21t2103v0.0.0l1p1r1o1\\";
const std::wstring kResource = L"Component\\c21t2101v0.0.0l1p-1r1o1\\";

class ComponentFilesTest : public AgentTest {
protected:
    ComponentFilesTest() { m_paths.ReadProductFolders(); }

    bool CopyTree(const wchar_t* szFrom, bool bRecurse = true)
    {
        return CopyDirectory(m_paths, m_install.PathOf(szFrom), L"*.*", m_install.Path(), bRecurse, true);
    }
    /// The delayed moves since the last call, "source > destination", the install folder left out.
    [[nodiscard]] std::vector<std::string> Moves()
    {
        std::vector<std::string> moves;
        for (; m_cMoves < m_watch.DelayedMoves().size(); ++m_cMoves) {
            const DelayedMove& move = m_watch.DelayedMoves()[m_cMoves];
            std::wstring tstrText = move.tstrSource + L" > " + move.tstrDestination;
            String::ReplaceAll(tstrText, m_install.Path(), L"");
            moves.push_back(String::ToUtf8(tstrText));
        }
        return moves;
    }
    [[nodiscard]] auto Traced(const std::string& strStart) const
    {
        const std::vector<std::string> messages = m_trace.Messages();
        return std::count_if(messages.begin(), messages.end(),
                             [&](const std::string& strLine) { return strLine.starts_with(strStart); });
    }

    const std::string m_strInstall = String::ToUtf8(m_install.Path());
    const SystemWatch m_watch{m_install.Path()};
    std::size_t m_cMoves = 0;
};

}  // namespace

TEST_F(ComponentFilesTest, EveryFolderOfBothPackagesGoesToItsPlaceInTheStepsOrder)
{
    const std::wstring tstrPackage = kProduct + L"64bit\\c21t2103v0.0.0l1p1r1o1\\";
    const std::wstring tstrAppData = Process::CommonAppDataFolder() + L"Kazmere\\KZVLT\\Engine\\Preload\\";
    struct {
        std::wstring tstrFolder, tstrDestination;
        bool bRecurse;
    } rows[] = {// clang-format off
        {tstrPackage, L"", false}, {kProduct + L"Engine\\Preload\\", tstrAppData, false},
        {kProduct + L"Share\\Engine\\", L"", false}, {kProduct + L"Share\\Patterns\\", L"Patterns\\", false},
        {kProduct + L"Share\\7-Zip\\", L"", true}, {kProduct + L"Share\\QorFirefoxExt\\", L"QorFirefoxExt\\", true},
        {kProduct + L"Share\\QorNativeMessaging\\", L"QorNativeMessaging\\", false},
        {kProduct + L"Share\\QorIEExt\\", L"", false}, {kProduct + L"Share\\UI\\", L"", false},
        {kProduct + L"Share\\Resource\\", L"Resource\\", true}, {kProduct + L"Share\\Task\\", L"Task\\", true},
        {kProduct + L"Share\\Setting\\", L"", true}, {kResource, L"Resource\\", true}};  // clang-format on
    std::vector<std::string> expected;
    for (const auto& row : rows) {
        for (const wchar_t* szName : {L"f", L"sub\\g"}) {
            m_install.Write(row.tstrFolder + szName, "x");
            if (*szName == L's' && !row.bRecurse) continue;
            expected.push_back(String::ToUtf8(row.tstrFolder + szName + L" > " + row.tstrDestination + szName));
        }
    }
    m_install.Write(tstrPackage + L"Driver\\k.sys", "new");
    m_install.Write(L"Driver\\k.sys", "old");

    FrameworkDeployAgent agent;
    EXPECT_TRUE(agent.DoDeploy());
    EXPECT_EQ(Moves(), expected);
    EXPECT_EQ(m_install.Read(L"Driver\\k.sys"), "new");
    EXPECT_EQ(Traced("!!! Failed to do file copy. dest='C:\\k.sys', src='"), 1) << "outside the sandbox it is refused";
}

TEST_F(ComponentFilesTest, AWalkEntersAFolderWhenItMeetsItAndDoesNotFollowLinks)
{
    for (const wchar_t* szName : {L"a", L"m\\b", L"m\\n\\c", L"z"})
        m_install.Write(L"src\\" + std::wstring(szName), "");
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), ElementsAre("src\\a > a", "src\\m\\b > m\\b", "src\\m\\n\\c > m\\n\\c", "src\\z > z"));
    EXPECT_TRUE(CopyTree(L"src", false));
    EXPECT_THAT(Moves(), ElementsAre("src\\a > a", "src\\z > z"));
    EXPECT_TRUE(CopyTree(L"none"));
    EXPECT_THAT(m_trace.Messages(), Not(Contains(StartsWith("!!!"))));

    const std::string strLine = "!!! *** FrameworkDeployAgent::CopyDirectory() - [" + m_strInstall;
    m_watch.SetLink(L"m");
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), ElementsAre("src\\a > a", "src\\z > z"));
    EXPECT_EQ(CountTraced(strLine + "src\\m] is a link and is not followed."), 1);
    m_watch.SetLink(L"src");
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), IsEmpty());
    EXPECT_EQ(CountTraced(strLine + "src\\] is a link and is not followed."), 1);
}

TEST_F(ComponentFilesTest, AFolderThatCannotBeListedLeavesItsLineAndTheRestIsCopied)
{
    for (const wchar_t* szName : {L"src\\m\\b", L"src\\z"}) m_install.Write(szName, "");
    for (const DWORD dwCode : {ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED}) {
        m_watch.SetFault([&](std::string_view strCall, const std::wstring& tstrPlace) {
            return strCall == "FindFirstFileW" && tstrPlace.ends_with(L"\\m\\*.*") ? dwCode : ERROR_SUCCESS;
        });
        EXPECT_TRUE(CopyTree(L"src"));
        EXPECT_THAT(Moves(), ElementsAre("src\\z > z"));
    }
    EXPECT_EQ(Traced("!!! *** FrameworkDeployAgent::CopyDirectory() - ::FindFirstFile(" + m_strInstall + "src\\m\\"),
              2);
}

TEST_F(ComponentFilesTest, TheVolumeIsAskedOncePerFolderAndWarnedOfForEveryFile)
{
    for (const wchar_t* szName : {L"src\\a", L"src\\b"}) m_install.Write(szName, "");
    m_watch.SetMountPoint(L"C:\\mnt\\");
    EXPECT_TRUE(CopyTree(L"src"));
    EXPECT_THAT(Moves(), ElementsAre("src\\a > a", "src\\b > b"));
    EXPECT_THAT(m_watch.VolumeQuestions(), ElementsAre(m_install.PathOf(L"src\\"), m_install.Path()));
    for (const char* szFile : {"src\\a", "a", "src\\b", "b"}) {
        EXPECT_EQ(CountTraced("!!! \"" + m_strInstall + szFile + "\" contains a volume mount point \"C:\\mnt\\\""), 1);
    }
    m_watch.SetFault([](std::string_view strCall, const std::wstring&) -> DWORD {
        return strCall == "GetVolumePathNameW" ? ERROR_INVALID_FUNCTION : ERROR_SUCCESS;
    });
    m_install.Write(L"other\\c", "");
    EXPECT_TRUE(CopyTree(L"other"));
    EXPECT_THAT(Moves(), ElementsAre("other\\c > c"));
    EXPECT_EQ(CountTraced("!!! ::GetVolumePathName(" + m_strInstall + "other\\c) failed: 1"), 1);
}

// The runtime finds no drive in the long form of a path: to the agent it lies on another one.
TEST_F(ComponentFilesTest, AFileForAnotherDriveIsStagedUnderTheFirstFreeName)
{
    const std::wstring tstrSource = m_install.Write(L"src\\a", "new");
    const std::wstring tstrLong = L"\\\\?\\" + m_install.PathOf(L"a");
    const std::string strLong = String::ToUtf8(tstrLong);
    m_install.Write(L"a0", "taken");
    EXPECT_TRUE(CopyFileAfterReboot(m_paths, tstrSource, tstrLong));
    EXPECT_THAT(Moves(), ElementsAre("\\\\?\\a1 > \\\\?\\a"));
    EXPECT_EQ(m_install.Read(L"a1"), "new");
    EXPECT_EQ(CountTraced("@@@ ::CopyFile(" + strLong + "0) failed: ERROR_ALREADY_EXISTS"), 1);

    // A move that is refused takes its staged copy with it, and leaves the file of the package on its own drive.
    m_watch.SetFault([](std::string_view strCall, const std::wstring&) -> DWORD {
        return strCall == "MoveFileExW" ? ERROR_NO_SYSTEM_RESOURCES : ERROR_SUCCESS;
    });
    EXPECT_FALSE(CopyFileAfterReboot(m_paths, tstrSource, tstrLong));
    EXPECT_FALSE(CopyFileAfterReboot(m_paths, tstrSource, m_install.PathOf(L"b")));
    EXPECT_THAT(m_install.List(), ElementsAre(L"a0", L"a1", L"src\\", L"src\\a"));
    EXPECT_EQ(Traced("!!! ::MoveFileEx(" + strLong + "2, " + strLong + ") failed: 0x000005AA"), 1);

    for (int iIndex = 0; iIndex < 100; ++iIndex) m_install.Write(L"a" + std::to_wstring(iIndex), "taken");
    EXPECT_FALSE(CopyFileAfterReboot(m_paths, tstrSource, tstrLong));
    EXPECT_EQ(CountTraced("!!! could not create temp file"), 1);
    EXPECT_FALSE(CopyFileAfterReboot(m_paths, m_install.PathOf(L"none"), L"\\\\?\\" + m_install.PathOf(L"c")));
    EXPECT_EQ(CountTraced("!!! could not create temp file"), 2);
    EXPECT_EQ(Traced("!!! ::CopyFile("), 100) << "every name is tried whatever the failure";
}

TEST_F(ComponentFilesTest, AnUpdateInformationThatOthersHoldIsAFailureOfTheDeployment)
{
    m_install.Write(kProduct + L"Share\\UI\\f", "x");
    const std::wstring tstrInfo = m_install.Write(L"UpdateInfo.ini", "[COMPONENT_LIST]\n");
    FrameworkDeployAgent agent;
    {
        const UniqueFile held(::CreateFileW(tstrInfo.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        EXPECT_FALSE(agent.DoDeploy());
    }
    EXPECT_THAT(Moves(), IsEmpty());
    EXPECT_EQ(CountTraced("!!! *** PathValues::ReadDownloadPath() - [" + String::ToUtf8(tstrInfo) +
                          "] cannot be read. [0x00000020]"),
              2);
    EXPECT_TRUE(agent.DoDeploy());
    EXPECT_THAT(Moves(), ElementsAre(HasSubstr("Share\\UI\\f > f")));
    EXPECT_EQ(Traced("@@@ CDeployComponentsAction::CopyDirectory("), 0) << "without settings none are copied";
    WriteProduct(L"ProductPath", L"");
    EXPECT_TRUE(agent.DoDeploy()) << "nothing is known, and nothing held";
}
