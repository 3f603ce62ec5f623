#include "common/KzComn_Process.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_Result.h"
#include "common/KzComn_String.h"

#include <objbase.h>
#include <shlobj.h>

#include <memory>
#include <vector>

namespace KzCommon::Process {

namespace {

constexpr std::size_t kLongPathCharacters = 32768;
const wchar_t kProfileList[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";

struct CoTaskMemFreer {
    void operator()(wchar_t* sz) const noexcept { ::CoTaskMemFree(sz); }
};

std::wstring FolderOf(UINT(WINAPI* pfnGet)(LPWSTR, UINT))
{
    wchar_t szFolder[MAX_PATH + 1] = {};
    const UINT cch = pfnGet(szFolder, MAX_PATH + 1);
    if (cch == 0 || cch > MAX_PATH) return {};
    return String::EnsureBackslash(szFolder);
}

std::vector<std::wstring> ProfileKeys()
{
    Storage::Registry list(Storage::eViewDefault);
    list.OpenForEnumerate(HKEY_LOCAL_MACHINE, kProfileList);
    std::vector<std::wstring> keys;
    DWORD dwError = ERROR_SUCCESS;
    while (Storage::Guarded(&dwError, [&] { keys.push_back(list.EnumSubKey(static_cast<DWORD>(keys.size()))); })) {
    }
    if (dwError != ERROR_NO_MORE_ITEMS) Storage::Throw(dwError);
    return keys;
}

}  // namespace

bool IsWow64ModeProcess(bool& bWow64, DWORD* pdwError)
{
    BOOL bAnswer = FALSE;
    if (!::IsWow64Process(::GetCurrentProcess(), &bAnswer)) return Storage::Fail(::GetLastError(), pdwError);
    bWow64 = bAnswer != FALSE;
    return true;
}

bool IsAnotherRunning(DWORD dwProcess) noexcept
{
    if (dwProcess == ::GetCurrentProcessId()) return false;
    const UniqueKernelHandle process(::OpenProcess(SYNCHRONIZE, FALSE, dwProcess));
    if (!process) return ::GetLastError() == ERROR_ACCESS_DENIED;
    return ::WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT;
}

bool Is64BitWindows() noexcept
{
    SYSTEM_INFO info{};
    ::GetNativeSystemInfo(&info);
    return info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ||
           info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_ARM64;
}

bool HasPrivileges() noexcept
{
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    version.dwPlatformId = VER_PLATFORM_WIN32_NT;
    const DWORDLONG ullCondition = ::VerSetConditionMask(0, VER_PLATFORMID, VER_EQUAL);
    return ::VerifyVersionInfoW(&version, VER_PLATFORMID, ullCondition) != FALSE;
}

bool IsServiceSession() noexcept
{
    DWORD dwSession = 0;
    return ::ProcessIdToSessionId(::GetCurrentProcessId(), &dwSession) && dwSession == 0;
}

bool IsLowIntegrity() noexcept
{
    UniqueKernelHandle token;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.Receive())) return false;
    alignas(TOKEN_MANDATORY_LABEL) BYTE buffer[sizeof(TOKEN_MANDATORY_LABEL) + SECURITY_MAX_SID_SIZE] = {};
    DWORD cb = 0;
    if (!::GetTokenInformation(token.Get(), TokenIntegrityLevel, buffer, sizeof(buffer), &cb)) return false;
    const PSID pSid = reinterpret_cast<const TOKEN_MANDATORY_LABEL*>(buffer)->Label.Sid;
    const UCHAR cAuthorities = *::GetSidSubAuthorityCount(pSid);
    return cAuthorities > 0 && *::GetSidSubAuthority(pSid, cAuthorities - 1U) == SECURITY_MANDATORY_LOW_RID;
}

bool RefuseUsersJunctions(DWORD* pdwError) noexcept
{
    // The policy is newer than some headers and than some supported Windows versions.
    constexpr int kRedirectionTrust = 16;
    DWORD dwEnforce = 1;
    const FARPROC pfn = ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "SetProcessMitigationPolicy");
    if (!pfn) return Storage::Fail(ERROR_PROC_NOT_FOUND, pdwError);
    const auto pfnSet = reinterpret_cast<BOOL(WINAPI*)(int, PVOID, SIZE_T)>(reinterpret_cast<void*>(pfn));
    return pfnSet(kRedirectionTrust, &dwEnforce, sizeof(dwEnforce)) || Storage::Fail(::GetLastError(), pdwError);
}

std::wstring WindowsFolder()
{
    return FolderOf(&::GetSystemWindowsDirectoryW);
}

std::wstring SystemFolder()
{
    return FolderOf(&::GetSystemDirectoryW);
}

std::wstring CommonAppDataFolder()
{
    wchar_t* szFolder = nullptr;
    const HRESULT hr = ::SHGetKnownFolderPath(FOLDERID_ProgramData, KF_FLAG_DEFAULT, nullptr, &szFolder);
    const std::unique_ptr<wchar_t, CoTaskMemFreer> folder(szFolder);
    return SUCCEEDED(hr) && szFolder ? String::EnsureBackslash(szFolder) : std::wstring();
}

std::wstring ProgramFolder()
{
    std::wstring tstrFile(kLongPathCharacters, L'\0');
    tstrFile.resize(::GetModuleFileNameW(nullptr, tstrFile.data(), static_cast<DWORD>(tstrFile.size())));
    return String::FolderPart(tstrFile);
}

std::wstring ResolveBesideProgram(const std::wstring& tstrPath)
{
    if (String::IsFullPath(tstrPath)) return tstrPath;
    const bool bHere = tstrPath.starts_with(L".\\");
    return ProgramFolder() + tstrPath.substr(bHere ? 2 : 0);
}

bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError)
{
    return Storage::Guarded(pdwError, [&] {
        std::vector<std::wstring> found;
        for (const std::wstring& tstrKey : ProfileKeys()) {
            std::wstring tstrFolder;
            const std::wstring tstrPath = String::JoinPath(kProfileList, tstrKey);
            if (!Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, tstrPath, L"ProfileImagePath", tstrFolder,
                                         Storage::eViewDefault, nullptr) ||
                tstrFolder.empty()) {
                continue;
            }
            found.push_back(String::EnsureBackslash(ExpandEnvironment(tstrFolder)));
        }
        folders = std::move(found);
    });
}

}  // namespace KzCommon::Process
