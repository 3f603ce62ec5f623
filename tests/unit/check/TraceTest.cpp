#include "agent/Sections.h"
#include "check/simulate/Plan.h"
#include "check/trace/KnownFailures.h"
#include "check/trace/TraceSummary.h"
#include "unit/check/CheckFixture.h"

namespace {

class TraceTest : public Test {
protected:
    /// Program, process, number of lines and end of each run in the files.
    [[nodiscard]] std::vector<std::string> Runs(const std::vector<const wchar_t*>& names) const
    {
        TraceReader reader;
        for (const wchar_t* const szName : names) EXPECT_TRUE(reader.Add(m_folder.PathOf(szName), nullptr)) << szName;
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
        m_folder.Write(L"t.log", "\xEF\xBB\xBF" + strLines);
        return Runs({L"t.log"});
    }
    TempFolder m_folder;
};

/// An update that uses every key once, and the trace of its run.
class TracedRunTest : public UpdateTest {
protected:
    void UseEveryKey()
    {
        std::map<std::wstring, std::string> sections;
        for (const Section& section : kSections) {
            for (const SectionKey& key : section.keys) {
                sections[section.szName] += KzCommon::String::ToUtf8(key.szKey) + "=" + kRecord + "\n";
                if (!key.LineStart().empty()) ++m_cCounted;
            }
        }
        std::string strInstructions;
        for (const auto& [tstrName, strRecords] : sections) {
            strInstructions += "[" + KzCommon::String::ToUtf8(tstrName) + "]\n" + strRecords;
        }
        Instruct(strInstructions);
        m_update.MakeFolder(L"Component\\p1\\Share\\Setting");
        m_installed.Write(L"config.xml", "<c><P><A>1</A></P></c>");
    }

    /// Every operation traces this record, too, even if it cannot carry it out.
    static constexpr char kRecord[] = "{InstalledDir}Deep\\er!Name!REG_SZ!data";
    TempFolder m_installed;
    TempFolder m_traces;
    std::size_t m_cCounted = 0;  // records with a counted line
};

const std::string kDeploy = "@@@ Paramter is /DeployFramework";
const std::string kStop = "@@@ ***QorPatchTool.exe stop.";
const std::string kDecided = "@@@ NO need to apply new brand";

}  // namespace

TEST_F(TraceTest, RunsOfSeveralProcessesAreSeparatedAndCutOffOnesReported)
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
        {{"@@@ src: a, dst:b", kStop, kDecided}, "3 headless whole"},  // the file with its first line is missing
    };
    for (const auto& [lines, szEnd] : rows) {
        std::string strLines;
        for (const std::string& strLine : lines) strLines += Line(1, "1af09", strLine);
        EXPECT_THAT(RunsOf(strLines), ElementsAre(EndsWith(szEnd))) << PrintToString(lines);
    }
}

TEST_F(TraceTest, RunsContinueInRolledFilesAndOnTheNextDay)
{
    m_folder.Write(L"t_20261121.log.2", Line(1, "00d0", kDeploy));
    m_folder.Write(L"t_20261121.log.1", Line(2, "00d0", "@@@ a"));
    m_folder.Write(L"t_20261121.log", Line(3, "00d0", "@@@ b"));
    m_folder.Write(L"t_20261122.log", Line(4, "00d0", kStop) + Line(5, "00d0", kDecided));
    for (const wchar_t* const szFirst : {L"t_20261121.log", L"t_20261121.log.1"}) {
        EXPECT_THAT(Runs({L"t_20261122.log", szFirst}), ElementsAre("Brevant /DeployFramework 00d0 5 whole"))
            << szFirst;
    }
    TraceReader reader;
    DWORD dwError = ERROR_SUCCESS;
    m_folder.Write(L"t_20261121.log.4", Line(0, "00d0", "@@@ c"));
    EXPECT_TRUE(reader.Add(m_folder.PathOf(L"t_20261121.log.1"), &dwError));
    EXPECT_TRUE(reader.Add(m_folder.PathOf(L"t_20261122.log"), &dwError));
    EXPECT_THAT(reader.MissingFiles(), ElementsAre(m_folder.PathOf(L"t_20261121.log.3")));
    m_folder.Write(L"t_20261121.log.9", Line(0, "00d0", "@@@ d"));
    EXPECT_TRUE(reader.Add(m_folder.PathOf(L"t_20261121.log.1"), &dwError));
    EXPECT_THAT(reader.MissingFiles(), SizeIs(5)) << "the oldest file";
    Arguments arguments;
    m_folder.Write(L"asked.log", Line(1, "00d0", kDeploy) + Line(2, "00d0", "@@@ To display notification dialog..."));
    arguments.operands = {m_folder.PathOf(L"t_20261121.log"), m_folder.PathOf(L"asked.log")};
    Output output;
    EXPECT_EQ(RunTrace(arguments, output), kClean);
    EXPECT_THAT(output.strText, AllOf(HasSubstr("log.3 is missing or unreadable"), HasSubstr("failures, 3 cut off")));
    EXPECT_FALSE(reader.Add(m_folder.PathOf(L"none.log"), &dwError));
    EXPECT_EQ(dwError, DWORD{ERROR_FILE_NOT_FOUND});
    for (const std::string& strNone : {std::string("no trace\r\n"), std::string("\0\xFF", 2), Line(1, "xyz", kStop),
                                       "32/11/2026" + Line(1, "00d0", kStop).substr(10)}) {
        EXPECT_FALSE(reader.Add(m_folder.Write(L"bad.log", strNone), &dwError)) << strNone;
        EXPECT_EQ(dwError, DWORD{ERROR_INVALID_DATA}) << strNone;
    }
}

TEST_F(TraceTest, AFailureHasItsCodePageAndContext)
{
    std::string strLines =
        Line(1, "00d0", kDeploy) + Line(2, "00d0", "@@@ src: a, dst:b") + Line(2, "00d0", "@@@ src: c, dst:d") +
        Line(3, "00d0", "@@@ To write registry key: K") +
        Line(4, "00d0", "!!! KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=5", "RegistryPatch.cpp");
    for (const char* const szFailure : {"'x', error = 32.", "'x', error = 32.", "'y', error = 2."}) {
        strLines += Line(5, "00d0", std::string("!!! Failed to delete file ") + szFailure, "FileOperations.cpp");
    }
    TraceReader reader;
    strLines += Line(6, "00d0", kStop) + Line(7, "00d0", "@@@ NO need to apply\r\n new brand");
    EXPECT_TRUE(reader.Add(m_folder.Write(L"t.log", strLines), nullptr));
    ASSERT_EQ(reader.Runs().size(), 1U);
    const TraceRun run = reader.Runs().front();
    EXPECT_EQ(run.lines.back().tstrMessage, L"NO need to apply\r\n new brand");
    RunSummary summary = SummarizeRun(run);
    const std::wstring tstrShown = FormatRun(summary, false);
    EXPECT_THAT(tstrShown, HasSubstr(L"(process 00d0, 6.600 s)\n  2 files for the restart\n  CUT OFF"));
    EXPECT_THAT(tstrShown, HasSubstr(L"\n  3 failures\n    !!! KzCommon::Storage::Reg::StoreValue() failed. "
                                     L"Win32ErrorCode=5 - RegistryPatch.cpp\n        after: To write registry key: K\n"
                                     L"        code: access denied"));
    EXPECT_THAT(tstrShown, HasSubstr(L"        read: docs/instruction-file.md, \"Registry"));
    EXPECT_THAT(tstrShown, HasSubstr(L"error = 32. - FileOperations.cpp (2 times)\n        code: another program"));
    EXPECT_THAT(tstrShown, AllOf(Not(HasSubstr(L"'y'")),
                                 EndsWith(L"  1 harmless line that looks like a failure (--all shows them)\n")));
    summary.llMilliseconds = 60'000;
    EXPECT_THAT(FormatRun(summary, true),
                AllOf(HasSubstr(L"'y'"), HasSubstr(L", 0:01:00 h)"), HasSubstr(L"looks like a failure\n")));
}

TEST_F(TracedRunTest, TheLineOfEveryOperationIsCounted)
{
    UseEveryKey();
    const Plan plan = MakePlan(Open(), m_installed.Path(), {.bTrace = true});
    TraceReader reader;
    ASSERT_TRUE(reader.Add(m_traces.Write(L"t.log", KzCommon::String::ToUtf8(plan.tstrTrace)), nullptr));
    ASSERT_THAT(reader.Runs(), SizeIs(1));
    const TraceRun run = reader.Runs().front();
    std::string strRecords;  // support and its tools depend on these texts
    for (const TraceLine& line : run.lines) {
        if (line.tstrMessage.starts_with(L"src: ")) ++m_cCounted;
        std::wstring tstrText(line.tstrMessage);
        KzCommon::String::ReplaceAll(tstrText, KzCommon::String::FromAnsi(kRecord), L"@");
        KzCommon::String::ReplaceAll(tstrText, L"*** FrameworkDeployAgent::", L"");
        if (tstrText.find(L'@') != std::wstring::npos) strRecords += KzCommon::String::ToUtf8(tstrText) + "\n";
    }
    std::size_t uAt = 0;
    for (const char* const szText :
         {"CreateDirBeforeReboot() - to add: [@]", "PatchRegistry() - delete: [@]", "PatchRegistry() - add: [@]",
          "PatchRegistry() - add: [@]", "MergeConfig() - Add tag. [@]", "ModifyUpdateInfo(@) ",
          "RemoveFileAfterReboot() - to delete folder: [@]", "RemoveFileAfterReboot() - to delete file: [@]",
          "RemoveFileAfterReboot() - deleting file: [@]", "PostRunScript() - add to sys RunOnce: [@]"}) {
        uAt = strRecords.find(std::string(szText) + "\n", uAt) + 1;
        ASSERT_NE(uAt, 0U) << szText << " is not in its place of\n" << strRecords;
    }
    std::size_t cCounted = 0;
    const RunSummary summary = SummarizeRun(run);
    for (const std::wstring& tstrFigure : summary.figures) cCounted += std::stoul(tstrFigure);
    EXPECT_EQ(cCounted, m_cCounted) << PrintToString(summary.figures);
    EXPECT_THAT(summary.figures, IsSupersetOf({L"1 folder to create", L"1 setting to carry over", L"3 registry records",
                                               L"1 change of the update information", L"1 command for the restart"}));
}

TEST(KnownFailuresTest, HarmlessLinesAreRecognizedAndCodesAreRead)
{
    // The message, its code, and words of the reason why it is harmless (null: it is a failure).
    const std::tuple<const wchar_t*, DWORD, const wchar_t*> rows[] = {
        {L"*** ::DeleteFile(C:\\[0x1].lnk) failed. [0x00000002]", 2, nullptr},
        {L"StoreValue() failed: 0x00000005", 5, nullptr},
        {L"*** FrameworkDeployAgent::MergeConfig() - Write failed. [0x00000000]", 0, nullptr},
        {L"*** FrameworkDeployAgent::MergeConfig() - Write failed. [0x00000002]", 2, nullptr},
        {L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=5b4", 0x5B4, nullptr},
        {L"KzCommon::Storage::Reg::StoreValue(). incorrect data type", 0, nullptr},
        {L"KzCommon::Storage::Reg::StoreValue(SOFTWARE\\XColumns=4)", 0, L"a value was missing"},
        {L"Failed to do file copy. dest='x', error code=80", 80, nullptr},
        {L"source folder, error code is 80. Modify installed one.", 80, nullptr},
        {L"Fail to write the product config, error code: 0x10000007", 0x10000007, nullptr},
        {L"Failed to backup old shortcut configuration. Error code = 3", 3, nullptr},
        {L"[SHCreateItemFromParsingName]failed. x, hr=-2147024894", 0x80070002, nullptr},
        {L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x00000002]", 2, L"no such section"},
        {L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x000000a0]", 0xA0, nullptr},
        {L"*** FrameworkDeployAgent::MergeConfig() - QueryValue(QOR_CONFIG_MERGE) failed. [0x00000002]", 2,
         L"no such section"},
        {L"Failed to delete file 'C:\\x', error = 2.", 2, L"nothing to delete"},
        {L"Failed to delete file 'C:\\x', error = 5.", 5, nullptr},
        {L"*** ::WTSSendMessage() failed. [0x00000000]", 0, L"Wine shows no"},
        {L"*** ::WTSSendMessage() failed. [0x00001b6e]", 0x1B6E, nullptr},
    };
    for (const auto& [szMessage, dwCode, szWhy] : rows) {
        TraceLine line;
        line.tstrMessage = szMessage;
        EXPECT_EQ(CodeOf(szMessage), dwCode ? std::optional(dwCode) : std::nullopt) << szMessage;
        const wchar_t* const szFound = WhyHarmless(line);
        EXPECT_EQ(szFound != nullptr, szWhy != nullptr) << szMessage;
        EXPECT_THAT(std::wstring(szFound ? szFound : L""), HasSubstr(szWhy ? szWhy : L"")) << szMessage;
    }
    TraceLine question;  // the same message from another source
    question.tstrMessage = L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x00000002]";
    question.tstrSource = L"RestartReminder.cpp";
    EXPECT_THAT(std::wstring(WhyHarmless(question)), HasSubstr(L"no texts for the user's language"));
}
