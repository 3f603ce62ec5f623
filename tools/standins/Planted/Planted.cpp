// Stand-in for a malicious library beside the program with the name of a Windows library: records in "planted.log" that
// it was loaded.
#include "../BesideLibrary.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, void*)
{
    if (dwReason != DLL_PROCESS_ATTACH) return TRUE;
    wchar_t szPath[MAX_PATH] = {};
    ::GetModuleFileNameW(hModule, szPath, MAX_PATH);
    RecordLine(BesideLibrary(L"planted.log"), szPath);
    return TRUE;
}
