// Copies in which a run changes a settings file before it goes to the settings folder. An unfinished file there could
// be taken as the update's own by the next run, or deployed by the restart.
#pragma once

#include "agent/RunContext.h"

#include <string>

/// The files that are changed in working copies.
enum class WorkingFile { eConfig, eUpdateInfo };

/// The working copy of this process, "UpdateInfo-000000d4.unfinished", in the product's download folder, where no
/// deploy step takes it; empty when that folder is unknown.
[[nodiscard]] std::wstring WorkingCopyOf(const PathValues& pathValues, WorkingFile eFile);

/// Deletes the working copies of this process and of processes that have ended.
void RemoveWorkingCopies(const RunContext& run);

/// Copies `tstrSource` to the working copy and makes it writable; waits while the source is in use. On failure leaves
/// no file, sets `dwError` and returns false.
[[nodiscard]] bool MakeWorkingCopy(KzCommon::Machine& machine, const std::wstring& tstrWorkingCopy,
                                   const std::wstring& tstrSource, DWORD& dwError);
