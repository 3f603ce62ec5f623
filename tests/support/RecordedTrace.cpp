#include "support/RecordedTrace.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"

#include <algorithm>

using namespace KzCommon;

std::vector<std::string> TraceLines::Messages() const
{
    std::vector<std::string> messages;
    for (const std::wstring& tstrLine : Lines()) {
        const std::size_t uModule = tstrLine.find(L" <");
        const std::size_t uMessage = tstrLine.find(L"> ", uModule) + 2;
        const std::wstring tstrTag = tstrLine.substr(uModule - 3, 3);
        const std::wstring tstrMessage = tstrLine.substr(uMessage, tstrLine.rfind(L" - ") - uMessage);
        messages.push_back(String::ToUtf8(tstrTag + L' ' + tstrMessage));
    }
    return messages;
}

std::ptrdiff_t TraceLines::Count(const testing::Matcher<const std::string&>& message) const
{
    return std::ranges::count_if(Messages(), [&](const std::string& strLine) { return message.Matches(strLine); });
}

RecordedTrace::RecordedTrace(DWORD dwLevelMask)
{
    GlobalDebugLog().OpenFor(L"Test", dwLevelMask,
                             [this](const std::wstring& tstrLine) { m_lines.push_back(tstrLine); });
}

RecordedTrace::~RecordedTrace()
{
    CloseGlobalDebugLog();
}
