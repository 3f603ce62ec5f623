// The deploy steps of the downloaded packages, as PackageLayout.h lists them.
#pragma once

#include "agent/RunContext.h"

#include <string>

/// Runs the deploy steps of the program package, each whatever became of the one before. Always true.
bool DeployProgramPackage(RunContext& run);

/// Deploys the resource package out of `tstrDownloadDir` (with trailing backslash). Always true.
bool DeployResourceFiles(RunContext& run, const std::wstring& tstrDownloadDir);
