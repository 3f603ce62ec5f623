// The process-wide diagnostic trace.
#pragma once

#include "common/KzComn_Library.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_Synchronize.h"
#include "common/KzComn_TraceFormat.h"

#include <atomic>
#include <cstdarg>
#include <functional>
#include <source_location>
#include <string>

namespace KzCommon {

/// Levels of a trace call: one bit each in the configured mask.
inline constexpr DWORD kTraceStep = 1;     ///< entry, exit and steps
inline constexpr DWORD kTraceInfo = 16;    ///< progress and parameters
inline constexpr DWORD kTraceError = 256;  ///< failures

/// The kind of the session that the trace belongs to; any other value means "detect".
enum TraceSession : DWORD { eDetectSession = 0, eInteractiveSession = 1, eServiceSession = 2, eProtectedSession = 3 };

/// Receives the finished lines of a trace, with line end, one at a time.
using TraceSink = std::function<void(const std::wstring& tstrLine)>;

/// Reads its settings from a store, loads the trace library when tracing is enabled and passes it one finished line per
/// call. Nothing throws. Lines that cannot be written are dropped, and a fault inside the library ends only the trace.
class DebugLog {
public:
    DebugLog() = default;
    DebugLog(const DebugLog&) = delete;
    DebugLog& operator=(const DebugLog&) = delete;
    virtual ~DebugLog();

    /// Opens the trace. `settings` is the key (or INI file) that contains "InteractiveSession", "ServiceSession" and
    /// "ProtectedSession"; `tstrLibraryFolder` contains "KzDbg64.dll" (relative to the program's folder);
    /// `pdwSessionKind` points to a TraceSession (null means "detect"). True also when tracing is disabled or not
    /// configured; false for an unknown kind of settings location and when the library cannot be used. While the trace
    /// is open, a second call reads the settings again and keeps the library.
    bool Open(const std::wstring& tstrModuleName, const Storage::Key& settings, const std::wstring& tstrLibraryFolder,
              const DWORD* pdwSessionKind);

    /// Opens the trace without settings and library: every line of the levels in `dwLevelMask` goes to `sink`, which
    /// must not trace. Closes an open trace first.
    void OpenFor(const std::wstring& tstrModuleName, DWORD dwLevelMask, TraceSink sink);

    /// Writes one line. False before Open, for a disabled level and when the library refuses; true, without a line,
    /// when tracing is disabled. `szFile` is the narrow source path; the line shows its base name.
    bool Trace(const char* szFile, DWORD dwLine, DWORD dwLevel, const wchar_t* szFormat, ...);

    /// Ends the trace and frees the library; false when it was not open.
    bool Close();

private:
    [[nodiscard]] bool ReadSettings(const Storage::Key& settings);
    [[nodiscard]] bool StartLibrary(const std::wstring& tstrLibraryFolder);
    /// Calls a procedure of the library; true when it returns 0. A fault inside it ends the trace, not the program.
    template <class... Arguments>
    [[nodiscard]] bool CallLibrary(DWORD(__stdcall* pfn)(Arguments*...), Arguments*... arguments);
    void SetModuleName(const std::wstring& tstrModuleName);
    void SetState(bool bInitialized, bool bEnabled, DWORD dwLevelMask);
    [[nodiscard]] bool WriteLine(const char* szFile, DWORD dwLine, DWORD dwLevel, const std::wstring& tstrMessage);
    [[nodiscard]] std::wstring BuildLine(const char* szFile, DWORD dwLine, DWORD dwLevel, const SYSTEMTIME& stNow,
                                         const std::wstring& tstrMessage);

    Synchronize::CriticalSection m_stateLock;  // guards the three state fields and the module name
    bool m_bInitialized = false;
    bool m_bEnabled = false;
    DWORD m_dwLevelMask = 0;
    std::wstring m_tstrModuleName;
    Library::KzDbg m_library;
    void* m_pTrace = nullptr;
    TraceSink m_sink;                         // used instead of the library
    Synchronize::CriticalSection m_callLock;  // serialises open, close and every call into the library
    DWORD m_dwSessionKind = eDetectSession;
    DebugLogConfig m_config{};
    // The state fields again in one word, so that a call without output takes no lock.
    std::atomic<ULONGLONG> m_ullGate{0};
};

/// The only instance of the process.
[[nodiscard]] DebugLog& GlobalDebugLog() noexcept;

/// Closes that instance.
bool CloseGlobalDebugLog();

/// Writes one line to the trace: level, wide format, arguments. The compiler checks the format against the arguments;
/// the format also carries the source location for the line.
template <class... Arguments>
void Trace(DWORD dwLevel, TraceFormat<std::type_identity_t<Arguments>...> format, Arguments... arguments)
{
    static_cast<void>(GlobalDebugLog().Trace(format.File(), format.Line(), dwLevel, format.Get(), arguments...));
}

/// An operation's name in trace lines, usually "Class::Operation()", and the source location of the trace call.
class OperationName {
public:
    consteval OperationName(const wchar_t* szName,  // NOLINT(google-explicit-constructor)
                            const std::source_location& where = std::source_location::current())
        : m_szName(szName), m_where(where)
    {
    }
    [[nodiscard]] constexpr const wchar_t* Get() const noexcept { return m_szName; }
    [[nodiscard]] constexpr const std::source_location& Where() const noexcept { return m_where; }

private:
    const wchar_t* m_szName;
    std::source_location m_where;
};

/// Writes an operation's entry line now and its leave line at the end of the scope, both at level 1: "[Enter] NAME..."
/// and "[Leave] NAME...".
class OperationTrace {
public:
    explicit OperationTrace(OperationName name);
    /// Does the same with a text between the parentheses of the entry line: "[Enter] Class::Operation(TEXT)...".
    OperationTrace(OperationName name, const std::wstring& tstrArgument);
    /// For operations with their own line texts: the format of the entry line and the whole leave line, a literal.
    OperationTrace(TraceFormat<const wchar_t*> enter, const std::wstring& tstrArgument, const wchar_t* szLeave);
    OperationTrace(const OperationTrace&) = delete;
    OperationTrace& operator=(const OperationTrace&) = delete;
    ~OperationTrace();

private:
    void Write(const wchar_t* szFormat, const wchar_t* szText) const;

    const wchar_t* m_szLeaveFormat;
    const wchar_t* m_szLeaveText;
    const char* m_szFile;
    DWORD m_dwLine;
};

}  // namespace KzCommon
