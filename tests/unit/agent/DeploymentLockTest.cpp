#include "agent/DeploymentLock.h"

#include "unit/agent/AgentFixture.h"

namespace {

class DeploymentLockTest : public AgentTest {
protected:
    [[nodiscard]] bool IsThere() const
    {
        return ::GetFileAttributesW(m_install.PathOf(L"Brevant.lock").c_str()) != INVALID_FILE_ATTRIBUTES;
    }
    /// Whether the access control list of the open lock file contains an account.
    [[nodiscard]] bool MayRead(WELL_KNOWN_SID_TYPE eWho) const
    {
        std::vector<BYTE> descriptor(1024), sid(SECURITY_MAX_SID_SIZE);
        DWORD cb = 0, cbSid = SECURITY_MAX_SID_SIZE;
        BOOL bPresent = FALSE, bDefaulted = FALSE;
        PACL pList = nullptr;
        EXPECT_TRUE(::CreateWellKnownSid(eWho, nullptr, sid.data(), &cbSid));
        EXPECT_TRUE(::GetFileSecurityW(m_install.PathOf(L"Brevant.lock").c_str(), DACL_SECURITY_INFORMATION,
                                       descriptor.data(), 1024, &cb));
        EXPECT_TRUE(::GetSecurityDescriptorDacl(descriptor.data(), &bPresent, &pList, &bDefaulted));
        bool bNamed = !pList;
        for (DWORD uEntry = 0; pList && uEntry < pList->AceCount; ++uEntry) {
            void* pEntry = nullptr;
            EXPECT_TRUE(::GetAce(pList, uEntry, &pEntry));
            bNamed = bNamed || ::EqualSid(&static_cast<ACCESS_ALLOWED_ACE*>(pEntry)->SidStart, sid.data());
        }
        return bNamed;
    }
    const std::string m_strLine = "DeploymentLock::Take() - ";
};

}  // namespace

TEST_F(DeploymentLockTest, ASecondRunWaitsForTheFirstForALimitedTime)
{
    DeploymentLock first;
    ASSERT_TRUE(first.Take(m_install.Path()));
    EXPECT_TRUE(IsThere());
    EXPECT_FALSE(MayRead(WinWorldSid) || MayRead(WinBuiltinUsersSid)) << "a user with access could keep it open";
    DeploymentLock second;
    EXPECT_FALSE(second.Take(m_install.Path(), 300));
    EXPECT_EQ(CountTraced("@@@ " + m_strLine + "another run changes [" + m_strInstall + "] and is waited for."), 1);
    EXPECT_EQ(CountTraced("!!! *** " + m_strLine + "another run still changes [" + m_strInstall +
                          "]: nothing is changed. [0x00000020]"),
              1);
    {
        const std::jthread ended([&] {
            ::Sleep(400);
            first.Release();
        });
        EXPECT_TRUE(second.Take(m_install.Path(), 60'000));
    }
    EXPECT_FALSE(first.Take(m_install.Path(), 0)) << "the second one has it now";
    second.Release();
    EXPECT_FALSE(IsThere());
}

TEST_F(DeploymentLockTest, WithoutALockTheRunContinues)
{
    const TempFolder blocked;
    blocked.MakeFolder(L"Brevant.lock");
    const TempFolder leftover;
    leftover.Write(L"Brevant.lock", "left by a power failure");
    // The install folder and the traced code.
    const std::pair<std::wstring, const char*> rows[] = {{L"", nullptr},
                                                         {L"Product\\", nullptr},
                                                         {leftover.Path(), nullptr},
                                                         {blocked.Path(), "0x00000005"},
                                                         {m_install.PathOf(L"none\\"), "0x00000003"}};
    for (const auto& [tstrFolder, szCode] : rows) {
        SCOPED_TRACE(KzCommon::String::ToUtf8(tstrFolder));
        m_trace.Clear();
        const ULONGLONG ullStart = ::GetTickCount64();
        {
            DeploymentLock lock;
            EXPECT_TRUE(lock.Take(tstrFolder));
        }
        EXPECT_LT(::GetTickCount64() - ullStart, 2000U);
        EXPECT_EQ(CountTraced(StartsWith("!!!")), szCode ? 1 : 0);
        EXPECT_EQ(
            CountTraced("!!! *** " + m_strLine + "[" + KzCommon::String::ToUtf8(tstrFolder) +
                        "Brevant.lock] cannot be made, the run goes on without it. [" + (szCode ? szCode : "") + "]"),
            szCode ? 1 : 0);
    }
    EXPECT_THAT(leftover.List(), IsEmpty());
    EXPECT_THAT(blocked.List(), ElementsAre(L"Brevant.lock\\"));
}
