// One complete run of "/DeployFramework".
#pragma once

#include "common/KzComn_Machine.h"

/// Deploys the downloaded update: runs the three phases of the agent, each one even if an earlier one fails. False when
/// the deployment fails; the new name then waits (DecideAboutNewName(), NewNameDecision.h).
[[nodiscard]] bool DeployFramework(KzCommon::Machine& machine);
