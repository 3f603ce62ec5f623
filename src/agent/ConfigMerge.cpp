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

/// A file that is read-only cannot be replaced.
void MakeWritable(const std::wstring& tstrFile)
{
    const DWORD dwAttributes = ::GetFileAttributesW(tstrFile.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES || !(dwAttributes & FILE_ATTRIBUTE_READONLY)) return;
    if (::SetFileAttributesW(tstrFile.c_str(), dwAttributes & ~DWORD{FILE_ATTRIBUTE_READONLY})) return;
    const DWORD dwError = ::GetLastError();
    Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - [%s] stays read-only. [0x%08x]", tstrFile.c_str(),
          dwError);
}

/// Carries the user's values over into "config.xml" in `tstrFolder`. False unless every value got there.
bool CarryOver(const std::wstring& tstrFolder)
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
    request["FilePath"] = String::ToUtf8(tstrFolder);
    request["FileName"] = "config.xml";
    MakeWritable(String::JoinPath(tstrFolder, L"config.xml"));
    const DWORD dwWritten = provider.Send(CConfigProvider::kWrite, request);
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
void KeepUsersFile(const std::wstring& tstrFolder)
{
    const std::wstring tstrFile = Frwk::Utility::InstalledFile(L"config.xml");
    if (!Storage::File::IsExisted(tstrFile) || !Storage::File::IsExisted(String::JoinPath(tstrFolder, L"config.xml"))) {
        return;
    }
    const std::wstring tstrKept = KeptFileFor(tstrFile);
    DWORD dwError = ERROR_SUCCESS;
    if (Storage::File::KeepCopy(tstrKept, tstrFile, &dwError) || KeepLink(tstrFile, tstrKept, dwError) ||
        IsKeptIn(tstrKept, tstrFile)) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() - the user's settings are kept in [%s].",
              tstrKept.c_str());
        return;
    }
    Trace(kTraceError,
          L"*** FrameworkDeployAgent::MergeConfig() - the user's settings cannot be kept in [%s]. [0x%08x]",
          tstrKept.c_str(), dwError);
}

}  // namespace

bool MergeConfig(const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"FrameworkDeployAgent::MergeConfig()", tstrFolder);
    bool bCarriedOver = false;
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Guarded(&dwError, [&] { bCarriedOver = CarryOver(tstrFolder); })) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::MergeConfig() failed. [0x%08x]", dwError);
    }
    if (!bCarriedOver) KeepUsersFile(tstrFolder);
    return bCarriedOver;
}

std::wstring KeepDuringMerge(const std::wstring& tstrFolder)
{
    if (!Storage::File::IsExisted(String::JoinPath(tstrFolder, L"config.xml"))) return {};
    const std::wstring tstrFile = Frwk::Utility::InstalledFile(L"config.xml");
    std::wstring tstrKept = KeptFileFor(tstrFile);
    if (Storage::File::IsExisted(tstrKept) || !Storage::File::KeepCopy(tstrKept, tstrFile, nullptr)) return {};
    return tstrKept;
}

void DropKept(const std::wstring& tstrKept)
{
    if (!tstrKept.empty()) static_cast<void>(Storage::File::Delete(tstrKept, nullptr));
}
