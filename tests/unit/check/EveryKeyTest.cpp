// Every key of the instruction file through "lint", "plan" and "manifest": one that the table knows and a verb does not
// is found here.
#include "check/simulate/Plan.h"
#include "check/simulate/PlanMachine.h"
#include "check/verify/FoundValue.h"
#include "check/verify/Diff.h"
#include "check/verify/Manifest.h"
#include "common/KzComn_WindowsMachine.h"
#include "unit/check/CheckFixture.h"
#include "unit/check/KeyTrial.h"

#include <functional>
#include <map>

using KzCommon::String::FromAnsi;

namespace {

class EveryKeyTest : public UpdateTest {
protected:
    EveryKeyTest()
    {
        Bring({L"p1\\Share\\Setting\\readme.htm"});
        Write(kTrialSource, "");
        Write(L"Component\\p1\\Share\\Setting\\config.xml", "<c><P><e7k>1</e7k></P></c>");
        m_installed.Write(L"config.xml", kSettings);
    }

    /// Makes the update's instruction file of one record, in line 2, and the other section that removals need.
    void Use(const Section& section, const SectionKey& key, const std::string& strRecord) const
    {
        const bool bFiles = std::wstring_view(section.szName) == L"QOR_FILE";
        Write(kInstructionFile,
              "[" + NameOf(section) + "]\n" + KzCommon::String::ToUtf8(key.szKey) + "=" + strRecord +
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
    [[nodiscard]] bool IsFound(Rule eRule) const
    {
        return std::ranges::any_of(Findings(), [&](const Finding& finding) { return finding.eRule == eRule; });
    }
    /// Whether "plan" has such a change of what the record names with a word in it.
    [[nodiscard]] bool IsPlanned(const std::function<bool(const Change&)>& isSuch, const wchar_t* szWord = L"e7k") const
    {
        const Plan plan = MakePlan(Open(), m_installed.Path());
        return std::ranges::any_of(plan.steps, [&](const PlanStep& step) {
            return std::ranges::any_of(step.changes, [&](const Change& change) {
                return (change.tstrTarget + change.tstrName).find(szWord) != std::wstring::npos && isSuch(change);
            });
        });
    }
    [[nodiscard]] bool IsPlanned() const
    {
        return IsPlanned([](const Change&) { return true; });
    }
    [[nodiscard]] bool IsCopied() const
    {
        return IsPlanned([](const Change& change) {
            return change.eAction == KzCommon::Action::eCopy && change.eOutcome != Outcome::eFail;
        });
    }
    /// Calls `apply` for every key whose records are paths.
    static void ForEachPathKey(const std::function<void(const Section& section, const SectionKey& key)>& apply)
    {
        for (const Section& section : kSections) {
            for (const SectionKey& key : section.keys) {
                SCOPED_TRACE(KzCommon::String::ToUtf8(std::wstring(section.szName) + L" " + key.szKey));
                if (FileTraitsOf(key)) apply(section, key);
            }
        }
    }
    /// The content of an installed file, where it has one.
    [[nodiscard]] std::optional<std::string> ContentOf(const SimulatedMachine& machine, const std::wstring& tstrPath)
    {
        std::string strBytes;
        const bool bRead = machine.ReadContent(tstrPath, 1 << 20, strBytes, nullptr);
        return bRead ? std::optional(strBytes) : std::nullopt;
    }
    [[nodiscard]] ExpectedState Promised() const
    {
        ExpectedState state;
        std::wstring tstrErrors;
        EXPECT_TRUE(CollectManifest(Open(), false, state, tstrErrors));
        return state;
    }

    static constexpr char kSettings[] = "<c><P><e7k>2</e7k></P></c>";
    const KzCommon::WindowsMachine m_real;
    TempFolder m_installed;
};

}  // namespace

TEST_F(EveryKeyTest, IsKnownToEveryVerb)
{
    for (const Section& section : kSections) {
        for (const SectionKey& key : section.keys) {
            SCOPED_TRACE(KzCommon::String::ToUtf8(std::wstring(section.szName) + L" " + key.szKey));
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
            if (FileTraitsOf(key)) {
                const auto isUndone = [](const Change& change) {
                    return change.eOutcome == Outcome::eFail || change.eOutcome == Outcome::eStay;
                };
                EXPECT_TRUE(IsPlanned(isUndone, L"a\\b")) << "the plan does not say that it is left undone";
            }

            // A command may start a file that a record copies, and no other file of that name.
            if (FormOf(key.eEffect) == RecordForm::eCommand) continue;
            const std::string strFile = "{InstalledDir}e7k-" + KzCommon::String::ToUtf8(key.szKey);
            Use(section, key, trial.strRecord + "\n[Run]\nSysRunOnce=\"" + strFile + "\"");
            EXPECT_NE(IsFound(4), IsCopied());
            EXPECT_NE(IsFound(Rule::eNoStepLooksThere), IsCopied());
        }
    }
}

TEST_F(EveryKeyTest, NoRecordChangesAFileThatTheRunKeeps)
{
    ForEachPathKey([&](const Section&, const SectionKey& key) {
        SimulatedMachine machine(&m_real);
        static_cast<void>(PrepareForPlan(machine, {m_update.Path(), m_installed.Path()}));
        const std::wstring tstrKept = m_installed.PathOf(L"e7k-kept");
        machine.AddFile(tstrKept, "user's");
        RunContext run{machine};
        run.paths.ReadProductFolders();
        run.paths.KeepFile(tstrKept);
        (*key.optOperation.value())(run, key, FromAnsi(TrialOf(key, "{InstalledDir}e7k-kept").strRecord));
        machine.Restart();
        EXPECT_EQ(ContentOf(machine, tstrKept), "user's");
    });
}

TEST_F(EveryKeyTest, ASecondRunLosesNothingThatTheFirstHasKept)
{
    for (const Section& section : kSections) {
        for (const SectionKey& key : section.keys) {
            SCOPED_TRACE(KzCommon::String::ToUtf8(std::wstring(section.szName) + L" " + key.szKey));
            m_installed.Write(FromAnsi(TrialFileOf(key)).substr(std::size(kInstalledDir) - 1), "user's");
            Use(section, key, TrialOf(key).strRecord);
            SimulatedMachine machine(&m_real);
            static_cast<void>(PrepareForPlan(machine, {m_update.Path(), m_installed.Path()}));
            RunAgent(machine);
            std::map<std::wstring, std::string> kept;
            for (const PlanStep& step : machine.Steps()) {
                for (const Change& change : step.changes) {
                    const auto optContent = ContentOf(machine, change.tstrTarget);
                    if (optContent == "user's" || optContent == kSettings) kept[change.tstrTarget] = *optContent;
                }
            }
            RunAgent(machine);
            for (const auto& [tstrPath, strContent] : kept) EXPECT_EQ(ContentOf(machine, tstrPath), strContent);
        }
    }
}

TEST_F(EveryKeyTest, ARecordThatTakesTheInstructionsAwayIsFound)
{
    ForEachPathKey([&](const Section& section, const SectionKey& key) {
        Use(section, key, TrialOf(key, "{InstalledDir}QorPaFrwk.ini").strRecord + "\n[Run]\nSysRunOnce=C:\\e7k.exe");
        const bool bRuns = IsPlanned([](const Change& change) { return change.eAction == KzCommon::Action::eRunOnce; });
        EXPECT_NE(IsFound(Rule::eDeletesInstructions), bRuns);
    });
}

TEST_F(EveryKeyTest, EveryTypeThatIsWrittenIsReadBack)
{
    KzCommon::WindowsMachine machine;
    for (const std::wstring& tstrType : RegistryTypeWords()) {
        SCOPED_TRACE(KzCommon::String::ToUtf8(tstrType));
        const RegistryRecord record = ParseRegistryRecord(L"SOFTWARE\\e7k!N!" + tstrType + L"!7");
        const std::optional<KzCommon::RegistryData> optData = DataOf(record);
        ASSERT_TRUE(optData.has_value());
        ASSERT_TRUE(machine.StoreValue({.tstrKeyPath = record.tstrKeyPath, .tstrName = L"N"}, *optData, nullptr));
        const FoundValue found = ReadRegistryValue(machine, record.tstrKeyPath, L"N");
        EXPECT_EQ(found.eType, record.eType);
        EXPECT_EQ(HoldsText(found.eType) ? found.tstrText : std::to_wstring(found.ullNumber), L"7");
    }
}
