// Copies in which a run changes a settings file before it takes its place among the settings. In its place, a run that
// is ended half-way would leave a file that the next one takes for the update's own, or that the restart deploys.
#pragma once

#include "agent/RunContext.h"

#include <string>

/// The files that are changed in such copies.
enum class WorkingFile { eConfig, eUpdateInfo };

/// The working copy of this process, "UpdateInfo-000000d4.unfinished", in the product's download folder, where no
/// deploy step takes it; empty where that folder is not known.
[[nodiscard]] std::wstring WorkingCopyOf(const PathValues& pathValues, WorkingFile eFile);

/// Deletes the working copies of processes that run no more, and those of this one.
void RemoveWorkingCopies(const RunContext& run);

/// Copies `tstrSource` to the working copy and makes that writable; waits for a source that other programs use. False
/// with the code in `dwError`, nothing left behind.
[[nodiscard]] bool MakeWorkingCopy(KzCommon::Machine& machine, const std::wstring& tstrWorkingCopy,
                                   const std::wstring& tstrSource, DWORD& dwError);
