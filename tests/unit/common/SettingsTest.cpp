// Where settings come from: INI values and the product key.
#include "common/Frwk_Utility.h"
#include "common/KzComn_IniFile.h"
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
    ini.Open(Key(Key::eIniFile, nullptr, folder.Write(L"b.ini", "[N]\r\nten=10\r\nword=x\r\n").c_str()), L"N");
    for (const auto& [szKey, dwWanted] : {std::pair(L"ten", 10U), {L"word", 0U}, {L"none", 7U}}) {
        DWORD dwValue = 7;
        ini.ReadDword(szKey, dwValue);
        EXPECT_EQ(dwWanted, dwValue);
    }
    EXPECT_FALSE(Ini::StoreValue(folder.PathOf(L"none\\a.ini"), L"S", L"k", L"v"));
    EXPECT_EQ(DWORD{ERROR_PATH_NOT_FOUND}, ::GetLastError());
}

class ProductKeyTest : public RegistryTest {};

TEST_F(ProductKeyTest, InstallFolderEndsInABackslashAndNothingEmptyIsWritten)
{
    const RecordedTrace trace;
    EXPECT_EQ(L"", GetInstalledFolder());
    EXPECT_EQ(1U, trace.Messages().size()) << "an unknown install folder is worth a line";
    for (const wchar_t* szPath : {L"C:\\P", L"C:\\P\\", L""}) {
        WriteToRegHKLM_KZVLT(L"ProductPath", szPath);
        EXPECT_EQ(L"C:\\P\\", GetInstalledFolder());
    }
    WriteToRegHKLM_KZVLT(L"", L"unnamed");
    EXPECT_EQ(L"none", GetStrFromHKLM_KZVLT(L"", L"none"));
}
