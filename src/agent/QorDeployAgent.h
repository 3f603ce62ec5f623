// The deployment agent: one run of "/DeployFramework".
#pragma once

#include "agent/RunContext.h"

#include <windows.h>

#include <string>

struct DownloadKey;

/// What the entry point drives: the three phases, each called once, in this order.
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

/// Deploys the downloaded packages and carries out the instruction file, with the operations of DeployPackages.h,
/// FileOperations.h and RunOnce.h. Every operation traces its own failures and the run goes on; nothing is thrown.
class FrameworkDeployAgent : public QorDeployAgent {
public:
    explicit FrameworkDeployAgent(KzCommon::Machine& machine) : m_run(machine) {}

    /// Computes the path values and creates the folders that the instruction file asks for. Always true.
    bool DoPreAction() override;
    /// Puts the packages in place. True whatever becomes of their files, for the updater is not told about a partial
    /// failure; false when other programs keep "UpdateInfo.ini" from saying where a package lies.
    bool DoDeploy() override;
    /// Schedules removals, registers run-once commands, records the deployment. Always true.
    bool DoPostAction() override;

    [[nodiscard]] const RunContext& Run() const noexcept { return m_run; }

private:
    /// Why a package is not deployed: its folder does not exist.
    void ExplainMissing(const wchar_t* szOperation, const std::wstring& tstrFolder, const DownloadKey& key);
    void WriteProgramDeployFlag();

    RunContext m_run;
    std::wstring m_tstrFrameworkFolder;
    DWORD m_dwStatus = 0;
};
