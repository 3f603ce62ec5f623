#include "check/verify/EventLog.h"

#include "check/update/RowOrder.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_Result.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kShownResults = 20;

struct EventRow {
    MachineVerdict eVerdict;
    EventNumber eNumber;
    WORD wType;
    const wchar_t* szText;
};
constexpr EventRow kEvents[] = {
    {MachineVerdict::eArrived, kEventArrived, EVENTLOG_INFORMATION_TYPE, L"The update has arrived."},
    {MachineVerdict::ePending, kEventPending, EVENTLOG_INFORMATION_TYPE, L"The update waits for a restart."},
    {MachineVerdict::eMissing, kEventMissing, EVENTLOG_WARNING_TYPE, L"Not all of the update has arrived."},
    {MachineVerdict::eUnknown, kEventUnknown, EVENTLOG_WARNING_TYPE,
     L"It is not known whether all of the update has arrived."},
};
static_assert(IsInOrder(kEvents, &EventRow::eVerdict));

struct EventSourceTraits {
    using Handle = HANDLE;
    static Handle Empty() noexcept { return nullptr; }
    static void Release(Handle handle) noexcept { ::DeregisterEventSource(handle); }
};

std::wstring TextOf(const EventRow& row, const Record& record)
{
    std::wstring tstrText = row.szText + (L"\r\n\r\nPackage: " + record.tstrPackage) + L"\r\nUpdate: " +
                            String::FromAnsi(record.strUpdate) + L"\r\n";
    const std::size_t cShown = std::min(record.open.size(), kShownResults);
    for (std::size_t u = 0; u < cShown; ++u) {
        tstrText += std::wstring(WordOf(record.open[u].eVerdict)) + L" " + record.open[u].tstrWhat + L"\r\n";
    }
    if (cShown < record.open.size()) tstrText += L"...\r\n";
    return tstrText;
}

}  // namespace

bool WriteEvent(const Record& record, DWORD* pdwError)
{
    const EventRow& row = kEvents[static_cast<std::size_t>(record.eVerdict)];
    const std::wstring tstrText = TextOf(row, record);
    LPCWSTR szText = tstrText.c_str();
    const UniqueHandle<EventSourceTraits> hSource(::RegisterEventSourceW(nullptr, L"BrevantCheck"));
    return (hSource && ::ReportEventW(hSource.Get(), row.wType, 0, row.eNumber, nullptr, 1, 0, &szText, nullptr)) ||
           Storage::Fail(::GetLastError(), pdwError);
}

}  // namespace Check
