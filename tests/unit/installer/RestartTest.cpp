#include "installer/InstComn_Utility.h"

#include "support/RecordedTrace.h"

#include <gmock/gmock.h>

using namespace testing;

namespace {

/// What the system answers: 0 where the call succeeds, otherwise its code.
struct {
    DWORD dwToken, dwAdjust, dwExit;
    bool bEnabled, bAsked;
} s_system;

BOOL Answer(DWORD dwError)
{
    ::SetLastError(dwError);
    return dwError == ERROR_SUCCESS;
}

BOOL WINAPI OpenToken(HANDLE, DWORD, HANDLE* phToken)
{
    *phToken = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    return Answer(s_system.dwToken);
}

BOOL WINAPI Adjust(HANDLE, BOOL bDisableAll, TOKEN_PRIVILEGES* pNew, DWORD, TOKEN_PRIVILEGES*, DWORD*)
{
    LUID shutdown{};
    s_system.bEnabled = !bDisableAll && ::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &shutdown) &&
                        pNew->PrivilegeCount == 1 && pNew->Privileges[0].Luid.LowPart == shutdown.LowPart &&
                        pNew->Privileges[0].Attributes == SE_PRIVILEGE_ENABLED;
    static_cast<void>(Answer(s_system.dwAdjust));
    return s_system.dwAdjust == ERROR_SUCCESS || s_system.dwAdjust == ERROR_NOT_ALL_ASSIGNED;
}

BOOL WINAPI Exit(UINT uFlags, DWORD)
{
    s_system.bAsked = uFlags == EWX_REBOOT;
    return Answer(s_system.dwExit);
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
    for (const auto& [dwToken, dwAdjust, dwExit, bAsked, lines] : rows) {
        const RecordedTrace trace;
        s_system = {dwToken, dwAdjust, dwExit, false, false};
        EXPECT_EQ(lines.empty(), InstCommon::Utility::ReStartWindows()) << dwToken << dwAdjust << dwExit;
        EXPECT_EQ(dwToken == 0, s_system.bEnabled);
        EXPECT_EQ(bAsked, s_system.bAsked) << dwToken << " " << dwAdjust;
        EXPECT_EQ(lines, trace.Messages());
    }
}
