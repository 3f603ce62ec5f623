#include "check/FoundValue.h"

#include "common/KzComn_Registry.h"

using namespace KzCommon;

namespace Check {

FoundValue ReadRegistryValue(const std::wstring& tstrKeyPath, const std::wstring& tstrName)
{
    FoundValue found;
    const auto read = [&](RegistryType eType, auto& value) {
        if (!Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, tstrKeyPath, tstrName, value, Storage::eViewDefault,
                                     &found.dwError)) {
            return false;
        }
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
    if (eType == RegistryType::eText) return L"\"" + tstrText + L"\"";
    return std::wstring(WordOf(eType)) + L" " + std::to_wstring(ullNumber);
}

}  // namespace Check
