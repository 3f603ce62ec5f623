#include "agent/ConfigMerge.h"

#include "agent/Sections.h"
#include "agent/SettingsFiles.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Exception.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "config/ConfigProvider.h"

#include <json/writer.h>

using namespace KzCommon;

namespace {

/// A configuration provider that is uninitialised on every way out.
class ProviderSession {
public:
    ProviderSession() = default;
    ProviderSession(const ProviderSession&) = delete;
    ProviderSession& operator=(const ProviderSession&) = delete;
    ~ProviderSession() { m_provider.Uninitialize(); }

    /// Both failures are reported under the first step's name.
    [[nodiscard]] bool Start()
    {
        if (m_provider.PreInitialize() != 0) {
            Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - CConfigProvider::PreInitialize() failed.");
            return false;
        }
        if (m_provider.Initialize() != 0) {
            Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - CConfigProvider::PreInitialize() failed.");
            return false;
        }
        return true;
    }

    [[nodiscard]] DWORD Send(DWORD dwMessage, Json::Value& request)
    {
        return m_provider.MessageProc(dwMessage, request);
    }

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

/// Adds the tags to carry over to `data`, each with an empty value. False when there is none, or one that is no record.
bool CollectTags(const Section& section, const SectionRecords& records, Json::Value& data)
{
    bool bAll = true;
    ForEachRecord(section, records, [&](const SectionKey&, const std::wstring& tstrTag) {
        if (!IsRecordLengthValid(tstrTag)) {
            Trace(kTraceError, L"MergeConfig(tszData==empty || tszData.size()>1023)");
            bAll = false;
            return;
        }
        data[String::ToUtf8(tstrTag)] = "";
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::MergeConfig() - Add tag. [%s]", tstrTag.c_str());
    });
    return bAll && !data.empty();
}

/// Names the file of a request.
void SetFile(Json::Value& request, const std::wstring& tstrFile)
{
    const std::wstring tstrFolder = String::FolderPart(tstrFile);
    request["FilePath"] = String::ToUtf8(tstrFolder);
    request["FileName"] = String::ToUtf8(tstrFile.substr(tstrFolder.size()));
}

/// A file that is read-only cannot be replaced.
void MakeWritable(const std::wstring& tstrFile)
{
    DWORD dwError = ERROR_SUCCESS;
    if (Storage::File::MakeWritable(tstrFile, &dwError)) return;
    Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - [%s] stays read-only. [0x%08x]", tstrFile.c_str(),
          dwError);
}

/// Carries the user's values over. False unless every value got there.
bool CarryOver(const ConfigTarget& target)
{
    ProviderSession provider;
    if (!provider.Start()) return false;

    constexpr const Section& kSection = SectionOf(L"QOR_CONFIG_MERGE", L"MergeConfig");
    SectionRecords records;
    if (!ReadSection(kSection, records)) return false;

    Json::Value request(Json::objectValue);
    request["Data"] = Json::Value(Json::objectValue);
    const bool bCollected = CollectTags(kSection, records, request["Data"]);
    const DWORD dwQueried = provider.Send(CConfigProvider::kQuery, request);
    if (Config::IsFailure(dwQueried)) {
        Trace(kTraceError, L"Fail to get the product config, error code: 0x%8x", dwQueried);
    } else {
        Trace(kTraceInfo, L"Query OK: %s", ToTraceText(request).c_str());
    }

    // Also after a failed query: the provider writes what it found and nothing else.
    SetFile(request, target.tstrWritten);
    MakeWritable(target.tstrWritten);
    const DWORD dwWritten = provider.Send(CConfigProvider::kWrite, request);
    SetFile(request, target.tstrPath);
    if (Config::IsFailure(dwWritten)) {
        Trace(kTraceError, L"Fail to write the product config, error code: 0x%8x", dwWritten);
    } else {
        Trace(kTraceInfo, L"Write OK: %s", ToTraceText(request).c_str());
    }
    return bCollected && !Config::IsFailure(dwQueried) && !Config::IsFailure(dwWritten);
}

/// Gives a file a second name. This needs no room and no leave to read, so that it works on a full drive and for a file
/// that others hold, and the content stays when the first name goes to another file.
bool KeepLink(const std::wstring& tstrFile, const std::wstring& tstrName, DWORD& dwError)
{
    if (::CreateHardLinkW(tstrName.c_str(), tstrFile.c_str(), nullptr)) return true;
    dwError = ::GetLastError();
    return false;
}

/// The user's file, which an update's file is about to replace without all of its values, stays under another name.
/// That name; empty when the file cannot be kept.
std::wstring KeepUnderAnotherName(const std::wstring& tstrFile)
{
    std::wstring tstrKept = KeptFileFor(tstrFile);
    DWORD dwError = ERROR_SUCCESS;
    if (Storage::File::KeepCopy(tstrKept, tstrFile, &dwError) || KeepLink(tstrFile, tstrKept, dwError) ||
        IsKeptIn(tstrKept, tstrFile)) {
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

bool MergeConfig(PathValues& pathValues, const ConfigTarget& target)
{
    const OperationTrace trace(L"FrameworkDeployAgent::MergeConfig()", String::FolderPart(target.tstrPath));
    bool bCarriedOver = false;
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Guarded(&dwError, [&] { bCarriedOver = CarryOver(target); })) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() failed. [0x%08x]", dwError);
    }
    if (!bCarriedOver) KeepUsersFile(pathValues, target);
    return bCarriedOver;
}

void KeepUsersFile(PathValues& pathValues, const ConfigTarget& target)
{
    const std::wstring tstrFile = Frwk::Utility::InstalledFile(L"config.xml");
    const bool bReplaced = Storage::File::IsExisted(target.tstrPath) || Storage::File::IsExisted(target.tstrWritten);
    if (!bReplaced || !Storage::File::IsExisted(tstrFile)) return;
    std::wstring tstrKept = KeepUnderAnotherName(tstrFile);
    if (!tstrKept.empty()) pathValues.KeepFile(std::move(tstrKept));
}

void DropKeptFiles()
{
    for (const std::wstring& tstrKept : KeptFilesLike(Frwk::Utility::InstalledFile(L"config.xml"))) {
        DWORD dwError = ERROR_SUCCESS;
        if (Storage::File::Delete(tstrKept, &dwError)) {
            Trace(kTraceInfo, L"FrameworkDeployAgent::MergeConfig() - [%s] is not needed any more and deleted.",
                  tstrKept.c_str());
        } else {
            Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - [%s] cannot be deleted. [0x%08x]",
                  tstrKept.c_str(), dwError);
        }
    }
}
