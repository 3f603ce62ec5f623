// Access to the product's configuration, "config.xml", through JSON requests.
#pragma once

#include "config/ConfigProtection.h"
#include "config/ConfigResult.h"
#include "config/ConfigStore.h"

#include <json/value.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Call order: PreInitialize, Initialize, any number of MessageProc, Uninitialize. All except the last return a
/// Config::Result; nothing is thrown.
///
/// A request is an object with the member "Data", an object of settings: tag paths and values, all in UTF-8. Values are
/// strings ("0" and "1" for a bool, decimal for an int); protected values are in their protected form
/// (Config::ToTransit).
class CConfigProvider {
public:
    /// Sets every member of "Data" to the current value from "config.xml" in the product's install folder: the built-in
    /// default if the file has no value, null if there is no default either. Refused values are unchanged, and so are
    /// all members when the file is unreadable.
    static constexpr DWORD kQuery = 0x15000001;
    /// Writes the members of "Data" to the existing file "FileName" in the folder "FilePath". Skips null members and,
    /// after a query, members not found in the installed file, because a built-in default is not a user's value. Keeps
    /// the rest of the file, and does not write the file if nothing changes.
    static constexpr DWORD kWrite = 0x15000002;

    explicit CConfigProvider(KzCommon::Machine& machine) noexcept : m_machine(machine) {}
    CConfigProvider(const CConfigProvider&) = delete;
    CConfigProvider& operator=(const CConfigProvider&) = delete;
    ~CConfigProvider() = default;

    /// Finds the product's install folder.
    [[nodiscard]] DWORD PreInitialize();
    /// Prepares the protection of values.
    [[nodiscard]] DWORD Initialize();
    /// Carries out one request, kQuery or kWrite, and updates it in place.
    [[nodiscard]] DWORD MessageProc(DWORD dwMessage, Json::Value& request);
    void Uninitialize() noexcept;

    /// The result of the last kWrite for each setting of its request, in order: Action::eCarryOver, without a target.
    [[nodiscard]] const std::vector<KzCommon::Change>& Changes() const noexcept { return m_changes; }

private:
    using FoundTypes = std::map<std::string, Config::Type>;

    [[nodiscard]] DWORD Dispatch(DWORD dwMessage, Json::Value& request);
    [[nodiscard]] DWORD Query(Json::Value& request);
    [[nodiscard]] DWORD Write(Json::Value& request);
    [[nodiscard]] bool QueryTag(const Config::ConfigStore& store, const std::string& strTag, Json::Value& value,
                                FoundTypes& foundTypes) const;
    [[nodiscard]] bool WriteTag(Config::ConfigStore& store, const std::string& strTag, const Json::Value& value,
                                KzCommon::Change& change) const;
    [[nodiscard]] bool WriteData(Config::ConfigStore& store, const Json::Value& data);
    /// Why there is no value to write for a setting.
    [[nodiscard]] const wchar_t* WhyNotFound(const std::string& strTag) const;

    KzCommon::Machine& m_machine;
    std::wstring m_tstrInstallDir;
    Config::ValueProtection m_protection;
    bool m_bReady = false;
    // The settings found by the session's query with their types, which new elements get. Empty before a query.
    std::optional<FoundTypes> m_found;
    DWORD m_dwQueried = Config::eOk;
    std::set<std::string> m_refused;  // refused by the session's query
    std::vector<KzCommon::Change> m_changes;
};
