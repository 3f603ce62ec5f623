// Measures the agent's work against the bare loop of the same Windows calls, in one process and in turns. Prints raw
// samples for bench.py, one a line, fields separated by tabs:
//
//     pair      name   the other's microseconds   ours
//     growth    files  the bare loop's microseconds   those of MoveFileExW in it   ours
//     call      name   nanoseconds
//     memory    kind   the other's bytes at its peak   ours
#include "Checks.h"
#include "Clock.h"
#include "Machine.h"
#include "Pairs.h"
#include "Programs.h"

#include "agent/QorDeployAgent.h"
#include "agent/RegistryPatch.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_DebugLog.h"

#include <cstdio>
#include <cstdlib>

using namespace KzCommon;
using namespace Bench;

namespace {

constexpr unsigned kDeployedFiles = 500;
constexpr unsigned kRecords = 1000;
constexpr unsigned kIniRecords = 200;
constexpr unsigned kGrowth[] = {10, 100, 1000, 3000};
constexpr unsigned kGrowthRounds = 5;
constexpr unsigned kShortRounds = 3;  // times as many where a round takes a moment only
constexpr unsigned kTraceCalls = 20'000'000;

/// Registers the moves that a deployment registers, and nothing else. Returns the ticks inside MoveFileExW.
LONGLONG DeployBare(const std::vector<FolderPair>& folders)
{
    LONGLONG llMoves = 0;
    for (const FolderPair& folder : folders) {
        wchar_t szSource[MAX_PATH];
        wchar_t szDestination[MAX_PATH];
        wchar_t* pSourceName = szSource + folder.tstrSource.copy(szSource, MAX_PATH);
        wchar_t* pDestinationName = szDestination + folder.tstrDestination.copy(szDestination, MAX_PATH);
        ::lstrcpyW(pSourceName, L"*.*");
        WIN32_FIND_DATAW data;
        const HANDLE hFind = ::FindFirstFileW(szSource, &data);
        Require(hFind != INVALID_HANDLE_VALUE, "the package has its folders");
        do {
            if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
            ::lstrcpyW(pSourceName, data.cFileName);
            ::lstrcpyW(pDestinationName, data.cFileName);
            const LONGLONG llStart = Now();
            ::MoveFileExW(szSource, szDestination, MOVEFILE_REPLACE_EXISTING | MOVEFILE_DELAY_UNTIL_REBOOT);
            llMoves += Now() - llStart;
        } while (::FindNextFileW(hFind, &data));
        ::FindClose(hFind);
    }
    return llMoves;
}

void Deploy(FrameworkDeployAgent& agent)
{
    Require(agent.DoDeploy(), "the deployment runs");
}

void DeployFiles()
{
    KzCommon::WindowsMachine machine;
    FrameworkDeployAgent agent(machine);
    Deploy(agent);
}

/// A deployment with its trace, as the program has it: opened before, closed after.
void DeployWithTrace()
{
    const Storage::Key settings(HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\KZVLT\\1\\DebugLog");
    Require(GlobalDebugLog().Open(L"Brevant", settings, L".\\", nullptr), "the trace can be opened");
    DeployFiles();
    Require(CloseGlobalDebugLog(), "the trace was open");
}

void MeasureDeployment(unsigned cRounds)
{
    const std::vector<FolderPair> folders = MakePackage(kDeployedFiles);
    MeasurePairs(
        "deploy", cRounds, [&] { DeployBare(folders); }, DeployFiles);
    Require(CountPendingTexts() == 2 * kDeployedFiles, "every file is pending");

    MeasurePairs(
        "deploy traced", cRounds,
        [] {
            EnableTrace(false);
            DeployWithTrace();
        },
        [] {
            EnableTrace(true);
            DeployWithTrace();
        });
    EnableTrace(false);
}

void MeasureGrowth()
{
    for (const unsigned cFiles : kGrowth) {
        const std::vector<FolderPair> folders = MakePackage(cFiles);
        for (unsigned uRound = 0; uRound < kGrowthRounds; ++uRound) {
            LONGLONG llMoves = 0;
            const double dBare = Measure([&] { llMoves = DeployBare(folders); });
            const double dOurs = Measure(DeployFiles);
            std::printf("growth\t%u\t%.1f\t%.1f\t%.1f\n", cFiles, dBare, Microseconds(llMoves), dOurs);
            std::fflush(stdout);
        }
        Require(CountPendingTexts() == 2 * cFiles, "every file is pending");
    }
}

void AddBare()
{
    for (unsigned uIndex = 0; uIndex < kRecords; ++uIndex) {
        const std::wstring tstrName = RecordName(uIndex);
        HKEY hKey = nullptr;
        Require(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kRecordKey, 0, nullptr, REG_OPTION_NON_VOLATILE,
                                  KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY, nullptr, &hKey,
                                  nullptr) == ERROR_SUCCESS,
                "the records' key can be opened");
        ::RegSetValueExW(hKey, tstrName.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(tstrName.c_str()),
                         static_cast<DWORD>((tstrName.size() + 1) * sizeof(wchar_t)));
        ::RegCloseKey(hKey);
    }
}

void MeasureRegistry(unsigned cRounds)
{
    WriteRegistryRecords(kRecords);
    MeasurePairs("registry", cRounds, AddBare, [] {
        KzCommon::WindowsMachine machine;
        PatchRegistry(RunContext(machine));
    });
    DWORD cb = 0;
    Require(::RegGetValueW(HKEY_LOCAL_MACHINE, kRecordKey, RecordName(kRecords - 1).c_str(), RRF_RT_REG_SZ, nullptr,
                           nullptr, &cb) == ERROR_SUCCESS,
            "the last record is written");
}

/// What a whole update asks of Windows, and nothing else.
void UpdateBare(const std::vector<FolderPair>& folders)
{
    AddBare();
    const std::wstring tstrUpdateInfo = EditedInfoPath();
    for (unsigned uIndex = 0; uIndex < kIniRecords; ++uIndex) {
        const std::wstring tstrName = RecordName(uIndex);
        ::WritePrivateProfileStringW(L"COMPONENT_LIST", tstrName.c_str(), tstrName.c_str(), tstrUpdateInfo.c_str());
    }
    DeployBare(folders);
}

void MeasureUpdate(unsigned cRounds)
{
    const std::vector<FolderPair> folders = MakePackage(kDeployedFiles);
    WriteUpdateRecords(kRecords, kIniRecords);
    MeasurePairs(
        "update", cRounds, [&] { UpdateBare(folders); },
        [] {
            KzCommon::WindowsMachine machine;
            FrameworkDeployAgent agent(machine);
            agent.DoPreAction();
            Deploy(agent);
            agent.DoPostAction();
        });
    // The update information is one file more.
    Require(CountPendingTexts() == 2 * (kDeployedFiles + 1) || CountPendingTexts() == 2 * kDeployedFiles,
            "every file is pending");
}

void MeasureDisabledTrace(unsigned cRounds)
{
    DeployWithTrace();  // leaves the trace closed, as before its first opening
    for (unsigned uRound = 0; uRound < cRounds; ++uRound) {
        const double dMicroseconds = Measure([] {
            for (unsigned uCall = 0; uCall < kTraceCalls; ++uCall) Trace(kTraceInfo, L"call %u", uCall);
        });
        std::printf("call\tdisabled trace\t%.3f\n", dMicroseconds * 1000 / kTraceCalls);
    }
}

void MeasureStart(unsigned cRounds)
{
    static_cast<void>(RunProgram(L"empty.exe", L"", false));  // the first start reads the files
    static_cast<void>(RunProgram(L"Brevant.exe", L"", false));
    for (unsigned uRound = 0; uRound < cRounds; ++uRound) {
        const double dEmpty = RunProgram(L"empty.exe", L"", false).dMicroseconds;
        const double dOurs = RunProgram(L"Brevant.exe", L"", false).dMicroseconds;
        std::printf("pair\tstart\t%.1f\t%.1f\n", dEmpty, dOurs);
    }
}

void MeasureMemory(unsigned cRounds)
{
    WriteLargestInstructions();
    for (unsigned uRound = 0; uRound < cRounds; ++uRound) {
        Reset();
        const ProgramRun empty = RunProgram(L"empty.exe", L"", true);
        const ProgramRun ours = RunProgram(L"Brevant.exe", L"/DeployFramework", true);
        std::printf("memory\tprivate\t%llu\t%llu\n", empty.ullPrivate, ours.ullPrivate);
        std::printf("memory\tworking set\t%llu\t%llu\n", empty.ullWorkingSet, ours.ullWorkingSet);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const unsigned cRounds = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 5;
    const bool bGrowth = argc <= 2 || std::atoi(argv[2]) != 0;
    if (!IsThrowawayMachine()) {
        std::fputs("bench: this machine has the product or pending moves of its own; use a throwaway machine\n",
                   stderr);
        return 1;
    }
    InstallProduct();
    Reset();
    MeasureStart(kShortRounds * cRounds);
    MeasureDeployment(cRounds);
    if (bGrowth) MeasureGrowth();
    MeasureDisabledTrace(cRounds);
    MeasureRegistry(kShortRounds * cRounds);
    MeasureUpdate(cRounds);
    MeasureMemory(cRounds);
    MeasureChecks(cRounds);
    Reset();
    return 0;
}
