// Where the files of an update go on a customer's machine.
#pragma once

#include "agent/PackageLayout.h"
#include "check/Update.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// One file and one of its destinations.
struct BroughtFile {
    std::wstring tstrFile;         ///< below the update's folder
    std::wstring tstrDestination;  ///< full path
    PackageLayout::When eWhen;
};

/// The files of an update by destination folder, in lower case with trailing backslash.
using BroughtFiles = std::map<std::wstring, std::vector<BroughtFile>>;

/// Every file that a deploy step takes, once for each of its destinations, those of the product's language included
/// that are made out of the ones of each language, and the changed update information. `tstrInstalled`: the install
/// folder, with trailing backslash.
[[nodiscard]] BroughtFiles ListBroughtFiles(const Update& update, const std::wstring& tstrInstalled);

/// The names of the files in the download folders that the restart moves away, by their folders below the install
/// folder, all in lower case.
[[nodiscard]] std::map<std::wstring, std::vector<std::wstring>> ListMovedSources(const BroughtFiles& files);

/// The folder copies of the update's packages, their sources below the update's folder.
[[nodiscard]] std::vector<PackageLayout::FolderCopy> CopiesOf(const Update& update, const std::wstring& tstrInstalled);

/// Whether a folder copy takes a file of the update.
[[nodiscard]] bool Takes(const PackageLayout::FolderCopy& copy, std::wstring_view tstrFile);

}  // namespace Check
