#include "check/lint/ConfigTags.h"

#include "check/lint/XmlFile.h"
#include "check/update/Suggestion.h"
#include "check/update/XmlForm.h"

#include "common/KzComn_Exception.h"
#include "common/KzComn_XmlParser.h"
#include "config/ConfigDefaults.h"

#include <algorithm>
#include <set>

using namespace KzCommon;
using Config::TagPath;

namespace Check {

namespace {

/// Settings and sections by folded path, each as it is written.
using TagNames = std::map<std::wstring, std::wstring>;

std::wstring ParentOf(const std::wstring& tstrPath)
{
    return tstrPath.substr(0, tstrPath.rfind(L'/'));
}

/// The tag of `names` that the author most likely meant by `tstrPath` (folded): in the same section, with nearly the
/// same name, and not in the file itself. Empty if no tag fits.
std::wstring NearestTag(const std::wstring& tstrPath, const TagNames& names, const FileTags& file)
{
    const std::wstring tstrParent = ParentOf(tstrPath);
    TagNames beside;
    std::vector<std::wstring> words;
    for (const auto& [tstrFolded, tstrWritten] : names) {
        // "AskPassword" is no slip of "Password".
        const bool bLength = tstrFolded.size() <= tstrPath.size() + 1 && tstrPath.size() <= tstrFolded.size() + 1;
        if (!bLength || ParentOf(tstrFolded) != tstrParent || file.tags.contains(tstrFolded)) continue;
        words.push_back(tstrFolded.substr(tstrParent.size() + 1));
        beside.emplace(words.back(), tstrWritten);
    }
    const std::wstring tstrNear = NearestOf(tstrPath.substr(tstrParent.size() + 1), words);
    return tstrNear.empty() ? tstrNear : beside[tstrNear];
}

void AddName(TagNames& names, const std::wstring& tstrPath)
{
    const auto path = TagPath::Parse(tstrPath);
    if (!path || !names.emplace(path->Folded(), path->Text()).second) return;
    if (path->Names().size() > 1) AddName(names, ParentOf(path->Text()));
}

/// What the program has defaults for, and what the installed file holds.
TagNames KnownNames(const Update& update)
{
    TagNames names;
    for (const Config::Default& row : Config::Defaults()) AddName(names, row.szTagPath);
    if (!update.InstalledFolder()) return names;
    try {
        const auto document = Storage::XmlParser().ParseFile(LongPath(*update.InstalledFolder() / L"config.xml"));
        ForEachTag(*document->GetRoot(), [&](const auto&, const TagPath& path) { AddName(names, path.Text()); });
    } catch (Storage::Exception* pException) {
        const Storage::CaughtException caught(pException);  // nothing is known of that file
    }
    return names;
}

/// The part after the last separator of a path or tag path.
std::wstring LastName(const std::wstring& tstrPath)
{
    return tstrPath.substr(tstrPath.find_last_of(L"\\/") + 1);
}

/// B066. What was found is added to `explained`.
void CheckMisspelt(const FileTags& file, const TagNames& known, std::set<std::wstring>& explained, Report& report)
{
    for (const auto& [tstrFolded, tag] : file.tags) {
        if (known.contains(tstrFolded)) continue;
        const std::wstring tstrNear = NearestTag(tstrFolded, known, file);
        if (tstrNear.empty()) continue;
        explained.insert(tstrFolded);
        explained.insert(TagPath::Parse(tstrNear)->Folded());
        report.Add(Rule::eMisspeltSetting, file.tstrFile, tag.place,
                   tag.tstrPath +
                       L" is no setting that the product is known to have or a record carries over, and the "
                       L"file lacks " +
                       tstrNear,
                   LastName(tstrNear));
    }
}

/// Whether a tag or a section around it is in `tags`.
bool IsExplained(std::wstring tstrFolded, const std::set<std::wstring>& tags)
{
    for (; !tstrFolded.empty(); tstrFolded = ParentOf(tstrFolded)) {
        if (tags.contains(tstrFolded)) return true;
    }
    return false;
}

/// The place of a tag's section, or of the file as a whole.
TextPosition PlaceOfSection(const FileTags& file, const std::wstring& tstrFolded)
{
    const auto itSection = file.tags.find(ParentOf(tstrFolded));
    return itSection == file.tags.end() ? TextPosition{} : itSection->second.place;
}

using TaggedFiles = std::vector<const FileTags*>;

/// B067 of names that one file alone has, where the others have nearly the same. Both are added to `explained`. With
/// two files it is unknown which name is right.
void CheckOwn(const FileTags& file, const TaggedFiles& languages, std::set<std::wstring>& explained, Report& report)
{
    TagNames others;
    for (const FileTags* const pOther : languages) {
        if (pOther == &file) continue;
        for (const auto& [tstrFolded, tag] : pOther->tags) others.emplace(tstrFolded, tag.tstrPath);
    }
    for (const auto& [tstrFolded, tag] : file.tags) {
        if (others.contains(tstrFolded) || IsExplained(tstrFolded, explained)) continue;
        const std::wstring tstrNear = NearestTag(tstrFolded, others, file);
        if (tstrNear.empty()) continue;
        explained.insert(tstrFolded);
        explained.insert(TagPath::Parse(tstrNear)->Folded());
        report.Add(Rule::eSettingOfOneLanguage, file.tstrFile, tag.place,
                   tag.tstrPath + L" is in no other language, and " + tstrNear + L" is missing here" +
                       (languages.size() > 2 ? L"" : L": one of the two is misspelt"),
                   languages.size() > 2 ? LastName(tstrNear) : std::wstring());
    }
}

/// B067 of one file that lacks what another one has.
void CheckLacking(const FileTags& file, const FileTags& other, std::set<std::wstring>& explained, Report& report)
{
    for (const auto& [tstrFolded, tag] : other.tags) {
        if (file.tags.contains(tstrFolded) || IsExplained(tstrFolded, explained)) continue;
        explained.insert(tstrFolded);
        report.Add(Rule::eSettingOfOneLanguage, file.tstrFile, PlaceOfSection(file, tstrFolded),
                   tag.tstrPath + L" is missing here: " + LastName(other.tstrFile) + L" has it");
    }
}

/// B067 of settings whose types differ: the type of most files counts as the right one.
void CheckTypes(const TaggedFiles& languages, Report& report)
{
    std::map<std::wstring, std::map<Config::Type, std::vector<const FileTags*>>> types;
    for (const FileTags* const pFile : languages) {
        for (const auto& [tstrFolded, tag] : pFile->tags) {
            const bool bTyped = !tag.bSection && tag.eType != Config::Type::eUnknown;  // B063 tells of unknown ones
            if (bTyped) types[tstrFolded][tag.eType].push_back(pFile);
        }
    }
    const auto isLess = [](const auto& left, const auto& right) {
        return left.second.size() < right.second.size();
    };
    for (const auto& [tstrFolded, byType] : types) {
        const auto itMost = std::ranges::max_element(byType, isLess);
        for (const auto& [eType, others] : byType) {
            if (eType == itMost->first) continue;
            for (const FileTags* const pFile : others) {
                const FileTag& tag = pFile->tags.at(tstrFolded);
                report.Add(Rule::eSettingOfOneLanguage, pFile->tstrFile, tag.place,
                           tag.tstrPath + L" has another type in " + LastName(itMost->second.front()->tstrFile));
            }
        }
    }
}

}  // namespace

FileTags TagsOf(const std::wstring& tstrFile, const Storage::XmlElement& root)
{
    FileTags file{tstrFile, {}};
    ForEachTag(root, [&](const Storage::XmlElement& element, const TagPath& path) {
        file.tags.try_emplace(path.Folded(),
                              FileTag{path.Text(), PlaceOfElement(element), element.GetFirstChild() != nullptr,
                                      Config::TypeOfName(element.GetAttribute(L"type"))});
    });
    return file;
}

std::set<std::wstring> CheckTagNames(const Update& update, const std::vector<FileTags>& files,
                                     const std::vector<std::wstring>& carriedOver, Report& report)
{
    TagNames known = KnownNames(update);
    for (const std::wstring& tstrTag : carriedOver) {
        const auto path = TagPath::Parse(tstrTag);
        const bool bHas = path && std::ranges::any_of(
                                      files, [&](const FileTags& file) { return file.tags.contains(path->Folded()); });
        if (bHas) AddName(known, tstrTag);
    }
    std::set<std::wstring> misspelt;  // and what they are slips of
    for (const FileTags& file : files) CheckMisspelt(file, known, misspelt, report);
    // A file without a language serves the languages that have no file of their own.
    TaggedFiles languages;
    for (const FileTags& file : files) {
        if (LastName(file.tstrFile).find(L'_') != std::wstring::npos) languages.push_back(&file);
    }
    for (const FileTags* const pFile : languages) CheckOwn(*pFile, languages, misspelt, report);
    for (const FileTags* const pFile : languages) {
        std::set<std::wstring> explained = misspelt;
        for (const FileTags* const pOther : languages) {
            if (pOther != pFile) CheckLacking(*pFile, *pOther, explained, report);
        }
    }
    CheckTypes(languages, report);
    return misspelt;
}

}  // namespace Check
