// The deploy steps of the downloaded packages, defined in PackageLayout.h.
#pragma once

#include "agent/RunContext.h"

#include <string>

/// Runs all deploy steps of the program package, even if one fails. Always true.
bool DeployProgramPackage(RunContext& run);

/// Deploys the resource package from `tstrDownloadDir` (with trailing backslash). Always true.
bool DeployResourceFiles(RunContext& run, const std::wstring& tstrDownloadDir);
