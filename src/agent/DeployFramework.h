// One whole run of "/DeployFramework".
#pragma once

#include "common/KzComn_Machine.h"

/// Deploys the downloaded update on a machine: the three phases of the agent, each whatever became of the one before.
/// False when the deployment reports failure; then the new name waits (DecideAboutNewName(), NewNameDecision.h).
[[nodiscard]] bool DeployFramework(KzCommon::Machine& machine);
