#include "common/KzComn_Handle.h"
#include "kzdbg/TraceFile.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>

using ::testing::UnorderedElementsAre;

namespace {

const std::string kMark = "\xEF\xBB\xBF";
constexpr SYSTEMTIME kDay1 = {2026, 11, 4, 5, 23, 59, 59, 999};
constexpr SYSTEMTIME kDay2 = {2026, 11, 5, 6, 0, 0, 0, 0};

template <std::size_t N>
void Set(wchar_t (&szField)[N], const std::wstring& tstrText)
{
    std::fill(std::begin(szField), std::end(szField), L'\0');
    tstrText.copy(szField, N - 1);
}

DebugLogConfig ConfigFor(const std::wstring& tstrFolder)
{
    DebugLogConfig config{};
    config.stOpened = kDay1;
    Set(config.szModuleName, L"Brevant");
    Set(config.szLogFolder, tstrFolder);
    Set(config.szLogPrefix, L"KZVLT");
    Set(config.szLogExtension, L"log");
    return config;
}

/// An open trace; closed when it goes.
class Trace {
public:
    explicit Trace(const DebugLogConfig& config) { EXPECT_EQ(0U, KzDbgInitialize(&m_pTrace, &config)); }
    ~Trace() { EXPECT_EQ(0U, KzDbgUninitialize(m_pTrace)); }
    void Line(const wchar_t* szLine, const SYSTEMTIME& time = kDay1) const
    {
        EXPECT_EQ(0U, KzDbgTrace(m_pTrace, &time, szLine));
    }
    void* m_pTrace = nullptr;
};

class KzDbgTest : public ::testing::Test {
protected:
    /// Makes a file of `ullBytes` that begins with `strBegin`.
    void WriteLong(const wchar_t* szName, const std::string& strBegin, ULONGLONG ullBytes) const
    {
        const std::wstring tstrPath = m_folder.Write(szName, strBegin);
        const KzCommon::UniqueFile file(
            ::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        LARGE_INTEGER size{};
        size.QuadPart = static_cast<LONGLONG>(ullBytes);
        EXPECT_TRUE(::SetFilePointerEx(file.Get(), size, nullptr, FILE_BEGIN) && ::SetEndOfFile(file.Get()));
    }
    [[nodiscard]] std::string Head(const wchar_t* szName) const
    {
        return m_folder.Read(szName).value_or("missing").substr(0, 8);
    }

    TempFolder m_folder;
    DebugLogConfig m_config = ConfigFor(m_folder.Path());
};

TEST_F(KzDbgTest, FileIsNamedAfterTheSettings)
{
    const std::wstring tstrId = L"_" + std::to_wstring(::GetCurrentProcessId());
    const struct {
        const wchar_t* szFolder;
        const wchar_t* szFile;
        const wchar_t* szExtension;
        DWORD dwProcess;
        DWORD dwUnit;
        std::wstring tstrName;
    } rows[] = {{L"", L"", L"log", 0, 0, L"KZVLT_Brevant.log"},
                {L"", L"agent", L"txt", 0, 2, L"KZVLT_agent.txt"},
                {L"", L"", L"", 0, 0, L"KZVLT_Brevant"},
                {L"new\\deep\\", L"", L"log", 2, 0, L"new\\deep\\KZVLT_Brevant" + tstrId + L".log"},
                {L"/slashes", L"a", L"log", 1, 1, L"slashes\\KZVLT_a" + tstrId + L"_20261105.log"}};
    for (const auto& row : rows) {
        DebugLogConfig config = ConfigFor(m_folder.Path() + row.szFolder);
        Set(config.szLogFile, row.szFile);
        Set(config.szLogExtension, row.szExtension);
        config.dwLogProcess = row.dwProcess;
        config.dwLogUnitType = row.dwUnit;
        Trace(config).Line(L"line\r\n");
        EXPECT_EQ(kMark + "line\r\n", m_folder.Read(row.tstrName)) << testing::PrintToString(row.tstrName);
    }
}

TEST_F(KzDbgTest, LinesAreAppendedInUtf8BehindOneMark)
{
    m_config.bRobust = 1;
    m_config.bDebugger = 1;
    Trace(m_config).Line(L"a\r\n");
    const Trace again(m_config);
    again.Line(L"grün 鍵 \xD83D\xDD11\r\n");
    again.Line(L"");
    EXPECT_EQ(kMark + "a\r\ngrün 鍵 🔑\r\n", m_folder.Read(L"KZVLT_Brevant.log"));
}

TEST_F(KzDbgTest, NoFolderMeansTheTemporaryOne)
{
    m_config.szLogFolder[0] = L'\0';
    Set(m_config.szLogFile, L"KzDbgTest");
    Trace(m_config).Line(L"here\r\n");
    wchar_t szTemp[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH, szTemp);
    EXPECT_TRUE(::DeleteFileW((std::wstring(szTemp) + L"KZVLT_KzDbgTest.log").c_str()));
}

TEST_F(KzDbgTest, FullFileRollsOverAndTheOldestGoes)
{
    WriteLong(L"KZVLT_Brevant.log", "current", KzDbg::kFullBytes - 1);
    m_folder.Write(L"KZVLT_Brevant.log.1", "one");
    m_folder.Write(L"KZVLT_Brevant.log.2", "two");
    m_folder.Write(L"KZVLT_Brevant.log.3", "three");
    const Trace first(m_config);
    const Trace second(m_config);
    first.Line(L"fills");
    EXPECT_EQ("three", Head(L"KZVLT_Brevant.log.3")) << "a file that is not full must not roll";
    first.Line(L"new");
    second.Line(L"er");
    EXPECT_EQ(kMark + "newer", m_folder.Read(L"KZVLT_Brevant.log")) << "a writer must not stay with the rolled file";
    EXPECT_EQ("current", Head(L"KZVLT_Brevant.log.1").substr(0, 7));
    EXPECT_EQ("one", Head(L"KZVLT_Brevant.log.2"));
    EXPECT_EQ("two", Head(L"KZVLT_Brevant.log.3"));
    EXPECT_EQ(4U, m_folder.List().size());
}

TEST_F(KzDbgTest, FileThatCannotBeRolledIsWrittenOn)
{
    WriteLong(L"KZVLT_Brevant.log", "current", KzDbg::kFullBytes);
    m_folder.Write(L"KZVLT_Brevant.log.1", "one");
    m_folder.Write(L"KZVLT_Brevant.log.3", "three");
    KzCommon::UniqueFile reader(::CreateFileW(m_folder.PathOf(L"KZVLT_Brevant.log").c_str(), GENERIC_READ,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(reader);
    void* pTrace = nullptr;
    EXPECT_EQ(0U, KzDbgInitialize(&pTrace, &m_config));
    EXPECT_EQ(0U, KzDbgTrace(pTrace, &kDay1, L"still here"));
    reader.Reset();
    EXPECT_EQ(KzDbg::kFullBytes + 10, m_folder.Read(L"KZVLT_Brevant.log").value().size());
    EXPECT_EQ("one", Head(L"KZVLT_Brevant.log.1"));
    EXPECT_EQ("three", Head(L"KZVLT_Brevant.log.3"));
    EXPECT_EQ(0U, KzDbgTrace(pTrace, &kDay1, L"new"));
    EXPECT_EQ(kMark + "new", m_folder.Read(L"KZVLT_Brevant.log"));
    EXPECT_EQ(0U, KzDbgUninitialize(pTrace));
}

TEST_F(KzDbgTest, MidnightMovesToTheNewDaysFile)
{
    m_config.dwLogUnitType = 1;
    const Trace trace(m_config);
    trace.Line(L"late", kDay1);
    trace.Line(L"early", kDay2);
    EXPECT_EQ(kMark + "late", m_folder.Read(L"KZVLT_Brevant_20261105.log"));
    EXPECT_EQ(kMark + "early", m_folder.Read(L"KZVLT_Brevant_20261106.log"));
}

TEST_F(KzDbgTest, BadCallsAreAnsweredWithACode)
{
    void* pTrace = &m_config;
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, KzDbgInitialize(nullptr, &m_config));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, KzDbgInitialize(&pTrace, nullptr));
    m_folder.Write(L"file", "");
    const DebugLogConfig inFile = ConfigFor(m_folder.PathOf(L"file\\below"));
    EXPECT_NE(0U, KzDbgInitialize(&pTrace, &inFile));
    DebugLogConfig unterminated = m_config;
    std::fill(std::begin(unterminated.szLogFile), std::end(unterminated.szLogFile), L'x');
    EXPECT_NE(0U, KzDbgInitialize(&pTrace, &unterminated));
    EXPECT_EQ(&m_config, pTrace);

    void* pClosed = nullptr;
    EXPECT_EQ(0U, KzDbgInitialize(&pClosed, &m_config));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, KzDbgTrace(pClosed, nullptr, L""));
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, KzDbgTrace(pClosed, &kDay1, nullptr));
    EXPECT_EQ(0U, KzDbgUninitialize(pClosed));
    for (void* pBad : {static_cast<void*>(nullptr), pTrace, pClosed}) {
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, KzDbgTrace(pBad, &kDay1, L""));
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, KzDbgUninitialize(pBad));
    }
}

// -- several processes --

constexpr std::size_t kWriters = 4;
constexpr std::size_t kLines = 1500;
constexpr std::size_t kLineBytes = 120;
const wchar_t kFolderVariable[] = L"KZDBG_TEST_FOLDER";

/// What each of the processes below runs: this executable, with the folder in its environment.
TEST(KzDbgWriter, DISABLED_WritesItsLines)
{
    wchar_t szFolder[MAX_PATH] = {};
    ASSERT_NE(0U, ::GetEnvironmentVariableW(kFolderVariable, szFolder, MAX_PATH));
    const Trace trace(ConfigFor(szFolder));
    for (std::size_t uLine = 0; uLine < kLines; ++uLine) {
        std::wstring tstrLine = std::to_wstring(::GetCurrentProcessId()) + L" " + std::to_wstring(uLine) + L" ";
        tstrLine.resize(kLineBytes - 2, L'x');
        trace.Line((tstrLine + L"\r\n").c_str());
    }
}

KzCommon::UniqueKernelHandle StartWriter()
{
    wchar_t szProgram[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, szProgram, MAX_PATH);
    wchar_t szArguments[] = L"writer --gtest_brief=1 --gtest_also_run_disabled_tests --gtest_filter=KzDbgWriter.*";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    EXPECT_TRUE(
        ::CreateProcessW(szProgram, szArguments, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
    ::CloseHandle(process.hThread);
    return KzCommon::UniqueKernelHandle(process.hProcess);
}

TEST_F(KzDbgTest, ProcessesShareAFileThroughARollover)
{
    const ULONGLONG ullOld = KzDbg::kFullBytes - kWriters * kLines * kLineBytes / 2;
    WriteLong(L"KZVLT_Brevant.log", "", ullOld);
    ::SetEnvironmentVariableW(kFolderVariable, m_folder.Path().c_str());
    std::vector<KzCommon::UniqueKernelHandle> writers;
    for (std::size_t uWriter = 0; uWriter < kWriters; ++uWriter) writers.push_back(StartWriter());
    for (const auto& writer : writers) EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(writer.Get(), 120'000));

    EXPECT_THAT(m_folder.List(), UnorderedElementsAre(L"KZVLT_Brevant.log", L"KZVLT_Brevant.log.1"));
    const std::string strNew = m_folder.Read(L"KZVLT_Brevant.log").value();
    EXPECT_TRUE(strNew.starts_with(kMark));
    const std::string strAll =
        m_folder.Read(L"KZVLT_Brevant.log.1").value().substr(ullOld) + strNew.substr(kMark.size());
    EXPECT_EQ(kWriters * kLines * kLineBytes, strAll.size());
    std::set<std::string> whole;
    for (std::size_t uAt = 0; uAt < strAll.size(); uAt += kLineBytes) {
        const std::string strLine = strAll.substr(uAt, kLineBytes);
        if (strLine.find('\n') == kLineBytes - 1) whole.insert(strLine);
    }
    EXPECT_EQ(kWriters * kLines, whole.size()) << "lines that are whole and not twice the same";
}

}  // namespace
