#include "config/ConfigProvider.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Exception.h"
#include "common/KzComn_FileName.h"
#include "common/KzComn_String.h"
#include "config/ConfigDefaults.h"

using namespace KzCommon;
using Config::ConfigStore;

namespace {

/// A member's text; nothing when it is absent, no string, or no UTF-8.
std::optional<std::wstring> TextOf(const Json::Value& value)
{
    std::wstring tstrText;
    if (!value.isString() || !String::FromUtf8(value.asString(), tstrText)) return std::nullopt;
    return tstrText;
}

/// A tag for the trace.
std::wstring TraceText(const std::string& strTag)
{
    std::wstring tstrTag;
    static_cast<void>(String::FromUtf8(strTag, tstrTag));
    return tstrTag;
}

std::optional<Config::TagPath> PathOf(const std::string& strTag)
{
    std::wstring tstrTag;
    return String::FromUtf8(strTag, tstrTag) ? Config::TagPath::Parse(tstrTag) : std::nullopt;
}

bool HasData(const Json::Value& request)
{
    return request.isObject() && request.isMember("Data") && request["Data"].isObject();
}

}  // namespace

DWORD CConfigProvider::PreInitialize()
{
    const OperationTrace trace(L"CConfigProvider::PreInitialize()");
    m_tstrInstallDir = Frwk::Utility::GetInstalledFolder();
    return m_tstrInstallDir.empty() ? Config::eNoInstallFolder : Config::eOk;
}

DWORD CConfigProvider::Initialize()
{
    const OperationTrace trace(L"CConfigProvider::Initialize()");
    if (m_tstrInstallDir.empty()) return Config::eNotReady;
    DWORD dwError = ERROR_SUCCESS;
    m_bReady = m_protection.Open(Config::kStoreKey, dwError);
    if (m_bReady) return Config::eOk;
    Trace(kTraceError, L"*** CConfigProvider::Initialize() - the encryption cannot be used. [0x%08x]", dwError);
    return Config::eNoProtection;
}

void CConfigProvider::Uninitialize() noexcept
{
    m_bReady = false;
    m_tstrInstallDir.clear();
    m_found.reset();
}

DWORD CConfigProvider::MessageProc(DWORD dwMessage, Json::Value& request)
{
    const OperationTrace trace(L"CConfigProvider::MessageProc()");
    DWORD dwResult = Config::eInternalError;
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Guarded(&dwError, [&] { dwResult = Dispatch(dwMessage, request); })) {
        Trace(kTraceError, L"*** CConfigProvider::MessageProc(0x%08x) failed. [0x%08x]", dwMessage, dwError);
        return Config::eInternalError;
    }
    return dwResult;
}

DWORD CConfigProvider::Dispatch(DWORD dwMessage, Json::Value& request)
{
    static constexpr struct {
        DWORD dwMessage;
        DWORD (CConfigProvider::*pfnCarryOut)(Json::Value&);
    } kMessages[] = {
        {kQuery, &CConfigProvider::Query},
        {kWrite, &CConfigProvider::Write},
    };
    if (!m_bReady) return Config::eNotReady;
    for (const auto& row : kMessages) {
        if (row.dwMessage != dwMessage) continue;
        if (HasData(request)) return (this->*row.pfnCarryOut)(request);
        Trace(kTraceError, L"*** CConfigProvider::MessageProc(0x%08x) - the request has no \"Data\".", dwMessage);
        return Config::eBadRequest;
    }
    Trace(kTraceError, L"*** CConfigProvider::MessageProc(0x%08x) - unknown message.", dwMessage);
    return Config::eUnknownMessage;
}

DWORD CConfigProvider::Query(Json::Value& request)
{
    FoundTypes& foundTypes = m_found.emplace();  // first of all: whatever fails from here on, nothing counts as found
    Json::Value& data = request["Data"];
    ConfigStore store(m_protection);
    if (!store.Open(m_tstrInstallDir + L"config.xml")) return Config::eUnreadableFile;
    DWORD dwResult = Config::eOk;
    for (const std::string& strTag : data.getMemberNames()) {
        if (!QueryTag(store, strTag, data[strTag], foundTypes)) dwResult = Config::eRefusedValue;
    }
    return dwResult;
}

bool CConfigProvider::QueryTag(const ConfigStore& store, const std::string& strTag, Json::Value& value,
                               FoundTypes& foundTypes) const
{
    const std::optional<Config::TagPath> path = PathOf(strTag);
    if (!path) {
        value = Json::nullValue;
        return true;
    }
    Config::Value found;
    Config::Type eType = Config::Type::eString;
    const ConfigStore::Found eFound = store.Read(*path, found, eType);
    if (eFound == ConfigStore::Found::eRefused) return false;
    if (eFound == ConfigStore::Found::eNone) {
        const Config::Default* pDefault = Config::FindDefault(*path);
        value = pDefault ? Json::Value(String::ToUtf8(pDefault->szValue)) : Json::Value();
        return true;
    }
    value = String::ToUtf8(Config::ToTransit(found));
    foundTypes[strTag] = eType;
    return true;
}

DWORD CConfigProvider::Write(Json::Value& request)
{
    const std::optional<std::wstring> folder = TextOf(request.get("FilePath", {}));
    const std::optional<std::wstring> fileName = TextOf(request.get("FileName", {}));
    if (!folder || folder->empty() || folder->find(L'\0') != std::wstring::npos || !fileName ||
        !Storage::File::IsPlainName(*fileName)) {
        Trace(kTraceError, L"*** CConfigProvider::Write() - the request names no file.");
        return Config::eBadRequest;
    }
    ConfigStore store(m_protection);
    if (!store.Open(String::JoinPath(*folder, *fileName))) return Config::eUnreadableFile;

    DWORD dwResult = Config::eOk;
    const Json::Value& data = request["Data"];
    for (const std::string& strTag : data.getMemberNames()) {
        const bool bFound = !m_found || m_found->contains(strTag);
        if (data[strTag].isNull()) continue;
        if (!bFound) {
            Trace(kTraceInfo, L"CConfigProvider::Write() - [%s] has no value of the user's and stays as it is.",
                  TraceText(strTag).c_str());
            continue;
        }
        if (!WriteTag(store, strTag, data[strTag])) dwResult = Config::eRefusedValue;
    }
    return store.Save() ? dwResult : Config::eUnwritableFile;
}

bool CConfigProvider::WriteTag(ConfigStore& store, const std::string& strTag, const Json::Value& value) const
{
    const std::optional<Config::TagPath> path = PathOf(strTag);
    const std::optional<std::wstring> text = TextOf(value);
    if (!path || !text) {
        Trace(kTraceError, L"*** CConfigProvider::Write() - [%s] is no tag path or its value no text.",
              TraceText(strTag).c_str());
        return false;
    }
    const Config::Default* pDefault = Config::FindDefault(*path);
    Config::Type eNewType = pDefault ? pDefault->eType : Config::Type::eString;
    if (m_found) eNewType = m_found->at(strTag);
    return store.Write(*path, Config::FromTransit(*text), eNewType);
}
