#include "agent/Sections.h"

using namespace KzCommon;

bool ReadSection(Machine& machine, const Section& section, SectionRecords& records, std::wstring_view tstrLanguage,
                 const std::source_location& where)
{
    const std::wstring tstrName = section.szName + std::wstring(tstrLanguage);
    // The question has built-in texts, so a missing section has no effect there.
    const auto explain = [&](const std::wstring& tstrReason) {
        if (!section.bLanguage) machine.ExplainNothing(tstrReason);
    };
    DWORD dwError = ERROR_SUCCESS;
    if (!ReadInstructions(machine, tstrName, records, dwError)) {
        static_cast<void>(
            GlobalDebugLog().Trace(where.file_name(), where.line(), kTraceError, section.missing.Get(), dwError));
        explain(L"there is no section [" + tstrName + L"] with a record");
        return false;
    }
    if (records.empty()) {
        explain(L"the section [" + tstrName + L"] has no record, or more than 32766 characters");
    }
    return true;
}

void TraceRecord(const SectionKey& key, const std::wstring& tstrRecord, const std::source_location& where)
{
    static_cast<void>(
        GlobalDebugLog().Trace(where.file_name(), where.line(), kTraceInfo, key.line.Get(), tstrRecord.c_str()));
}

void CarryOutRecords(const RunContext& run, const Section& section, const SectionRecords& records)
{
    ForEachRecord(section, records, [&](const SectionKey& key, const std::wstring& tstrRecord) {
        if (key.optOperation) (*key.optOperation)(run, key, tstrRecord);
    });
}
