// What a run changes on a machine, one change at a time, in words that a plan can show.
#pragma once

#include <optional>
#include <string>

namespace KzCommon {

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

/// What becomes of the object.
enum class Outcome {
    eNew,      ///< it did not exist, and does then
    eReplace,  ///< it existed, and is another one then
    eRemove,   ///< it is gone then
    eStay,     ///< it is as it was, as intended
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
    std::wstring tstrReason{};             ///< why it stays or fails; what else is worth knowing
};

}  // namespace KzCommon
