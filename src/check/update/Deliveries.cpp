#include "check/update/Deliveries.h"

using namespace KzCommon;

namespace Check {

Deliveries SortDeliveries(const Update& update)
{
    Deliveries deliveries;
    String::NoCaseMap<String::NoCaseSet> made;  // destinations by source
    for (const Delivery& delivery : update.Deliveries()) {
        const bool bMade = delivery.tstrContent != delivery.tstrSource;
        if (bMade && !made[delivery.tstrSource].insert(delivery.tstrDestination).second) continue;
        deliveries[String::FolderPart(delivery.tstrDestination)].push_back(delivery);
    }
    return deliveries;
}

MovedSources ListMovedSources(const Deliveries& deliveries)
{
    MovedSources sources;
    for (const auto& [tstrFolder, delivered] : deliveries) {
        for (const Delivery& delivery : delivered) {
            if (delivery.eWhen != PackageLayout::When::eAtRestart) continue;
            const std::wstring tstrFolderOfIt = String::FolderPart(delivery.tstrSource);
            sources[tstrFolderOfIt].push_back(delivery.tstrSource.substr(tstrFolderOfIt.size()));
        }
    }
    return sources;
}

}  // namespace Check
