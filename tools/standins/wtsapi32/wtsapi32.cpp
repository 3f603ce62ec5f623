// Stand-in for the terminal services: appends each question to "wtsapi32.log" beside the program and returns the number
// in "wtsapi32.answer" beside the program (1: OK, 2: Cancel). Without that file, or with 0 in it, the call fails as if
// no user were logged on at the console; while the file is empty, the user has not answered yet.
#include "../BesideLibrary.h"

#include <wtsapi32.h>

#include <filesystem>
#include <fstream>

extern "C" BOOL WINAPI WTSSendMessageW(HANDLE, DWORD, LPWSTR szTitle, DWORD cbTitle, LPWSTR szMessage, DWORD cbMessage,
                                       DWORD dwStyle, DWORD, DWORD* pdwAnswer, BOOL bWait)
{
    ::LoadLibraryW(L"Planted.dll");
    const std::wstring facts[] = {L"title: " + std::wstring(szTitle, cbTitle / sizeof(wchar_t)),
                                  L"message: " + std::wstring(szMessage, cbMessage / sizeof(wchar_t)),
                                  L"style: " + std::to_wstring(dwStyle), bWait ? L"wait: yes" : L"wait: no"};
    for (const std::wstring& tstrFact : facts) RecordLine(BesideModule(nullptr, L"wtsapi32.log"), tstrFact);

    const std::filesystem::path answer = BesideModule(nullptr, L"wtsapi32.answer");
    *pdwAnswer = 0;
    while (std::filesystem::exists(answer) && !(std::ifstream(answer) >> *pdwAnswer)) ::Sleep(20);
    if (*pdwAnswer == 0) ::SetLastError(ERROR_CTX_WINSTATION_NOT_FOUND);
    return *pdwAnswer != 0;
}
