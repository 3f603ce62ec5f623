#include "check/Plan.h"

#include "check/ErrorWords.h"
#include "check/Lint.h"
#include "check/PlanReport.h"
#include "check/PlanSteps.h"

#include "agent/DeploymentLock.h"
#include "agent/SettingsFiles.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace Check {

PlanStep& PlanWork::Begin(std::wstring tstrName)
{
    PlanStep& step = plan.steps.emplace_back();
    step.tstrName = std::move(tstrName);
    return step;
}

bool PlanWork::Read(const Section& section, SectionRecords& records, std::wstring_view tstrLanguage)
{
    const std::wstring tstrName = section.szName + std::wstring(tstrLanguage);
    DWORD dwError = ERROR_SUCCESS;
    const bool bOk = Storage::Guarded(&dwError, [&] {
        Storage::IniFile instructions;
        instructions.Open(forecast.PlaceNow(paths.InstallDir() + kInstructionFile));
        static_cast<void>(ReadSectionRecords(instructions, tstrName, records));
    });
    std::wstring& tstrReason = plan.steps.back().tstrReason;
    if (!bOk) {
        tstrReason = L"there is no section [" + tstrName + L"] with a record";
    } else if (records.empty()) {
        tstrReason = L"the section [" + tstrName + L"] has no record, or more than 32766 characters";
    }
    return bOk;
}

std::wstring PlanWork::Expand(std::wstring tstrText) const
{
    // Most texts have none, and looking up the install folder takes longer than the rest of a record.
    if (tstrText.find(L'{') == std::wstring::npos) return tstrText;
    // A record may have given the installed product another folder.
    std::wstring tstrInstalledDir = paths.InstallDir();
    const std::wstring tstrNow = Frwk::Utility::GetStrFromHKLM_KZVLT(L"ProductPath", L"");
    const std::wstring tstrThen = forecast.ProductText(L"ProductPath", L"");
    if (tstrThen != tstrNow) tstrInstalledDir = String::EnsureBackslash(tstrThen);
    paths.ExpandPlaceholders(tstrText, tstrInstalledDir);
    return tstrText;
}

namespace {

/// An operation's name without its class.
std::wstring NameOf(const PackageLayout::DeployStep& step)
{
    std::wstring tstrName = step.name.Get();
    tstrName.erase(0, tstrName.rfind(L':') + 1);
    return tstrName.substr(0, tstrName.find(L'('));
}

/// The records of a section that are carried out one by one. Those of the others their readers take as a whole.
void PlanRecords(PlanWork& work, const Section& section, const SectionRecords& records)
{
    ForEachRecord(section, records, [&](const SectionKey& key, const std::wstring& tstrRecord) {
        const FileOp eFileOp = FileOpOf(key.eEffect);
        const RegOp eRegOp = RegOpOf(key.eEffect);
        if (eFileOp != op_not_used) PlanFileRecord(work, eFileOp, tstrRecord);
        if (eRegOp != op_no_reg) PlanRegistryRecord(work, eRegOp, tstrRecord);
    });
}

void PlanSection(PlanWork& work, const Section& section)
{
    work.Begin(section.szReader);
    SectionRecords records;
    if (work.Read(section, records)) PlanRecords(work, section, records);
}

/// Nothing is removed unless both sections can be read.
void PlanDeletions(PlanWork& work)
{
    constexpr const Section& kFolders = SectionOf(L"QOR_DIR", L"RemoveFileAfterReboot");
    constexpr const Section& kFiles = SectionOf(L"QOR_FILE", L"RemoveFileAfterReboot");
    work.Begin(kFolders.szReader);
    SectionRecords folders;
    SectionRecords files;
    if (!work.Read(kFolders, folders) || !work.Read(kFiles, files)) return;
    PlanRecords(work, kFolders, folders);
    PlanRecords(work, kFiles, files);
}

/// What the settings step does before its copies. False when there are none.
bool PlanSettings(PlanWork& work)
{
    PlanSection(work, SectionOf(L"QOR_REGISTRY_PATCH", L"PatchRegistry"));
    const std::wstring tstrSettingDir = work.update.Folder() + work.update.SettingFolder();
    if (!Storage::Directory::IsExisted(tstrSettingDir)) {
        work.Begin(L"DeploySettings").tstrReason = L"there is no folder " + tstrSettingDir;
        return false;
    }
    if (Storage::Directory::IsLink(tstrSettingDir)) return true;
    work.Begin(L"SelectLanguageFile");
    for (const LanguageFile& file : LanguageFiles()) {
        const std::wstring tstrEnd = L"." + std::wstring(file.szExtension);
        const std::wstring tstrSource = tstrSettingDir + file.szBase + L"_" + work.Language() + tstrEnd;
        const std::wstring tstrTarget = work.forecast.PlaceThen(tstrSettingDir) + file.szBase + tstrEnd;
        static_cast<void>(PlanCopy(work, Action::eCopy, tstrSource, tstrTarget, true));
    }
    PlanMerge(work, tstrSettingDir);
    PlanUpdateInfo(work, tstrSettingDir);
    return true;
}

void PlanPackages(PlanWork& work)
{
    const Package& product = work.update.Product();
    const Package& resource = work.update.Resource();
    const PackageLayout::BaseFolders bases({.tstrInstallDir = work.paths.InstallDir(),
                                            .tstrProductDownloadDir = product.tstrFolder,
                                            .tstrProductDownloadPath = product.tstrDownloadPath,
                                            .tstrResourceDownloadDir = resource.tstrFolder});
    if (!product.bThere) work.Begin(L"DeployProgramPackage").tstrReason = L"there is no folder " + product.tstrFolder;
    for (const PackageLayout::DeployStep& step : PackageLayout::ProgramSteps()) {
        if (!product.bThere || (step.bPreparesSettings && !PlanSettings(work))) continue;
        work.Begin(NameOf(step));
        PlanCopies(work, step, bases);
    }
    PlanStep& step = work.Begin(NameOf(PackageLayout::ResourceStep()));
    if (resource.bThere) {
        PlanCopies(work, PackageLayout::ResourceStep(), bases);
    } else {
        step.tstrReason = L"there is no folder " + resource.tstrFolder;
    }
}

void PlanFlags(PlanWork& work)
{
    work.Begin(L"WriteProgramDeployFlag");
    PlanValue(work, Frwk::Utility::kProductKey, L"DoUpdateDeploy", {REG_DWORD, L"1"});
    PlanValue(work, Frwk::Utility::kProductKey, L"FrwkDeployTick",
              {REG_DWORD, L"(milliseconds since Windows started)"});
}

/// Whether an INI file that the run reads is missing or can be read.
bool IsReadable(const std::wstring& tstrPath, DWORD& dwError)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const UniqueFile file(::CreateFileW(tstrPath.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    dwError = file ? ERROR_SUCCESS : ::GetLastError();
    return file || dwError == ERROR_FILE_NOT_FOUND;
}

int CannotRead(const std::wstring& tstrPath, DWORD dwError, Output& output)
{
    output.tstrErrors += tstrPath + L": cannot be read: " + WordsOf(dwError) + L"\n";
    return kCannotRead;
}

/// The folder of the installed product, with trailing backslash; empty when there is none.
std::wstring InstalledFolder(const Update& update, bool bGiven)
{
    const std::wstring tstrFolder = bGiven ? std::wstring() : Frwk::Utility::GetInstalledFolder();
    return tstrFolder.empty() ? update.InstalledFolder().value_or(std::wstring()) : tstrFolder;
}

}  // namespace

Plan MakePlan(const Update& update, const std::wstring& tstrInstalledDir)
{
    PlanWork work{update, Forecast(update.Folder(), tstrInstalledDir), {}, {update.Folder(), tstrInstalledDir, {}}};
    work.paths.ReadLogFolders();
    work.paths.TakeProductFolders(tstrInstalledDir, update.Product().tstrDownloadPath);
    work.paths.KeepFile(DeploymentLock::FileIn(tstrInstalledDir));
    PlanSection(work, SectionOf(L"QOR_DIR", L"CreateDirBeforeReboot"));
    PlanPackages(work);
    PlanDeletions(work);
    PlanCommands(work);
    PlanFlags(work);
    PlanNewName(work);
    NoteSameTargets(work);
    return std::move(work.plan);
}

int RunPlan(const Arguments& arguments, Output& output)
{
    Update update;
    if (!OpenUpdate(arguments, update, output)) return kCannotRead;
    const std::wstring tstrInstalled = InstalledFolder(update, arguments.optInstalled.has_value());
    if (!Storage::Directory::IsExisted(tstrInstalled)) {
        output.tstrErrors +=
            (tstrInstalled.empty() ? L"no product is installed on this machine" : tstrInstalled + L": no such folder") +
            L"; --installed DIR names the product's folder\n";
        return kCannotRead;
    }
    const Forecast now(update.Folder(), tstrInstalled);
    for (const wchar_t* szName : {kInstructionFile, kUpdateInfoFile}) {
        const std::wstring tstrPath = now.PlaceNow(tstrInstalled + szName);
        DWORD dwError = ERROR_SUCCESS;
        if (!IsReadable(tstrPath, dwError)) return CannotRead(tstrPath, dwError, output);
    }
    const Plan plan = MakePlan(update, tstrInstalled);
    output.strText = arguments.eFormat == Format::eJson ? FormatPlanJson(plan) : String::ToUtf8(FormatPlanText(plan));
    return kClean;
}

}  // namespace Check
