// The deliveries of an update, as the rules look them up.
#pragma once

#include "check/update/Update.h"

#include <map>
#include <string>
#include <vector>

namespace Check {

/// Deliveries by destination folder, in lower case with trailing backslash.
using Deliveries = std::map<std::wstring, std::vector<Delivery>>;

/// The deliveries of an update. A file that is made for each language is one of them only once.
[[nodiscard]] Deliveries SortDeliveries(const Update& update);

/// The names of the files in the download folders that the restart moves away, by their folders below the install
/// folder, all in lower case.
[[nodiscard]] std::map<std::wstring, std::vector<std::wstring>> ListMovedSources(const Deliveries& deliveries);

}  // namespace Check
