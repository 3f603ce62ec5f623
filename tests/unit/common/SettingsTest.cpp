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
    Patience patience;
    EXPECT_FALSE(Ini::StoreValue(folder.PathOf(L"none\\a.ini"), L"S", L"k", L"v", patience));
    EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, ::GetLastError());
}

TEST(IniFileTest, ASectionComesWholeOrItsFailureHasACode)
{
    const TempFolder folder;
    const std::wstring tstrFile = folder.Write(L"a.ini", "[S]\r\na=1\r\nb==2\r\nnone\r\nempty=\r\na=3=4\r\n[E]\r\n");
    constexpr Ini::SectionGrowth kSmall{8, 8, 64};
    EXPECT_THAT(Ini::ReadSection(tstrFile, L"S", kSmall).entries,
                ElementsAre(Pair(L"a", L"1"), Pair(L"b=", L"2"), Pair(L"a", L"3=4")));
    EXPECT_EQ(Ini::SectionOutcome::eTooLarge, Ini::ReadSection(tstrFile, L"S", {8, 8, 24}).eOutcome);
    for (const auto& [tstrPath, szSection] :
         {std::pair(tstrFile, L"None"), {tstrFile, L"E"}, {folder.PathOf(L"none.ini"), L"S"}, {folder.Path(), L"S"}}) {
        ::SetLastError(77);
        const Ini::Section missing = Ini::ReadSection(tstrPath, szSection, kSmall);
        EXPECT_EQ(Ini::SectionOutcome::eFailed, missing.eOutcome) << String::ToUtf8(szSection);
        EXPECT_THAT(missing.dwError, AllOf(Ne(0U), Ne(77U))) << "its own code, not that of an earlier call";
    }
}

TEST(ProcessTest, PathsInSettingsAreExpandedAndRelativeToTheProgram)
{
    using namespace Process;
    ::SetEnvironmentVariableW(L"BREVANT_TEST", L"\u00FC");
    const std::wstring tstrProgram = ProgramFolder();
    for (const auto& [tstrText, tstrWanted] :
         {std::pair(L"a%BREVANT_TEST%b", L"a\u00FCb"), {L"", L""}, {L"100%", L"100%"}})
        EXPECT_EQ(tstrWanted, ExpandEnvironment(tstrText));
    for (const auto& [szPath, tstrWanted] : {std::pair(L".\\a", tstrProgram + L"a"),
                                             {L".\\", tstrProgram},
                                             {L"C:\\a", L"C:\\a"},
                                             {L"\\\\s\\h", L"\\\\s\\h"},
                                             {L"..\\a", tstrProgram + L"..\\a"}})
        EXPECT_EQ(tstrWanted, ResolveBesideProgram(szPath));
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
