#include "config/ConfigValue.h"

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

constexpr Default kDefaults[] = {
    {L"/ProxySettings/Enable", Type::eBool, L"0"},
    {L"/ProxySettings/UseSystemSettings", Type::eBool, L"1"},
    {L"/ProxySettings/Server", Type::eString, L""},
    {L"/ProxySettings/Port", Type::eInt, L"8080"},
    {L"/ProxySettings/UserName", Type::eString, L""},
    {L"/ProxySettings/Password", Type::eString, L"", true},
    {L"/UpdateServer/Address", Type::eString, L"https://update.kazmere.example/qorvault/"},
    {L"/FeedbackServer/Address", Type::eString, L"https://feedback.kazmere.example/qorvault/"},
};

bool IsInteger(const std::wstring& tstrValue) noexcept
{
    // boost::lexical_cast takes a plus sign as well.
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
    path.m_names = String::SplitFields(tstrPath, L'/', kMostNames, bMore);
    if (bMore || path.m_names.empty()) return std::nullopt;
    return path;
}

std::wstring TagPath::Text() const
{
    std::wstring tstrText;
    for (const std::wstring& tstrName : m_names) tstrText.append(L"/").append(tstrName);
    return tstrText;
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

const Default* FindDefault(const TagPath& path) noexcept
{
    const std::wstring tstrPath = path.Text();
    for (const Default& row : kDefaults) {
        if (String::EqualsNoCase(tstrPath, row.szTagPath)) return &row;
    }
    return nullptr;
}

}  // namespace Config
