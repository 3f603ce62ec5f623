// Stand-in for a library that somebody put beside the program under the name of one of Windows: notes in "planted.log"
// that it was loaded.
#include "../BesideLibrary.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, void*)
{
    if (dwReason != DLL_PROCESS_ATTACH) return TRUE;
    wchar_t szPath[MAX_PATH] = {};
    ::GetModuleFileNameW(hModule, szPath, MAX_PATH);
    RecordLine(BesideLibrary(L"planted.log"), szPath);
    return TRUE;
}
