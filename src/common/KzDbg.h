/* Interface of the trace library, "KzDbg64.dll": plain structures and functions, no exceptions; no memory changes its
   owner. The program looks up the procedures by name at run time. Each returns 0 on success. */
#pragma once

#include <windows.h>

#include <stddef.h>

/* Settings of one trace; texts are UTF-16, zero-terminated, truncated to their field. */
struct DebugLogConfig {
    BYTE bServiceSession;
    BYTE bProtectedSession;
    BYTE bRobust;   /* flush every line to the disk */
    BYTE bDebugger; /* send every line to the debugger, too */
    SYSTEMTIME stOpened;
    DWORD dwLogProcess;  /* non-zero: the process id is part of the file name */
    DWORD dwLogUnitType; /* 1: the date is part of the file name */
    wchar_t szModuleName[32];
    wchar_t szLogFolder[260];
    wchar_t szLogPrefix[256];
    wchar_t szLogFile[256];
    wchar_t szLogExtension[256];
};

#ifdef __cplusplus
static_assert(sizeof(DebugLogConfig) == 2148);
static_assert(offsetof(DebugLogConfig, bServiceSession) == 0);
static_assert(offsetof(DebugLogConfig, bProtectedSession) == 1);
static_assert(offsetof(DebugLogConfig, bRobust) == 2);
static_assert(offsetof(DebugLogConfig, bDebugger) == 3);
static_assert(offsetof(DebugLogConfig, stOpened) == 4);
static_assert(offsetof(DebugLogConfig, dwLogProcess) == 20);
static_assert(offsetof(DebugLogConfig, dwLogUnitType) == 24);
static_assert(offsetof(DebugLogConfig, szModuleName) == 28);
static_assert(offsetof(DebugLogConfig, szLogFolder) == 92);
static_assert(offsetof(DebugLogConfig, szLogPrefix) == 612);
static_assert(offsetof(DebugLogConfig, szLogFile) == 1124);
static_assert(offsetof(DebugLogConfig, szLogExtension) == 1636);
extern "C" {
#endif

/* Opens a trace and stores its handle in *ppTrace. A file in use is not a failure: a later line opens it. */
typedef DWORD(__stdcall* KzDbgInitializeProc)(void** ppTrace, const struct DebugLogConfig* pConfig);
/* Appends one finished line; pTime is the line's local time. */
typedef DWORD(__stdcall* KzDbgTraceProc)(void* pTrace, const SYSTEMTIME* pTime, const wchar_t* szLine);
/* Closes the trace; the handle is no longer valid. */
typedef DWORD(__stdcall* KzDbgUninitializeProc)(void* pTrace);

/* The exported procedures. */
DWORD __stdcall KzDbgInitialize(void** ppTrace, const struct DebugLogConfig* pConfig);
DWORD __stdcall KzDbgTrace(void* pTrace, const SYSTEMTIME* pTime, const wchar_t* szLine);
DWORD __stdcall KzDbgUninitialize(void* pTrace);

#ifdef __cplusplus
}
#endif
