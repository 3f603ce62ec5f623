#include "check/update/Instructions.h"

#include "common/KzComn_Exception.h"
#include "common/KzComn_IniFile.h"
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

std::vector<Field> SplitRecord(const IniRecord& record)
{
    bool bMore = false;
    std::vector<std::size_t> offsets;
    std::vector<Field> fields;
    std::size_t uExpected = 0;
    for (std::wstring& tstrText : String::SplitFields(record.tstrValue, L'!', SIZE_MAX, bMore, &offsets)) {
        const std::size_t uOffset = offsets[fields.size()];
        const auto uColumn = static_cast<unsigned>(record.valuePlace.uColumn + uOffset);
        const bool bEmptyBefore = uOffset != uExpected;
        uExpected = uOffset + tstrText.size() + 1;
        fields.push_back({std::move(tstrText), {record.valuePlace.uLine, uColumn}, bEmptyBefore});
    }
    return fields;
}

std::wstring KeyPathOf(std::wstring tstrKeyPath)
{
    while (tstrKeyPath.ends_with(L'\\')) tstrKeyPath.pop_back();
    return tstrKeyPath;
}

SectionRecords ReadRecords(const Update& update, const ::Section& section)
{
    const std::wstring_view tstrReader = section.szReader;
    SectionRecords records;
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        Storage::IniFile instructions;
        instructions.Open(update.FullPath(kInstructionFile));
        for (const ::Section& other : kSections) {
            if (&other == &section || other.szReader != tstrReader) continue;
            SectionRecords needed;
            static_cast<void>(ReadSectionRecords(instructions, other.szName, needed));
            if (needed.empty()) return;
        }
        static_cast<void>(ReadSectionRecords(instructions, section.szName, records));
    }));
    return records;
}

CustomerFolders::CustomerFolders(Folder installed, const std::wstring& tstrDownloadPath)
    : m_installed(std::move(installed)),
      m_tstrDownload(String::FolderBelow(m_installed / L"Component\\", tstrDownloadPath)),
      m_tstrInstallerLog(L"C:\\Windows\\Temp\\"),
      m_tstrLog(L"C:\\ProgramData\\Kazmere\\KZVLT\\Log\\")
{
}

std::wstring CustomerFolders::Expand(std::wstring tstrText) const
{
    ReplacePlaceholders(tstrText, {.pDownloadDir = &m_tstrDownload,
                                   .pInstalledDir = &m_installed.Text(),
                                   .pInstallerLogDir = &m_tstrInstallerLog,
                                   .pInteractiveLogDir = &m_tstrLog,
                                   .pServiceLogDir = &m_tstrLog,
                                   .pProtectedLogDir = &m_tstrLog});
    return tstrText;
}

}  // namespace Check
