#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"

#include <gmock/gmock.h>

#include <thread>

using namespace KzCommon;
using ::testing::ElementsAre;
using ::testing::MatchesRegex;

namespace {

const wchar_t kSettings[] = L"Software\\Kazmere\\KZVLT\\1\\DebugLog";
const std::wstring kSubKeys[] = {L"\\InteractiveSession", L"\\ServiceSession", L"\\ProtectedSession"};

RawValue Number(char chValue)
{
    return {REG_DWORD, {chValue, 0, 0, 0}};
}

/// The ten settings in the order in which they are read.
const std::pair<std::wstring, RawValue> kValues[] = {
    {L"Enable", Number(1)},        {L"Level", Number(0x11)},           {L"LogProcess", Number(3)},
    {L"LogUnitType", Number(4)},   {L"LogFolder", RawText(L"fol")},    {L"LogPrefix", RawText(L"pre")},
    {L"LogFile", RawText(L"fil")}, {L"LogExtension", RawText(L"ext")}, {L"Robust", Number(5)},
    {L"Debugger", Number(6)}};

class DebugLogTest : public RegistryTest {
protected:
    static void Set(const wchar_t* szName, const RawValue& value, DWORD dwSession = eInteractiveSession)
    {
        WriteRaw(HKEY_LOCAL_MACHINE, kSettings + kSubKeys[dwSession - 1], szName, value);
    }
    static void SetAll(DWORD dwSession = eInteractiveSession)
    {
        for (const auto& [tstrName, value] : kValues) Set(tstrName.c_str(), value, dwSession);
    }
    bool Open(DWORD dwSession = eInteractiveSession, const std::wstring& tstrFolder = TraceRecorder::LibraryFolder(),
              DWORD dwKind = Storage::Key::eRegistry)
    {
        return m_log.Open(L"Brevant", Storage::Key(dwKind, HKEY_LOCAL_MACHINE, kSettings), tstrFolder, &dwSession);
    }
    bool Trace(DWORD dwLevel) { return m_log.Trace("dir/a.cpp", 7, dwLevel, L"text"); }

    TraceRecorder m_recorder;
    const DebugLogConfig& m_config = m_recorder.m_config;
    DebugLog m_log;
};

TEST_F(DebugLogTest, SettingsAreReadUpToTheFirstAbsentOneAndHandedOver)
{
    const int cValues = static_cast<int>(std::size(kValues));
    for (int nAbsent = 0; nAbsent <= cValues; ++nAbsent) {
        SCOPED_TRACE(nAbsent);
        SetAll();
        if (nAbsent < cValues) {
            const std::wstring tstrPath = kSettings + kSubKeys[0];
            Storage::Reg::DeleteValue(HKEY_LOCAL_MACHINE, tstrPath, kValues[nAbsent].first, 0, nullptr);
        }
        EXPECT_TRUE(Open());
        EXPECT_EQ(nAbsent, m_recorder.m_cInitialize) << "not loaded without Enable, else once more each time";
        EXPECT_EQ(nAbsent != 1, Trace(kTraceInfo)) << "without Level the level is 256";
        EXPECT_EQ(nAbsent <= 1, Trace(kTraceError));
        EXPECT_EQ(nAbsent > 2 ? 3U : 0U, m_config.dwLogProcess);
        EXPECT_EQ(nAbsent > 3 ? 4U : 0U, m_config.dwLogUnitType);
        EXPECT_STREQ(nAbsent > 4 ? L"fol" : L"", m_config.szLogFolder);
        EXPECT_STREQ(nAbsent > 5 ? L"pre" : L"", m_config.szLogPrefix);
        EXPECT_STREQ(nAbsent > 6 ? L"fil" : L"", m_config.szLogFile);
        EXPECT_STREQ(nAbsent > 7 ? L"ext" : L"", m_config.szLogExtension);
        EXPECT_EQ(nAbsent > 8 ? 1 : 0, m_config.bRobust);
        EXPECT_EQ(nAbsent > 9 ? 1 : 0, m_config.bDebugger);
        EXPECT_TRUE(m_log.Close());
    }
    EXPECT_GE(m_config.stOpened.wYear, 2020);
    EXPECT_STREQ(L"Brevant", m_config.szModuleName);
    Set(L"LogFolder", RawText(std::wstring(300, L'x')));
    EXPECT_TRUE(Open());
    EXPECT_EQ(std::wstring(259, L'x'), m_config.szLogFolder);
}

TEST_F(DebugLogTest, AbsentValueOfAnIniFileIsItsDefault)
{
    TempFolder folder;
    const std::wstring tstrIni = folder.Write(L"t.ini", "[ServiceSession]\r\nEnable=2\r\nDebugger=1\r\n");
    const DWORD dwSession = eServiceSession;
    const Storage::Key key(Storage::Key::eIniFile, nullptr, tstrIni.c_str());
    ASSERT_TRUE(m_log.Open(L"", key, TraceRecorder::LibraryFolder(), &dwSession));
    EXPECT_STREQ(L"KZVLT", m_config.szLogPrefix);
    EXPECT_STREQ(L"log", m_config.szLogExtension);
    EXPECT_EQ(1, m_config.bDebugger);
    EXPECT_TRUE(Trace(kTraceError));
    EXPECT_FALSE(Trace(kTraceInfo));
}

TEST_F(DebugLogTest, SessionChoosesTheSubKey)
{
    for (const DWORD dwSession : {1, 2, 3}) {
        SetAll(dwSession);
        Set(L"LogFile", RawText(std::to_wstring(dwSession)), dwSession);
    }
    const DWORD dwDetected = Process::IsServiceSession() ? eServiceSession : eInteractiveSession;
    const std::pair<DWORD, DWORD> rows[] = {{1, 1}, {2, 2}, {3, 3}, {0, dwDetected}, {9, dwDetected}};
    for (const auto& [dwAsked, dwUsed] : rows) {
        EXPECT_TRUE(Open(dwAsked));
        EXPECT_EQ(std::to_wstring(dwUsed), m_config.szLogFile) << dwAsked;
        EXPECT_EQ(dwUsed == eServiceSession, m_config.bServiceSession == 1) << dwAsked;
        EXPECT_EQ(dwUsed == eProtectedSession, m_config.bProtectedSession == 1) << dwAsked;
        EXPECT_TRUE(m_log.Close());
    }
}

TEST_F(DebugLogTest, WithoutSettingsNothingIsLoadedOrWritten)
{
    EXPECT_FALSE(Trace(kTraceError)) << "not open yet";
    EXPECT_TRUE(Open(eInteractiveSession, L"C:\\absent"));
    EXPECT_TRUE(Trace(kTraceError));
    EXPECT_TRUE(m_log.Close());
    EXPECT_FALSE(Trace(kTraceError));
    EXPECT_FALSE(m_log.Close());
}

TEST_F(DebugLogTest, MaskDecidesAndTheTagNamesTheLevel)
{
    const struct {
        char chMask;
        DWORD dwLevel;
        std::vector<std::string> messages;
    } rows[] = {{0x11, 1, {".w. text"}}, {0x11, 16, {"@@@ text"}}, {0x11, 256, {}},
                {0x11, 2, {}},           {2, 2, {"??? text"}},     {0, 1, {}}};
    SetAll();
    for (const auto& row : rows) {
        Set(L"Level", Number(row.chMask));
        EXPECT_TRUE(Open()) << "a second open reads the settings again";
        m_recorder.Clear();
        EXPECT_EQ(!row.messages.empty(), Trace(row.dwLevel)) << row.dwLevel;
        EXPECT_EQ(row.messages, m_recorder.Messages());
    }
    Set(L"Enable", Number(0));
    EXPECT_TRUE(Open());
    EXPECT_TRUE(Trace(kTraceStep)) << "disabled meanwhile";
    EXPECT_TRUE(m_recorder.Messages().empty());
    EXPECT_EQ(1, m_recorder.m_cInitialize) << "and keeps the library";
    EXPECT_TRUE(m_log.Close());
    EXPECT_EQ(1, m_recorder.m_cUninitialize);
}

TEST_F(DebugLogTest, LineHasItsFormAndAnyLength)
{
    SetAll();
    ASSERT_TRUE(Open());
    ::SetLastError(4711);
    EXPECT_TRUE(m_log.Trace("src/agent\\Brevant.cpp", 430, kTraceInfo, L"Paramter is %s", L"/Täst"));
    EXPECT_EQ(4711U, ::GetLastError()) << "the caller still wants its code";
    char szIds[32] = {};
    std::snprintf(szIds, sizeof(szIds), "%04lx:%04lx", ::GetCurrentProcessId(), ::GetCurrentThreadId());
    EXPECT_THAT(String::ToUtf8(m_recorder.Lines().at(0)),
                MatchesRegex("\\d\\d/\\d\\d/2\\d\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d " + std::string(szIds) +
                             " @@@ <Brevant> Paramter is /Täst - Brevant\\.cpp\\(430\\)\r\n"));
    for (const std::size_t cch : {0, 255, 256, 257, 512, 5000}) {
        m_recorder.Clear();
        EXPECT_TRUE(m_log.Trace("a.cpp", 1, kTraceInfo, L"%s", std::wstring(cch, L'm').c_str()));
        EXPECT_THAT(m_recorder.Messages(), ElementsAre("@@@ " + std::string(cch, 'm')));
    }
}

TEST_F(DebugLogTest, LibraryThatCannotBeUsedFailsTheOpen)
{
    SetAll();
    TempFolder foreign;
    const std::wstring tstrOther = Process::ProgramFolder() + L"libexpat.dll";
    ASSERT_TRUE(::CopyFileW(tstrOther.c_str(), foreign.PathOf(L"KzDbg64.dll").c_str(), TRUE));
    EXPECT_FALSE(Open(eInteractiveSession, L"C:\\absent"));
    EXPECT_FALSE(Open(eInteractiveSession, foreign.Path())) << "a library without the procedures";
    m_recorder.m_dwInitializeResult = ERROR_ACCESS_DENIED;
    EXPECT_FALSE(Open());
    m_recorder.m_dwInitializeResult = ERROR_SUCCESS;
    m_recorder.m_pTrace = nullptr;
    EXPECT_FALSE(Open());
    EXPECT_FALSE(Trace(kTraceStep));
    EXPECT_FALSE(Open(eInteractiveSession, TraceRecorder::LibraryFolder(), 3)) << "an unknown kind of store";
    EXPECT_FALSE(m_log.Close());

    m_recorder.m_pTrace = this;
    EXPECT_TRUE(Open(eInteractiveSession, TraceRecorder::LibraryFolder(), Storage::Key::eRegistryOther));
    m_recorder.m_dwTraceResult = ERROR_DISK_FULL;
    EXPECT_FALSE(Trace(kTraceStep));
}

TEST_F(DebugLogTest, LinesOfThreadsNeverInterleave)
{
    SetAll();
    ASSERT_TRUE(Open());
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < 4; ++nThread) {
        threads.emplace_back([&] {
            for (int nLine = 0; nLine < 500; ++nLine) Trace(kTraceInfo);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(m_recorder.m_bOverlap);
    EXPECT_EQ(2000U, m_recorder.Lines().size());
}

TEST(OperationTrace, LeavesOnEveryWayOut)
{
    const RecordedTrace trace;
    try {
        const OperationTrace operation(L"[Enter] F(%s)...", L"x", L"[Leave] F()...");
        throw 1;
    } catch (int) {
    }
    EXPECT_THAT(trace.Messages(), ElementsAre(".w. [Enter] F(x)...", ".w. [Leave] F()..."));
}

}  // namespace
