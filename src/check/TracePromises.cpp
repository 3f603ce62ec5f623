#include "check/TracePromises.h"

#include "check/JsonText.h"
#include "check/TraceSummary.h"

#include "agent/ComponentFiles.h"
#include "agent/PackageLayout.h"
#include "agent/RunOnce.h"
#include "agent/SettingsFiles.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

#include <algorithm>
#include <iterator>
#include <memory>

using namespace KzCommon;
using namespace PackageLayout;

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
    /// Adds what follows from several lines together.
    void Finish();

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
        if (String::StartsWithNoCase(promise.tstrSource, tstrInstalled))
            promise.tstrSource.erase(0, tstrInstalled.size());
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
    /// "KEY:NAME:DATA" of a value that is written.
    void AddCommand(const std::wstring& tstrValue)
    {
        const std::wstring tstrBegin = kRunOnceKey + std::wstring(L":");
        if (!String::StartsWithNoCase(tstrValue, tstrBegin)) return;
        const std::size_t uData = tstrValue.find(L':', tstrBegin.size());
        if (uData == std::wstring::npos) return;
        m_promises.commands.push_back(
            {tstrValue.substr(tstrBegin.size(), uData - tstrBegin.size()), tstrValue.substr(uData + 1)});
        m_bCommand = true;
    }
    void FailToStore(const std::wstring&)
    {
        if (m_bAfterCommand) m_promises.commands.back().bRegistered = false;
    }
    void EnterStep(const std::wstring& tstrName)
    {
        for (const DeployStep& step : ProgramSteps()) {
            if (tstrName.starts_with(step.name.Get())) m_steps.push_back(&step);
        }
    }
    void AddTag(const std::wstring& tstrTag)
    {
        m_bMerged = true;
        m_carriedOver.push_back(tstrTag);
    }
    void KeepTag(const std::wstring& tstrTag) { std::erase(m_carriedOver, tstrTag); }
    /// "{"Data":{...}}": what the user's file and the defaults do not know is null.
    void TakeSettings(const std::wstring& tstrJson);

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

    FilePromise* Find(const std::wstring& tstrPlace);
    void AddCopies();
    void AddCopiesOf(const CopyRow& row, const BaseFolders& bases);
    void AddLanguageFiles();
    void AddSettings();

    const MachineFolders& m_folders;
    Promises& m_promises;
    bool m_bOnlyMissing = false;
    bool m_bCommand = false;       // the last line that was taken registers a command
    bool m_bAfterCommand = false;  // the one before did
    std::vector<const DeployStep*> m_steps;
    bool m_bMerged = false;
    bool m_bQueried = false;
    std::vector<std::wstring> m_carriedOver;
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
    {L"To write registry key: HKEY_LOCAL_MACHINE:", L"", &RunPromises::AddCommand},
    {L"KzCommon::Storage::Reg::StoreValue() failed.", L"", &RunPromises::FailToStore},
    {L"[Enter] ", L"", &RunPromises::EnterStep},
    {L"*** FrameworkDeployAgent::MergeConfig() - Add tag. [", L"]", &RunPromises::AddTag},
    {L"Query OK: ", L"", &RunPromises::TakeSettings},
    {L"CConfigProvider::Write() - [", L"] has no value of the user's and stays as it is.", &RunPromises::KeepTag},
};

void RunPromises::Take(std::wstring_view tstrMessage)
{
    m_bOnlyMissing = tstrMessage.starts_with(kCheckValue) || (m_bOnlyMissing && !tstrMessage.starts_with(kWriteValue));
    m_bAfterCommand = std::exchange(m_bCommand, false);
    for (const LineRow& row : kLines) {
        if (!tstrMessage.starts_with(row.tstrBegin)) continue;
        tstrMessage.remove_prefix(row.tstrBegin.size());
        if (!tstrMessage.ends_with(row.tstrEnd)) return;
        tstrMessage.remove_suffix(row.tstrEnd.size());
        return (this->*row.pfnTake)(std::wstring(tstrMessage));
    }
}

void RunPromises::TakeSettings(const std::wstring& tstrJson)
{
    m_bQueried = true;
    Json::Value json;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const std::string strText = String::ToUtf8(tstrJson);
    const bool bRead = Storage::Guarded(nullptr, [&] {
        if (!reader->parse(strText.data(), strText.data() + strText.size(), &json, nullptr)) json = Json::Value();
        json = json.isObject() ? json["Data"] : Json::Value();
    });
    // A line that was cut off does not tell which of them the user has.
    std::erase_if(m_carriedOver, [&](const std::wstring& tstrTag) {
        return !bRead || !json.isObject() || json[String::ToUtf8(tstrTag)].isNull();
    });
}

FilePromise* RunPromises::Find(const std::wstring& tstrPlace)
{
    const auto itFile = std::find_if(m_promises.files.begin(), m_promises.files.end(), [&](const FilePromise& file) {
        return String::EqualsNoCase(file.tstrPlace, tstrPlace);
    });
    return itFile == m_promises.files.end() ? nullptr : &*itFile;
}

void RunPromises::Finish()
{
    AddCopies();
    AddLanguageFiles();
    AddSettings();
    const bool bMoved = std::any_of(m_promises.files.begin(), m_promises.files.end(), [](const FilePromise& file) {
        return file.bAtRestart && !file.optContent && !file.optSettings;
    });
    if (bMoved) m_promises.notCovered.emplace_back(L"the content of files that were moved");
}

/// What is copied at once leaves no line, but stays in the download folder.
void RunPromises::AddCopies()
{
    if (!IsRelativeName(m_promises.tstrProduct)) return;
    const std::wstring& tstrInstalled = m_folders.InstalledDir();
    const BaseFolders bases(WindowsMachine(), {.tstrInstallDir = tstrInstalled,
                                               .tstrProductDownloadDir = String::FolderBelow(
                                                   tstrInstalled + L"Component\\", m_promises.tstrProduct),
                                               .tstrProductDownloadPath = m_promises.tstrProduct,
                                               .tstrResourceDownloadDir = {}});
    for (const DeployStep* const pStep : m_steps) {
        for (const CopyRow& row : pStep->rows) {
            if (row.eWhen == When::eNow) AddCopiesOf(row, bases);
        }
    }
}

void RunPromises::AddCopiesOf(const CopyRow& row, const BaseFolders& bases)
{
    const std::wstring tstrSourceDir = bases.FolderOf(row.source);
    const std::wstring tstrDestinationDir = bases.FolderOf(row.destination);
    if (!Storage::Directory::IsExisted(tstrSourceDir)) {
        m_promises.notCovered.push_back(L"what was copied at once to " + tstrDestinationDir);
        return;
    }
    ForEachFileToCopy(WindowsMachine(), tstrSourceDir, L"*.*", tstrDestinationDir, row.eDepth == Depth::eWithSubfolders,
                      [&](const std::wstring& tstrSource, const std::wstring& tstrDestination) {
                          FilePromise promise;
                          promise.tstrPlace = m_folders.PlaceOf(tstrDestination);
                          promise.tstrSource = tstrSource.substr(m_folders.InstalledDir().size());
                          promise.bAtRestart = false;
                          if (!Find(promise.tstrPlace)) m_promises.files.push_back(std::move(promise));
                      });
}

/// The file of the product's language is deployed under its own name as well.
void RunPromises::AddLanguageFiles()
{
    ContentReader reader;
    for (const LanguageFile& file : LanguageFiles()) {
        const std::wstring tstrEnd = std::wstring(L".") + file.szExtension;
        const std::wstring tstrBase = kInstalledDir + std::wstring(file.szBase);
        FilePromise* const pPromise = Find(tstrBase + tstrEnd);
        const FilePromise* const pOwn = Find(tstrBase + L"_" + Frwk::Utility::GetLanguage(WindowsMachine()) + tstrEnd);
        if (!pPromise || !pOwn || !IsRelativeName(pOwn->tstrSource)) continue;
        const std::wstring& tstrInstalled = m_folders.InstalledDir();
        Content content;
        if (reader.Read(tstrInstalled + pOwn->tstrSource, content, nullptr) ||
            reader.Read(tstrInstalled + pOwn->tstrPlace.substr(std::size(kInstalledDir) - 1), content, nullptr)) {
            pPromise->optContent = content;
        }
    }
}

/// A merged file is another one than that of the language.
void RunPromises::AddSettings()
{
    FilePromise* const pPromise = Find(kInstalledDir + std::wstring(L"config.xml"));
    if (!pPromise || !m_bMerged) return;
    if (!m_bQueried) m_carriedOver.clear();  // which of them the user had is not known
    pPromise->optContent.reset();
    pPromise->optSettings = SettingsPromise{{}, m_carriedOver, {}};
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
    wchar_t szTemp[MAX_PATH + 1] = {};
    std::wstring tstrFolder = Process::ExpandEnvironment(ReadSetting(tstrKey, L"LogFolder"));
    if (tstrFolder.empty() && ::GetTempPathW(MAX_PATH + 1, szTemp) <= MAX_PATH) tstrFolder = szTemp;
    if (!String::IsFullPath(tstrFolder)) return;
    tstrFolder = String::EnsureBackslash(tstrFolder);
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
    promises.bOfRun = true;
    RunPromises reader(folders, promises);
    for (const TraceLine& line : run.lines) reader.Take(line.tstrMessage);
    reader.Finish();
    if (EndOf(run) == RunEnd::eCutOff) promises.notCovered.emplace_back(L"what the run did after its last line");
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
    for (const std::wstring& tstrFile : reader.MissingFiles(&*itRun))
        promises.notCovered.push_back(L"what stood in " + tstrFile);
    return promises.Count() > 0;
}

}  // namespace Check
