// Stand-in for the trace library that harms the program as files beside it say: the process ends at the line whose
// number is in "fault.end", and the files named in "fault.lock", one a line, are open for nobody else. What it was
// given is counted in "fault.count".
#include "../BesideLibrary.h"

#include "kzdbg/KzDbg.h"

#include <fstream>
#include <vector>

namespace {

unsigned s_uEnd = 0;
unsigned s_cLines = 0;
std::vector<KzCommon::UniqueFile> s_locked;

std::wifstream Open(const wchar_t* szName)
{
    return std::wifstream(BesideLibrary(szName).c_str());
}

}  // namespace

extern "C" {

__declspec(dllexport) DWORD __stdcall KzDbgInitialize(void** ppTrace, const DebugLogConfig*)
{
    *ppTrace = &s_locked;
    Open(L"fault.end") >> s_uEnd;
    std::wifstream names = Open(L"fault.lock");
    for (std::wstring tstrName; std::getline(names, tstrName);) {
        s_locked.emplace_back(
            ::CreateFileW(tstrName.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    return ERROR_SUCCESS;
}

__declspec(dllexport) DWORD __stdcall KzDbgTrace(void*, const SYSTEMTIME*, const wchar_t*)
{
    if (++s_cLines == s_uEnd) ::TerminateProcess(::GetCurrentProcess(), 66);
    return ERROR_SUCCESS;
}

__declspec(dllexport) DWORD __stdcall KzDbgUninitialize(void*)
{
    s_locked.clear();
    std::wofstream(BesideLibrary(L"fault.count").c_str()) << s_cLines;
    return ERROR_SUCCESS;
}
}
