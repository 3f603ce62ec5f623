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

/// A member's text; empty when it is missing, not a string, or not UTF-8.
std::optional<std::wstring> TextOf(const Json::Value& value)
{
    std::wstring tstrText;
    if (!value.isString() || !String::FromUtf8(value.asString(), tstrText)) return std::nullopt;
    return tstrText;
}

/// The trace text of a tag.
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

Change ChangeOf(const std::wstring& tstrTag, Outcome eOutcome, const wchar_t* szReason)
{
    Change change{.eAction = Action::eCarryOver, .eOutcome = eOutcome};
    change.tstrName = tstrTag;
    change.tstrReason = szReason;
    return change;
}

/// The content of a file for one setting.
struct Setting {
    ConfigStore::Found eFound = ConfigStore::Found::eNone;
    Config::Value value;
    Config::Type eType = Config::Type::eString;
};

Setting Read(const ConfigStore& store, const Config::TagPath& path)
{
    Setting setting;
    setting.eFound = store.Read(path, setting.value, setting.eType);
    return setting;
}

/// Describes a written setting; a secret without its values.
void Show(Change& change, const Config::TagPath& path, const Setting& before, const Config::Value& users,
          const Setting& after)
{
    const bool bExisted = before.eFound == ConfigStore::Found::eValue;
    change.eOutcome = !bExisted                                                    ? Outcome::eNew
                      : before.value == after.value && before.eType == after.eType ? Outcome::eStay
                                                                                   : Outcome::eReplace;
    if (Config::IsSecret(path) || before.value.bProtected || users.bProtected || after.value.bProtected) {
        change.tstrReason = L"a secret";
        return;
    }
    if (bExisted) change.optOld = before.value.tstrText;
    change.optNew = users.tstrText;
}

bool HasData(const Json::Value& request)
{
    return request.isObject() && request.isMember("Data") && request["Data"].isObject();
}

}  // namespace

DWORD CConfigProvider::PreInitialize()
{
    const OperationTrace trace(L"CConfigProvider::PreInitialize()");
    m_tstrInstallDir = Frwk::Utility::GetInstalledFolder(m_machine);
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
    FoundTypes& foundTypes = m_found.emplace();  // first: if a later step fails, no value counts as found
    Json::Value& data = request["Data"];
    m_refused.clear();
    ConfigStore store(m_machine, m_protection);
    if (!store.Open(m_tstrInstallDir + L"config.xml")) return m_dwQueried = Config::eUnreadableFile;
    for (const std::string& strTag : data.getMemberNames()) {
        if (!QueryTag(store, strTag, data[strTag], foundTypes)) m_refused.insert(strTag);
    }
    return m_dwQueried = m_refused.empty() ? Config::eOk : Config::eRefusedValue;
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
    m_changes.clear();
    const Json::Value& data = request["Data"];
    ConfigStore store(m_machine, m_protection);
    if (!store.Open(String::JoinPath(*folder, *fileName))) {
        for (const std::string& strTag : data.getMemberNames()) {
            m_changes.push_back(ChangeOf(TraceText(strTag), Outcome::eFail, L"the update's file cannot be read"));
        }
        return Config::eUnreadableFile;
    }
    const bool bAll = WriteData(store, data);
    if (!store.Save()) {
        for (Change& change : m_changes) {
            if (change.eOutcome == Outcome::eNew || change.eOutcome == Outcome::eReplace) {
                change = ChangeOf(change.tstrName, Outcome::eFail, L"the update's file cannot be written");
            }
        }
        return Config::eUnwritableFile;
    }
    return bAll ? Config::eOk : Config::eRefusedValue;
}

const wchar_t* CConfigProvider::WhyNotFound(const std::string& strTag) const
{
    if (Config::IsFailure(m_dwQueried) && m_refused.empty()) return L"the installed file cannot be read";
    if (m_refused.contains(strTag)) {
        return L"left alone: the installed value does not fit its type or is not authentic";
    }
    return PathOf(strTag) ? nullptr : L"not a tag path";
}

bool CConfigProvider::WriteData(ConfigStore& store, const Json::Value& data)
{
    bool bAll = true;
    for (const std::string& strTag : data.getMemberNames()) {
        const bool bFound = !m_found || m_found->contains(strTag);
        Change& change = m_changes.emplace_back(ChangeOf(TraceText(strTag), Outcome::eFail, L""));
        if (bFound && !data[strTag].isNull()) {
            bAll = WriteTag(store, strTag, data[strTag], change) && bAll;
            continue;
        }
        const wchar_t* const szWhy = WhyNotFound(strTag);
        change.eOutcome = szWhy ? Outcome::eFail : Outcome::eStay;
        change.tstrReason = szWhy ? szWhy : L"left alone: the installed file has no such setting";
        if (data[strTag].isNull()) continue;
        Trace(kTraceInfo, L"CConfigProvider::Write() - [%s] has no value of the user's and stays as it is.",
              TraceText(strTag).c_str());
    }
    return bAll;
}

bool CConfigProvider::WriteTag(ConfigStore& store, const std::string& strTag, const Json::Value& value,
                               Change& change) const
{
    const std::optional<Config::TagPath> path = PathOf(strTag);
    const std::optional<std::wstring> text = TextOf(value);
    if (!path || !text) {
        Trace(kTraceError, L"*** CConfigProvider::Write() - [%s] is no tag path or its value no text.",
              TraceText(strTag).c_str());
        change.tstrReason = L"not a tag path";
        return false;
    }
    const Config::Default* pDefault = Config::FindDefault(*path);
    Config::Type eNewType = pDefault ? pDefault->eType : Config::Type::eString;
    if (m_found) eNewType = m_found->at(strTag);
    const Setting before = Read(store, *path);
    const Config::Value users = Config::FromTransit(*text);
    if (!store.Write(*path, users, eNewType)) {
        change.tstrReason = L"left alone: the update's file cannot take the value";
        return false;
    }
    Show(change, *path, before, users, Read(store, *path));
    return true;
}
