#include "installer/InstComn_Utility.h"

#include "support/RecordedTrace.h"

#include <gmock/gmock.h>

using namespace testing;

namespace {

/// What the system answers, 0 where the call succeeds, otherwise its code; and what it was asked for.
struct {
    DWORD dwToken, dwAdjust, dwExit;
    DWORD dwPrivilege, dwAttributes;
    UINT uFlags;
} s_system;

BOOL Answer(DWORD dwError, bool bDone)
{
    ::SetLastError(dwError);
    return bDone;
}

BOOL WINAPI OpenToken(HANDLE, DWORD, HANDLE* phToken)
{
    *phToken = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    return Answer(s_system.dwToken, s_system.dwToken == 0);
}

BOOL WINAPI Adjust(HANDLE, BOOL, TOKEN_PRIVILEGES* pNew, DWORD, TOKEN_PRIVILEGES*, DWORD*)
{
    s_system.dwPrivilege = pNew->Privileges[0].Luid.LowPart;
    s_system.dwAttributes = pNew->Privileges[0].Attributes;
    return Answer(s_system.dwAdjust, s_system.dwAdjust == 0 || s_system.dwAdjust == ERROR_NOT_ALL_ASSIGNED);
}

BOOL WINAPI Exit(UINT uFlags, DWORD)
{
    s_system.uFlags = uFlags;
    return Answer(s_system.dwExit, s_system.dwExit == 0);
}

}  // namespace

// The linker takes these instead of the system's.
extern "C" {
decltype(&::OpenProcessToken) __imp_OpenProcessToken = &OpenToken;
decltype(&::AdjustTokenPrivileges) __imp_AdjustTokenPrivileges = &Adjust;
decltype(&::ExitWindowsEx) __imp_ExitWindowsEx = &Exit;
}

TEST(Restart, EachStepNeedsTheOneBefore)
{
    const std::string strNotSet = "!!! *** InstCommon::Utility::SetPrivilege() failed.";
    const std::tuple<DWORD, DWORD, DWORD, bool, std::vector<std::string>> rows[] = {
        // clang-format off
        {0, 0, 0, true, {}},
        {ERROR_ACCESS_DENIED, 0, 0, false, {"!!! *** ::OpenProcessToken() failed. [0x00000005]"}},
        {0, ERROR_INVALID_HANDLE, 0, false, {"!!! *** ::AdjustTokenPrivileges() failed. [0x00000006]", strNotSet}},
        // The call succeeds although the token does not hold the privilege.
        {0, ERROR_NOT_ALL_ASSIGNED, 0, false, {"!!! *** ::AdjustTokenPrivileges() failed. [0x00000514]", strNotSet}},
        {0, 0, ERROR_SHUTDOWN_IN_PROGRESS, true, {"!!! *** ::ExitWindowsEx() failed. [0x0000045b]"}}};
    // clang-format on
    LUID shutdown{};
    ASSERT_TRUE(::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &shutdown));
    for (const auto& [dwToken, dwAdjust, dwExit, bAsked, lines] : rows) {
        SCOPED_TRACE(std::to_string(dwToken) + " " + std::to_string(dwAdjust) + " " + std::to_string(dwExit));
        const RecordedTrace trace;
        s_system = {dwToken, dwAdjust, dwExit, 0, 0, 0};
        EXPECT_EQ(lines.empty(), InstCommon::Utility::ReStartWindows());
        EXPECT_EQ(dwToken == 0 ? shutdown.LowPart : 0, s_system.dwPrivilege);
        EXPECT_EQ(dwToken == 0 ? SE_PRIVILEGE_ENABLED : 0, s_system.dwAttributes);
        EXPECT_EQ(bAsked ? EWX_REBOOT : 0, s_system.uFlags);
        EXPECT_EQ(lines, trace.Messages());
    }
}
