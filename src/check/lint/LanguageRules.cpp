// B072: what an update brings once for each language.
#include "check/lint/Lint.h"
#include "check/update/Instructions.h"

#include "agent/SettingsFiles.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <map>
#include <string_view>

using namespace KzCommon;

namespace Check {

namespace {

/// Languages by their tags, in any case, as they are written.
using Languages = String::NoCaseMap<std::wstring>;

/// One kind of text or file that an update brings once for each language.
struct LanguageKind {
    std::wstring tstrFront;  ///< of the name that has the language in it
    std::wstring tstrBack;
    bool bSection = false;  ///< of the instruction file; else the name of a file
    Languages languages{};
    bool bForAll = false;  ///< one that serves every language is there

    [[nodiscard]] bool Has(const std::wstring& tstrKey) const { return languages.contains(tstrKey); }
    [[nodiscard]] std::wstring NameIn(const std::wstring& tstrTag) const { return tstrFront + tstrTag + tstrBack; }
};

void AddLanguage(Languages& languages, const std::wstring& tstrTag)
{
    if (!tstrTag.empty()) languages.emplace(tstrTag, tstrTag);
}

LanguageKind SettingKind(const Update& update, const LanguageFile& file)
{
    LanguageKind kind{.tstrFront = update.SettingFolder() / file.szBase + L"_",
                      .tstrBack = std::wstring(L".") + file.szExtension};
    const std::wstring tstrPattern = std::wstring(file.szBase) + L"_*" + kind.tstrBack;
    for (const std::wstring& tstrFile : update.FilesIn(update.SettingFolder(), tstrPattern.c_str())) {
        const std::size_t cchTag = tstrFile.size() - kind.tstrFront.size() - kind.tstrBack.size();
        AddLanguage(kind.languages, tstrFile.substr(kind.tstrFront.size(), cchTag));
    }
    kind.bForAll = !update.FilesIn(update.SettingFolder(), (file.szBase + kind.tstrBack).c_str()).empty();
    return kind;
}

LanguageKind TableKind(const Update& update)
{
    LanguageKind kind{.tstrFront = update.ResourceFolders().front(), .tstrBack = L"\\StringTable.ini"};
    for (const Folder& folder : update.ResourceFolders()) {
        for (const std::wstring& tstrFile : update.Files()) {
            if (!folder.Contains(tstrFile)) continue;
            const std::wstring tstrRest = folder.Relative(tstrFile);
            const std::size_t uTag = std::min(tstrRest.find(L'\\'), tstrRest.size());
            if (!String::EqualsNoCase(std::wstring_view(tstrRest).substr(uTag), kind.tstrBack)) continue;
            AddLanguage(kind.languages, tstrRest.substr(0, uTag));
            kind.tstrFront = folder;
        }
    }
    return kind;
}

LanguageKind NotificationKind(const IniScan& scan)
{
    LanguageKind kind{.tstrFront = L"RestartNotification_", .tstrBack = {}, .bSection = true};
    for (const IniSection& section : scan.Sections()) {
        if (String::StartsWithNoCase(section.tstrName, kind.tstrFront)) {
            AddLanguage(kind.languages, section.tstrName.substr(kind.tstrFront.size()));
        }
    }
    return kind;
}

/// The language that the author most likely meant by a tag. It begins with the same letters, all the kinds with the tag
/// lack it, and more of the other kinds have it; of equally many, English. Empty if no language fits.
std::wstring MeantLanguage(const std::wstring& tstrKey, const std::vector<LanguageKind>& kinds,
                           const Languages& languages)
{
    const auto countOf = [&](const std::wstring& tstrTag) {
        return std::count_if(kinds.begin(), kinds.end(), [&](const LanguageKind& kind) { return kind.Has(tstrTag); });
    };
    std::wstring tstrMeant;
    auto cMost = countOf(tstrKey);
    for (const auto& [tstrOther, tstrTag] : languages) {
        const bool bBeside = std::any_of(kinds.begin(), kinds.end(), [&](const LanguageKind& kind) {
            return kind.Has(tstrKey) && kind.Has(tstrOther);
        });
        const bool bAlike = String::EqualsNoCase(tstrOther.substr(0, 2), tstrKey.substr(0, 2));
        if (bBeside || String::EqualsNoCase(tstrOther, tstrKey) || !bAlike) continue;
        const auto cKinds = countOf(tstrOther);
        if (cKinds < cMost || (cKinds == cMost && !String::EqualsNoCase(tstrOther, L"en-US"))) continue;
        cMost = cKinds;
        tstrMeant = tstrTag;
    }
    return tstrMeant;
}

/// One finding for each name with a wrong tag; the language that was meant then counts as there.
void CheckTags(const LintContext& context, std::vector<LanguageKind>& kinds, Report& report)
{
    Languages languages;
    for (const LanguageKind& kind : kinds) languages.insert(kind.languages.begin(), kind.languages.end());
    Languages meant;  // by wrong tag
    for (const auto& [tstrKey, tstrTag] : languages) {
        const bool bNamed = std::any_of(context.languages.begin(), context.languages.end(), [&](const auto& tstrNamed) {
            return String::EqualsNoCase(tstrNamed, tstrTag);
        });
        const std::wstring tstrMeant = bNamed ? std::wstring() : MeantLanguage(tstrKey, kinds, languages);
        if (!tstrMeant.empty()) meant.emplace(tstrKey, tstrMeant);
    }
    for (LanguageKind& kind : kinds) {
        for (const auto& [tstrKey, tstrMeant] : meant) {
            const auto itWrong = kind.languages.find(tstrKey);
            if (itWrong == kind.languages.end()) continue;
            const std::wstring tstrName = kind.NameIn(itWrong->second);
            const IniSection* const pSection = kind.bSection ? context.instructions.Find(tstrName) : nullptr;
            report.Add(Rule::eLanguageIncomplete, kind.bSection ? kInstructionFile : tstrName,
                       pSection ? pSection->place : TextPosition{},
                       L"\"" + itWrong->second + L"\" is a language of nothing else here: \"" + tstrMeant +
                           L"\" lacks this " + (kind.bSection ? L"section" : L"file"),
                       kind.bSection ? kind.NameIn(tstrMeant) : tstrMeant);
            kind.languages.erase(itWrong);
            AddLanguage(kind.languages, tstrMeant);
        }
    }
}

void ReportMissing(const LanguageKind& kind, const std::wstring& tstrTag, Report& report)
{
    if (kind.bSection) {
        report.AddAs(Severity::eWarning, Rule::eLanguageIncomplete, kInstructionFile, {},
                     L"[" + kind.NameIn(tstrTag) + L"] is missing: the question is in English");
        return;
    }
    report.Add(Rule::eLanguageIncomplete, kind.NameIn(tstrTag), {},
               L"other languages have this file, " + tstrTag + L" has not");
}

}  // namespace

void CheckLanguages(const LintContext& context, Report& report)
{
    std::vector<LanguageKind> kinds;
    for (const LanguageFile& file : LanguageFiles()) kinds.push_back(SettingKind(context.update, file));
    kinds.push_back(NotificationKind(context.instructions));
    kinds.push_back(TableKind(context.update));
    CheckTags(context, kinds, report);
    Languages languages;
    for (const std::wstring& tstrTag : context.languages) AddLanguage(languages, tstrTag);
    for (const LanguageKind& kind : kinds) {
        const bool bTables = &kind == &kinds.back();
        for (const auto& [tstrKey, tstrTag] : kind.languages) {
            // The decision about the new name reads the English table on every machine.
            if (!bTables || !String::EqualsNoCase(tstrTag, L"en-US")) languages.emplace(tstrKey, tstrTag);
        }
    }
    for (const LanguageKind& kind : kinds) {
        if (kind.languages.empty() || kind.bForAll) continue;
        for (const auto& [tstrKey, tstrTag] : languages) {
            if (!kind.Has(tstrKey)) ReportMissing(kind, tstrTag, report);
        }
    }
}

}  // namespace Check
