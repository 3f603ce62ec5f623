// The answers of "verify" in their forms, and the verb.
#include "check/Verify.h"

#include "check/simulate/ErrorText.h"
#include "check/JsonText.h"
#include "check/Manifest.h"
#include "check/RowOrder.h"
#include "check/ShownText.h"
#include "check/TracePromises.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_WholeFile.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

/// How a verdict is called, and whether it says that the promise is kept.
struct VerdictRow {
    Verdict eVerdict;
    const wchar_t* szWord;
    bool bKept = false;
};
constexpr VerdictRow kVerdicts[] = {
    {Verdict::eArrived, L"ARRIVED", true},
    {Verdict::eDeleted, L"DELETED", true},
    {Verdict::eValueRight, L"VALUE RIGHT", true},
    {Verdict::eWaiting, L"STILL WAITING"},
    {Verdict::eMissing, L"MISSING"},
    {Verdict::eDifferent, L"DIFFERENT"},
    {Verdict::eLeftInDownload, L"LEFT IN DOWNLOAD"},
    {Verdict::eToBeDeleted, L"TO BE DELETED"},
    {Verdict::eToBeReplaced, L"TO BE REPLACED"},
    {Verdict::eNotDeleted, L"NOT DELETED"},
    {Verdict::eValueDiffers, L"VALUE DIFFERS"},
    {Verdict::eUnknown, L"UNKNOWN"},
    {Verdict::eRefused, L"REFUSED"},
};
static_assert(IsInOrder(kVerdicts, &VerdictRow::eVerdict) &&
              std::size(kVerdicts) == static_cast<std::size_t>(Verdict::eCount));

constexpr std::size_t kWordWidth = 18;

const VerdictRow& RowOf(Verdict eVerdict)
{
    return kVerdicts[static_cast<std::size_t>(eVerdict)];
}

bool IsKept(const Answer& answer)
{
    return RowOf(answer.eVerdict).bKept;
}

std::size_t CountOf(std::span<const Answer> answers, Verdict eVerdict)
{
    return static_cast<std::size_t>(std::count_if(answers.begin(), answers.end(),
                                                  [&](const Answer& answer) { return answer.eVerdict == eVerdict; }));
}

/// The promises to look up, and where they are from.
bool ReadPromises(const Arguments& arguments, const std::wstring& tstrInstalled, Promises& promises,
                  std::wstring& tstrSource, Output& output)
{
    if (arguments.operands.empty()) {
        std::wstring tstrTime;
        if (!PromisesOfNewestRun(MachineFolders(tstrInstalled, {}), promises, tstrTime)) {
            output.tstrErrors += L"no manifest is given, and the trace has no deployment to tell what was promised\n";
            return false;
        }
        tstrSource = L"the run of " + tstrTime;
        return true;
    }
    tstrSource = arguments.operands.front();
    std::string strBytes;
    DWORD dwError = ERROR_SUCCESS;
    std::wstring tstrError;
    if (!Storage::File::ReadWhole(tstrSource, kMaxManifestBytes, strBytes, &dwError)) {
        tstrError = L"cannot be read: " + DescribeError(dwError);
    } else if (ParseManifest(strBytes, promises, tstrError)) {
        if (promises.Count() > 0) return true;
        tstrError = L"promises nothing";
    }
    output.tstrErrors += tstrSource + L": " + tstrError + L"\n";
    return false;
}

}  // namespace

int ExitCodeOf(std::span<const Answer> answers)
{
    int iExitCode = kClean;
    for (const Answer& answer : answers) {
        if (!IsKept(answer) && answer.eVerdict != Verdict::eWaiting) return kFound;
        if (answer.eVerdict == Verdict::eWaiting) iExitCode = kRestartPending;
    }
    return iExitCode;
}

std::wstring FormatAnswers(std::span<const Answer> answers, const std::wstring& tstrSource,
                           std::span<const std::wstring> notCovered)
{
    std::vector<Answer> sorted(answers.begin(), answers.end());
    std::stable_partition(sorted.begin(), sorted.end(), IsKept);
    std::wstring tstrText;
    for (const Answer& answer : sorted) {
        std::wstring tstrLine = RowOf(answer.eVerdict).szWord;
        tstrLine.resize(kWordWidth, L' ');
        tstrLine += answer.tstrWhat;
        if (!answer.tstrDetail.empty()) tstrLine += L" (" + answer.tstrDetail + L")";
        tstrText += OnOneLine(std::move(tstrLine)) + L"\n";
    }
    for (const std::wstring& tstrKind : notCovered) {
        tstrText += (&tstrKind == notCovered.data() ? L"not covered without a manifest: " : L"; ") + tstrKind;
    }
    if (!notCovered.empty()) tstrText += L"\n";
    const auto cKept = std::count_if(answers.begin(), answers.end(), IsKept);
    tstrText += std::to_wstring(cKept) + L" of " + std::to_wstring(answers.size()) + L" promises kept";
    for (const VerdictRow& row : kVerdicts) {
        const std::size_t cAnswers = CountOf(answers, row.eVerdict);
        if (cAnswers > 0 && !row.bKept) tstrText += L", " + std::to_wstring(cAnswers) + L" " + row.szWord;
    }
    return tstrText + L" (" + tstrSource + L")\n";
}

std::string FormatAnswersAsJson(std::span<const Answer> answers, const std::wstring& tstrSource,
                                std::span<const std::wstring> notCovered)
{
    Json::Value root;
    root["promises_from"] = ToJson(tstrSource);
    root["complete"] = ExitCodeOf(answers) == kClean;
    root["restart_pending"] = CountOf(answers, Verdict::eWaiting) > 0;
    for (const VerdictRow& row : kVerdicts) {
        root["counts"][String::ToUtf8(row.szWord)] = Json::UInt64{CountOf(answers, row.eVerdict)};
    }
    root["not_covered"] = Json::Value(Json::arrayValue);
    for (const std::wstring& tstrKind : notCovered) root["not_covered"].append(ToJson(tstrKind));
    root["answers"] = Json::Value(Json::arrayValue);
    for (const Answer& answer : answers) {
        Json::Value json;
        json["verdict"] = ToJson(RowOf(answer.eVerdict).szWord);
        json["what"] = ToJson(answer.tstrWhat);
        if (!answer.tstrDetail.empty()) json["detail"] = ToJson(answer.tstrDetail);
        root["answers"].append(json);
    }
    return ToJsonText(root);
}

int RunVerify(const Arguments& arguments, Output& output)
{
    std::wstring tstrInstalled = arguments.optInstalled.value_or(Frwk::Utility::GetInstalledFolder(WindowsMachine()));
    const std::wstring tstrFull = String::EnsureBackslash(Storage::Directory::FullPath(tstrInstalled));
    if (tstrInstalled.empty() || !Storage::Directory::IsExisted(tstrFull)) {
        output.tstrErrors +=
            (tstrInstalled.empty() ? L"no product is installed on this machine" : tstrInstalled + L": no such folder") +
            L"; --installed DIR names the product's folder\n";
        return kCannotRead;
    }
    tstrInstalled = tstrFull;
    Promises promises;
    std::wstring tstrSource;
    if (!ReadPromises(arguments, tstrInstalled, promises, tstrSource, output)) return kCannotRead;
    MachineFolders folders(tstrInstalled, promises.tstrProduct);
    VerifyContext machine{folders, PendingPlaces(ReadPendingMoves()), Frwk::Utility::GetLanguage(WindowsMachine())};
    const std::vector<Answer> answers = VerifyPromises(promises, machine);
    output.strText = arguments.eFormat == Format::eJson
                         ? FormatAnswersAsJson(answers, tstrSource, promises.notCovered)
                         : String::ToUtf8(FormatAnswers(answers, tstrSource, promises.notCovered));
    return ExitCodeOf(answers);
}

}  // namespace Check
