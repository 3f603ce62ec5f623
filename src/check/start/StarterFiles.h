// The files of the folder "starter", which are part of every program that links this library.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Check {

struct StarterFile {
    std::wstring tstrPath;      ///< below the folder, with backslashes
    std::string_view strBytes;  ///< as they are in the folder, for as long as the program runs
};

/// All of them, in the order of their names. Empty when the program lacks them. FindResourceW, LoadResource.
[[nodiscard]] std::vector<StarterFile> StarterFiles();

}  // namespace Check
