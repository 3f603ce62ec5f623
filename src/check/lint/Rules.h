// The rules of "lint": one row each, whose number never changes its meaning.
#pragma once

#include <span>
#include <string>

namespace Check {

enum class Severity { eWarning, eError };

/// The number of a rule; docs/check-rules.md has a page for each. A number that is no longer used is never given again.
enum class Rule : unsigned {
    // Form of the instruction file
    eEncoding = 1,
    eNoRecord = 2,
    eUnknownSection = 3,
    eRepeatedSection = 4,
    eUnknownKey = 5,
    eValueLength = 6,
    eSectionTooLong = 7,
    eMissingSection = 8,
    eScanDiffers = 9,
    // Placeholders
    eUnknownPlaceholder = 10,
    ePlaceholderNotExpanded = 11,
    eLogFolderMayBeUnset = 12,
    // Registry
    eRegistryFields = 20,
    eRegistryType = 21,
    eRegistryNumber = 22,
    eRootWrittenOut = 23,
    eDefaultName = 24,
    eUndoneByOtherPass = 25,
    eCountsAsMissing = 26,
    eSpaceAtField = 27,
    eKeyPath = 28,
    eProductPath = 29,
    // Files and folders
    eNoFullPath = 30,
    ePathTooLong = 31,
    eNoDestinationFolder = 32,
    eDeletesWhatItBrings = 33,
    eWildcardInFolder = 34,
    eNameNotAllowed = 35,
    eFolderAsFile = 36,
    eDeletesInstructions = 37,
    eDelayedInUsersFolder = 38,
    eFolderUsersWrite = 39,
    // Update information and commands
    eIniFields = 40,
    eShipsUpdateInfo = 41,
    eVersionNotRecorded = 42,
    eIniEncoding = 43,
    eIniKey = 44,
    eUnknownIniKey = 45,
    eOlderVersion = 46,
    eCommandExclamation = 50,
    eCommandTooLong = 51,
    eUnquotedPath = 52,
    eCommandNamesMovedFile = 53,
    eRelativeProgram = 54,
    eKeyboardFilterCase = 55,
    eStartedFile = 56,
    eStartsInUsersFolder = 57,
    // Configuration
    eNoTagPath = 60,
    eUnknownTag = 61,
    eConfigNotXml = 62,
    eConfigValueType = 63,
    eSecretInClear = 64,
    eShipsKeptSettings = 65,
    eMisspeltSetting = 66,
    eSettingOfOneLanguage = 67,
    eSettingLost = 68,
    // Package
    eNoStepLooksThere = 70,
    eNoInnerFolder = 71,
    eLanguageIncomplete = 72,
    eSectionWithoutPackage = 73,
    ePackageMissing = 74,
    eReadOnlyAtOnce = 75,
    eStaleManifest = 76,
    eNoProductFile = 77,
    eEmptyProgram = 78,
    // Shortcuts and texts
    eShortcutsNotXml = 80,
    eShortcutName = 81,
    eShortcutTarget = 82,
    eShortcutPlace = 83,
    eUnknownShortcutPart = 84,
    eShortcutIcon = 85,
    eRepeatedShortcut = 86,
    eStringTable = 90,
    eNotification = 91,
    eNewNameTexts = 92,
    eQuotedText = 93,
    // Groups whose ten numbers are used up go on a hundred higher: 100 the form, 120 the registry
    eLineEnd = 100,
    eOtherRegistryType = 120,
};

struct RuleRow {
    Rule eRule;
    Severity eSeverity;     ///< of its findings, unless one says otherwise
    const wchar_t* szName;  ///< short, for lists and reports of other tools
    const wchar_t* szHelp;  ///< one sentence: what happens on the customer's machine
};

/// All rules, by number.
[[nodiscard]] std::span<const RuleRow> Rules() noexcept;

/// The row of a rule.
[[nodiscard]] const RuleRow& RowOf(Rule eRule) noexcept;

/// "B010".
[[nodiscard]] std::wstring IdOf(Rule eRule);

}  // namespace Check
