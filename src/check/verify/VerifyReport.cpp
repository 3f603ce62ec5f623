// The output formats of "verify".
#include "check/verify/Verify.h"

#include "check/update/HostPaths.h"
#include "check/update/JsonText.h"
#include "check/update/RowOrder.h"
#include "check/update/ShownText.h"

#include "common/KzComn_String.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

/// What a verdict says of the update.
enum class Weight { eFor, eNeither, eAgainst };

/// The name of a verdict, and what it says.
struct VerdictRow {
    Verdict eVerdict;
    const wchar_t* szWord;
    Weight eWeight = Weight::eAgainst;
};
constexpr VerdictRow kVerdicts[] = {
    {Verdict::eArrived, L"ARRIVED", Weight::eFor},
    {Verdict::eDeleted, L"DELETED", Weight::eFor},
    {Verdict::eValueRight, L"VALUE RIGHT", Weight::eFor},
    {Verdict::eWaiting, L"STILL WAITING"},
    {Verdict::eMissing, L"MISSING"},
    {Verdict::eDifferent, L"DIFFERENT"},
    {Verdict::eLeftInDownload, L"LEFT IN DOWNLOAD"},
    {Verdict::eToBeDeleted, L"TO BE DELETED"},
    {Verdict::eToBeReplaced, L"TO BE REPLACED"},
    {Verdict::eNotDeleted, L"NOT DELETED"},
    {Verdict::eValueDiffers, L"VALUE DIFFERS"},
    {Verdict::eUnknown, L"UNKNOWN"},
    {Verdict::eNotCovered, L"NOT COVERED", Weight::eNeither},
    {Verdict::eRefused, L"REFUSED"},
    {Verdict::eChangedSince, L"CHANGED SINCE", Weight::eNeither},
};
static_assert(IsInOrder(kVerdicts, &VerdictRow::eVerdict) &&
              std::size(kVerdicts) == static_cast<std::size_t>(Verdict::eCount));

constexpr std::size_t kWordWidth = 18;

const VerdictRow& RowOf(Verdict eVerdict)
{
    return kVerdicts[static_cast<std::size_t>(eVerdict)];
}

std::size_t CountOf(std::span<const VerifyResult> results, Verdict eVerdict)
{
    return static_cast<std::size_t>(std::count_if(
        results.begin(), results.end(), [&](const VerifyResult& result) { return result.eVerdict == eVerdict; }));
}

}  // namespace

bool IsKept(const VerifyResult& result)
{
    return RowOf(result.eVerdict).eWeight == Weight::eFor;
}

bool IsAgainst(const VerifyResult& result)
{
    return RowOf(result.eVerdict).eWeight == Weight::eAgainst;
}

const wchar_t* WordOf(Verdict eVerdict)
{
    return RowOf(eVerdict).szWord;
}

bool ParseVerdict(std::wstring_view tstrWord, Verdict& eVerdict)
{
    const auto* const pRow = std::ranges::find(kVerdicts, tstrWord, &VerdictRow::szWord);
    if (pRow == std::end(kVerdicts)) return false;
    eVerdict = pRow->eVerdict;
    return true;
}

int ExitCodeOf(std::span<const VerifyResult> results)
{
    int iExitCode = kClean;
    for (const VerifyResult& result : results) {
        if (IsAgainst(result) && result.eVerdict != Verdict::eWaiting) return kFound;
        if (result.eVerdict == Verdict::eWaiting) iExitCode = kRestartPending;
    }
    return iExitCode;
}

std::wstring FormatResults(std::span<const VerifyResult> results, const std::wstring& tstrSource,
                           std::span<const ReplacedItem> replaced)
{
    std::vector<VerifyResult> sorted(results.begin(), results.end());
    std::stable_partition(sorted.begin(), sorted.end(), IsKept);
    std::wstring tstrText;
    for (const VerifyResult& result : sorted) {
        std::wstring tstrLine = RowOf(result.eVerdict).szWord;
        tstrLine.resize(kWordWidth, L' ');
        tstrLine += result.tstrWhat;
        if (!result.tstrDetail.empty()) tstrLine += L" (" + result.tstrDetail + L")";
        tstrText += OnOneLine(std::move(tstrLine)) + L"\n";
    }
    for (const ReplacedItem& item : replaced) {
        tstrText += OnOneLine(L"instead of the earlier update " + String::FromAnsi(item.strUpdate) + L": " +
                              String::FromAnsi(item.szKind) + L" " + item.tstrWhat) +
                    L"\n";
    }
    const auto cKept = std::count_if(results.begin(), results.end(), IsKept);
    tstrText += std::to_wstring(cKept) + L" of " + std::to_wstring(results.size()) + L" promises kept";
    for (const VerdictRow& row : kVerdicts) {
        const std::size_t cAnswers = CountOf(results, row.eVerdict);
        if (cAnswers > 0 && row.eWeight != Weight::eFor)
            tstrText += L", " + std::to_wstring(cAnswers) + L" " + row.szWord;
    }
    return tstrText + L" (" + tstrSource + L")\n";
}

std::string FormatResultsAsJson(std::span<const VerifyResult> results, const std::wstring& tstrSource,
                                std::span<const ReplacedItem> replaced)
{
    Json::Value root;
    root["promises_from"] = ToJson(tstrSource);
    root["complete"] = ExitCodeOf(results) == kClean;
    root["restart_pending"] = CountOf(results, Verdict::eWaiting) > 0;
    for (const VerdictRow& row : kVerdicts) {
        root["counts"][String::ToUtf8(row.szWord)] = Json::UInt64{CountOf(results, row.eVerdict)};
    }
    root["answers"] = Json::Value(Json::arrayValue);
    for (const VerifyResult& result : results) {
        Json::Value json;
        json["verdict"] = ToJson(RowOf(result.eVerdict).szWord);
        json["what"] = ToJson(result.tstrWhat);
        if (!result.tstrDetail.empty()) json["detail"] = ToJson(result.tstrDetail);
        root["answers"].append(json);
    }
    root["replaced"] = Json::Value(Json::arrayValue);
    for (const ReplacedItem& item : replaced) {
        Json::Value json;
        json["update"] = item.strUpdate;
        json["kind"] = item.szKind;
        json["what"] = ToJson(item.tstrWhat);
        root["replaced"].append(json);
    }
    ShowHostPaths(root);
    return ToJsonText(root);
}

}  // namespace Check
