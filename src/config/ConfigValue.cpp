#include "config/ConfigValue.h"

#include "common/KzComn_Exception.h"
#include "common/KzComn_String.h"

#include <boost/lexical_cast.hpp>

#include <algorithm>

using namespace KzCommon;

namespace Config {

namespace {

constexpr std::wstring_view kProtectedPrefix = L"{protected}";
constexpr std::wstring_view kClearPrefix = L"{clear}";

constexpr struct {
    Type eType;
    const wchar_t* szName;
} kTypes[] = {
    {Type::eString, L"string"},
    {Type::eInt, L"int"},
    {Type::eBool, L"bool"},
};

bool IsInteger(const std::wstring& tstrValue) noexcept
{
    // boost::lexical_cast also accepts a plus sign.
    const auto itDigits = tstrValue.begin() + (tstrValue.starts_with(L'-') ? 1 : 0);
    long long llValue = 0;
    return std::all_of(itDigits, tstrValue.end(), [](wchar_t ch) { return ch >= L'0' && ch <= L'9'; }) &&
           boost::conversion::try_lexical_convert(tstrValue, llValue);
}

}  // namespace

std::optional<TagPath> TagPath::Parse(const std::wstring& tstrPath)
{
    if (tstrPath.find(L'\0') != std::wstring::npos) return std::nullopt;
    TagPath path;
    bool bMore = false;
    path.m_names = String::SplitFields(tstrPath, L'/', kMaxNames, bMore);
    if (bMore || path.m_names.empty()) return std::nullopt;
    return path;
}

std::wstring TagPath::Text() const
{
    std::wstring tstrText;
    for (const std::wstring& tstrName : m_names) tstrText.append(L"/").append(tstrName);
    return tstrText;
}

std::wstring TagPath::Folded() const
{
    const std::wstring tstrText = Text();
    const int cch = static_cast<int>(tstrText.size());
    std::wstring tstrFolded(tstrText.size(), L'\0');
    // Without linguistic casing the result has the length of the text.
    if (::LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, tstrText.data(), cch, tstrFolded.data(), cch, nullptr,
                        nullptr, 0) != cch) {
        Storage::Throw(::GetLastError());
    }
    return tstrFolded;
}

Type TypeOfName(std::wstring_view tstrName) noexcept
{
    if (tstrName.empty()) return Type::eString;
    for (const auto& row : kTypes) {
        if (tstrName == row.szName) return row.eType;
    }
    return Type::eUnknown;
}

const wchar_t* NameOfType(Type eType) noexcept
{
    for (const auto& row : kTypes) {
        if (row.eType == eType && eType != Type::eString) return row.szName;
    }
    return L"";
}

bool Fits(Type eType, const std::wstring& tstrValue) noexcept
{
    switch (eType) {
        case Type::eString: return true;
        case Type::eInt: return IsInteger(tstrValue);
        case Type::eBool: return tstrValue == L"0" || tstrValue == L"1";
        case Type::eUnknown: break;
    }
    return false;
}

std::wstring ToTransit(const Value& value)
{
    if (value.bProtected) return std::wstring(kProtectedPrefix) + value.tstrText;
    const bool bAmbiguous = value.tstrText.starts_with(kProtectedPrefix) || value.tstrText.starts_with(kClearPrefix);
    return bAmbiguous ? std::wstring(kClearPrefix) + value.tstrText : value.tstrText;
}

Value FromTransit(const std::wstring& tstrTransit)
{
    if (tstrTransit.starts_with(kProtectedPrefix)) return {true, tstrTransit.substr(kProtectedPrefix.size())};
    if (tstrTransit.starts_with(kClearPrefix)) return {false, tstrTransit.substr(kClearPrefix.size())};
    return {false, tstrTransit};
}

}  // namespace Config
