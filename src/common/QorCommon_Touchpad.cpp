#include "common/QorCommon_Touchpad.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"

#include <setupapi.h>

#include <cwchar>
#include <limits>
#include <vector>

using namespace KzCommon;

namespace {

struct DeviceListTraits {
    using Handle = HDEVINFO;
    static Handle Empty() noexcept { return INVALID_HANDLE_VALUE; }
    static void Release(Handle handle) noexcept { ::SetupDiDestroyDeviceInfoList(handle); }
};
using UniqueDeviceList = UniqueHandle<DeviceListTraits>;

/// A string value of the product key in the 64-bit view; empty when missing.
std::wstring ReadProductValue(const wchar_t* szName)
{
    std::wstring tstrValue;
    static_cast<void>(Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, szName, tstrValue,
                                              Storage::eView64Bit, nullptr));
    return tstrValue;
}

UniqueDeviceList PresentMice()
{
    GUID guid{};
    DWORD cGuids = 0;
    if (!::SetupDiClassGuidsFromNameExW(L"mouse", &guid, 1, &cGuids, nullptr, nullptr) || cGuids == 0) return {};
    return UniqueDeviceList(::SetupDiGetClassDevsW(&guid, nullptr, nullptr, DIGCF_PRESENT));
}

std::wstring DescriptionOf(HDEVINFO hDevices, SP_DEVINFO_DATA& device)
{
    DWORD cb = 0;
    ::SetupDiGetDeviceRegistryPropertyW(hDevices, &device, SPDRP_DEVICEDESC, nullptr, nullptr, 0, &cb);
    // One more character than reported: the text may lack its terminating zero.
    std::vector<wchar_t> text(cb / sizeof(wchar_t) + 1);
    if (cb == 0 || !::SetupDiGetDeviceRegistryPropertyW(hDevices, &device, SPDRP_DEVICEDESC, nullptr,
                                                        reinterpret_cast<BYTE*>(text.data()), cb, nullptr)) {
        return {};
    }
    return text.data();
}

/// "DriverVersion" of a device's driver key; empty if missing.
std::wstring DriverVersionOf(HDEVINFO hDevices, SP_DEVINFO_DATA& device)
{
    const HKEY hKey = ::SetupDiOpenDevRegKey(hDevices, &device, DICS_FLAG_GLOBAL, 0, DIREG_DRV, KEY_READ);
    if (hKey == INVALID_HANDLE_VALUE || !hKey) {
        Trace(kTraceError, L"Invalid handle value for hkey!");
        return {};
    }
    const UniqueRegistryKey key(hKey);
    wchar_t szVersion[MAX_PATH] = {};
    DWORD cbVersion = sizeof(szVersion) - sizeof(wchar_t);
    DWORD dwType = REG_NONE;
    const LSTATUS lStatus = ::RegQueryValueExW(key.Get(), L"DriverVersion", nullptr, &dwType,
                                               reinterpret_cast<BYTE*>(szVersion), &cbVersion);
    return lStatus == ERROR_SUCCESS && dwType == REG_SZ ? szVersion : std::wstring();
}

std::wstring FindDriverVersion(HDEVINFO hDevices, const std::wstring& tstrName)
{
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    for (DWORD dwIndex = 0; ::SetupDiEnumDeviceInfo(hDevices, dwIndex, &device); ++dwIndex) {
        Trace(kTraceInfo, L"Device %d", dwIndex);
        const std::wstring tstrDescription = DescriptionOf(hDevices, device);
        Trace(kTraceInfo, L"Driver Name = %s", tstrDescription.c_str());
        // Without a configured name, no touchpad matches.
        if (tstrName.empty() || tstrDescription.find(tstrName) == std::wstring::npos) {
            Trace(kTraceInfo, L"StrStr return NULL!!");
            continue;
        }
        std::wstring tstrVersion = DriverVersionOf(hDevices, device);
        if (tstrVersion.empty()) continue;
        Trace(kTraceInfo, L"Driver Info: %s %s", tstrDescription.c_str(), tstrVersion.c_str());
        return tstrVersion;
    }
    return {};
}

std::vector<std::wstring> PartsOf(const std::wstring& tstrVersion)
{
    bool bMore = false;
    return String::SplitFields(tstrVersion, L'.', std::numeric_limits<std::size_t>::max(), bMore);
}

}  // namespace

std::wstring CDeployComponentsAction::GetDriverVersion()
{
    const OperationTrace trace(L"CDeployComponentsAction::GetDriverVersion()");
    const std::wstring tstrName = ReadProductValue(L"ETDName");
    Trace(kTraceInfo, L"ETDName = %s", tstrName.c_str());
    const UniqueDeviceList devices = PresentMice();
    if (!devices) {
        Trace(kTraceError, L"Invalid handle value");
        return {};
    }
    std::wstring tstrVersion = FindDriverVersion(devices.Get(), tstrName);
    if (tstrVersion.empty()) Trace(kTraceInfo, L"Get ETD driver version fail!");
    return tstrVersion;
}

namespace QorCommon {

std::wstring GetETDMinVersionFromRegistry()
{
    const OperationTrace trace(L"QorCommon::GetETDMinVersionFromRegistry");
    std::wstring tstrMinimum = ReadProductValue(L"ETDMinVersion");
    Trace(kTraceInfo, L"ETD Min Version = %s", tstrMinimum.c_str());
    return tstrMinimum;
}

bool IsDriverOlder(const std::wstring& tstrCurrent, const std::wstring& tstrMinimum)
{
    const std::vector<std::wstring> current = PartsOf(tstrCurrent);
    const std::vector<std::wstring> minimum = PartsOf(tstrMinimum);
    for (std::size_t uPart = 0; uPart < current.size() && uPart < minimum.size(); ++uPart) {
        const int iCurrent = ::_wtoi(current[uPart].c_str());
        const int iMinimum = ::_wtoi(minimum[uPart].c_str());
        Trace(kTraceInfo, L"current_ver = %d, min_ver = %d", iCurrent, iMinimum);
        if (iCurrent != iMinimum) return iCurrent < iMinimum;
    }
    return current.size() < minimum.size();
}

bool IsETDExistAndDriverNotUpToDate()
{
    const OperationTrace trace(L"QorCommon::IsETDExistAndDriverNotUpToDate");
    const std::wstring tstrCurrent = CDeployComponentsAction::GetDriverVersion();
    Trace(kTraceInfo, L"ETD Driver Version = %s", tstrCurrent.c_str());
    if (tstrCurrent.empty()) {
        const std::wstring tstrBlackList = ReadProductValue(L"KeystrokeBlackList");
        Trace(kTraceInfo, L"KeystrokeBlackList = %s", tstrBlackList.c_str());
        if (tstrBlackList != L"1") return false;
        Trace(kTraceInfo, L"Keystroke black list found!QorCommon::IsETDExistAndDriverNotUpToDate...");
        return true;
    }
    const std::wstring tstrMinimum = GetETDMinVersionFromRegistry();
    Trace(kTraceInfo, L"ETD Minimal Support Driver Version = %s", tstrMinimum.c_str());
    if (tstrMinimum.empty()) {
        Trace(kTraceError, L"ETD Minimal support version is not found.");
        return false;
    }
    const bool bOlder = IsDriverOlder(tstrCurrent, tstrMinimum);
    Trace(kTraceInfo, L"ret = %d", bOlder);
    return bOlder;
}

}  // namespace QorCommon
