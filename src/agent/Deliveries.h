// Lists which file of an update goes where: the folder copies of all deploy steps, file by file.
#pragma once

#include "agent/PackageLayout.h"

#include <string>
#include <vector>

/// One file and one of its destinations, as full paths.
struct Delivery {
    std::wstring tstrSource;  ///< the file to copy or move
    /// The update's file that provides the content, usually `tstrSource`. Empty when the run creates the content from
    /// the machine's own data.
    std::wstring tstrContent;
    std::wstring tstrDestination;
    PackageLayout::Base eBase = PackageLayout::Base::eInstall;  ///< the folder that contains the destination
    std::wstring tstrBelow;                                     ///< the destination, relative to `eBase`
    PackageLayout::When eWhen = PackageLayout::When::eAtRestart;
    /// The product language for which the settings step creates `tstrSource`; empty for every other delivery.
    std::wstring tstrLanguage;
    /// For a file that a record copies: the destination with the record's placeholders.
    std::wstring tstrPlace;
    bool bMerged = false;  ///< the settings step migrates the user's values into the file
};

/// Lists all deliveries of the deploy steps in their order: the files that CopyDirectory() would copy, then the files
/// that the settings step creates for each language of the update. If several go to one destination, the last one
/// scheduled for the restart wins, otherwise the last one. Does not look at the installed product.
[[nodiscard]] std::vector<Delivery> ListDeliveries(const KzCommon::Machine& machine,
                                                   const PackageLayout::PackageFolders& folders);
