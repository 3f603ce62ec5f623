#include "check/update/Deliveries.h"

#include "check/update/Instructions.h"
#include "common/KzComn_String.h"

#include <set>
#include <utility>

using namespace KzCommon;

namespace Check {

Deliveries SortDeliveries(const Update& update)
{
    Deliveries deliveries;
    std::set<std::pair<std::wstring, std::wstring>> made;
    for (const Delivery& delivery : update.Deliveries()) {
        const std::wstring tstrDestination = LowerCase(delivery.tstrDestination);
        const bool bMade = delivery.tstrContent != delivery.tstrSource;
        if (bMade && !made.emplace(LowerCase(delivery.tstrSource), tstrDestination).second) continue;
        deliveries[String::FolderPart(tstrDestination)].push_back(delivery);
    }
    return deliveries;
}

std::map<std::wstring, std::vector<std::wstring>> ListMovedSources(const Deliveries& deliveries)
{
    std::map<std::wstring, std::vector<std::wstring>> sources;
    for (const auto& [tstrFolder, delivered] : deliveries) {
        for (const Delivery& delivery : delivered) {
            if (delivery.eWhen != PackageLayout::When::eAtRestart) continue;
            const std::wstring tstrFile = LowerCase(delivery.tstrSource);
            const std::wstring tstrSourceFolder = String::FolderPart(tstrFile);
            sources[tstrSourceFolder].push_back(tstrFile.substr(tstrSourceFolder.size()));
        }
    }
    return sources;
}

}  // namespace Check
