#include "agent/Sections.h"

using namespace KzCommon;

bool ReadSection(const Section& section, SectionRecords& records, std::wstring_view tstrLanguage,
                 const std::source_location& where)
{
    DWORD dwError = ERROR_SUCCESS;
    if (ReadInstructions(section.szName + std::wstring(tstrLanguage), records, dwError)) return true;
    static_cast<void>(
        GlobalDebugLog().Trace(where.file_name(), where.line(), kTraceError, section.missing.Get(), dwError));
    return false;
}

void CarryOutRecords(const Section& section, const SectionRecords& records, const PathValues& pathValues)
{
    ForEachRecord(section, records, [&](const SectionKey& key, const std::wstring& tstrRecord) {
        if (key.optOperation) (*key.optOperation)(pathValues, tstrRecord);
    });
}
