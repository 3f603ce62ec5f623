// Where settings come from: INI values, the product key, the profile list.
#include "common/Frwk_Utility.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Process.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"

#include <gmock/gmock.h>

using namespace KzCommon;
using namespace KzCommon::Storage;
using ::testing::ElementsAre;

namespace {

TEST(IniFileTest, ValuesOfAnyLengthComeBackAndMissingOnesAreTheDefault)
{
    const TempFolder folder;
    IniFile ini;
    ini.Open(folder.PathOf(L"a.ini"));
    EXPECT_EQ(L"default", ini.ReadString(L"S", L"none", L"default"));
    for (const std::size_t cch : {0, 510, 511, 512, 5000}) {
        const std::wstring tstrValue(cch, L'v');
        ini.StoreString(L"S", L"key", tstrValue);
        EXPECT_EQ(tstrValue, ini.ReadString(L"S", L"key", L"default"));
    }
    const std::wstring tstrNumbers = folder.Write(L"b.ini", "[N]\r\nten=10\r\nword=x\r\n");
    ini.Open(Key(Key::eIniFile, nullptr, tstrNumbers.c_str()), L"N");
    const std::pair<const wchar_t*, DWORD> rows[] = {{L"ten", 10}, {L"word", 0}, {L"none", 7}};
    for (const auto& [szKey, dwWanted] : rows) {
        DWORD dwValue = 7;
        ini.ReadDword(szKey, dwValue);
        EXPECT_EQ(dwWanted, dwValue);
    }
}

TEST(IniFileTest, FailuresCarryTheirCode)
{
    const TempFolder folder;
    DWORD dwCode = ERROR_SUCCESS;
    EXPECT_FALSE(Guarded(&dwCode, [] { IniFile().Open(L""); }));
    EXPECT_EQ(DWORD{ERROR_BAD_ARGUMENTS}, dwCode);
    EXPECT_FALSE(Guarded(&dwCode, [] { IniFile().StoreString(L"S", L"k", L"v"); }));
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, dwCode);
    EXPECT_FALSE(Ini::StoreValue(folder.PathOf(L"none\\a.ini"), L"S", L"k", L"v"));
    EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, ::GetLastError());
}

class ProductKeyTest : public RegistryTest {};

TEST_F(ProductKeyTest, InstallFolderEndsInABackslash)
{
    const RecordedTrace trace;
    EXPECT_EQ(L"", Frwk::Utility::GetInstalledFolder());
    EXPECT_EQ(1U, trace.Messages().size()) << "an unknown install folder is worth a line";
    for (const wchar_t* szPath : {L"C:\\P", L"C:\\P\\"}) {
        Frwk::Utility::WriteToRegHKLM_KZVLT(L"ProductPath", szPath);
        EXPECT_EQ(L"C:\\P\\", Frwk::Utility::GetInstalledFolder());
    }
}

TEST_F(ProductKeyTest, EmptyNamesAndValuesAreNotWritten)
{
    EXPECT_EQ(L"EN-US", Frwk::Utility::GetLanguage());
    Frwk::Utility::WriteToRegHKLM_KZVLT(L"Language", L"ja-jp");
    Frwk::Utility::WriteToRegHKLM_KZVLT(L"Language", L"");
    Frwk::Utility::WriteToRegHKLM_KZVLT(L"", L"unnamed");
    EXPECT_EQ(L"ja-jp", Frwk::Utility::GetLanguage());
    EXPECT_EQ(L"none", Frwk::Utility::GetStrFromHKLM_KZVLT(L"", L"none"));
}

TEST_F(ProductKeyTest, ProfilesAreExpandedAndThoseWithoutAFolderLeftOut)
{
    std::vector<std::wstring> folders{L"before"};
    DWORD dwError = ERROR_SUCCESS;
    EXPECT_FALSE(Process::EnumUserProfileFolders(folders, &dwError));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, dwError);
    EXPECT_THAT(folders, ElementsAre(L"before"));

    const std::wstring tstrList = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\";
    ::SetEnvironmentVariableW(L"TestDrive", L"D:");
    WriteRaw(HKEY_LOCAL_MACHINE, tstrList + L"S-1", L"ProfileImagePath", RawText(L"%TestDrive%\\u", REG_EXPAND_SZ));
    WriteRaw(HKEY_LOCAL_MACHINE, tstrList + L"S-2", L"Other", RawText(L"x"));
    WriteRaw(HKEY_LOCAL_MACHINE, tstrList + L"S-3", L"ProfileImagePath", RawText(L""));
    WriteRaw(HKEY_LOCAL_MACHINE, tstrList + L"S-4", L"ProfileImagePath", RawText(L"C:\\v\\"));
    EXPECT_TRUE(Frwk::Utility::EnumUserProfileFolders(folders, &dwError));
    EXPECT_THAT(folders, ElementsAre(L"D:\\u\\", L"C:\\v\\"));
}

}  // namespace
