// Settings and update information of an update that undoes another one.
#include "check/undo/UndoParts.h"

#include "check/simulate/LostSettings.h"
#include "check/update/IniScan.h"
#include "check/update/XmlForm.h"

#include "agent/DownloadPath.h"
#include "agent/IniEdits.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_XmlParser.h"
#include "config/ConfigDefaults.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMostIniBytes = std::size_t{16} * 1024 * 1024;
constexpr wchar_t kList[] = L"COMPONENT_LIST";
constexpr const wchar_t* kDownloadKeys[] = {L"Component1_DownloadPath", L"Component101_DownloadPath",
                                            L"Component2_DownloadPath"};

bool IsDownloadKey(const std::wstring& tstrKey)
{
    return std::any_of(std::begin(kDownloadKeys), std::end(kDownloadKeys),
                       [&](const wchar_t* szKey) { return String::EqualsNoCase(szKey, tstrKey); });
}

/// The settings of a configuration file, in its order.
std::vector<std::wstring> SettingsOf(const SimulatedMachine& machine, const std::wstring& tstrFile)
{
    std::vector<std::wstring> tags;
    std::string strBytes;
    if (!machine.ReadContent(tstrFile, Config::kMaxFileBytes, strBytes, nullptr)) return tags;
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        const auto document = Storage::XmlParser().ParseText(strBytes);
        ForEachTag(*document->GetRoot(), [&](const Storage::XmlElement& element, const Config::TagPath& path) {
            if (!element.GetFirstChild()) tags.push_back(path.Text());
        });
    }));
    return tags;
}

/// The settings that the update carries over stay the user's, also those changed after it. Every other setting gets the
/// value from before the update. Without any record the agent would keep a second copy of the user's file: then a
/// setting is carried over that the update has not changed.
void AddCarriedOver(const UndoContext& context, const std::wstring& tstrConfig, UndoSection& section)
{
    const std::vector<std::wstring> tags = SettingsOf(context.before, tstrConfig);
    const auto isIn = [](const std::vector<std::wstring>& texts, const std::wstring& tstrText) {
        return std::any_of(texts.begin(), texts.end(),
                           [&](const std::wstring& tstrOther) { return String::EqualsNoCase(tstrOther, tstrText); });
    };
    for (const std::wstring& tstrTag : context.touched.settings) {
        if (isIn(tags, tstrTag)) static_cast<void>(AddRecord(section, L"migrate", tstrTag));
    }
    if (!section.lines.empty()) return;
    std::vector<std::wstring> lost;
    for (LostSetting& setting : ListLostSettings(context.before, tstrConfig, context.after, tstrConfig)) {
        lost.push_back(std::move(setting.tstrTag));
    }
    const auto itSame =
        std::find_if(tags.begin(), tags.end(), [&](const std::wstring& tstrTag) { return !isIn(lost, tstrTag); });
    if (itSame != tags.end()) static_cast<void>(AddRecord(section, L"migrate", *itSame));
}

/// The text of an INI file as Windows reads it.
std::wstring TextOf(std::string_view strBytes)
{
    constexpr std::string_view kMark = "\xFF\xFE";
    return strBytes.starts_with(kMark) ? String::FromUtf16(strBytes.substr(kMark.size())) : String::FromAnsi(strBytes);
}

/// The text of the update information without its download paths, and with the new package's.
std::wstring WithPackage(const std::wstring& tstrText, const std::wstring& tstrPackage)
{
    const std::wstring tstrNew = ProductDownloadKey().szKey + (L"=" + tstrPackage) + L"\r\n";
    std::wstring tstrResult;
    bool bNamed = false;
    for (std::size_t uLine = 0; uLine < tstrText.size();) {
        const std::size_t uEnd = std::min(tstrText.find(L'\n', uLine), tstrText.size());
        const std::wstring tstrLine(String::Trim(tstrText.substr(uLine, uEnd - uLine), L" \t\r"));
        uLine = uEnd + 1;
        const std::wstring tstrKey(String::Trim(tstrLine.substr(0, tstrLine.find(L'=')), L" \t"));
        if (IsDownloadKey(tstrKey)) continue;
        tstrResult += tstrLine + L"\r\n";
        const std::wstring_view tstrSection = String::Trim(tstrLine, L"[] \t");
        const bool bList = !bNamed && tstrLine.starts_with(L'[') && String::EqualsNoCase(tstrSection, kList);
        if (bList) tstrResult += tstrNew;
        bNamed = bNamed || bList;
    }
    return bNamed ? tstrResult : tstrResult + L"[" + kList + L"]\r\n" + tstrNew;
}

/// Whether a record can write the value back.
bool IsWritable(const NamePair& key, const std::wstring& tstrValue)
{
    if (IsDownloadKey(key.second) || String::EqualsNoCase(key.second, DeployedVersion().tstrKey)) return false;
    const std::wstring tstrAll = key.first + key.second + tstrValue;
    return !key.second.empty() && !tstrValue.empty() && tstrAll.find_first_of(L"!\"=];") == std::wstring::npos;
}

}  // namespace

void AddUndoSettings(const UndoContext& context, UndoParts& parts)
{
    const std::wstring tstrSetting = std::wstring(kComponents) + parts.tstrPackage + L"\\Share\\Setting\\";
    const std::wstring tstrLanguage = Frwk::Utility::GetLanguage(context.before);
    for (const LanguageFile& file : LanguageFiles()) {
        const std::wstring tstrInstalled = context.installed / InstalledName(file);
        const std::wstring tstrOwn = context.installed / NameInLanguage(file, tstrLanguage);
        parts.reasons[NameOfPath(context.installed, tstrOwn)] = L"the settings step installs this file, too";
        if (!context.before.HasFile(tstrInstalled)) continue;
        parts.files[tstrSetting + NameInLanguage(file, tstrLanguage)] = tstrInstalled;
        if (file.bMerged) AddCarriedOver(context, tstrInstalled, parts.settingRecords);
    }
}

void AddUndoInfo(const UndoContext& context, UndoParts& parts)
{
    // The machine before the update has the installed file, and the update has its own.
    std::string strBytes;
    static_cast<void>(
        context.before.ReadContent(context.installed / kUpdateInfoFile, kMostIniBytes, strBytes, nullptr));
    parts.tstrUpdateInfo = WithPackage(TextOf(strBytes), parts.tstrPackage);
    parts.reasons[NameOfKey({kList, DeployedVersion().tstrKey})] = L"every run writes the agent's own version";
    for (const NamePair& key : context.touched.iniKeys) {
        const std::wstring tstrFile = context.installed / kUpdateInfoFile;
        const bool bNew = ReadKey(context.before, tstrFile, key).empty();
        if (bNew && !ReadKey(context.after, tstrFile, key).empty()) parts.newKeys.insert(key);
    }
    IniScan scan;
    scan.Scan(strBytes);
    for (const IniSection& section : scan.Sections()) {
        for (const IniRecord& record : section.records) {
            const NamePair key{section.tstrName, record.tstrKey};
            if (!IsWritable(key, record.tstrValue)) continue;
            static_cast<void>(
                AddRecord(parts.infoRecords, L"modify", key.first + L"!" + key.second + L"!" + record.tstrValue));
        }
    }
}

}  // namespace Check
