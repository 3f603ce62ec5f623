// B060 to B068: the configuration files that the update brings, and the settings that it carries over.
#include "check/lint/ConfigTags.h"
#include "check/lint/InstalledRegistry.h"
#include "check/lint/Lint.h"
#include "check/lint/SecretText.h"
#include "check/lint/XmlFile.h"
#include "check/simulate/LostSettings.h"
#include "check/update/Instructions.h"
#include "check/update/Suggestion.h"
#include "check/update/XmlForm.h"

#include "agent/SettingsFiles.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_String.h"
#include "config/ConfigDefaults.h"
#include "config/ConfigStore.h"

#include <algorithm>
#include <map>
#include <set>

using namespace KzCommon;
using Config::TagPath;
using Storage::XmlElement;

namespace Check {

namespace {

/// Stand in no element's name, but in texts that are no tag path.
constexpr wchar_t kNeverInNames[] = L" \t\\\"'<>&{}[]()!=;,*?";

/// More settings than this are not searched for one that may have been meant.
constexpr std::size_t kMaxSuggested = 500;

struct KnownTag {
    std::wstring tstrPath;
    bool bSection;  ///< in every file that has it
};
/// The settings and sections of all files and the defaults, by folded path.
using KnownTags = std::map<std::wstring, KnownTag>;

void AddTag(KnownTags& known, const TagPath& path, bool bSection)
{
    const auto [it, bNew] = known.try_emplace(path.Folded(), KnownTag{path.Text(), bSection});
    if (!bNew) it->second.bSection = it->second.bSection && bSection;
}

/// The type that may have been meant by another word.
std::wstring MeantType(const std::wstring& tstrType)
{
    constexpr std::pair<const wchar_t*, const wchar_t*> kOthers[] = {
        {L"boolean", L"bool"}, {L"integer", L"int"}, {L"number", L"int"}, {L"dword", L"int"}, {L"text", L"string"}};
    for (const auto& [szOther, szType] : kOthers) {
        if (String::EqualsNoCase(tstrType, szOther)) return szType;
    }
    const std::wstring words[] = {L"string", L"int", L"bool"};
    return NearestOf(tstrType, words);
}

/// 0 or 1, as it may have been meant by another word.
std::wstring MeantBool(const std::wstring& tstrValue)
{
    constexpr std::pair<const wchar_t*, const wchar_t*> kOthers[] = {{L"true", L"1"},  {L"yes", L"1"}, {L"on", L"1"},
                                                                     {L"false", L"0"}, {L"no", L"0"},  {L"off", L"0"}};
    for (const auto& [szOther, szBool] : kOthers) {
        if (String::EqualsNoCase(tstrValue, szOther)) return szBool;
    }
    return {};
}

/// One configuration file.
class ConfigFile {
public:
    ConfigFile(const std::wstring& tstrFile, KnownTags& known, Report& report)
        : m_tstrFile(tstrFile), m_known(known), m_report(report)
    {
        DWORD dwError = ERROR_SUCCESS;
        m_bProtection = m_protection.Open(Config::kStoreKey, dwError);
    }

    /// All elements below the root.
    void Check(const XmlElement& root);

private:
    void CheckElement(const XmlElement& element, const TagPath& path);
    void CheckAttributes(const XmlElement& element, const TagPath& path);
    [[nodiscard]] bool CheckSealed(const XmlElement& element, const TagPath& path, Config::Secret<std::wstring>& clear);
    void CheckMark(const XmlElement& element, const TagPath& path);
    void CheckType(const XmlElement& element, const TagPath& path, const std::wstring& tstrClear);
    void Add(Rule eRule, const XmlElement& element, const std::wstring& tstrText,
             const std::wstring& tstrSuggestion = {}, Severity eSeverity = Severity::eError)
    {
        m_report.AddAs(eSeverity, eRule, m_tstrFile, PlaceOfElement(element), tstrText, tstrSuggestion);
    }

    const std::wstring& m_tstrFile;
    KnownTags& m_known;
    Report& m_report;
    Config::ValueProtection m_protection;
    bool m_bProtection = false;
};

void ConfigFile::Check(const XmlElement& root)
{
    ForEachTag(root, [this](const XmlElement& element, const TagPath& path) { CheckElement(element, path); });
}

void ConfigFile::CheckElement(const XmlElement& element, const TagPath& path)
{
    AddTag(m_known, path, element.GetFirstChild() != nullptr);
    CheckAttributes(element, path);
    if (element.GetFirstChild()) return;
    Config::Secret<std::wstring> clear;
    const Config::Value value = Config::ValueOf(element);
    if (value.bProtected) {
        if (!CheckSealed(element, path, clear)) return;
    } else {
        clear.value = value.tstrText;
        CheckMark(element, path);
    }
    CheckType(element, path, clear.value);
}

/// B066: attributes that nearly are those which mean something. B064 tells of the mark of a protected one.
void ConfigFile::CheckAttributes(const XmlElement& element, const TagPath& path)
{
    const std::wstring names[] = {L"type", L"protected"};
    for (const Storage::XmlAttribute& attribute : element.Attributes()) {
        const std::wstring& tstrName = attribute.tstrName;
        const std::wstring tstrNear = NearestOf(tstrName, names);
        const bool bMark = String::EqualsNoCase(tstrName, names[1]);
        if (tstrNear.empty() || tstrName == tstrNear || bMark) continue;
        Add(Rule::eMisspeltSetting, element,
            path.Text() + L" has the attribute \"" + tstrName + L"\", which means nothing", tstrNear);
    }
}

/// B064 of a setting that is marked as protected. False when its text cannot be read.
bool ConfigFile::CheckSealed(const XmlElement& element, const TagPath& path, Config::Secret<std::wstring>& clear)
{
    const std::wstring tstrText = Config::ValueOf(element).tstrText;
    DWORD dwError = ERROR_SUCCESS;
    if (!m_bProtection) return false;
    if (m_protection.Unprotect(path, tstrText, clear, dwError)) return true;
    Add(Rule::eSecretInClear, element,
        path.Text() + L" is marked as protected, but its text is not the encrypted one of this setting");
    return false;
}

/// B064 of a setting that is in clear.
void ConfigFile::CheckMark(const XmlElement& element, const TagPath& path)
{
    const bool bMisspelt = Config::ProtectionOf(element) == Config::Protection::eMisspelt;
    const std::wstring tstrText = element.GetText();
    const bool bKnown = bMisspelt || Config::IsSecret(path);
    const bool bNamed = IsSecretName(element.GetName()) &&
                        tstrText.find_first_not_of(L" \t\r\n") != std::wstring::npos &&
                        Config::TypeOfName(element.GetAttribute(L"type")) == Config::Type::eString;
    if (!bKnown && !bNamed) return;
    // An element without a text gives nothing away.
    Add(Rule::eSecretInClear, element,
        path.Text() +
            (bMisspelt ? L" is meant to be protected, but not marked so"
             : bKnown  ? L" is a secret and not protected"
                       : L" is a secret by its name and not protected") +
            (tstrText.empty() ? L"" : L": ship it empty"),
        L"<" + element.GetName() + L" protected=\"1\"/>",
        tstrText.empty() || !bKnown ? Severity::eWarning : Severity::eError);
}

void ConfigFile::CheckType(const XmlElement& element, const TagPath& path, const std::wstring& tstrClear)
{
    const std::wstring tstrType = element.GetAttribute(L"type");
    const Config::Type eType = Config::TypeOfName(tstrType);
    if (eType == Config::Type::eUnknown) {
        const std::wstring tstrMeant = MeantType(tstrType);
        const bool bFits = tstrClear.empty() || Config::Fits(Config::TypeOfName(tstrMeant), tstrClear);
        Add(Rule::eConfigValueType, element,
            path.Text() + L" has the type \"" + tstrType + L"\": write string, int (a decimal number) or bool (0 or 1)",
            bFits ? tstrMeant : std::wstring());
    } else if (!tstrClear.empty() && !Config::Fits(eType, tstrClear)) {
        // What was protected is not shown.
        const std::wstring tstrShown =
            Config::ValueOf(element).bProtected ? std::wstring(L"a protected value") : L"\"" + tstrClear + L"\"";
        const bool bBool = eType == Config::Type::eBool;
        Add(Rule::eConfigValueType, element,
            path.Text() + L" holds " + tstrShown + L", which is no " + tstrType + L": write " +
                (bBool ? L"0 or 1" : L"a decimal number"),
            bBool ? MeantBool(tstrClear) : std::wstring());
    }
}

bool HasPlainNames(const TagPath& path)
{
    for (const std::wstring& tstrName : path.Names()) {
        if (tstrName.find_first_of(kNeverInNames) != std::wstring::npos) return false;
    }
    return true;
}

/// The tag path without its first name, which is the root element's, if that is a setting; else empty.
std::wstring WithoutRoot(const std::wstring& tstrTag, const KnownTags& known)
{
    const std::wstring tstrRest = tstrTag.substr(std::min(tstrTag.find(L'/', 1), tstrTag.size()));
    const std::optional<TagPath> path = TagPath::Parse(tstrRest);
    const auto itKnown = path ? known.find(path->Folded()) : known.end();
    return itKnown == known.end() || itKnown->second.bSection ? std::wstring() : itKnown->second.tstrPath;
}

/// What the rules of records are checked against.
struct TagContext {
    const KnownTags& known;
    std::vector<std::wstring> words;         ///< the settings that may have been meant
    const std::set<std::wstring>& misspelt;  ///< in the files, and the right names, folded
    bool bPackage = false;                   ///< the product package, which has the files, is there
};

/// B060 and B061 of one record.
void CheckTag(const IniRecord& record, const TagContext& around, Report& report)
{
    const auto add = [&](Rule eRule, const wchar_t* szText, const std::wstring& tstrSuggestion) {
        report.Add(eRule, kInstructionFile, record.valuePlace, L"\"" + record.tstrValue + L"\" " + szText,
                   tstrSuggestion);
    };
    const std::optional<TagPath> path = TagPath::Parse(record.tstrValue);
    if (!path || !HasPlainNames(*path)) {
        add(Rule::eNoTagPath, L"is no tag path, such as /Section/Setting", NearestOf(record.tstrValue, around.words));
        return;
    }
    // Another finding tells of a missing package, and of the files if they are wrong and the record is right.
    if (!around.bPackage || around.misspelt.contains(path->Folded())) return;
    const auto itKnown = around.known.find(path->Folded());
    if (itKnown == around.known.end()) {
        const std::wstring tstrRootless = WithoutRoot(record.tstrValue, around.known);
        add(Rule::eUnknownTag, L"is a setting of neither the update's configuration files nor the defaults",
            tstrRootless.empty() ? NearestOf(record.tstrValue, around.words) : tstrRootless);
    } else if (itKnown->second.bSection) {
        add(Rule::eUnknownTag, L"is a section: settings are carried over one by one", L"");
    }
}

/// B065: files of the names under which the agent keeps the user's settings.
void CheckKeptNames(const Update& update, Report& report)
{
    for (const Delivery& delivery : update.Deliveries()) {
        if (delivery.eBase != PackageLayout::Base::eInstall || !IsKeptFileFor(L"config.xml", delivery.tstrBelow))
            continue;
        report.Add(Rule::eShipsKeptSettings, delivery.tstrSource, {},
                   L"the agent keeps the user's settings under this name, and the file replaces them: rename it");
    }
}

/// The configuration files, that of the installed product's language first.
std::vector<std::wstring> ConfigFiles(const Update& update)
{
    std::vector<std::wstring> files = SettingFiles(update, L"config", L"xml");
    const auto optLanguage = InstalledRegistry(update).Find(Frwk::Utility::kProductKey, L"Language");
    const std::wstring tstrOwn = L"\\config_" + (optLanguage ? ShowStored(*optLanguage) : L"EN-US") + L".xml";
    std::ranges::stable_partition(files, [&](const std::wstring& tstrFile) {
        return tstrFile.size() > tstrOwn.size() &&
               String::EqualsNoCase(tstrFile.substr(tstrFile.size() - tstrOwn.size()), tstrOwn);
    });
    return files;
}

/// B068 of one configuration file; what is lost in several languages is found in the first.
void CheckLostSettings(const Update& update, const std::wstring& tstrFile, const XmlElement& root,
                       std::set<std::wstring>& found, Report& report)
{
    if (!update.InstalledFolder()) return;
    for (const LostSetting& lost : ListLostSettings(update.Root(), *update.InstalledFolder(), tstrFile)) {
        const std::optional<TagPath> lostPath = TagPath::Parse(lost.tstrTag);
        if (!lostPath || !found.insert(lostPath->Folded()).second) continue;
        TextPosition place;
        ForEachTag(root, [&](const XmlElement& element, const TagPath& path) {
            if (place.uLine == 0 && path.Folded() == lostPath->Folded()) place = PlaceOfElement(element);
        });
        report.Add(Rule::eSettingLost, tstrFile, place,
                   L"the installed product's value is left behind: " + TextOf(lost) + L"; migrate=" + lost.tstrTag +
                       L" carries it over");
    }
}

void AddDefaults(KnownTags& known)
{
    for (const Config::Default& row : Config::Defaults()) {
        if (const auto path = TagPath::Parse(row.szTagPath)) AddTag(known, *path, false);
    }
}

}  // namespace

void CheckConfiguration(const LintContext& context, Report& report)
{
    KnownTags known;
    AddDefaults(known);
    std::vector<FileTags> files;
    std::set<std::wstring> lost;
    for (const std::wstring& tstrFile : ConfigFiles(context.update)) {
        const auto document = ReadXml(context.update, tstrFile, Rule::eConfigNotXml, report);
        if (!document) continue;
        ConfigFile(tstrFile, known, report).Check(*document->GetRoot());
        files.push_back(TagsOf(tstrFile, *document->GetRoot()));
        CheckLostSettings(context.update, tstrFile, *document->GetRoot(), lost, report);
    }
    std::ranges::sort(files, {}, &FileTags::tstrFile);
    std::vector<const IniRecord*> records;
    std::vector<std::wstring> carriedOver;
    for (const Instruction& instruction : ListInstructions(context.instructions)) {
        if (FormOf(instruction.pKey->eEffect) != RecordForm::eTag) continue;
        records.push_back(instruction.pRecord);
        carriedOver.push_back(instruction.pRecord->tstrValue);
    }
    const std::set<std::wstring> misspelt = CheckTagNames(context.update, files, carriedOver, report);
    TagContext around{known, {}, misspelt, context.update.Product().bThere};
    for (const auto& [tstrFolded, tag] : known) {
        if (!tag.bSection && around.words.size() < kMaxSuggested) around.words.push_back(tag.tstrPath);
    }
    for (const IniRecord* const pRecord : records) CheckTag(*pRecord, around, report);
    CheckKeptNames(context.update, report);
}

}  // namespace Check
