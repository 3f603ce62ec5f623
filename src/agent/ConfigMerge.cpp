#include "agent/ConfigMerge.h"

#include "agent/Sections.h"

#include "common/KzComn_DebugLog.h"
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

/// The tags to carry over, each with an empty value.
Json::Value CollectTags(const SectionRecords& records)
{
    Json::Value data(Json::objectValue);
    ForEachRecord(records, L"migrate", [&](const std::wstring& tstrTag) {
        if (!IsRecordLengthValid(tstrTag)) {
            Trace(kTraceError, L"MergeConfig(tszData==empty || tszData.size()>1023)");
            return;
        }
        data[String::ToUtf8(tstrTag)] = "";
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::MergeConfig() - Add tag. [%s]", tstrTag.c_str());
    });
    return data;
}

}  // namespace

void MergeConfig(const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"FrameworkDeployAgent::MergeConfig()", tstrFolder);
    ProviderSession provider;
    if (!provider.Start()) return;

    SectionRecords records;
    if (!ReadSection(SectionOf(L"QOR_CONFIG_MERGE", L"MergeConfig"), records)) return;

    Json::Value request(Json::objectValue);
    request["Data"] = CollectTags(records);
    DWORD dwResult = provider.Send(CConfigProvider::kQuery, request);
    if (Config::IsFailure(dwResult)) {
        Trace(kTraceError, L"Fail to get the product config, error code: 0x%8x", dwResult);
    } else {
        Trace(kTraceInfo, L"Query OK: %s", ToTraceText(request).c_str());
    }

    // Also after a failed query: what could not be read is null in the request, and null leaves a setting alone.
    request["FilePath"] = String::ToUtf8(tstrFolder);
    request["FileName"] = "config.xml";
    dwResult = provider.Send(CConfigProvider::kWrite, request);
    if (Config::IsFailure(dwResult)) {
        Trace(kTraceError, L"Fail to write the product config, error code: 0x%8x", dwResult);
    } else {
        Trace(kTraceInfo, L"Write OK: %s", ToTraceText(request).c_str());
    }
}
