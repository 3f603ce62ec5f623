// What every operation of a run works with.
#pragma once

#include "agent/PathValues.h"
#include "common/KzComn_Machine.h"

/// The machine that is read and changed, and the folders of the run.
struct RunContext {
    explicit RunContext(KzCommon::Machine& machineOfRun) : machine(machineOfRun), paths(machineOfRun) {}

    KzCommon::Machine& machine;
    PathValues paths;
};
