#include "unit/agent/AgentFixture.h"

using ::testing::ElementsAre;
using ::testing::Pair;
namespace Storage = KzCommon::Storage;

namespace {

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
    Instruct(
        "[S]\r\nadd=a\r\ndelete=b\r\nadd=c\r\nDelete=other\r\nadd=\r\nnothing\r\nadd==x\r\nadd=k=v=w\r\n[T]\r\nadd="
        "z\r\n");
    EXPECT_THAT(Read(L"S"), ElementsAre(Pair(L"Delete", L"other"), Pair(L"add", L"a"), Pair(L"add", L"c"),
                                        Pair(L"add", L"k=v=w"), Pair(L"add=", L"x"), Pair(L"delete", L"b")));
}

TEST_F(InstructionFileTest, MissingAndEmptySectionsAreFailuresWithACode)
{
    Instruct("[Empty]\r\n[S]\r\nadd=a\r\n");
    EXPECT_TRUE(Read(L"Missing", ERROR_FILE_NOT_FOUND).empty());
    EXPECT_TRUE(Read(L"Empty", ERROR_FILE_NOT_FOUND).empty());
    WriteRaw(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, L"ProductPath", RawText(L""));
    EXPECT_TRUE(Read(L"S", ERROR_BAD_ARGUMENTS).empty());
    SectionRecords records;
    EXPECT_FALSE(ReadSectionRecords(Storage::IniFile(), L"S", records));
}

// The buffer grows from 256 characters in steps of 256 while it is below 32767: the last one tried has 32512, of which
// a section may fill all but its two closing zeros and the one character by which a full buffer is told.
TEST_F(InstructionFileTest, ASectionIsReadUpToTheLastBufferAndSilentlyEmptyBeyond)
{
    constexpr std::size_t kMost = 32512 - 3;
    for (const std::size_t cch :
         {std::size_t{250}, std::size_t{253}, std::size_t{254}, kMost, kMost + 1, std::size_t{40000}}) {
        // Each entry of the section ends in a zero that counts.
        Instruct("[S]\r\nk=" + std::string(cch - 3, 'x') + "\r\n");
        const SectionRecords records = Read(L"S");
        ASSERT_EQ(records.size(), cch <= kMost ? 1u : 0u) << cch;
        for (const auto& [tstrKey, tstrValue] : records) EXPECT_EQ(tstrValue.size(), cch - 3) << cch;
    }
}

}  // namespace
