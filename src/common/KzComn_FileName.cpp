#include "common/KzComn_FileName.h"

#include "common/KzComn_String.h"

#include <algorithm>
#include <iterator>

namespace KzCommon::Storage::File {

namespace {

constexpr std::wstring_view kForbidden = L"\\/:*?\"<>|";
constexpr std::wstring_view kDevices[] = {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
constexpr std::wstring_view kNumberedDevices[] = {L"COM", L"LPT"};
constexpr std::wstring_view kDeviceNumbers = L"123456789\u00B9\u00B2\u00B3";

}  // namespace

bool IsDevice(std::wstring_view tstrName) noexcept
{
    // The system checks the part before the first dot, without trailing spaces.
    std::wstring_view tstrBase = tstrName.substr(0, tstrName.find(L'.'));
    tstrBase = tstrBase.substr(0, tstrBase.find_last_not_of(L' ') + 1);
    const auto isBase = [&](std::wstring_view tstrDevice) {
        return String::EqualsNoCase(tstrBase, tstrDevice);
    };
    if (std::any_of(std::begin(kDevices), std::end(kDevices), isBase)) return true;
    if (tstrBase.size() != 4 || kDeviceNumbers.find(tstrBase[3]) == std::wstring_view::npos) return false;
    tstrBase.remove_suffix(1);
    return std::any_of(std::begin(kNumberedDevices), std::end(kNumberedDevices), isBase);
}

bool IsPlainName(std::wstring_view tstrName) noexcept
{
    // The system drops trailing dots and spaces: a name of only these is the folder itself or its parent, and an empty
    // name is the folder itself.
    if (tstrName.find_first_not_of(L". ") == std::wstring_view::npos) return false;
    const auto isForbidden = [](wchar_t ch) {
        return ch < L' ' || kForbidden.find(ch) != std::wstring_view::npos;
    };
    if (std::any_of(tstrName.begin(), tstrName.end(), isForbidden)) return false;
    return !IsDevice(tstrName);
}

}  // namespace KzCommon::Storage::File
