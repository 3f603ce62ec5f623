// The receiver of the stand-in trace library: the test process that loaded it.
#pragma once

#include "common/KzDbg.h"

/// Receives every call to the stand-in library.
class TraceSink {
public:
    virtual DWORD OnInitialize(void** ppTrace, const DebugLogConfig* pConfig) = 0;
    virtual DWORD OnTrace(void* pTrace, const SYSTEMTIME* pTime, const wchar_t* szLine) = 0;
    virtual DWORD OnUninitialize(void* pTrace) = 0;

protected:
    ~TraceSink() = default;
};

/// The library's "SetTraceSink"; null makes every call fail again.
using SetTraceSinkProc = void(__stdcall*)(TraceSink* pSink);
