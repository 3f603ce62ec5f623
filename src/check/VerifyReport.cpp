// The answers of "verify" in their forms, and the verb.
#include "check/Verify.h"

#include "check/ErrorWords.h"
#include "check/JsonText.h"
#include "check/Manifest.h"
#include "check/TracePromises.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"

#include <algorithm>
#include <array>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kVerdicts = static_cast<std::size_t>(Verdict::eCount);
constexpr const wchar_t* kWords[] = {L"ARRIVED",   L"DELETED",          L"VALUE RIGHT", L"STILL WAITING", L"MISSING",
                                     L"DIFFERENT", L"LEFT IN DOWNLOAD", L"NOT DELETED", L"VALUE DIFFERS", L"REFUSED"};
static_assert(std::size(kWords) == kVerdicts);

constexpr std::size_t kWordWidth = 18;

bool IsKept(Verdict eVerdict)
{
    return eVerdict < Verdict::eWaiting;
}

const wchar_t* WordOf(Verdict eVerdict)
{
    return kWords[static_cast<std::size_t>(eVerdict)];
}

std::array<std::size_t, kVerdicts> CountVerdicts(std::span<const Answer> answers)
{
    std::array<std::size_t, kVerdicts> counts{};
    for (const Answer& answer : answers) ++counts[static_cast<std::size_t>(answer.eVerdict)];
    return counts;
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
        tstrError = L"cannot be read: " + WordsOf(dwError);
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
        if (!IsKept(answer.eVerdict) && answer.eVerdict != Verdict::eWaiting) return kFound;
        if (answer.eVerdict == Verdict::eWaiting) iExitCode = kRestartPending;
    }
    return iExitCode;
}

std::wstring FormatAnswers(std::span<const Answer> answers, const std::wstring& tstrSource,
                           std::span<const std::wstring> notCovered)
{
    std::vector<Answer> sorted(answers.begin(), answers.end());
    std::stable_partition(sorted.begin(), sorted.end(), [](const Answer& answer) { return IsKept(answer.eVerdict); });
    std::wstring tstrText;
    for (const Answer& answer : sorted) {
        std::wstring tstrWord = WordOf(answer.eVerdict);
        tstrWord.resize(kWordWidth, L' ');
        tstrText += tstrWord + answer.tstrWhat;
        if (!answer.tstrDetail.empty()) tstrText += L" (" + answer.tstrDetail + L")";
        tstrText += L"\n";
    }
    for (const std::wstring& tstrKind : notCovered) {
        tstrText += (&tstrKind == notCovered.data() ? L"not covered without a manifest: " : L"; ") + tstrKind;
    }
    if (!notCovered.empty()) tstrText += L"\n";
    const auto counts = CountVerdicts(answers);
    const auto cKept = static_cast<std::size_t>(
        std::count_if(answers.begin(), answers.end(), [](const Answer& answer) { return IsKept(answer.eVerdict); }));
    tstrText += std::to_wstring(cKept) + L" of " + std::to_wstring(answers.size()) + L" promises kept";
    for (std::size_t uVerdict = 0; uVerdict < kVerdicts; ++uVerdict) {
        if (counts[uVerdict] == 0 || IsKept(static_cast<Verdict>(uVerdict))) continue;
        tstrText += L", " + std::to_wstring(counts[uVerdict]) + L" " + kWords[uVerdict];
    }
    return tstrText + L" (" + tstrSource + L")\n";
}

std::string FormatAnswersAsJson(std::span<const Answer> answers, const std::wstring& tstrSource,
                                std::span<const std::wstring> notCovered)
{
    Json::Value root;
    root["promises_from"] = ToJson(tstrSource);
    root["complete"] = ExitCodeOf(answers) == kClean;
    const auto counts = CountVerdicts(answers);
    root["restart_pending"] = counts[static_cast<std::size_t>(Verdict::eWaiting)] > 0;
    for (std::size_t uVerdict = 0; uVerdict < kVerdicts; ++uVerdict) {
        root["counts"][String::ToUtf8(kWords[uVerdict])] = Json::UInt64{counts[uVerdict]};
    }
    root["not_covered"] = Json::Value(Json::arrayValue);
    for (const std::wstring& tstrKind : notCovered) root["not_covered"].append(ToJson(tstrKind));
    root["answers"] = Json::Value(Json::arrayValue);
    for (const Answer& answer : answers) {
        Json::Value json;
        json["verdict"] = ToJson(WordOf(answer.eVerdict));
        json["what"] = ToJson(answer.tstrWhat);
        if (!answer.tstrDetail.empty()) json["detail"] = ToJson(answer.tstrDetail);
        root["answers"].append(json);
    }
    return ToJsonText(root);
}

int RunVerify(const Arguments& arguments, Output& output)
{
    std::wstring tstrInstalled = arguments.optInstalled.value_or(Frwk::Utility::GetInstalledFolder());
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
    Machine machine{folders, PendingPlaces(ReadPendingMoves()), Frwk::Utility::GetLanguage()};
    const std::vector<Answer> answers = VerifyPromises(promises, machine);
    output.strText = arguments.eFormat == Format::eJson
                         ? FormatAnswersAsJson(answers, tstrSource, promises.notCovered)
                         : String::ToUtf8(FormatAnswers(answers, tstrSource, promises.notCovered));
    return ExitCodeOf(answers);
}

}  // namespace Check
