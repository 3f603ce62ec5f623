#include "installer/ShortCutXmlHandler.h"

#include "common/KzComn_Com.h"
#include "common/KzComn_String.h"
#include "installer/InstComn_ShellLink.h"
#include "support/PinRecorder.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

#include <filesystem>

using namespace testing;
using namespace KzCommon;
namespace Links = InstCommon::Utility::ShellLink;
namespace fs = std::filesystem;

namespace {

std::string Link(const std::string& strName, const std::string& strAttributes = "")
{
    return "<Shortcut " + strAttributes + ">" + strName + "</Shortcut>";
}

/// A description with the given content of "Desktop" and "StartMenu".
std::string Describe(const std::string& strDesktop, const std::string& strMenu = "", const std::string& strMore = "")
{
    return "<S><Desktop available='1'>" + strDesktop + "</Desktop><StartMenu available='1'>" + strMenu +
           "</StartMenu>" + strMore + "</S>";
}

/// All-users desktop ("D") and Start menu ("M") in a folder of the test's own.
class ShortCutTest : public RegistryTest {
protected:
    void SetUp() override
    {
        std::wstring tstrDesktop, tstrMenu;
        SetFolders(m_shell.MakeFolder(L"D"), m_shell.MakeFolder(L"M"));
        ASSERT_TRUE(Links::GetAllUsersDesktop(tstrDesktop) && Links::GetAllUsersStartMenuPrograms(tstrMenu));
        const bool bOwn = tstrDesktop == m_shell.PathOf(L"D") && tstrMenu == m_shell.PathOf(L"M");
        if (!bOwn) GTEST_SKIP() << "this system does not let a test choose the shell's folders";
    }
    static void SetFolders(const std::wstring& tstrDesktop, const std::wstring& tstrMenu)
    {
        const wchar_t szFolders[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
        WriteRaw(HKEY_LOCAL_MACHINE, szFolders, L"Common Desktop", RawText(tstrDesktop));
        WriteRaw(HKEY_LOCAL_MACHINE, szFolders, L"Common Programs", RawText(tstrMenu));
    }
    bool Create(const std::string& strDescription, bool bRemove = false) const
    {
        ShortCutXmlHandler handler;
        if (!handler.ParseXml(m_install.Write(L"s.xml", strDescription))) return false;
        return bRemove ? handler.RemoveShortCuts() : handler.CreateShortCuts(m_install.Path());
    }
    bool Remove(const std::string& strDescription) const { return Create(strDescription, true); }
    /// What is on desktop and Start menu, in one text.
    std::string Found() const
    {
        std::wstring tstrFound;
        for (const std::wstring& tstrName : m_shell.List()) tstrFound += tstrName.size() > 2 ? tstrName + L" " : L"";
        return String::ToUtf8(tstrFound);
    }

    TempFolder m_shell, m_install;
};

}  // namespace

TEST_F(ShortCutTest, CreatesWhatIsDescribedAndNothingOutsideItsFolder)
{
    const std::pair<std::string, std::string> rows[] = {
        // clang-format off
        {Describe(Link("A"), "<Folder name='F'><Folder name='G'>" + Link("C") + "</Folder>" + Link("B") + "</Folder>"),
         "D\\A.lnk M\\F\\ M\\F\\B.lnk M\\F\\G\\ M\\F\\G\\C.lnk "},
        // Any child of the desktop is a shortcut; directly below the Start menu none is.
        {Describe("<Any>A</Any>", Link("B") + "<Group name='G'>" + Link("C") + "</Group>"), "D\\A.lnk "},
        {"<S><Desktop available='0'>" + Link("A") + "</Desktop><Desktop>" + Link("A") + "</Desktop>" +
         "<StartMenu available='true'><Folder name='F'/></StartMenu><!-- -->"
         "<DESKTOP available='1'><SHORTCUT>B</SHORTCUT></DESKTOP></S>", "D\\B.lnk "},
        {Describe(Link("..\\A") + Link("") + Link("C:\\B") + Link(std::string(260, 'x')), "<Folder name='..'>" +
                  Link("A") + "</Folder><Folder>" + Link("B") + "</Folder><Folder name='F\\G'/>"), ""}};
    // clang-format on
    for (const auto& [strDescription, strExpected] : rows) {
        EXPECT_TRUE(Create(strDescription));
        EXPECT_EQ(strExpected, Found()) << strDescription;
        fs::remove_all(m_shell.Path());
        SetUp();
    }
}

TEST_F(ShortCutTest, AProgramWithoutAnIconTakesTheIconFileBesideIt)
{
    const std::pair<const char*, const wchar_t*> rows[] = {// clang-format off
        {"lnk='bin\\App.EXE'", L"bin\\App.ico"}, {"lnk='bin\\App.exe' icon='x.ico'", L"x.ico"},
        {"lnk='bin\\Tool.exe'", nullptr}, {"lnk='bin\\notes.txt'", nullptr}};  // clang-format on
    for (const wchar_t* szIcon : {L"bin\\App.ico", L"bin\\notes.ico"}) m_install.Write(szIcon, "");
    for (const auto& [szAttributes, szIcon] : rows) {
        EXPECT_TRUE(Create(Describe(Link("A", szAttributes))));
        const std::string strIcon = RawText(szIcon ? m_install.PathOf(szIcon) : L".ico").strBytes;
        const std::string strLink = m_shell.Read(L"D\\A.lnk").value_or("");
        EXPECT_EQ(szIcon != nullptr, strLink.find(strIcon.data(), 0, strIcon.size() - 2) != strLink.npos)
            << szAttributes;
    }
}

TEST_F(ShortCutTest, TheSiblingSuitesBundleKeepsTheDesktopFree)
{
    const std::tuple<const wchar_t*, const wchar_t*, bool> rows[] = {
        // clang-format off
        {L"X-BS2-0720", L"u", true}, {L"AB0800", L"u", true}, {L"X-BS2-", L"u", false}, {L"X0720", L"u", false},
        {L"-bs2-0720", L"u", false}, {L"0800", L"", false}};  // clang-format on
    for (const auto& [szPlid, szUninstall, bBundle] : rows) {
        WriteRaw(HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\Lumetra", L"PLID", RawText(szPlid));
        WriteRaw(HKEY_LOCAL_MACHINE,
                 L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{D40E8B62-19C5-47A3-8F0B-3A6C2E95D1F7}",
                 L"UninstallString", RawText(szUninstall));
        EXPECT_TRUE(Create(Describe(Link("A"))));
        EXPECT_EQ(bBundle ? "" : "D\\A.lnk ", Found()) << szPlid;
        m_shell.Write(L"D\\A.lnk", "");
        EXPECT_TRUE(Remove(Describe(Link("A"))));
        EXPECT_EQ("", Found());
    }
}

TEST_F(ShortCutTest, AnUnreachableStartMenuEndsTheWalkAndAnUnreachableDesktopDoesNot)
{
    const std::string strDescription =
        Describe(Link("A"), "<Folder name='F'/>", "<Desktop available='1'>" + Link("B") + "</Desktop>");
    SetFolders(m_shell.PathOf(L"D"), L"Q:\\none");
    EXPECT_FALSE(Create(strDescription));
    EXPECT_EQ("D\\A.lnk ", Found());
    SetFolders(L"Q:\\none", m_shell.PathOf(L"M"));
    EXPECT_TRUE(Create(strDescription));
    EXPECT_EQ("D\\A.lnk M\\F\\ ", Found());
}

TEST_F(ShortCutTest, FoldersWithoutEndStopAtTheLongestPath)
{
    std::string strFolders;
    for (int i = 0; i < 900; ++i) strFolders = "<Folder name='twenty characters ..x'>" + strFolders + "</Folder>";
    EXPECT_TRUE(Create(Describe("", strFolders)));
    EXPECT_THAT(m_shell.List().size(), AllOf(Gt(5U), Lt(20U)));
    EXPECT_TRUE(Remove(Describe("", strFolders)));
    EXPECT_EQ("", Found());
}

TEST_F(ShortCutTest, RemovesOnlyWhatIsDescribedAndUnpinsItBefore)
{
    PinRecorder recorder;
    std::wstring tstrProfile;
    ASSERT_TRUE(Links::GetUsersProfilePath(tstrProfile));
    const fs::path pinned =
        tstrProfile + L"\\AppData\\Roaming\\Microsoft\\Internet Explorer\\Quick Launch\\User Pinned\\Kazmere";
    fs::create_directories(pinned);
    for (const wchar_t* szFile : {L"D\\B", L"M\\A", L"M\\F\\B", L"M\\F\\C"})
        m_shell.Write(szFile + std::wstring(L".lnk"), "");
    fs::copy_file(m_shell.PathOf(L"M\\F\\B.lnk"), pinned / L"B.lnk");

    const Com::Apartment apartment;
    DWORD dwCookie = 0;
    ASSERT_EQ(S_OK, ::CoRegisterClassObject(kStartMenuPinClass, static_cast<IClassFactory*>(&recorder),
                                            CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &dwCookie));
    EXPECT_TRUE(Remove(Describe("<Any>B</Any>", Link("A") + "<Folder name='F'>" + Link("B") + "</Folder>")));
    ::CoRevokeClassObject(dwCookie);
    EXPECT_EQ(0U, recorder.m_cReferences);
    EXPECT_THAT(recorder.m_removed,
                ElementsAre(m_shell.PathOf(L"M\\A.lnk"), m_shell.PathOf(L"M\\F\\B.lnk"), pinned / L"B.lnk"));
    EXPECT_EQ("D\\B.lnk M\\F\\ M\\F\\C.lnk ", Found());
    EXPECT_FALSE(fs::exists(pinned / L"B.lnk"));
    fs::remove_all(pinned);
}
