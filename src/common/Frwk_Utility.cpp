#include "common/Frwk_Utility.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"

namespace Frwk::Utility {

using namespace KzCommon;

DWORD ProductRegistryView()
{
    bool bWow64 = false;
    DWORD dwError = ERROR_SUCCESS;
    if (!Process::IsWow64ModeProcess(bWow64, &dwError)) {
        Trace(kTraceError, L"KzCommon::Process::IsWow64ModeProcess() failed: 0x%08X", dwError);
    }
    return bWow64 ? Storage::eView64Bit : Storage::eViewDefault;
}

std::wstring GetInstalledFolder()
{
    std::wstring tstrFolder;
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, kProductKey, L"ProductPath", tstrFolder, ProductRegistryView(),
                                 &dwError)) {
        Trace(kTraceError, L"*** Frwk::Utility::GetInstalledFolder() - ProductPath cannot be read. [0x%08x]", dwError);
    }
    return String::EnsureBackslash(tstrFolder);
}

std::wstring InstalledFile(const wchar_t* szName)
{
    const std::wstring tstrFolder = GetInstalledFolder();
    return tstrFolder.empty() ? std::wstring() : tstrFolder + szName;
}

std::wstring GetStrFromHKLM_KZVLT(const std::wstring& tstrName, const std::wstring& tstrDefault)
{
    std::wstring tstrValue = tstrDefault;
    static_cast<void>(
        Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, kProductKey, tstrName, tstrValue, ProductRegistryView(), nullptr));
    return tstrValue;
}

void WriteToRegHKLM_KZVLT(const std::wstring& tstrName, const std::wstring& tstrValue)
{
    if (tstrName.empty() || tstrValue.empty()) {
        Trace(kTraceError, L"*** Frwk::Utility::WriteToRegHKLM_KZVLT(%s, %s) - empty, nothing is written.",
              tstrName.c_str(), tstrValue.c_str());
        return;
    }
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Reg::StoreValue(HKEY_LOCAL_MACHINE, kProductKey, tstrName, tstrValue, ProductRegistryView(),
                                  &dwError)) {
        Trace(kTraceError, L"*** Frwk::Utility::WriteToRegHKLM_KZVLT(%s, %s) failed. [0x%08x]", tstrName.c_str(),
              tstrValue.c_str(), dwError);
        return;
    }
    Trace(kTraceInfo, L"Frwk::Utility::WriteToRegHKLM_KZVLT(%s, %s) written.", tstrName.c_str(), tstrValue.c_str());
}

std::wstring GetLanguage()
{
    return GetStrFromHKLM_KZVLT(L"Language", L"EN-US");
}

bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError)
{
    return Process::EnumUserProfileFolders(folders, pdwError);
}

}  // namespace Frwk::Utility
