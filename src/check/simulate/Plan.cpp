#include "check/simulate/Plan.h"

#include "check/simulate/PlanMachine.h"
#include "check/simulate/PlanReport.h"
#include "check/update/ErrorText.h"
#include "check/update/HostPaths.h"
#include "check/update/OpenUpdate.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

using namespace KzCommon;

namespace Check {

namespace {

/// Whether an INI file of the run is missing or readable.
bool IsReadable(const std::wstring& tstrPath, DWORD& dwError)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const UniqueFile file(::CreateFileW(tstrPath.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    dwError = file ? ERROR_SUCCESS : ::GetLastError();
    return file || dwError == ERROR_FILE_NOT_FOUND;
}

/// The folder of the installed product.
Folder InstalledFolder(const Machine& machine, const Update& update, bool bGiven)
{
    const Folder folder = bGiven ? Folder() : Folder(Frwk::Utility::GetInstalledFolder(machine));
    return folder.IsKnown() ? folder : update.InstalledFolder().value_or(Folder());
}

/// Whether a folder is the one that this machine's registry names. A folder that the caller gives may instead describe
/// the product's registry key itself.
bool IsRegistered(const Machine& machine, const Folder& installed, bool bGiven)
{
    return (bGiven && machine.HasFile(installed / kRegistryFile)) ||
           String::EqualsNoCase(Folder(Frwk::Utility::GetInstalledFolder(machine)).Text(), installed.Text());
}

}  // namespace

Plan MakePlan(const Update& update, const Folder& installedDir, const PlanOptions& options)
{
    const WindowsMachine machine;
    PlannedRun run = PlanRun(machine, {update.Root(), installedDir, options.bInstalledGiven, options.tstrLanguage},
                             &RunAgent, options.bTrace);
    return {
        update.Root(),           installedDir, std::move(run.steps), std::move(run.lost), std::move(run.unknownLines),
        std::move(run.tstrTrace)};
}

bool OpenPlan(const Arguments& arguments, Update& update, Plan& plan, Output& output)
{
    if (!OpenUpdate(arguments, update, output)) return false;
    const WindowsMachine machine;
    const bool bGiven = arguments.optInstalled.has_value();
    const Folder installed = InstalledFolder(machine, update, bGiven);
    if (!machine.HasFolder(installed)) {
        output.tstrErrors +=
            (installed.IsKnown() ? installed / L": no such folder" : L"no product is installed on this machine") +
            L"; --installed DIR names the product's folder\n";
        return false;
    }
    for (const wchar_t* szName : {kInstructionFile, kUpdateInfoFile}) {
        DWORD dwError = ERROR_SUCCESS;
        const std::wstring tstrLaid = update.Root() / szName;
        const std::wstring tstrPath = machine.HasAny(tstrLaid) ? tstrLaid : installed / szName;
        if (IsReadable(tstrPath, dwError)) continue;
        static_cast<void>(CannotRead(tstrPath, dwError, output));
        return false;
    }
    plan = MakePlan(update, installed,
                    {.bInstalledGiven = bGiven,
                     .bTrace = arguments.bTrace,
                     .tstrLanguage = arguments.languages.empty() ? L"" : arguments.languages.front()});
    plan.bRegistered = IsRegistered(machine, installed, bGiven);
    if (bGiven && !plan.bRegistered) {
        output.tstrErrors += installed / kRegistryFile +
                             L": missing; language, version and all else that the product's registry key holds count "
                             L"as not set\n";
    }
    for (const std::size_t uLine : plan.unknownLines) {
        output.tstrErrors += installed / L"registry.reg:" + std::to_wstring(uLine) + L": ignored, not known\n";
    }
    return true;
}

int RunPlan(const Arguments& arguments, Output& output)
{
    if (arguments.languages.size() > 1) {
        output.tstrErrors += L"--language: an installed product has one language\n";
        return kWrongUse;
    }
    Update update;
    Plan plan;
    if (!OpenPlan(arguments, update, plan, output)) return kCannotRead;
    output.strText = arguments.bTrace                     ? String::ToUtf8(WithHostPaths(plan.tstrTrace))
                     : arguments.eFormat == Format::eJson ? FormatPlanJson(plan)
                                                          : String::ToUtf8(WithHostPaths(FormatPlanText(plan)));
    return kClean;
}

}  // namespace Check
