#include "config/ConfigDefaults.h"

#include "common/KzComn_String.h"

using namespace KzCommon;

namespace Config {

namespace {

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

}  // namespace

std::span<const Default> Defaults() noexcept
{
    return kDefaults;
}

const Default* FindDefault(const TagPath& path)
{
    const std::wstring tstrPath = path.Text();
    for (const Default& row : kDefaults) {
        if (String::EqualsNoCase(tstrPath, row.szTagPath)) return &row;
    }
    return nullptr;
}

bool IsSecret(const TagPath& path)
{
    const Default* pDefault = FindDefault(path);
    return pDefault && pDefault->bSecret;
}

}  // namespace Config
