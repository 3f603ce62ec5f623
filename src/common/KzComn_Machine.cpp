#include "common/KzComn_Machine.h"

#include "common/KzComn_Result.h"

namespace KzCommon {

bool Machine::HasFile(const std::wstring& tstrPath, DWORD* pdwError) const
{
    if (tstrPath.empty()) return Storage::Fail(ERROR_BAD_ARGUMENTS, pdwError);
    DWORD dwAttributes = INVALID_FILE_ATTRIBUTES;
    if (!ReadAttributes(tstrPath, dwAttributes, pdwError)) return false;
    return !(dwAttributes & FILE_ATTRIBUTE_DIRECTORY) || Storage::Fail(ERROR_DIRECTORY, pdwError);
}

bool Machine::HasFolder(const std::wstring& tstrPath) const
{
    DWORD dwAttributes = 0;
    return ReadAttributes(tstrPath, dwAttributes, nullptr) && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool Machine::HasAny(const std::wstring& tstrPath) const
{
    DWORD dwAttributes = 0;
    return ReadAttributes(tstrPath, dwAttributes, nullptr);
}

}  // namespace KzCommon
