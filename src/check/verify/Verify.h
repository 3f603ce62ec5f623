// "verify": checks whether an update has arrived on this machine.
#pragma once

#include "check/update/CommandLine.h"
#include "check/verify/Destination.h"
#include "check/verify/ExpectedState.h"
#include "check/verify/PendingMoves.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Check {

/// The result for an expected item.
enum class Verdict {
    eArrived,
    eDeleted,
    eValueRight,
    eWaiting,         ///< in the list of pending moves
    eMissing,         ///< neither in its place nor where the restart would take it from
    eDifferent,       ///< exists with another content
    eLeftInDownload,  ///< the file is still in the download folder
    eToBeDeleted,     ///< exists until the restart deletes or moves it
    eToBeReplaced,    ///< exists until the restart replaces it with another program's file
    eNotDeleted,
    eValueDiffers,
    eUnknown,       ///< not accessible, or possibly an older file
    eNotCovered,    ///< exists, but nothing shows whether it is as the update left it
    eRefused,       ///< an invalid place, or one behind a link: not accessed
    eChangedSince,  ///< the update arrived, and somebody has changed this since
    eCount
};

/// One line of the result.
struct VerifyResult {
    Verdict eVerdict;
    std::wstring tstrWhat;    ///< path, or key and value
    std::wstring tstrDetail;  ///< empty, or the current state
};

/// The machine to check; only read.
struct VerifyContext {
    const KzCommon::Machine& machine;
    ContentReader& contents;  ///< of the machine's files
    MachineFolders& folders;
    PendingPlaces pending;
    std::wstring tstrLanguage;  ///< the product's language
    /// When the update arrived, as a FILETIME: a file that was created later is not one that it left behind. Empty if
    /// unknown.
    std::optional<ULONGLONG> optArrived{};
};

/// Checks every expected item in order. A file without an expected content, because it differs between machines, counts
/// as arrived only with evidence that the update ran: its version in the update information or, if it has none, all
/// other items as expected.
[[nodiscard]] std::vector<VerifyResult> VerifyState(const ExpectedState& expected, VerifyContext& context);

/// The verdict's word in every output, "ARRIVED".
[[nodiscard]] const wchar_t* WordOf(Verdict eVerdict);
/// The verdict of a word. False for another word.
[[nodiscard]] bool ParseVerdict(std::wstring_view tstrWord, Verdict& eVerdict);
/// Whether the machine is as expected there.
[[nodiscard]] bool IsKept(const VerifyResult& result);
/// Whether something has not arrived, or may not have.
[[nodiscard]] bool IsAgainst(const VerifyResult& result);

/// 0 when all that can be checked is as expected, 3010 when all others wait for the restart, otherwise 1.
[[nodiscard]] int ExitCodeOf(std::span<const VerifyResult> results);

/// An item of an earlier update that waits for the same restart; the update that was verified replaces it.
struct ReplacedItem {
    std::string strUpdate;  ///< the earlier update's identity
    const char* szKind;     ///< as in Difference
    std::wstring tstrWhat;
};

/// One line per result, unexpected ones last, then the replaced items and the counts. `tstrSource` is the source of the
/// expected state.
[[nodiscard]] std::wstring FormatResults(std::span<const VerifyResult> results, const std::wstring& tstrSource,
                                         std::span<const ReplacedItem> replaced = {});
/// Likewise as JSON in ASCII.
[[nodiscard]] std::string FormatResultsAsJson(std::span<const VerifyResult> results, const std::wstring& tstrSource,
                                              std::span<const ReplacedItem> replaced = {});

/// Runs the verb.
[[nodiscard]] int RunVerify(const Arguments& arguments, Output& output);

}  // namespace Check
