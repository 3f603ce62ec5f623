// Used by almost every unit test.
#pragma once

#include "common/KzComn_Exception.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"
#include "support/watch/SystemWatch.h"

#include <gmock/gmock.h>
#include <sddl.h>

#include <filesystem>
#include <functional>
#include <set>
#include <thread>

using namespace KzCommon;
using namespace testing;
namespace fs = std::filesystem;

/// The code of the exception that an operation throws; 0 without an exception.
inline long CodeOf(const std::function<void()>& operation)
{
    DWORD dwCode = ERROR_SUCCESS;
    const bool bOk = Storage::Guarded(&dwCode, operation);
    return bOk == (dwCode == ERROR_SUCCESS) ? static_cast<long>(dwCode) : -1;
}

/// Opens a file, shared as given; creates it if it does not exist.
[[nodiscard]] inline UniqueFile HoldFile(const std::wstring& tstrPath, DWORD dwShare = 0)
{
    return UniqueFile(::CreateFileW(tstrPath.c_str(), GENERIC_READ, dwShare, nullptr, OPEN_ALWAYS, 0, nullptr));
}

/// Another program has the file open for a quarter of a second, unshared.
[[nodiscard]] inline std::jthread HoldForAMoment(const std::wstring& tstrPath)
{
    return std::jthread([held = HoldFile(tstrPath)] { ::Sleep(250); });
}

/// In milliseconds.
inline ULONGLONG TimeOf(const std::function<void()>& action)
{
    const ULONGLONG ullStart = ::GetTickCount64();
    action();
    return ::GetTickCount64() - ullStart;
}

/// The access control list of a file as text; empty if it does not exist.
inline std::wstring AccessOf(const std::wstring& tstrPath)
{
    BYTE found[4096] = {};
    DWORD cb = sizeof(found);
    wchar_t* szText = nullptr;
    if (!::GetFileSecurityW(tstrPath.c_str(), DACL_SECURITY_INFORMATION, found, cb, &cb)) return {};
    EXPECT_TRUE(::ConvertSecurityDescriptorToStringSecurityDescriptorW(found, SDDL_REVISION_1,
                                                                       DACL_SECURITY_INFORMATION, &szText, nullptr));
    const std::wstring tstrText = szText;
    ::LocalFree(szText);
    return tstrText;
}

/// Another process, which does nothing: this program, suspended.
class IdleProcess {
public:
    IdleProcess()
    {
        STARTUPINFOA start{};
        start.cb = sizeof(start);
        EXPECT_TRUE(::CreateProcessA(_pgmptr, nullptr, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr,
                                     &start, &m_process));
        m_thread.Reset(m_process.hThread);
        m_handle.Reset(m_process.hProcess);
    }
    [[nodiscard]] DWORD Id() const noexcept { return m_process.dwProcessId; }
    void End() const
    {
        ::TerminateProcess(m_handle.Get(), 0);
        ::WaitForSingleObject(m_handle.Get(), INFINITE);
    }

private:
    PROCESS_INFORMATION m_process{};
    UniqueKernelHandle m_thread, m_handle;
};
