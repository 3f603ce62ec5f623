// The record of a machine for a fleet: whether an update has arrived on it, in one small file.
#pragma once

#include "check/update/Folder.h"
#include "check/verify/Verify.h"

#include "common/KzComn_Machine.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// The verdict over a whole machine.
enum class MachineVerdict {
    eArrived,  ///< everything is as expected
    ePending,  ///< everything else waits for the restart
    eMissing,  ///< something has not arrived
    eUnknown   ///< nothing is known to be missing, but not everything could be examined
};

[[nodiscard]] MachineVerdict JudgeMachine(std::span<const VerifyResult> results);
/// "arrived", "pending", "missing", "unknown".
[[nodiscard]] const char* WordOf(MachineVerdict eVerdict);

/// One record.
struct Record {
    std::string strUpdate;     ///< the identity of the update's manifest; empty for a manifest without one
    std::wstring tstrPackage;  ///< the product package's download path
    std::wstring tstrProductVersion;
    std::wstring tstrAgentVersion;
    std::wstring tstrMachine;
    std::wstring tstrTime;     ///< UTC, "2026-11-22T10:00:00Z"
    std::wstring tstrStarted;  ///< the last start of Windows, likewise; Fast Startup does not count as one
    std::optional<ULONGLONG> optPendingMinutes;  ///< since the deployment, while the restart is pending
    MachineVerdict eVerdict = MachineVerdict::eUnknown;
    std::size_t cKept = 0;
    std::size_t cNotKept = 0;
    /// The results that are not as expected; of a record that was read, those that it lists.
    std::vector<VerifyResult> open;
};

/// The record of this machine, now. GetSystemTimeAsFileTime, GetTickCount64, GetComputerNameExW.
[[nodiscard]] Record MakeRecord(const KzCommon::Machine& machine, const Folder& installed,
                                const ExpectedState& expected, std::span<const VerifyResult> results);

/// JSON in pure ASCII, at most 4 KB of an update that has arrived. Lists the first open results as far as there is
/// space, at most 200, and the number of all.
[[nodiscard]] std::string FormatRecord(const Record& record);

/// Parses a record. False, with the reason in `tstrError`, for any other file.
[[nodiscard]] bool ParseRecord(std::string_view strBytes, Record& record, std::wstring& tstrError);

}  // namespace Check
