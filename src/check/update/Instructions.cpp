#include "check/update/Instructions.h"

#include "common/KzComn_String.h"

using namespace KzCommon;

namespace Check {

namespace {

void AddRecords(const IniSection& section, const ::Section& row, std::vector<Instruction>& instructions)
{
    for (const SectionKey& key : row.keys) {
        for (const IniRecord& record : section.records) {
            if (record.tstrKey == key.szKey && IsRecordLengthValid(record.tstrValue)) {
                instructions.push_back({&key, &record});
            }
        }
    }
}

}  // namespace

bool IsNamed(const ::Section& reading, std::wstring_view tstrName)
{
    const std::wstring_view tstrKnown = reading.szName;
    const bool bLonger = tstrName.size() > tstrKnown.size();
    return bLonger == reading.bLanguage && String::StartsWithNoCase(tstrName, tstrKnown);
}

std::vector<std::wstring> KeysOf(std::wstring_view tstrSection)
{
    std::vector<std::wstring> keys;
    for (const ::Section& row : kSections) {
        if (!IsNamed(row, tstrSection)) continue;
        for (const SectionKey& key : row.keys) keys.emplace_back(key.szKey);
    }
    return keys;
}

std::vector<Instruction> ListInstructions(const IniScan& scan)
{
    std::vector<Instruction> instructions;
    for (const ::Section& row : kSections) {
        for (const IniSection& section : scan.Sections()) {
            const bool bRead = IsNamed(row, section.tstrName) && scan.Find(section.tstrName) == &section;
            if (bRead) AddRecords(section, row, instructions);
        }
    }
    return instructions;
}

std::vector<Field> FieldsOf(const IniRecord& record)
{
    std::vector<Field> fields;
    const std::wstring& tstrValue = record.tstrValue;
    std::size_t uBegin = tstrValue.find_first_not_of(L'!');
    while (uBegin != std::wstring::npos) {
        const std::size_t uEnd = std::min(tstrValue.find(L'!', uBegin), tstrValue.size());
        const auto uColumn = static_cast<unsigned>(record.valuePlace.uColumn + uBegin);
        fields.push_back({tstrValue.substr(uBegin, uEnd - uBegin), {record.valuePlace.uLine, uColumn}});
        uBegin = tstrValue.find_first_not_of(L'!', uEnd);
    }
    return fields;
}

bool HasEmptyField(std::wstring_view tstrValue, std::size_t cBefore)
{
    if (tstrValue.starts_with(L'!')) return true;
    std::size_t uEnd = tstrValue.find(L'!');
    for (std::size_t u = 0; u < cBefore && uEnd != std::wstring_view::npos; ++u) {
        if (tstrValue.substr(uEnd).starts_with(L"!!")) return true;
        uEnd = tstrValue.find(L'!', uEnd + 1);
    }
    return false;
}

std::wstring KeyPathOf(std::wstring tstrKeyPath)
{
    while (tstrKeyPath.ends_with(L'\\')) tstrKeyPath.pop_back();
    return tstrKeyPath;
}

std::wstring LowerCase(std::wstring tstrText)
{
    if (!tstrText.empty()) ::CharLowerBuffW(tstrText.data(), static_cast<DWORD>(tstrText.size()));
    return tstrText;
}

CustomerFolders::CustomerFolders(std::wstring tstrInstalled, const std::wstring& tstrDownloadPath)
    : m_tstrInstalled(std::move(tstrInstalled)),
      m_tstrDownload(String::FolderBelow(m_tstrInstalled + L"Component\\", tstrDownloadPath)),
      m_tstrInstallerLog(L"C:\\Windows\\Temp\\"),
      m_tstrLog(L"C:\\ProgramData\\Kazmere\\KZVLT\\Log\\")
{
}

std::wstring CustomerFolders::Expand(std::wstring tstrText) const
{
    ReplacePlaceholders(tstrText, {.pDownloadDir = &m_tstrDownload,
                                   .pInstalledDir = &m_tstrInstalled,
                                   .pInstallerLogDir = &m_tstrInstallerLog,
                                   .pInteractiveLogDir = &m_tstrLog,
                                   .pServiceLogDir = &m_tstrLog,
                                   .pProtectedLogDir = &m_tstrLog});
    return tstrText;
}

}  // namespace Check
