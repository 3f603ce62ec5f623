// "rollup": one table of the records of many machines.
#pragma once

#include "check/update/CommandLine.h"
#include "check/verify/Record.h"

#include <optional>
#include <string>
#include <vector>

namespace Check {

/// A file that is no record, or one that does not count.
struct IgnoredRecord {
    std::wstring tstrFile;
    std::wstring tstrReason;
};

/// What counts of the latest record of a machine.
struct MachineState {
    std::wstring tstrMachine;
    std::string strUpdate;
    std::wstring tstrPackage;
    std::wstring tstrProductVersion;
    std::wstring tstrAgentVersion;
    std::wstring tstrTime;
    std::wstring tstrStarted;
    std::optional<ULONGLONG> optPendingMinutes;
    MachineVerdict eVerdict = MachineVerdict::eUnknown;
    std::size_t cNotKept = 0;
};

/// A result that speaks against the update, and the machines that have it.
struct SharedReason {
    std::wstring tstrVerdict;
    std::wstring tstrWhat;
    std::vector<std::size_t> machines;  ///< indices in Rollup::machines
};

/// The table.
struct Rollup {
    std::vector<MachineState> machines;  ///< by name
    std::vector<SharedReason> reasons;   ///< the most frequent first
    std::vector<std::wstring> unheard;   ///< machines of the list without a record
    std::vector<IgnoredRecord> ignored;  ///< damaged files and second copies
    std::size_t cOlder = 0;              ///< records of machines with a later one
};

/// Reads all ".json" files in a folder and its subfolders. `known` is the list of machines, or empty. False with the
/// code when the folder cannot be listed.
[[nodiscard]] bool MakeRollup(const std::wstring& tstrFolder, const std::vector<std::wstring>& known, Rollup& rollup,
                              DWORD* pdwError);

/// Runs the verb.
[[nodiscard]] int RunRollup(const Arguments& arguments, Output& output);

}  // namespace Check
