// The expected state of a machine after an update.
#pragma once

#include "agent/IniEdits.h"
#include "agent/RegistryPatch.h"
#include "check/update/Update.h"
#include "check/verify/MergedSettings.h"
#include "check/verify/Sha256.h"
#include "check/verify/UncoveredParts.h"

#include <optional>
#include <string>
#include <vector>

namespace Check {

/// One expected file.
struct ExpectedFile {
    std::wstring tstrPlace;   ///< "{InstalledDir}Qorvault.exe"
    std::wstring tstrSource;  ///< "Component\...": the file that is moved or copied there
    bool bAtRestart = true;
    /// The machine's language for this file. A file without a language is for all languages without their own file.
    std::wstring tstrLanguage;
    /// Empty if the content differs between machines or is unknown.
    std::optional<Content> optContent;
    /// For a merged configuration file, instead of its content.
    std::optional<ExpectedSettings> optSettings{};
};

/// Files that must not exist.
struct ExpectedDeletion {
    std::wstring tstrPlace;  ///< a folder, or files with wildcards
    bool bFolder = false;
    bool bAtRestart = true;
};

/// How much is known about a registry value.
enum class ValueState {
    eAbsent,  ///< it does not exist
    eData,    ///< it has this type and data
    eAnyData  ///< it has this type; the data may be the user's
};

/// One registry value below HKEY_LOCAL_MACHINE.
struct ExpectedValue {
    std::wstring tstrKeyPath;
    std::wstring tstrValueName;
    ValueState eState = ValueState::eAbsent;
    RegistryType eType = RegistryType::eUnknown;
    std::wstring tstrData;  ///< of a text, with placeholders not expanded
    ULONGLONG ullData = 0;  ///< of a number
    /// Written as the unnamed value, only if the value with the literal name "(Default)" does not exist.
    bool bUnlessLiteral = false;
};

/// One key of the update information.
struct ExpectedIniKey {
    std::wstring tstrSection;
    std::wstring tstrKey;
    std::wstring tstrValue;
};

/// One file of an update, with its content.
struct UpdateFile {
    std::wstring tstrFile;  ///< relative to the update's folder
    Content content;
};

/// Whether a key of the update information contains a version.
[[nodiscard]] bool IsVersionKey(const std::wstring& tstrKey);

/// The format of the manifests that are written now. Manifests of format 1 have neither identity nor languages,
/// contents and what is not covered, and only some of the carried-over settings.
inline constexpr unsigned kManifestFormat = 2;
inline constexpr unsigned kOldestManifestFormat = 1;

/// The complete expected state.
struct ExpectedState {
    unsigned uFormat = kManifestFormat;  ///< of the manifest that it was read from
    std::wstring tstrProduct;            ///< the product package's download path
    std::wstring tstrResource;           ///< the resource package's download path
    std::string strUpdate;               ///< the identity of the update from its manifest: a SHA-256
    std::vector<std::wstring> folders;
    std::vector<ExpectedFile> files;
    std::vector<ExpectedDeletion> deletions;
    std::vector<ExpectedValue> registry;
    std::vector<ExpectedIniKey> updateInfo;
    std::vector<UncoveredPart> uncovered;
    std::vector<std::wstring> languages;
    /// The instruction file and all files of the packages, except the manifest and its signature.
    std::vector<UpdateFile> contents;

    [[nodiscard]] std::size_t Count() const noexcept
    {
        return folders.size() + files.size() + deletions.size() + registry.size() + updateInfo.size();
    }
};

/// The name of a shipped manifest among the settings of the product package. The agent copies it to the install folder
/// like any other file there. Its signature is in a file beside it, with this ending.
inline constexpr wchar_t kShippedManifest[] = L"QorUpdate.json";
inline constexpr wchar_t kSignatureEnd[] = L".sig";

/// Whether a file of an update, relative to its folder, is the shipped manifest or its signature.
[[nodiscard]] bool IsManifestOrSignature(const Update& update, const std::wstring& tstrFile);

/// Collects the expected state of an update, with the contents of its files. Adds a line to `tstrErrors` for anything
/// that cannot be verified. False when a file is unreadable.
[[nodiscard]] bool CollectExpectedState(const Update& update, ExpectedState& expected, std::wstring& tstrErrors);

}  // namespace Check
