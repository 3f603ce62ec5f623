#include "check/TracePromises.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::wstring_view kDeployment = L"Paramter is /DeployFramework";
constexpr std::wstring_view kCheckValue = L"To check if registry key exists: ";
constexpr std::wstring_view kWriteValue = L"To write registry key: ";
constexpr std::wstring_view kDestinationPart = L", dst:";

/// What one run promises, line by line.
class RunPromises {
public:
    RunPromises(const MachineFolders& folders, Promises& promises) : m_folders(folders), m_promises(promises) {}

    void Take(std::wstring_view tstrMessage);

private:
    struct LineRow {
        std::wstring_view tstrBegin;
        std::wstring_view tstrEnd;
        void (RunPromises::*pfnTake)(const std::wstring& tstrRecord);
    };
    static const LineRow kLines[];

    void AddMove(const std::wstring& tstrPaths)
    {
        const std::size_t uPart = tstrPaths.rfind(kDestinationPart);
        if (uPart == std::wstring::npos) return;
        FilePromise promise;
        promise.tstrSource = tstrPaths.substr(0, uPart);
        promise.tstrPlace = m_folders.PlaceOf(tstrPaths.substr(uPart + kDestinationPart.size()));
        const std::wstring& tstrInstalled = m_folders.InstalledDir();
        const std::wstring_view tstrBegin = std::wstring_view(promise.tstrSource).substr(0, tstrInstalled.size());
        if (String::EqualsNoCase(tstrBegin, tstrInstalled)) promise.tstrSource.erase(0, tstrInstalled.size());
        std::erase_if(m_promises.files, [&](const FilePromise& earlier) {
            return String::EqualsNoCase(earlier.tstrPlace, promise.tstrPlace);
        });
        m_promises.files.push_back(std::move(promise));
    }

    void AddValue(const std::wstring& tstrRecord)
    {
        PromiseValue(m_promises.registry, ParseRegistryRecord(tstrRecord), m_bOnlyMissing);
    }
    void RemoveValue(const std::wstring& tstrRecord)
    {
        PromiseNoValue(m_promises.registry, ParseRegistryRecord(tstrRecord));
    }
    void AddIniValue(const std::wstring& tstrRecord)
    {
        PromiseIniValue(m_promises.updateInfo, ParseIniRecord(tstrRecord));
        PromiseIniValue(m_promises.updateInfo, DeployedVersion());
    }
    void AddFolder(const std::wstring& tstrRecord) { m_promises.folders.push_back(tstrRecord); }
    void RemoveFolder(const std::wstring& tstrRecord) { m_promises.deletions.push_back({tstrRecord, true, true}); }
    void RemoveFiles(const std::wstring& tstrRecord) { m_promises.deletions.push_back({tstrRecord, false, true}); }
    void RemoveFilesNow(const std::wstring& tstrRecord) { m_promises.deletions.push_back({tstrRecord, false, false}); }
    void SetProduct(const std::wstring& tstrFolder)
    {
        const std::wstring tstrComponents = String::FolderBelow(m_folders.InstalledDir(), L"Component");
        if (tstrFolder.size() <= tstrComponents.size()) return;
        m_promises.tstrProduct = tstrFolder.substr(tstrComponents.size());
        if (m_promises.tstrProduct.ends_with(L'\\')) m_promises.tstrProduct.pop_back();
    }

    const MachineFolders& m_folders;
    Promises& m_promises;
    bool m_bOnlyMissing = false;
};

const RunPromises::LineRow RunPromises::kLines[] = {
    {L"src: ", L"", &RunPromises::AddMove},
    {L"*** FrameworkDeployAgent::PatchRegistry() - add: [", L"]", &RunPromises::AddValue},
    {L"*** FrameworkDeployAgent::PatchRegistry() - delete: [", L"]", &RunPromises::RemoveValue},
    {L"*** FrameworkDeployAgent::ModifyUpdateInfo(", L") ", &RunPromises::AddIniValue},
    {L"*** FrameworkDeployAgent::CreateDirBeforeReboot() - to add: [", L"]", &RunPromises::AddFolder},
    {L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - to delete folder: [", L"]", &RunPromises::RemoveFolder},
    {L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - to delete file: [", L"]", &RunPromises::RemoveFiles},
    {L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - deleting file: [", L"]", &RunPromises::RemoveFilesNow},
    {L"FrameworkDeployAgent::DoPreAction: tsUdidProduct=", L"", &RunPromises::SetProduct},
};

void RunPromises::Take(std::wstring_view tstrMessage)
{
    m_bOnlyMissing = tstrMessage.starts_with(kCheckValue) || (m_bOnlyMissing && !tstrMessage.starts_with(kWriteValue));
    for (const LineRow& row : kLines) {
        if (!tstrMessage.starts_with(row.tstrBegin)) continue;
        tstrMessage.remove_prefix(row.tstrBegin.size());
        if (!tstrMessage.ends_with(row.tstrEnd)) return;
        tstrMessage.remove_suffix(row.tstrEnd.size());
        return (this->*row.pfnTake)(std::wstring(tstrMessage));
    }
}

/// A text of one session kind's trace settings; empty when missing.
std::wstring ReadSetting(const std::wstring& tstrKey, const wchar_t* szName)
{
    std::wstring tstrText;
    static_cast<void>(Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, tstrKey, szName, tstrText,
                                              Frwk::Utility::ProductRegistryView(), nullptr));
    return tstrText;
}

/// Adds the trace files of a session kind.
void AddTraces(const wchar_t* szSession, TraceReader& reader)
{
    const std::wstring tstrKey = std::wstring(Frwk::Utility::kProductKey) + L"\\1\\DebugLog\\" + szSession;
    const std::wstring tstrConfigured = ReadSetting(tstrKey, L"LogFolder");
    wchar_t szFolder[MAX_PATH] = {};
    const DWORD cch = tstrConfigured.empty() ? ::GetTempPathW(MAX_PATH, szFolder)
                                             : ::ExpandEnvironmentStringsW(tstrConfigured.c_str(), szFolder, MAX_PATH);
    if (cch == 0 || cch > MAX_PATH || !String::IsFullPath(szFolder)) return;
    const std::wstring tstrFolder = String::EnsureBackslash(szFolder);
    std::vector<std::wstring> files;
    static_cast<void>(Storage::Directory::ForEachEntry(
        tstrFolder, ReadSetting(tstrKey, L"LogPrefix") + L"_*",
        [&](const Storage::Directory::Entry& entry) {
            if (!entry.bFolder && !entry.bLink) files.push_back(tstrFolder + entry.tstrName);
        },
        nullptr));
    for (const std::wstring& tstrFile : files) static_cast<void>(reader.Add(tstrFile, nullptr));
}

}  // namespace

Promises PromisesOf(const TraceRun& run, const MachineFolders& folders)
{
    Promises promises;
    RunPromises reader(folders, promises);
    for (const TraceLine& line : run.lines) reader.Take(line.tstrMessage);
    return promises;
}

bool PromisesOfNewestRun(const MachineFolders& folders, Promises& promises, std::wstring& tstrTime)
{
    TraceReader reader;
    for (const wchar_t* const szSession : {L"ServiceSession", L"InteractiveSession"}) AddTraces(szSession, reader);
    const std::vector<TraceRun> runs = reader.Runs();
    const auto itRun = std::find_if(runs.rbegin(), runs.rend(), [](const TraceRun& run) {
        return std::any_of(run.lines.begin(), run.lines.end(),
                           [](const TraceLine& line) { return line.tstrMessage == kDeployment; });
    });
    if (itRun == runs.rend()) return false;
    promises = PromisesOf(*itRun, folders);
    tstrTime = itRun->lines.front().tstrTime;
    return promises.Count() > 0;
}

}  // namespace Check
