#include "check/lint/Lint.h"
#include "check/update/HostPaths.h"
#include "check/update/OpenUpdate.h"

#include "check/lint/Suppressions.h"
#include "check/update/ErrorText.h"

#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace Check {

namespace {

constexpr void (*kFamilies[])(const LintContext& context, Report& report) = {
    CheckForm,     CheckPlaceholders, CheckRegistry, CheckFileRecords,   CheckUpdateInfo, CheckCommands,
    CheckPackages, CheckLanguages,    CheckManifest, CheckConfiguration, CheckShortcuts,  CheckTexts,
};

}  // namespace

void LintUpdate(const LintContext& context, Report& report)
{
    for (const auto pfnFamily : kFamilies) pfnFamily(context, report);
    RemoveSuppressed(context.instructions, report);
}

int RunLint(const Arguments& arguments, Output& output)
{
    Update update;
    if (!OpenUpdate(arguments, update, output)) return kCannotRead;
    DWORD dwError = ERROR_SUCCESS;
    IniScan instructions;
    if (!instructions.Read(update.FullPath(kInstructionFile), &dwError) && dwError != ERROR_FILE_NOT_FOUND) {
        return CannotRead(update.FullPath(kInstructionFile), dwError, output);
    }
    Report report;
    LintUpdate({update, instructions, arguments.languages}, report);
    output.strText = arguments.eFormat == Format::eSarif
                         ? FormatSarif(report, update.Root(), instructions)
                         : String::ToUtf8(WithHostPaths(FormatText(report, update.GivenFolder())));
    const bool bFound =
        report.Count(Severity::eError) > 0 || (arguments.bStrict && report.Count(Severity::eWarning) > 0);
    return bFound ? kFound : kClean;
}

}  // namespace Check
