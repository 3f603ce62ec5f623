// "sign": makes the manifest of an update, and has a command sign it.
#include "check/sign/CheckSignature.h"

#include "check/update/ErrorText.h"
#include "check/update/HostPaths.h"
#include "check/update/OpenFolder.h"
#include "check/update/OpenUpdate.h"
#include "check/verify/Manifest.h"
#include "check/verify/SignedManifest.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"

using namespace KzCommon;

namespace Check {

namespace {

/// Runs a command and waits for its end. False with the code, or with its exit code. CreateProcessW.
bool RunCommand(std::wstring tstrCommand, DWORD& dwError, DWORD& dwExitCode)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, tstrCommand.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                          &process)) {
        dwError = ::GetLastError();
        return false;
    }
    const UniqueHandle<KernelHandleTraits> hProcess(process.hProcess);
    const UniqueHandle<KernelHandleTraits> hThread(process.hThread);
    ::WaitForSingleObject(hProcess.Get(), INFINITE);
    return ::GetExitCodeProcess(hProcess.Get(), &dwExitCode) && dwExitCode == 0;
}

/// False, with error lines, if an update has links: the agent would act on them, and no signature covers what they lead
/// to.
bool HasNoLinks(const Update& update, std::wstring& tstrErrors)
{
    bool bNone = true;
    for (const DoubtfulPlace& place : ListDoubtfulPlaces(update, RightsOf::eFolders)) {
        if (place.eDoubt != Doubt::eLink) continue;
        tstrErrors += place.tstrPlace + L": " + Describe(place) + L"\n";
        bNone = false;
    }
    return bNone;
}

}  // namespace

int RunSign(const Arguments& arguments, Output& output)
{
    Update update;
    if (!arguments.optWith) {
        output.tstrErrors += L"--with COMMAND is missing\n";
        return kWrongUse;
    }
    if (!OpenUpdate(arguments, update, output) || !HasNoLinks(update, output.tstrErrors) ||
        !ShipManifest(update, output)) {
        return kCannotRead;
    }
    const std::wstring tstrManifest = update.Root() / update.SettingFolder().Text() + kShippedManifest;
    const std::wstring tstrSignature = tstrManifest + kSignatureEnd;
    DWORD dwError = ERROR_SUCCESS;
    // An old signature that stays would count as the new one.
    const DWORD dwDelete = ::DeleteFileW(LongPath(tstrSignature).c_str()) ? ERROR_SUCCESS : ::GetLastError();
    if (dwDelete != ERROR_SUCCESS && dwDelete != ERROR_FILE_NOT_FOUND) {
        output.tstrErrors += tstrSignature + L": cannot be replaced: " + DescribeError(dwDelete) + L"\n";
        return kCannotRead;
    }
    DWORD dwExitCode = 0;
    if (!RunCommand(*arguments.optWith + L" \"" + tstrManifest + L"\"", dwError, dwExitCode)) {
        output.tstrErrors += *arguments.optWith + L": " +
                             (dwError == ERROR_SUCCESS ? L"ended with exit code " + std::to_wstring(dwExitCode)
                                                       : DescribeError(dwError)) +
                             L"\n";
        return kCannotRead;
    }
    std::string strSignature;
    if (!Storage::File::ReadWhole(LongPath(tstrSignature), kMostSignatureBytes, strSignature, &dwError)) {
        return CannotRead(tstrSignature, dwError, output);
    }
    if (strSignature.empty()) {
        output.tstrErrors += *arguments.optWith + L": wrote no signature\n";
        return kCannotRead;
    }
    output.strText += String::ToUtf8(WithHostPaths(tstrSignature) + L": written\n");
    return kClean;
}

}  // namespace Check
