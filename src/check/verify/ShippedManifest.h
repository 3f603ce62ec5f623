// Finds the manifest of the update that a machine has got.
#pragma once

#include "check/update/Folder.h"
#include "check/verify/ExpectedState.h"
#include "check/verify/PendingMoves.h"

#include <optional>
#include <string>

namespace Check {

/// The manifest shipped with the newest update: the installed one, or the one that the restart puts in its place,
/// unless a newer one has been downloaded since. Otherwise empty.
[[nodiscard]] std::wstring FindShippedManifest(const Folder& installed, const PendingPlaces& pending);

/// Sets the expected content of the manifest file itself, which is known here but cannot be in the manifest.
void AddOwnContent(const std::wstring& tstrManifest, ExpectedState& expected);

/// When the restart moved the installed manifest to its place, as a FILETIME; empty if the file system does not tell.
/// GetFileInformationByHandleEx.
[[nodiscard]] std::optional<ULONGLONG> TimeOfArrival(const std::wstring& tstrManifest);

}  // namespace Check
