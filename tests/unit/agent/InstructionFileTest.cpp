#include "unit/agent/AgentFixture.h"

#include "agent/InstructionFile.h"

class InstructionFileTest : public AgentTest {
protected:
    [[nodiscard]] SectionRecords Read(const std::wstring& tstrSection, DWORD dwExpected = ERROR_SUCCESS) const
    {
        SectionRecords records;
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_EQ(ReadInstructions(tstrSection, records, dwError), dwExpected == ERROR_SUCCESS);
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
    const std::jthread holder = HoldForAMoment(L"QorPaFrwk.ini");
    EXPECT_THAT(Read(L"T"), ElementsAre(Pair(L"add", L"z"))) << "held for a moment";
    Instruct("[S]\nk=" + std::string(32508, 'x') + "\n");
    EXPECT_THAT(Read(L"S"), IsEmpty()) << "too long, and no failure";
    WriteProduct(L"ProductPath", L"");
    EXPECT_THAT(Read(L"S", ERROR_BAD_ARGUMENTS), IsEmpty());
}
