#include "agent/InstructionFile.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_Exception.h"

using namespace KzCommon;

namespace {

// Start with the largest buffer that the steps of 256 reach: reading the file twice costs more than the memory.
constexpr Storage::Ini::SectionGrowth kGrowth{127 * 256, 256, 0x7FFF};

void TakeRecords(Storage::Ini::Section section, SectionRecords& records)
{
    switch (section.eOutcome) {
        case Storage::Ini::SectionOutcome::eRead: break;
        case Storage::Ini::SectionOutcome::eTooLarge: return;
        case Storage::Ini::SectionOutcome::eNoMemory:
        case Storage::Ini::SectionOutcome::eFailed: Storage::Throw(section.dwError);
    }
    // Most records have the key of the previous one. insert(end()) keeps the order of equal keys.
    for (auto& entry : section.entries) records.insert(records.end(), std::move(entry));
}

}  // namespace

bool ReadSectionRecords(const Storage::IniFile& iniFile, const std::wstring& tstrSection, SectionRecords& records)
{
    if (!iniFile.IsReady()) return false;
    TakeRecords(Storage::Ini::ReadSection(iniFile.Path(), tstrSection, kGrowth), records);
    return true;
}

bool ReadInstructions(const Machine& machine, const std::wstring& tstrSection, SectionRecords& records, DWORD& dwError)
{
    const std::wstring tstrFile = Frwk::Utility::InstalledFile(machine, kInstructionFile);
    if (tstrFile.empty()) return Storage::Fail(ERROR_BAD_ARGUMENTS, &dwError);
    const bool bOk = Storage::Guarded(
        &dwError, [&] { TakeRecords(machine.ReadIniSection(tstrFile, tstrSection, kGrowth), records); });
    if (!bOk && dwError == Storage::kCodelessFailure) dwError = ::GetLastError();
    return bOk;
}
