// B080 to B086: the shortcuts that the update describes.
#include "check/lint/Lint.h"
#include "check/lint/ProductFiles.h"
#include "check/lint/XmlFile.h"
#include "check/update/Instructions.h"
#include "check/update/Suggestion.h"
#include "check/update/XmlForm.h"

#include "agent/NewNameDecision.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"
#include "common/KzComn_XmlParser.h"
#include "installer/ShortcutPlan.h"

#include <algorithm>
#include <map>
#include <set>

using namespace KzCommon;
using namespace InstCommon::Utility;
using Storage::XmlElement;

namespace Check {

namespace {

/// Why Windows makes no link or folder of a name that the agent would try; null when it does.
const wchar_t* WhyNoName(const ShortcutItem& item, std::wstring_view tstrName)
{
    if (item.szRefusal) return item.szRefusal;
    if (!item.bFolder && LevelsOf(tstrName).empty()) return L"is no name";
    const bool bForeign = std::any_of(tstrName.begin(), tstrName.end(), [](wchar_t ch) {
        return ch < L' ' || std::wstring_view(L"*?\"<>|").find(ch) != std::wstring_view::npos;
    });
    return bForeign ? L"holds a line end or a character that no file name has" : nullptr;
}

/// The shortcuts in an element, itself included.
std::size_t CountShortcuts(const XmlElement& element)
{
    std::size_t cShortcuts = 0;
    std::vector<const XmlElement*> waiting{&element};
    while (!waiting.empty()) {
        const XmlElement* const pElement = waiting.back();
        waiting.pop_back();
        if (pElement->IsNamed(L"Shortcut")) ++cShortcuts;
        for (const XmlElement* p = pElement->GetFirstChild(); p; p = p->GetNextSibling()) waiting.push_back(p);
    }
    return cShortcuts;
}

/// An element of a description, and the attributes that the agent reads of it.
struct PartRow {
    const wchar_t* szElement;
    std::initializer_list<const wchar_t*> attributes;
};

constexpr PartRow kParts[] = {
    {L"Desktop", {L"available"}},
    {L"StartMenu", {L"available"}},
    {L"Folder", {L"name"}},
    {L"Shortcut", {L"lnk", L"icon", L"desc", L"arg"}},
};

const PartRow* FindPart(const XmlElement& element)
{
    const auto it = std::find_if(std::begin(kParts), std::end(kParts),
                                 [&](const PartRow& row) { return element.IsNamed(row.szElement); });
    return it == std::end(kParts) ? nullptr : &*it;
}

/// One description.
class Description {
public:
    /// `bInstalled`: the product has this description already.
    Description(const std::wstring& tstrFile, const ProductFiles& files, bool bInstalled, Report& report)
        : m_tstrFile(tstrFile), m_files(files), m_bInstalled(bInstalled), m_report(report)
    {
    }

    /// B081, B082, B085, B086, and B083 of links whose own name leads elsewhere.
    void CheckItems(const XmlElement& root);
    /// B083: what the walk that makes shortcuts does not come to.
    void CheckPlaces(const XmlElement& root);
    /// B084.
    void CheckParts(const XmlElement& root);

private:
    [[nodiscard]] bool CheckPart(const XmlElement& element);
    void CheckTarget(const ShortcutItem& item, const std::wstring& tstrName);
    void AddMissing(Rule eRule, const XmlElement& element, const std::wstring& tstrFile);
    void CheckChildren(const XmlElement& parent, ShortcutPlace ePlace, std::vector<const XmlElement*>& folders);
    void CheckIgnored(const XmlElement& element, const std::wstring& tstrWhy, Severity eSeverity = Severity::eError);
    void Add(Severity eSeverity, Rule eRule, const XmlElement& element, const std::wstring& tstrText,
             const std::wstring& tstrSuggestion = {})
    {
        m_report.AddAs(eSeverity, eRule, m_tstrFile, PlaceOfElement(element), tstrText, tstrSuggestion);
    }

    const std::wstring& m_tstrFile;
    const ProductFiles& m_files;
    bool m_bInstalled;
    Report& m_report;
};

/// The path of an item without its name's last level: a text for comparisons; every level ends in a backslash.
std::wstring FolderKey(ShortcutPlace ePlace, const std::vector<std::wstring>& levels, std::size_t cLevels)
{
    std::wstring tstrKey = std::to_wstring(static_cast<int>(ePlace)) + L"\\";
    for (std::size_t u = 0; u < cLevels; ++u) tstrKey += levels[u] + L"\\";
    return tstrKey;
}

void Description::CheckItems(const XmlElement& root)
{
    String::NoCaseSet made = {FolderKey(ShortcutPlace::eDesktop, {}, 0), FolderKey(ShortcutPlace::eStartMenu, {}, 0)};
    String::NoCaseMap<unsigned> lines;  // of the links
    for (const ShortcutItem& item : ListShortcuts(root, ShortcutWalk::eCreate)) {
        const std::wstring tstrName = item.bFolder ? item.pElement->GetAttribute(L"name") : item.pElement->GetText();
        if (const wchar_t* szWhy = WhyNoName(item, tstrName)) {
            Add(Severity::eError, Rule::eShortcutName, *item.pElement,
                L"\"" + tstrName + L"\" " + szWhy +
                    (item.bFolder ? L": left out, with all that is in it" : L": left out"));
            continue;
        }
        const std::vector<std::wstring> levels = LevelsOf(item.tstrPath);
        if (item.bFolder) {
            for (std::size_t c = 1; c <= levels.size(); ++c) made.insert(FolderKey(item.ePlace, levels, c));
            continue;
        }
        if (!made.contains(FolderKey(item.ePlace, levels, levels.size() - 1))) {
            Add(Severity::eError, Rule::eShortcutPlace, *item.pElement,
                L"\"" + tstrName + L"\" lies in a folder that nothing makes before it");
        }
        CheckTarget(item, tstrName);
        const unsigned uLine = PlaceOfElement(*item.pElement).uLine;
        const auto [itFirst, bNew] = lines.try_emplace(FolderKey(item.ePlace, levels, levels.size()), uLine);
        if (bNew) continue;
        Add(Severity::eError, Rule::eRepeatedShortcut, *item.pElement,
            L"\"" + tstrName + L"\" replaces the shortcut of line " + std::to_wstring(itFirst->second) +
                L", which has the same name and place");
    }
}

void Description::CheckTarget(const ShortcutItem& item, const std::wstring& tstrName)
{
    if (item.tstrTarget.empty()) {
        Add(Severity::eError, Rule::eShortcutTarget, *item.pElement,
            L"\"" + tstrName + L"\" has no target \"lnk\": it leads to the install folder");
    } else if (!m_files.HasPath(m_files.PathOf(item.tstrTarget))) {
        AddMissing(Rule::eShortcutTarget, *item.pElement, item.tstrTarget);
    }
    if (!item.tstrIcon.empty() && !m_files.HasFile(m_files.PathOf(item.tstrIcon))) {
        AddMissing(Rule::eShortcutIcon, *item.pElement, item.tstrIcon);
    }
}

/// A file below the install folder that is not there.
void Description::AddMissing(Rule eRule, const XmlElement& element, const std::wstring& tstrFile)
{
    const bool bKnown = m_files.AreInstalledKnown();
    // The installed shortcut leads there already.
    if (m_bInstalled && !m_files.IsDeleted(m_files.PathOf(tstrFile))) return;
    Add(bKnown ? Severity::eError : Severity::eWarning, eRule, element,
        L"\"" + tstrFile + L"\" does not come with the update" +
            (m_files.IsDeleted(m_files.PathOf(tstrFile)) ? L", which deletes it"
             : bKnown                                    ? L" and is not installed"
                                                         : L"; --installed tells whether it is installed"),
        m_files.NearestOf(m_files.PathOf(tstrFile)));
}

void Description::CheckPlaces(const XmlElement& root)
{
    for (const XmlElement* pPlace = root.GetFirstChild(); pPlace; pPlace = pPlace->GetNextSibling()) {
        const std::optional<ShortcutPlace> place = PlaceOf(*pPlace);
        if (!place) {
            CheckIgnored(*pPlace, L"is no place for shortcuts");
        } else if (!IsAvailable(*pPlace)) {
            const bool bMeant = pPlace->GetAttribute(L"available") == L"0";
            CheckIgnored(*pPlace, bMeant ? L"is switched off" : L"counts with available=\"1\" only",
                         bMeant ? Severity::eWarning : Severity::eError);
        } else {
            std::vector<const XmlElement*> folders{pPlace};
            while (!folders.empty()) {
                const XmlElement* const pFolder = folders.back();
                folders.pop_back();
                CheckChildren(*pFolder, *place, folders);
            }
        }
    }
}

/// The children of a place or folder; adds the folders that the walk goes into.
void Description::CheckChildren(const XmlElement& parent, ShortcutPlace ePlace, std::vector<const XmlElement*>& folders)
{
    std::set<const XmlElement*> taken;
    for (const ShortcutItem& item : ItemsOf(parent, ePlace, ShortcutWalk::eCreate)) {
        taken.insert(item.pElement);
        if (!item.bFolder) {
            for (const XmlElement* p = item.pElement->GetFirstChild(); p; p = p->GetNextSibling()) {
                CheckIgnored(*p, L"is in a shortcut");
            }
        } else if (item.szRefusal) {
            CheckIgnored(*item.pElement, L"is refused");
        } else {
            folders.push_back(item.pElement);
        }
    }
    for (const XmlElement* p = parent.GetFirstChild(); p; p = p->GetNextSibling()) {
        if (taken.contains(p)) continue;
        const bool bDirect = p->IsNamed(L"Shortcut");
        CheckIgnored(*p, bDirect ? L"is directly in the Start menu, not in a folder" : L"is ignored");
    }
}

/// The element's own name and attributes. False for an element that the agent does not know.
bool Description::CheckPart(const XmlElement& element)
{
    const PartRow* const pPart = FindPart(element);
    if (!pPart) {
        std::vector<std::wstring> names;
        for (const PartRow& row : kParts) names.emplace_back(row.szElement);
        const XmlElement* const pParent = element.GetParent();
        Add(Severity::eError, Rule::eUnknownShortcutPart, element,
            L"<" + element.GetName() + L"> is no element of a description" +
                (pParent && pParent->IsNamed(L"Desktop") ? L": it is made like a <Shortcut>, and never removed"
                                                         : L": it is ignored, with all that is in it"),
            NearestOf(element.GetName(), names));
        return false;
    }
    const std::vector<std::wstring> names(pPart->attributes.begin(), pPart->attributes.end());
    for (const Storage::XmlAttribute& attribute : element.Attributes()) {
        if (std::find(names.begin(), names.end(), attribute.tstrName) != names.end()) continue;
        if (attribute.tstrName.starts_with(L"xml")) continue;  // XML's own
        Add(Severity::eError, Rule::eUnknownShortcutPart, element,
            L"<" + element.GetName() + L"> has no attribute \"" + attribute.tstrName + L"\": it is ignored",
            NearestOf(attribute.tstrName, names));
    }
    return true;
}

void Description::CheckParts(const XmlElement& root)
{
    std::vector<const XmlElement*> waiting{&root};
    while (!waiting.empty()) {
        const XmlElement* const pParent = waiting.back();
        waiting.pop_back();
        for (const XmlElement* p = pParent->GetFirstChild(); p; p = p->GetNextSibling()) {
            if (CheckPart(*p)) waiting.push_back(p);
        }
    }
}

void Description::CheckIgnored(const XmlElement& element, const std::wstring& tstrWhy, Severity eSeverity)
{
    // An element that the agent does not know has a finding of its own.
    const std::size_t cShortcuts = FindPart(element) ? CountShortcuts(element) : 0;
    if (cShortcuts == 0) return;
    const std::wstring tstrCount = std::to_wstring(cShortcuts);
    Add(eSeverity, Rule::eShortcutPlace, element,
        L"<" + element.GetName() + L"> " + tstrWhy + L": " +
            (cShortcuts == 1 ? L"1 shortcut is" : tstrCount + L" shortcuts are") + L" never made");
}

/// Whether the product has the same description.
bool IsInstalled(const Update& update, const std::wstring& tstrFile)
{
    std::string strNew;
    std::string strInstalled;
    return update.InstalledFolder() &&
           Storage::File::ReadWhole(update.FullPath(tstrFile), Storage::XmlParser::kMaxBytes, strNew, nullptr) &&
           Storage::File::ReadWhole(LongPath(*update.InstalledFolder() / kShortcutFile), Storage::XmlParser::kMaxBytes,
                                    strInstalled, nullptr) &&
           strNew == strInstalled;
}

}  // namespace

void CheckShortcuts(const LintContext& context, Report& report)
{
    const std::vector<std::wstring> descriptions = SettingFiles(context.update, L"qorshcut", L"xml");
    if (descriptions.empty()) return;
    const ProductFiles files(context.update, context.instructions);
    for (const std::wstring& tstrFile : descriptions) {
        const auto document = ReadXml(context.update, tstrFile, Rule::eShortcutsNotXml, report);
        if (!document) continue;
        Description description(tstrFile, files, IsInstalled(context.update, tstrFile), report);
        description.CheckItems(*document->GetRoot());
        description.CheckPlaces(*document->GetRoot());
        description.CheckParts(*document->GetRoot());
    }
}

}  // namespace Check
