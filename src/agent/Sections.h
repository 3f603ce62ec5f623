// The sections of the instruction file: their keys, the effects of the records, and which operation handles them when.
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

/// The effect of a record, which also defines the form of its value. A switch over it lists every effect and has no
/// default, so that a new effect does not compile until every reader handles it.
enum class RecordEffect {
    eCreateFolder,       ///< a folder: ParseFileRecord()
    eDeleteFolder,       ///< a folder, deleted at the restart
    eDeleteFiles,        ///< a folder and a name pattern, deleted at the restart
    eDeleteFilesNow,     ///< likewise, deleted at once
    eDeleteValue,        ///< key path and value name: ParseRegistryRecord()
    eWriteValue,         ///< likewise with type and data
    eWriteMissingValue,  ///< likewise, unless the value exists
    eCarryOver,          ///< a value of the configuration, "/Parent/Child"
    eEditIni,            ///< section, key and value: ParseIniRecord()
    eRunOnce,            ///< a command line: MakeRunOnceRecord()
    eShowText            ///< a text for the user
};

/// The form of a record's value, which selects the family of lint rules.
enum class RecordForm {
    ePath,           ///< paths: the operation is a FileOp
    eRegistryValue,  ///< key path "!" value name, and "!" type "!" data unless the value is deleted
    eTag,            ///< a path in the configuration
    eIniValue,       ///< section "!" key "!" value
    eCommand,        ///< a command line
    eText            ///< a text for the user
};

/// The form of an effect's records, and the operation that carries them out.
struct EffectTraits {
    RecordForm eForm;
    FileOp eFileOp = op_not_used;  ///< of paths; FileOpTraits describes what it does with them
    RegOp eRegOp = op_no_reg;      ///< of registry values
};

constexpr EffectTraits TraitsOf(RecordEffect eEffect) noexcept
{
    switch (eEffect) {
        case RecordEffect::eCreateFolder: return {RecordForm::ePath, op_dir_add};
        case RecordEffect::eDeleteFolder: return {RecordForm::ePath, op_dir_delete};
        case RecordEffect::eDeleteFiles: return {RecordForm::ePath, op_file_delete};
        case RecordEffect::eDeleteFilesNow: return {RecordForm::ePath, op_file_delete_now};
        case RecordEffect::eDeleteValue: return {RecordForm::eRegistryValue, op_not_used, op_reg_delete};
        case RecordEffect::eWriteValue: return {RecordForm::eRegistryValue, op_not_used, op_reg_add};
        case RecordEffect::eWriteMissingValue: return {RecordForm::eRegistryValue, op_not_used, op_reg_add_if_non};
        case RecordEffect::eCarryOver: return {RecordForm::eTag};
        case RecordEffect::eEditIni: return {RecordForm::eIniValue};
        case RecordEffect::eRunOnce: return {RecordForm::eCommand};
        case RecordEffect::eShowText: break;
    }
    return {RecordForm::eText};
}

constexpr RecordForm FormOf(RecordEffect eEffect) noexcept
{
    return TraitsOf(eEffect).eForm;
}

/// The FileOp of an effect; op_not_used for an effect that does not concern files or folders.
constexpr FileOp FileOpOf(RecordEffect eEffect) noexcept
{
    return TraitsOf(eEffect).eFileOp;
}

/// The RegOp of an effect; op_no_reg for an effect that does not concern registry values.
constexpr RegOp RegOpOf(RecordEffect eEffect) noexcept
{
    return TraitsOf(eEffect).eRegOp;
}

/// Whether the value is nothing but paths, in which braces mean placeholders only.
constexpr bool IsPath(RecordForm eForm) noexcept
{
    switch (eForm) {
        case RecordForm::ePath: return true;
        case RecordForm::eRegistryValue:
        case RecordForm::eTag:
        case RecordForm::eIniValue:
        case RecordForm::eCommand:
        case RecordForm::eText: break;
    }
    return false;
}

/// When a record is carried out, in run order.
enum class RunPhase { eBeforeDeployment, eDeployment, eAfterDeployment, eNewName };

struct SectionKey;

/// Carries out one record of a key.
using RecordOperation = void(const RunContext&, const SectionKey& key, const std::wstring& tstrRecord);

/// One key of a section.
struct SectionKey {
    const wchar_t* szKey;
    RecordEffect eEffect;
    bool bPlaceholders;  ///< the operation expands them in the records
    /// The trace line for a record that is carried out; empty if the section's reader has its own lines.
    KzCommon::TraceFormat<const wchar_t*> line;
    /// Carries out one record; empty if the section's reader handles the records itself.
    std::optional<RecordOperation*> optOperation{};  // optional: AreKeysCarriedOut() checks it at compile time

    /// The beginning of `line`, up to the record.
    [[nodiscard]] constexpr std::wstring_view LineStart() const noexcept
    {
        const std::wstring_view tstrLine = line ? line.Get() : L"";
        return tstrLine.substr(0, tstrLine.find(L'%'));
    }
};

/// One section as one operation reads it.
struct Section {
    const wchar_t* szName;
    const wchar_t* szReader;
    RunPhase ePhase;
    KzCommon::TraceFormat<DWORD> missing;    ///< the trace line for an unreadable section, with the Win32 code
    std::initializer_list<SectionKey> keys;  ///< in the order of execution
    bool bLanguage = false;                  ///< the product's language is added to the name
};

/// Every section of every reader, in run order.
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
    // This line says "registry" for a text; support expects it.
    {L"RestartNotification_", L"RemindToReboot", RunPhase::eNewName,
     L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x%08x]",
     {{L"text", RecordEffect::eShowText, false, nullptr}}, true},
    // clang-format on
};
static_assert(std::ranges::is_sorted(kSections, {}, &Section::ePhase));

/// Whether every key of a section is carried out: by its own operation or, if the reader handles the records itself, by
/// the reader for all keys.
constexpr bool AreKeysCarriedOut(const Section& section)
{
    const SectionKey& first = *section.keys.begin();
    return std::ranges::all_of(section.keys, [&](const SectionKey& key) {
        const bool bAlike = key.optOperation.has_value() == first.optOperation.has_value();
        return bAlike && (key.optOperation || key.eEffect == first.eEffect);
    });
}
static_assert(std::ranges::all_of(kSections, &AreKeysCarriedOut));

/// The row of a reader. A row missing from the table does not compile.
consteval const Section& SectionOf(std::wstring_view tstrName, std::wstring_view tstrReader)
{
    for (const Section& section : kSections) {
        if (section.szName == tstrName && section.szReader == tstrReader) return section;
    }
    throw "no such section, or not read by that operation";
}

/// Reads a section of the instruction file; for a section per language, `tstrLanguage` follows its name. False, with
/// the section's trace line, on failure. The line has the reader's source location, which distinguishes two readers
/// with the same text. Explains to the machine why the reader then does nothing.
[[nodiscard]] bool ReadSection(KzCommon::Machine& machine, const Section& section, SectionRecords& records,
                               std::wstring_view tstrLanguage = {},
                               const std::source_location& where = std::source_location::current());

/// Calls `apply` with the key's row and the value of every record of the section's keys: keys in table order, the
/// records of one key in line order.
template <class Apply>
void ForEachRecord(const Section& section, const SectionRecords& records, Apply&& apply)
{
    for (const SectionKey& key : section.keys) {
        ForEachRecord(records, key.szKey, [&](const std::wstring& tstrRecord) { apply(key, tstrRecord); });
    }
}

/// Traces a record with its key's line and the caller's source location.
void TraceRecord(const SectionKey& key, const std::wstring& tstrRecord,
                 const std::source_location& where = std::source_location::current());

/// Carries out the records of a section in the same order.
void CarryOutRecords(const RunContext& run, const Section& section, const SectionRecords& records);
