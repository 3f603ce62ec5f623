// Stand-in for the trace library that passes every call to the test that loaded it.
#include "TraceSink.h"

namespace {
TraceSink* s_pSink = nullptr;
}

extern "C" {

__declspec(dllexport) void __stdcall SetTraceSink(TraceSink* pSink)
{
    s_pSink = pSink;
}

__declspec(dllexport) DWORD __stdcall KzDbgInitialize(void** ppTrace, const DebugLogConfig* pConfig)
{
    return s_pSink ? s_pSink->OnInitialize(ppTrace, pConfig) : ERROR_NOT_READY;
}

__declspec(dllexport) DWORD __stdcall KzDbgTrace(void* pTrace, const SYSTEMTIME* pTime, const wchar_t* szLine)
{
    return s_pSink ? s_pSink->OnTrace(pTrace, pTime, szLine) : ERROR_NOT_READY;
}

__declspec(dllexport) DWORD __stdcall KzDbgUninitialize(void* pTrace)
{
    return s_pSink ? s_pSink->OnUninitialize(pTrace) : ERROR_NOT_READY;
}
}
