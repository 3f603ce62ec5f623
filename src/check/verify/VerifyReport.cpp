// The output formats of "verify", and the verb.
#include "check/verify/Verify.h"

#include "check/update/ErrorText.h"
#include "check/update/HostPaths.h"
#include "check/update/JsonText.h"
#include "check/update/RowOrder.h"
#include "check/update/ShownText.h"
#include "check/verify/Manifest.h"

#include "agent/DownloadPath.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

#include <algorithm>
#include <iterator>
#include <optional>

using namespace KzCommon;

namespace Check {

namespace {

/// The name of a verdict, and whether it means "as expected".
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

bool IsKept(const VerifyResult& result)
{
    return RowOf(result.eVerdict).bKept;
}

std::size_t CountOf(std::span<const VerifyResult> results, Verdict eVerdict)
{
    return static_cast<std::size_t>(std::count_if(
        results.begin(), results.end(), [&](const VerifyResult& result) { return result.eVerdict == eVerdict; }));
}

/// The manifest of the update in the download folder; empty when that is not below the install folder.
std::wstring DownloadedManifest(const Folder& installed)
{
    const DownloadKey& key = ProductDownloadKey();
    std::wstring tstrPackage = key.szDefault;
    const WindowsMachine machine;
    static_cast<void>(ReadDownloadPath(machine, installed / kUpdateInfoFile, key, tstrPackage));
    MachineFolders folders(installed, tstrPackage);
    const Destination place{kInstalledDir, kComponents + tstrPackage + L"\\Share\\Setting\\" + kShippedManifest};
    return folders.LeadsElsewhere(machine, place) ? std::wstring() : folders.PathOf(place);
}

/// The last write time of a file; empty when it does not exist.
std::optional<ULONGLONG> TimeOf(const std::wstring& tstrPath)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (tstrPath.empty() || !::GetFileAttributesExW(LongPath(tstrPath).c_str(), GetFileExInfoStandard, &data))
        return {};
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return {};
    return ULARGE_INTEGER{{data.ftLastWriteTime.dwLowDateTime, data.ftLastWriteTime.dwHighDateTime}}.QuadPart;
}

/// The manifest shipped with the newest update: the installed one, or the one that the restart puts in its place,
/// unless a newer one has been downloaded since. Otherwise empty.
std::wstring FindShippedManifest(const Folder& installed, const PendingPlaces& pending)
{
    std::wstring tstrFound = installed / kShippedManifest;
    const PendingFate fate = pending.After(tstrFound);
    // Another program may move a file there, too: one from elsewhere does not belong to an update.
    if (fate.eKind == PendingFate::Kind::eTaken && installed.Contains(fate.tstrFrom)) {
        tstrFound = fate.tstrFrom;
    }
    std::wstring tstrDownloaded = DownloadedManifest(installed);
    const auto optFound = TimeOf(tstrFound);
    const auto optDownloaded = TimeOf(tstrDownloaded);
    if (optDownloaded && (!optFound || *optDownloaded > *optFound)) return tstrDownloaded;
    return optFound ? tstrFound : std::wstring();
}

/// Sets the expected content of the manifest file itself, which is known here but cannot be in the manifest.
void AddOwnContent(const std::wstring& tstrManifest, ExpectedState& expected)
{
    ContentReader reader;
    Content content;
    if (!reader.Read(tstrManifest, content, nullptr)) return;
    for (ExpectedFile& file : expected.files) {
        if (String::EqualsNoCase(file.tstrPlace, kInstalledDir + std::wstring(kShippedManifest))) {
            file.optContent = content;
        }
    }
}

}  // namespace

int ExitCodeOf(std::span<const VerifyResult> results)
{
    int iExitCode = kClean;
    for (const VerifyResult& result : results) {
        if (!IsKept(result) && result.eVerdict != Verdict::eWaiting) return kFound;
        if (result.eVerdict == Verdict::eWaiting) iExitCode = kRestartPending;
    }
    return iExitCode;
}

std::wstring FormatResults(std::span<const VerifyResult> results, const std::wstring& tstrSource)
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
    const auto cKept = std::count_if(results.begin(), results.end(), IsKept);
    tstrText += std::to_wstring(cKept) + L" of " + std::to_wstring(results.size()) + L" promises kept";
    for (const VerdictRow& row : kVerdicts) {
        const std::size_t cAnswers = CountOf(results, row.eVerdict);
        if (cAnswers > 0 && !row.bKept) tstrText += L", " + std::to_wstring(cAnswers) + L" " + row.szWord;
    }
    return tstrText + L" (" + tstrSource + L")\n";
}

std::string FormatResultsAsJson(std::span<const VerifyResult> results, const std::wstring& tstrSource)
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
    ShowHostPaths(root);
    return ToJsonText(root);
}

int RunVerify(const Arguments& arguments, Output& output)
{
    const std::wstring tstrInstalled =
        arguments.optInstalled.value_or(Frwk::Utility::GetInstalledFolder(WindowsMachine()));
    const Folder installed = Storage::Directory::FullPath(tstrInstalled);
    if (tstrInstalled.empty() || !Storage::Directory::IsExisted(installed)) {
        output.tstrErrors +=
            (tstrInstalled.empty() ? L"no product is installed on this machine" : tstrInstalled + L": no such folder") +
            L"; --installed DIR names the product's folder\n";
        return kCannotRead;
    }
    const WindowsMachine machine;
    PendingPlaces pending(machine, ReadPendingMoves(machine));
    const bool bShipped = arguments.operands.empty();
    const std::wstring tstrSource = bShipped ? FindShippedManifest(installed, pending) : arguments.operands.front();
    if (tstrSource.empty()) {
        output.tstrErrors +=
            L"no update on this machine has brought its manifest, QorUpdate.json. Its author adds it with "
            L"\"BrevantCheck manifest --into UPDATE\". Here \"BrevantCheck manifest UPDATE > FILE\" "
            L"and \"BrevantCheck verify FILE\" do the same with the update's folder\n";
        return kCannotRead;
    }
    ExpectedState expected;
    if (!ReadManifest(tstrSource, expected, output.tstrErrors)) return kCannotRead;
    if (bShipped) AddOwnContent(tstrSource, expected);
    MachineFolders folders(installed, expected.tstrProduct);
    ContentReader contents;
    VerifyContext context{machine, contents, folders, std::move(pending), Frwk::Utility::GetLanguage(machine)};
    const std::vector<VerifyResult> results = VerifyState(expected, context);
    output.strText = arguments.eFormat == Format::eJson
                         ? FormatResultsAsJson(results, tstrSource)
                         : String::ToUtf8(WithHostPaths(FormatResults(results, tstrSource)));
    return ExitCodeOf(results);
}

}  // namespace Check
