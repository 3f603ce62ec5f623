// Rules for the manifest that an update ships.
#include "check/lint/Lint.h"
#include "check/update/ErrorText.h"
#include "check/verify/Manifest.h"

#include "common/KzComn_WholeFile.h"

using namespace KzCommon;

namespace Check {

namespace {

/// Why a shipped manifest is not the one that "manifest --into" writes today; empty when it is.
std::wstring WhyStale(const Update& update, const std::wstring& tstrManifest)
{
    std::string strShipped;
    std::string strToday;
    std::wstring tstrErrors;
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::File::ReadWhole(update.FullPath(tstrManifest), kMaxManifestBytes, strShipped, &dwError)) {
        return L"it cannot be read: " + DescribeError(dwError);
    }
    ExpectedState shipped;
    if (!ParseManifest(strShipped, shipped, tstrErrors)) return L"verify refuses it (" + tstrErrors + L")";
    if (!MakeManifest(update, true, strToday, tstrErrors)) return L"a file of the update cannot be read";
    // Encoding and line ends do not matter.
    return FormatManifest(shipped) == strToday ? std::wstring() : L"it does not say what the update promises today";
}

}  // namespace

void CheckManifest(const LintContext& context, Report& report)
{
    for (const std::wstring& tstrFile : context.update.FilesIn(context.update.SettingFolder(), kShippedManifest)) {
        // As "manifest" opens it, which has no option for another install folder.
        Update update;
        if (!update.Open(context.update.GivenFolder(), std::nullopt, nullptr)) return;
        const std::wstring tstrWhy = WhyStale(update, tstrFile);
        if (tstrWhy.empty()) continue;
        report.Add(Rule::eStaleManifest, tstrFile, {},
                   tstrWhy + L"; renew it: BrevantCheck manifest --into \"" + update.GivenFolder() + L"\"");
    }
}

}  // namespace Check
