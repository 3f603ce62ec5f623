// What gives the product its new name after the restart.
#pragma once

#include "common/KzComn_Machine.h"

#include <string>

/// Replaces the old shortcuts by the new ones and writes the localised product name where the shell and the browsers
/// show it. Every failure is traced and the next step runs. An unreadable string table leaves empty names, which are
/// written all the same.
void PostUdActionForNewName(KzCommon::Machine& machine);

/// Removes the shortcuts that a description file of the install folder (with trailing backslash) names.
void UninstallShortCut(const std::wstring& tstrInstallDir, const std::wstring& tstrFileName);

/// Creates the shortcuts that a description file of the install folder (with trailing backslash) names.
void InstallShortCut(const std::wstring& tstrInstallDir, const std::wstring& tstrFileName);
