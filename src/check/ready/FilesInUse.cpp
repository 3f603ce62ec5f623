#include "check/ready/FilesInUse.h"

#include "check/update/LongPath.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_Library.h"
#include "common/KzComn_String.h"

#include <restartmanager.h>

#include <vector>

using namespace KzCommon;

namespace Check {

namespace {

/// The Restart Manager, loaded from the system folder at its first use.
class RestartManager {
public:
    RestartManager()
    {
        if (!m_library.LoadSystem(L"rstrtmgr.dll")) return;
        Library::ProcedureLoader loader(m_library);
        loader.Take(m_pfnStart, "RmStartSession");
        loader.Take(m_pfnRegister, "RmRegisterResources");
        loader.Take(m_pfnList, "RmGetList");
        loader.Take(m_pfnEnd, "RmEndSession");
        m_bThere = loader.HasAll(nullptr);
    }

    /// The processes that have a file open; empty on failure.
    [[nodiscard]] std::vector<RM_PROCESS_INFO> ProcessesWith(const std::wstring& tstrFile) const
    {
        wchar_t szKey[CCH_RM_SESSION_KEY + 1] = {};
        DWORD dwSession = 0;
        if (!m_bThere || m_pfnStart(&dwSession, 0, szKey) != ERROR_SUCCESS) return {};
        LPCWSTR szFile = tstrFile.c_str();
        std::vector<RM_PROCESS_INFO> processes(kMostProcesses);
        UINT cNeeded = 0;
        UINT cProcesses = kMostProcesses;
        DWORD dwReasons = 0;
        const bool bTold = m_pfnRegister(dwSession, 1, &szFile, 0, nullptr, 0, nullptr) == ERROR_SUCCESS &&
                           m_pfnList(dwSession, &cNeeded, &cProcesses, processes.data(), &dwReasons) == ERROR_SUCCESS;
        processes.resize(bTold ? cProcesses : 0);
        m_pfnEnd(dwSession);
        return processes;
    }

private:
    static constexpr UINT kMostProcesses = 64;

    Library::Wrapper m_library;
    bool m_bThere = false;
    decltype(&::RmStartSession) m_pfnStart = nullptr;
    decltype(&::RmRegisterResources) m_pfnRegister = nullptr;
    decltype(&::RmGetList) m_pfnList = nullptr;
    decltype(&::RmEndSession) m_pfnEnd = nullptr;
};

}  // namespace

bool IsFree(const std::wstring& tstrFile, DWORD& dwError)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const UniqueFile file(::CreateFileW(LongPath(tstrFile).c_str(), GENERIC_READ | DELETE, kShareAll, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    dwError = file ? ERROR_SUCCESS : ::GetLastError();
    return file || dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND;
}

std::wstring UsersOf(const std::wstring& tstrFile)
{
    std::wstring tstrNames;
    String::NoCaseSet named;  // a program may have many processes
    for (const RM_PROCESS_INFO& process : RestartManager().ProcessesWith(tstrFile)) {
        if (!named.insert(process.strAppName).second) continue;
        tstrNames += (tstrNames.empty() ? L"" : L", ") + std::wstring(process.strAppName);
    }
    return tstrNames;
}

}  // namespace Check
