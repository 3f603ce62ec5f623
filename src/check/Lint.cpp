#include "check/Lint.h"

#include "check/simulate/ErrorText.h"
#include "check/Intended.h"

#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace Check {

namespace {

constexpr void (*kFamilies[])(const Subject& subject, Report& report) = {
    CheckForm,     CheckPlaceholders, CheckRegistry,      CheckFileRecords, CheckUpdateInfo, CheckCommands,
    CheckPackages, CheckManifest,     CheckConfiguration, CheckShortcuts,   CheckTexts,
};

int CannotRead(const std::wstring& tstrPath, DWORD dwError, Output& output)
{
    output.tstrErrors += tstrPath + L": cannot be read: " + DescribeError(dwError) + L"\n";
    return kCannotRead;
}

}  // namespace

void LintUpdate(const Subject& subject, Report& report)
{
    for (const auto pfnFamily : kFamilies) pfnFamily(subject, report);
    RemoveIntended(subject.instructions, report);
}

bool OpenUpdate(const Arguments& arguments, Update& update, Output& output)
{
    const std::wstring& tstrFolder = arguments.operands.front();
    DWORD dwError = ERROR_SUCCESS;
    if (update.Open(tstrFolder, arguments.optInstalled, &dwError)) return true;
    if (dwError == ERROR_FILE_NOT_FOUND) {
        output.tstrErrors += tstrFolder + L": no update: neither QorPaFrwk.ini nor Component\\ is in it\n";
    } else {
        const bool bInstalled = arguments.optInstalled && Storage::Directory::IsExisted(update.Folder());
        static_cast<void>(CannotRead(bInstalled ? *arguments.optInstalled : tstrFolder, dwError, output));
    }
    return false;
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
    output.strText = arguments.eFormat == Format::eSarif ? FormatSarif(report, update.Folder())
                                                         : String::ToUtf8(FormatText(report, update.GivenFolder()));
    const bool bFound =
        report.Count(Severity::eError) > 0 || (arguments.bStrict && report.Count(Severity::eWarning) > 0);
    return bFound ? kFound : kClean;
}

}  // namespace Check
