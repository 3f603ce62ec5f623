#include "agent/InstructionFile.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Retry.h"

using namespace KzCommon;

bool ReadSectionRecords(const Storage::IniFile& iniFile, const std::wstring& tstrSection, SectionRecords& records)
{
    if (!iniFile.IsReady()) return false;
    // The largest buffer of steps of 256 at once: a second reading of the file costs more than the room.
    constexpr Storage::Ini::SectionGrowth kGrowth{127 * 256, 256, 0x7FFF};
    Storage::Ini::Section section = Storage::Ini::ReadSection(iniFile.Path(), tstrSection, kGrowth);
    switch (section.eOutcome) {
        case Storage::Ini::SectionOutcome::eRead: break;
        case Storage::Ini::SectionOutcome::eTooLarge: return true;
        case Storage::Ini::SectionOutcome::eNoMemory:
        case Storage::Ini::SectionOutcome::eFailed: Storage::Throw(section.dwError);
    }
    // Most records have the key of the one before; those of equal keys keep their order in any case.
    for (auto& entry : section.entries) records.insert(records.end(), std::move(entry));
    return true;
}

bool ReadInstructions(const std::wstring& tstrSection, SectionRecords& records, DWORD& dwError)
{
    const std::wstring tstrFile = Frwk::Utility::InstalledFile(L"QorPaFrwk.ini");
    const auto read = [&](DWORD& dwCode) {
        return Storage::Guarded(&dwCode, [&] {
            Storage::IniFile instructions;
            instructions.Open(tstrFile);
            static_cast<void>(ReadSectionRecords(instructions, tstrSection, records));
        });
    };
    const bool bOk = Storage::TryWhileHeld(
        read, [&] { return !Storage::Directory::IsExisted(tstrFile); }, &dwError);
    if (!bOk && dwError == Storage::kCodelessFailure) dwError = ::GetLastError();
    return bOk;
}
