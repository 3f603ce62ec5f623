#include "check/update/OpenUpdate.h"

#include "check/update/ErrorText.h"

#include "common/KzComn_File.h"

using namespace KzCommon;

namespace Check {

int CannotRead(const std::wstring& tstrPath, DWORD dwError, Output& output)
{
    output.tstrErrors += tstrPath + L": cannot be read: " + DescribeError(dwError) + L"\n";
    return kCannotRead;
}

bool OpenUpdate(const Arguments& arguments, Update& update, Output& output)
{
    const std::wstring& tstrFolder = arguments.operands.front();
    DWORD dwError = ERROR_SUCCESS;
    if (update.Open(tstrFolder, arguments.optInstalled, &dwError)) return true;
    if (dwError == ERROR_FILE_NOT_FOUND) {
        output.tstrErrors += tstrFolder + L": not an update: it has neither QorPaFrwk.ini nor Component\\\n";
    } else {
        const bool bInstalled = arguments.optInstalled && Storage::Directory::IsExisted(update.Root());
        static_cast<void>(CannotRead(bInstalled ? *arguments.optInstalled : tstrFolder, dwError, output));
    }
    return false;
}

}  // namespace Check
