#include "agent/Deliveries.h"

#include "agent/ComponentFiles.h"
#include "agent/SettingsFiles.h"

#include "common/KzComn_String.h"

#include <algorithm>
#include <utility>

using namespace KzCommon;
using namespace PackageLayout;

namespace {

constexpr wchar_t kUpdateInfoName[] = L"UpdateInfo.ini";

/// The delivery of a copy's file `tstrName` (relative to the copy's folders).
Delivery DeliveryOf(const FolderCopy& copy, const std::wstring& tstrName)
{
    Delivery delivery;
    delivery.tstrSource = copy.tstrSourceDir + tstrName;
    delivery.tstrContent = delivery.tstrSource;
    delivery.tstrDestination = copy.tstrDestinationDir + tstrName;
    delivery.eBase = copy.pRow->destination.eBase;
    delivery.tstrBelow = String::EnsureBackslash(copy.pRow->destination.szBelow) + tstrName;
    delivery.eWhen = copy.pRow->eWhen;
    return delivery;
}

void AddCopied(const Machine& machine, const FolderCopy& copy, std::vector<Delivery>& deliveries)
{
    const auto add = [&](const std::wstring& tstrSource, const std::wstring&) {
        deliveries.push_back(DeliveryOf(copy, tstrSource.substr(copy.tstrSourceDir.size())));
    };
    ForEachFileToCopy(machine, copy.tstrSourceDir, L"*.*", copy.tstrDestinationDir,
                      copy.pRow->eDepth == Depth::eWithSubfolders, add);
}

/// Adds the settings files that PrepareSettings() creates or changes before the copy.
void AddPrepared(const Machine& machine, const FolderCopy& copy, std::vector<Delivery>& deliveries)
{
    if (!machine.HasFolder(copy.tstrSourceDir) || machine.IsLink(copy.tstrSourceDir)) return;
    std::vector<Delivery> made;
    for (const LanguageFile& file : LanguageFiles()) {
        const std::wstring tstrInstalled = InstalledName(file);
        for (Delivery& delivery : deliveries) {
            if (!String::EqualsNoCase(String::FolderPart(delivery.tstrSource), copy.tstrSourceDir)) continue;
            const std::wstring tstrName = delivery.tstrSource.substr(copy.tstrSourceDir.size());
            if (file.bMerged && String::EqualsNoCase(tstrName, tstrInstalled)) delivery.bMerged = true;
            const std::optional<std::wstring> optLanguage = LanguageOf(file, tstrName);
            if (!optLanguage) continue;
            Delivery selected = DeliveryOf(copy, tstrInstalled);
            selected.tstrContent = delivery.tstrSource;
            selected.tstrLanguage = *optLanguage;
            selected.bMerged = file.bMerged;
            made.push_back(std::move(selected));
        }
    }
    if (!BringsUpdateInfo(machine, copy.tstrSourceDir + kUpdateInfoName)) {
        made.push_back(DeliveryOf(copy, kUpdateInfoName));
        made.back().tstrContent.clear();
    }
    std::move(made.begin(), made.end(), std::back_inserter(deliveries));
}

}  // namespace

std::vector<Delivery> ListDeliveries(const Machine& machine, const PackageFolders& folders)
{
    std::vector<Delivery> deliveries;
    for (const FolderCopy& copy : ListCopies(machine, folders)) {
        if (copy.tstrSourceDir.empty() || copy.tstrDestinationDir.empty()) continue;
        AddCopied(machine, copy, deliveries);
        if (copy.pStep->bPreparesSettings) AddPrepared(machine, copy, deliveries);
    }
    return deliveries;
}
