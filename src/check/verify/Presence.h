// Whether something is there: what the code of a failed look-up tells of it.
#pragma once

#include "check/update/LongPath.h"

#include "common/KzComn_Machine.h"

#include <windows.h>

#include <string>

namespace Check {

/// Whether the Win32 code of a look-up or a listing says that nothing is there. Every other code leaves it open: a
/// folder that the caller may not list is not an empty one.
inline bool MeansNothingThere(DWORD dwError) noexcept
{
    // The last two: a file is in the way of a folder, and a name that no file can have.
    return dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND || dwError == ERROR_DIRECTORY ||
           dwError == ERROR_INVALID_NAME;
}

/// The attributes of a file or folder; INVALID_FILE_ATTRIBUTES, with the code in `dwError`, when they cannot be read.
inline DWORD AttributesOf(const KzCommon::Machine& machine, const std::wstring& tstrPath, DWORD& dwError)
{
    DWORD dwAttributes = INVALID_FILE_ATTRIBUTES;
    dwError = ERROR_SUCCESS;
    return machine.ReadAttributes(LongPath(tstrPath), dwAttributes, &dwError) ? dwAttributes : INVALID_FILE_ATTRIBUTES;
}

}  // namespace Check
