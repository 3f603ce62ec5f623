#include "common/L10nReader.h"

#include "support/RegistryFixture.h"
#include "support/TempFolder.h"

/// The table of "IEBHO" is below the install folder, which a test can choose.
class L10nReaderTest : public RegistryTest {
protected:
    L10nReaderTest() { WriteProduct(L"ProductPath", m_install.Path()); }
    bool Parse(CL10nReader& reader, const std::string& strTable) const
    {
        m_install.Write(L"Resource\\XX-TEST\\StringTable.ini", strTable);
        return reader.ParseL10nFile(L"XX-TEST", L"IEBHO");
    }
    TempFolder m_install;
};

TEST_F(L10nReaderTest, FirstTextOfAKeyWinsAndOneMissingSectionFailsButKeepsTheOther)
{
    CL10nReader reader(m_machine);
    EXPECT_TRUE(Parse(reader, "[IEBHO]\nK=component\nOwn=o\n[Global]\nK=global\nK=later\nEmpty=\nNone\nE==e\n"));
    for (const auto& [szKey, szText] : {std::pair(L"K", L"global"), {L"Own", L"o"}, {L"E=", L"e"}}) {
        EXPECT_STREQ(szText, reader.GetString(szKey));
    }
    for (const wchar_t* szKey : {L"k", L"Empty", L"None", L"E"}) EXPECT_EQ(nullptr, reader.GetString(szKey)) << szKey;
    EXPECT_FALSE(Parse(reader, "[IEBHO]\nLast=l\n"));
    EXPECT_STREQ(L"l", reader.GetString(L"Last"));
    EXPECT_FALSE(reader.ParseL10nFile(L"XX-NONE", L"IEBHO"));
}

TEST_F(L10nReaderTest, ASectionIsReadUpToTheLargestBufferAndNotInPart)
{
    // A buffer is full when all but its two closing zeros are used.
    for (const std::size_t cchSection : {4093, 4094, 28669, 28670}) {
        CL10nReader reader(m_machine);
        const std::string strText(cchSection - 3, 'x');  // plus "K=" and the zero after the entry
        EXPECT_EQ(cchSection < 28670, Parse(reader, "[IEBHO]\nOwn=o\n[Global]\nK=" + strText + "\n")) << cchSection;
        EXPECT_EQ(cchSection < 28670, reader.GetString(L"K") != nullptr) << cchSection;
    }
}
