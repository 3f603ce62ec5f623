// The file that a trace is written to: its name, its lines, its rollover.
#pragma once

#include "kzdbg/KzDbg.h"
#include "kzdbg/SharedLock.h"
#include "kzdbg/UniqueHandle.h"

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
/// in one go. Before every line a writer looks at the file it has open: when that is full or was deleted, it opens the
/// file by its name anew, and so never stays with one that another process has rolled.
class TraceFile {
public:
    explicit TraceFile(const DebugLogConfig& config);

    /// Opens or creates the file of that day, and its folder; the file stays open. 0 or a Win32 code. CreateFileW.
    [[nodiscard]] DWORD Open(const SYSTEMTIME& time);

    /// Appends a line in UTF-8, moving to another file when the day or the size asks for it. 0 or a Win32 code; the
    /// line is lost then. WriteFile.
    [[nodiscard]] DWORD Append(const SYSTEMTIME& time, const wchar_t* szLine);

private:
    [[nodiscard]] std::wstring PathOf(const SYSTEMTIME& time) const;
    [[nodiscard]] bool IsReady(const SYSTEMTIME& time) const noexcept;
    [[nodiscard]] DWORD WriteEncoded(const SYSTEMTIME& time, DWORD cbLine);
    [[nodiscard]] DWORD Reopen(const SYSTEMTIME& time, bool bMayRoll);

    std::wstring m_tstrStem;  // full path without date and extension
    std::wstring m_tstrExtension;
    bool m_bDated;
    bool m_bRobust;
    bool m_bDebugger;

    std::mutex m_lock;  // guards what follows
    SharedLock m_sharedLock;
    UniqueHandle m_file;
    DWORD m_dwDay = 0;  // of the open file, as yyyyMMdd
    std::vector<char> m_bytes;
};

}  // namespace KzDbg
