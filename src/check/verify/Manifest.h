// "manifest": writes the expected state of an update to a file that is shipped with it.
#pragma once

#include "check/update/CommandLine.h"
#include "check/verify/ExpectedState.h"

#include <string>
#include <string_view>

namespace Check {

/// The expected state as JSON in pure ASCII.
[[nodiscard]] std::string FormatManifest(const ExpectedState& expected);

/// Parses a manifest in UTF-8 or, as some consoles redirect output, UTF-16 with BOM. False, with the reason in
/// `tstrError`, for another file or another format. The caller checks the places.
[[nodiscard]] bool ParseManifest(std::string_view strBytes, ExpectedState& expected, std::wstring& tstrError);

/// Reads the manifest at `tstrManifest`. False, with an error line, when it is unreadable, no manifest, or empty. The
/// bytes that were parsed go to `*pstrBytes` (may be null): a signature must be of these, not of a second reading.
[[nodiscard]] bool ReadManifest(const std::wstring& tstrManifest, ExpectedState& expected, std::wstring& tstrErrors,
                                std::string* pstrBytes = nullptr);

/// The largest manifest that is read, in bytes: about 25,000 files, in UTF-16 with non-ASCII names.
inline constexpr std::size_t kMaxManifestBytes = std::size_t{32} * 1024 * 1024;

/// Collects the expected state of an update as its manifest has it: without the content of the manifest itself, and
/// without its signature. False, with error lines, as CollectExpectedState().
[[nodiscard]] bool CollectManifest(const Update& update, bool bShipped, ExpectedState& expected,
                                   std::wstring& tstrErrors);

/// Writes the expected state of the update as a manifest. `bShipped`: the manifest is part of the update, even if it
/// does not exist yet. Its own content is not included, because it would contain its own hash. Adds a line to
/// `tstrErrors` for anything that cannot be verified. False when a file of the update is unreadable.
[[nodiscard]] bool MakeManifest(const Update& update, bool bShipped, std::string& strManifest,
                                std::wstring& tstrErrors);

/// Writes the manifest into the update's product package ("manifest --into"). False, with an error line, on failure.
[[nodiscard]] bool ShipManifest(const Update& update, Output& output);

/// Runs the verb.
[[nodiscard]] int RunManifest(const Arguments& arguments, Output& output);

}  // namespace Check
