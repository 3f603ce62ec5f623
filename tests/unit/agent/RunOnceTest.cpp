#include "agent/RunOnce.h"

#include "unit/agent/AgentFixture.h"

using RunOnceTest = AgentTest;

TEST_F(RunOnceTest, EveryCommandIsRegisteredExceptTheFiltersForAnOldTouchpad)
{
    const std::string strLong(929, 'x');  // the longest record, including key path, name and type
    Instruct(
        "[Run]\nSysRunOnce=a.exe\nSysRunOnce=a.exe\nsysrunonce=b.exe\nSysRunOnce=cmd !x kbfilter.ini\n"
        "SysRunOnce=\"{InstalledDir}c.exe\" /x\nSysRunOnce=KBFILTER.INI\nSysRunOnce=" +
        strLong + "\nSysRunOnce=" + strLong + "x\n");
    const std::wstring tstrInstalled = L"\"" + m_install.PathOf(L"c.exe") + L"\" /x";
    std::multiset<std::wstring> expected = {L"a.exe",        L"a.exe",      L"cmd ",
                                            L"KBFILTER.INI", tstrInstalled, std::wstring(929, L'x')};
    for (const bool bAffected : {false, true}) {
        WriteProduct(L"KeystrokeBlackList", bAffected ? L"1" : L"yes");
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kRunOnce);
        m_trace.Clear();
        SCOPED_TRACE(bAffected ? "affected" : "not affected");
        PostRunScript(m_run);
        if (bAffected) expected.erase(L"cmd ");
        EXPECT_EQ(RunOnceCommands(), expected);
        EXPECT_EQ(CountTraced("!!! PatchReg() field index>3, too many fields, ignore remaining ones"), !bAffected);
        EXPECT_EQ(CountTraced("!!! PatchReg(tszData==empty || tszData.size()>1023)"), 1);
        EXPECT_EQ(CountTraced("@@@ *** FrameworkDeployAgent::PostRunScript() - add to sys RunOnce: [a.exe]"), 2);
    }
}
