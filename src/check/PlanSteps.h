// What the parts of a plan share.
#pragma once

#include "agent/PackageLayout.h"
#include "agent/PathValues.h"
#include "agent/Sections.h"
#include "check/Forecast.h"
#include "check/Plan.h"
#include "check/Update.h"

#include <string>

namespace Check {

/// A plan in the making. Each function below adds the steps of one operation of the agent and notes in the forecast
/// what later ones find.
struct PlanWork {
    const Update& update;
    Forecast forecast;
    PathValues paths;  ///< as the run computes them
    Plan plan;

    /// Begins an operation's step; changes are added to the last one.
    PlanStep& Begin(std::wstring tstrName);
    void Add(Change change) { plan.steps.back().changes.push_back(std::move(change)); }

    /// A section's records. False, with the reason in the last step, when the agent does not get them.
    [[nodiscard]] bool Read(const Section& section, SectionRecords& records, std::wstring_view tstrLanguage = {});
    /// Placeholders expanded, at this moment of the run.
    [[nodiscard]] std::wstring Expand(std::wstring tstrText) const;
    [[nodiscard]] std::wstring Language() const { return forecast.ProductText(L"Language", L"EN-US"); }
};

inline constexpr wchar_t kTooLong[] = L"longer than 1023 characters";

/// A file that is copied now; `eAction` eCopy or eKeep. `bOverReadOnly`: it replaces a read-only file, which a kept
/// copy does in any case. True when it will be there.
bool PlanCopy(PlanWork& work, Action eAction, const std::wstring& tstrSource, const std::wstring& tstrTarget,
              bool bOverReadOnly = false);

void PlanFileRecord(PlanWork& work, FileOp eOp, const std::wstring& tstrRecord);     ///< PlanFiles.cpp
void PlanRegistryRecord(PlanWork& work, RegOp eOp, const std::wstring& tstrRecord);  ///< PlanRecords.cpp
void PlanCopies(PlanWork& work, const PackageLayout::DeployStep& step,
                const PackageLayout::BaseFolders& bases);  ///< PlanFiles.cpp
/// Of the files that arrive under one name the last one stays.
void NoteSameTargets(PlanWork& work);                                     ///< PlanFiles.cpp
void PlanUpdateInfo(PlanWork& work, const std::wstring& tstrSettingDir);  ///< PlanRecords.cpp
void PlanCommands(PlanWork& work);                                        ///< PlanRecords.cpp
void PlanCommand(PlanWork& work, const std::wstring& tstrCommand);        ///< PlanRecords.cpp
void PlanValue(PlanWork& work, const std::wstring& tstrKeyPath, const std::wstring& tstrName,
               const HeldValue& value);                              ///< PlanRecords.cpp
void PlanMerge(PlanWork& work, const std::wstring& tstrSettingDir);  ///< PlanMerge.cpp
void PlanNewName(PlanWork& work);                                    ///< PlanNewName.cpp

}  // namespace Check
