#include "agent/ConfigMerge.h"

#include "agent/Sections.h"
#include "agent/SettingsFiles.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Exception.h"
#include "common/KzComn_String.h"
#include "config/ConfigProvider.h"

#include <json/writer.h>

using namespace KzCommon;

namespace {

/// Owns a configuration provider and uninitialises it on every path.
class ProviderSession {
public:
    explicit ProviderSession(Machine& machine) : m_provider(machine) {}
    ProviderSession(const ProviderSession&) = delete;
    ProviderSession& operator=(const ProviderSession&) = delete;
    ~ProviderSession() { m_provider.Uninitialize(); }

    /// Traces both kinds of failure under the name of the first step.
    [[nodiscard]] bool Start(Machine& machine)
    {
        if (m_provider.PreInitialize() != 0) {
            machine.ExplainNothing(L"the install folder is unknown");
            Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - CConfigProvider::PreInitialize() failed.");
            return false;
        }
        if (m_provider.Initialize() != 0) {
            machine.ExplainNothing(L"the encryption of settings cannot be used");
            Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - CConfigProvider::PreInitialize() failed.");
            return false;
        }
        return true;
    }

    [[nodiscard]] DWORD Send(DWORD dwMessage, Json::Value& request)
    {
        return m_provider.MessageProc(dwMessage, request);
    }
    [[nodiscard]] const std::vector<Change>& Changes() const noexcept { return m_provider.Changes(); }

private:
    CConfigProvider m_provider;
};

std::wstring ToTraceText(const Json::Value& json)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    std::wstring tstrText;
    static_cast<void>(String::FromUtf8(Json::writeString(builder, json), tstrText));
    return tstrText;
}

/// Adds the tags to migrate to `data`, each with an empty value. False when there is no tag or one is not a record.
bool CollectTags(Machine& machine, const Section& section, const SectionRecords& records, Json::Value& data)
{
    bool bAll = true;
    ForEachRecord(section, records, [&](const SectionKey& key, const std::wstring& tstrTag) {
        if (!IsRecordLengthValid(tstrTag)) {
            Trace(kTraceError, L"MergeConfig(tszData==empty || tszData.size()>1023)");
            Change change{.eAction = Action::eCarryOver, .eOutcome = Outcome::eFail};
            change.tstrName = tstrTag;
            change.tstrReason = kRecordTooLong;
            machine.Report(change);
            bAll = false;
            return;
        }
        data[String::ToUtf8(tstrTag)] = "";
        TraceRecord(key, tstrTag);
    });
    return bAll && !data.empty();
}

/// Sets the file of a request.
void SetFile(Json::Value& request, const std::wstring& tstrFile)
{
    const std::wstring tstrFolder = String::FolderPart(tstrFile);
    request["FilePath"] = String::ToUtf8(tstrFolder);
    request["FileName"] = String::ToUtf8(tstrFile.substr(tstrFolder.size()));
}

/// Makes a read-only file replaceable.
void MakeWritable(Machine& machine, const std::wstring& tstrFile)
{
    DWORD dwError = ERROR_SUCCESS;
    if (machine.MakeWritable(tstrFile, &dwError)) return;
    Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - [%s] stays read-only. [0x%08x]", tstrFile.c_str(),
          dwError);
}

/// Migrates the user's values. False unless all of them are written.
bool CarryOver(Machine& machine, const ConfigTarget& target)
{
    ProviderSession provider(machine);
    if (!provider.Start(machine)) return false;

    constexpr const Section& kSection = SectionOf(L"QOR_CONFIG_MERGE", L"MergeConfig");
    SectionRecords records;
    if (!ReadSection(machine, kSection, records)) return false;

    Json::Value request(Json::objectValue);
    request["Data"] = Json::Value(Json::objectValue);
    const bool bCollected = CollectTags(machine, kSection, records, request["Data"]);
    const DWORD dwQueried = provider.Send(CConfigProvider::kQuery, request);
    if (Config::IsFailure(dwQueried)) {
        Trace(kTraceError, L"Fail to get the product config, error code: 0x%8x", dwQueried);
    } else {
        Trace(kTraceInfo, L"Query OK: %s", ToTraceText(request).c_str());
    }

    // Write even after a failed query: the provider then writes only the values that it found.
    SetFile(request, target.tstrWritten);
    MakeWritable(machine, target.tstrWritten);
    const DWORD dwWritten = provider.Send(CConfigProvider::kWrite, request);
    SetFile(request, target.tstrPath);
    for (Change change : provider.Changes()) {
        change.tstrTarget = target.tstrPath;
        machine.Report(change);
    }
    if (Config::IsFailure(dwWritten)) {
        Trace(kTraceError, L"Fail to write the product config, error code: 0x%8x", dwWritten);
    } else {
        Trace(kTraceInfo, L"Write OK: %s", ToTraceText(request).c_str());
    }
    return bCollected && !Config::IsFailure(dwQueried) && !Config::IsFailure(dwWritten);
}

/// Keeps the user's file under another name before an update's file without all of its values replaces it. Returns that
/// name, or an empty text when the file cannot be kept.
std::wstring KeepUnderAnotherName(Machine& machine, const std::wstring& tstrFile)
{
    std::wstring tstrKept = KeptFileFor(machine, tstrFile);
    DWORD dwError = ERROR_SUCCESS;
    // A hard link needs no space and no read access, so it works on a full drive and for a file in use. It keeps the
    // content when another file takes the first name.
    if (machine.BackUp(tstrKept, tstrFile, &dwError) || machine.LinkTo(tstrKept, tstrFile, &dwError) ||
        IsKeptIn(machine, tstrKept, tstrFile)) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - the user's settings are kept in [%s].",
              tstrKept.c_str());
        return tstrKept;
    }
    Trace(kTraceError,
          L"*** FrameworkDeployAgent::MergeConfig() - the user's settings cannot be kept in [%s]. [0x%08x]",
          tstrKept.c_str(), dwError);
    return {};
}

}  // namespace

bool MergeConfig(RunContext& run, const ConfigTarget& target)
{
    const OperationTrace trace(L"FrameworkDeployAgent::MergeConfig()", String::FolderPart(target.tstrPath));
    run.machine.BeginOperation(L"MergeConfig");
    bool bCarriedOver = false;
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Guarded(&dwError, [&] { bCarriedOver = CarryOver(run.machine, target); })) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() failed. [0x%08x]", dwError);
        run.machine.ExplainNothing(L"it failed with error " + std::to_wstring(dwError));
    }
    if (!bCarriedOver) KeepUsersFile(run, target);
    return bCarriedOver;
}

void KeepUsersFile(RunContext& run, const ConfigTarget& target)
{
    Machine& machine = run.machine;
    const std::wstring tstrFile = Frwk::Utility::InstalledFile(machine, L"config.xml");
    const bool bReplaced = machine.HasFile(target.tstrPath) || machine.HasFile(target.tstrWritten);
    if (!bReplaced || !machine.HasFile(tstrFile)) return;
    std::wstring tstrKept = KeepUnderAnotherName(machine, tstrFile);
    if (!tstrKept.empty()) run.paths.KeepFile(std::move(tstrKept));
}

void DropKeptFiles(Machine& machine)
{
    for (const std::wstring& tstrKept : KeptFilesLike(machine, Frwk::Utility::InstalledFile(machine, L"config.xml"))) {
        machine.Explain(L"kept by an earlier run: the same settings are carried over");
        DWORD dwError = ERROR_SUCCESS;
        if (machine.DeleteNow(tstrKept, &dwError)) {
            Trace(kTraceInfo, L"FrameworkDeployAgent::MergeConfig() - [%s] is not needed any more and deleted.",
                  tstrKept.c_str());
        } else {
            Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - [%s] cannot be deleted. [0x%08x]",
                  tstrKept.c_str(), dwError);
        }
    }
}
