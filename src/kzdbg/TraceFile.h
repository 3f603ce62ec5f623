// The trace's file: its name, lines and rollover.
#pragma once

#include "common/KzComn_Handle.h"
#include "common/KzDbg.h"
#include "kzdbg/SharedLock.h"

#include <mutex>
#include <string>
#include <vector>

namespace KzDbg {

/// Size in bytes of a full file. The next line goes to a new file.
inline constexpr ULONGLONG kFullBytes = ULONGLONG{10} * 1024 * 1024;
/// The number of full files to keep, as FILE.1 (the newest) and so on.
inline constexpr unsigned kKeptFiles = 3;

/// One trace file, to which any number of threads and processes may write at once. A line is one write at the end of
/// the file, under a lock when there are other writers, because some file systems do not append atomically. A writer
/// checks its open file (with other writers before every line): when the file is full or deleted, it opens the file by
/// its name again and so never keeps one that another process has rolled.
class TraceFile {
public:
    explicit TraceFile(const DebugLogConfig& config);

    /// Opens or creates the file of that day and its folder; the file stays open. Returns 0 or a Win32 code: 681 when
    /// the folder's path contains a link that is refused (common/KzComn_LinkRule.h). CreateFileW.
    [[nodiscard]] DWORD Open(const SYSTEMTIME& time);

    /// Appends a line in UTF-8. Changes to another file when the day or the size requires it, and reopens the file if
    /// needed. Returns 0 or a Win32 code; the line is then lost, and a line with the number of lost lines precedes the
    /// next successful one. WriteFile.
    [[nodiscard]] DWORD Append(const SYSTEMTIME& time, const wchar_t* szLine);

private:
    [[nodiscard]] std::wstring PathOf(const SYSTEMTIME& time) const;
    [[nodiscard]] bool IsReady(const SYSTEMTIME& time) const noexcept;
    /// Likewise for the only writer, which checks once per tick of the system's clock: a check takes as long as a
    /// write, and lines written in the tick of the deletion could as well have come before it.
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

    std::mutex m_lock;  // guards the following fields
    SharedLock m_sharedLock;
    KzCommon::UniqueFile m_file;
    DWORD m_dwDay = 0;          // of the open file, as yyyyMMdd
    ULONGLONG m_ullLooked = 0;  // last check of the file, in milliseconds since the system's start; 0: check again
    ULONGLONG m_ullBytes = 0;   // its size since then
    unsigned long m_cLost = 0;  // lines lost since the last written one
    DWORD m_dwLossError = ERROR_SUCCESS;
    std::vector<char> m_bytes;
};

}  // namespace KzDbg
