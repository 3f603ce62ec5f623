// The deployment agent: one run of "/DeployFramework".
#pragma once

#include "agent/RunContext.h"

#include <windows.h>

#include <string>

struct DownloadKey;

/// The interface for the entry point: three phases, each called once, in this order.
class QorDeployAgent {
public:
    QorDeployAgent() = default;
    QorDeployAgent(const QorDeployAgent&) = delete;
    QorDeployAgent& operator=(const QorDeployAgent&) = delete;
    virtual ~QorDeployAgent() = default;

    virtual bool DoPreAction() = 0;
    virtual bool DoDeploy() = 0;
    virtual bool DoPostAction() = 0;
};

/// Deploys the downloaded packages and carries out the instruction file, using DeployPackages.h, FileOperations.h and
/// RunOnce.h. Each operation traces its own failures and the run continues; nothing is thrown.
class FrameworkDeployAgent : public QorDeployAgent {
public:
    explicit FrameworkDeployAgent(KzCommon::Machine& machine) : m_run(machine) {}

    /// Computes the path values and creates the folders of the instruction file. Always true.
    bool DoPreAction() override;
    /// Deploys the packages. True even if files fail, because a partial failure is not reported to the updater; false
    /// when other programs keep "UpdateInfo.ini" in use, so that a package folder is unknown.
    bool DoDeploy() override;
    /// Schedules the removals, registers run-once commands and records the deployment. Always true.
    bool DoPostAction() override;

    [[nodiscard]] const RunContext& Run() const noexcept { return m_run; }

private:
    /// Explains why a package is not deployed: its folder does not exist.
    void ExplainMissing(const wchar_t* szOperation, const std::wstring& tstrFolder, const DownloadKey& key);
    void WriteProgramDeployFlag();

    RunContext m_run;
    std::wstring m_tstrFrameworkFolder;
    DWORD m_dwStatus = 0;
};
