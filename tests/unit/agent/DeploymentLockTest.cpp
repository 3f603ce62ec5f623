#include "agent/DeploymentLock.h"

#include "unit/agent/AgentFixture.h"

using DeploymentLockTest = AgentTest;

TEST_F(DeploymentLockTest, ASecondRunWaitsForTheFirstForALimitedTime)
{
    const std::wstring tstrFile = m_install.PathOf(L"Brevant.lock");
    DeploymentLock first, second;
    ASSERT_TRUE(first.Take(m_install.Path()));
    // A user with access could keep it open.
    EXPECT_THAT(AccessOf(tstrFile), AllOf(StartsWith(L"D:"), Not(HasSubstr(L";WD)")), Not(HasSubstr(L";BU)"))));
    EXPECT_FALSE(second.Take(m_install.Path(), 300));
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
    for (const std::wstring& tstrFolder :
         {std::wstring(), std::wstring(L"Product\\"), leftover.Path(), blocked.Path(), m_install.PathOf(L"none\\")}) {
        EXPECT_LT(TimeOf([&] { EXPECT_TRUE(DeploymentLock().Take(tstrFolder)); }), 2000U) << String::ToUtf8(tstrFolder);
    }
    EXPECT_THAT(leftover.List(), IsEmpty());
    EXPECT_THAT(blocked.List(), ElementsAre(L"Brevant.lock\\"));
}
