#include "Checks.h"

#include "Machine.h"
#include "Pairs.h"

#include "agent/QorDeployAgent.h"
#include "check/lint/Lint.h"
#include "check/ready/Ready.h"
#include "check/verify/Manifest.h"
#include "check/verify/PendingMoves.h"
#include "check/simulate/Plan.h"
#include "check/verify/Verify.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_Handle.h"

#include <bcrypt.h>

#include <cstdio>
#include <set>

using namespace KzCommon;

namespace Bench {

namespace {

constexpr unsigned kCheckedFiles = 3000;
constexpr DWORD kCheckedFileBytes = 60 * 1024;
constexpr wchar_t kManifest[] = L"C:\\Bench\\Manifest.json";
constexpr DWORD kBufferBytes = 1 << 20;

/// Reads every file of a folder once through one buffer that takes the largest, and hands its bytes on.
template <class Take>
unsigned ReadFilesBare(const std::wstring& tstrFolder, const wchar_t* szPattern, std::vector<UCHAR>& buffer,
                       Take&& take)
{
    unsigned cFiles = 0;
    WIN32_FIND_DATAW data;
    const HANDLE hFind = ::FindFirstFileW((tstrFolder + szPattern).c_str(), &data);
    Require(hFind != INVALID_HANDLE_VALUE, "the folder has files");
    do {
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
        const UniqueFile file(::CreateFileW((tstrFolder + data.cFileName).c_str(), GENERIC_READ, FILE_SHARE_READ,
                                            nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        DWORD cb = 0;
        Require(::ReadFile(file.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &cb, nullptr) != FALSE,
                "a file can be read");
        take(buffer.data(), cb);
        ++cFiles;
    } while (::FindNextFileW(hFind, &data));
    ::FindClose(hFind);
    return cFiles;
}

void ReadUpdateBare(const std::vector<FolderPair>& folders)
{
    static std::vector<UCHAR> buffer(kBufferBytes);
    const auto drop = [](UCHAR*, DWORD) {
    };
    static_cast<void>(ReadFilesBare(kInstallDir, L"QorPaFrwk.ini", buffer, drop));
    unsigned cFiles = 0;
    for (const FolderPair& folder : folders) cFiles += ReadFilesBare(folder.tstrSource, L"*", buffer, drop);
    Require(cFiles == kCheckedFiles, "the package has its files");
}

void HashInstalledBare(const std::vector<FolderPair>& folders)
{
    static std::vector<UCHAR> buffer(kBufferBytes);
    BCRYPT_ALG_HANDLE hAlgorithm = nullptr;
    Require(BCRYPT_SUCCESS(::BCryptOpenAlgorithmProvider(&hAlgorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0)),
            "there is SHA-256");
    const auto hash = [&](UCHAR* pBytes, DWORD cb) {
        UCHAR sum[32];
        BCRYPT_HASH_HANDLE hHash = nullptr;
        Require(BCRYPT_SUCCESS(::BCryptCreateHash(hAlgorithm, &hHash, nullptr, 0, nullptr, 0, 0)) &&
                    BCRYPT_SUCCESS(::BCryptHashData(hHash, pBytes, cb, 0)) &&
                    BCRYPT_SUCCESS(::BCryptFinishHash(hHash, sum, sizeof(sum), 0)),
                "a file can be hashed");
        ::BCryptDestroyHash(hHash);
    };
    std::set<std::wstring> destinations;
    for (const FolderPair& folder : folders) destinations.insert(folder.tstrDestination);
    unsigned cFiles = 0;
    for (const std::wstring& tstrFolder : destinations) {
        cFiles += ReadFilesBare(tstrFolder, L"QorComponentFile*.dll", buffer, hash);
    }
    Require(cFiles == kCheckedFiles, "the files have arrived");
    ::BCryptCloseAlgorithmProvider(hAlgorithm, 0);
}

/// What a verb writes; it ends the program when it does not end as it should.
std::string RunVerb(int (*pfnRun)(const Check::Arguments& arguments, Check::Output& output), const wchar_t* szOperand,
                    int iMostCode)
{
    Check::Arguments arguments;
    arguments.operands = {szOperand};
    arguments.optInstalled = kInstallDir;
    Check::Output output;
    const int iCode = pfnRun(arguments, output);
    if (iCode > iMostCode) std::fprintf(stderr, "%.4000s%ls", output.strText.c_str(), output.tstrErrors.c_str());
    Require(iCode <= iMostCode, "the check ends as it should");
    return std::move(output.strText);
}

void WriteManifest()
{
    const std::string strManifest = RunVerb(Check::RunManifest, kInstallDir, Check::kClean);
    const UniqueFile file(
        ::CreateFileW(kManifest, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD cbWritten = 0;
    Require(::WriteFile(file.Get(), strManifest.data(), static_cast<DWORD>(strManifest.size()), &cbWritten, nullptr),
            "the manifest can be written");
}

/// Deploys the update and does what the restart does with its files.
void InstallUpdate()
{
    Reset();
    KzCommon::WindowsMachine machine;
    FrameworkDeployAgent agent(machine);
    agent.DoPreAction();
    Require(agent.DoDeploy(), "the deployment runs");
    agent.DoPostAction();
    for (const Check::PendingMove& move : Check::ReadPendingMoves(machine)) {
        if (move.tstrDestination.empty()) continue;
        ::MoveFileExW(move.tstrSource.c_str(), move.tstrDestination.c_str(), MOVEFILE_REPLACE_EXISTING);
    }
    ForgetPendingMoves();
}

}  // namespace

void MeasureChecks(unsigned cRounds)
{
    const auto asItIs = [] {
    };
    const std::vector<FolderPair> folders = MakePackage(kCheckedFiles, kCheckedFileBytes);
    WriteLargestInstructions();
    Reset();
    const auto read = [&] {
        ReadUpdateBare(folders);
    };
    read();  // the first time may come from the disk
    MeasurePairs(
        "lint", cRounds, read, [] { static_cast<void>(RunVerb(Check::RunLint, kInstallDir, Check::kFound)); }, asItIs);
    MeasurePairs(
        "plan", cRounds, read, [] { static_cast<void>(RunVerb(Check::RunPlan, kInstallDir, Check::kClean)); }, asItIs);
    MeasurePairs(
        "ready", cRounds, [] { static_cast<void>(RunVerb(Check::RunPlan, kInstallDir, Check::kClean)); },
        [] { static_cast<void>(RunVerb(Check::RunReady, kInstallDir, Check::kFound)); }, asItIs);

    WriteManifest();
    InstallUpdate();
    MeasurePairs(
        "verify", cRounds, [&] { HashInstalledBare(folders); },
        [] { static_cast<void>(RunVerb(Check::RunVerify, kManifest, Check::kClean)); }, asItIs);
}

}  // namespace Bench
