// The parts of an update that undoes another one.
#pragma once

#include "check/undo/Touched.h"
#include "check/update/Update.h"

#include "agent/SettingsFiles.h"
#include "common/KzComn_String.h"

#include <map>
#include <string>
#include <vector>

namespace Check {

/// A section of the instruction file: its lines.
struct UndoSection {
    const wchar_t* szName;
    std::vector<std::wstring> lines{};
    std::size_t cCharacters = 0;
};

/// An update that restores the state before another one.
struct UndoParts {
    std::wstring tstrPackage;  ///< the product package's name
    /// The files by their places below the update's folder, with the installed files that they are copies of.
    KzCommon::String::NoCaseMap<std::wstring> files;
    UndoSection folderRecords{L"QOR_DIR"};
    UndoSection fileRecords{L"QOR_FILE"};
    UndoSection valueRecords{L"QOR_REGISTRY_PATCH"};
    UndoSection settingRecords{L"QOR_CONFIG_MERGE"};
    UndoSection infoRecords{L"UPDATE_INFO"};
    std::wstring tstrUpdateInfo;  ///< the text of its "UpdateInfo.ini"
    /// Keys of the update information that no record restores, with the reason.
    std::map<NamePair, const wchar_t*, NoCasePair> keptKeys;
    /// Why a place cannot be restored, by its name in the list.
    KzCommon::String::NoCaseMap<std::wstring> reasons;
    bool bAny = false;  ///< the other update changes a file, a folder or a value
};

/// The names of places in records and in the list of those that are not restored.
[[nodiscard]] std::wstring NameOfPath(const Folder& installed, const std::wstring& tstrPath);
[[nodiscard]] std::wstring NameOfValue(const NamePair& value);
[[nodiscard]] std::wstring NameOfKeyPath(std::wstring tstrKey);
[[nodiscard]] std::wstring NameOfKey(const NamePair& key);

/// Whether a path belongs to the update client, or to every update in its own way: the download folders, the
/// instruction file, the update information, the manifest.
[[nodiscard]] bool IsOfUpdates(const Folder& installed, const std::wstring& tstrPath);

/// The machine before an update and after it, and what the update has touched.
struct UndoContext {
    const Update& update;
    Folder installed;
    SimulatedMachine& before;
    SimulatedMachine& after;
    Touched touched;
};

/// Finds the parts that restore the state before the update.
[[nodiscard]] UndoParts MakeUndo(const UndoContext& context);

// UndoFiles.cpp
/// Adds the installed files that the update replaces or removes, the records that delete those that it brings, and the
/// records for removed folders.
void AddUndoFiles(const UndoContext& context, UndoParts& parts);

// UndoSettings.cpp
/// Adds the settings files of the product's language and the settings to carry over.
void AddUndoSettings(const UndoContext& context, UndoParts& parts);
/// Adds the update information: the installed one, naming the new package.
void AddUndoInfo(const UndoContext& context, UndoParts& parts);

/// Adds a record unless its section, or the line, would be too long to be read.
[[nodiscard]] bool AddRecord(UndoSection& section, const wchar_t* szKey, const std::wstring& tstrValue);

}  // namespace Check
