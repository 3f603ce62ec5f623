#include "check/lint/InstalledRegistry.h"
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
    CheckForm,     CheckPlaceholders, CheckRegistry,      CheckFileRecords, CheckUpdateInfo,
    CheckCommands, CheckLanguages,    CheckConfiguration, CheckShortcuts,   CheckTexts,
};
/// They compare the update as it is named.
constexpr void (*kFamiliesOfNames[])(const LintContext& context, Report& report) = {CheckPackages, CheckManifest};

}  // namespace

void LintUpdate(const LintContext& context, Report& report)
{
    const Update meant = AsMeant(context.update);
    for (const auto pfnFamily : kFamilies) pfnFamily({meant, context.instructions, context.languages}, report);
    for (const auto pfnFamily : kFamiliesOfNames) pfnFamily(context, report);
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
    if (update.InstalledFolder() && !InstalledRegistry(update).IsKnown()) {
        output.tstrErrors += *update.InstalledFolder() / L"registry.reg" +
                             L": missing; the registry of the installed product is not known, and nothing is compared "
                             L"with it\n";
    }
    output.strText = arguments.eFormat == Format::eSarif
                         ? FormatSarif(report, update.Root(), instructions)
                         : String::ToUtf8(WithHostPaths(FormatText(report, update.GivenFolder())));
    const bool bFound =
        report.Count(Severity::eError) > 0 || (arguments.bStrict && report.Count(Severity::eWarning) > 0);
    return bFound ? kFound : kClean;
}

}  // namespace Check
