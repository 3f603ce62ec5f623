// Whether the installed product still has to take its new name, and what is prepared for the restart that gives it.
//
// The name cannot change while the old files are in use. So the run that deploys the update only decides, marks the
// registry so that the decision is taken once, and registers "Brevant.exe /ApplyNewName" to run after the next restart
// (PostRestartRename.h). The marker comes first: the rename is scheduled once even if its preparation fails.
#pragma once

#include "common/KzComn_Machine.h"

#include <functional>
#include <string>

/// The product's new name, unless a string table has another.
inline constexpr wchar_t kNewProductName[] = L"Kazmere Qorvault";

/// The shortcut description of the installed product, in the install folder.
inline constexpr wchar_t kShortcutFile[] = L"qorshcut.xml";
/// The copy of it that still describes the shortcuts of before the update.
inline constexpr wchar_t kShortcutBackupFile[] = L"qorshcutbackup.xml";

/// The marker, a value of the product's key, and what it holds when the rename has been scheduled.
inline constexpr wchar_t kMarkerName[] = L"{2B7F61C4-9A0E-4F83-B5D2-6E18A4C0973B}";
inline constexpr wchar_t kMarkerData[] = L"{8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}";

/// The command that gives the name, as it is registered to run once.
inline constexpr wchar_t kNewNameCommand[] = L"{InstalledDir}Brevant.exe /ApplyNewName";

/// Whether an installation takes the new name, or why not.
enum class NewNameNeed { eJapanese, eVersionInvalid, eNewEnough, eDue };

/// Decides by the installation's language and version alone; `tstrBuild` becomes the version's build number, where it
/// has one.
[[nodiscard]] NewNameNeed JudgeNewName(const std::wstring& tstrLanguage, const std::wstring& tstrVersion,
                                       std::wstring& tstrBuild);

/// Whether the marker says that the rename has been scheduled before.
[[nodiscard]] bool CheckIfNewProdNameApplied(const KzCommon::Machine& machine);

/// Whether this installation takes the new name: not the Japanese one, and older than build 1100.
[[nodiscard]] bool NeedToApplyNewName(KzCommon::Machine& machine);

/// Whether the rename can be prepared: the install folder's full path is known. Without it the command that gives the
/// name would have no folder, and the decision is left to a later run. False with a trace line.
[[nodiscard]] bool CanScheduleNewName(const KzCommon::Machine& machine);

/// Sets the marker.
void TagNewProdNameApplied(KzCommon::Machine& machine);

/// Keeps a copy of the shortcut description and registers the run after the restart.
void PreparePostUdActionForNewName(KzCommon::Machine& machine);

/// Whether the user is to be told to restart: the string table beside the program does not confirm the new name.
[[nodiscard]] bool NeedToInformUser(const KzCommon::Machine& machine);

/// The whole decision: marks and prepares the rename when it is due, and asks the user to restart where the user is to
/// be told. Calls `beforeQuestion` first: the user may take hours to answer.
void DecideAboutNewName(KzCommon::Machine& machine, const std::function<void()>& beforeQuestion);
