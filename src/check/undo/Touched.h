// The places that a run touches, and how they differ between two machines.
#pragma once

#include "check/simulate/SimulatedMachine.h"

#include "common/KzComn_String.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Check {

/// Two names, compared as Windows compares them: key and value, section and key.
using NamePair = std::pair<std::wstring, std::wstring>;
struct NoCasePair {
    bool operator()(const NamePair& left, const NamePair& right) const
    {
        const KzCommon::String::OrdinalNoCase less;
        if (less(left.first, right.first)) return true;
        return !less(right.first, left.first) && less(left.second, right.second);
    }
};
using NamePairs = std::set<NamePair, NoCasePair>;

/// What runs have changed, or may have changed.
struct Touched {
    KzCommon::String::NoCaseSet paths;   ///< files and folders, as FullPath::Text()
    NamePairs values;                    ///< key paths below HKEY_LOCAL_MACHINE and value names
    NamePairs iniKeys;                   ///< sections and keys of the update information
    std::vector<std::wstring> settings;  ///< carried over, in the order of the run
    std::vector<std::wstring> commands;
    bool bNewName = false;  ///< the product takes its new name

    /// Adds the places of a run's changes.
    void Add(const std::vector<PlanStep>& steps);
};

/// A registry value's place in the view that the agent uses.
[[nodiscard]] KzCommon::RegistryPlace PlaceOf(const NamePair& value);

/// Whether a file or folder is the same on both machines: it is missing, a folder, or a file with the same content that
/// is read-only, hidden or a system file on both. A file whose content is not known counts as different.
[[nodiscard]] bool IsSamePath(const SimulatedMachine& left, const SimulatedMachine& right,
                              const std::wstring& tstrPath);

/// Whether a registry value has the same type and data on both machines, or is missing on both.
[[nodiscard]] bool IsSameValue(const SimulatedMachine& left, const SimulatedMachine& right, const NamePair& value);

/// A key of an INI file as Windows reads it; empty when it is missing.
[[nodiscard]] std::wstring ReadKey(const SimulatedMachine& machine, const std::wstring& tstrFile, const NamePair& key);

}  // namespace Check
