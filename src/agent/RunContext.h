// The context of every operation of a run.
#pragma once

#include "agent/PathValues.h"
#include "common/KzComn_Machine.h"

/// The machine to read and change, and the folders of the run.
struct RunContext {
    explicit RunContext(KzCommon::Machine& machineOfRun) : machine(machineOfRun), paths(machineOfRun) {}

    KzCommon::Machine& machine;
    PathValues paths;
};
