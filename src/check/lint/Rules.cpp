#include "check/lint/Rules.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace Check {

namespace {

constexpr Severity kError = Severity::eError;
constexpr Severity kWarning = Severity::eWarning;

constexpr RuleRow kRules[] = {
    // clang-format off
    {Rule::eEncoding, kError, L"encoding",
     L"Windows reads characters outside ASCII in the code page of each machine, unless the file is UTF-16 with its BOM."},
    {Rule::eNoRecord, kError, L"no-record", L"The agent ignores a line that is not a record, and traces nothing."},
    {Rule::eUnknownSection, kError, L"unknown-section", L"Nothing reads a section of that name."},
    {Rule::eRepeatedSection, kError, L"repeated-section", L"Windows reads the first section of a name only."},
    {Rule::eUnknownKey, kError, L"unknown-key", L"No operation carries out records of that key; keys match exactly."},
    {Rule::eValueLength, kError, L"value-length", L"A value that is empty or longer than 1023 characters is refused."},
    {Rule::eSectionTooLong, kError, L"section-too-long",
     L"A section beyond the limit counts as empty, without a failure line."},
    {Rule::eMissingSection, kError, L"missing-section",
     L"Nothing is removed unless both QOR_DIR and QOR_FILE exist; without any section the agent does nothing at all."},
    {Rule::eScanDiffers, kError, L"scan-differs",
     L"Windows finds another number of records than this check: its places cannot be trusted."},

    {Rule::eUnknownPlaceholder, kError, L"unknown-placeholder",
     L"Text in braces that is not a placeholder stays as it is."},
    {Rule::ePlaceholderNotExpanded, kError, L"placeholder-not-expanded",
     L"Placeholders are not expanded here: the text is used as it is."},
    {Rule::eLogFolderMayBeUnset, kWarning, L"log-folder-may-be-unset",
     L"If the log folder is not set, its placeholder is empty, and the record is refused."},

    {Rule::eRegistryFields, kError, L"registry-fields", L"A record with another number of fields is refused or cut."},
    {Rule::eRegistryType, kError, L"registry-type", L"A value of an unknown type is not written."},
    {Rule::eRegistryNumber, kError, L"registry-number",
     L"Text that is not a decimal number of that size is stored as 0, without a failure line."},
    {Rule::eRootWrittenOut, kError, L"root-written-out",
     L"The root is never written: a key of its name is made below HKEY_LOCAL_MACHINE."},
    {Rule::eDefaultName, kWarning, L"default-name",
     L"\"(Default)\" means the unnamed value in add_if_non only, which writes it at every run."},
    {Rule::eUndoneByOtherPass, kWarning, L"undone-by-other-pass",
     L"Deletes come first, then adds, then adds of missing values: another record makes this one pointless."},
    {Rule::eCountsAsMissing, kWarning, L"counts-as-missing", L"This data counts as a missing value for add_if_non."},
    {Rule::eSpaceAtField, kWarning, L"space-at-field", L"Spaces beside \"!\" become part of the field."},
    {Rule::eKeyPath, kError, L"key-path",
     L"Windows refuses a key path with a leading backslash, and usually two in a row; it drops backslashes at the end."},
    {Rule::eProductPath, kError, L"product-path",
     L"The agent looks up its install folder in this value: the rest of the run reads from another folder, or none."},

    {Rule::eNoFullPath, kError, L"no-full-path", L"Paths that are not full and whole drives are refused."},
    {Rule::ePathTooLong, kError, L"path-too-long",
     L"A path of more than 260 characters, expanded, is refused, or taken on some machines only."},
    {Rule::eNoDestinationFolder, kError, L"no-destination-folder",
     L"The deployment creates no folders: files for a missing folder never arrive."},
    {Rule::eDeletesWhatItBrings, kError, L"deletes-what-it-brings",
     L"Deletions are carried out after the moves: the file that this update brings is gone in the end."},
    {Rule::eWildcardInFolder, kError, L"wildcard-in-folder", L"Only the last part of a path may be a pattern."},
    {Rule::eNameNotAllowed, kError, L"name-not-allowed",
     L"Windows refuses the name, or changes it: dots and spaces at the end of a name vanish."},
    {Rule::eFolderAsFile, kError, L"folder-as-file", L"QOR_FILE removes files: folders never match."},
    {Rule::eDeletesInstructions, kError, L"deletes-instructions",
     L"The instruction file is deleted before the commands and the texts of the question are read from it."},
    {Rule::eDelayedInUsersFolder, kWarning, L"delayed-in-users-folder",
     L"Until the restart a user can put a link in the place of the folder: Windows then deletes files elsewhere."},
    {Rule::eFolderUsersWrite, kWarning, L"folder-users-write",
     L"The new folder inherits the access list of a folder in which every user may create files."},

    {Rule::eIniFields, kError, L"ini-fields", L"A record needs section, key and value; otherwise nothing is written."},
    {Rule::eShipsUpdateInfo, kError, L"ships-update-info",
     L"An UpdateInfo.ini among the settings replaces the installed one, and its records are lost."},
    {Rule::eVersionNotRecorded, kWarning, L"version-not-recorded",
     L"The agent records its version only if the section UPDATE_INFO exists."},
    {Rule::eIniEncoding, kError, L"ini-encoding",
     L"UpdateInfo.ini cannot store the character: Windows writes a question mark, or another character."},
    {Rule::eIniKey, kError, L"ini-key", L"Windows writes the key, but no program can read it again."},
    {Rule::eUnknownIniKey, kWarning, L"unknown-ini-key",
     L"The installed UpdateInfo.ini has no such key: the agent adds one that the product may not read."},
    {Rule::eOlderVersion, kWarning, L"older-version", L"The update records a version that is older than the installed one."},
    {Rule::eCommandExclamation, kError, L"command-exclamation", L"A \"!\" ends the command."},
    {Rule::eCommandTooLong, kError, L"command-too-long", L"Windows runs commands of up to 260 characters only."},
    {Rule::eUnquotedPath, kError, L"unquoted-path",
     L"A path with spaces outside quotes ends at the first space."},
    {Rule::eCommandNamesMovedFile, kError, L"command-names-moved-file",
     L"The restart moves the file away before the command starts."},
    {Rule::eRelativeProgram, kWarning, L"relative-program",
     L"The folder that a command starts in is not known: a program named by part of its path is not found."},
    {Rule::eKeyboardFilterCase, kWarning, L"keyboard-filter-case",
     L"A command of the keyboard filter is recognised by \"kbfilter.ini\", exactly so."},
    {Rule::eStartedFile, kError, L"started-file", L"The command starts a file that is not there: nothing happens."},
    {Rule::eStartsInUsersFolder, kError, L"starts-in-users-folder",
     L"The command runs as an administrator what a standard user can replace."},

    {Rule::eNoTagPath, kError, L"no-tag-path", L"The record names no setting: nothing is carried over."},
    {Rule::eUnknownTag, kWarning, L"unknown-tag",
     L"Neither the new file nor the defaults know the setting: nothing that is read is carried over."},
    {Rule::eConfigNotXml, kError, L"config-not-xml", L"The configuration file is refused as a whole."},
    {Rule::eConfigValueType, kError, L"config-value-type", L"The value does not fit the type that is written on it."},
    {Rule::eSecretInClear, kError, L"secret-in-clear", L"The secret is in the update for everybody to read."},
    {Rule::eShipsKeptSettings, kError, L"ships-kept-settings",
     L"The file replaces the settings that an earlier run has kept for the user under this name."},
    {Rule::eMisspeltSetting, kWarning, L"misspelt-setting",
     L"The product looks for an element or attribute of another name, and does not find this one."},
    {Rule::eSettingOfOneLanguage, kWarning, L"setting-of-one-language",
     L"The configuration files of the languages differ: some users lack the setting."},
    {Rule::eSettingLost, kWarning, L"setting-lost",
     L"The installed product's value of this setting is not in the file that takes its place."},

    {Rule::eNoStepLooksThere, kWarning, L"no-step-looks-there",
     L"No deploy step looks at this place: the file stays in the download folder."},
    {Rule::eNoInnerFolder, kError, L"no-inner-folder",
     L"The agent looks for the program's own files in a second folder of the component's name; none of them arrives."},
    {Rule::eLanguageIncomplete, kError, L"language-incomplete",
     L"An installation of this language keeps the old file, or gets none."},
    {Rule::eSectionWithoutPackage, kError, L"section-without-package",
     L"The section is carried out only with the product package, and ignored without it."},
    {Rule::ePackageMissing, kError, L"package-missing",
     L"Nothing of the package is deployed, and a new name that is due counts as given without its texts."},
    {Rule::eReadOnlyAtOnce, kWarning, L"read-only-at-once",
     L"A file that is copied at once keeps this attribute, and the next update cannot replace it."},
    {Rule::eStaleManifest, kError, L"stale-manifest",
     L"The manifest does not say what the update promises: verify reports false failures, or misses real ones."},
    {Rule::eNoProductFile, kWarning, L"no-product-file", L"The file belongs to a system or an editor, not to a product."},
    {Rule::eEmptyProgram, kError, L"empty-program", L"The program, library or script is empty: it replaces one that works."},

    {Rule::eShortcutsNotXml, kError, L"shortcuts-not-xml", L"The description is refused: no shortcuts are made."},
    {Rule::eShortcutName, kError, L"shortcut-name", L"The name is refused, and the item left out."},
    {Rule::eShortcutTarget, kError, L"shortcut-target", L"The shortcut leads to a file that is not there."},
    {Rule::eShortcutPlace, kError, L"shortcut-place", L"The shortcut is in a place that is never created."},
    {Rule::eUnknownShortcutPart, kError, L"unknown-shortcut-part",
     L"The agent knows no such element or attribute: it is ignored, or, on the desktop, taken for a shortcut."},
    {Rule::eShortcutIcon, kError, L"shortcut-icon", L"The icon is not there: Windows shows one of its own."},
    {Rule::eRepeatedShortcut, kError, L"repeated-shortcut", L"Two shortcuts have one name: the later one replaces the other."},
    {Rule::eStringTable, kError, L"string-table",
     L"The product's name cannot be read: its entry has an empty or wrong name."},
    {Rule::eNotification, kWarning, L"notification", L"Built-in English texts replace the missing ones."},
    {Rule::eNewNameTexts, kError, L"new-name-texts",
     L"The new name is due and has no string table: the names are emptied, and no later run writes them."},
    {Rule::eQuotedText, kWarning, L"quoted-text", L"Quotes around a text are part of it: users see them."},

    {Rule::eLineEnd, kError, L"line-end", L"A carriage return without a line feed is a line end for some programs only."},

    {Rule::eOtherRegistryType, kWarning, L"other-registry-type",
     L"The installed product has the value with another type, and may not read this one."},
    // clang-format on
};
static_assert(std::is_sorted(std::begin(kRules), std::end(kRules),
                             [](const RuleRow& left, const RuleRow& right) { return left.eRule < right.eRule; }));

}  // namespace

std::span<const RuleRow> Rules() noexcept
{
    return kRules;
}

const RuleRow& RowOf(Rule eRule) noexcept
{
    return *std::find_if(std::begin(kRules), std::end(kRules), [&](const RuleRow& row) { return row.eRule == eRule; });
}

std::wstring IdOf(Rule eRule)
{
    wchar_t szId[8] = {};
    ::_snwprintf(szId, std::size(szId) - 1, L"B%03u", static_cast<unsigned>(eRule));
    return szId;
}

}  // namespace Check
