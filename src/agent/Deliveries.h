// Which file of an update goes where: the folder copies of all deploy steps, file by file.
#pragma once

#include "agent/PackageLayout.h"

#include <string>
#include <vector>

/// One file and one of its destinations. Paths are full.
struct Delivery {
    std::wstring tstrSource;  ///< the file that is copied or moved
    /// The file of the update that `tstrSource` has its content from, usually itself. Empty when the run makes the
    /// content out of the machine's own.
    std::wstring tstrContent;
    std::wstring tstrDestination;
    PackageLayout::Base eBase = PackageLayout::Base::eInstall;  ///< the folder that the destination is in
    std::wstring tstrBelow;                                     ///< the destination below it
    PackageLayout::When eWhen = PackageLayout::When::eAtRestart;
    /// The product's language in which the settings step makes `tstrSource`; empty for every other delivery.
    std::wstring tstrLanguage;
    bool bMerged = false;  ///< the settings step carries the user's values over into the file
};

/// Everything that the deploy steps deliver, in their order: what CopyDirectory() would copy with their rows, then the
/// files that the settings step makes, for every language that the update brings. Of several deliveries to one place
/// the last at the restart counts, else the last. The installed product is not looked at.
[[nodiscard]] std::vector<Delivery> ListDeliveries(const KzCommon::Machine& machine,
                                                   const PackageLayout::PackageFolders& folders);
