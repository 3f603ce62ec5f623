#include "check/FailureLines.h"
#include "check/TraceSummary.h"
#include "common/KzComn_String.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

using namespace testing;
using namespace Check;

namespace {

/// A line at that second of a minute, "!!! message" with its source.
std::string Line(int iSecond, const std::string& strProcess, const std::string& strText,
                 const std::string& strSource = "Brevant.cpp")
{
    char szHead[64] = {};
    ::snprintf(szHead, sizeof(szHead), "21/11/2026 08:37:%02d.500 %s:00d4 ", iSecond, strProcess.c_str());
    return szHead + strText.substr(0, 3) + " <Brevant> " + strText.substr(4) + " - " + strSource + "(12)\r\n";
}

class TraceTest : public Test {
protected:
    /// Program, process and end of each run in the files.
    [[nodiscard]] static std::vector<std::string> Runs(const TraceReader& reader)
    {
        std::vector<std::string> found;
        for (const TraceRun& run : reader.Runs()) {
            const RunSummary summary = SummarizeRun(run);
            const char* const kEnds[] = {"whole", "cut off", "asking", "unknown"};
            found.push_back(KzCommon::String::ToUtf8(summary.tstrProgram + L" " + summary.tstrProcess + L" ") +
                            std::to_string(run.lines.size()) + (summary.bLacksBeginning ? " headless " : " ") +
                            kEnds[static_cast<int>(summary.eEnd)]);
        }
        return found;
    }
    [[nodiscard]] std::vector<std::string> RunsOf(const std::string& strLines) const
    {
        TraceReader reader;
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_TRUE(reader.Add(m_folder.Write(L"t.log", "\xEF\xBB\xBF" + strLines), &dwError)) << dwError;
        return Runs(reader);
    }
    TempFolder m_folder;
};

const std::string kDeploy = "@@@ Paramter is /DeployFramework";
const std::string kStop = "@@@ ***QorPatchTool.exe stop.";
const std::string kDecided = "@@@ NO need to apply new brand";

}  // namespace

TEST_F(TraceTest, RunsOfSeveralProcessesAreToldApartAndCutOffOnesAreCalledSo)
{
    const std::string strUnknown =
        "!!! *** Frwk::Utility::GetInstalledFolder() - ProductPath cannot be read. [0x00000002]";
    EXPECT_THAT(
        RunsOf(Line(1, "00d0", kDeploy) + Line(2, "00e0", "@@@ Paramter is /ApplyNewName") + Line(3, "00d0", kStop) +
               Line(4, "00e0", "@@@ Write default registrys") + Line(5, "00d0", kDecided) + "\xEF\xBB\xBF" +
               Line(6, "00d0", strUnknown) + Line(7, "00d0", kDeploy)),
        ElementsAre("Brevant /DeployFramework 00d0 3 whole", "Brevant /ApplyNewName 00e0 2 whole",
                    "Brevant /DeployFramework 00d0 2 cut off"));
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{"@@@ Paramter is not right", kStop}, "whole"},
        {{kDeploy, kStop}, "cut off"},
        {{kDeploy, kStop, "!!! Patch Agent failed to perform update"}, "whole"},
        {{kDeploy, kStop, "@@@ To display notification dialog..."}, "asking"},
        {{kDeploy, kStop, "@@@ To display notification dialog...", "@@@ Restart later..."}, "whole"},
        {{kDeploy, kStop, "@@@ tsProductName=='Keystride'"}, "whole"},
        {{kDeploy, kStop, "@@@ tsProductName=='Keystride'", ".w. RemindToReboot()"}, "cut off"},
        {{"!!! a", "!!! b"}, "2 unknown"},
        {{"@@@ src: a, dst:b", kStop, kDecided}, "3 headless whole"},  // the file with its first line is gone
    };
    for (const auto& [lines, szEnd] : rows) {
        std::string strLines;
        for (const std::string& strLine : lines) strLines += Line(1, "1a2b4", strLine);
        EXPECT_THAT(RunsOf(strLines), ElementsAre(EndsWith(szEnd))) << PrintToString(lines);
    }
}

TEST_F(TraceTest, RolledFilesAndThoseOfTheNextDayGoOnWithTheRun)
{
    m_folder.Write(L"t_20261121.log.2", Line(1, "00d0", kDeploy));
    m_folder.Write(L"t_20261121.log.1", Line(2, "00d0", "@@@ a"));
    const std::wstring tstrRolled = m_folder.Write(L"t_20261121.log", Line(3, "00d0", "@@@ b"));
    const std::wstring tstrNext = m_folder.Write(L"t_20261122.log", Line(4, "00d0", kStop) + Line(5, "00d0", kDecided));
    for (const std::wstring& tstrFirst : {tstrRolled, tstrRolled + L".1"}) {
        TraceReader reader;
        EXPECT_TRUE(reader.Add(tstrNext, nullptr) && reader.Add(tstrFirst, nullptr));
        EXPECT_THAT(Runs(reader), ElementsAre("Brevant /DeployFramework 00d0 5 whole"));
    }
    TraceReader reader;
    DWORD dwError = ERROR_SUCCESS;
    EXPECT_FALSE(reader.Add(m_folder.PathOf(L"none.log"), &dwError));
    EXPECT_EQ(dwError, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    for (const std::string& strNone : {std::string("no trace\r\n"), std::string("\0\xFF", 2), Line(1, "xyz", kStop),
                                       "32/11/2026" + Line(1, "00d0", kStop).substr(10)}) {
        EXPECT_FALSE(reader.Add(m_folder.Write(L"bad.log", strNone), &dwError)) << strNone;
        EXPECT_EQ(dwError, static_cast<DWORD>(ERROR_INVALID_DATA));
    }
}

TEST_F(TraceTest, AFailureComesWithItsCodeItsPageAndWhatItIsAbout)
{
    TraceReader reader;
    EXPECT_TRUE(reader.Add(
        m_folder.Write(L"t.log",
                       Line(1, "00d0", kDeploy) + Line(2, "00d0", "@@@ src: a, dst:b") +
                           Line(2, "00d0", "@@@ src: c, dst:d") + Line(3, "00d0", "@@@ To write registry key: K") +
                           Line(4, "00d0", "!!! KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=5",
                                "RegistryPatch.cpp") +
                           Line(5, "00d0", "!!! Failed to delete file 'x', error = 32.", "FileOperations.cpp") +
                           Line(5, "00d0", "!!! Failed to delete file 'x', error = 32.", "FileOperations.cpp") +
                           Line(5, "00d0", "!!! Failed to delete file 'y', error = 2.", "FileOperations.cpp") +
                           Line(6, "00d0", kStop) + Line(7, "00d0", "@@@ NO need to apply\r\n new brand")),
        nullptr));
    ASSERT_EQ(reader.Runs().size(), 1U);
    const TraceRun run = reader.Runs().front();
    EXPECT_EQ(run.lines.back().tstrMessage, L"NO need to apply\r\n new brand");
    const RunSummary summary = SummarizeRun(run);
    EXPECT_EQ(summary.llMilliseconds, 6000);
    EXPECT_THAT(summary.figures, ElementsAre(L"2 files for the restart"));
    ASSERT_EQ(summary.failures.size(), 2U);
    EXPECT_EQ(summary.failures[0].tstrAfter, L"To write registry key: K");
    EXPECT_THAT(summary.failures[0].tstrWords, HasSubstr(L"access denied"));
    EXPECT_THAT(summary.failures[0].tstrNote, HasSubstr(L"Registry"));
    EXPECT_EQ(summary.failures[1].cTimes, 2U);
    EXPECT_EQ(summary.harmless.size(), 1U);
    EXPECT_THAT(FormatRun(summary, false), Not(HasSubstr(L"'y'")));
    EXPECT_THAT(FormatRun(summary, true), HasSubstr(L"'y'"));
}

TEST(FailureLinesTest, CodesAreReadInEveryWayTheyAreWritten)
{
    const std::pair<const wchar_t*, DWORD> rows[] = {
        {L"*** ::DeleteFile(C:\\[0x1].lnk) failed. [0x00000002]", 2},
        {L"IsExisted(x) failed. error[0x000000a0]", 0xA0},
        {L"StoreValue() failed: 0x00000005", 5},
        {L"StoreValue() failed. Win32ErrorCode=5b4", 0x5B4},
        {L"Failed to do file copy. dest='x', error code=80", 80},
        {L"source folder, error code is 80. Modify installed one.", 80},
        {L"Fail to write the product config, error code: 0x10000007", 0x10000007},
        {L"Failed to backup old shortcut configuration. Error code = 3", 3},
        {L"[SHCreateItemFromParsingName]failed. x, hr=-2147024894", 0x80070002},
        {L"REG_MULTI_SZ not supported yet", 0},
    };
    for (const auto& [szMessage, dwCode] : rows) EXPECT_EQ(CodeOf(szMessage).value_or(0), dwCode) << szMessage;
}

TEST(FailureLinesTest, WhatLooksLikeAFailureIsToldFromOne)
{
    struct Row {
        const wchar_t* szMessage;
        const wchar_t* szSource;
        bool bHarmless;
    };
    const Row rows[] = {
        {L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x00000002]", L"RegistryPatch.cpp", true},
        {L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x000000a0]", L"RegistryPatch.cpp", false},
        {L"*** FrameworkDeployAgent::MergeConfig() - QueryValue(QOR_CONFIG_MERGE) failed. [0x00000002]", L"a", true},
        {L"KzCommon::Storage::Reg::StoreValue(SOFTWARE\\XColumns=4)", L"RegistryPatch.cpp", true},
        {L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=5", L"RegistryPatch.cpp", false},
        {L"KzCommon::Storage::Reg::StoreValue(). incorrect data type", L"RegistryPatch.cpp", false},
        {L"Failed to delete file 'C:\\x', error = 2.", L"FileOperations.cpp", true},
        {L"Failed to delete file 'C:\\x', error = 5.", L"FileOperations.cpp", false},
    };
    for (const Row& row : rows) {
        TraceLine line;
        line.tstrMessage = row.szMessage;
        line.tstrSource = row.szSource;
        EXPECT_EQ(WhyHarmless(line) != nullptr, row.bHarmless) << row.szMessage;
    }
}
