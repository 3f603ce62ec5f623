// "lint": every mistake of an update that can be found before it ships.
#pragma once

#include "check/lint/Report.h"
#include "check/update/CommandLine.h"
#include "check/update/IniScan.h"
#include "check/update/Update.h"

#include <string>
#include <vector>

namespace Check {

/// What every family of rules looks at.
struct LintContext {
    const Update& update;
    const IniScan& instructions;          ///< without sections when there is no instruction file
    std::vector<std::wstring> languages;  ///< that the update was said to serve
};

// The families of rules, each in a file of its own name. They only add to the report; what they cannot read they report
// as a finding.

void CheckForm(const LintContext& context, Report& report);           ///< FormRules.cpp
void CheckPlaceholders(const LintContext& context, Report& report);   ///< PlaceholderRules.cpp
void CheckRegistry(const LintContext& context, Report& report);       ///< RegistryRules.cpp
void CheckFileRecords(const LintContext& context, Report& report);    ///< FileRules.cpp
void CheckUpdateInfo(const LintContext& context, Report& report);     ///< UpdateInfoRules.cpp
void CheckCommands(const LintContext& context, Report& report);       ///< CommandRules.cpp
void CheckPackages(const LintContext& context, Report& report);       ///< PackageRules.cpp
void CheckLanguages(const LintContext& context, Report& report);      ///< LanguageRules.cpp
void CheckManifest(const LintContext& context, Report& report);       ///< ManifestRules.cpp
void CheckConfiguration(const LintContext& context, Report& report);  ///< ConfigRules.cpp
void CheckShortcuts(const LintContext& context, Report& report);      ///< ShortcutRules.cpp
void CheckTexts(const LintContext& context, Report& report);          ///< TextRules.cpp

/// The update with each package in the folder that its author most likely meant, where the named one is missing: what
/// is in a package can be checked although its name is wrong. CheckPackages() tells of the name.
[[nodiscard]] Update AsMeant(const Update& update);

/// Runs all families.
void LintUpdate(const LintContext& context, Report& report);

/// The verb.
[[nodiscard]] int RunLint(const Arguments& arguments, Output& output);

}  // namespace Check
