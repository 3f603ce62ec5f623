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
const wchar_t* const kValues[] = {L"Enable",    L"Level",   L"LogProcess",   L"LogUnitType", L"LogFolder",
                                  L"LogPrefix", L"LogFile", L"LogExtension", L"Robust",      L"Debugger"};

std::wstring SubKeyOf(DWORD dwSession)
{
    return kSettings + kSubKeys[dwSession - 1];
}

void SetNumber(const wchar_t* szName, DWORD dwValue, DWORD dwSession = eInteractiveSession)
{
    Storage::Reg::StoreValue(HKEY_LOCAL_MACHINE, SubKeyOf(dwSession), szName, dwValue, 0, nullptr);
}

void SetText(const wchar_t* szName, const std::wstring& tstrValue, DWORD dwSession = eInteractiveSession)
{
    Storage::Reg::StoreValue(HKEY_LOCAL_MACHINE, SubKeyOf(dwSession), szName, tstrValue, 0, nullptr);
}

void SetAll(DWORD dwLevel, DWORD dwSession = eInteractiveSession)
{
    SetNumber(L"Enable", 1, dwSession);
    SetNumber(L"Level", dwLevel, dwSession);
    SetNumber(L"LogProcess", 3, dwSession);
    SetNumber(L"LogUnitType", 4, dwSession);
    SetText(L"LogFolder", L"C:\\Logs", dwSession);
    SetText(L"LogPrefix", L"PRE", dwSession);
    SetText(L"LogFile", L"file" + std::to_wstring(dwSession), dwSession);
    SetText(L"LogExtension", L"ext", dwSession);
    SetNumber(L"Robust", 5, dwSession);
    SetNumber(L"Debugger", 6, dwSession);
}

class DebugLogTest : public RegistryTest {
protected:
    bool Open(DWORD dwSession = eInteractiveSession, const std::wstring& tstrFolder = TraceRecorder::LibraryFolder())
    {
        return m_log.Open(L"Brevant", Storage::Key(HKEY_LOCAL_MACHINE, kSettings), tstrFolder, &dwSession);
    }
    bool Trace(DWORD dwLevel) { return m_log.Trace("dir/a.cpp", 7, dwLevel, L"text"); }

    TraceRecorder m_recorder;
    DebugLog m_log;
};

TEST_F(DebugLogTest, SettingsAreHandedOverAsTheyAre)
{
    SetAll(0x111);
    SetText(L"LogFolder", L"C:\\" + std::wstring(300, L'x'));
    ASSERT_TRUE(Open());
    const DebugLogConfig& config = m_recorder.m_config;
    EXPECT_EQ(0, config.bServiceSession);
    EXPECT_EQ(0, config.bProtectedSession);
    EXPECT_EQ(1, config.bRobust);
    EXPECT_EQ(1, config.bDebugger);
    EXPECT_EQ(3U, config.dwLogProcess);
    EXPECT_EQ(4U, config.dwLogUnitType);
    EXPECT_GE(config.stOpened.wYear, 2020);
    EXPECT_STREQ(L"Brevant", config.szModuleName);
    EXPECT_EQ(L"C:\\" + std::wstring(256, L'x'), config.szLogFolder);
    EXPECT_STREQ(L"PRE", config.szLogPrefix);
    EXPECT_STREQ(L"file1", config.szLogFile);
    EXPECT_STREQ(L"ext", config.szLogExtension);
}

TEST_F(DebugLogTest, AbsentRegistryValueEndsTheReading)
{
    const int cValues = static_cast<int>(std::size(kValues));
    for (int nMissing = 0; nMissing < cValues; ++nMissing) {
        SCOPED_TRACE(String::ToUtf8(kValues[nMissing]));
        SetAll(0x10);
        Storage::Reg::DeleteValue(HKEY_LOCAL_MACHINE, SubKeyOf(eInteractiveSession), kValues[nMissing], 0, nullptr);
        m_recorder.m_config = {};
        EXPECT_TRUE(Open());
        EXPECT_EQ(nMissing, m_recorder.m_cInitialize);
        EXPECT_EQ(nMissing != 1, Trace(kTraceInfo)) << "disabled without Enable, level 256 without Level";
        EXPECT_EQ(nMissing <= 1, Trace(kTraceError));
        EXPECT_EQ(nMissing > 2 ? 3U : 0U, m_recorder.m_config.dwLogProcess);
        EXPECT_EQ(nMissing > 3 ? 4U : 0U, m_recorder.m_config.dwLogUnitType);
        EXPECT_STREQ(nMissing > 4 ? L"C:\\Logs" : L"", m_recorder.m_config.szLogFolder);
        EXPECT_STREQ(nMissing > 5 ? L"PRE" : L"", m_recorder.m_config.szLogPrefix);
        EXPECT_STREQ(nMissing > 6 ? L"file1" : L"", m_recorder.m_config.szLogFile);
        EXPECT_STREQ(nMissing > 7 ? L"ext" : L"", m_recorder.m_config.szLogExtension);
        EXPECT_EQ(nMissing > 8, m_recorder.m_config.bRobust != 0);
        EXPECT_EQ(0, m_recorder.m_config.bDebugger);
        EXPECT_TRUE(m_log.Close());
    }
}

TEST_F(DebugLogTest, AbsentValueOfAnIniFileIsItsDefault)
{
    TempFolder folder;
    const std::wstring tstrIni = folder.Write(L"t.ini", "[ServiceSession]\r\nEnable=2\r\nDebugger=1\r\n");
    const DWORD dwSession = eServiceSession;
    const Storage::Key key(Storage::Key::eIniFile, nullptr, tstrIni.c_str());
    ASSERT_TRUE(m_log.Open(L"", key, TraceRecorder::LibraryFolder(), &dwSession));
    EXPECT_STREQ(L"KZVLT", m_recorder.m_config.szLogPrefix);
    EXPECT_STREQ(L"log", m_recorder.m_config.szLogExtension);
    EXPECT_EQ(1, m_recorder.m_config.bDebugger);
    EXPECT_TRUE(Trace(kTraceError));
    EXPECT_FALSE(Trace(kTraceInfo));
}

TEST_F(DebugLogTest, SessionChoosesTheSubKey)
{
    for (const DWORD dwSession : {1, 2, 3}) SetAll(0x111, dwSession);
    DWORD dwOwn = 0;
    ::ProcessIdToSessionId(::GetCurrentProcessId(), &dwOwn);
    const DWORD dwDetected = dwOwn == 0 ? eServiceSession : eInteractiveSession;
    const std::pair<DWORD, DWORD> rows[] = {{1, 1}, {2, 2}, {3, 3}, {0, dwDetected}, {9, dwDetected}};
    for (const auto& [dwAsked, dwUsed] : rows) {
        SCOPED_TRACE(dwAsked);
        EXPECT_TRUE(Open(dwAsked));
        EXPECT_EQ(L"file" + std::to_wstring(dwUsed), m_recorder.m_config.szLogFile);
        EXPECT_EQ(dwUsed == eServiceSession, m_recorder.m_config.bServiceSession == 1);
        EXPECT_EQ(dwUsed == eProtectedSession, m_recorder.m_config.bProtectedSession == 1);
        EXPECT_TRUE(m_log.Close());
    }
}

TEST_F(DebugLogTest, WithoutSettingsNothingIsLoadedOrWritten)
{
    EXPECT_FALSE(Trace(kTraceError)) << "not open yet";
    EXPECT_TRUE(Open(eInteractiveSession, L"C:\\absent"));
    EXPECT_TRUE(Trace(kTraceError));
    EXPECT_EQ(0, m_recorder.m_cInitialize);
    EXPECT_TRUE(m_log.Close());
    EXPECT_FALSE(Trace(kTraceError));
    EXPECT_FALSE(m_log.Close());
}

TEST_F(DebugLogTest, MaskDecidesAndTheTagNamesTheLevel)
{
    const struct {
        DWORD dwMask;
        DWORD dwLevel;
        const char* szMessage;
    } rows[] = {{0x111, 1, ".w. text"}, {0x111, 16, "@@@ text"},     {0x111, 256, "!!! text"},
                {0x111, 2, nullptr},    {2, 2, "??? text"},          {1, 16, nullptr},
                {0, 256, nullptr},      {0xFFFFFFFF, 17, "??? text"}};
    for (const auto& row : rows) {
        SetAll(row.dwMask);
        EXPECT_TRUE(Open());
        m_recorder.Clear();
        EXPECT_EQ(row.szMessage != nullptr, Trace(row.dwLevel)) << row.dwMask << ' ' << row.dwLevel;
        const std::vector<std::string> wanted(row.szMessage ? 1 : 0, row.szMessage ? row.szMessage : "");
        EXPECT_EQ(wanted, m_recorder.Messages());
    }
}

TEST_F(DebugLogTest, LineHasItsForm)
{
    SetAll(0x111);
    ASSERT_TRUE(Open());
    ::SetLastError(4711);
    EXPECT_TRUE(m_log.Trace("src/agent\\Brevant.cpp", 430, kTraceInfo, L"Paramter is %s", L"/Täst"));
    EXPECT_EQ(4711U, ::GetLastError()) << "the caller still wants its code";
    ASSERT_EQ(1U, m_recorder.Lines().size());
    char szIds[32] = {};
    std::snprintf(szIds, sizeof(szIds), "%04lx:%04lx", ::GetCurrentProcessId(), ::GetCurrentThreadId());
    EXPECT_THAT(String::ToUtf8(m_recorder.Lines().front()),
                MatchesRegex("\\d\\d/\\d\\d/2\\d\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d " + std::string(szIds) +
                             " @@@ <Brevant> Paramter is /Täst - Brevant\\.cpp\\(430\\)\r\n"));
}

TEST_F(DebugLogTest, MessagesOfAnyLengthAreWhole)
{
    SetAll(0x111);
    ASSERT_TRUE(Open());
    for (const std::size_t cch : {0, 254, 255, 256, 257, 512, 5000}) {
        m_recorder.Clear();
        EXPECT_TRUE(m_log.Trace("a.cpp", 1, kTraceError, L"%s", std::wstring(cch, L'm').c_str()));
        EXPECT_THAT(m_recorder.Messages(), ElementsAre("!!! " + std::string(cch, 'm')));
    }
}

TEST_F(DebugLogTest, LibraryThatCannotBeUsedFailsTheOpen)
{
    SetAll(0x111);
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
    EXPECT_FALSE(Trace(kTraceError));
    const Storage::Key unknown(3, HKEY_LOCAL_MACHINE, kSettings);
    EXPECT_FALSE(m_log.Open(L"Brevant", unknown, TraceRecorder::LibraryFolder(), nullptr));
    EXPECT_FALSE(m_log.Close());

    m_recorder.m_pTrace = this;
    const Storage::Key other(Storage::Key::eRegistryOther, HKEY_LOCAL_MACHINE, kSettings);
    const DWORD dwSession = eInteractiveSession;
    EXPECT_TRUE(m_log.Open(L"Brevant", other, TraceRecorder::LibraryFolder(), &dwSession));
    m_recorder.m_dwTraceResult = ERROR_DISK_FULL;
    EXPECT_FALSE(Trace(kTraceError));
}

TEST_F(DebugLogTest, SecondOpenReadsTheSettingsAgainAndKeepsTheLibrary)
{
    SetAll(0x100);
    EXPECT_TRUE(Open());
    EXPECT_FALSE(Trace(kTraceStep));
    SetNumber(L"Level", 1);
    EXPECT_TRUE(Open());
    EXPECT_TRUE(Trace(kTraceStep));
    EXPECT_EQ(1, m_recorder.m_cInitialize);
    SetNumber(L"Enable", 0);
    EXPECT_TRUE(Open());
    EXPECT_TRUE(Trace(kTraceStep));
    EXPECT_EQ(1U, m_recorder.Lines().size()) << "disabled meanwhile";
    EXPECT_TRUE(m_log.Close());
    EXPECT_EQ(1, m_recorder.m_cUninitialize);
}

TEST_F(DebugLogTest, LinesOfThreadsNeverInterleave)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 500;
    SetAll(0x111);
    ASSERT_TRUE(Open());
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&] {
            for (int nLine = 0; nLine < kLines; ++nLine) Trace(kTraceInfo);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(m_recorder.m_bOverlap);
    EXPECT_EQ(std::size_t{kThreads * kLines}, m_recorder.Messages().size());
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
