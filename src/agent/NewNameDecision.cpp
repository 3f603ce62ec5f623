#include "agent/NewNameDecision.h"

#include "agent/RunOnce.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "common/L10nReader.h"

using namespace KzCommon;

namespace {

// The build number is taken by its place in the version ("3.8.0.1099"), never by its dots.
constexpr std::size_t kBuildStart = 6;
constexpr std::size_t kBuildLength = 4;
const wchar_t kFirstBuildWithNewName[] = L"1100";

}  // namespace

bool CheckIfNewProdNameApplied()
{
    Trace(kTraceStep, L"CheckIfNewProdNameApplied()");
    const std::wstring tstrMarker = Frwk::Utility::GetStrFromHKLM_KZVLT(kMarkerName, L"");
    Trace(kTraceInfo, L"val = %s", tstrMarker.c_str());
    if (tstrMarker == kMarkerData) {
        Trace(kTraceInfo, L"     == {8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}   --> New Brand applied");
        return true;
    }
    Trace(kTraceInfo, L"     != {8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}   --> New Brand NOT YET applied");
    return false;
}

NewNameNeed JudgeNewName(const std::wstring& tstrLanguage, const std::wstring& tstrVersion, std::wstring& tstrBuild)
{
    // Only the lower-case tag stands for an installation that keeps its name.
    if (tstrLanguage == L"ja-jp") return NewNameNeed::eJapanese;
    if (tstrVersion.size() < kBuildStart + kBuildLength) return NewNameNeed::eVersionInvalid;
    tstrBuild = tstrVersion.substr(kBuildStart, kBuildLength);
    return tstrBuild < kFirstBuildWithNewName ? NewNameNeed::eDue : NewNameNeed::eNewEnough;
}

bool NeedToApplyNewName()
{
    Trace(kTraceStep, L"NeedToApplyNewName()");
    const std::wstring tstrLanguage = Frwk::Utility::GetStrFromHKLM_KZVLT(L"Language", L"");
    Trace(kTraceInfo, L"Installed language=%s (No need to apply this change if language==JA-JP)", tstrLanguage.c_str());
    const std::wstring tstrVersion = Frwk::Utility::GetStrFromHKLM_KZVLT(L"Version", L"");
    std::wstring tstrBuild;
    const NewNameNeed eNeed = JudgeNewName(tstrLanguage, tstrVersion, tstrBuild);
    if (eNeed == NewNameNeed::eJapanese) {
        Trace(kTraceInfo, L"No need to change product name for Japanese version.");
        return false;
    }
    Trace(kTraceInfo, L"Installed product version = %s", tstrVersion.c_str());
    if (eNeed == NewNameNeed::eVersionInvalid) {
        Trace(kTraceError, L"Product version key is invalid. Do not apply new name.");
        return false;
    }
    Trace(kTraceInfo, L"Build# = %s", tstrBuild.c_str());
    if (eNeed == NewNameNeed::eDue) {
        Trace(kTraceInfo, L"Need to apply new brand");
        return true;
    }
    Trace(kTraceInfo, L"NO need to apply new brand");
    return false;
}

bool CanScheduleNewName()
{
    if (String::IsFullPath(Frwk::Utility::GetInstalledFolder())) return true;
    Trace(kTraceError, L"*** CanScheduleNewName() - the install folder is not known, the new name is not scheduled.");
    return false;
}

void TagNewProdNameApplied()
{
    Trace(kTraceStep, L"TagNewProdNameApplied(), write registry %s to be %s", kMarkerName, kMarkerData);
    Frwk::Utility::WriteToRegHKLM_KZVLT(kMarkerName, kMarkerData);
}

void PreparePostUdActionForNewName()
{
    Trace(kTraceStep, L"PreparePostUdActionForNewName()");
    const std::wstring tstrSource = Frwk::Utility::InstalledFile(kShortcutFile);
    const std::wstring tstrDestination = Frwk::Utility::InstalledFile(kShortcutBackupFile);
    Trace(kTraceInfo, L"Backup file -- (sDstPath=%s, sSrcPath=%s", tstrDestination.c_str(), tstrSource.c_str());
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::File::Copy(tstrDestination, tstrSource, true, &dwError)) {
        Trace(kTraceError, L"Failed to backup old shortcut configuration. Error code = %d", dwError);
    }
    Trace(kTraceInfo, L"Prepare RunOnce key for after-reboot actions: {InstalledDir}Brevant.exe /ApplyNewName");
    RegisterSysRunOnce(PathValues(), kNewNameCommand);
}

bool NeedToInformUser()
{
    Trace(kTraceStep, L"NeedToInformUser()");
    std::wstring tstrProductName;
    Trace(kTraceInfo, L"Read StringTable.ini...");
    CL10nReader reader;
    if (reader.ParseL10nFile(L"EN-US", L"")) {
        const wchar_t* szName = reader.GetString(L"S_STR_PRODUCT_NAME");
        if (szName) tstrProductName = szName;
    }
    Trace(kTraceInfo, L"tsProductName=='%s'", tstrProductName.c_str());
    return tstrProductName != kNewProductName;
}
