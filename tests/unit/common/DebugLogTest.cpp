#include "common/KzComn_DebugLog.h"
#include "support/dll/KzDbg64/TraceSink.h"
#include "support/Testing.h"

#include <stdexcept>

namespace {

const std::wstring kSettings = L"Software\\Kazmere\\KZVLT\\1\\DebugLog";
const std::wstring kSubKeys[] = {L"", L"\\InteractiveSession", L"\\ServiceSession", L"\\ProtectedSession"};

/// The ten settings in reading order.
const std::pair<std::wstring, RawValue> kValues[] = {
    // clang-format off
    {L"Enable", RawNumber(1)}, {L"Level", RawNumber(0x11)}, {L"LogProcess", RawNumber(3)},
    {L"LogUnitType", RawNumber(4)}, {L"LogFolder", RawText(L"fol")}, {L"LogPrefix", RawText(L"pre")},
    {L"LogFile", RawText(L"fil")}, {L"LogExtension", RawText(L"ext")}, {L"Robust", RawNumber(5)},
    {L"Debugger", RawNumber(6)}};  // clang-format on

/// Receives the calls of the stand-in trace library during its lifetime.
class TraceRecorder final : public TraceLines, public ::TraceSink {
public:
    TraceRecorder() { SetSink(this); }
    ~TraceRecorder() { SetSink(nullptr); }

    /// The folder of the stand-in "KzDbg64.dll".
    static std::wstring LibraryFolder() { return Process::ProgramFolder() + L"..\\bin\\standins\\"; }

    DebugLogConfig m_config{};                         // the settings passed to the library
    DWORD m_dwInitializeResult = ERROR_SUCCESS;        // its result for them
    std::function<void(const char* szCall)> m_onCall;  // called first in each call: "open", "line", "close"

private:
    DWORD OnInitialize(void** ppTrace, const DebugLogConfig* pConfig) override
    {
        if (m_onCall) m_onCall("open");
        m_config = *pConfig;
        *ppTrace = this;
        return m_dwInitializeResult;
    }
    DWORD OnTrace(void* pTrace, const SYSTEMTIME* pTime, const wchar_t* szLine) override
    {
        if (m_onCall) m_onCall("line");
        if (pTrace != this || !pTime || pTime->wYear == 0) return ERROR_INVALID_PARAMETER;
        m_lines.emplace_back(szLine);
        return ERROR_SUCCESS;
    }
    DWORD OnUninitialize(void* pTrace) override
    {
        if (m_onCall) m_onCall("close");
        return pTrace == this ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
    }
    void SetSink(::TraceSink* pSink) const
    {
        const FARPROC pfn = ::GetProcAddress(m_hModule.Get(), "SetTraceSink");
        EXPECT_TRUE(pfn) << "the stand-in trace library is not built";
        if (pfn) reinterpret_cast<SetTraceSinkProc>(reinterpret_cast<void*>(pfn))(pSink);
    }
    UniqueModule m_hModule{::LoadLibraryW((LibraryFolder() + L"KzDbg64.dll").c_str())};
};

/// Possible faults inside a library.
const char* const kFaults[] = {"access violation", "jump to nowhere", "exception of this compiler", "of another"};

void CauseFault(std::size_t uFault)
{
    switch (uFault) {
        case 0: *reinterpret_cast<volatile int*>(ULONG_PTR{16}) = 1; break;
        case 1: reinterpret_cast<void (*)()>(ULONG_PTR{16})(); break;
        case 2: throw std::runtime_error("fault");
        default: ::RaiseException(0xE06D7363, 0, 0, nullptr);
    }
}

class DebugLogTest : public RegistryTest {
protected:
    static void Set(const std::wstring& tstrName, const RawValue& value, DWORD dwSession = eInteractiveSession)
    {
        WriteRaw(HKEY_LOCAL_MACHINE, kSettings + kSubKeys[dwSession], tstrName, value);
    }
    bool Open(DWORD dwSession = eInteractiveSession)
    {
        const Storage::Key key(HKEY_LOCAL_MACHINE, kSettings.c_str());
        return m_log.Open(L"Brevant", key, TraceRecorder::LibraryFolder(), &dwSession);
    }
    bool Trace(DWORD dwLevel) { return m_log.Trace("dir/a.cpp", 7, dwLevel, L"text"); }

    TraceRecorder m_recorder;
    const DebugLogConfig& m_config = m_recorder.m_config;
    DebugLog m_log;
};

TEST_F(DebugLogTest, SettingsAreReadUpToTheFirstAbsentOneAndHandedOver)
{
    EXPECT_FALSE(Trace(kTraceError)) << "not open yet";
    EXPECT_FALSE(m_log.Close());
    for (int nPresent = 0; nPresent <= 10; ++nPresent) {
        SCOPED_TRACE(nPresent);
        for (const auto& [tstrName, value] : kValues) Set(tstrName, value);
        const std::wstring tstrAbsent = nPresent < 10 ? kValues[nPresent].first : L"none";
        Storage::Reg::DeleteValue(HKEY_LOCAL_MACHINE, kSettings + kSubKeys[1], tstrAbsent, 0, nullptr);
        EXPECT_TRUE(Open());
        EXPECT_EQ(nPresent > 0, m_recorder.m_config.stOpened.wYear > 0) << "the library is loaded when enabled";
        EXPECT_EQ(nPresent != 1, Trace(kTraceInfo)) << "without Level the level is 256";
        EXPECT_EQ(nPresent <= 1, Trace(kTraceError));
        EXPECT_EQ((std::pair<DWORD, DWORD>(nPresent > 2 ? 3 : 0, nPresent > 3 ? 4 : 0)),
                  std::pair(m_config.dwLogProcess, m_config.dwLogUnitType));
        EXPECT_EQ(
            std::wstring(L"folprefilext").substr(0, std::clamp(nPresent - 4, 0, 4) * std::size_t{3}),
            std::wstring(m_config.szLogFolder) + m_config.szLogPrefix + m_config.szLogFile + m_config.szLogExtension);
        EXPECT_EQ(std::pair(nPresent > 8, nPresent > 9), std::pair(m_config.bRobust == 1, m_config.bDebugger == 1));
        EXPECT_TRUE(m_log.Close());
    }
}

TEST_F(DebugLogTest, SessionChoosesTheSubKey)
{
    const DWORD dwDetected = Process::IsServiceSession() ? eServiceSession : eInteractiveSession;
    for (const DWORD dwSession : {1, 2, 3}) {
        for (const auto& [tstrName, value] : kValues) Set(tstrName, value, dwSession);
        Set(L"LogFile", RawText(std::to_wstring(dwSession) + std::wstring(300, L'x')), dwSession);
    }
    for (const auto& [dwAsked, dwUsed] : {std::pair(1UL, 1UL), {2, 2}, {3, 3}, {0, dwDetected}, {9, dwDetected}}) {
        EXPECT_TRUE(Open(dwAsked));
        EXPECT_EQ(std::to_wstring(dwUsed) + std::wstring(std::size(m_config.szLogFile) - 2, L'x'), m_config.szLogFile)
            << dwAsked;
        EXPECT_EQ(dwUsed, eInteractiveSession + m_config.bServiceSession + 2 * m_config.bProtectedSession) << dwAsked;
        EXPECT_TRUE(m_log.Close());
    }
    m_recorder.m_dwInitializeResult = ERROR_ACCESS_DENIED;
    EXPECT_FALSE(Open());
    EXPECT_FALSE(Trace(kTraceStep));
    EXPECT_FALSE(m_log.Close());
}

TEST_F(DebugLogTest, SettingsMayBeInAnIniFile)
{
    const TempFolder folder;
    const std::wstring tstrFile = folder.Write(L"a.ini", "[InteractiveSession]\nEnable=1\nLevel=16\nLogFile=fil\n");
    for (const auto& [dwKind, bKnown] : {std::pair(DWORD{Storage::Key::eIniFile}, true), {DWORD{77}, false}}) {
        const Storage::Key key(dwKind, nullptr, tstrFile.c_str());
        const DWORD dwSession = eInteractiveSession;
        EXPECT_EQ(bKnown, m_log.Open(L"Brevant", key, TraceRecorder::LibraryFolder(), &dwSession));
        EXPECT_EQ(bKnown, Trace(kTraceInfo));
        EXPECT_STREQ(L"fil", m_config.szLogFile);
        EXPECT_EQ(bKnown, m_log.Close());
    }
}

TEST_F(DebugLogTest, MaskDecidesAndTheLineHasItsFormAndAnyLength)
{
    const std::tuple<DWORD, DWORD, std::vector<std::string>> rows[] = {
        // clang-format off
        {0x11, 1, {".w. text"}}, {0x11, 16, {"@@@ text"}}, {0x11, 256, {}}, {0x100, 256, {"!!! text"}},
        {0x11, 2, {}}, {2, 2, {"??? text"}}, {0, 1, {}}};  // clang-format on
    for (const auto& row : rows) {
        const auto& [dwMask, dwLevel, messages] = row;
        Set(L"Enable", RawNumber(1));
        Set(L"Level", RawNumber(dwMask));
        m_recorder.m_config = {};
        EXPECT_TRUE(Open()) << "a second open reads the settings again";
        EXPECT_EQ(&row == rows, m_config.stOpened.wYear > 0) << "and keeps the library";
        m_recorder.Clear();
        EXPECT_EQ(!messages.empty(), Trace(dwLevel)) << dwLevel;
        EXPECT_EQ(messages, m_recorder.Messages());
    }
    Set(L"Level", RawNumber(16));
    EXPECT_TRUE(Open());
    for (const std::size_t cch : {0, 255, 256, 257, 5000}) {
        m_recorder.Clear();
        EXPECT_TRUE(m_log.Trace("a.cpp", 1, kTraceInfo, L"%s", std::wstring(cch, L'm').c_str()));
        EXPECT_THAT(m_recorder.Messages(), ElementsAre("@@@ " + std::string(cch, 'm')));
    }
    m_recorder.Clear();
    EXPECT_TRUE(m_log.Trace("a.cpp", 1, kTraceInfo, L"%s%c.", L"a\r\n\tb\x1b\x7f\x85\xa0\x2028\x2029", L'\0'));
    EXPECT_THAT(m_recorder.Messages(), ElementsAre("@@@ a\\r\\n\tb\\x001b\\x007f\\x0085\u00a0\\x2028\\x2029\\x0000."));
    m_recorder.m_onCall = [](const char*) {
        ::SetLastError(ERROR_DISK_FULL);
    };
    ::SetLastError(4711);
    EXPECT_TRUE(m_log.Trace("src/agent\\Brevant.cpp", 430, kTraceInfo, L"Paramter is %s", L"/Täst"));
    EXPECT_EQ(4711U, ::GetLastError()) << "the caller still needs its code";
    char szIds[32] = {};
    std::snprintf(szIds, sizeof(szIds), "%04lx:%04lx", ::GetCurrentProcessId(), ::GetCurrentThreadId());
    EXPECT_THAT(String::ToUtf8(m_recorder.Lines().back()),
                MatchesRegex("\\d\\d/\\d\\d/2\\d\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d " + std::string(szIds) +
                             " @@@ <Brevant> Paramter is /Täst - Brevant\\.cpp\\(430\\)\r\n"));
}

TEST(OperationTraceTest, EachLineNamesThePlaceOfItsCall)
{
    const RecordedTrace trace(0x111);
    // clang-format off
    { const OperationTrace a(L"A()"), b(L"B()", L"b"), c(L"%s", L"c", L"d"); Trace(kTraceInfo, L"e"); }
    // clang-format on
    EXPECT_EQ(trace.Lines().size(), 7U);
    for (const std::wstring& tstrLine : trace.Lines())
        EXPECT_THAT(tstrLine, HasSubstr(L" - DebugLogTest.cpp(" + std::to_wstring(__LINE__ - 4) + L")"));
}

TEST_F(DebugLogTest, FaultInsideTheLibraryEndsTheTraceOnly)
{
    for (const auto& [tstrName, value] : kValues) Set(tstrName, value);
    for (std::size_t uFault = 0; uFault < std::size(kFaults); ++uFault) {
        for (const std::string strFaulty : {"open", "line", "close"}) {
            SCOPED_TRACE(kFaults[uFault] + (" in " + strFaulty));
            m_recorder.m_onCall = [&](const char* szCall) {
                if (strFaulty == szCall) CauseFault(uFault);
            };
            EXPECT_EQ(strFaulty != "open", Open());
            for (const char* szTime : {"first", "second"}) EXPECT_EQ(strFaulty == "close", Trace(kTraceInfo)) << szTime;
            EXPECT_EQ(strFaulty == "close", m_log.Close()) << "it is not called again";
            m_recorder.m_onCall = {};
            EXPECT_TRUE(Open()) << "a later trace works again";
            EXPECT_TRUE(Trace(kTraceInfo));
            EXPECT_TRUE(m_log.Close());
        }
    }
}

}  // namespace
