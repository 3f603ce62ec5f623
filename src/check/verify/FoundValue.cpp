#include "check/verify/FoundValue.h"

#include <type_traits>
#include <utility>

using namespace KzCommon;

namespace Check {

FoundValue ReadRegistryValue(const Machine& machine, const std::wstring& tstrKeyPath, const std::wstring& tstrName)
{
    FoundValue found;
    const RegistryPlace place{.tstrKeyPath = tstrKeyPath, .tstrName = tstrName};
    const auto read = [&](RegistryType eType, auto& value) {
        RegistryData data = value;
        found.dwError = ERROR_SUCCESS;
        if (!machine.ReadValue(place, data, &found.dwError)) return false;
        value = std::get<std::remove_reference_t<decltype(value)>>(std::move(data));
        found.eType = eType;
        return true;
    };
    DWORD dwNumber = 0;
    if (read(RegistryType::eText, found.tstrText) || !found.IsThere()) return found;
    if (read(RegistryType::eDword, dwNumber)) {
        found.ullNumber = dwNumber;
    } else {
        static_cast<void>(read(RegistryType::eQword, found.ullNumber));
    }
    return found;
}

std::wstring DescribeValue(RegistryType eType, const std::wstring& tstrText, ULONGLONG ullNumber)
{
    if (HoldsText(eType)) return L"\"" + tstrText + L"\"";
    return std::wstring(WordOf(eType)) + L" " + std::to_wstring(ullNumber);
}

}  // namespace Check
