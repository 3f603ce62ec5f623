#include "agent/RestartReminder.h"

#include "agent/Sections.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "installer/InstComn_Utility.h"

#include <wtsapi32.h>

using namespace KzCommon;

namespace {

const wchar_t kBuiltInTitle[] = L"Kazmere Keystride";
const wchar_t kBuiltInMessage[] =
    L"You must restart the computer to begin enjoying the latest version of Keystride, now known as Kazmere Qorvault. "
    L"Your new and improved software can support many more secure websites.";

constexpr DWORD kStyle = MB_OKCANCEL | MB_ICONINFORMATION | MB_TOPMOST;
static_assert(kStyle == 262209);

constexpr DWORD kNoSession = 0xFFFFFFFF;  // while the console changes hands

Notification ReadNotification()
{
    SectionRecords records;
    static_cast<void>(
        ReadSection(SectionOf(L"RestartNotification_", L"RemindToReboot"), records, Frwk::Utility::GetLanguage()));
    return MakeNotification(records);
}

DWORD BytesOf(const std::wstring& tstrText)
{
    return static_cast<DWORD>(tstrText.size() * sizeof(wchar_t));
}

/// Shows the question in the active console session; true when the user agreed.
[[nodiscard]] bool AskAtConsole(Notification notification)
{
    const DWORD dwSession = ::WTSGetActiveConsoleSessionId();
    if (dwSession == kNoSession) {
        // As a session id it would mean the program's own: nobody may ever see a question that waits there.
        Trace(kTraceError, L"*** ::WTSGetActiveConsoleSessionId() - no session is attached to the console.");
        return false;
    }
    DWORD dwAnswer = 0;
    if (!::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, dwSession, notification.tstrTitle.data(),
                           BytesOf(notification.tstrTitle), notification.tstrMessage.data(),
                           BytesOf(notification.tstrMessage), kStyle, 0, &dwAnswer, TRUE)) {
        const DWORD dwError = ::GetLastError();
        Trace(kTraceError, L"*** ::WTSSendMessage() failed. [0x%08x]", dwError);
        return false;
    }
    return dwAnswer == IDOK;
}

}  // namespace

Notification MakeNotification(const SectionRecords& records)
{
    Notification notification;
    auto [itText, itEnd] = records.equal_range(L"text");
    if (itText != itEnd) {
        notification.tstrTitle = itText->second;
        Trace(kTraceInfo, L"RemindToReboot(): Title: [%s]", notification.tstrTitle.c_str());
        ++itText;
    }
    if (itText != itEnd) {
        notification.tstrMessage = itText->second;
        Trace(kTraceInfo, L"RemindToReboot(): Message: [%s]", notification.tstrMessage.c_str());
    }
    if (notification.tstrTitle.empty()) notification.tstrTitle = kBuiltInTitle;
    if (notification.tstrMessage.empty()) notification.tstrMessage = kBuiltInMessage;
    return notification;
}

void RemindToReboot()
{
    Trace(kTraceStep, L"RemindToReboot()");
    Notification notification = ReadNotification();
    Trace(kTraceInfo, L"To display notification dialog...");
    // A console window must not stay open behind a question that may wait for hours.
    ::FreeConsole();
    if (!AskAtConsole(std::move(notification))) {
        Trace(kTraceInfo, L"Restart later...");
        return;
    }
    Trace(kTraceInfo, L"To restart system...");
    if (!InstCommon::Utility::ReStartWindows()) Trace(kTraceError, L"ReStartWindows() failed.");
}
