#include "agent/DeploymentLock.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

#include <sddl.h>

using namespace KzCommon;

namespace {

constexpr wchar_t kLockFile[] = L"Brevant.lock";
constexpr DWORD kPauseMs = 250;
// A file that the ending run is just deleting also gives ERROR_ACCESS_DENIED.
constexpr DWORD kDeletedWithinMs = 2000;

// For administrators, the system and the owner only. A user who could open a file left by a power failure could block
// every run.
constexpr wchar_t kAccess[] = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;OW)";

/// Opens the lock file, including one left by a power failure. Sets `dwError` to ERROR_SUCCESS on success.
UniqueFile OpenLock(const std::wstring& tstrPath, DWORD& dwError)
{
    constexpr DWORD kFlags = FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE | FILE_FLAG_OPEN_REPARSE_POINT;
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
    // If this fails, the file gets the rights of its folder.
    ::ConvertStringSecurityDescriptorToSecurityDescriptorW(kAccess, SDDL_REVISION_1, &attributes.lpSecurityDescriptor,
                                                           nullptr);
    UniqueFile file(
        ::CreateFileW(tstrPath.c_str(), GENERIC_WRITE | DELETE, 0, &attributes, OPEN_ALWAYS, kFlags, nullptr));
    dwError = file ? ERROR_SUCCESS : ::GetLastError();
    ::LocalFree(attributes.lpSecurityDescriptor);
    return file;
}

}  // namespace

std::wstring DeploymentLock::FileIn(const std::wstring& tstrInstallDir)
{
    return tstrInstallDir + kLockFile;
}

bool DeploymentLock::Take(const std::wstring& tstrInstallDir, DWORD dwWaitMs)
{
    if (!String::IsFullPath(tstrInstallDir)) return true;
    const std::wstring tstrPath = FileIn(tstrInstallDir);
    const DWORD dwDeniedMs = Storage::Directory::IsExisted(tstrPath) ? 0 : kDeletedWithinMs;
    for (DWORD dwWaited = 0, dwDenied = 0;; dwWaited += kPauseMs) {
        DWORD dwError = ERROR_SUCCESS;
        m_file = OpenLock(tstrPath, dwError);
        if (m_file) return true;
        dwDenied = dwError == ERROR_ACCESS_DENIED ? dwDenied + kPauseMs : 0;
        const bool bInUse = dwError == ERROR_SHARING_VIOLATION || (dwDenied > 0 && dwDenied <= dwDeniedMs);
        if (!bInUse) {
            Trace(kTraceError,
                  L"*** DeploymentLock::Take() - [%s] cannot be made, the run goes on without it. [0x%08x]",
                  tstrPath.c_str(), dwError);
            return true;
        }
        if (dwWaited == 0)
            Trace(kTraceInfo, L"DeploymentLock::Take() - another run changes [%s] and is waited for.",
                  tstrInstallDir.c_str());
        if (dwWaited >= dwWaitMs) {
            Trace(kTraceError,
                  L"*** DeploymentLock::Take() - another run still changes [%s]: nothing is changed. [0x%08x]",
                  tstrInstallDir.c_str(), dwError);
            return false;
        }
        ::Sleep(kPauseMs);
    }
}
