// What an update promises to a machine: what is there, and what is gone, when it has arrived.
#pragma once

#include "agent/IniEdits.h"
#include "agent/RegistryPatch.h"
#include "check/update/Update.h"
#include "check/verify/MergedSettings.h"
#include "check/verify/Sha256.h"

#include <optional>
#include <string>
#include <vector>

namespace Check {

/// One file that is to lie in a place.
struct ExpectedFile {
    std::wstring tstrPlace;   ///< "{InstalledDir}Qorvault.exe"
    std::wstring tstrSource;  ///< "Component\...": what is moved or copied there
    bool bAtRestart = true;
    /// The machine's language for which this promise holds; without one it holds where none for the language does.
    std::wstring tstrLanguage;
    /// Nothing where the file differs from machine to machine by design, or where its content is not known.
    std::optional<Content> optContent;
    /// Of a merged configuration file, instead of its content.
    std::optional<ExpectedSettings> optSettings{};
};

/// Files that are to be gone.
struct ExpectedDeletion {
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
struct ExpectedValue {
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
struct ExpectedIniKey {
    std::wstring tstrSection;
    std::wstring tstrKey;
    std::wstring tstrValue;
};

/// Whether a key of the update information names a version.
[[nodiscard]] bool IsVersionKey(const std::wstring& tstrKey);

/// All of them.
struct ExpectedState {
    std::wstring tstrProduct;   ///< the product package's download path
    std::wstring tstrResource;  ///< the resource package's
    std::vector<std::wstring> folders;
    std::vector<ExpectedFile> files;
    std::vector<ExpectedDeletion> deletions;
    std::vector<ExpectedValue> registry;
    std::vector<ExpectedIniKey> updateInfo;

    [[nodiscard]] std::size_t Count() const noexcept
    {
        return folders.size() + files.size() + deletions.size() + registry.size() + updateInfo.size();
    }
};

/// All that an update promises, with the contents of its files. What cannot be promised is a line of `tstrErrors`.
/// False when a file cannot be read.
[[nodiscard]] bool CollectExpectedState(const Update& update, ExpectedState& expected, std::wstring& tstrErrors);

}  // namespace Check
