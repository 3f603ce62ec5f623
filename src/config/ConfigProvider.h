// The product's configuration, "config.xml", reached through JSON requests.
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

/// Called in this order: PreInitialize, Initialize, any number of MessageProc, Uninitialize. All of them but the last
/// return a Config::Result; nothing is thrown.
///
/// A request is an object whose member "Data" is an object of settings: tag paths and values, all texts in UTF-8.
/// Values are strings ("0" and "1" for a bool, decimal for an int), protected ones their protected text
/// (Config::ToTransit).
class CConfigProvider {
public:
    /// Fills every member of "Data" with the current value from "config.xml" in the product's install folder: the
    /// built-in default where the file has none, null where there is neither. A value that is refused is left as it was
    /// sent, and so is everything when the file cannot be read.
    static constexpr DWORD kQuery = 0x15000001;
    /// Writes the members of "Data" into the existing file "FileName" in the folder "FilePath". Left out are null
    /// members and, after a query, whatever that did not find in the installed file: a built-in default is no value of
    /// the user's. Everything else in the file stays, and a file in which nothing changes is not touched.
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

    /// What the last kWrite did with each setting of its request, in its order: Action::eCarryOver, without a target.
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
    /// Why a setting has no value to write.
    [[nodiscard]] const wchar_t* WhyNotFound(const std::string& strTag) const;

    KzCommon::Machine& m_machine;
    std::wstring m_tstrInstallDir;
    Config::ValueProtection m_protection;
    bool m_bReady = false;
    // What the session's query found, with its types: what a new element is made as. Nothing before a query.
    std::optional<FoundTypes> m_found;
    DWORD m_dwQueried = Config::eOk;
    std::set<std::string> m_refused;  // by the session's query
    std::vector<KzCommon::Change> m_changes;
};
