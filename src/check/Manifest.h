// "manifest": what an update promises, as a file that goes along with it.
#pragma once

#include "check/CommandLine.h"
#include "check/Promises.h"

#include <string>
#include <string_view>

namespace Check {

/// The promises as JSON in pure ASCII.
[[nodiscard]] std::string FormatManifest(const Promises& promises);

/// Takes a manifest apart, in UTF-8 or, as some consoles redirect output, in UTF-16 with its mark. False, with why in
/// `tstrError`, for what is no manifest or one of another format. What is wrong in itself is left to whoever looks the
/// places up.
[[nodiscard]] bool ParseManifest(std::string_view strBytes, Promises& promises, std::wstring& tstrError);

/// The largest manifest that is read, in bytes: about 25,000 files, in UTF-16 with names beyond ASCII.
inline constexpr std::size_t kMaxManifestBytes = std::size_t{32} * 1024 * 1024;

/// The verb.
[[nodiscard]] int RunManifest(const Arguments& arguments, Output& output);

}  // namespace Check
