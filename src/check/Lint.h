// "lint": every mistake of an update that can be found before it ships.
#pragma once

#include "check/CommandLine.h"
#include "check/IniScan.h"
#include "check/Report.h"
#include "check/Update.h"

#include <string>
#include <vector>

namespace Check {

/// What every family of rules looks at.
struct Subject {
    const Update& update;
    const IniScan& instructions;          ///< without sections when there is no instruction file
    std::vector<std::wstring> languages;  ///< that the update was said to serve
};

// The families of rules, each in a file of its own name. They only add to the report; what they cannot read they report
// as a finding.

void CheckForm(const Subject& subject, Report& report);           ///< FormRules.cpp
void CheckPlaceholders(const Subject& subject, Report& report);   ///< PlaceholderRules.cpp
void CheckRegistry(const Subject& subject, Report& report);       ///< RegistryRules.cpp
void CheckFileRecords(const Subject& subject, Report& report);    ///< FileRules.cpp
void CheckUpdateInfo(const Subject& subject, Report& report);     ///< UpdateInfoRules.cpp
void CheckCommands(const Subject& subject, Report& report);       ///< CommandRules.cpp
void CheckPackages(const Subject& subject, Report& report);       ///< PackageRules.cpp
void CheckManifest(const Subject& subject, Report& report);       ///< ManifestRules.cpp
void CheckConfiguration(const Subject& subject, Report& report);  ///< ConfigRules.cpp
void CheckShortcuts(const Subject& subject, Report& report);      ///< ShortcutRules.cpp
void CheckTexts(const Subject& subject, Report& report);          ///< TextRules.cpp

/// Opens the update that is the verb's first operand. False, with a line of errors, when it cannot be read.
[[nodiscard]] bool OpenUpdate(const Arguments& arguments, Update& update, Output& output);

/// Runs all families.
void LintUpdate(const Subject& subject, Report& report);

/// The verb.
[[nodiscard]] int RunLint(const Arguments& arguments, Output& output);

}  // namespace Check
