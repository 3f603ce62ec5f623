// Component files: copies folders of a downloaded package to their destinations, now or at the next restart.
#pragma once

#include "agent/RunContext.h"

#include <functional>
#include <string>

/// Number of stage names tried beside the destination for a file from another drive: the destination's name followed by
/// a number, starting at 0.
inline constexpr unsigned long kStageNames = 100;

/// Whether two paths are on one drive, so that the next restart can move a file from one to the other. Traces a path
/// without a drive; the result is then true.
[[nodiscard]] bool IsSameDrive(const std::wstring& tstrLeft, const std::wstring& tstrRight);

/// Called with the source and the destination of a file.
using CopyVisitor = std::function<void(const std::wstring& tstrSource, const std::wstring& tstrDestination)>;
/// Called with the source and destination of a skipped folder and the reason.
using SkipVisitor = std::function<void(const std::wstring& tstrSourceDir, const std::wstring& tstrDestinationDir,
                                       const wchar_t* szReason)>;

/// Calls `visit` for every file that CopyDirectory() copies with the same arguments, in the same order, and `skip` (may
/// be null) for every folder that it skips with a trace line.
void ForEachFileToCopy(const KzCommon::Machine& machine, const std::wstring& tstrSourceDir,
                       const std::wstring& tstrPattern, const std::wstring& tstrDestinationDir, bool bRecurse,
                       const CopyVisitor& visit, const SkipVisitor& skip = nullptr);

/// Copies the entries of a folder that match `tstrPattern`, and with `bRecurse` those of its subfolders when it reaches
/// them: at the next restart with `bAfterReboot`, otherwise now. Does not create destination folders. Does not follow
/// links to folders (`tstrSourceDir` included) and traces them. Always true. FindFirstFileW.
bool CopyDirectory(const RunContext& run, const std::wstring& tstrSourceDir, const std::wstring& tstrPattern,
                   const std::wstring& tstrDestinationDir, bool bRecurse, bool bAfterReboot);

/// Schedules one file to replace `tstrDestination` at the next restart: the file itself on the same drive, otherwise a
/// copy staged beside the destination. False, with a trace line, on failure. MoveFileExW.
bool CopyFileAfterReboot(const RunContext& run, const std::wstring& tstrSource, const std::wstring& tstrDestination);
