// The component files: puts a folder of a downloaded package in its place, now or at the next restart.
#pragma once

#include "agent/RunContext.h"

#include <functional>
#include <string>

/// How many names beside its destination a file that comes from another drive is tried under: the destination's with a
/// number from 0 on after it.
inline constexpr unsigned long kStageNames = 100;

/// Whether two paths lie on one drive, so that a file can be moved from one to the other at the next restart. Traces a
/// path whose drive cannot be told; then they count as if they did.
[[nodiscard]] bool IsSameDrive(const std::wstring& tstrLeft, const std::wstring& tstrRight);

/// Called with the source and the destination of a file.
using CopyVisitor = std::function<void(const std::wstring& tstrSource, const std::wstring& tstrDestination)>;
/// Called with those of a folder that is left out, and why.
using SkipVisitor = std::function<void(const std::wstring& tstrSourceDir, const std::wstring& tstrDestinationDir,
                                       const wchar_t* szReason)>;

/// Calls `visit` for every file that CopyDirectory() copies with the same arguments, in its order, and `skip`, which
/// may be null, for every folder that it leaves out with a trace line.
void ForEachFileToCopy(const KzCommon::Machine& machine, const std::wstring& tstrSourceDir,
                       const std::wstring& tstrPattern, const std::wstring& tstrDestinationDir, bool bRecurse,
                       const CopyVisitor& visit, const SkipVisitor& skip = nullptr);

/// Copies the entries of a folder that match `tstrPattern`, with `bRecurse` those of its folders too, each folder when
/// it is met; with `bAfterReboot` at the next restart, otherwise now. Destination folders are not created. Links to
/// other folders are not followed and leave a trace line, `tstrSourceDir` itself included. Always true. FindFirstFileW.
bool CopyDirectory(const RunContext& run, const std::wstring& tstrSourceDir, const std::wstring& tstrPattern,
                   const std::wstring& tstrDestinationDir, bool bRecurse, bool bAfterReboot);

/// Registers one file to take the place of `tstrDestination` at the next restart: the file itself on the same drive,
/// otherwise a copy staged beside the destination. False, with a trace line, when that fails. MoveFileExW.
bool CopyFileAfterReboot(const RunContext& run, const std::wstring& tstrSource, const std::wstring& tstrDestination);
