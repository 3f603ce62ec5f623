// "new": an update to begin with, and a product to try it on, with the author's names filled in.
#pragma once

#include "check/update/CommandLine.h"

#include <span>
#include <string>
#include <vector>

namespace Check {

/// What the author chooses; the values are those of the starter itself.
struct NewNames {
    std::wstring tstrProduct = L"Kazmere Qorvault";
    std::wstring tstrVersion = L"3.9.3.1140";
    std::vector<std::wstring> languages = {L"EN-US", L"DE-DE"};
};

struct NewFile {
    std::wstring tstrPath;  ///< below the new folder, with backslashes
    std::string strBytes;
};

/// Why these names cannot be used, or an empty text: the product's name must be a file name of at most 64 characters,
/// the version four numbers below 65536 that are not all 0, the languages tags that differ.
[[nodiscard]] std::wstring FaultOf(const NewNames& names);

/// The starter's files with the names in their texts and paths. A language that the starter lacks gets the English
/// texts; the product to try the update on has the version before.
[[nodiscard]] std::vector<NewFile> MakeNewUpdate(const NewNames& names);

/// The verb.
[[nodiscard]] int RunNew(const Arguments& arguments, Output& output);

}  // namespace Check
