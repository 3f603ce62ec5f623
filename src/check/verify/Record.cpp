#include "check/verify/Record.h"

#include "check/update/JsonText.h"
#include "check/verify/Sha256.h"

#include "agent/IniEdits.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

constexpr unsigned kRecordFormat = 1;
constexpr std::size_t kMostOpen = 200;
constexpr std::size_t kMostBytesArrived = 4096;
constexpr ULONGLONG kTicksPerMillisecond = 10'000;
constexpr ULONGLONG kMillisecondsPerMinute = 60'000;

constexpr const char* kWords[] = {"arrived", "pending", "missing", "unknown"};
static_assert(std::size(kWords) == static_cast<std::size_t>(MachineVerdict::eUnknown) + 1);

ULONGLONG Now()
{
    FILETIME time;
    ::GetSystemTimeAsFileTime(&time);
    return ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart;
}

std::wstring TextOfTime(ULONGLONG ullTime)
{
    const FILETIME time{static_cast<DWORD>(ullTime), static_cast<DWORD>(ullTime >> 32)};
    SYSTEMTIME parts{};
    ::FileTimeToSystemTime(&time, &parts);
    wchar_t szText[32];
    std::swprintf(szText, std::size(szText), L"%04u-%02u-%02uT%02u:%02u:%02uZ", parts.wYear, parts.wMonth, parts.wDay,
                  parts.wHour, parts.wMinute, parts.wSecond);
    return szText;
}

std::wstring MachineName()
{
    wchar_t szName[256] = {};
    DWORD cchName = static_cast<DWORD>(std::size(szName));
    return ::GetComputerNameExW(ComputerNamePhysicalDnsHostname, szName, &cchName) ? szName : L"";
}

/// The minutes since the deployment, whose tick count is in the registry; empty if Windows has started since then.
std::optional<ULONGLONG> MinutesSinceDeployment(const Machine& machine)
{
    RegistryData data = DWORD{0};
    const RegistryPlace place{.tstrKeyPath = Frwk::Utility::kProductKey,
                              .tstrName = L"FrwkDeployTick",
                              .dwView = Frwk::Utility::ProductRegistryView()};
    if (!machine.ReadValue(place, data, nullptr)) return std::nullopt;
    // Unsigned differences are right after the counter's overflow, too, if that happened at most once.
    const DWORD dwSince = ::GetTickCount() - std::get<DWORD>(data);
    if (dwSince > ::GetTickCount64()) return std::nullopt;
    return dwSince / kMillisecondsPerMinute;
}

std::wstring AgentVersion(const Machine& machine, const Folder& installed)
{
    const ::IniRecord record = DeployedVersion();
    std::wstring tstrVersion;
    static_cast<void>(machine.ReadIniValue(installed / kUpdateInfoFile, record.tstrSection, record.tstrKey, L"",
                                           tstrVersion, nullptr));
    return tstrVersion;
}

/// A member that is a text; false for another one.
bool TakeText(const Json::Value& json, const char* szName, std::wstring& tstrText)
{
    return json[szName].isString() && String::FromUtf8(json[szName].asString(), tstrText);
}

/// Whether a text is a time as TextOfTime() writes it. The latest record counts, and any other text could come after
/// all times.
bool IsTime(const std::wstring& tstrText)
{
    SYSTEMTIME parts{};
    FILETIME time{};
    return std::swscanf(tstrText.c_str(), L"%4hu-%2hu-%2huT%2hu:%2hu:%2huZ", &parts.wYear, &parts.wMonth, &parts.wDay,
                        &parts.wHour, &parts.wMinute, &parts.wSecond) == 6 &&
           ::SystemTimeToFileTime(&parts, &time) &&
           TextOfTime(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart) == tstrText;
}

bool TakeOpen(const Json::Value& list, std::vector<VerifyResult>& open)
{
    if (!list.isArray()) return false;
    return std::all_of(list.begin(), list.end(), [&](const Json::Value& json) {
        std::wstring tstrWord;
        VerifyResult& result = open.emplace_back();
        if (!json.isObject() || !TakeText(json, "verdict", tstrWord) || !TakeText(json, "what", result.tstrWhat)) {
            return false;
        }
        if (json.isMember("detail") && !TakeText(json, "detail", result.tstrDetail)) return false;
        return ParseVerdict(tstrWord, result.eVerdict);
    });
}

bool TakeVerdict(const Json::Value& json, MachineVerdict& eVerdict)
{
    const auto* const pWord = json.isString() ? std::ranges::find(kWords, json.asString()) : std::end(kWords);
    if (pWord == std::end(kWords)) return false;
    eVerdict = static_cast<MachineVerdict>(pWord - kWords);
    return true;
}

/// The place of a result among those that are not kept: first what is missing, last what does not count.
int RankOf(const VerifyResult& result)
{
    switch (JudgeMachine({&result, 1})) {
        case MachineVerdict::eMissing: return 0;
        case MachineVerdict::eUnknown: return 1;
        case MachineVerdict::ePending: return 2;
        case MachineVerdict::eArrived: break;
    }
    return 3;
}

/// The record with its first `cOpen` open results.
std::string FormatWith(const Record& record, std::size_t cOpen)
{
    Json::Value root;
    root["record"] = kRecordFormat;
    root["update"] = record.strUpdate;
    root["package"] = ToJson(record.tstrPackage);
    root["product_version"] = ToJson(record.tstrProductVersion);
    root["agent_version"] = ToJson(record.tstrAgentVersion);
    root["machine"] = ToJson(record.tstrMachine);
    root["time"] = ToJson(record.tstrTime);
    root["started"] = ToJson(record.tstrStarted);
    if (record.optPendingMinutes) root["pending_minutes"] = Json::UInt64{*record.optPendingMinutes};
    root["verdict"] = WordOf(record.eVerdict);
    root["kept"] = Json::UInt64{record.cKept};
    root["not_kept"] = Json::UInt64{record.cNotKept};
    root["open"] = Json::Value(Json::arrayValue);
    for (const VerifyResult& result : std::span(record.open).first(cOpen)) {
        Json::Value json;
        json["verdict"] = ToJson(WordOf(result.eVerdict));
        json["what"] = ToJson(result.tstrWhat);
        if (!result.tstrDetail.empty()) json["detail"] = ToJson(result.tstrDetail);
        root["open"].append(std::move(json));
    }
    return ToJsonText(root);
}

}  // namespace

MachineVerdict JudgeMachine(std::span<const VerifyResult> results)
{
    MachineVerdict eVerdict = MachineVerdict::eArrived;
    for (const VerifyResult& result : results) {
        if (!IsAgainst(result)) continue;
        if (result.eVerdict == Verdict::eWaiting) {
            if (eVerdict == MachineVerdict::eArrived) eVerdict = MachineVerdict::ePending;
        } else if (result.eVerdict == Verdict::eUnknown || result.eVerdict == Verdict::eRefused) {
            eVerdict = MachineVerdict::eUnknown;
        } else {
            return MachineVerdict::eMissing;
        }
    }
    return eVerdict;
}

const char* WordOf(MachineVerdict eVerdict)
{
    return kWords[static_cast<std::size_t>(eVerdict)];
}

Record MakeRecord(const Machine& machine, const Folder& installed, const ExpectedState& expected,
                  std::span<const VerifyResult> results)
{
    Record record;
    record.strUpdate = expected.strUpdate;
    record.tstrPackage = expected.tstrProduct;
    record.tstrProductVersion = Frwk::Utility::GetStrFromHKLM_KZVLT(machine, L"Version", L"");
    record.tstrAgentVersion = AgentVersion(machine, installed);
    record.tstrMachine = MachineName();
    record.tstrTime = TextOfTime(Now());
    record.tstrStarted = TextOfTime(Now() - ::GetTickCount64() * kTicksPerMillisecond);
    record.eVerdict = JudgeMachine(results);
    // Also when something else is missing: the restart has been awaited for as long.
    if (std::ranges::any_of(results, [](const VerifyResult& result) { return result.eVerdict == Verdict::eWaiting; })) {
        record.optPendingMinutes = MinutesSinceDeployment(machine);
    }
    std::ranges::copy_if(results, std::back_inserter(record.open),
                         [](const VerifyResult& result) { return !IsKept(result); });
    std::ranges::stable_sort(record.open, {}, RankOf);  // a record and an event have room for the first ones only
    record.cNotKept = record.open.size();
    record.cKept = results.size() - record.cNotKept;
    return record;
}

std::string FormatRecord(const Record& record)
{
    std::size_t cOpen = std::min(record.open.size(), kMostOpen);
    std::string strText = FormatWith(record, cOpen);
    // An update that has arrived needs no reasons.
    const bool bShort = record.eVerdict == MachineVerdict::eArrived;
    while (bShort && strText.size() > kMostBytesArrived && cOpen > 0) strText = FormatWith(record, --cOpen);
    return strText;
}

bool ParseRecord(std::string_view strBytes, Record& record, std::wstring& tstrError)
{
    Json::Value root;
    if (!ParseJson(strBytes, root, tstrError)) return false;
    tstrError = L"not a record, or of another format";
    if (!root.isObject() || !root["record"].isUInt() || root["record"].asUInt() != kRecordFormat) return false;
    tstrError = L"a member of the record is not as it should be";
    if (root.isMember("pending_minutes")) {
        if (!root["pending_minutes"].isUInt64()) return false;
        record.optPendingMinutes = root["pending_minutes"].asUInt64();
    }
    if (!root["update"].isString() || !root["kept"].isUInt64() || !root["not_kept"].isUInt64()) return false;
    record.strUpdate = root["update"].asString();
    if (!record.strUpdate.empty() && !IsSha256(record.strUpdate)) return false;
    record.cKept = root["kept"].asUInt64();
    record.cNotKept = root["not_kept"].asUInt64();
    return TakeText(root, "package", record.tstrPackage) &&
           TakeText(root, "product_version", record.tstrProductVersion) &&
           TakeText(root, "agent_version", record.tstrAgentVersion) && TakeText(root, "machine", record.tstrMachine) &&
           !record.tstrMachine.empty() && TakeText(root, "time", record.tstrTime) && IsTime(record.tstrTime) &&
           TakeText(root, "started", record.tstrStarted) && TakeVerdict(root["verdict"], record.eVerdict) &&
           TakeOpen(root["open"], record.open) && record.open.size() <= record.cNotKept;
}

}  // namespace Check
