#include "check/lint/InstalledRegistry.h"

#include "check/simulate/RegistryText.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"

#include <vector>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMostRegistryBytes = std::size_t{64} * 1024 * 1024;

}  // namespace

InstalledRegistry::InstalledRegistry(const Update& update)
{
    const std::optional<std::wstring>& optInstalled = update.InstalledFolder();
    if (!optInstalled) return;
    std::string strBytes;
    if (Storage::File::ReadWhole(LongPath(*optInstalled + L"registry.reg"), kMostRegistryBytes, strBytes, nullptr)) {
        m_optTree.emplace(nullptr);
        static_cast<void>(ReadRegistryText(
            strBytes, {.key = {}, .removeKey = {}, .value = [&](const RegistryPlace& place, auto optValue) {
                           m_optTree->Put(place, std::move(optValue));
                       }}));
    } else if (String::EqualsNoCase(Frwk::Utility::GetInstalledFolder(m_machine), *optInstalled)) {
        m_optTree.emplace(&m_machine);
    }
}

std::optional<StoredValue> InstalledRegistry::Find(const std::wstring& tstrKeyPath, const std::wstring& tstrName) const
{
    StoredValue value;
    const bool bFound =
        m_optTree && m_optTree->Read({.tstrKeyPath = tstrKeyPath, .tstrName = tstrName}, value, nullptr);
    return bFound ? std::optional(std::move(value)) : std::nullopt;
}

}  // namespace Check
