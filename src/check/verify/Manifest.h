// "manifest": what an update promises, as a file that goes along with it.
#pragma once

#include "check/update/CommandLine.h"
#include "check/verify/ExpectedState.h"

#include <string>
#include <string_view>

namespace Check {

/// The promises as JSON in pure ASCII.
[[nodiscard]] std::string FormatManifest(const ExpectedState& expected);

/// Takes a manifest apart, in UTF-8 or, as some consoles redirect output, in UTF-16 with its mark. False, with why in
/// `tstrError`, for what is no manifest or one of another format. What is wrong in itself is left to whoever looks the
/// places up.
[[nodiscard]] bool ParseManifest(std::string_view strBytes, ExpectedState& expected, std::wstring& tstrError);

/// The largest manifest that is read, in bytes: about 25,000 files, in UTF-16 with names beyond ASCII.
inline constexpr std::size_t kMaxManifestBytes = std::size_t{32} * 1024 * 1024;

/// Under this name a manifest is shipped among the settings of the product package; the agent copies it to the install
/// folder like any other file there.
inline constexpr wchar_t kShippedManifest[] = L"QorUpdate.json";

/// What the update promises today, as a manifest. `bShipped`: that it is shipped as well, even if it is not there yet.
/// A shipped manifest is promised without its content, which would have to name its own hash. What cannot be promised
/// is a line of `tstrErrors`. False when a file of the update cannot be read.
[[nodiscard]] bool MakeManifest(const Update& update, bool bShipped, std::string& strManifest,
                                std::wstring& tstrErrors);

/// The verb.
[[nodiscard]] int RunManifest(const Arguments& arguments, Output& output);

}  // namespace Check
