// Gives the product its new name after the restart.
#pragma once

#include "common/KzComn_Machine.h"

#include <string>

/// Replaces the old shortcuts with the new ones and writes the localised product name for the shell and the browsers.
/// Traces each failure and continues with the next step. Writes empty names when the string table is unreadable.
void PostUdActionForNewName(KzCommon::Machine& machine);

/// The name of the product that PostUdActionForNewName() writes: that of the string table of the product's language;
/// empty when the table is unreadable.
[[nodiscard]] std::wstring NewProductName(const KzCommon::Machine& machine);

/// Removes the shortcuts of a description file in the install folder (with trailing backslash).
void UninstallShortCut(const std::wstring& tstrInstallDir, const std::wstring& tstrFileName);

/// Creates the shortcuts of a description file in the install folder (with trailing backslash).
void InstallShortCut(const std::wstring& tstrInstallDir, const std::wstring& tstrFileName);
