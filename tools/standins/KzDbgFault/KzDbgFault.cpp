// Stand-in for the trace library that makes things happen at a line of the trace. Files beside it say what:
//   fault.end     the number of the line at which the process ends
//   fault.hold    the number of the line at which the program waits until that file is gone; "fault.held" is there then
//   fault.hurry   the program's pauses take no time
// What it was given is counted in "fault.count".
#include "../BesideLibrary.h"

#include "common/KzDbg.h"

#include <cstring>
#include <fstream>
#include <string_view>

namespace {

unsigned s_uEnd = 0;
unsigned s_uHold = 0;
unsigned s_cLines = 0;

bool IsThere(const std::wstring& tstrPath)
{
    return ::GetFileAttributesW(tstrPath.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void Hold()
{
    std::ofstream(BesideLibrary(L"fault.held").c_str()) << s_cLines;
    while (IsThere(BesideLibrary(L"fault.hold"))) ::Sleep(10);
}

void WINAPI NoPause(DWORD) {}

/// Puts another function in the place of one that the program imports.
void Replace(std::string_view strName, void (*pfn)())
{
    BYTE* const pImage = reinterpret_cast<BYTE*>(::GetModuleHandleW(nullptr));
    const auto* const pHead =
        reinterpret_cast<IMAGE_NT_HEADERS*>(pImage + reinterpret_cast<IMAGE_DOS_HEADER*>(pImage)->e_lfanew);
    const DWORD dwImports = pHead->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (auto* pLibrary = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(pImage + dwImports); pLibrary->Name; ++pLibrary) {
        const auto* pName = reinterpret_cast<IMAGE_THUNK_DATA*>(pImage + pLibrary->OriginalFirstThunk);
        auto* pEntry = reinterpret_cast<IMAGE_THUNK_DATA*>(pImage + pLibrary->FirstThunk);
        for (; pName->u1.AddressOfData; ++pName, ++pEntry) {
            if (IMAGE_SNAP_BY_ORDINAL(pName->u1.Ordinal)) continue;
            if (reinterpret_cast<const char*>(pImage + pName->u1.AddressOfData + sizeof(WORD)) != strName) continue;
            DWORD dwOld = 0;
            ::VirtualProtect(pEntry, sizeof(*pEntry), PAGE_READWRITE, &dwOld);
            std::memcpy(pEntry, &pfn, sizeof(pfn));
            ::VirtualProtect(pEntry, sizeof(*pEntry), dwOld, &dwOld);
        }
    }
}

}  // namespace

extern "C" {

__declspec(dllexport) DWORD __stdcall KzDbgInitialize(void** ppTrace, const DebugLogConfig*)
{
    *ppTrace = &s_uEnd;
    std::wifstream(BesideLibrary(L"fault.end").c_str()) >> s_uEnd;
    std::wifstream(BesideLibrary(L"fault.hold").c_str()) >> s_uHold;
    if (IsThere(BesideLibrary(L"fault.hurry"))) Replace("Sleep", reinterpret_cast<void (*)()>(&NoPause));
    return ERROR_SUCCESS;
}

__declspec(dllexport) DWORD __stdcall KzDbgTrace(void*, const SYSTEMTIME*, const wchar_t*)
{
    if (++s_cLines == s_uEnd) ::TerminateProcess(::GetCurrentProcess(), 66);
    if (s_cLines == s_uHold) Hold();
    return ERROR_SUCCESS;
}

__declspec(dllexport) DWORD __stdcall KzDbgUninitialize(void*)
{
    std::wofstream(BesideLibrary(L"fault.count").c_str()) << s_cLines;
    return ERROR_SUCCESS;
}
}
