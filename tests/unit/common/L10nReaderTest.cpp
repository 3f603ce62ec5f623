#include "common/L10nReader.h"

#include "common/Frwk_Utility.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

#include <optional>

using namespace testing;

namespace {

const wchar_t kTable[] = L"Resource\\XX-TEST\\StringTable.ini";

/// The component "IEBHO" has its table below the install folder, which a test can choose.
class L10nReaderTest : public RegistryTest {
protected:
    L10nReaderTest()
    {
        WriteRaw(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, L"ProductPath", RawText(m_install.Path()));
    }

    bool Parse(const std::string& strTable)
    {
        m_install.Write(kTable, strTable);
        return m_reader.ParseL10nFile(L"XX-TEST", L"IEBHO");
    }
    std::optional<std::wstring> Text(const wchar_t* szKey) const
    {
        const wchar_t* szText = m_reader.GetString(szKey);
        return szText ? std::optional<std::wstring>(szText) : std::nullopt;
    }

    TempFolder m_install;
    CL10nReader m_reader;
    RecordedTrace m_trace;
};

}  // namespace

TEST_F(L10nReaderTest, FirstTextOfAKeyWinsAndGlobalOnesComeFirst)
{
    EXPECT_TRUE(
        Parse("[IEBHO]\r\nK=component\r\nOwn=o\r\n[Global]\r\nK=global\r\nK=later\r\nEmpty=\r\nNone\r\nE==e\r\n"));
    const std::pair<const wchar_t*, std::optional<std::wstring>> rows[] = {
        {L"K", L"global"}, {L"Own", L"o"}, {L"E=", L"e"}, {L"k", {}}, {L"Empty", {}}, {L"None", {}}, {L"E", {}},
    };
    for (const auto& [szKey, text] : rows) EXPECT_EQ(text, Text(szKey)) << szKey;
    EXPECT_THAT(m_trace.Messages(), Contains("@@@ CL10nReader::GetString - String not found[k]"));
}

TEST_F(L10nReaderTest, OneMissingSectionFailsAndKeepsTheTextsOfTheOther)
{
    EXPECT_FALSE(Parse("[IEBHO]\r\nOwn=o\r\n"));
    EXPECT_EQ(L"o", Text(L"Own"));
    EXPECT_THAT(m_trace.Messages(),
                Contains("!!! CL10nReader::ParseL10nFile - QueryIniValue() for Global section failed"));
    EXPECT_FALSE(CL10nReader().ParseL10nFile(L"XX-NONE", L"IEBHO"));
    EXPECT_THAT(m_trace.Messages(), Contains(EndsWith("StringTable.ini) failed. error[0x00000003]")));
}

TEST_F(L10nReaderTest, ASectionIsReadUpToTheLargestBufferAndNotInPart)
{
    // A buffer counts as full when all but its two closing zeros are used.
    const std::pair<std::size_t, bool> rows[] = {{4093, true}, {4094, true}, {28669, true}, {28670, false}};
    for (const auto& [cchSection, bFits] : rows) {
        CL10nReader reader;
        const std::string strText(cchSection - 3, 'x');  // and "K=", and the zero behind the entry
        m_install.Write(kTable, "[IEBHO]\r\nOwn=o\r\n[Global]\r\nK=" + strText + "\r\n");
        EXPECT_EQ(bFits, reader.ParseL10nFile(L"XX-TEST", L"IEBHO")) << cchSection;
        EXPECT_EQ(bFits, reader.GetString(L"K") != nullptr) << cchSection;
    }
    EXPECT_THAT(m_trace.Messages(),
                Contains("!!! CL10nReader::QueryIniValue - nCountOfString could not larger than SHRT_MAX."));
}
