// The deliveries of an update, indexed for the rules.
#pragma once

#include "check/update/Update.h"

#include "common/KzComn_String.h"

#include <string>
#include <vector>

namespace Check {

/// Deliveries by destination folder (with trailing backslash).
using Deliveries = KzCommon::String::NoCaseMap<std::vector<Delivery>>;

/// The deliveries of an update. A file made for each language is included only once.
[[nodiscard]] Deliveries SortDeliveries(const Update& update);

/// The names of the files that the restart moves out of the download folders, by folder relative to the install folder.
using MovedSources = KzCommon::String::NoCaseMap<std::vector<std::wstring>>;
[[nodiscard]] MovedSources ListMovedSources(const Deliveries& deliveries);

}  // namespace Check
