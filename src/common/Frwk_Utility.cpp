#include "common/Frwk_Utility.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Process.h"
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

RegistryPlace ProductValue(const std::wstring& tstrName)
{
    return {.tstrKeyPath = kProductKey, .tstrName = tstrName, .dwView = ProductRegistryView()};
}

std::wstring GetInstalledFolder(const Machine& machine)
{
    RegistryData folder = std::wstring();
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.ReadValue(ProductValue(L"ProductPath"), folder, &dwError)) {
        Trace(kTraceError, L"*** Frwk::Utility::GetInstalledFolder() - ProductPath cannot be read. [0x%08x]", dwError);
    }
    return String::EnsureBackslash(std::get<std::wstring>(folder));
}

std::wstring InstalledFile(const Machine& machine, const wchar_t* szName)
{
    const std::wstring tstrFolder = GetInstalledFolder(machine);
    return tstrFolder.empty() ? std::wstring() : tstrFolder + szName;
}

std::wstring GetStrFromHKLM_KZVLT(const Machine& machine, const std::wstring& tstrName, const std::wstring& tstrDefault)
{
    RegistryData value = tstrDefault;
    static_cast<void>(machine.ReadValue(ProductValue(tstrName), value, nullptr));
    return std::get<std::wstring>(value);
}

void WriteToRegHKLM_KZVLT(Machine& machine, const std::wstring& tstrName, const std::wstring& tstrValue)
{
    if (tstrName.empty() || tstrValue.empty()) {
        Trace(kTraceError, L"*** Frwk::Utility::WriteToRegHKLM_KZVLT(%s, %s) - empty, nothing is written.",
              tstrName.c_str(), tstrValue.c_str());
        return;
    }
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.StoreValue(ProductValue(tstrName), tstrValue, &dwError)) {
        Trace(kTraceError, L"*** Frwk::Utility::WriteToRegHKLM_KZVLT(%s, %s) failed. [0x%08x]", tstrName.c_str(),
              tstrValue.c_str(), dwError);
        return;
    }
    Trace(kTraceInfo, L"Frwk::Utility::WriteToRegHKLM_KZVLT(%s, %s) written.", tstrName.c_str(), tstrValue.c_str());
}

std::wstring GetLanguage(const Machine& machine)
{
    return GetStrFromHKLM_KZVLT(machine, L"Language", L"EN-US");
}

}  // namespace Frwk::Utility
