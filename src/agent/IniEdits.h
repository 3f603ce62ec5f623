// The update information records of the instruction file.
#pragma once

#include "common/KzComn_Retry.h"

#include "common/KzComn_Machine.h"

#include <string>

/// An INI record taken apart. A field that the record does not have is empty.
struct IniRecord {
    std::wstring tstrSection;
    std::wstring tstrKey;
    std::wstring tstrValue;
    bool bTooManyFields = false;

    /// Whether there is something to write.
    [[nodiscard]] bool IsComplete() const noexcept
    {
        return !tstrSection.empty() && !tstrKey.empty() && !tstrValue.empty();
    }
};

/// Takes a record apart; does and traces nothing.
[[nodiscard]] IniRecord ParseIniRecord(const std::wstring& tstrData);

/// The INI file that is changed.
struct IniTarget {
    std::wstring tstrPath;     ///< the file that the change is for, as the trace names it
    std::wstring tstrWritten;  ///< the file that is written: that one, or a copy that is to take its place
};

/// How often the changes of one file are tried again while others use it, all of them together: for five seconds. After
/// a change that has arrived at least kInUseRepetitions are left for the next one.
inline constexpr unsigned kEditRepetitions = 50;

/// Changes keys of an INI file and records the deployed version in it.
void ModifyUpdateInfo(KzCommon::Machine& machine, const IniTarget& target);

/// Carries out one record of section, key and value. WritePrivateProfileStringW.
void ModifyIniKeyValue(KzCommon::Machine& machine, const IniTarget& target, const std::wstring& tstrData,
                       KzCommon::Storage::Patience& patience);

/// What records the version of the agent's own component.
[[nodiscard]] IniRecord DeployedVersion();

/// Writes DeployedVersion(). WritePrivateProfileStringW.
void DeployVersion(KzCommon::Machine& machine, const IniTarget& target, KzCommon::Storage::Patience& patience);
