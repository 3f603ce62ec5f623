// The sections of the instruction file: their keys, what the records do, who carries them out and when.
#pragma once

#include "agent/FileOperations.h"
#include "agent/InstructionFile.h"
#include "agent/RegistryPatch.h"
#include "agent/RunContext.h"
#include "agent/RunOnce.h"
#include "common/KzComn_DebugLog.h"

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>

/// What a record does, and by that what its value is. A switch over it names every effect and has no default: a new
/// effect then does not compile until each reader handles it.
enum class RecordEffect {
    eCreateFolder,       ///< a folder: ParseFileRecord()
    eDeleteFolder,       ///< a folder, gone at the restart
    eDeleteFiles,        ///< a folder and a name pattern, gone at the restart
    eDeleteFilesNow,     ///< the same, gone at once
    eDeleteValue,        ///< key path and value name: ParseRegistryRecord()
    eWriteValue,         ///< the same with type and data
    eWriteMissingValue,  ///< the same, unless a value is there
    eCarryOver,          ///< a value of the configuration, "/Parent/Child"
    eEditIni,            ///< section, key and value: ParseIniRecord()
    eRunOnce,            ///< a command line: MakeRunOnceRecord()
    eShowText            ///< a text for the user
};

/// What the value of a record is, and by that which family of lint rules looks at it.
enum class RecordForm {
    ePath,           ///< folder, or folder "\" pattern
    eRegistryValue,  ///< key path "!" value name, and "!" type "!" data unless the value is deleted
    eTag,            ///< a path in the configuration
    eIniValue,       ///< section "!" key "!" value
    eCommand,        ///< a command line
    eText            ///< a text for the user
};

constexpr RecordForm FormOf(RecordEffect eEffect) noexcept
{
    switch (eEffect) {
        case RecordEffect::eCreateFolder:
        case RecordEffect::eDeleteFolder:
        case RecordEffect::eDeleteFiles:
        case RecordEffect::eDeleteFilesNow: return RecordForm::ePath;
        case RecordEffect::eDeleteValue:
        case RecordEffect::eWriteValue:
        case RecordEffect::eWriteMissingValue: return RecordForm::eRegistryValue;
        case RecordEffect::eCarryOver: return RecordForm::eTag;
        case RecordEffect::eEditIni: return RecordForm::eIniValue;
        case RecordEffect::eRunOnce: return RecordForm::eCommand;
        case RecordEffect::eShowText: break;
    }
    return RecordForm::eText;
}

/// The FileOp of an effect; op_not_used for one that has to do with other things than files and folders.
constexpr FileOp FileOpOf(RecordEffect eEffect) noexcept
{
    switch (eEffect) {
        case RecordEffect::eCreateFolder: return op_dir_add;
        case RecordEffect::eDeleteFolder: return op_dir_delete;
        case RecordEffect::eDeleteFiles: return op_file_delete;
        case RecordEffect::eDeleteFilesNow: return op_file_delete_now;
        case RecordEffect::eDeleteValue:
        case RecordEffect::eWriteValue:
        case RecordEffect::eWriteMissingValue:
        case RecordEffect::eCarryOver:
        case RecordEffect::eEditIni:
        case RecordEffect::eRunOnce:
        case RecordEffect::eShowText: break;
    }
    return op_not_used;
}

/// The RegOp of an effect; op_no_reg for one that has to do with other things than registry values.
constexpr RegOp RegOpOf(RecordEffect eEffect) noexcept
{
    switch (eEffect) {
        case RecordEffect::eDeleteValue: return op_reg_delete;
        case RecordEffect::eWriteValue: return op_reg_add;
        case RecordEffect::eWriteMissingValue: return op_reg_add_if_non;
        case RecordEffect::eCreateFolder:
        case RecordEffect::eDeleteFolder:
        case RecordEffect::eDeleteFiles:
        case RecordEffect::eDeleteFilesNow:
        case RecordEffect::eCarryOver:
        case RecordEffect::eEditIni:
        case RecordEffect::eRunOnce:
        case RecordEffect::eShowText: break;
    }
    return op_no_reg;
}

/// When a record is carried out, in the order of a run.
enum class RunPhase { eBeforeDeployment, eDeployment, eAfterDeployment, eNewName };

struct SectionKey;

/// Carries out one record of a key.
using RecordOperation = void(const RunContext&, const SectionKey& key, const std::wstring& tstrRecord);

/// One key of a section.
struct SectionKey {
    const wchar_t* szKey;
    RecordEffect eEffect;
    bool bPlaceholders;  ///< they are expanded in its records
    /// The line that names a record which is carried out; none where the section's reader has lines of its own.
    KzCommon::TraceFormat<const wchar_t*> line;
    /// What carries out one record; none where the section's reader takes the records itself.
    std::optional<RecordOperation*> optOperation{};  // whether it has one is known to the compiler, too

    /// The beginning of that line, up to the record.
    [[nodiscard]] constexpr std::wstring_view LineStart() const noexcept
    {
        const std::wstring_view tstrLine = line ? line.Get() : L"";
        return tstrLine.substr(0, tstrLine.find(L'%'));
    }
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
     {{L"add", RecordEffect::eCreateFolder, true,
       L"*** FrameworkDeployAgent::CreateDirBeforeReboot() - to add: [%s]", &Records::ChangeFiles}}},
    {L"QOR_REGISTRY_PATCH", L"PatchRegistry", RunPhase::eDeployment,
     L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x%08x]",
     {{L"delete", RecordEffect::eDeleteValue, false,
       L"*** FrameworkDeployAgent::PatchRegistry() - delete: [%s]", &Records::ChangeValue},
      {L"add", RecordEffect::eWriteValue, true,
       L"*** FrameworkDeployAgent::PatchRegistry() - add: [%s]", &Records::ChangeValue},
      {L"add_if_non", RecordEffect::eWriteMissingValue, true,
       L"*** FrameworkDeployAgent::PatchRegistry() - add: [%s]", &Records::ChangeValue}}},
    {L"QOR_CONFIG_MERGE", L"MergeConfig", RunPhase::eDeployment,
     L"*** FrameworkDeployAgent::MergeConfig() - QueryValue(QOR_CONFIG_MERGE) failed. [0x%08x]",
     {{L"migrate", RecordEffect::eCarryOver, false,
       L"*** FrameworkDeployAgent::MergeConfig() - Add tag. [%s]"}}},
    {L"UPDATE_INFO", L"ModifyUpdateInfo", RunPhase::eDeployment,
     L"*** FrameworkDeployAgent::ModifyUpdateInfo() - QueryValue failed. [0x%08x]",
     {{L"modify", RecordEffect::eEditIni, false, L"*** FrameworkDeployAgent::ModifyUpdateInfo(%s) "}}},
    {L"QOR_DIR", L"RemoveFileAfterReboot", RunPhase::eAfterDeployment,
     L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - QueryValue failed. [0x%08x]",
     {{L"delete", RecordEffect::eDeleteFolder, true,
       L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - to delete folder: [%s]", &Records::ChangeFiles}}},
    {L"QOR_FILE", L"RemoveFileAfterReboot", RunPhase::eAfterDeployment,
     L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - QueryValue failed. [0x%08x]",
     {{L"delete", RecordEffect::eDeleteFiles, true,
       L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - to delete file: [%s]", &Records::ChangeFiles},
      {L"delete_now", RecordEffect::eDeleteFilesNow, true,
       L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - deleting file: [%s]", &Records::ChangeFiles}}},
    {L"Run", L"PostRunScript", RunPhase::eAfterDeployment,
     L"*** FrameworkDeployAgent::PostRunScript() - QueryValue failed. [0x%08x]",
     {{L"SysRunOnce", RecordEffect::eRunOnce, true,
       L"*** FrameworkDeployAgent::PostRunScript() - add to sys RunOnce: [%s]"}}},
    // The registry's words, as support knows them.
    {L"RestartNotification_", L"RemindToReboot", RunPhase::eNewName,
     L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x%08x]",
     {{L"text", RecordEffect::eShowText, false, nullptr}}, true},
    // clang-format on
};
static_assert(std::ranges::is_sorted(kSections, {}, &Section::ePhase));

/// Whether every key of a section is carried out: by its operation, or, where the reader takes the records itself, in
/// one way for all.
constexpr bool AreKeysCarriedOut(const Section& section)
{
    const SectionKey& first = *section.keys.begin();
    return std::ranges::all_of(section.keys, [&](const SectionKey& key) {
        const bool bAlike = key.optOperation.has_value() == first.optOperation.has_value();
        return bAlike && (key.optOperation || key.eEffect == first.eEffect);
    });
}
static_assert(std::ranges::all_of(kSections, &AreKeysCarriedOut));

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
/// two readers with the same words. The machine is told why the reader then does nothing.
[[nodiscard]] bool ReadSection(KzCommon::Machine& machine, const Section& section, SectionRecords& records,
                               std::wstring_view tstrLanguage = {},
                               const std::source_location& where = std::source_location::current());

/// Calls `apply` with the key's row and the value of every record that the section's reader takes, key by key in the
/// order of the table, those of one key in the order of their lines.
template <class Apply>
void ForEachRecord(const Section& section, const SectionRecords& records, Apply&& apply)
{
    for (const SectionKey& key : section.keys) {
        ForEachRecord(records, key.szKey, [&](const std::wstring& tstrRecord) { apply(key, tstrRecord); });
    }
}

/// Traces a record with its key's line, which names the caller's place.
void TraceRecord(const SectionKey& key, const std::wstring& tstrRecord,
                 const std::source_location& where = std::source_location::current());

/// Carries out the records of a section in that order.
void CarryOutRecords(const RunContext& run, const Section& section, const SectionRecords& records);
