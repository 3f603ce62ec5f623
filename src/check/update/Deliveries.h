// The deliveries of an update, as the rules look them up.
#pragma once

#include "check/update/Update.h"

#include "common/KzComn_String.h"

#include <string>
#include <vector>

namespace Check {

/// Deliveries by destination folder (with trailing backslash).
using Deliveries = KzCommon::String::NoCaseMap<std::vector<Delivery>>;

/// The deliveries of an update. A file that is made for each language is one of them only once.
[[nodiscard]] Deliveries SortDeliveries(const Update& update);

/// The names of the files in the download folders that the restart moves away, by their folders below the install
/// folder.
using MovedSources = KzCommon::String::NoCaseMap<std::vector<std::wstring>>;
[[nodiscard]] MovedSources ListMovedSources(const Deliveries& deliveries);

}  // namespace Check
