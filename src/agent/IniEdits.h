// The update information records of the instruction file.
#pragma once

#include "common/KzComn_Retry.h"

#include "common/KzComn_Machine.h"

#include <string>

/// A parsed INI record. Missing fields are empty.
struct IniRecord {
    std::wstring tstrSection;
    std::wstring tstrKey;
    std::wstring tstrValue;
    bool bTooManyFields = false;

    /// Whether all fields needed for a write exist.
    [[nodiscard]] bool IsComplete() const noexcept
    {
        return !tstrSection.empty() && !tstrKey.empty() && !tstrValue.empty();
    }
};

/// Parses a record; changes and traces nothing.
[[nodiscard]] IniRecord ParseIniRecord(const std::wstring& tstrData);

/// The INI file to change.
struct IniTarget {
    std::wstring tstrPath;     ///< the file to change, shown in the trace
    std::wstring tstrWritten;  ///< the file to write: `tstrPath` or a copy that will replace it
};

/// How often the changes of one file are retried, together, while the file is in use: five seconds. After a successful
/// change at least kInUseRepetitions remain for the next one.
inline constexpr unsigned kEditRepetitions = 50;

/// Changes keys of an INI file and records the deployed version in it.
void ModifyUpdateInfo(KzCommon::Machine& machine, const IniTarget& target);

/// Carries out one record of section, key and value. WritePrivateProfileStringW.
void ModifyIniKeyValue(KzCommon::Machine& machine, const IniTarget& target, const std::wstring& tstrData,
                       KzCommon::Storage::Patience& patience);

/// The record that sets the version of the agent's own component.
[[nodiscard]] IniRecord DeployedVersion();

/// Writes DeployedVersion(). WritePrivateProfileStringW.
void DeployVersion(KzCommon::Machine& machine, const IniTarget& target, KzCommon::Storage::Patience& patience);
