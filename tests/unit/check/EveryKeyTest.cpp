// Every key of the instruction file through "lint", "plan" and "manifest": one that the table knows and a verb does not
// is found here.
#include "check/simulate/Plan.h"
#include "check/verify/FoundValue.h"
#include "check/verify/Diff.h"
#include "check/verify/Manifest.h"
#include "common/KzComn_WindowsMachine.h"
#include "unit/check/CheckFixture.h"
#include "unit/check/KeyTrial.h"

namespace {

class EveryKeyTest : public UpdateTest {
protected:
    EveryKeyTest()
    {
        Bring({L"p1\\Share\\Setting\\readme.htm"});
        Write(L"Component\\p1\\Share\\Setting\\config.xml", "<c><P><e7k>1</e7k></P></c>");
        m_installed.Write(L"config.xml", "<c><P><e7k>2</e7k></P></c>");
    }

    /// Makes the update's instruction file of one record, in line 2, and the other section that removals need.
    void Use(const Section& section, const SectionKey& key, const std::string& strRecord) const
    {
        const bool bFiles = std::wstring_view(section.szName) == L"QOR_FILE";
        Write(kInstructionFile,
              "[" + NameOf(section) + "]\n" + KzCommon::String::ToUtf8(key.szKey) + "=" + strRecord +
                  (bFiles ? "\n[QOR_DIR]\nadd={InstalledDir}\n" : "\n[QOR_FILE]\ndelete=C:\\*.none\n"));
    }
    /// Whether "lint" has a finding about a value in that line.
    [[nodiscard]] bool IsFound(unsigned uLine) const
    {
        const Update update = Open();
        IniScan instructions;
        EXPECT_TRUE(instructions.Read(update.FullPath(kInstructionFile), nullptr));
        Report report;
        LintUpdate({update, instructions, {}}, report);
        const std::vector<Finding> findings = report.Sorted();
        return std::ranges::any_of(findings, [&](const Finding& finding) {
            return finding.tstrPath == kInstructionFile && finding.place.uLine == uLine &&
                   finding.eRule >= Rule::eRegistryFields;
        });
    }
    /// Whether "plan" has a change of what the trial names; with `bCopied` only that of a copied file.
    [[nodiscard]] bool IsPlanned(bool bCopied = false) const
    {
        const Plan plan = MakePlan(Open(), m_installed.Path());
        return std::ranges::any_of(plan.steps, [&](const PlanStep& step) {
            return std::ranges::any_of(step.changes, [&](const Change& change) {
                return (change.tstrTarget + change.tstrName).find(L"e7k") != std::wstring::npos &&
                       (!bCopied || (change.eAction == KzCommon::Action::eCopy && change.eOutcome != Outcome::eFail));
            });
        });
    }
    [[nodiscard]] ExpectedState Promised() const
    {
        ExpectedState state;
        std::wstring tstrErrors;
        EXPECT_TRUE(CollectManifest(Open(), false, state, tstrErrors));
        return state;
    }

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

            // A command may start a file that a record copies, and no other file of that name.
            if (FormOf(key.eEffect) == RecordForm::eCommand) continue;
            const std::string strFile = "{InstalledDir}e7k-" + KzCommon::String::ToUtf8(key.szKey);
            Use(section, key, trial.strRecord + "\n[Run]\nSysRunOnce=\"" + strFile + "\"");
            EXPECT_NE(IsFound(4), IsPlanned(true));
        }
    }
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
