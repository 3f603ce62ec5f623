// The deployment agent: one run of "/DeployFramework".
#pragma once

#include "agent/InstructionFile.h"
#include "agent/PathValues.h"

#include <windows.h>

#include <string>

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

/// Deploys the downloaded packages and carries out the instruction file. Every operation traces its own failures and
/// the run goes on; nothing is thrown.
class FrameworkDeployAgent : public QorDeployAgent {
public:
    /// Computes the path values and creates the folders that the instruction file asks for. Always true.
    bool DoPreAction() override;
    /// Puts the packages in place. Always true: the updater is not told about a partial failure.
    bool DoDeploy() override;
    /// Schedules removals, registers run-once commands, records the deployment. Always true.
    bool DoPostAction() override;

    // -- component files (ComponentFiles.cpp) --

    /// Runs the nine deploy steps of the program package, each whatever became of the one before. Always true.
    bool DeployProgramPackage();
    /// Deploys the resource package out of `tstrDownloadDir` (with trailing backslash). Always true.
    bool DeployResourceFiles(const std::wstring& tstrDownloadDir);
    /// Copies the entries of a folder that match `tstrPattern`, with `bRecurse` those of its folders too; with
    /// `bAfterReboot` at the next restart, otherwise now. Destination folders are not created. Always true.
    bool CopyDirectory(const std::wstring& tstrSourceDir, const std::wstring& tstrPattern,
                       const std::wstring& tstrDestinationDir, bool bRecurse, bool bAfterReboot);
    /// Registers one file to take the place of `tstrDestination` at the next restart: the file itself on the same
    /// drive, otherwise a copy staged beside the destination. MoveFileExW.
    bool CopyFileAfterReboot(const std::wstring& tstrSource, const std::wstring& tstrDestination);

    // -- settings (DeploySettings.cpp) --

    /// Registry patch, settings files of the product's language, configuration merge, update info. Always true.
    bool DeploySettings();

    // -- operations of the instruction file --

    /// Carries out the registry records: all deletes, then all adds, then all adds of missing values.
    void PatchRegistry();
    /// Carries out one registry record; `dwOp` is a RegOp.
    void PatchReg(DWORD dwOp, const std::wstring& tstrData);
    /// Creates the folders of the section "QOR_DIR".
    void CreateDirBeforeReboot();
    /// Carries out the removals of "QOR_DIR" and "QOR_FILE"; none unless both sections can be read.
    void RemoveFileAfterReboot();
    /// Carries out one file record; `iOp` is a FileOp.
    void PerformFileOperation(const std::wstring& tstrData, int iOp);
    /// Changes keys of the INI file at `tstrIniPath` and records the deployed version in it.
    void ModifyUpdateInfo(const std::wstring& tstrIniPath);
    /// Carries out one record of section, key and value.
    void ModifyIniKeyValue(const std::wstring& tstrIniPath, const std::wstring& tstrData);
    /// Registers the commands of the section "Run", the touchpad filter's left out on a machine that the touchpad check
    /// calls affected.
    void PostRunScript();
    /// Registers one command to run once after the next restart, placeholders expanded, under a name of its own.
    void RegisterSysRunOnce(const std::wstring& tstrCommand);
    /// Carries the user's values of the "migrate" tags over into "config.xml" in `tstrFolder` (trailing backslash).
    void MergeConfig(const std::wstring& tstrFolder);

    [[nodiscard]] const PathValues& Paths() const noexcept { return m_pathValues; }

private:
    void CopyOne(const std::wstring& tstrSource, const std::wstring& tstrDestination, bool bAfterReboot);
    void WriteProgramDeployFlag();

    PathValues m_pathValues;
    std::wstring m_tstrFrameworkFolder;
    DWORD m_dwStatus = 0;
};

/// Writes the version of the agent's own component into the update information file at `tstrIniPath`.
void DeployVersion(const std::wstring& tstrIniPath);
