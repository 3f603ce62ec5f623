// Entry point of the checking program: checks updates before they ship and machines after it. It runs with
// its caller's rights, and writes only the manifest of "manifest --into" and the folders of "new" and "undo".
#include "check/fleet/Rollup.h"
#include "check/lint/Lint.h"
#include "check/ready/Ready.h"
#include "check/sign/CheckSignature.h"
#include "check/simulate/Plan.h"
#include "check/start/NewUpdate.h"
#include "check/trace/TraceSummary.h"
#include "check/undo/Undo.h"
#include "check/update/CommandLine.h"
#include "check/update/HostPaths.h"
#include "check/verify/Diff.h"
#include "check/verify/Manifest.h"
#include "check/verify/Verify.h"

#include "common/KzComn_Exception.h"
#include "common/KzComn_String.h"

#include <cstdint>

using namespace Check;
using namespace KzCommon;

namespace {

constexpr Verb kVerbs[] = {
    {L"new", L"DIR [--product NAME] [--version V] [--languages TAG,...]",
     L"Writes an update to begin with into DIR, and a product to try it on: DIR\\update has both packages, the\n"
     L"instruction file and the texts of every language, DIR\\installed the product with its registry.reg. The guide\n"
     L"first-update.md leads from there to the release. DIR must be new or empty.\n\n"
     L"  --product NAME       the product's name in texts and shortcuts (Kazmere Qorvault)\n"
     L"  --version V          the version that the update brings, four numbers (3.9.3.1140)\n"
     L"  --languages TAG,...  the languages that it serves (EN-US,DE-DE); the texts of others are English\n\n"
     L"Exit code: 0 written, 2 wrong use, 3 DIR is not empty or cannot be written.",
     kNewNames, 1, 1, RunNew},
    {L"lint", L"UPDATE [--installed DIR] [--language TAG]... [--strict] [--format text|sarif]",
     L"Finds every mistake of an update that can be found before it ships. UPDATE is a folder as the update client\n"
     L"leaves it: QorPaFrwk.ini, UpdateInfo.ini, Component\\... docs/check-rules.md describes every rule.\n\n"
     L"  --installed DIR  the folder of the installed product; without it UPDATE itself when it is one\n"
     L"  --language TAG   a language that the update must serve, such as EN-US\n"
     L"  --strict         warnings count as errors\n\n"
     L"Exit code: 0 clean, 1 errors, 2 wrong use, 3 cannot read.",
     kInstalled | kLanguage | kStrict | kFormatSarif, 1, 1, RunLint},
    {L"plan", L"UPDATE [--installed DIR] [--language TAG] [--format text|json] [--trace]",
     L"Shows what \"Brevant.exe /DeployFramework\" would do on this machine, in the order of the run, and changes\n"
     L"nothing. An update outside the install folder is treated as if it were there.\n\n"
     L"  + new   ~ replaced   - removed   = stays as it is   ! not possible   ? unknown: the caller has no access\n"
     L"  [restart] when Windows starts again\n\n"
     L"  --installed DIR  the folder of the installed product; without it the one that the registry names. A file\n"
     L"                   registry.reg in it has the values of the product's registry key, a folder drive_c the\n"
     L"                   product's files that are elsewhere on drive C:.\n"
     L"  --language TAG   the language of the installed product, instead of the one in the registry\n"
     L"  --trace          prints the trace that the run would write\n\n"
     L"Exit code: 0 planned, 2 wrong use, 3 cannot read.",
     kInstalled | kLanguage | kFormatJson | kTrace, 1, 1, RunPlan},
    {L"ready", L"UPDATE [--installed DIR] [--format text|json]",
     L"Says whether the deployment would work on this machine, now: space, files in use, pending moves of others, an\n"
     L"update that still waits for the restart, changes that are not possible, folders that standard users can write\n"
     L"to, Fast Startup, a version that is installed already. Each finding has a number and a remedy.\n\n"
     L"  --installed DIR  the folder of the installed product; without it the one that the registry names\n\n"
     L"Exit code: 0 ready, 1 findings, 2 wrong use, 3 cannot read.",
     kInstalled | kFormatJson, 1, 1, RunReady},
    {L"manifest", L"UPDATE > FILE | --into UPDATE",
     L"Writes what the update promises to a machine: files with their SHA-256, deletions, registry values, update\n"
     L"information. \"verify\" compares a machine with it.\n\n"
     L"  --into  writes it to QorUpdate.json in the settings folder of the update's product package: the update then\n"
     L"          brings it along, and \"verify\" needs no FILE. Renew it after every change of the update.\n\n"
     L"Exit code: 0 written, 2 wrong use, 3 cannot read or write.",
     kInto, 1, 1, RunManifest},
    {L"sign", L"UPDATE --with COMMAND",
     L"Writes the manifest into the update, as \"manifest --into\" does, and starts COMMAND with the manifest's path "
     L"as\n"
     L"its last argument. COMMAND writes the signature to the same path with \".sig\": ECDSA on P-256 with SHA-256, "
     L"in\n"
     L"DER. The key stays where COMMAND has it.\n\n"
     L"Exit code: 0 signed, 2 wrong use, 3 cannot read, write or sign.",
     kWith, 1, 1, RunSign},
    {L"check-signature", L"UPDATE --key FILE... [--installed DIR] [--older]",
     L"Says whether an update is as its author signed it: the manifest has the signature of one of the keys, every "
     L"file\n"
     L"has the content that the manifest lists, no file is missing or too many, nothing is a link, the version is not\n"
     L"older than the installed one, and standard users cannot write to it. Start the agent only after that.\n\n"
     L"  --key FILE       public keys in PEM; one must have signed, several are for a change of keys\n"
     L"  --installed DIR  the folder of the installed product; without it the one in the registry\n"
     L"  --older          accepts an older version\n\n"
     L"Exit code: 0 as it was signed, 1 not, 2 wrong use, 3 cannot read.",
     kKey | kInstalled | kOlder, 1, 1, RunCheckSignature},
    {L"undo", L"UPDATE [--installed DIR] --output NEW",
     L"Writes an update into NEW that restores what UPDATE replaces or removes: files, settings, registry values,\n"
     L"update information. Use it before UPDATE is deployed. It carries out both updates in memory and lists what\n"
     L"is not restored, also in the manifest of the new update. Lint, try and sign that update like any other. It is\n"
     L"for this machine only, and older: check-signature needs --older. The guide undo.md says more.\n\n"
     L"  --installed DIR  the folder of the installed product; without it the one that the registry names\n"
     L"  --output NEW     a new or empty folder, outside of UPDATE and of the product\n\n"
     L"Exit code: 0 written, 2 wrong use, 3 cannot read or write, or files of the product wait for the restart.",
     kInstalled | kOutput, 1, 1, RunUndo},
    {L"diff", L"OLD NEW [--format text|json]",
     L"Shows what another update does otherwise: files, settings, deletions, registry values, update information,\n"
     L"commands, shortcuts, names. OLD and NEW are the folder of an update or a manifest each.\n\n"
     L"  + only NEW   - only OLD   ~ both, in different ways\n\n"
     L"Exit code: 0 equal, 1 different or not all compared, 2 wrong use, 3 cannot read.",
     kFormatJson, 2, 2, RunDiff},
    {L"verify",
     L"[FILE] [--installed DIR] [--format text|json] [--key FILE]... [--record FILE] [--event-log]\n"
     L"         [--detect [--pending arrived|missing]]",
     L"Says of each promise of a manifest, FILE, whether this machine keeps it. Without FILE it uses the manifest\n"
     L"that the update brought, QorUpdate.json: the newest of those in the install folder, among the files that the\n"
     L"restart moves, and in the download folder. Its last line names the file.\n\n"
     L"  --installed DIR  the folder of the installed product; without it the one in the registry\n"
     L"  --key FILE       public keys in PEM: only a manifest that one of the keys has signed counts\n"
     L"  --record FILE    also writes the verdict over this machine to FILE, for \"rollup\"\n"
     L"  --event-log      also writes one event to the application log\n"
     L"  --detect         for detection scripts: one line if the update has arrived, no output if it has not\n"
     L"  --pending WORD   how --detect counts an update that waits for the restart: arrived, or missing (as without "
     L"it)\n\n"
     L"Exit code with --detect: 0 arrived or not, otherwise unknown. Exit code without it:\n"
     L"0 complete, 1 not or not known, 3010 only a restart is missing, 2 wrong use, 3 cannot read.",
     kInstalled | kFormatJson | kFleet | kKey, 0, 1, RunVerify},
    {L"rollup", L"DIR [--machines FILE] [--format text|json|csv]",
     L"Makes one table of the records in DIR and its subfolders, which \"verify --record\" has written on many\n"
     L"machines: verdicts of each update, the ten most frequent reasons with their machines. The latest record of a\n"
     L"machine counts. Damaged files and second copies are named.\n\n"
     L"  --machines FILE  the machines to expect, one name in each line; those without a record are named\n\n"
     L"Exit code: 0 arrived on every machine, 1 not, no record, or a file that was not counted, 2 wrong use,\n"
     L"3 cannot read.",
     kFormatJson | kMachines, 1, 1, RunRollup},
    {L"trace", L"FILE... [--all]",
     L"Summarises every run of the trace files: time, duration, actions, failures. It also reads earlier files\n"
     L"(FILE.1, ...).\n\n"
     L"  --all            shows also the harmless lines that look like failures\n\n"
     L"Exit code: 0 read, 2 wrong use, 3 cannot read.",
     kAll, 1, SIZE_MAX, RunTrace},
};

/// Writes to a console as text, to a file or pipe as UTF-8. False when not all could be written.
bool Write(DWORD dwHandle, std::string_view strText)
{
    const HANDLE hOutput = ::GetStdHandle(dwHandle);
    DWORD dwMode = 0;
    DWORD dwWritten = 0;
    std::wstring tstrText;
    if (::GetConsoleMode(hOutput, &dwMode) && String::FromUtf8(strText, tstrText)) {
        return ::WriteConsoleW(hOutput, tstrText.data(), static_cast<DWORD>(tstrText.size()), &dwWritten, nullptr);
    }
    while (!strText.empty()) {
        const auto cb = static_cast<DWORD>(std::min(strText.size(), std::size_t{1} << 20));
        if (!::WriteFile(hOutput, strText.data(), cb, &dwWritten, nullptr) || dwWritten == 0) return false;
        strText.remove_prefix(dwWritten);
    }
    return true;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    // Libraries named without a path are not loaded from the program's folder or the current one.
    ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);

    Output output;
    int iExitCode = kCannotRead;
    DWORD dwError = ERROR_SUCCESS;
    const std::size_t cWords = argc > 1 ? static_cast<std::size_t>(argc) - 1 : 0;
    if (!Storage::Guarded(&dwError, [&] { iExitCode = RunCommandLine(kVerbs, {argv + 1, cWords}, output); })) {
        output.tstrErrors += L"BrevantCheck ended early, error " + std::to_wstring(dwError) + L"\n";
        iExitCode = kCannotRead;
    }
    const bool bWritten = Write(STD_OUTPUT_HANDLE, output.strText);
    static_cast<void>(Write(STD_ERROR_HANDLE, String::ToUtf8(WithHostPaths(output.tstrErrors))));
    return bWritten ? iExitCode : kCannotRead;
}
