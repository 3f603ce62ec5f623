// The machine that the benchmarks run on: an installed product with an update of any size, and the system's list of
// pending moves.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace Bench {

/// Where the product is installed; with trailing backslash.
inline constexpr wchar_t kInstallDir[] = L"C:\\Bench\\KZVLT\\";
/// Where the traces go; with trailing backslash.
inline constexpr wchar_t kTraceDir[] = L"C:\\Bench\\Trace\\";
/// The key, below HKEY_LOCAL_MACHINE, that the registry records write to. Short, so that a thousand of them fit.
inline constexpr wchar_t kRecordKey[] = L"SOFTWARE\\B";

/// A folder of the downloaded package and the one that its files are deployed to; both with trailing backslash.
struct FolderPair {
    std::wstring tstrSource;
    std::wstring tstrDestination;
};

/// False on a machine that has the product or pending moves of its own: the benchmarks would destroy them.
[[nodiscard]] bool IsThrowawayMachine();

/// Writes what the agent reads before it deploys: the product's key, the trace's settings, the folders. Ends the
/// program when that fails.
void InstallProduct();

/// Fills the package with that many files, spread over its folders, and returns the folders. No two files of at least
/// four bytes have the same content.
[[nodiscard]] std::vector<FolderPair> MakePackage(unsigned cFiles, DWORD cbFile = 0);

/// Turns the trace of every level to a file on or off; counts when the trace is opened next.
void EnableTrace(bool bEnable);

/// Writes an instruction file with that many registry records.
void WriteRegistryRecords(unsigned cRecords);

/// Writes an instruction file with that many registry and INI records, and the installed update information and
/// settings folder that the INI records need.
void WriteUpdateRecords(unsigned cRegistryRecords, unsigned cIniRecords);

/// The installed update information file.
[[nodiscard]] std::wstring UpdateInfoPath();
/// A file as deep in the folders as the agent's working copy of it: each edit opens the file twice, and the time of an
/// opening depends on the depth.
[[nodiscard]] std::wstring EditedInfoPath();

/// Writes the largest instruction file that is carried out in full: every section as long as is still read.
void WriteLargestInstructions();

/// The value that a record of WriteRegistryRecords writes: its name, and as its data the name once more.
[[nodiscard]] std::wstring RecordName(unsigned uIndex);

/// Removes the pending moves, the records' key and the traces: every sample begins with the same machine.
void Reset();

/// Empties the system's list of pending moves.
void ForgetPendingMoves();

/// How many texts the system's list of pending moves holds: two for each move.
[[nodiscard]] std::size_t CountPendingTexts();

/// Ends the program with a message unless `bOk`.
void Require(bool bOk, const char* szWhat);

}  // namespace Bench
