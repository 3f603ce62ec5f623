// The sections of the instruction file: their keys, the form of their records, who carries them out and when.
#pragma once

#include "agent/FileOperations.h"
#include "agent/InstructionFile.h"
#include "agent/PathValues.h"
#include "agent/RegistryPatch.h"
#include "agent/RunOnce.h"
#include "common/KzComn_DebugLog.h"

#include <initializer_list>
#include <source_location>
#include <string>
#include <string_view>

/// What the value of a record is.
enum class RecordForm {
    eRegistryValue,  ///< key path and value name: ParseRegistryRecord()
    eRegistryData,   ///< the same with type and data
    eFolder,         ///< a folder: ParseFileRecord()
    eFilePattern,    ///< a folder and a name pattern: ParseFileRecord()
    eIniValue,       ///< section, key and value: ParseIniRecord()
    eCommand,        ///< a command line: MakeRunOnceRecord()
    eTagPath,        ///< a value of the configuration, "/Parent/Child"
    eText            ///< a text for the user
};

/// When a record is carried out, in the order of a run.
enum class RunPhase { eBeforeDeployment, eDeployment, eAfterDeployment, eNewName };

/// One key of a section, whether placeholders are expanded in its records, and the operation that carries out one of
/// them; none where the reader takes the records itself.
struct SectionKey {
    const wchar_t* szKey;
    RecordForm eForm;
    bool bPlaceholders;
    void (*pfnCarryOut)(const PathValues&, const std::wstring& tstrRecord) = nullptr;
};

/// One reading of one section.
struct Section {
    const wchar_t* szName;
    const wchar_t* szReader;
    RunPhase ePhase;
    KzCommon::TraceFormat<DWORD> missing;    ///< the line, with the Win32 code, for a section that cannot be read
    std::initializer_list<SectionKey> keys;  ///< in the order in which they are carried out
    bool bLanguage = false;                  ///< the product's language follows the name
};

/// Every reading of a section, in the order of a run.
inline constexpr Section kSections[] = {
    // clang-format off
    {L"QOR_DIR", L"CreateDirBeforeReboot", RunPhase::eBeforeDeployment,
     L"*** FrameworkDeployAgent::CreateDirBeforeReboot() - QueryValue failed. [0x%08x]",
     {{L"add", RecordForm::eFolder, true, &Records::CreateFolder}}},
    {L"QOR_REGISTRY_PATCH", L"PatchRegistry", RunPhase::eDeployment,
     L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x%08x]",
     {{L"delete", RecordForm::eRegistryValue, false, &Records::DeleteRegistryValue},
      {L"add", RecordForm::eRegistryData, true, &Records::AddRegistryValue},
      {L"add_if_non", RecordForm::eRegistryData, true, &Records::AddMissingRegistryValue}}},
    {L"QOR_CONFIG_MERGE", L"MergeConfig", RunPhase::eDeployment,
     L"*** FrameworkDeployAgent::MergeConfig() - QueryValue(QOR_CONFIG_MERGE) failed. [0x%08x]",
     {{L"migrate", RecordForm::eTagPath, false}}},
    {L"UPDATE_INFO", L"ModifyUpdateInfo", RunPhase::eDeployment,
     L"*** FrameworkDeployAgent::ModifyUpdateInfo() - QueryValue failed. [0x%08x]",
     {{L"modify", RecordForm::eIniValue, false}}},
    {L"QOR_DIR", L"RemoveFileAfterReboot", RunPhase::eAfterDeployment,
     L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - QueryValue failed. [0x%08x]",
     {{L"delete", RecordForm::eFolder, true, &Records::RemoveFolder}}},
    {L"QOR_FILE", L"RemoveFileAfterReboot", RunPhase::eAfterDeployment,
     L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - QueryValue failed. [0x%08x]",
     {{L"delete", RecordForm::eFilePattern, true, &Records::RemoveFiles},
      {L"delete_now", RecordForm::eFilePattern, true, &Records::RemoveFilesNow}}},
    {L"Run", L"PostRunScript", RunPhase::eAfterDeployment,
     L"*** FrameworkDeployAgent::PostRunScript() - QueryValue failed. [0x%08x]",
     {{L"SysRunOnce", RecordForm::eCommand, true}}},
    // The registry's words, as support knows them.
    {L"RestartNotification_", L"RemindToReboot", RunPhase::eNewName,
     L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x%08x]",
     {{L"text", RecordForm::eText, false}}, true},
    // clang-format on
};

/// A reader's row. One that is not in the table does not compile.
consteval const Section& SectionOf(std::wstring_view tstrName, std::wstring_view tstrReader)
{
    for (const Section& section : kSections) {
        if (section.szName == tstrName && section.szReader == tstrReader) return section;
    }
    throw "no such section, or not read by that operation";
}

/// Reads a section of the instruction file, `tstrLanguage` after its name where the section has one for each language.
/// False, with the section's failure line, when that fails: the line names the reader's place, by which support tells
/// two readers with the same words.
[[nodiscard]] bool ReadSection(const Section& section, SectionRecords& records, std::wstring_view tstrLanguage = {},
                               const std::source_location& where = std::source_location::current());

/// Carries out the records of a section key by key, those of one key in the order of their lines.
void CarryOutRecords(const Section& section, const SectionRecords& records, const PathValues& pathValues);
