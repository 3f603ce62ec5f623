#include "unit/agent/AgentFixture.h"

#include "agent/ConfigMerge.h"
#include "agent/DeployFramework.h"
#include "agent/GuardedStep.h"
#include "agent/InstructionFile.h"

/// Each of these ends in an exception.
class BrokenMachine : public WindowsMachine {
    bool CreateFolder(const std::wstring&, DWORD*) override { Storage::Throw(ERROR_NOT_READY); }
    bool LeadsThroughLink(const std::wstring&) const override { Storage::Throw(ERROR_CRC); }
    bool StoreValue(const RegistryPlace&, const RegistryData&, DWORD*) override { throw 1; }
    bool MakeWritable(const std::wstring&, DWORD*) override { Storage::Throw(ERROR_SEEK); }
    bool ReadContent(const std::wstring&, std::size_t, std::string&, DWORD*) const override { throw 1; }
};

class InstructionFileTest : public AgentTest {
protected:
    [[nodiscard]] SectionRecords Read(const std::wstring& tstrSection, DWORD dwExpected = ERROR_SUCCESS) const
    {
        SectionRecords records;
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_EQ(ReadInstructions(m_machine, tstrSection, records, dwError), dwExpected == ERROR_SUCCESS);
        EXPECT_EQ(dwError, dwExpected);
        return records;
    }
};

TEST_F(InstructionFileTest, KeepsLineOrderWithinAKeyAndSplitsAtTheFirstRunOfEqualsSigns)
{
    Instruct("[Empty]\n[S]\nadd=a\ndelete=b\nadd=c\nDelete=other\nadd=\nnothing\nadd==x\nadd=k=v=w\n[T]\nadd=z\n");
    EXPECT_THAT(Read(L"S"), ElementsAre(Pair(L"Delete", L"other"), Pair(L"add", L"a"), Pair(L"add", L"c"),
                                        Pair(L"add", L"k=v=w"), Pair(L"add=", L"x"), Pair(L"delete", L"b")));
    EXPECT_THAT(Read(L"Missing", ERROR_FILE_NOT_FOUND), IsEmpty());
    EXPECT_THAT(Read(L"Empty", ERROR_FILE_NOT_FOUND), IsEmpty());
    const std::jthread holder = HoldForAMoment(m_install.PathOf(L"QorPaFrwk.ini"));
    EXPECT_THAT(Read(L"T"), ElementsAre(Pair(L"add", L"z"))) << "in use for a moment";
    WriteProduct(L"ProductPath", L"");
    EXPECT_THAT(Read(L"S", ERROR_BAD_ARGUMENTS), IsEmpty());
}

TEST_F(InstructionFileTest, EveryExceptionOfAStepIsTracedAndCaught)
{
    EXPECT_TRUE(RunGuarded(L"Nothing", [] {}));
    EXPECT_FALSE(RunGuarded(L"The rename", [] { Storage::Throw(ERROR_ACCESS_DENIED); }));
    EXPECT_FALSE(RunGuarded(L"The rename", [] { throw 1; }));
    BrokenMachine broken;
    RunContext run(broken);
    Instruct("[QOR_DIR]\nadd={InstalledDir}New\n[QOR_CONFIG_MERGE]\nmigrate=/A\n");
    m_install.Write(L"Component\\c21t2101v0.0.0l1p-1r1o1\\f", "");
    EXPECT_FALSE(DeployFramework(broken));
    EXPECT_FALSE(MergeConfig(run, {m_install.PathOf(L"new"), m_install.PathOf(L"new")}));
}

// The buffer grows in steps of 256 characters while it is below 32767. The last one has 32512; a section may use all
// but its two closing zeros and one more character, which shows that the buffer is not full.
TEST_F(InstructionFileTest, ASectionBeyondTheLastBufferIsSilentlyEmpty)
{
    constexpr std::size_t kMax = 32512 - 3;
    for (const std::size_t cch : {std::size_t{253}, std::size_t{254}, kMax, kMax + 1}) {
        const std::wstring tstrText(cch - 3, L'x');  // each entry of the section has a terminating zero
        Instruct("[S]\nk=" + String::ToUtf8(tstrText) + "\n");
        std::size_t cchRead = 0;
        for (const auto& [tstrKey, tstrValue] : Read(L"S")) cchRead += tstrValue.size();
        EXPECT_EQ(cchRead, cch <= kMax ? cch - 3 : 0) << cch;
    }
}
