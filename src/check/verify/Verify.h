// "verify": whether an update has arrived on this machine.
#pragma once

#include "check/update/CommandLine.h"
#include "check/verify/Destination.h"
#include "check/verify/ExpectedState.h"
#include "check/verify/PendingMoves.h"

#include <span>
#include <string>
#include <vector>

namespace Check {

/// What became of a promise.
enum class Verdict {
    eArrived,
    eDeleted,
    eValueRight,
    eWaiting,         ///< in the list of pending moves
    eMissing,         ///< not there, nor where the restart would take it from
    eDifferent,       ///< there with another content
    eLeftInDownload,  ///< the file still lies where it was downloaded
    eToBeDeleted,     ///< there, until the restart deletes it or moves it away
    eToBeReplaced,    ///< there, until the restart moves another program's file to its place
    eNotDeleted,
    eValueDiffers,
    eUnknown,  ///< the caller may not look, or nothing tells the promised file from an older one
    eRefused,  ///< a place that no update can name, or one behind a link: not looked at
    eCount
};

/// One line of the answer.
struct VerifyResult {
    Verdict eVerdict;
    std::wstring tstrWhat;    ///< path, or key and value
    std::wstring tstrDetail;  ///< empty, or what is there instead
};

/// The machine that is looked at. It is only read.
struct VerifyContext {
    const KzCommon::Machine& machine;
    ContentReader& contents;  ///< of the machine's files
    MachineFolders& folders;
    PendingPlaces pending;
    std::wstring tstrLanguage;  ///< the product's
};

/// Looks every promise up, in their order. A file whose content is not promised, since it differs from machine to
/// machine, has arrived only where something shows that the update ran: its version is among the update information or,
/// where it names none, all else is as it was promised.
[[nodiscard]] std::vector<VerifyResult> VerifyState(const ExpectedState& expected, VerifyContext& context);

/// 0 when all are kept, 3010 when what is not kept only waits for the restart, else 1.
[[nodiscard]] int ExitCodeOf(std::span<const VerifyResult> results);

/// One line for each answer, those that are not kept last, then one that counts. `tstrSource`: where the promises are
/// from.
[[nodiscard]] std::wstring FormatResults(std::span<const VerifyResult> results, const std::wstring& tstrSource);
/// The same as JSON in ASCII.
[[nodiscard]] std::string FormatResultsAsJson(std::span<const VerifyResult> results, const std::wstring& tstrSource);

/// The verb.
[[nodiscard]] int RunVerify(const Arguments& arguments, Output& output);

}  // namespace Check
