// Stand-in for the terminal services: adds what it was asked to "wtsapi32.log" beside the program and answers with
// the number in "wtsapi32.answer" beside the program (1: OK, 2: Cancel). Without that file, or with 0 in it, the call
// fails as it does when nobody is logged on at the console; while the file is empty, the user has not answered yet.
#include "../BesideLibrary.h"

#include <wtsapi32.h>

#include <cstdlib>
#include <initializer_list>

namespace {

std::wstring TextOf(const wchar_t* sz, DWORD cb)
{
    return {sz, cb / sizeof(wchar_t)};
}

DWORD WaitForAnswer()
{
    const std::wstring tstrPath = BesideModule(nullptr, L"wtsapi32.answer");
    for (;; ::Sleep(20)) {
        const KzCommon::UniqueFile file(
            ::CreateFileW(tstrPath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        char szAnswer[16] = {};
        DWORD cbRead = 0;
        if (!file || !::ReadFile(file.Get(), szAnswer, sizeof(szAnswer) - 1, &cbRead, nullptr)) return 0;
        if (cbRead > 0) return std::strtoul(szAnswer, nullptr, 10);
    }
}

}  // namespace

extern "C" BOOL WINAPI WTSSendMessageW(HANDLE hServer, DWORD dwSession, LPWSTR szTitle, DWORD cbTitle, LPWSTR szMessage,
                                       DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pdwAnswer, BOOL bWait)
{
    const std::pair<const wchar_t*, std::wstring> facts[] = {
        {L"server", hServer == WTS_CURRENT_SERVER_HANDLE ? L"local" : L"remote"},
        {L"session", dwSession == ::WTSGetActiveConsoleSessionId() ? L"console" : std::to_wstring(dwSession)},
        {L"title", TextOf(szTitle, cbTitle)},
        {L"title bytes", std::to_wstring(cbTitle)},
        {L"message", TextOf(szMessage, cbMessage)},
        {L"message bytes", std::to_wstring(cbMessage)},
        {L"style", std::to_wstring(dwStyle)},
        {L"timeout", std::to_wstring(dwTimeout)},
        {L"wait", bWait ? L"yes" : L"no"},
    };
    const std::wstring tstrLog = BesideModule(nullptr, L"wtsapi32.log");
    for (const auto& [szName, tstrValue] : facts) RecordLine(tstrLog, szName + (L": " + tstrValue));
    const DWORD dwAnswer = WaitForAnswer();
    RecordLine(tstrLog, L"answer: " + std::to_wstring(dwAnswer));
    *pdwAnswer = dwAnswer;
    if (dwAnswer == 0) ::SetLastError(ERROR_CTX_WINSTATION_NOT_FOUND);
    return dwAnswer != 0;
}
