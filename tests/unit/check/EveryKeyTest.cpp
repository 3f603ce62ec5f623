// Every key of the instruction file through "lint", "plan" and "manifest": one that the table knows and a verb does not
// is found here.
#include "check/simulate/Plan.h"
#include "check/simulate/PlanMachine.h"
#include "check/verify/FoundValue.h"
#include "check/verify/Diff.h"
#include "check/verify/Manifest.h"
#include "common/KzComn_WindowsMachine.h"
#include "support/RecordedTrace.h"
#include "unit/check/CheckFixture.h"
#include "unit/check/KeyTrial.h"

#include <functional>
#include <regex>
#include <set>

using KzCommon::String::ToUtf8;

namespace {

class EveryKeyTest : public UpdateTest {
protected:
    using Action = KzCommon::Action;  // the test library has one, too

    EveryKeyTest()
    {
        Bring({L"p1\\Share\\Setting\\readme.htm"});
        Write(kTrialSource, "");
        Write(L"Component\\p1\\Share\\Setting\\config.xml", "<c><P><e7k>1</e7k></P></c>");
        m_installed.Write(L"config.xml", kUsers);
    }

    /// Makes the update's instruction file of one record, in line 2, and the other section that removals need.
    void Use(const Section& section, const SectionKey& key, const std::string& strRecord) const
    {
        const bool bFiles = std::wstring_view(section.szName) == L"QOR_FILE";
        Write(kInstructionFile,
              "[" + NameOf(section) + "]\n" + ToUtf8(key.szKey) + "=" + strRecord +
                  (bFiles ? "\n[QOR_DIR]\nadd={InstalledDir}\n" : "\n[QOR_FILE]\ndelete=C:\\*.none\n"));
    }
    [[nodiscard]] std::vector<Finding> Findings() const
    {
        const Update update = Open();
        IniScan instructions;
        EXPECT_TRUE(instructions.Read(update.FullPath(kInstructionFile), nullptr));
        Report report;
        LintUpdate({update, instructions, {}}, report);
        return report.Sorted();
    }
    /// Whether "lint" has a finding about a value in that line.
    [[nodiscard]] bool IsFound(unsigned uLine) const
    {
        return std::ranges::any_of(Findings(), [&](const Finding& finding) {
            return finding.tstrPath == kInstructionFile && finding.place.uLine == uLine &&
                   finding.eRule >= Rule::eRegistryFields;
        });
    }
    [[nodiscard]] bool IsFound(Rule eRule) const { return std::ranges::count(Findings(), eRule, &Finding::eRule) > 0; }
    /// Whether "plan" has a change of something with that word in its name; with an action one that succeeds.
    [[nodiscard]] bool IsPlanned(const wchar_t* szWord = L"e7k", std::optional<Action> optAction = {}) const
    {
        const Plan plan = MakePlan(Open(), m_installed.Path());
        return std::ranges::any_of(plan.steps, [&](const PlanStep& step) {
            return std::ranges::any_of(step.changes, [&](const Change& change) {
                return (change.tstrTarget + change.tstrName).find(szWord) != std::wstring::npos &&
                       (!optAction || (change.eAction == *optAction && change.eOutcome != Outcome::eFail));
            });
        });
    }
    /// Expects findings where "plan" shows that a copy fails: its source does not exist, or is deleted before.
    void LosesItsSource(const Section& section, const SectionKey& key) const
    {
        const std::string strRecord = TrialOf(key).strRecord;
        Use(section, key, std::regex_replace(strRecord, std::regex(R"(e7k\.dat)"), "none.dat"));
        EXPECT_TRUE(IsFound(2) || IsPlanned(L"e7k", Action::eCopy)) << "a source that does not exist";
        const bool bFiles = std::wstring_view(section.szName) == L"QOR_FILE";
        Use(section, key,
            strRecord + (bFiles ? "" : "\n[QOR_FILE]") +
                "\ndelete_now=" + ToUtf8(kInstalledDir + std::wstring(kTrialSource)));
        EXPECT_TRUE(IsFound(2) || IsFound(bFiles ? 3 : 4) || IsPlanned(L"e7k", Action::eCopy)) << "a deleted source";
    }
    static void ForEachKey(const std::function<void(const Section&, const SectionKey&)>& apply)
    {
        for (const Section& section : kSections) {
            for (const SectionKey& key : section.keys) {
                SCOPED_TRACE(ToUtf8(std::wstring(section.szName) + L" " + key.szKey));
                apply(section, key);
            }
        }
    }
    /// Whether the content of a file is the user's.
    [[nodiscard]] static bool HasUsers(const SimulatedMachine& machine, const std::wstring& tstrPath)
    {
        std::string strBytes;
        return machine.ReadContent(tstrPath, sizeof kUsers, strBytes, nullptr) && strBytes == kUsers;
    }
    [[nodiscard]] ExpectedState Promised() const
    {
        ExpectedState state;
        std::wstring tstrErrors;
        EXPECT_TRUE(CollectManifest(Open(), false, state, tstrErrors));
        return state;
    }

    /// The content of the user's files.
    static constexpr char kUsers[] = "<c><P><e7k>2</e7k></P></c>";
    const KzCommon::WindowsMachine m_real;
    TempFolder m_installed;
};

}  // namespace

TEST_F(EveryKeyTest, IsKnownToEveryVerb)
{
    ForEachKey([&](const Section& section, const SectionKey& key) {
        const KeyTrial trial = TrialOf(key);
        Use(section, key, trial.strRecord);
        EXPECT_EQ(IsPlanned(), trial.bPlanned);
        const ExpectedState promised = Promised();
        Use(section, key, "\n");
        EXPECT_EQ(!CompareStates(promised, Promised()).empty(), trial.bPromised);

        // Wrong in every form: no full path, no fields, no tag, no full path of a program, half a question.
        Use(section, key, "a\\b");
        // Texts are judged together, in the line of their section.
        const unsigned uLine = FormOf(key.eEffect) == RecordForm::eText ? 1 : 2;
        EXPECT_TRUE(IsFound(uLine)) << "no rule looks at its value";
        EXPECT_TRUE(IsPlanned(L"a\\b") || FormOf(key.eEffect) != RecordForm::ePath)
            << "the operation does not report what it refuses";

        // A command may start a file that a record copies, and no other file of that name.
        if (FormOf(key.eEffect) == RecordForm::eCommand) return;
        Use(section, key, trial.strRecord + "\n[Run]\nSysRunOnce=\"" + ToUtf8(kInstalledDir + TrialFileOf(key)) + "\"");
        EXPECT_NE(IsFound(4), IsPlanned(L"e7k", Action::eCopy));
        EXPECT_NE(IsFound(Rule::eNoStepLooksThere), IsPlanned(L"e7k", Action::eCopy)) << "of its source";
        if (IsPlanned(L"e7k", Action::eCopy)) LosesItsSource(section, key);
    });
}

TEST_F(EveryKeyTest, AFailedRecordHasAFailureLine)
{
    ForEachKey([&](const Section&, const SectionKey& key) {
        if (!key.optOperation) return;
        // Refused in every form, and aimed at a folder that does not exist.
        for (const std::string& strRecord : {std::string("a\\b"), TrialOf(key, L"none\\e7k").strRecord}) {
            const RecordedTrace trace;
            SimulatedMachine machine(&m_real);
            RunContext run{machine};
            machine.BeginOperation(L"e7k");
            (**key.optOperation)(run, key, KzCommon::String::FromAnsi(strRecord));
            const bool bFailed = std::ranges::any_of(
                machine.Steps().back().changes, [](const Change& change) { return change.eOutcome == Outcome::eFail; });
            EXPECT_TRUE(trace.Count(testing::StartsWith("!!!")) > 0 || !bFailed) << strRecord;
        }
    });
}

TEST_F(EveryKeyTest, ASecondRunLosesNothingThatTheFirstHasKept)
{
    ForEachKey([&](const Section& section, const SectionKey& key) {
        m_installed.Write(TrialFileOf(key), kUsers);
        Use(section, key, TrialOf(key).strRecord);
        SimulatedMachine machine(&m_real);
        static_cast<void>(PrepareForPlan(machine, {m_update.Path(), m_installed.Path()}));
        RunAgent(machine);
        std::set<std::wstring> kept;
        for (const PlanStep& step : machine.Steps()) {
            for (const Change& change : step.changes) {
                if (HasUsers(machine, change.tstrTarget)) kept.insert(change.tstrTarget);
            }
        }
        RunAgent(machine);
        for (const std::wstring& tstrPath : kept) EXPECT_TRUE(HasUsers(machine, tstrPath)) << ToUtf8(tstrPath);
    });
}

TEST_F(EveryKeyTest, RecordsAimedAtTheFilesOfTheRun)
{
    ForEachKey([&](const Section& section, const SectionKey& key) {
        if (FormOf(key.eEffect) != RecordForm::ePath) return;
        const std::string strInstructions = TrialOf(key, kInstructionFile).strRecord;
        Use(section, key, strInstructions + "\n[Run]\nSysRunOnce=C:\\e7k.exe");
        EXPECT_NE(IsFound(Rule::eDeletesInstructions), IsPlanned(L"e7k", Action::eRunOnce));

        m_installed.Write(L"kept", kUsers);
        SimulatedMachine machine(&m_real);
        static_cast<void>(PrepareForPlan(machine, {m_update.Path(), m_installed.Path()}));
        RunContext run{machine};
        run.paths.ReadProductFolders();
        run.paths.KeepFile(m_installed.PathOf(L"kept"));
        (*key.optOperation.value())(run, key, KzCommon::String::FromAnsi(TrialOf(key, L"kept").strRecord));
        machine.Restart();
        EXPECT_TRUE(HasUsers(machine, m_installed.PathOf(L"kept"))) << "the record changes a file that the run keeps";
    });
}

TEST_F(EveryKeyTest, EveryTypeThatIsWrittenIsReadBack)
{
    KzCommon::WindowsMachine machine;
    for (const std::wstring& tstrType : RegistryTypeWords()) {
        SCOPED_TRACE(ToUtf8(tstrType));
        const RegistryRecord record = ParseRegistryRecord(L"SOFTWARE\\e7k!N!" + tstrType + L"!7");
        const std::optional<KzCommon::RegistryData> optData = DataOf(record);
        ASSERT_TRUE(optData.has_value());
        ASSERT_TRUE(machine.StoreValue({.tstrKeyPath = record.tstrKeyPath, .tstrName = L"N"}, *optData, nullptr));
        const FoundValue found = ReadRegistryValue(machine, record.tstrKeyPath, L"N");
        EXPECT_EQ(found.eType, record.eType);
        EXPECT_EQ(HoldsText(found.eType) ? found.tstrText : std::to_wstring(found.ullNumber), L"7");
    }
}
