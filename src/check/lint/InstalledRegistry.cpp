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

/// The numbers of a version; empty for any other text.
std::vector<unsigned long> NumbersOf(std::wstring_view tstrVersion)
{
    constexpr std::size_t kMostDigits = 9;
    std::vector<unsigned long> numbers;
    while (true) {
        const std::size_t uEnd = std::min(tstrVersion.find(L'.'), tstrVersion.size());
        const std::wstring tstrNumber(tstrVersion.substr(0, uEnd));
        if (tstrNumber.empty() || tstrNumber.size() > kMostDigits ||
            tstrNumber.find_first_not_of(L"0123456789") != std::wstring::npos) {
            return {};
        }
        numbers.push_back(std::stoul(tstrNumber));
        if (uEnd == tstrVersion.size()) break;
        tstrVersion.remove_prefix(uEnd + 1);
    }
    return numbers.size() > 1 ? numbers : std::vector<unsigned long>();
}

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

bool IsOlderVersion(std::wstring_view tstrVersion, std::wstring_view tstrInstalled)
{
    const std::vector<unsigned long> numbers = NumbersOf(tstrVersion);
    const std::vector<unsigned long> installed = NumbersOf(tstrInstalled);
    return !numbers.empty() && !installed.empty() && numbers < installed;
}

}  // namespace Check
