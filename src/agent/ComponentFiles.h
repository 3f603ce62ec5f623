// The component files: puts the folders of a downloaded package in their places, now or at the next restart.
#pragma once

#include "agent/PathValues.h"

#include <string>

/// Runs the deploy steps of the program package, each whatever became of the one before. Always true.
bool DeployProgramPackage(const PathValues& pathValues);

/// Deploys the resource package out of `tstrDownloadDir` (with trailing backslash). Always true.
bool DeployResourceFiles(const PathValues& pathValues, const std::wstring& tstrDownloadDir);

/// Copies the entries of a folder that match `tstrPattern`, with `bRecurse` those of its folders too, each folder when
/// it is met; with `bAfterReboot` at the next restart, otherwise now. Destination folders are not created. Links to
/// other folders are not followed and leave a trace line, `tstrSourceDir` itself included. Always true. FindFirstFileW.
bool CopyDirectory(const PathValues& pathValues, const std::wstring& tstrSourceDir, const std::wstring& tstrPattern,
                   const std::wstring& tstrDestinationDir, bool bRecurse, bool bAfterReboot);

/// Registers one file to take the place of `tstrDestination` at the next restart: the file itself on the same drive,
/// otherwise a copy staged beside the destination. False, with a trace line, when that fails. MoveFileExW.
bool CopyFileAfterReboot(const PathValues& pathValues, const std::wstring& tstrSource,
                         const std::wstring& tstrDestination);
