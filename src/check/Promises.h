// What an update promises to a machine: what is there, and what is gone, when it has arrived.
#pragma once

#include "agent/IniEdits.h"
#include "agent/RegistryPatch.h"
#include "check/MergedSettings.h"
#include "check/Sha256.h"
#include "check/Update.h"

#include <optional>
#include <string>
#include <vector>

namespace Check {

/// One file that is to lie in a place.
struct FilePromise {
    std::wstring tstrPlace;   ///< "{InstalledDir}Qorvault.exe"
    std::wstring tstrSource;  ///< "Component\...": what is moved or copied there
    bool bAtRestart = true;
    /// The machine's language for which this promise holds; without one it holds where none for the language does.
    std::wstring tstrLanguage;
    /// Nothing where the file differs from machine to machine by design, or where its content is not known.
    std::optional<Content> optContent;
    /// Of a merged configuration file, instead of its content.
    std::optional<SettingsPromise> optSettings{};
};

/// Files that are to be gone.
struct DeletionPromise {
    std::wstring tstrPlace;  ///< a folder, or files with wildcards
    bool bFolder = false;
    bool bAtRestart = true;
};

/// How much is known of a registry value's state.
enum class ValueState {
    eAbsent,  ///< it is gone
    eData,    ///< it has this type and data
    eAnyData  ///< it has this type: the user's own data count as well
};

/// One registry value below HKEY_LOCAL_MACHINE.
struct RegistryPromise {
    std::wstring tstrKeyPath;
    std::wstring tstrValueName;
    ValueState eState = ValueState::eAbsent;
    RegistryType eType = RegistryType::eUnknown;
    std::wstring tstrData;  ///< of a text, placeholders as they stand
    ULONGLONG ullData = 0;  ///< of a number
    /// The value was written by its second name, "(Default)", which need not be there, and only where that is not.
    bool bUnlessLiteral = false;
};

/// One key of the update information.
struct IniPromise {
    std::wstring tstrSection;
    std::wstring tstrKey;
    std::wstring tstrValue;
};

/// Whether a key of the update information names a version.
[[nodiscard]] bool IsVersionKey(const std::wstring& tstrKey);

/// All of them.
struct Promises {
    std::wstring tstrProduct;   ///< the product package's download path
    std::wstring tstrResource;  ///< the resource package's
    std::vector<std::wstring> folders;
    std::vector<FilePromise> files;
    std::vector<DeletionPromise> deletions;
    std::vector<RegistryPromise> registry;
    std::vector<IniPromise> updateInfo;

    [[nodiscard]] std::size_t Count() const noexcept
    {
        return folders.size() + files.size() + deletions.size() + registry.size() + updateInfo.size();
    }
};

/// All that an update promises, with the contents of its files. What cannot be promised is a line of `tstrErrors`.
/// False when a file cannot be read.
[[nodiscard]] bool CollectPromises(const Update& update, Promises& promises, std::wstring& tstrErrors);

}  // namespace Check
