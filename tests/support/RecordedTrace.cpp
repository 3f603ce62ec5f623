#include "support/RecordedTrace.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

#include <algorithm>

using namespace KzCommon;

TraceRecorder::TraceRecorder() : m_hModule(::LoadLibraryW((LibraryFolder() + L"KzDbg64.dll").c_str()))
{
    EXPECT_TRUE(m_hModule) << "the stand-in trace library is not built";
    SetSink(this);
}

TraceRecorder::~TraceRecorder()
{
    SetSink(nullptr);
}

std::wstring TraceRecorder::LibraryFolder()
{
    return Process::ProgramFolder() + L"..\\bin\\standins\\";
}

std::vector<std::string> TraceRecorder::Messages() const
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

std::ptrdiff_t TraceRecorder::Count(const testing::Matcher<const std::string&>& message) const
{
    return std::ranges::count_if(Messages(), [&](const std::string& strLine) { return message.Matches(strLine); });
}

DWORD TraceRecorder::OnInitialize(void** ppTrace, const DebugLogConfig* pConfig)
{
    if (m_onCall) m_onCall("open");
    m_config = *pConfig;
    *ppTrace = this;
    return m_dwInitializeResult;
}

DWORD TraceRecorder::OnTrace(void* pTrace, const SYSTEMTIME* pTime, const wchar_t* szLine)
{
    if (m_onCall) m_onCall("line");
    if (pTrace != this || !pTime || pTime->wYear == 0) return ERROR_INVALID_PARAMETER;
    m_lines.emplace_back(szLine);
    return ERROR_SUCCESS;
}

DWORD TraceRecorder::OnUninitialize(void* pTrace)
{
    if (m_onCall) m_onCall("close");
    return pTrace == this ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

void TraceRecorder::SetSink(TraceSink* pSink) const
{
    const FARPROC pfn = m_hModule ? ::GetProcAddress(m_hModule.Get(), "SetTraceSink") : nullptr;
    if (pfn) reinterpret_cast<SetTraceSinkProc>(reinterpret_cast<void*>(pfn))(pSink);
}

RecordedTrace::RecordedTrace(DWORD dwLevelMask)
{
    const std::string strLevel = std::to_string(dwLevelMask);
    const std::wstring tstrIni =
        m_folder.Write(L"trace.ini", "[InteractiveSession]\r\nEnable=1\r\nLevel=" + strLevel + "\r\n");
    const DWORD dwSession = eInteractiveSession;
    const Storage::Key settings(Storage::Key::eIniFile, nullptr, tstrIni.c_str());
    EXPECT_TRUE(GlobalDebugLog().Open(L"Test", settings, LibraryFolder(), &dwSession));
}

RecordedTrace::~RecordedTrace()
{
    CloseGlobalDebugLog();
}
