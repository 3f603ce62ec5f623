#include "agent/DeployFramework.h"

#include "agent/GuardedStep.h"
#include "agent/QorDeployAgent.h"

#include <memory>
#include <new>

using namespace KzCommon;

namespace {

bool CarryOutPhase(QorDeployAgent& agent, bool (QorDeployAgent::*pfnPhase)())
{
    bool bOk = false;
    RunGuarded(L"A phase of the deployment", [&] { bOk = (agent.*pfnPhase)(); });
    return bOk;
}

}  // namespace

bool DeployFramework(Machine& machine)
{
    std::unique_ptr<QorDeployAgent> agent;
    RunGuarded(L"The making of the agent", [&] { agent.reset(new (std::nothrow) FrameworkDeployAgent(machine)); });
    if (!agent) return true;
    static_cast<void>(CarryOutPhase(*agent, &QorDeployAgent::DoPreAction));
    const bool bDeployed = CarryOutPhase(*agent, &QorDeployAgent::DoDeploy);
    static_cast<void>(CarryOutPhase(*agent, &QorDeployAgent::DoPostAction));
    return bDeployed;
}
