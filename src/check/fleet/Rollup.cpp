#include "check/fleet/Rollup.h"

#include "check/update/ErrorText.h"
#include "check/update/HostPaths.h"
#include "check/update/JsonText.h"
#include "check/update/OpenUpdate.h"
#include "check/update/ShownText.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Result.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <map>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMostBytes = std::size_t{1} << 20;
constexpr std::size_t kReasons = 10;
constexpr std::size_t kNamedMachines = 5;
constexpr std::size_t kShownDigits = 12;  // of an update's SHA-256

/// Collects records and keeps what counts of the latest of each machine. Most machines of a fleet share their reasons,
/// so each reason is kept once: ten thousand records would otherwise not fit into the memory of a small server.
class Collection {
public:
    explicit Collection(Rollup& rollup) : m_rollup(rollup) {}

    void Take(const std::wstring& tstrFile)
    {
        std::string strBytes;
        Record record;
        DWORD dwError = ERROR_SUCCESS;
        std::wstring tstrError;
        if (!Storage::File::ReadWhole(LongPath(tstrFile), kMostBytes, strBytes, &dwError)) {
            m_rollup.ignored.push_back({tstrFile, DescribeError(dwError)});
        } else if (!ParseRecord(strBytes, record, tstrError)) {
            m_rollup.ignored.push_back({tstrFile, tstrError});
        } else {
            Keep(tstrFile, record);
        }
    }

    void Finish()
    {
        // By text, so that reasons of equally many machines have the same order in every run.
        std::vector<const std::wstring*> texts(m_reasons.size());
        std::vector<std::vector<std::size_t>> machines(m_reasons.size());
        for (auto& [tstrMachine, latest] : m_latest) {
            for (const std::size_t uReason : latest.reasons) machines[uReason].push_back(m_rollup.machines.size());
            m_rollup.machines.push_back(std::move(latest.state));
        }
        std::vector<std::size_t> order;
        for (const auto& [tstrText, uReason] : m_reasons) {
            texts[uReason] = &tstrText;
            if (!machines[uReason].empty()) order.push_back(uReason);
        }
        std::ranges::stable_sort(order, std::ranges::greater(),
                                 [&](std::size_t uReason) { return machines[uReason].size(); });
        if (order.size() > kReasons) order.resize(kReasons);
        for (const std::size_t uReason : order) {
            const std::size_t uEnd = texts[uReason]->find(L'\n');
            m_rollup.reasons.push_back(
                {texts[uReason]->substr(0, uEnd), texts[uReason]->substr(uEnd + 1), std::move(machines[uReason])});
        }
    }

    [[nodiscard]] bool HasRecordOf(const std::wstring& tstrMachine) const { return m_latest.contains(tstrMachine); }

private:
    struct Latest {
        MachineState state;
        std::vector<unsigned> reasons;  ///< numbers in m_reasons
    };

    void Keep(const std::wstring& tstrFile, Record& record)
    {
        const auto [itKnown, bNew] = m_latest.try_emplace(record.tstrMachine);
        Latest& known = itKnown->second;
        if (!bNew && known.state.tstrTime == record.tstrTime) {
            m_rollup.ignored.push_back({tstrFile, L"a second record of " + record.tstrMachine + L" of the same time"});
            return;
        }
        if (!bNew) ++m_rollup.cOlder;
        if (!bNew && known.state.tstrTime > record.tstrTime) return;
        known.reasons = ReasonsOf(record.open);
        known.state = {.tstrMachine = std::move(record.tstrMachine),
                       .strUpdate = std::move(record.strUpdate),
                       .tstrPackage = std::move(record.tstrPackage),
                       .tstrProductVersion = std::move(record.tstrProductVersion),
                       .tstrAgentVersion = std::move(record.tstrAgentVersion),
                       .tstrTime = std::move(record.tstrTime),
                       .tstrStarted = std::move(record.tstrStarted),
                       .optPendingMinutes = record.optPendingMinutes,
                       .eVerdict = record.eVerdict,
                       .cNotKept = record.cNotKept};
    }

    /// The numbers of a record's reasons, each once.
    std::vector<unsigned> ReasonsOf(const std::vector<VerifyResult>& open)
    {
        std::vector<unsigned> numbers;
        for (const VerifyResult& result : open) {
            if (!IsAgainst(result)) continue;
            const auto uNext = static_cast<unsigned>(m_reasons.size());
            const std::wstring tstrText = std::wstring(WordOf(result.eVerdict)) + L"\n" + result.tstrWhat;
            numbers.push_back(m_reasons.try_emplace(tstrText, uNext).first->second);
        }
        std::ranges::sort(numbers);
        const auto spare = std::ranges::unique(numbers);
        numbers.erase(spare.begin(), spare.end());
        return {numbers.begin(), numbers.end()};  // without the spare memory of its growth
    }

    Rollup& m_rollup;
    String::NoCaseMap<Latest> m_latest;     // by machine
    String::NoCaseMap<unsigned> m_reasons;  // the numbers of all reasons, "VERDICT\nwhat"
};

constexpr MachineVerdict kVerdicts[] = {MachineVerdict::eArrived, MachineVerdict::ePending, MachineVerdict::eMissing,
                                        MachineVerdict::eUnknown};

/// The machines of one update.
struct UpdateCounts {
    std::wstring tstrPackage;
    std::size_t counts[std::size(kVerdicts)] = {};  ///< by verdict
};

/// By identity.
std::map<std::string, UpdateCounts> UpdatesOf(const Rollup& rollup)
{
    std::map<std::string, UpdateCounts> updates;
    for (const MachineState& machine : rollup.machines) {
        UpdateCounts& update = updates[machine.strUpdate];
        if (update.tstrPackage.empty()) update.tstrPackage = machine.tstrPackage;
        ++update.counts[static_cast<std::size_t>(machine.eVerdict)];
    }
    return updates;
}

std::wstring FormatText(const Rollup& rollup)
{
    std::wstring tstrText;
    const auto add = [&](std::wstring tstrLine) {
        tstrText += OnOneLine(std::move(tstrLine)) + L"\n";
    };
    for (const auto& [strUpdate, update] : UpdatesOf(rollup)) {
        const std::wstring tstrUpdate = String::FromAnsi(strUpdate.substr(0, kShownDigits));
        add(L"update " + (tstrUpdate.empty() ? L"without identity" : tstrUpdate) + L", " + update.tstrPackage);
        std::wstring tstrLine;
        for (const MachineVerdict eVerdict : kVerdicts) {
            tstrLine += (tstrLine.empty() ? L"  " : L", ") +
                        std::to_wstring(update.counts[static_cast<std::size_t>(eVerdict)]) + L" " +
                        String::FromAnsi(WordOf(eVerdict));
        }
        add(tstrLine);
    }
    if (!rollup.reasons.empty()) tstrText += L"most frequent reasons\n";
    for (const SharedReason& reason : rollup.reasons) {
        std::wstring tstrLine = L"  " + Counted(reason.machines.size(), L"machine", L"machines") + L": " +
                                reason.tstrVerdict + L" " + reason.tstrWhat + L": ";
        const std::size_t cNamed = std::min(reason.machines.size(), kNamedMachines);
        for (std::size_t u = 0; u < cNamed; ++u)
            tstrLine += (u ? L", " : L"") + rollup.machines[reason.machines[u]].tstrMachine;
        add(tstrLine + (cNamed < reason.machines.size() ? L", ..." : L""));
    }
    for (const std::wstring& tstrMachine : rollup.unheard) add(L"no record: " + tstrMachine);
    for (const IgnoredRecord& ignored : rollup.ignored)
        add(L"ignored: " + ignored.tstrFile + L": " + ignored.tstrReason);
    if (rollup.cOlder > 0) add(Counted(rollup.cOlder, L"older record", L"older records"));
    return tstrText + Counted(rollup.machines.size(), L"machine", L"machines") + L"\n";
}

std::string FormatJson(const Rollup& rollup)
{
    Json::Value root;
    root["updates"] = root["reasons"] = root["machines"] = root["ignored"] = Json::Value(Json::arrayValue);
    for (const auto& [strUpdate, update] : UpdatesOf(rollup)) {
        Json::Value json;
        json["update"] = strUpdate;
        json["package"] = ToJson(update.tstrPackage);
        for (const MachineVerdict eVerdict : kVerdicts) {
            json[WordOf(eVerdict)] = Json::UInt64{update.counts[static_cast<std::size_t>(eVerdict)]};
        }
        root["updates"].append(std::move(json));
    }
    for (const SharedReason& reason : rollup.reasons) {
        Json::Value json;
        json["verdict"] = ToJson(reason.tstrVerdict);
        json["what"] = ToJson(reason.tstrWhat);
        for (const std::size_t u : reason.machines) json["machines"].append(ToJson(rollup.machines[u].tstrMachine));
        root["reasons"].append(std::move(json));
    }
    for (const MachineState& record : rollup.machines) {
        Json::Value json;
        json["machine"] = ToJson(record.tstrMachine);
        json["update"] = record.strUpdate;
        json["verdict"] = WordOf(record.eVerdict);
        json["time"] = ToJson(record.tstrTime);
        if (record.optPendingMinutes) json["pending_minutes"] = Json::UInt64{*record.optPendingMinutes};
        root["machines"].append(std::move(json));
    }
    for (const IgnoredRecord& ignored : rollup.ignored) {
        Json::Value json;
        json["file"] = ToJson(ignored.tstrFile);
        json["reason"] = ToJson(ignored.tstrReason);
        root["ignored"].append(std::move(json));
    }
    root["no_record"] = ToJson(rollup.unheard);
    root["older_records"] = Json::UInt64{rollup.cOlder};
    ShowHostPaths(root);
    return ToJsonText(root);
}

/// A field of RFC 4180. A spreadsheet takes a text that begins like a formula for one, so such a text begins with "'".
std::wstring CsvField(std::wstring tstrText)
{
    if (!tstrText.empty() && std::wstring_view(L"=+-@\t\r").find(tstrText.front()) != std::wstring_view::npos) {
        tstrText.insert(0, 1, L'\'');
    }
    std::wstring tstrField = L"\"";
    for (const wchar_t ch : tstrText) tstrField.append(ch == L'"' ? 2 : 1, ch);
    return tstrField + L"\"";
}

std::wstring CsvLine(std::initializer_list<std::wstring> fields)
{
    std::wstring tstrLine;
    for (const std::wstring& tstrField : fields) tstrLine += (tstrLine.empty() ? L"" : L",") + CsvField(tstrField);
    return tstrLine + L"\r\n";
}

/// One line for each machine; those without a record have no other field.
std::wstring FormatCsv(const Rollup& rollup)
{
    std::wstring tstrText = CsvLine({L"machine", L"verdict", L"update", L"package", L"product version",
                                     L"agent version", L"time", L"started", L"pending minutes", L"not kept"});
    for (const MachineState& record : rollup.machines) {
        tstrText +=
            CsvLine({record.tstrMachine, String::FromAnsi(WordOf(record.eVerdict)), String::FromAnsi(record.strUpdate),
                     record.tstrPackage, record.tstrProductVersion, record.tstrAgentVersion, record.tstrTime,
                     record.tstrStarted, record.optPendingMinutes ? std::to_wstring(*record.optPendingMinutes) : L"",
                     std::to_wstring(record.cNotKept)});
    }
    for (const std::wstring& tstrMachine : rollup.unheard) {
        tstrText += CsvLine({tstrMachine, L"no record", L"", L"", L"", L"", L"", L"", L"", L""});
    }
    return tstrText;
}

/// One name in each line, in UTF-8 or UTF-16 with BOM.
bool ReadNames(const std::wstring& tstrFile, std::vector<std::wstring>& names, DWORD* pdwError)
{
    std::string strBytes;
    if (!Storage::File::ReadWhole(LongPath(Storage::Directory::FullPath(tstrFile)), kMostBytes, strBytes, pdwError)) {
        return false;
    }
    std::wstring tstrText;
    // An unreadable list must not pass for one whose machines all have a record.
    if (!String::FromUtf8(DecodeText(strBytes), tstrText) || tstrText.find(L'\0') != std::wstring::npos) {
        return Storage::Fail(ERROR_NO_UNICODE_TRANSLATION, pdwError);
    }
    String::NoCaseSet known;
    bool bMore = false;
    for (const std::wstring& tstrLine : String::SplitFields(tstrText, L'\n', tstrText.size() + 1, bMore)) {
        std::wstring tstrName(String::Trim(tstrLine, L" \t\r"));
        if (!tstrName.empty() && known.insert(tstrName).second) names.push_back(std::move(tstrName));
    }
    return true;
}

bool IsJson(std::wstring_view tstrName)
{
    constexpr std::wstring_view kEnding = L".json";
    return tstrName.size() > kEnding.size() &&
           String::EqualsNoCase(tstrName.substr(tstrName.size() - kEnding.size()), kEnding);
}

}  // namespace

bool MakeRollup(const std::wstring& tstrFolder, const std::vector<std::wstring>& known, Rollup& rollup, DWORD* pdwError)
{
    Collection collection(rollup);
    const std::wstring tstrTop = String::EnsureBackslash(Storage::Directory::FullPath(tstrFolder));
    std::vector<std::wstring> folders{tstrTop};
    while (!folders.empty()) {
        const std::wstring tstrCurrent = std::move(folders.back());
        folders.pop_back();
        const auto take = [&](const Storage::Directory::Entry& entry) {
            if (entry.bFolder && !entry.bLink) folders.push_back(tstrCurrent + entry.tstrName + L"\\");
            if (!entry.bFolder && IsJson(entry.tstrName)) {
                collection.Take(tstrCurrent + entry.tstrName);
            }
        };
        DWORD dwError = ERROR_SUCCESS;
        const bool bListed =
            Storage::Directory::ForEachEntry(String::EnsureBackslash(LongPath(tstrCurrent)), L"*", take, &dwError);
        if (!bListed && String::EqualsNoCase(tstrCurrent, tstrTop)) return Storage::Fail(dwError, pdwError);
        if (!bListed) rollup.ignored.push_back({tstrCurrent, DescribeError(dwError)});
    }
    for (const std::wstring& tstrMachine : known) {
        if (!collection.HasRecordOf(tstrMachine)) rollup.unheard.push_back(tstrMachine);
    }
    collection.Finish();
    return true;
}

int RunRollup(const Arguments& arguments, Output& output)
{
    DWORD dwError = ERROR_SUCCESS;
    std::vector<std::wstring> known;
    if (arguments.optMachines && !ReadNames(*arguments.optMachines, known, &dwError)) {
        return CannotRead(*arguments.optMachines, dwError, output);
    }
    // An empty list must not pass for one whose machines all have a record.
    if (arguments.optMachines && known.empty()) {
        output.tstrErrors += *arguments.optMachines + L": the list of machines is empty\n";
        return kCannotRead;
    }
    Rollup rollup;
    if (!MakeRollup(arguments.operands.front(), known, rollup, &dwError)) {
        return CannotRead(arguments.operands.front(), dwError, output);
    }
    switch (arguments.eFormat) {
        case Format::eText:
        case Format::eSarif: output.strText = String::ToUtf8(WithHostPaths(FormatText(rollup))); break;
        case Format::eJson: output.strText = FormatJson(rollup); break;
        case Format::eCsv: output.strText = String::ToUtf8(FormatCsv(rollup)); break;
    }
    const bool bAll = std::ranges::all_of(
        rollup.machines, [](const MachineState& record) { return record.eVerdict == MachineVerdict::eArrived; });
    // A folder without records must not pass for a fleet on which the update has arrived.
    return bAll && !rollup.machines.empty() && rollup.unheard.empty() && rollup.ignored.empty() ? kClean : kFound;
}

}  // namespace Check
