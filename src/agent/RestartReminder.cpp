#include "agent/RestartReminder.h"

#include "agent/Sections.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "installer/InstComn_Utility.h"

using namespace KzCommon;

namespace {

const wchar_t kBuiltInTitle[] = L"Kazmere Keystride";
const wchar_t kBuiltInMessage[] =
    L"You must restart the computer to begin enjoying the latest version of Keystride, now known as Kazmere Qorvault. "
    L"Your new and improved software can support many more secure websites.";

constexpr DWORD kStyle = MB_OKCANCEL | MB_ICONINFORMATION | MB_TOPMOST;
static_assert(kStyle == 262209);

Notification ReadNotification(Machine& machine)
{
    SectionRecords records;
    if (!ReadSection(machine, SectionOf(L"RestartNotification_", L"RemindToReboot"), records,
                     Frwk::Utility::GetLanguage(machine)) ||
        records.empty()) {
        machine.Explain(L"built-in texts");
    }
    return MakeNotification(records);
}

/// Asks the question in the active console session; true when the user agrees.
[[nodiscard]] bool AskAtConsole(Machine& machine, Notification notification)
{
    bool bAgreed = false;
    DWORD dwError = ERROR_SUCCESS;
    if (machine.AskAtConsole(std::move(notification.tstrTitle), std::move(notification.tstrMessage), kStyle, bAgreed,
                             &dwError)) {
        return bAgreed;
    }
    if (dwError == ERROR_NO_SUCH_LOGON_SESSION) {
        Trace(kTraceError, L"*** ::WTSGetActiveConsoleSessionId() - no session is attached to the console.");
    } else {
        Trace(kTraceError, L"*** ::WTSSendMessage() failed. [0x%08x]", dwError);
    }
    return false;
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

void RemindToReboot(Machine& machine)
{
    Trace(kTraceStep, L"RemindToReboot()");
    Notification notification = ReadNotification(machine);
    Trace(kTraceInfo, L"To display notification dialog...");
    if (!AskAtConsole(machine, std::move(notification))) {
        Trace(kTraceInfo, L"Restart later...");
        return;
    }
    Trace(kTraceInfo, L"To restart system...");
    if (!InstCommon::Utility::ReStartWindows()) Trace(kTraceError, L"ReStartWindows() failed.");
}
