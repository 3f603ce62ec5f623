// The changes of a run on a machine, one at a time, in terms that a plan can show.
#pragma once

#include <optional>
#include <string>

namespace KzCommon {

/// The kind of a change.
enum class Action {
    eCreateFolder,
    eMove,         ///< a file is moved to its destination at the restart
    eStage,        ///< likewise from another drive: a copy is put beside the destination now
    eCopy,         ///< a file is copied now
    eKeep,         ///< a file is copied now, so that its content is still available later
    eWriteValue,   ///< a registry value
    eDeleteValue,  ///< a registry value
    eCarryOver,    ///< a user's setting
    eWriteIni,     ///< a key of an INI file
    eDelete,       ///< a file or folder
    eRunOnce,      ///< a command at the restart
    eAsk,          ///< the user is asked to restart
    eNewName       ///< the decision about the product's new name
};

/// The result for the object.
enum class Outcome {
    eNew,      ///< it did not exist and is created
    eReplace,  ///< it existed and is replaced
    eRemove,   ///< it is deleted
    eStay,     ///< it is unchanged, as intended
    eFail,     ///< it is unchanged: the change cannot be carried out
    eUnknown   ///< the caller has no access to check; the agent may have
};

/// One change, in the order of the run.
struct Change {
    Action eAction{};
    Outcome eOutcome{};
    bool bAtRestart = false;    ///< it happens when Windows starts next
    std::wstring tstrTarget{};  ///< a path, a registry key, a command; a question's text
    std::wstring tstrName{};    ///< the part that changes: a value, "[section] key", a tag path; a question's title
    std::wstring tstrSource{};  ///< where a file comes from
    std::wstring tstrStaged{};  ///< the copy beside the destination
    std::optional<std::wstring> optOld{};  ///< the old value; never a secret's
    std::optional<std::wstring> optNew{};  ///< the new value; never a secret's
    std::wstring tstrReason{};             ///< why it stays or fails, or another remark
};

}  // namespace KzCommon
