#include "common/KzComn_Handle.h"
#include "kzdbg/TraceFile.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>
#include <process.h>

#include <filesystem>
#include <set>

namespace {

const std::string kMark = "\xEF\xBB\xBF";
constexpr SYSTEMTIME kDay1 = {2026, 11, 4, 5, 23, 59, 59, 999};

DebugLogConfig ConfigFor(const std::wstring& tstrFolder)
{
    DebugLogConfig config{0, 0, 0, 0, kDay1, 0, 0, L"Brevant", {}, L"KZVLT", {}, L"log"};
    tstrFolder.copy(config.szLogFolder, std::size(config.szLogFolder) - 1);
    return config;
}

/// An open trace; closed when it goes.
class Trace {
public:
    explicit Trace(const DebugLogConfig& config) { EXPECT_EQ(0U, KzDbgInitialize(&m_pTrace, &config)); }
    ~Trace() { EXPECT_EQ(0U, KzDbgUninitialize(m_pTrace)); }
    void Line(const std::wstring& tstrLine, const SYSTEMTIME& time = kDay1) const
    {
        EXPECT_EQ(0U, KzDbgTrace(m_pTrace, &time, tstrLine.c_str()));
    }

private:
    void* m_pTrace = nullptr;
};

class KzDbgTest : public ::testing::Test {
protected:
    std::string Log(const std::wstring& tstrEnd = L"") const { return m_folder.Read(m_tstrLog + tstrEnd).value_or(""); }

    const std::wstring m_tstrLog = L"KZVLT_Brevant.log";
    TempFolder m_folder;
    DebugLogConfig m_config = ConfigFor(m_folder.Path());
    const std::filesystem::path m_path = m_folder.Write(m_tstrLog, "");
};

}  // namespace

TEST_F(KzDbgTest, FileIsNamedAfterTheSettingsAndTheDayAndHoldsLinesInUtf8BehindOneMark)
{
    Trace(m_config).Line(L"a\r\n");
    Trace(m_config).Line(L"grün 鍵 \xD83D\xDD11\r\n");
    EXPECT_EQ(kMark + "a\r\ngrün 鍵 🔑\r\n", Log());
    m_config = ConfigFor(m_folder.Path() + L"new/deep");
    m_config.szLogFile[0] = L'f';
    m_config.dwLogProcess = m_config.dwLogUnitType = m_config.bRobust = 1;
    const Trace trace(m_config);
    trace.Line(L"late");
    trace.Line(L"early", {2026, 11, 5, 6, 0, 0, 0, 0});
    const std::wstring tstrStem = L"new\\deep\\KZVLT_f_" + std::to_wstring(::GetCurrentProcessId());
    EXPECT_EQ(kMark + "late", m_folder.Read(tstrStem + L"_20261105.log"));
    EXPECT_EQ(kMark + "early", m_folder.Read(tstrStem + L"_20261106.log"));
}

TEST_F(KzDbgTest, FullFileRollsOverAndTheOldestGoesUnlessAReaderHindersIt)
{
    for (const char* szOld : {"1", "2", "3"}) m_folder.Write(m_tstrLog + L"." + std::wstring(1, szOld[0]), szOld);
    std::filesystem::resize_file(m_path, KzDbg::kFullBytes - 1);
    KzCommon::UniqueFile reader(::CreateFileW(m_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                              OPEN_EXISTING, 0, nullptr));
    const Trace first(m_config), second(m_config);
    first.Line(L"fills");
    first.Line(L"still here");
    EXPECT_EQ("1", Log(L".1")) << "nothing moves when the file itself cannot";
    reader.Reset();
    first.Line(L"new");
    second.Line(L"er");
    EXPECT_EQ(kMark + "newer", Log()) << "a writer must not stay with the rolled file";
    EXPECT_EQ(KzDbg::kFullBytes + 14, Log(L".1").size());
    EXPECT_EQ("1", Log(L".2"));
    EXPECT_EQ("2", Log(L".3"));
}

constexpr std::size_t kWriters = 4, kLines = 1500, kLineBytes = 120;

/// What each of the processes below runs: this executable, with the folder in its environment.
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
    std::filesystem::resize_file(m_path, kOld);
    ::SetEnvironmentVariableW(L"KZDBG_TEST_FOLDER", m_folder.Path().c_str());
    std::intptr_t writers[kWriters] = {};
    for (std::intptr_t& iWriter : writers) {
        iWriter = ::_spawnl(_P_NOWAIT, _pgmptr, "writer", "--gtest_also_run_disabled_tests",
                            "--gtest_filter=KzDbgWriter.*", nullptr);
    }
    for (const std::intptr_t iWriter : writers) EXPECT_EQ(iWriter, ::_cwait(nullptr, iWriter, 0));
    EXPECT_THAT(m_folder.List(), testing::ElementsAre(m_tstrLog, m_tstrLog + L".1"));
    std::istringstream all(Log(L".1").substr(kOld) + Log().substr(3));
    std::set<std::string> whole;
    for (std::string strLine; std::getline(all, strLine);) whole.insert(strLine + "\n");
    std::erase_if(whole, [](const std::string& strLine) { return strLine.size() != kLineBytes; });
    EXPECT_EQ(kWriters * kLines, whole.size()) << "lines that are whole and not twice the same";
}
