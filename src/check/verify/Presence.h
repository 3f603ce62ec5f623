// Interprets the code of a failed lookup: whether the object does not exist.
#pragma once

#include "check/update/LongPath.h"

#include "common/KzComn_Machine.h"

#include <windows.h>

#include <string>

namespace Check {

/// Whether the Win32 code of a lookup or listing means that nothing exists there. With any other code this is unknown:
/// a folder without list access may not be empty.
inline bool MeansNothingThere(DWORD dwError) noexcept
{
    // The last two: a file where a folder is needed, and an invalid file name.
    return dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND || dwError == ERROR_DIRECTORY ||
           dwError == ERROR_INVALID_NAME;
}

/// The attributes of a file or folder; INVALID_FILE_ATTRIBUTES, with the code in `dwError`, when unreadable.
inline DWORD AttributesOf(const KzCommon::Machine& machine, const std::wstring& tstrPath, DWORD& dwError)
{
    DWORD dwAttributes = INVALID_FILE_ATTRIBUTES;
    dwError = ERROR_SUCCESS;
    return machine.ReadAttributes(LongPath(tstrPath), dwAttributes, &dwError) ? dwAttributes : INVALID_FILE_ATTRIBUTES;
}

}  // namespace Check
