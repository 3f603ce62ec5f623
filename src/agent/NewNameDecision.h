// Decides whether the installed product still needs its new name and prepares the restart that applies it.
//
// The name cannot change while the old files are in use. The run that deploys the update therefore only decides, sets a
// marker in the registry so that this happens once, and registers "Brevant.exe /ApplyNewName" to run after the next
// restart (PostRestartRename.h). The marker comes first: the rename is scheduled at most once, even if its preparation
// fails.
#pragma once

#include "common/KzComn_Machine.h"

#include <functional>
#include <string>

/// The product's new name, unless a string table defines another.
inline constexpr wchar_t kNewProductName[] = L"Kazmere Qorvault";

/// The shortcut description of the installed product, in the install folder.
inline constexpr wchar_t kShortcutFile[] = L"qorshcut.xml";
/// The backup of that file, which describes the shortcuts before the update.
inline constexpr wchar_t kShortcutBackupFile[] = L"qorshcutbackup.xml";

/// The marker, a value of the product's key, and its data when the rename has been scheduled.
inline constexpr wchar_t kMarkerName[] = L"{2B7F61C4-9A0E-4F83-B5D2-6E18A4C0973B}";
inline constexpr wchar_t kMarkerData[] = L"{8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}";

/// The command that applies the new name, registered to run once.
inline constexpr wchar_t kNewNameCommand[] = L"{InstalledDir}Brevant.exe /ApplyNewName";

/// Whether an installation needs the new name, or why not.
enum class NewNameNeed { eJapanese, eVersionInvalid, eNewEnough, eDue };

/// Decides only by the installation's language and version. Stores the version's build number, if any, in `tstrBuild`.
[[nodiscard]] NewNameNeed JudgeNewName(const std::wstring& tstrLanguage, const std::wstring& tstrVersion,
                                       std::wstring& tstrBuild);

/// Whether the marker shows that the rename has been scheduled.
[[nodiscard]] bool CheckIfNewProdNameApplied(const KzCommon::Machine& machine);

/// Whether this installation needs the new name: it is not Japanese and older than build 1100.
[[nodiscard]] bool NeedToApplyNewName(KzCommon::Machine& machine);

/// Whether the rename can be prepared: the install folder's full path is known, which the registered command needs.
/// False with a trace line; a later run then decides.
[[nodiscard]] bool CanScheduleNewName(const KzCommon::Machine& machine);

/// Sets the marker.
void TagNewProdNameApplied(KzCommon::Machine& machine);

/// Backs up the shortcut description and registers the run after the restart.
void PreparePostUdActionForNewName(KzCommon::Machine& machine);

/// Whether to ask the user for a restart: the string table beside the program does not contain the new name.
[[nodiscard]] bool NeedToInformUser(const KzCommon::Machine& machine);

/// Takes the whole decision: marks and prepares the rename when it is due and asks the user to restart if
/// NeedToInformUser(). Calls `beforeQuestion` first, because the user may take hours to answer.
void DecideAboutNewName(KzCommon::Machine& machine, const std::function<void()>& beforeQuestion);
