// Sources of settings: INI values and string tables.
#include "common/KzComn_IniFile.h"
#include "common/L10nReader.h"
#include "support/Testing.h"

using namespace Storage;

TEST(IniFileTest, ValuesOfAnyLengthComeBackFromAnOpenFileOnly)
{
    const TempFolder folder;
    IniFile ini;
    EXPECT_EQ(ERROR_INVALID_HANDLE, CodeOf([&] { static_cast<void>(ini.ReadString(L"S", L"k", L"")); }));
    EXPECT_EQ(ERROR_INVALID_HANDLE, CodeOf([&] { ini.StoreString(L"S", L"k", L"w"); }));
    EXPECT_EQ(ERROR_BAD_ARGUMENTS, CodeOf([&] { ini.Open(L""); }));
    ini.Open(folder.PathOf(L"a.ini"));
    EXPECT_EQ(L"default", ini.ReadString(L"S", L"none", L"default"));
    for (const std::size_t cch : {0, 510, 511, 512, 5000}) {
        ini.StoreString(L"S", L"key", std::wstring(cch, L'v'));
        EXPECT_EQ(std::wstring(cch, L'v'), ini.ReadString(L"S", L"key", L"default"));
    }
    EXPECT_EQ(Ini::SectionOutcome::eTooLarge, Ini::ReadSection(folder.PathOf(L"a.ini"), L"S", {8, 8, 24}).eOutcome);
    ::SetLastError(77);
    const Ini::Section missing = Ini::ReadSection(folder.PathOf(L"none.ini"), L"S", {8, 8, 24});
    EXPECT_EQ(Ini::SectionOutcome::eFailed, missing.eOutcome);
    EXPECT_THAT(missing.dwError, AllOf(Ne(0U), Ne(77U))) << "its own code, not that of an earlier call";
    Patience patience;
    EXPECT_FALSE(Ini::StoreValue(folder.PathOf(L"none\\a.ini"), L"S", L"k", L"v", patience));
    EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, ::GetLastError());
}

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
    for (const auto& [szKey, szText] : {std::pair(L"K", L"global"), {L"Own", L"o"}, {L"E=", L"e"}})
        EXPECT_STREQ(szText, reader.GetString(szKey));
    for (const wchar_t* szKey : {L"k", L"Empty", L"None", L"E"}) EXPECT_EQ(nullptr, reader.GetString(szKey)) << szKey;
    EXPECT_FALSE(Parse(reader, "[IEBHO]\nLast=l\n"));
    EXPECT_STREQ(L"l", reader.GetString(L"Last"));
    EXPECT_FALSE(reader.ParseL10nFile(L"XX-NONE", L"IEBHO"));
    // A buffer is full when all but its two closing zeros are used.
    for (const std::size_t cchSection : {4093, 4094, 28669, 28670}) {
        CL10nReader large(m_machine);
        const std::string strText(cchSection - 3, 'x');  // plus "K=" and the zero after the entry
        EXPECT_EQ(cchSection < 28670, Parse(large, "[IEBHO]\nOwn=o\n[Global]\nK=" + strText + "\n")) << cchSection;
        EXPECT_EQ(cchSection < 28670, large.GetString(L"K") != nullptr) << cchSection;
    }
}
