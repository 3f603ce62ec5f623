#include "common/KzComn_DebugLog.h"

#include "common/KzComn_IniFile.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_ShieldedCall.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <mutex>

namespace KzCommon {

namespace {

constexpr std::size_t kFormatStep = 256;  // characters
constexpr ULONGLONG kGateInitialized = 1ULL << 32;
constexpr ULONGLONG kGateEnabled = 1ULL << 33;

template <std::size_t N>
void CopyText(wchar_t (&szField)[N], const std::wstring& tstrText)
{
    const std::size_t cch = std::min(tstrText.size(), N - 1);
    std::wmemcpy(szField, tstrText.data(), cch);
    szField[cch] = L'\0';
}

const wchar_t* TagOf(DWORD dwLevel) noexcept
{
    switch (dwLevel) {
        case kTraceStep: return L".w.";
        case kTraceInfo: return L"@@@";
        case kTraceError: return L"!!!";
        default: return L"???";
    }
}

std::wstring FormatV(const wchar_t* szFormat, va_list arguments)
{
    // Uses the C runtime's formatting, in which "%s" in a wide format is a wide text.
    va_list again;
    va_copy(again, arguments);
    std::wstring tstrText(kFormatStep, L'\0');
    int cch = ::_vsnwprintf(tstrText.data(), tstrText.size(), szFormat, again);
    va_end(again);
    if (cch < 0) {
        // Too small: compute the number of further steps at once instead of formatting a long text once per step.
        va_copy(again, arguments);
        const int cchWhole = ::_vscwprintf(szFormat, again);
        va_end(again);
        if (cchWhole < 0) return {};
        tstrText.resize((static_cast<std::size_t>(cchWhole) / kFormatStep + 1) * kFormatStep);
        cch = ::_vsnwprintf(tstrText.data(), tstrText.size(), szFormat, arguments);
    }
    tstrText.resize(static_cast<std::size_t>(std::max(cch, 0)));
    return tstrText;
}

std::wstring Format(const wchar_t* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    std::wstring tstrText = FormatV(szFormat, arguments);
    va_end(arguments);
    return tstrText;
}

/// Whether a character is invisible or can end a line for some reader.
bool IsControl(wchar_t ch) noexcept
{
    const bool bControl = ch < 0x20 || (ch >= 0x7F && ch < 0xA0);
    return (bControl && ch != L'\t') || ch == 0x2028 || ch == 0x2029;
}

/// Adds a text with visible line breaks ("\r", "
/// ", "\x2028"), so that a value from the registry or an update cannot forge a trace line.
void AppendVisibly(std::wstring& tstrLine, const std::wstring& tstrText)
{
    if (std::none_of(tstrText.begin(), tstrText.end(), IsControl)) {
        tstrLine += tstrText;
        return;
    }
    for (const wchar_t ch : tstrText) {
        if (!IsControl(ch)) {
            tstrLine.push_back(ch);
        } else if (ch == L'\r' || ch == L'\n') {
            tstrLine += ch == L'\r' ? L"\\r" : L"\\n";
        } else {
            tstrLine += Format(L"\\x%04x", ch);
        }
    }
}

const wchar_t* SubKeyOf(const DebugLogConfig& config) noexcept
{
    if (config.bServiceSession) return L"ServiceSession";
    if (config.bProtectedSession) return L"ProtectedSession";
    return L"InteractiveSession";
}

void DetectSession(DWORD dwKind, DebugLogConfig& config)
{
    const bool bDetect = dwKind != eInteractiveSession && dwKind != eServiceSession && dwKind != eProtectedSession;
    config.bServiceSession = bDetect ? Process::IsServiceSession() : dwKind == eServiceSession;
    config.bProtectedSession = bDetect ? Process::IsLowIntegrity() : dwKind == eProtectedSession;
}

template <class Store>
DWORD ReadNumber(Store& store, const wchar_t* szName, DWORD dwDefault)
{
    DWORD dwValue = dwDefault;
    store.ReadDword(szName, dwValue);
    return dwValue;
}

/// Reads the values in their fixed order. An exception of the store ends this; the values read before it are kept.
template <class Store>
void ReadValues(Store& store, DebugLogConfig& config, bool& bEnabled, DWORD& dwLevelMask)
{
    bEnabled = ReadNumber(store, L"Enable", 0) != 0;
    dwLevelMask = ReadNumber(store, L"Level", kTraceError);
    config.dwLogProcess = ReadNumber(store, L"LogProcess", 0);
    config.dwLogUnitType = ReadNumber(store, L"LogUnitType", 0);
    CopyText(config.szLogFolder, store.ReadString(L"LogFolder", L""));
    CopyText(config.szLogPrefix, store.ReadString(L"LogPrefix", L"KZVLT"));
    CopyText(config.szLogFile, store.ReadString(L"LogFile", L""));
    CopyText(config.szLogExtension, store.ReadString(L"LogExtension", L"log"));
    config.bRobust = ReadNumber(store, L"Robust", 0) != 0;
    config.bDebugger = ReadNumber(store, L"Debugger", 0) != 0;
}

}  // namespace

DebugLog::~DebugLog()
{
    Close();
}

bool DebugLog::Open(const std::wstring& tstrModuleName, const Storage::Key& settings,
                    const std::wstring& tstrLibraryFolder, const DWORD* pdwSessionKind)
{
    const std::lock_guard lock(m_callLock);
    SetModuleName(tstrModuleName);
    m_dwSessionKind = pdwSessionKind ? *pdwSessionKind : static_cast<DWORD>(eDetectSession);
    if (!ReadSettings(settings)) return false;
    if (!m_bInitialized && m_bEnabled && !StartLibrary(tstrLibraryFolder)) return false;
    SetState(true, m_bEnabled, m_dwLevelMask);
    return true;
}

void DebugLog::OpenFor(const std::wstring& tstrModuleName, DWORD dwLevelMask, TraceSink sink)
{
    Close();
    SetModuleName(tstrModuleName);
    const std::lock_guard lock(m_callLock);
    m_sink = std::move(sink);
    SetState(true, true, dwLevelMask);
}

bool DebugLog::ReadSettings(const Storage::Key& settings)
{
    m_config = {};
    ::GetLocalTime(&m_config.stOpened);
    DetectSession(m_dwSessionKind, m_config);
    CopyText(m_config.szModuleName, m_tstrModuleName);

    bool bEnabled = false;
    DWORD dwLevelMask = kTraceError;
    const auto readFrom = [&](auto&& store) {
        // A missing sub-key or value is not a failure; the existing ones configure the trace.
        static_cast<void>(Storage::Guarded(nullptr, [&] {
            store.Open(settings, SubKeyOf(m_config));
            ReadValues(store, m_config, bEnabled, dwLevelMask);
            store.Close();
        }));
    };
    switch (settings.m_dwKind) {
        case Storage::Key::eRegistry:
        case Storage::Key::eRegistryOther: readFrom(Storage::Registry(Storage::eViewDefault)); break;
        case Storage::Key::eIniFile: readFrom(Storage::IniFile()); break;
        default: return false;
    }
    SetState(m_bInitialized || !bEnabled, bEnabled, dwLevelMask);
    return true;
}

bool DebugLog::StartLibrary(const std::wstring& tstrLibraryFolder)
{
    if (!m_library.LoadFrom(tstrLibraryFolder)) return false;
    void* pTrace = nullptr;
    const DebugLogConfig* pConfig = &m_config;
    if (!CallLibrary(m_library.m_pfnInitialize, &pTrace, pConfig) || !pTrace) {
        m_library.Free();
        return false;
    }
    m_pTrace = pTrace;
    return true;
}

template <class... Arguments>
bool DebugLog::CallLibrary(DWORD(__stdcall* pfn)(Arguments*...), Arguments*... arguments)
{
    DWORD dwResult = ERROR_SUCCESS;
    if (Library::CallShielded(dwResult, pfn, arguments...)) return dwResult == ERROR_SUCCESS;
    m_library.Abandon();
    m_pTrace = nullptr;
    SetState(false, false, 0);
    return false;
}

void DebugLog::SetModuleName(const std::wstring& tstrModuleName)
{
    const std::lock_guard lock(m_stateLock);
    m_tstrModuleName = tstrModuleName;
}

void DebugLog::SetState(bool bInitialized, bool bEnabled, DWORD dwLevelMask)
{
    const std::lock_guard lock(m_stateLock);
    m_bInitialized = bInitialized;
    m_bEnabled = bEnabled;
    m_dwLevelMask = dwLevelMask;
    m_ullGate = (bInitialized ? kGateInitialized : 0) | (bEnabled ? kGateEnabled : 0) | dwLevelMask;
}

bool DebugLog::Trace(const char* szFile, DWORD dwLine, DWORD dwLevel, const wchar_t* szFormat, ...)
{
    const ULONGLONG ullGate = m_ullGate.load(std::memory_order_relaxed);
    if (!(ullGate & kGateInitialized)) return false;
    if (!(ullGate & kGateEnabled)) return true;
    if (!(static_cast<DWORD>(ullGate) & dwLevel)) return false;

    // The caller may still need the error code that it reports.
    const DWORD dwLastError = ::GetLastError();
    va_list arguments;
    va_start(arguments, szFormat);
    bool bOk = false;
    try {
        bOk = WriteLine(szFile, dwLine, dwLevel, FormatV(szFormat, arguments));
    } catch (const std::exception&) {
        bOk = false;  // out of memory: the line is lost, the run goes on
    }
    va_end(arguments);
    ::SetLastError(dwLastError);
    return bOk;
}

bool DebugLog::WriteLine(const char* szFile, DWORD dwLine, DWORD dwLevel, const std::wstring& tstrMessage)
{
    SYSTEMTIME stNow{};
    ::GetLocalTime(&stNow);
    const std::wstring tstrLine = BuildLine(szFile, dwLine, dwLevel, stNow, tstrMessage);
    const std::lock_guard lock(m_callLock);
    if (m_sink) {
        m_sink(tstrLine);
        return true;
    }
    const SYSTEMTIME* pTime = &stNow;
    return m_library.m_pfnTrace && CallLibrary(m_library.m_pfnTrace, m_pTrace, pTime, tstrLine.c_str());
}

std::wstring DebugLog::BuildLine(const char* szFile, DWORD dwLine, DWORD dwLevel, const SYSTEMTIME& stNow,
                                 const std::wstring& tstrMessage)
{
    const std::lock_guard lock(m_stateLock);  // for the module name, which a second Open may change
    std::wstring tstrLine =
        Format(L"%02d/%02d/%04d %02d:%02d:%02d.%03d %04x:%04x %3s <%s> ", stNow.wDay, stNow.wMonth, stNow.wYear,
               stNow.wHour, stNow.wMinute, stNow.wSecond, stNow.wMilliseconds, ::GetCurrentProcessId(),
               ::GetCurrentThreadId(), TagOf(dwLevel), m_tstrModuleName.c_str());
    AppendVisibly(tstrLine, tstrMessage);
    // Usually ASCII letters only; the general formatting takes many times longer.
    const char* szName = String::BaseName(szFile);
    tstrLine.append(L" - ").append(szName, szName + std::strlen(szName));
    return tstrLine.append(L"(").append(std::to_wstring(dwLine)).append(L")\r\n");
}

bool DebugLog::Close()
{
    const std::lock_guard lock(m_callLock);
    if (!m_bInitialized) return false;
    m_sink = nullptr;
    if (m_library.IsLoaded()) {
        static_cast<void>(CallLibrary(m_library.m_pfnUninitialize, m_pTrace));
        m_pTrace = nullptr;
        m_library.Free();
    }
    SetState(false, false, 0);
    return true;
}

DebugLog& GlobalDebugLog() noexcept
{
    static DebugLog s_debugLog;
    return s_debugLog;
}

bool CloseGlobalDebugLog()
{
    return GlobalDebugLog().Close();
}

OperationTrace::OperationTrace(OperationName name)
    : m_szLeaveFormat(L"[Leave] %s..."),
      m_szLeaveText(name.Get()),
      m_szFile(name.Where().file_name()),
      m_dwLine(name.Where().line())
{
    Write(L"[Enter] %s...", name.Get());
}

OperationTrace::OperationTrace(OperationName name, const std::wstring& tstrArgument)
    : m_szLeaveFormat(L"[Leave] %s..."),
      m_szLeaveText(name.Get()),
      m_szFile(name.Where().file_name()),
      m_dwLine(name.Where().line())
{
    const int cchBare = static_cast<int>(std::wcscspn(name.Get(), L"("));
    static_cast<void>(GlobalDebugLog().Trace(m_szFile, m_dwLine, kTraceStep, L"[Enter] %.*s(%s)...", cchBare,
                                             name.Get(), tstrArgument.c_str()));
}

OperationTrace::OperationTrace(TraceFormat<const wchar_t*> enter, const std::wstring& tstrArgument,
                               const wchar_t* szLeave)
    : m_szLeaveFormat(L"%s"), m_szLeaveText(szLeave), m_szFile(enter.File()), m_dwLine(enter.Line())
{
    Write(enter.Get(), tstrArgument.c_str());
}

OperationTrace::~OperationTrace()
{
    Write(m_szLeaveFormat, m_szLeaveText);
}

void OperationTrace::Write(const wchar_t* szFormat, const wchar_t* szText) const
{
    static_cast<void>(GlobalDebugLog().Trace(m_szFile, m_dwLine, kTraceStep, szFormat, szText));
}

}  // namespace KzCommon
