#include "unit/agent/AgentFixture.h"

#include "agent/InstructionFile.h"

#include "common/KzComn_Handle.h"

#include <thread>

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
    EXPECT_TRUE(Read(L"Missing", ERROR_FILE_NOT_FOUND).empty() && Read(L"Empty", ERROR_FILE_NOT_FOUND).empty());
    const std::wstring tstrFile = m_install.PathOf(L"QorPaFrwk.ini");
    KzCommon::UniqueFile held(::CreateFileW(tstrFile.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    std::jthread holder([&held] { ::Sleep(250), held.Reset(); });
    EXPECT_THAT(Read(L"T"), ElementsAre(Pair(L"add", L"z"))) << "held for a moment";
    WriteProduct(L"ProductPath", L"");
    EXPECT_TRUE(Read(L"S", ERROR_BAD_ARGUMENTS).empty());
}

// The buffer grows from 256 characters in steps of 256 while it is below 32767: the last one tried has 32512, of which
// a section may fill all but its two closing zeros and the one character by which a full buffer is told.
TEST_F(InstructionFileTest, ASectionIsReadUpToTheLastBufferAndSilentlyEmptyBeyond)
{
    constexpr std::size_t kMax = 32512 - 3;
    for (const std::size_t cch : {std::size_t{253}, std::size_t{254}, kMax, kMax + 1, std::size_t{40000}}) {
        const std::wstring tstrText(cch - 3, L'x');  // each entry of the section ends in a zero that counts
        Instruct("[S]\nk=" + KzCommon::String::ToUtf8(tstrText) + "\n");
        EXPECT_EQ(Read(L"S"), cch <= kMax ? SectionRecords({{L"k", tstrText}}) : SectionRecords()) << cch;
    }
}
