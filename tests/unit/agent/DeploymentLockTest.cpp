#include "agent/DeploymentLock.h"

#include "unit/agent/AgentFixture.h"

using DeploymentLockTest = AgentTest;

TEST_F(DeploymentLockTest, ASecondRunWaitsForTheFirstForALimitedTime)
{
    const std::wstring tstrFile = m_install.PathOf(L"Brevant.lock");
    const std::string strAnother = "DeploymentLock::Take() - another run ";
    DeploymentLock first, second;
    ASSERT_TRUE(first.Take(m_install.Path()));
    // A user with access could keep it open.
    EXPECT_THAT(AccessOf(tstrFile), AllOf(StartsWith(L"D:"), Not(HasSubstr(L";WD)")), Not(HasSubstr(L";BU)"))));
    EXPECT_FALSE(second.Take(m_install.Path(), 300));
    EXPECT_EQ(CountTraced("@@@ " + strAnother + "changes [" + m_strInstall + "] and is waited for."), 1);
    EXPECT_EQ(
        CountTraced("!!! *** " + strAnother + "still changes [" + m_strInstall + "]: nothing is changed. [0x00000020]"),
        1);
    {
        const std::jthread ended([&] { ::Sleep(400), first.Release(); });
        EXPECT_TRUE(second.Take(m_install.Path(), 60'000));
    }
    EXPECT_FALSE(first.Take(m_install.Path(), 0)) << "the second one has it now";
    second.Release();
    EXPECT_EQ(AccessOf(tstrFile), L"") << "deleted";
}

TEST_F(DeploymentLockTest, WithoutALockTheRunContinues)
{
    const TempFolder blocked, leftover;
    blocked.MakeFolder(L"Brevant.lock");
    leftover.Write(L"Brevant.lock", "left by a power failure");
    // The install folder and the traced code.
    const std::pair<std::wstring, std::string> rows[] = {{L"", ""},
                                                         {L"Product\\", ""},
                                                         {leftover.Path(), ""},
                                                         {blocked.Path(), "0x00000005"},
                                                         {m_install.PathOf(L"none\\"), "0x00000003"}};
    for (const auto& [tstrFolder, strCode] : rows) {
        const std::string strFolder = String::ToUtf8(tstrFolder);
        m_trace.Clear();
        EXPECT_LT(TimeOf([&] { EXPECT_TRUE(DeploymentLock().Take(tstrFolder)) << strFolder; }), 2000U);
        EXPECT_EQ(CountTraced(StartsWith("!!!")), strCode.empty() ? 0 : 1) << strFolder;
        EXPECT_EQ(CountTraced("!!! *** DeploymentLock::Take() - [" + strFolder +
                              "Brevant.lock] cannot be made, the run "
                              "goes on without it. [" +
                              strCode + "]"),
                  strCode.empty() ? 0 : 1);
    }
    EXPECT_THAT(leftover.List(), IsEmpty());
    EXPECT_THAT(blocked.List(), ElementsAre(L"Brevant.lock\\"));
}
