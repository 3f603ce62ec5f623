#include "common/KzComn_String.h"

#include <boost/lexical_cast.hpp>

#include <algorithm>
#include <cstring>
#include <cerrno>
#include <cwchar>

namespace KzCommon::String {

namespace {

// boost::lexical_cast accepts a sign ("-1" becomes the largest unsigned number), so check the digits first.
template <class Number>
Number ToNumberStrict(const std::wstring& tstrText) noexcept
{
    const bool bDigits =
        std::all_of(tstrText.begin(), tstrText.end(), [](wchar_t ch) { return ch >= L'0' && ch <= L'9'; });
    Number number = 0;
    if (!bDigits || !boost::conversion::try_lexical_convert(tstrText, number)) return 0;
    return number;
}

std::wstring FromMultiByte(UINT uCodePage, DWORD dwFlags, std::string_view strBytes)
{
    const int cb = static_cast<int>(strBytes.size());
    if (cb == 0) return {};
    const int cch = ::MultiByteToWideChar(uCodePage, dwFlags, strBytes.data(), cb, nullptr, 0);
    std::wstring tstrText(static_cast<std::size_t>(std::max(cch, 0)), L'\0');
    if (cch > 0) ::MultiByteToWideChar(uCodePage, dwFlags, strBytes.data(), cb, tstrText.data(), cch);
    return tstrText;
}

}  // namespace

std::wstring EnsureBackslash(std::wstring tstrFolder)
{
    if (!tstrFolder.empty() && tstrFolder.back() != L'\\') tstrFolder.push_back(L'\\');
    return tstrFolder;
}

std::wstring JoinPath(const std::wstring& tstrFolder, std::wstring_view tstrName)
{
    return EnsureBackslash(tstrFolder).append(tstrName);
}

std::wstring FolderBelow(const std::wstring& tstrFolder, std::wstring_view tstrName)
{
    return tstrFolder.empty() ? std::wstring() : EnsureBackslash(JoinPath(tstrFolder, tstrName));
}

std::wstring FolderPart(std::wstring_view tstrPath)
{
    return std::wstring(tstrPath.substr(0, tstrPath.find_last_of(L"\\/") + 1));
}

const char* BaseName(const char* szPath) noexcept
{
    const char* szName = szPath;
    for (const char* sz = szPath; *sz; ++sz) {
        if (*sz == '/' || *sz == '\\') szName = sz + 1;
    }
    return szName;
}

bool IsFullPath(std::wstring_view tstrPath) noexcept
{
    const auto isSlash = [](wchar_t ch) {
        return ch == L'\\' || ch == L'/';
    };
    if (tstrPath.size() < 3) return false;
    return (tstrPath[1] == L':' && isSlash(tstrPath[2])) || (isSlash(tstrPath[0]) && isSlash(tstrPath[1]));
}

int SplitPath(const std::wstring& tstrPath, PathParts& parts)
{
    const int iError = ::_wsplitpath_s(tstrPath.c_str(), parts.szDrive, _MAX_DRIVE, parts.szDir, _MAX_DIR, parts.szName,
                                       _MAX_FNAME, parts.szExt, _MAX_EXT);
    if (iError != 0) ::SetLastError(iError == ERANGE ? ERROR_BUFFER_OVERFLOW : ERROR_INVALID_PARAMETER);
    return iError;
}

std::vector<std::wstring> SplitFields(const std::wstring& tstrText, wchar_t chSeparator, std::size_t cMaxFields,
                                      bool& bMore, std::vector<std::size_t>* pOffsets)
{
    constexpr std::size_t kUsualFields = 4;
    std::vector<std::wstring> fields;
    fields.reserve(std::min(cMaxFields, kUsualFields));
    std::wstring tstrBuffer = tstrText;
    const wchar_t szSeparators[] = {chSeparator, L'\0'};
    wchar_t* pContext = nullptr;
    wchar_t* szField = ::wcstok_s(tstrBuffer.data(), szSeparators, &pContext);
    for (; szField && fields.size() < cMaxFields; szField = ::wcstok_s(nullptr, szSeparators, &pContext)) {
        fields.emplace_back(szField);
        if (pOffsets) pOffsets->push_back(static_cast<std::size_t>(szField - tstrBuffer.data()));
    }
    bMore = szField != nullptr;
    return fields;
}

void ReplaceAll(std::wstring& tstrText, std::wstring_view tstrFrom, std::wstring_view tstrTo)
{
    if (tstrFrom.empty()) return;
    for (std::size_t uAt = tstrText.find(tstrFrom); uAt != std::wstring::npos;
         uAt = tstrText.find(tstrFrom, uAt + tstrTo.size())) {
        tstrText.replace(uAt, tstrFrom.size(), tstrTo);
    }
}

bool EqualsNoCase(std::wstring_view tstrLeft, std::wstring_view tstrRight) noexcept
{
    if (tstrLeft.size() != tstrRight.size()) return false;
    if (tstrLeft.empty()) return true;
    return ::CompareStringOrdinal(tstrLeft.data(), static_cast<int>(tstrLeft.size()), tstrRight.data(),
                                  static_cast<int>(tstrRight.size()), TRUE) == CSTR_EQUAL;
}

bool OrdinalNoCase::operator()(std::wstring_view tstrLeft, std::wstring_view tstrRight) const noexcept
{
    // Paths often share their beginning, and most characters are ASCII: only ask the system about the rest.
    const auto isPlain = [](wchar_t ch) {
        return ch < 0x80;
    };
    const auto upper = [](wchar_t ch) {
        return ch >= L'a' && ch <= L'z' ? static_cast<wchar_t>(ch - L'a' + L'A') : ch;
    };
    const std::size_t cch = std::min(tstrLeft.size(), tstrRight.size());
    for (std::size_t u = 0; u < cch; ++u) {
        const wchar_t chLeft = tstrLeft[u];
        const wchar_t chRight = tstrRight[u];
        if (chLeft == chRight) continue;
        if (!isPlain(chLeft) || !isPlain(chRight)) {
            return ::CompareStringOrdinal(&tstrLeft[u], static_cast<int>(tstrLeft.size() - u), &tstrRight[u],
                                          static_cast<int>(tstrRight.size() - u), TRUE) == CSTR_LESS_THAN;
        }
        if (upper(chLeft) != upper(chRight)) return upper(chLeft) < upper(chRight);
    }
    return tstrLeft.size() < tstrRight.size();
}

std::wstring LowerCase(std::wstring tstrText)
{
    if (!tstrText.empty()) ::CharLowerBuffW(tstrText.data(), static_cast<DWORD>(tstrText.size()));
    return tstrText;
}

std::wstring_view Trim(std::wstring_view tstrText, const wchar_t* szSpaces) noexcept
{
    tstrText.remove_prefix(std::min(tstrText.find_first_not_of(szSpaces), tstrText.size()));
    return tstrText.substr(0, tstrText.find_last_not_of(szSpaces) + 1);
}

bool StartsWithNoCase(std::wstring_view tstrText, std::wstring_view tstrBegin) noexcept
{
    return EqualsNoCase(tstrText.substr(0, tstrBegin.size()), tstrBegin);
}

bool IsBelow(std::wstring_view tstrPath, std::wstring_view tstrFolder) noexcept
{
    return !tstrFolder.empty() && tstrPath.size() > tstrFolder.size() && StartsWithNoCase(tstrPath, tstrFolder);
}

bool UlToStr(unsigned long ulValue, std::wstring& tstrText)
{
    if (boost::conversion::try_lexical_convert(ulValue, tstrText)) return true;
    ::SetLastError(ERROR_INVALID_DATA);
    return false;
}

DWORD ToDwordStrict(const std::wstring& tstrText) noexcept
{
    return ToNumberStrict<DWORD>(tstrText);
}

ULONGLONG ToQwordStrict(const std::wstring& tstrText) noexcept
{
    return ToNumberStrict<ULONGLONG>(tstrText);
}

std::string ToUtf8(std::wstring_view tstrText)
{
    const int cch = static_cast<int>(tstrText.size());
    if (cch == 0) return {};
    const int cb = ::WideCharToMultiByte(CP_UTF8, 0, tstrText.data(), cch, nullptr, 0, nullptr, nullptr);
    std::string strBytes(static_cast<std::size_t>(std::max(cb, 0)), '\0');
    if (cb > 0) ::WideCharToMultiByte(CP_UTF8, 0, tstrText.data(), cch, strBytes.data(), cb, nullptr, nullptr);
    return strBytes;
}

bool FromUtf8(std::string_view strBytes, std::wstring& tstrText)
{
    std::wstring tstrRead = FromMultiByte(CP_UTF8, MB_ERR_INVALID_CHARS, strBytes);
    if (tstrRead.empty() && !strBytes.empty()) return false;
    tstrText = std::move(tstrRead);
    return true;
}

std::wstring FromUtf16(std::string_view strBytes)
{
    std::wstring tstrText(strBytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(tstrText.data(), strBytes.data(), tstrText.size() * sizeof(wchar_t));
    return tstrText;
}

std::wstring FromAnsi(std::string_view strText)
{
    return FromMultiByte(CP_ACP, 0, strText);
}

}  // namespace KzCommon::String
