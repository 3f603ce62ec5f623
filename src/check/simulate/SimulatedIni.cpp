// The INI files of a machine in memory.
#include "check/simulate/SimulatedMachine.h"

#include "check/simulate/IniText.h"
#include "check/update/LongPath.h"
#include "common/KzComn_Result.h"

#include <algorithm>

using namespace KzCommon;
using Storage::Fail;

namespace Check {

namespace {

constexpr std::size_t kMostIniBytes = std::size_t{64} * 1024 * 1024;

const String::NoCaseMap<std::wstring>* EditsOf(const FileState* pState, const std::wstring& tstrSection)
{
    if (!pState) return nullptr;
    const auto itSection = pState->edits.find(WithoutSpaces(tstrSection));
    return itSection == pState->edits.end() ? nullptr : &itSection->second;
}

}  // namespace

Storage::Ini::Section SimulatedMachine::ReadIniSection(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                                       const Storage::Ini::SectionGrowth& growth) const
{
    const Found found = At(tstrPath);
    Storage::Ini::Section section;
    section.dwError = ERROR_FILE_NOT_FOUND;
    if (!found.IsFile()) return section;
    if (!found.tstrReal.empty()) {
        section = m_pBase->ReadIniSection(found.tstrReal, tstrSection, growth);
    } else if (found.pState && found.pState->optBytes) {
        section = ToIniSection(ReadIniLines(*found.pState->optBytes, tstrSection), growth);
    }
    const auto* const pEdits = EditsOf(found.pState.get(), tstrSection);
    if (!pEdits || section.eOutcome == Storage::Ini::SectionOutcome::eTooLarge) return section;
    section.eOutcome = Storage::Ini::SectionOutcome::eRead;
    for (const auto& [tstrKey, tstrValue] : *pEdits) {
        const auto itOld = std::find_if(section.entries.begin(), section.entries.end(),
                                        [&](const auto& entry) { return String::EqualsNoCase(entry.first, tstrKey); });
        if (itOld != section.entries.end()) {
            itOld->second = tstrValue;
        } else if (!tstrValue.empty()) {
            section.entries.emplace_back(tstrKey, tstrValue);
        }
    }
    return section;
}

bool SimulatedMachine::ReadIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                    const std::wstring& tstrKey, const std::wstring& tstrDefault,
                                    std::wstring& tstrValue, DWORD* pdwError) const
{
    tstrValue = tstrDefault;
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const Found found = At(tstrPath);
    if (!found.IsFile()) return true;
    if (const auto* const pEdits = EditsOf(found.pState.get(), tstrSection)) {
        const auto itEdit = pEdits->find(WithoutSpaces(tstrKey));
        if (itEdit != pEdits->end()) {
            tstrValue = AsRead(itEdit->second);
            return true;
        }
    }
    if (!found.tstrReal.empty()) {
        return m_pBase->ReadIniValue(found.tstrReal, tstrSection, tstrKey, tstrDefault, tstrValue, pdwError);
    }
    if (!found.pState || !found.pState->optBytes) return true;
    const std::optional<IniLines> optLines = ReadIniLines(*found.pState->optBytes, tstrSection);
    if (!optLines) return true;
    const std::wstring tstrWanted = WithoutSpaces(tstrKey);
    for (const auto& [tstrFound, optFound] : *optLines) {
        if (!optFound || !String::EqualsNoCase(tstrFound, tstrWanted)) continue;
        tstrValue = AsRead(*optFound);
        break;
    }
    return true;
}

bool SimulatedMachine::IsUtf16File(FileState& state) const
{
    if (!state.optUtf16) {
        std::string strBytes = state.optBytes.value_or(std::string());
        if (!state.tstrReal.empty()) {
            static_cast<void>(m_pBase->ReadContent(LongPath(state.tstrReal), kMostIniBytes, strBytes, nullptr));
        }
        state.optUtf16 = IsUtf16(strBytes);
    }
    return *state.optUtf16;
}

DWORD SimulatedMachine::WhyNotEditable(const FullPath& path, const Found& found) const
{
    if (found.IsFile()) return (found.dwAttributes & FILE_ATTRIBUTE_READONLY) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    return found.IsFolder() ? DWORD{ERROR_ACCESS_DENIED} : WhyNotPlaced(path);
}

bool SimulatedMachine::StoreIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                     const std::wstring& tstrKey, const std::wstring& tstrValue,
                                     Storage::Patience& /*patience*/, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const FullPath path(tstrPath);
    const Found found = At(path);
    Change change{.eAction = Action::eWriteIni, .eOutcome = Outcome::eFail};
    change.tstrTarget = tstrPath;
    change.tstrName = L"[" + tstrSection + L"] " + tstrKey;
    if (const DWORD dwCode = WhyNotEditable(path, found)) {
        const bool bReadOnly = found.IsFile();
        change.tstrReason = bReadOnly ? L"the file there is read-only" : DescribeRefusal(dwCode);
        Record(std::move(change));
        return Fail(dwCode, pdwError);
    }
    // A default that cannot be a value.
    const std::wstring tstrNone(1, L'\x1');
    std::wstring tstrOld;
    static_cast<void>(ReadIniValue(tstrPath, tstrSection, tstrKey, tstrNone, tstrOld, nullptr));
    if (!found.IsFile()) AddFile(tstrPath, {});

    const std::shared_ptr<FileState> pState = m_files.Own(path);
    // The first "=" of a line ends its key, and ";" makes it a comment.
    const std::wstring tstrLine = WithoutSpaces(tstrKey) + L"=" + WithoutSpaces(tstrValue);
    const std::size_t uEquals = tstrLine.find(L'=');
    const std::wstring tstrNew = AsWritten(tstrLine.substr(uEquals + 1), IsUtf16File(*pState));
    if (!tstrLine.starts_with(L';')) {
        pState->edits[WithoutSpaces(tstrSection)][WithoutSpaces(tstrLine.substr(0, uEquals))] = tstrNew;
    }
    if (tstrOld != tstrNone) change.optOld = tstrOld;
    change.optNew = AsRead(tstrNew);
    change.eOutcome = !change.optOld                   ? Outcome::eNew
                      : change.optOld == change.optNew ? Outcome::eStay
                                                       : Outcome::eReplace;
    Record(std::move(change));
    return true;
}

}  // namespace Check
