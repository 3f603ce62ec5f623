// The verb "verify" and what it leaves for a fleet: a record, the answer to a detection script.
#include "check/update/ErrorText.h"
#include "check/update/HostPaths.h"
#include "check/verify/Diff.h"
#include "check/verify/EventLog.h"
#include "check/verify/Manifest.h"
#include "check/verify/Record.h"
#include "check/verify/ShippedManifest.h"
#include "check/verify/SignedManifest.h"
#include "check/verify/Verify.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

using namespace KzCommon;

namespace Check {

namespace {

/// What was found on this machine.
struct Verification {
    Folder installed;
    std::wstring tstrSource;  ///< the manifest; empty if no update has brought one
    ExpectedState expected;
    std::vector<VerifyResult> results;
    std::vector<ReplacedItem> replaced;
};

/// What the verified update replaces of earlier ones: those whose manifests the same restart would bring.
std::vector<ReplacedItem> ListReplaced(const std::vector<PendingMove>& moves, const Verification& found)
{
    std::vector<ReplacedItem> replaced;
    for (const PendingMove& move : moves) {
        const bool bManifest = String::EqualsNoCase(move.tstrDestination, found.installed / kShippedManifest);
        std::wstring tstrUnread;
        ExpectedState earlier;
        if (!bManifest || String::EqualsNoCase(move.tstrSource, found.tstrSource) ||
            !found.installed.Contains(move.tstrSource) || !ReadManifest(move.tstrSource, earlier, tstrUnread)) {
            continue;
        }
        for (const Difference& difference : CompareStates(earlier, found.expected)) {
            const bool bBoth = difference.optOld && difference.optNew;
            if (!bBoth || difference.szKind == std::string_view("package")) continue;
            replaced.push_back({earlier.strUpdate, difference.szKind, difference.tstrWhat});
        }
    }
    return replaced;
}

/// False, with an error line, if none of the keys has signed the manifest.
bool IsSigned(const std::vector<PublicKey>& keys, const std::wstring& tstrManifest, std::string_view strManifest,
              std::wstring& tstrErrors)
{
    std::wstring tstrReason;
    if (FindSigner(keys, tstrManifest, strManifest, tstrReason)) return true;
    tstrErrors += tstrReason + L"\n";
    return false;
}

/// False, with an error line, if nothing can be verified.
bool VerifyMachine(const Arguments& arguments, const std::vector<PublicKey>& keys, const Machine& machine,
                   Verification& found, std::wstring& tstrErrors)
{
    const std::wstring tstrInstalled = arguments.optInstalled.value_or(Frwk::Utility::GetInstalledFolder(machine));
    found.installed = Folder(Storage::Directory::FullPath(tstrInstalled));
    if (tstrInstalled.empty() || !Storage::Directory::IsExisted(found.installed)) {
        tstrErrors +=
            (tstrInstalled.empty() ? L"no product is installed on this machine" : tstrInstalled + L": no such folder") +
            L"; --installed DIR names the product's folder\n";
        return false;
    }
    const std::vector<PendingMove> moves = ReadPendingMoves(machine);
    PendingPlaces pending(machine, moves);
    const bool bShipped = arguments.operands.empty();
    found.tstrSource = bShipped ? FindShippedManifest(found.installed, pending) : arguments.operands.front();
    if (found.tstrSource.empty()) {
        tstrErrors +=
            L"no update on this machine has brought its manifest, QorUpdate.json. Its author adds it with "
            L"\"BrevantCheck manifest --into UPDATE\". Here \"BrevantCheck manifest UPDATE > FILE\" "
            L"and \"BrevantCheck verify FILE\" do the same with the update's folder\n";
        return false;
    }
    std::string strManifest;
    if (!ReadManifest(found.tstrSource, found.expected, tstrErrors, &strManifest)) return false;
    if (!keys.empty() && !IsSigned(keys, found.tstrSource, strManifest, tstrErrors)) return false;
    found.replaced = ListReplaced(moves, found);
    if (bShipped) AddOwnContent(found.tstrSource, found.expected);
    MachineFolders folders(found.installed, found.expected.tstrProduct);
    ContentReader contents;
    VerifyContext context{machine, contents, folders, std::move(pending), Frwk::Utility::GetLanguage(machine)};
    if (String::EqualsNoCase(found.tstrSource, found.installed / kShippedManifest)) {
        context.optArrived = TimeOfArrival(found.tstrSource);
    }
    found.results = VerifyState(found.expected, context);
    return true;
}

/// "--record". False, with an error line, if the record cannot be written.
bool WriteRecord(const std::wstring& tstrFile, const Record& record, std::wstring& tstrErrors)
{
    DWORD dwError = ERROR_SUCCESS;
    Storage::File::Replacement file(LongPath(Storage::Directory::FullPath(tstrFile)));
    if (file.Create({}, FILE_ATTRIBUTE_NORMAL, &dwError) && file.Write(FormatRecord(record), &dwError) &&
        file.TakePlace(&dwError)) {
        return true;
    }
    tstrErrors += tstrFile + L": cannot be written: " + DescribeError(dwError) + L"\n";
    return false;
}

/// "--detect": a management program runs a script and takes "exit code 0 with a line" for "has arrived", "exit code 0
/// without output" for "has not", and anything else for "the script has failed".
int Detect(const Verification& found, bool bPendingCounts, Output& output)
{
    const MachineVerdict eVerdict = JudgeMachine(found.results);
    if (eVerdict == MachineVerdict::eUnknown) {
        for (const VerifyResult& result : found.results) {
            if (result.eVerdict != Verdict::eUnknown && result.eVerdict != Verdict::eRefused) continue;
            output.tstrErrors +=
                std::wstring(WordOf(result.eVerdict)) + L" " + result.tstrWhat + L" (" + result.tstrDetail + L")\n";
        }
        return kFound;
    }
    if (eVerdict == MachineVerdict::eArrived || (bPendingCounts && eVerdict == MachineVerdict::ePending)) {
        output.strText = std::string(WordOf(eVerdict)) + " " + found.expected.strUpdate + "\n";
    }
    return kClean;
}

/// Whether nothing on the machine speaks of an update: that is an answer for a detection script, not a failure.
bool IsNothingThere(const Arguments& arguments, const Verification& found)
{
    return arguments.bDetect && arguments.operands.empty() && !arguments.optInstalled && found.tstrSource.empty();
}

}  // namespace

int RunVerify(const Arguments& arguments, Output& output)
{
    if (arguments.optPending && !arguments.bDetect) {
        output.tstrErrors += L"--pending: only with --detect\n";
        return kWrongUse;
    }
    if (arguments.bDetect && arguments.eFormat != Format::eText) {
        output.tstrErrors += L"--format: not with --detect, whose output is for detection scripts\n";
        return kWrongUse;
    }
    // Read first: the answer to a wrong key must not depend on whether an update is there already.
    std::vector<PublicKey> keys;
    if (!ReadKeys(arguments.keys, keys, output.tstrErrors)) return kCannotRead;
    const WindowsMachine machine;
    Verification found;
    std::wstring tstrErrors;
    if (!VerifyMachine(arguments, keys, machine, found, tstrErrors)) {
        if (IsNothingThere(arguments, found)) return kClean;
        output.tstrErrors += tstrErrors;
        return kCannotRead;
    }
    const Record record = MakeRecord(machine, found.installed, found.expected, found.results);
    DWORD dwError = ERROR_SUCCESS;
    if (arguments.optRecord && !WriteRecord(*arguments.optRecord, record, output.tstrErrors)) return kCannotRead;
    if (arguments.bEventLog && !WriteEvent(record, &dwError)) {
        output.tstrErrors += L"the event log cannot be written: " + DescribeError(dwError) + L"\n";
        return kCannotRead;
    }
    if (arguments.bDetect) return Detect(found, arguments.optPending == L"arrived", output);
    output.strText =
        arguments.eFormat == Format::eJson
            ? FormatResultsAsJson(found.results, found.tstrSource, found.replaced)
            : String::ToUtf8(WithHostPaths(FormatResults(found.results, found.tstrSource, found.replaced)));
    return ExitCodeOf(found.results);
}

}  // namespace Check
