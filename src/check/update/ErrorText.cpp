#include "check/update/ErrorText.h"

#include "common/KzComn_Exception.h"
#include "common/KzComn_LinkRule.h"
#include "config/ConfigResult.h"

#include <iterator>

namespace Check {

namespace {

struct WordsRow {
    DWORD dwCode;
    const wchar_t* szWords;
};

constexpr DWORD kWrapped = 0x80070000;  // an HRESULT around a Win32 code, which the shell and COM return
constexpr DWORD kCodeBits = 0xFFFF;
constexpr DWORD kUntrustedJunction = 448;  // ERROR_UNTRUSTED_MOUNT_POINT, which the toolchain's headers lack

/// Codes with a special meaning here or without a clear text in Windows.
constexpr WordsRow kWords[] = {
    {ERROR_FILE_NOT_FOUND, L"no such file, section, key or value"},
    {ERROR_PATH_NOT_FOUND, L"no such folder"},
    {ERROR_ACCESS_DENIED, L"access denied: not run as administrator, or the file is protected or in use"},
    {ERROR_INVALID_HANDLE, L"nothing is open, or out of memory"},
    {ERROR_INVALID_DATA, L"the registry value has another type than it should"},
    {ERROR_SHARING_VIOLATION, L"another program has the file open"},
    {ERROR_BAD_ARGUMENTS, L"a path is empty: usually the install folder is unknown"},
    {ERROR_FILE_TOO_LARGE, L"the file is larger than such a file may be"},
    {ERROR_NO_UNICODE_TRANSLATION, L"neither UTF-8 nor UTF-16 with BOM"},
    {ERROR_ALREADY_EXISTS, L"something else has that name"},
    {ERROR_DIRECTORY, L"a folder is there, or a file in the place of a folder"},
    {ERROR_BAD_PATHNAME, L"the path is not full, or names a whole drive"},
    {kUntrustedJunction, L"the path has a standard user's junction, which Windows refuses"},
    {KzCommon::Storage::Directory::kStoppedOnLink,
     L"the path has a junction or symbolic link that users may have created"},
    {ERROR_XML_PARSE_ERROR, L"not XML: the line says where"},
    {ERROR_CTX_WINSTATION_NOT_FOUND, L"no session at the console could show the question"},
    {static_cast<DWORD>(REGDB_E_CLASSNOTREG), L"the shell does not offer this"},
    {KzCommon::Storage::kCodelessFailure, L"a failure without a code of its own"},
    {Config::eNotReady, L"the settings cannot be used: why is in a line above"},
    {Config::eNoInstallFolder, L"the install folder is unknown"},
    {Config::eNoProtection, L"the encryption of Windows cannot be used"},
    {Config::eUnknownMessage, L"the settings have no such operation"},
    {Config::eBadRequest, L"the operation on the settings lacks something"},
    {Config::eUnreadableFile, L"the settings are missing or no valid XML"},
    {Config::eUnwritableFile, L"the settings cannot be replaced and are unchanged"},
    {Config::eRefusedValue, L"at least one setting was refused; all others were read or written"},
    {Config::eInternalError, L"out of memory"},
};

}  // namespace

std::wstring DescribeError(DWORD dwCode)
{
    if ((dwCode & ~kCodeBits) == kWrapped) return DescribeError(dwCode & kCodeBits);
    for (const WordsRow& row : kWords) {
        if (row.dwCode == dwCode) return row.szWords;
    }
    wchar_t szText[512] = {};
    constexpr DWORD kFlags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
    for (const DWORD dwLanguage : {static_cast<DWORD>(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US)), DWORD{0}}) {
        const DWORD cch = ::FormatMessageW(kFlags, nullptr, dwCode, dwLanguage, szText,
                                           static_cast<DWORD>(std::size(szText)), nullptr);
        if (cch == 0) continue;
        std::wstring tstrText(szText, cch);
        tstrText.resize(tstrText.find_last_not_of(L" .\r\n") + 1);
        return tstrText;
    }
    return L"error " + std::to_wstring(dwCode);
}

}  // namespace Check
