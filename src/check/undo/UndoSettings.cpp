// Settings and update information of an update that undoes another one.
#include "check/undo/UndoParts.h"

#include "check/simulate/LostSettings.h"
#include "check/update/IniScan.h"
#include "check/update/XmlForm.h"
#include "check/verify/ExpectedState.h"

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

using IniValues = std::map<NamePair, std::wstring, NoCasePair>;

/// The text of the update information without its download paths, with the new package's, and with other values: as the
/// update client leaves it.
std::wstring WithPackage(const std::wstring& tstrText, const std::wstring& tstrPackage, IniValues values)
{
    const std::wstring tstrNew = ProductDownloadKey().szKey + (L"=" + tstrPackage) + L"\r\n";
    std::wstring tstrResult;
    bool bNamed = false;
    std::wstring tstrSection;
    for (std::size_t uLine = 0; uLine < tstrText.size();) {
        const std::size_t uEnd = std::min(tstrText.find(L'\n', uLine), tstrText.size());
        const std::wstring tstrLine(String::Trim(tstrText.substr(uLine, uEnd - uLine), L" \t\r"));
        uLine = uEnd + 1;
        const std::wstring tstrKey(String::Trim(tstrLine.substr(0, tstrLine.find(L'=')), L" \t"));
        if (IsDownloadKey(tstrKey)) continue;
        const bool bSection = tstrLine.starts_with(L'[');
        if (bSection) tstrSection = String::Trim(tstrLine, L"[] \t");
        // The first of several counts.
        const auto value = values.extract({tstrSection, tstrKey});
        tstrResult += (value ? tstrKey + L"=" + value.mapped() : tstrLine) + L"\r\n";
        const bool bList = !bNamed && bSection && String::EqualsNoCase(tstrSection, kList);
        if (bList) tstrResult += tstrNew;
        bNamed = bNamed || bList;
    }
    return bNamed ? tstrResult : tstrResult + L"[" + kList + L"]\r\n" + tstrNew;
}

/// Whether a record can write the value back.
bool IsWritable(const NamePair& key, const std::wstring& tstrValue)
{
    const bool bNames = (key.first + key.second).find_first_of(L"!=]") == std::wstring::npos;
    return bNames && !key.second.empty() && !tstrValue.empty() && tstrValue.find(L'!') == std::wstring::npos;
}

/// Whether the agent or the update client writes the key in every update.
bool IsOfEveryUpdate(const std::wstring& tstrKey)
{
    return IsDownloadKey(tstrKey) || String::EqualsNoCase(tstrKey, DeployedVersion().tstrKey);
}

bool IsAscii(const std::wstring& tstrText)
{
    return std::all_of(tstrText.begin(), tstrText.end(), [](wchar_t ch) { return ch <= 0x7F; });
}

/// Adds the records that write the installed values. Returns their keys. Of sections and keys with one name Windows
/// reads the first. Text in a code page is not the same on every machine.
NamePairs AddInfoRecords(const IniScan& scan, UndoSection& section)
{
    NamePairs written;
    NamePairs seen;
    for (const IniSection& installed : scan.Sections()) {
        if (scan.Find(installed.tstrName) != &installed) continue;
        for (const IniRecord& record : installed.records) {
            const NamePair key{installed.tstrName, record.tstrKey};
            const bool bFirst = seen.insert(key).second;
            const bool bKnown = scan.Encoding() == IniEncoding::eUtf16 || IsAscii(record.tstrValue);
            if (!bFirst || !bKnown || IsOfEveryUpdate(key.second) || !IsWritable(key, record.tstrValue)) continue;
            const std::wstring tstrRecord = key.first + L"!" + key.second + L"!" + record.tstrValue;
            if (AddRecord(section, L"modify", tstrRecord)) written.insert(key);
        }
    }
    return written;
}

}  // namespace

void AddUndoSettings(const UndoContext& context, UndoParts& parts)
{
    const std::wstring tstrSetting = std::wstring(kComponents) + parts.tstrPackage + L"\\Share\\Setting\\";
    const std::wstring tstrLanguage = Frwk::Utility::GetLanguage(context.before);
    for (const LanguageFile& file : LanguageFiles()) {
        const std::wstring tstrInstalled = context.installed / InstalledName(file);
        // The user's settings change in use: an update that brings none has left them alone.
        const bool bUsers = file.bMerged && !context.touched.paths.contains(tstrInstalled);
        if (!context.before.HasFile(tstrInstalled) || bUsers) continue;
        const std::wstring tstrOwn = context.installed / NameInLanguage(file, tstrLanguage);
        parts.reasons[NameOfPath(context.installed, tstrOwn)] = L"the settings step installs this file, too";
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
    IniScan scan;
    scan.Scan(strBytes);
    const NamePairs written = AddInfoRecords(scan, parts.infoRecords);
    parts.reasons[NameOfKey({kList, DeployedVersion().tstrKey})] = L"every run writes the agent's own version";
    IniValues versions;
    for (const NamePair& key : context.touched.iniKeys) {
        const std::wstring tstrFile = context.installed / kUpdateInfoFile;
        const std::wstring tstrBefore = ReadKey(context.before, tstrFile, key);
        const std::wstring tstrAfter = ReadKey(context.after, tstrFile, key);
        if (tstrBefore == tstrAfter || IsOfEveryUpdate(key.second)) continue;
        if (tstrBefore.empty()) {
            parts.keptKeys[key] = L"no record removes a key; it stays where the update client keeps the file";
        } else if (!written.contains(key)) {
            parts.keptKeys[key] =
                L"no record can write the old value; it comes back where the update client replaces "
                L"the file";
        } else if (IsVersionKey(key.second)) {
            versions[key] = tstrAfter;  // the version from which the new update goes back
        }
    }
    parts.tstrUpdateInfo = WithPackage(TextOf(strBytes), parts.tstrPackage, std::move(versions));
}

}  // namespace Check
