// Whether the installed product still has to take its new name, and what is prepared for the restart that gives it.
//
// The name cannot change while the old files are in use. So the run that deploys the update only decides, marks the
// registry so that the decision is taken once, and registers "Brevant.exe /ApplyNewName" to run after the next restart
// (PostRestartRename.h). The marker comes first: the rename is scheduled once even if its preparation fails.
#pragma once

/// The product's new name, unless a string table has another.
inline constexpr wchar_t kNewProductName[] = L"Kazmere Qorvault";

/// The shortcut description of the installed product, in the install folder.
inline constexpr wchar_t kShortcutFile[] = L"qorshcut.xml";
/// The copy of it that still describes the shortcuts of before the update.
inline constexpr wchar_t kShortcutBackupFile[] = L"qorshcutbackup.xml";

/// Whether the marker says that the rename has been scheduled before.
[[nodiscard]] bool CheckIfNewProdNameApplied();

/// Whether this installation takes the new name: not the Japanese one, and older than build 1100.
[[nodiscard]] bool NeedToApplyNewName();

/// Whether the rename can be prepared: the install folder is known. Without it the command that gives the name would
/// have no folder, and the decision is left to a later run. False with a trace line.
[[nodiscard]] bool CanScheduleNewName();

/// Sets the marker.
void TagNewProdNameApplied();

/// Keeps a copy of the shortcut description and registers the run after the restart.
void PreparePostUdActionForNewName();

/// Whether the user is to be told to restart: the string table beside the program does not confirm the new name.
[[nodiscard]] bool NeedToInformUser();
