#include "kzdbg/TraceFile.h"
#include "support/Testing.h"

#include <process.h>

#include <atomic>

using KzDbg::SharedLock;
using KzDbg::SharedLockHold;

namespace {

const std::string kMark = "\xEF\xBB\xBF";
constexpr SYSTEMTIME kDay1 = {2026, 11, 4, 5, 23, 59, 59, 999};

DebugLogConfig ConfigFor(const std::wstring& tstrFolder)
{
    DebugLogConfig config{0, 0, 0, 0, kDay1, 0, 0, L"Brevant", {}, L"KZVLT", {}, L"log"};
    tstrFolder.copy(config.szLogFolder, std::size(config.szLogFolder) - 1);
    return config;
}

bool s_bDebuggerTold = false;

std::wstring s_tstrServiceTemp;  // result of GetTempPath2W; empty for a Windows without it

/// kernel32, or this program, which exports functions of a newer one as well.
HMODULE WINAPI FindModule(LPCWSTR szName)
{
    const HMODULE hKernel = ::LoadLibraryW(L"kernel32.dll");
    const FARPROC pfn = ::GetProcAddress(hKernel, "GetModuleHandleW");
    const bool bNewer = !s_tstrServiceTemp.empty() && szName == std::wstring_view(L"kernel32.dll");
    return reinterpret_cast<decltype(&::GetModuleHandleW)>(reinterpret_cast<void*>(pfn))(bNewer ? nullptr : szName);
}

/// An open trace; the destructor closes it.
class Trace {
public:
    explicit Trace(const DebugLogConfig& config) { EXPECT_EQ(0U, KzDbgInitialize(&m_pTrace, &config)); }
    ~Trace() { EXPECT_EQ(0U, KzDbgUninitialize(m_pTrace)); }
    void Line(const std::wstring& tstrLine, const SYSTEMTIME& time = kDay1, DWORD dwExpected = ERROR_SUCCESS) const
    {
        EXPECT_EQ(dwExpected, KzDbgTrace(m_pTrace, &time, tstrLine.c_str())) << dwExpected;
    }

private:
    void* m_pTrace = nullptr;
};

}  // namespace

// Replaces the imported function.
extern "C" decltype(&::GetModuleHandleW) __imp_GetModuleHandleW;
decltype(&::GetModuleHandleW) __imp_GetModuleHandleW = &FindModule;

extern "C" __declspec(dllexport) DWORD WINAPI GetTempPath2W(DWORD cch, LPWSTR szFolder)
{
    const std::size_t cchDone = s_tstrServiceTemp.copy(szFolder, cch - 1);
    szFolder[cchDone] = L'\0';
    return static_cast<DWORD>(cchDone);
}

namespace {

class KzDbgTest : public Test {
protected:
    /// The content of a log file, or its size if it is large.
    std::string Log(const std::wstring& tstrEnd = L"") const
    {
        const std::string strBytes = m_folder.Read(m_tstrLog + tstrEnd).value_or("");
        return strBytes.size() < KzDbg::kFullBytes ? strBytes
                                                   : "full + " + std::to_string(strBytes.size() - KzDbg::kFullBytes);
    }
    UniqueFile Hold(const std::wstring& tstrName, DWORD dwShare) const
    {
        return HoldFile(m_folder.PathOf(tstrName), dwShare);
    }

    const std::wstring m_tstrLog = L"KZVLT_Brevant.log";
    TempFolder m_folder;
    DebugLogConfig m_config = ConfigFor(m_folder.Path());
    const fs::path m_path = m_folder.Write(m_tstrLog, "");
};

}  // namespace

TEST_F(KzDbgTest, TheFileNameFollowsSettingsAndDayAndTheLinesAreUtf8WithOneBom)
{
    ::SetEnvironmentVariableW(L"KZDBG_TEST_FOLDER", m_folder.Path().c_str());
    const std::wstring tstrProcess = L"_" + std::to_wstring(::GetCurrentProcessId());
    // The folder (empty: the temporary one), whether file, process and date are configured, the extension; the file.
    const std::tuple<std::wstring, bool, std::wstring, std::wstring> rows[] = {
        // clang-format off
        {m_folder.Path(), false, L"log", L"KZVLT_Brevant.log"},
        {m_folder.Path() + L"new/deep", true, L"log", L"new\\deep\\KZVLT_f" + tstrProcess + L"_20261105.log"},
        {L"%KZDBG_TEST_FOLDER%", false, L"", L"KZVLT_Brevant"},
        {L"", true, L"log", L"..\\KZVLT_f" + tstrProcess + L"_20261105.log"}};  // clang-format on
    for (const auto& [tstrFolder, bAll, tstrExtension, tstrFile] : rows) {
        SCOPED_TRACE(fs::path(tstrFile).string());
        m_config = ConfigFor(tstrFolder);
        m_config.szLogExtension[tstrExtension.size()] = L'\0';
        m_config.szLogFile[0] = bAll ? L'f' : L'\0';
        m_config.dwLogProcess = 2 * (m_config.bRobust = bAll);
        m_config.dwLogUnitType = bAll ? 1 : 2;  // a file a day, or an unknown unit
        Trace(m_config).Line(L"鍵鍵鍵\r\n");
        Trace(m_config).Line(L"");
        Trace(m_config).Line(L"grün \xD83D\xDD11\r\n");
        EXPECT_EQ(kMark + "鍵鍵鍵\r\ngrün 🔑\r\n", m_folder.Read(tstrFile));
        fs::remove(m_folder.PathOf(tstrFile));
    }
    s_tstrServiceTemp = m_folder.MakeFolder(L"service");
    Trace(ConfigFor(L"")).Line(L"line");
    s_tstrServiceTemp.clear();
    EXPECT_EQ(kMark + "line", m_folder.Read(L"service\\" + m_tstrLog)) << "a service writes where others cannot";
}

TEST_F(KzDbgTest, AFullFileRollsOverAndTheOldestIsDeletedUnlessInUse)
{
    for (const char* szOld : {"1", "2", "3"}) m_folder.Write(m_tstrLog + L"." + std::wstring(1, szOld[0]), szOld);
    fs::resize_file(m_path, KzDbg::kFullBytes - 1);
    UniqueFile reader = Hold(m_tstrLog, FILE_SHARE_READ | FILE_SHARE_WRITE);
    const Trace first(m_config), second(m_config);
    first.Line(L"fills");
    first.Line(L"still here");
    EXPECT_EQ("1", Log(L".1")) << "nothing moves if the file itself cannot be moved";
    reader = Hold(m_tstrLog + L".3", FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    {
        SharedLock lock(m_folder.Path() + m_tstrLog);
        const SharedLockHold hold(lock);
        std::jthread([&] { first.Line(L"!"); }).join();
        EXPECT_EQ("1", Log(L".1")) << "nor without the lock";
    }
    first.Line(L"new");
    second.Line(L"er");
    reader.Reset();
    EXPECT_EQ(kMark + "newer", Log()) << "a writer must not stay with the rolled file";
    EXPECT_EQ("full + 15", Log(L".1"));
    EXPECT_EQ("1", Log(L".2"));
    EXPECT_EQ("2", Log(L".3")) << "a reader of the oldest file with shared deletion does not block";
    EXPECT_THAT(m_folder.List(), ElementsAre(m_tstrLog, m_tstrLog + L".1", m_tstrLog + L".2", m_tstrLog + L".3"));

    fs::resize_file(m_path, KzDbg::kFullBytes);
    fs::remove(m_folder.PathOf(m_tstrLog + L".2"));
    reader = Hold(m_tstrLog + L".1", FILE_SHARE_READ);
    first.Line(L"!");
    EXPECT_EQ("2", Log(L".3")) << "a missing file replaces none";
    EXPECT_EQ("full + 1", Log()) << "renamed back: the newest full file cannot be moved";
}

TEST_F(KzDbgTest, AWriterThatIsAloneRollsAtTheSameByte)
{
    for (const auto& [uRoom, strLog] : {std::pair(6U, std::string("full + 3")), {5U, kMark + "next"}}) {
        fs::resize_file(m_path, KzDbg::kFullBytes - uRoom);
        const Trace alone(m_config);
        alone.Line(L"fills");
        alone.Line(L"next");
        EXPECT_EQ(strLog, Log());
    }
}

TEST_F(KzDbgTest, LinesLostWhileTheFileIsInUseAreCounted)
{
    m_config.dwLogUnitType = 1;
    const std::wstring names[] = {L"KZVLT_Brevant_20261105.log", L"KZVLT_Brevant_20261205.log"};
    UniqueFile holders[] = {Hold(names[0], 0), Hold(names[1], 0)};
    const Trace trace(m_config);
    for (const std::size_t uDay : {0, 1}) {  // at the beginning; when the day changes
        SCOPED_TRACE(uDay);
        SYSTEMTIME time = kDay1;
        time.wMonth = static_cast<WORD>(time.wMonth + uDay);
        trace.Line(L"lost", time, ERROR_SHARING_VIOLATION);
        trace.Line(L"lost", time, ERROR_SHARING_VIOLATION);
        EXPECT_LT(TimeOf([&] { SharedLock(m_folder.Path() + m_tstrLog); }), 450U) << "no line is being written";
        holders[uDay].Reset();
        trace.Line(L"kept\n", time);
        trace.Line(L"next\n", time);
        EXPECT_THAT(m_folder.Read(names[uDay]).value_or(""),
                    AllOf(StartsWith(kMark + "05/" + std::to_string(time.wMonth) + "/2026 23:59:59.999 "),
                          HasSubstr(" !!! <Brevant> *** Lines lost while the trace file could not be written: 2. "
                                    "[0x00000020] - TraceFile.cpp("),
                          EndsWith(")\r\nkept\nnext\n")));
    }
    trace.Line(L"late", {2026, 12, 0, 6, 0, 0, 0, 0});
    EXPECT_EQ(kMark + "late", m_folder.Read(L"KZVLT_Brevant_20261206.log"));
}

TEST_F(KzDbgTest, OnlyAPlainFileInAFolderIsWritten)
{
    const fs::path elsewhere = m_folder.Path() + L"elsewhere";
    fs::create_hard_link(m_path, elsewhere);
    const Trace trace(m_config);
    trace.Line(L"a", kDay1, ERROR_ACCESS_DENIED);
    EXPECT_EQ("", m_folder.Read(L"elsewhere")) << "lines written with full rights are not redirected";
    fs::remove(elsewhere);
    trace.Line(L"b\n");
    EXPECT_THAT(Log(), EndsWith("\r\nb\n"));
    void* pTrace = nullptr;
    m_config = ConfigFor(m_path.wstring());
    EXPECT_NE(0U, KzDbgInitialize(&pTrace, &m_config)) << "a file never becomes a folder";
}

TEST_F(KzDbgTest, NoTraceIsWrittenWhereALinkLeadsElsewhere)
{
    SystemWatch watch(m_folder.Path());
    watch.m_tstrLink = L"Link";
    m_folder.MakeFolder(L"Real");
    m_folder.Write(L"Link\\" + m_tstrLog, "theirs");
    m_folder.Write(L"Link\\sub\\" + m_tstrLog, "theirs");
    const std::vector<std::wstring> before = m_folder.List();
    // A link that only administrators can change, and one that everyone can; a folder that became a link after the
    // check.
    const std::wstring kOwn = L"O:BAD:(A;;FA;;;BA)(A;;FR;;;WD)", kAnybodys = L"O:BAD:(A;;FA;;;BA)(A;;FW;;;BU)";
    for (const auto& [tstrFolder, tstrRights, bMoved, bWritten] : {std::tuple(L"Link", kAnybodys, false, false),
                                                                   {L"Link\\sub", kAnybodys, false, false},
                                                                   {L"Link\\new\\deep", kAnybodys, false, false},
                                                                   {L".", kAnybodys, true, false},
                                                                   {L"Link\\sub", kOwn, false, true}}) {
        SCOPED_TRACE(fs::path(tstrFolder).string() + (bWritten ? " written" : ""));
        watch.m_tstrLinkRights = tstrRights;
        watch.m_tstrLinkTarget = m_folder.PathOf(L"Real");
        watch.Fail(bMoved ? "GetFinalPathNameByHandleW" : "", ERROR_NOT_READY, m_tstrLog);
        m_config = ConfigFor(m_folder.PathOf(tstrFolder));
        void* pTrace = nullptr;
        EXPECT_EQ(bWritten ? 0U : 681U, KzDbgInitialize(&pTrace, &m_config));
        EXPECT_EQ(before, m_folder.List()) << "and nothing is created there";
        EXPECT_EQ(bWritten ? 0U : DWORD{ERROR_INVALID_HANDLE}, KzDbgTrace(pTrace, &kDay1, L" and ours"));
        EXPECT_EQ("theirs", m_folder.Read(L"Link\\" + m_tstrLog));
        EXPECT_EQ("theirs" + std::string(bWritten ? " and ours" : ""), m_folder.Read(L"Link\\sub\\" + m_tstrLog));
        EXPECT_EQ("", m_folder.Read(m_tstrLog));
        EXPECT_EQ(bWritten ? 0U : DWORD{ERROR_INVALID_HANDLE}, KzDbgUninitialize(pTrace));
    }
}

TEST_F(KzDbgTest, OnlyAnOpenTraceTakesLinesAndTellsTheDebugger)
{
    void* pTrace = nullptr;
    m_config.bDebugger = 1;
    ASSERT_EQ(0U, KzDbgInitialize(&pTrace, &m_config));
    void* const pHandler = ::AddVectoredExceptionHandler(1, [](EXCEPTION_POINTERS* pPointers) -> LONG {
        const DWORD dwCode = pPointers->ExceptionRecord->ExceptionCode;
        s_bDebuggerTold = s_bDebuggerTold || dwCode == DBG_PRINTEXCEPTION_C || dwCode == DBG_PRINTEXCEPTION_WIDE_C;
        return EXCEPTION_CONTINUE_SEARCH;
    });
    EXPECT_EQ(0U, KzDbgTrace(pTrace, &kDay1, L"line"));
    ::RemoveVectoredExceptionHandler(pHandler);
    EXPECT_TRUE(s_bDebuggerTold);
    EXPECT_EQ(0U, KzDbgUninitialize(pTrace));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, KzDbgUninitialize(pTrace));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, KzDbgTrace(pTrace, &kDay1, L"line"));
}

TEST(SharedLockTest, UsersOfOnePathAreCountedAndWaitForALimitedTime)
{
    SharedLock first(L"C:\\trace\\a.log");
    ASSERT_TRUE(first.BeginAlone());
    std::atomic<bool> bEnded = false;
    std::jthread writer([&] { ::Sleep(100), bEnded = true, first.EndAlone(); });
    SharedLock second(L"c:\\Trace\\A.log");
    EXPECT_TRUE(bEnded) << "a later user waits until the line is written";
    EXPECT_FALSE(first.BeginAlone() || second.BeginAlone());
    EXPECT_TRUE(SharedLock(L"C:\\trace\\b.log").BeginAlone());
    for (const int nTime : {1, 2}) {  // patient again once the lock was free
        SCOPED_TRACE(nTime);
        {
            const SharedLockHold hold(first);
            EXPECT_TRUE(hold.IsHeld());
            std::jthread([&] {
                EXPECT_THAT(TimeOf([&] { EXPECT_FALSE(second.Acquire()); }), AllOf(Ge(400U), Le(5000U)));
                EXPECT_LE(TimeOf([&] { EXPECT_FALSE(second.Acquire()); }), 100U) << "waits once";
            }).join();
        }
        EXPECT_TRUE(second.Acquire());
        second.Release();
    }
    std::jthread([&] { EXPECT_TRUE(first.Acquire()); }).join();
    EXPECT_TRUE(second.Acquire()) << "abandoned by a thread that has ended";
    second.Release();

    // Another program created it first with reserved memory: accessing that would end the program.
    std::vector<UniqueKernelHandle> reserved;
    for (const wchar_t* szName : {L"Global\\KzDbg-ba8ea00292044763-users", L"Local\\KzDbg-ba8ea00292044763-users"}) {
        reserved.emplace_back(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_RESERVE, 0,
                                                   0x1000, szName));  // the first requires a privilege
    }
    ASSERT_TRUE(reserved.back().IsValid());
    EXPECT_FALSE(SharedLock(L"C:\\trace\\reserved").BeginAlone());
}

constexpr std::size_t kWriters = 4, kLines = 1500, kLineBytes = 120;

/// Run by each of the processes below: this executable, with the folder in its environment.
TEST(KzDbgWriter, DISABLED_WritesItsLines)
{
    const Trace trace(ConfigFor(::_wgetenv(L"KZDBG_TEST_FOLDER")));
    for (std::size_t uLine = 0; uLine < kLines; ++uLine) {
        std::wstring tstrLine = std::to_wstring(::GetCurrentProcessId()) + L" " + std::to_wstring(uLine) + L" ";
        tstrLine.resize(kLineBytes - 1, L'x');
        trace.Line(tstrLine + L"\n");
    }
}

TEST_F(KzDbgTest, ProcessesShareAFileThroughARollover)
{
    constexpr std::size_t kOld = KzDbg::kFullBytes - kWriters * kLines * kLineBytes / 2;
    fs::resize_file(m_path, kOld);
    ::SetEnvironmentVariableW(L"KZDBG_TEST_FOLDER", m_folder.Path().c_str());
    std::intptr_t writers[kWriters] = {};
    for (std::intptr_t& iWriter : writers) {
        iWriter = ::_spawnl(_P_NOWAIT, _pgmptr, "writer", "--gtest_also_run_disabled_tests",
                            "--gtest_filter=KzDbgWriter.*", nullptr);
    }
    for (const std::intptr_t iWriter : writers) EXPECT_EQ(iWriter, ::_cwait(nullptr, iWriter, 0));
    EXPECT_THAT(m_folder.List(), ElementsAre(m_tstrLog, m_tstrLog + L".1"));
    std::istringstream all(m_folder.Read(m_tstrLog + L".1")->substr(kOld) + m_folder.Read(m_tstrLog)->substr(3));
    std::set<std::string> whole;
    for (std::string strLine; std::getline(all, strLine);) whole.insert(strLine + "\n");
    std::erase_if(whole, [](const std::string& strLine) { return strLine.size() != kLineBytes; });
    EXPECT_EQ(kWriters * kLines, whole.size()) << "complete lines without duplicates";
}
