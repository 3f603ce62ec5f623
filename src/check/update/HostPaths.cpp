#include "check/update/HostPaths.h"

#include "check/update/JsonText.h"

#include "common/KzComn_String.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

/// End a path within a text. Two spaces do, too: a name may have one.
constexpr wchar_t kAfterPaths[] = L"\"<>|*?:;\r\n";

std::wstring ReadHostDrive()
{
    wchar_t szDrive[8] = {};
    const DWORD cch = ::GetEnvironmentVariableW(L"BREVANT_HOST_DRIVE", szDrive, static_cast<DWORD>(std::size(szDrive)));
    return cch == 2 && szDrive[1] == L':' ? szDrive : L"";
}

bool IsWordCharacter(wchar_t ch)
{
    return ch == L'_' || ::IsCharAlphaNumericW(ch);
}

/// Where the path that begins there ends.
std::size_t EndOfPath(const std::wstring& tstrText, std::size_t uBegin)
{
    const std::size_t uEnd =
        std::min({tstrText.find_first_of(kAfterPaths, uBegin), tstrText.find(L"  ", uBegin), tstrText.size()});
    // The colon may be that of the next path's drive.
    return uEnd > uBegin && uEnd < tstrText.size() && tstrText[uEnd] == L':' ? uEnd - 1 : uEnd;
}

}  // namespace

const std::wstring& HostDrive()
{
    static const std::wstring tstrDrive = ReadHostDrive();
    return tstrDrive;
}

std::optional<std::wstring> HostPathOf(const std::wstring& tstrPath, const std::wstring& tstrDrive)
{
    if (tstrDrive.empty() || !String::StartsWithNoCase(tstrPath, tstrDrive + L"\\")) return std::nullopt;
    std::wstring tstrHost = tstrPath.substr(tstrDrive.size());
    std::replace(tstrHost.begin(), tstrHost.end(), L'\\', L'/');
    return tstrHost;
}

std::wstring WithHostPaths(const std::wstring& tstrText, const std::wstring& tstrDrive)
{
    if (tstrDrive.empty()) return tstrText;
    const std::wstring tstrRoot = tstrDrive + L"\\";
    constexpr std::wstring_view kLong = L"\\\\?\\";
    std::wstring tstrShown;
    std::size_t uDone = 0;
    for (std::size_t uFound = tstrText.find(tstrRoot); uFound != std::wstring::npos;
         uFound = tstrText.find(tstrRoot, std::max(uDone, uFound + 1))) {
        if (uFound > uDone && IsWordCharacter(tstrText[uFound - 1])) continue;
        const std::size_t uEnd = EndOfPath(tstrText, uFound + tstrRoot.size());
        std::wstring tstrBefore = tstrText.substr(uDone, uFound - uDone);
        if (tstrBefore.ends_with(kLong)) tstrBefore.resize(tstrBefore.size() - kLong.size());
        tstrShown += tstrBefore + HostPathOf(tstrText.substr(uFound, uEnd - uFound), tstrDrive).value_or(L"");
        uDone = uEnd;
    }
    return tstrShown + tstrText.substr(uDone);
}

void ShowHostPaths(Json::Value& value, const std::wstring& tstrDrive)
{
    if (tstrDrive.empty()) return;
    std::wstring tstrText;
    if (value.isString() && String::FromUtf8(value.asString(), tstrText)) {
        value = ToJson(WithHostPaths(tstrText, tstrDrive));
    } else if (value.isArray() || value.isObject()) {
        for (Json::Value& member : value) ShowHostPaths(member, tstrDrive);
    }
}

}  // namespace Check
