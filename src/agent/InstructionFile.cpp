#include "agent/InstructionFile.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_Exception.h"

using namespace KzCommon;

namespace {

// The largest buffer of steps of 256 at once: a second reading of the file costs more than the room.
constexpr Storage::Ini::SectionGrowth kGrowth{127 * 256, 256, 0x7FFF};

void TakeRecords(Storage::Ini::Section section, SectionRecords& records)
{
    switch (section.eOutcome) {
        case Storage::Ini::SectionOutcome::eRead: break;
        case Storage::Ini::SectionOutcome::eTooLarge: return;
        case Storage::Ini::SectionOutcome::eNoMemory:
        case Storage::Ini::SectionOutcome::eFailed: Storage::Throw(section.dwError);
    }
    // Most records have the key of the one before; those of equal keys keep their order in any case.
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
