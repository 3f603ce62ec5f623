#include "check/simulate/LostSettings.h"

#include "check/simulate/PlanMachine.h"
#include "check/update/XmlForm.h"

#include "agent/ConfigMerge.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_XmlParser.h"
#include "config/ConfigDefaults.h"
#include "config/ConfigStore.h"

#include <set>

using namespace KzCommon;
using Config::ConfigStore;
using Config::TagPath;
using Storage::XmlElement;

namespace Check {

namespace {

/// What one of the files holds of a setting.
struct Setting {
    ConfigStore::Found eFound = ConfigStore::Found::eNone;
    Config::Value value;
};

/// Compares the settings of two files.
class Comparison {
public:
    Comparison(Machine& before, Machine& after) : m_old(before, m_protection), m_new(after, m_protection) {}

    [[nodiscard]] bool Open(const std::wstring& tstrOldFile, const std::wstring& tstrNewFile)
    {
        DWORD dwError = ERROR_SUCCESS;
        return m_protection.Open(Config::kStoreKey, dwError) && m_old.Open(tstrOldFile) && m_new.Open(tstrNewFile);
    }

    /// Adds the setting of an element of the old file where it is lost.
    void Look(const XmlElement& element, const TagPath& path, std::vector<LostSetting>& lost)
    {
        if (element.GetFirstChild() || !m_seen.insert(path.Folded()).second) return;
        Setting old = Read(m_old, path);
        if (old.eFound == ConfigStore::Found::eNone) return;
        // Nobody carries over what does not fit its type: it is lost as it is written there.
        if (old.eFound == ConfigStore::Found::eRefused) old.value = Config::ValueOf(element);
        const Setting now = Read(m_new, path);
        const bool bBothRefused = old.eFound == now.eFound && now.eFound == ConfigStore::Found::eRefused;
        if (bBothRefused || IsSame(path, old, now)) return;
        const bool bSecret = old.value.bProtected || now.value.bProtected || Config::IsSecret(path);
        const bool bNoValue = now.eFound == ConfigStore::Found::eRefused;
        lost.push_back({path.Text(), Shown(old, bSecret), bNoValue ? L"(no valid value)" : Shown(now, bSecret)});
    }

private:
    [[nodiscard]] static Setting Read(const ConfigStore& store, const TagPath& path)
    {
        Setting setting;
        Config::Type eType = Config::Type::eString;
        setting.eFound = store.Read(path, setting.value, eType);
        return setting;
    }

    [[nodiscard]] bool IsSame(const TagPath& path, const Setting& old, const Setting& now) const
    {
        Config::Secret<std::wstring> oldText;
        Config::Secret<std::wstring> newText;
        if (!Clear(path, old, oldText)) return now.eFound != ConfigStore::Found::eNone && old.value == now.value;
        if (now.eFound != ConfigStore::Found::eNone) return Clear(path, now, newText) && oldText.value == newText.value;
        const Config::Default* const pDefault = Config::FindDefault(path);
        return pDefault && oldText.value == pDefault->szValue;
    }

    [[nodiscard]] bool Clear(const TagPath& path, const Setting& setting, Config::Secret<std::wstring>& clear) const
    {
        DWORD dwError = ERROR_SUCCESS;
        if (setting.value.bProtected) return m_protection.Unprotect(path, setting.value.tstrText, clear, dwError);
        clear.value = setting.value.tstrText;
        return true;
    }

    [[nodiscard]] static std::wstring Shown(const Setting& setting, bool bSecret)
    {
        if (setting.eFound == ConfigStore::Found::eNone) return L"(none)";
        if (bSecret) return L"(secret)";
        return setting.value.tstrText.empty() ? L"(empty)" : setting.value.tstrText;
    }

    Config::ValueProtection m_protection;
    ConfigStore m_old;
    ConfigStore m_new;
    std::set<std::wstring> m_seen;
};

}  // namespace

std::wstring TextOf(const LostSetting& setting)
{
    return setting.tstrTag + L": " + setting.tstrOld + L" -> " + setting.tstrNew;
}

std::vector<LostSetting> ListLostSettings(Machine& before, const std::wstring& tstrOldFile, Machine& after,
                                          const std::wstring& tstrNewFile)
{
    std::vector<LostSetting> lost;
    std::string strBytes;
    if (!before.ReadContent(tstrOldFile, Config::kMaxFileBytes, strBytes, nullptr)) return lost;
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        Comparison comparison(before, after);
        if (!comparison.Open(tstrOldFile, tstrNewFile)) return;
        const auto document = Storage::XmlParser().ParseText(strBytes);
        ForEachTag(*document->GetRoot(),
                   [&](const XmlElement& element, const TagPath& path) { comparison.Look(element, path, lost); });
    }));
    return lost;
}

std::vector<LostSetting> ListLostSettings(const Folder& updateDir, const Folder& installedDir,
                                          const std::wstring& tstrFile)
{
    const WindowsMachine real;
    SimulatedMachine before(&real);
    SimulatedMachine after(&real);
    static_cast<void>(PrepareForPlan(after, {updateDir, installedDir, true}));
    RunContext run(after);
    const std::wstring tstrMerged = installedDir / tstrFile;
    static_cast<void>(MergeConfig(run, {.tstrPath = tstrMerged, .tstrWritten = tstrMerged}));
    return ListLostSettings(before, installedDir / L"config.xml", after, tstrMerged);
}

}  // namespace Check
