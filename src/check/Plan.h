// "plan": what a deployment would do on this machine, nothing of it done.
#pragma once

#include "check/CommandLine.h"

#include <optional>
#include <string>
#include <vector>

namespace Check {

/// What is done to the object of a change.
enum class Action {
    eCreateFolder,
    eMove,         ///< a file takes its place at the restart
    eStage,        ///< the same from another drive: a copy is put beside its place now
    eCopy,         ///< a file is copied now
    eKeep,         ///< a file is copied now, so that its content is still there later
    eWriteValue,   ///< a registry value
    eDeleteValue,  ///< a registry value
    eCarryOver,    ///< a setting of the user's
    eWriteIni,     ///< a key of an INI file
    eDelete,       ///< a file or folder
    eRunOnce,      ///< a command at the restart
    eAsk,          ///< the user is asked to restart
    eNewName       ///< the decision about the product's new name
};

/// What becomes of it.
enum class Outcome {
    eNew,      ///< it was not there, and is then
    eReplace,  ///< it was there, and is another one then
    eRemove,   ///< it is gone then
    eStay,     ///< it is as it was, as it is meant to be
    eFail,     ///< it is as it was: the change cannot be carried out
    eUnknown   ///< the caller may not look; the agent may
};

/// One change, in the order of the run.
struct Change {
    Action eAction{};
    Outcome eOutcome{};
    bool bAtRestart = false;    ///< it happens when Windows starts the next time
    std::wstring tstrTarget{};  ///< a path, a registry key, a command; a question's text
    std::wstring tstrName{};    ///< what changes in it: a value, "[section] key", a tag path; a question's title
    std::wstring tstrSource{};  ///< where a file comes from
    std::wstring tstrStaged{};  ///< the copy that is put beside its place
    std::optional<std::wstring> optOld{};  ///< a value before; never a secret's
    std::optional<std::wstring> optNew{};  ///< a value afterwards; never a secret's
    std::wstring tstrReason{};             ///< why it stays or fails; what else there is to know
};

/// The changes of one operation of the agent.
struct PlanStep {
    std::wstring tstrName;    ///< the operation, as traces name it
    std::wstring tstrReason;  ///< why there is nothing to do as a whole
    std::vector<Change> changes;
};

/// A whole run.
struct Plan {
    std::wstring tstrUpdateDir;     ///< where the update lies
    std::wstring tstrInstalledDir;  ///< the installed product that it is for
    std::vector<PlanStep> steps;
};

class Update;

/// Plans a run of an update over the product that is installed in `tstrInstalledDir` (with trailing backslash), as if
/// the update lay there.
[[nodiscard]] Plan MakePlan(const Update& update, const std::wstring& tstrInstalledDir);

/// The verb.
[[nodiscard]] int RunPlan(const Arguments& arguments, Output& output);

}  // namespace Check
