// The file that a trace is written to: its name, its lines, its rollover.
#pragma once

#include "common/KzComn_Handle.h"
#include "common/KzDbg.h"
#include "kzdbg/SharedLock.h"

#include <mutex>
#include <string>
#include <vector>

namespace KzDbg {

/// Size in bytes at which a file is full: it gets no further line, and the next one goes to a new file.
inline constexpr ULONGLONG kFullBytes = ULONGLONG{10} * 1024 * 1024;
/// How many full files are kept, as FILE.1 (the youngest) and so on.
inline constexpr unsigned kKeptFiles = 3;

/// One trace file, which any number of threads and processes may write to at once: a line is one write at the end of
/// the file, and writers that are not alone take a lock around it, which makes up for file systems that do not append
/// in one go. A writer looks at the file it has open, one that is not alone before every line: when that is full or was
/// deleted, it opens the file by its name anew, and so never stays with one that another process has rolled.
class TraceFile {
public:
    explicit TraceFile(const DebugLogConfig& config);

    /// Opens or creates the file of that day, and its folder; the file stays open. 0 or a Win32 code: 681 where a link
    /// that is refused (common/KzComn_LinkRule.h) leads to the folder. CreateFileW.
    [[nodiscard]] DWORD Open(const SYSTEMTIME& time);

    /// Appends a line in UTF-8, moving to another file when the day or the size asks for it, and opening the file anew
    /// when it is not open. 0 or a Win32 code; the line is lost then, and the next that is not comes after one which
    /// says how many were. WriteFile.
    [[nodiscard]] DWORD Append(const SYSTEMTIME& time, const wchar_t* szLine);

private:
    [[nodiscard]] std::wstring PathOf(const SYSTEMTIME& time) const;
    [[nodiscard]] bool IsReady(const SYSTEMTIME& time) const noexcept;
    /// The same for a writer that is alone, which looks once in a tick of the system's clock: a look costs as much as a
    /// write, and what comes into a file in the tick in which it is deleted could as well have come before.
    [[nodiscard]] bool IsReadyAlone(const SYSTEMTIME& time) noexcept;
    [[nodiscard]] bool IsOfDay(const SYSTEMTIME& time) const noexcept;
    [[nodiscard]] std::wstring LossLine(const SYSTEMTIME& time) const;
    [[nodiscard]] DWORD WriteLine(const SYSTEMTIME& time, const wchar_t* szLine);
    [[nodiscard]] DWORD WriteEncoded(const SYSTEMTIME& time, DWORD cbLine);
    [[nodiscard]] DWORD Reopen(const SYSTEMTIME& time, bool bMayRoll);

    std::wstring m_tstrModule;
    std::wstring m_tstrStem;  // full path without date and extension
    std::wstring m_tstrExtension;
    bool m_bDated;
    bool m_bRobust;
    bool m_bDebugger;

    std::mutex m_lock;  // guards what follows
    SharedLock m_sharedLock;
    KzCommon::UniqueFile m_file;
    DWORD m_dwDay = 0;          // of the open file, as yyyyMMdd
    ULONGLONG m_ullLooked = 0;  // when the file was last looked at, in milliseconds since the system's start; 0: anew
    ULONGLONG m_ullBytes = 0;   // its size since then
    unsigned long m_cLost = 0;  // lines since the last that was written
    DWORD m_dwLossError = ERROR_SUCCESS;
    std::vector<char> m_bytes;
};

}  // namespace KzDbg
