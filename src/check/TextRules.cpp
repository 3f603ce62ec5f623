// B090 and B091: the texts that the update brings for each language.
#include "check/ErrorWords.h"
#include "check/KnownSections.h"
#include "check/Lint.h"
#include "check/Suggestion.h"

#include "common/KzComn_IniFile.h"
#include "common/KzComn_String.h"
#include "common/L10nReader.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kTable[] = L"StringTable.ini";
constexpr wchar_t kGlobal[] = L"Global";
const std::wstring kProductName = L"S_STR_PRODUCT_NAME";

void CheckTableEncoding(const IniScan& scan, const std::wstring& tstrFile, Report& report)
{
    const bool bForeign = scan.FirstForeign().uLine > 0;
    const bool bBorne = scan.Encoding() == IniEncoding::eUtf16 || scan.Encoding() == IniEncoding::eAscii;
    if (!bBorne) {
        report.Add(Rule::eStringTable, tstrFile, bForeign ? scan.FirstForeign() : Place{1, 1},
                   L"the table is not UTF-16 with its mark, and not plain ASCII");
    }
    for (const Place& place : scan.Damaged()) {
        report.Add(Rule::eStringTable, tstrFile, place, L"half a character: a surrogate that stands alone");
    }
}

void CheckTable(const Update& update, const std::wstring& tstrFile, Report& report)
{
    IniScan scan;
    DWORD dwError = ERROR_SUCCESS;
    const auto add = [&](Place place, const std::wstring& tstrText, const std::wstring& tstrSuggestion = {}) {
        report.Add(Rule::eStringTable, tstrFile, place, tstrText, tstrSuggestion);
    };
    if (!scan.Read(update.FullPath(tstrFile), &dwError)) {
        add({}, L"the table cannot be read: " + WordsOf(dwError));
        return;
    }
    CheckTableEncoding(scan, tstrFile, report);
    const IniSection* const pGlobal = scan.Find(kGlobal);
    if (!pGlobal) {
        add({}, L"the table has no section [Global]");
        return;
    }
    const Storage::Ini::Section read =
        Storage::Ini::ReadSection(update.FullPath(tstrFile), kGlobal, kStringTableGrowth);
    if (read.eOutcome == Storage::Ini::SectionOutcome::eTooLarge) {
        add(pGlobal->place, L"[Global] is too long: nothing of it is read");
        return;
    }
    std::vector<std::wstring> keys;
    for (const IniRecord& record : pGlobal->records) {
        if (!record.IsRecord()) continue;
        if (record.tstrKey == kProductName) return;
        keys.push_back(record.tstrKey);
    }
    const std::wstring tstrNear = NearestOf(kProductName, keys);
    const auto itNear = std::find_if(pGlobal->records.begin(), pGlobal->records.end(),
                                     [&](const IniRecord& record) { return record.tstrKey == tstrNear; });
    const bool bNear = !tstrNear.empty() && itNear != pGlobal->records.end();
    add(bNear ? itNear->place : pGlobal->place, L"[Global] has no text " + kProductName, bNear ? kProductName : L"");
}

/// The string tables of every language: one folder a language below the resource folders.
std::vector<std::wstring> Tables(const Update& update)
{
    std::vector<std::wstring> tables;
    for (const std::wstring& tstrFile : update.Files()) {
        const std::size_t uName = tstrFile.rfind(L'\\') + 1;
        if (!String::EqualsNoCase(std::wstring_view(tstrFile).substr(uName), kTable) || uName < 2) continue;
        const std::size_t uLanguage = tstrFile.rfind(L'\\', uName - 2) + 1;
        for (const std::wstring& tstrFolder : update.ResourceFolders()) {
            if (String::EqualsNoCase(std::wstring_view(tstrFile).substr(0, uLanguage), tstrFolder)) {
                tables.push_back(tstrFile);
            }
        }
    }
    return tables;
}

void CheckNotification(const IniSection& section, const KnownSection& known, Report& report)
{
    const auto cTexts = std::count_if(section.records.begin(), section.records.end(), [&](const IniRecord& record) {
        return record.IsRecord() && known.HasKey(record.tstrKey);
    });
    if (cTexts >= 2) return;
    report.Add(Rule::eNotification, kInstructionFile, section.place,
               L"[" + section.tstrName + L"] " +
                   (cTexts == 0 ? L"has neither title nor message" : L"has a title but no message") +
                   L": a built-in English text is shown");
}

}  // namespace

void CheckTexts(const Subject& subject, Report& report)
{
    for (const std::wstring& tstrFile : Tables(subject.update)) CheckTable(subject.update, tstrFile, report);
    for (const IniSection& section : subject.instructions.Sections()) {
        const KnownSection* const pKnown = FindKnownSection(section.tstrName);
        const bool bRead = subject.instructions.Find(section.tstrName) == &section;
        if (pKnown && pKnown->bLanguage && bRead) CheckNotification(section, *pKnown, report);
    }
}

}  // namespace Check
