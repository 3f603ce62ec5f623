// Sources of settings: INI values and the product key.
#include "common/Frwk_Utility.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"
#include "support/CodeOf.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"

using namespace KzCommon::Storage;
using namespace Frwk::Utility;

TEST(IniFileTest, ValuesOfAnyLengthComeBackAndMissingOnesAreTheDefault)
{
    const TempFolder folder;
    IniFile ini;
    ini.Open(folder.PathOf(L"a.ini"));
    EXPECT_EQ(L"default", ini.ReadString(L"S", L"none", L"default"));
    for (const std::size_t cch : {0, 510, 511, 512, 5000}) {
        ini.StoreString(L"S", L"key", std::wstring(cch, L'v'));
        EXPECT_EQ(std::wstring(cch, L'v'), ini.ReadString(L"S", L"key", L"default"));
    }
    ini.Open(
        Storage::Key(Storage::Key::eIniFile, nullptr, folder.Write(L"b.ini", "[N]\r\nten=10\r\nword=x\r\n").c_str()),
        L"N");
    for (const auto& [szKey, dwWanted] : {std::pair(L"ten", 10U), {L"word", 0U}, {L"none", 7U}}) {
        DWORD dwValue = 7;
        ini.ReadDword(szKey, dwValue);
        EXPECT_EQ(dwWanted, dwValue);
    }
    Patience patience;
    EXPECT_FALSE(Ini::StoreValue(folder.PathOf(L"none\\a.ini"), L"S", L"k", L"v", patience));
    EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, ::GetLastError());
}

TEST(IniFileTest, OnlyAnOpenFileIsReadAndWritten)
{
    const TempFolder folder;
    const std::wstring tstrFile = folder.Write(L"a.ini", "[S]\r\nk=v\r\n");
    IniFile ini;
    for (const char* szTime : {"before it is opened", "after it was closed"}) {
        SCOPED_TRACE(szTime);
        EXPECT_EQ(ERROR_INVALID_HANDLE, CodeOf([&] { static_cast<void>(ini.ReadString(L"S", L"k", L"")); }));
        EXPECT_EQ(ERROR_INVALID_HANDLE, CodeOf([&] { ini.StoreString(L"S", L"k", L"w"); }));
        ini.Open(Storage::Key(Storage::Key::eIniFile, nullptr, tstrFile.c_str()), L"S");
        EXPECT_EQ(L"v", ini.ReadString(L"k", L""));
        ini.Close();
    }
    EXPECT_EQ(ERROR_BAD_ARGUMENTS, CodeOf([&] { ini.Open(L""); }));
    EXPECT_FALSE(ini.IsReady());
}

TEST(IniFileTest, ASectionComesWholeInItsOrderOrNotAtAll)
{
    const TempFolder folder;
    const std::wstring tstrFile = folder.Write(L"a.ini", "[S]\r\na=1\r\nb==2\r\nnone\r\nempty=\r\na=3=4\r\n[E]\r\n");
    constexpr Ini::SectionGrowth kSmall{8, 8, 64};
    const Ini::Section section = Ini::ReadSection(tstrFile, L"S", kSmall);
    EXPECT_EQ(Ini::SectionOutcome::eRead, section.eOutcome);
    const std::vector<std::pair<std::wstring, std::wstring>> expected{{L"a", L"1"}, {L"b=", L"2"}, {L"a", L"3=4"}};
    EXPECT_EQ(expected, section.entries);
    EXPECT_EQ(Ini::SectionOutcome::eTooLarge, Ini::ReadSection(tstrFile, L"S", {8, 8, 24}).eOutcome);
    for (const auto& [tstrPath, szSection] :
         {std::pair(tstrFile, L"None"), {tstrFile, L"E"}, {folder.PathOf(L"none.ini"), L"S"}, {folder.Path(), L"S"}}) {
        ::SetLastError(77);
        const Ini::Section missing = Ini::ReadSection(tstrPath, szSection, kSmall);
        EXPECT_EQ(Ini::SectionOutcome::eFailed, missing.eOutcome) << KzCommon::String::ToUtf8(szSection);
        EXPECT_NE(0U, missing.dwError) << "a failure has a code";
        EXPECT_NE(77U, missing.dwError) << "and not the code of an earlier call";
        EXPECT_TRUE(missing.entries.empty());
    }
}

TEST(ProcessTest, PathsInSettingsAreExpandedAndRelativeToTheProgram)
{
    using namespace KzCommon::Process;
    ::SetEnvironmentVariableW(L"BREVANT_TEST", L"\u00FC");
    const std::wstring tstrProgram = ProgramFolder();
    EXPECT_TRUE(tstrProgram.ends_with(L"\\"));
    const std::pair<std::wstring, std::wstring> expanded[] = {
        {L"a%BREVANT_TEST%b", L"a\u00FCb"}, {L"", L""}, {L"%BREVANT_NONE%", L"%BREVANT_NONE%"}, {L"100%", L"100%"}};
    for (const auto& [tstrText, tstrWanted] : expanded) EXPECT_EQ(tstrWanted, ExpandEnvironment(tstrText));
    const std::pair<std::wstring, std::wstring> resolved[] = {
        {L".\\a", tstrProgram + L"a"}, {L"a\\b", tstrProgram + L"a\\b"}, {L".\\", tstrProgram},
        {L"C:\\a", L"C:\\a"},          {L"\\\\s\\h", L"\\\\s\\h"},       {L"..\\a", tstrProgram + L"..\\a"}};
    for (const auto& [tstrPath, tstrWanted] : resolved) EXPECT_EQ(tstrWanted, ResolveBesideProgram(tstrPath));
}

class ProductKeyTest : public RegistryTest {};

TEST_F(ProductKeyTest, InstallFolderEndsInABackslashAndNothingEmptyIsWritten)
{
    const RecordedTrace trace;
    EXPECT_EQ(L"", GetInstalledFolder(m_machine));
    EXPECT_EQ(1U, trace.Messages().size()) << "an unknown install folder is traced";
    for (const wchar_t* szPath : {L"C:\\P", L"C:\\P\\", L""}) {
        WriteToRegHKLM_KZVLT(m_machine, L"ProductPath", szPath);
        EXPECT_EQ(L"C:\\P\\", GetInstalledFolder(m_machine));
    }
    WriteToRegHKLM_KZVLT(m_machine, L"", L"unnamed");
    EXPECT_EQ(L"C:\\P\\file", InstalledFile(m_machine, L"file"));
    EXPECT_EQ(L"none", GetStrFromHKLM_KZVLT(m_machine, L"", L"none"));
}
