// Stand-in for the trace library that ends the process at the line whose number is in "fault.end" beside it. What it
// was given is counted in "fault.count".
#include "../BesideLibrary.h"

#include "kzdbg/KzDbg.h"

#include <fstream>

namespace {

unsigned s_uEnd = 0;
unsigned s_cLines = 0;

}  // namespace

extern "C" {

__declspec(dllexport) DWORD __stdcall KzDbgInitialize(void** ppTrace, const DebugLogConfig*)
{
    *ppTrace = &s_uEnd;
    std::wifstream(BesideLibrary(L"fault.end").c_str()) >> s_uEnd;
    return ERROR_SUCCESS;
}

__declspec(dllexport) DWORD __stdcall KzDbgTrace(void*, const SYSTEMTIME*, const wchar_t*)
{
    if (++s_cLines == s_uEnd) ::TerminateProcess(::GetCurrentProcess(), 66);
    return ERROR_SUCCESS;
}

__declspec(dllexport) DWORD __stdcall KzDbgUninitialize(void*)
{
    std::wofstream(BesideLibrary(L"fault.count").c_str()) << s_cLines;
    return ERROR_SUCCESS;
}
}
