#include "installer/ShortCutXmlHandler.h"

#include "common/KzComn_Com.h"
#include "common/KzComn_String.h"
#include "installer/InstComn_ShellLink.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"
#include "support/dll/startmenupin/PinRecorder.h"

#include <gmock/gmock.h>

#include <filesystem>

using namespace testing;
using namespace KzCommon;
namespace Links = InstCommon::Utility::ShellLink;

namespace {

const wchar_t kShellFolders[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

std::string Link(const std::string& strName, const std::string& strAttributes = "")
{
    return "<Shortcut " + strAttributes + ">" + strName + "</Shortcut>";
}

/// A description with the given content of "Desktop" and "StartMenu".
std::string Describe(const std::string& strDesktop, const std::string& strMenu = "")
{
    return "<S><Desktop available='1'>" + strDesktop + "</Desktop><StartMenu available='1'>" + strMenu +
           "</StartMenu></S>";
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
        WriteRaw(HKEY_LOCAL_MACHINE, kShellFolders, L"Common Desktop", RawText(tstrDesktop));
        WriteRaw(HKEY_LOCAL_MACHINE, kShellFolders, L"Common Programs", RawText(tstrMenu));
    }
    bool Create(const std::string& strDescription)
    {
        ShortCutXmlHandler handler;
        return handler.ParseXml(m_install.Write(L"s.xml", strDescription)) && handler.CreateShortCuts(m_install.Path());
    }
    bool Remove(const std::string& strDescription)
    {
        ShortCutXmlHandler handler;
        return handler.ParseXml(m_install.Write(L"s.xml", strDescription)) && handler.RemoveShortCuts();
    }
    /// What is on desktop and Start menu, in one text.
    std::string Found() const
    {
        std::wstring tstrFound;
        for (const std::wstring& tstrName : m_shell.List()) tstrFound += tstrName.size() > 2 ? tstrName + L" " : L"";
        return String::ToUtf8(tstrFound);
    }

    TempFolder m_shell;
    TempFolder m_install;
    RecordedTrace m_trace;
};

}  // namespace

TEST_F(ShortCutTest, CreatesWhatIsDescribedAndNothingOutsideItsFolder)
{
    const std::string strLong(260, 'x');
    const std::pair<std::string, std::string> rows[] = {
        {Describe(Link("A"), "<Folder name='F'><Folder name='G'>" + Link("C") + "</Folder>" + Link("B") + "</Folder>"),
         "D\\A.lnk M\\F\\ M\\F\\B.lnk M\\F\\G\\ M\\F\\G\\C.lnk "},
        {"<S><!-- c --><Other>" + Link("B") + "</Other><DESKTOP available='1'><SHORTCUT>A</SHORTCUT></DESKTOP></S>",
         "D\\A.lnk "},
        // Any child of the desktop is a shortcut; directly below the Start menu none is.
        {Describe("<Any>A</Any>", Link("B") + "<Group name='G'>" + Link("C") + "</Group>"), "D\\A.lnk "},
        {"<S><Desktop available='0'>" + Link("A") + "</Desktop><Desktop>" + Link("A") + "</Desktop>" +
             "<StartMenu available='true'><Folder name='F'/></StartMenu><Desktop available='1'>" + Link("B") +
             "</Desktop></S>",
         "D\\B.lnk "},
        {Describe(
             Link("..\\A") + Link("") + Link("C:\\B") + Link(strLong),
             "<Folder name='..'>" + Link("A") + "</Folder><Folder>" + Link("B") + "</Folder><Folder name='F\\G'/>"),
         ""},
    };
    for (const auto& [strDescription, strExpected] : rows) {
        EXPECT_TRUE(Create(strDescription));
        EXPECT_EQ(strExpected, Found()) << strDescription;
        std::filesystem::remove_all(m_shell.Path());
        m_shell.MakeFolder(L"D");
        m_shell.MakeFolder(L"M");
    }
}

TEST_F(ShortCutTest, AProgramWithoutAnIconTakesTheIconFileBesideIt)
{
    m_install.Write(L"bin\\App.ico", "");
    m_install.Write(L"bin\\notes.ico", "");
    const std::pair<const char*, const wchar_t*> rows[] = {
        {"lnk='bin\\App.EXE'", L"bin\\App.ico"},
        {"lnk='bin\\App.exe' icon='x.ico'", L"x.ico"},
        {"lnk='bin\\Tool.exe'", nullptr},
        {"lnk='bin\\notes.txt'", nullptr},
    };
    for (const auto& [szAttributes, szIcon] : rows) {
        EXPECT_TRUE(Create(Describe(Link("A", szAttributes))));
        const std::string strLink = m_shell.Read(L"D\\A.lnk").value_or("");
        const RawValue icon = RawText(szIcon ? m_install.PathOf(szIcon) : L".ico");
        const bool bHasIcon = strLink.find(icon.strBytes.substr(0, icon.strBytes.size() - 2)) != std::string::npos;
        EXPECT_EQ(szIcon != nullptr, bHasIcon) << szAttributes;
    }
}

TEST_F(ShortCutTest, RemovesOnlyWhatIsDescribed)
{
    for (const wchar_t* szFile : {L"D\\A.lnk", L"D\\B.lnk", L"M\\A.lnk", L"M\\F\\A.lnk", L"M\\F\\Other.lnk"}) {
        m_shell.Write(szFile, "");
    }
    m_shell.MakeFolder(L"M\\F\\Empty");
    EXPECT_TRUE(Remove(Describe(Link("A") + "<Any>B</Any>",
                                Link("A") + "<Folder name='F'>" + Link("A") + "<Folder name='Empty'/></Folder>")));
    EXPECT_EQ("D\\B.lnk M\\F\\ M\\F\\Other.lnk ", Found());
}

TEST_F(ShortCutTest, TheSiblingSuitesBundleKeepsTheDesktopFree)
{
    const std::tuple<const wchar_t*, const wchar_t*, bool> rows[] = {
        {L"X-BS2-0720", L"u", true}, {L"AB0800", L"u", true},     {L"X-BS2-", L"u", false},
        {L"X0720", L"u", false},     {L"-bs2-0720", L"u", false}, {L"0800", L"", false},
    };
    for (const auto& [szPlid, szUninstall, bBundle] : rows) {
        WriteRaw(HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\Lumetra", L"PLID", RawText(szPlid));
        WriteRaw(HKEY_LOCAL_MACHINE,
                 L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{D40E8B62-19C5-47A3-8F0B-3A6C2E95D1F7}",
                 L"UninstallString", RawText(szUninstall));
        EXPECT_TRUE(Create(Describe(Link("A"))));
        EXPECT_EQ(bBundle ? "" : "D\\A.lnk ", Found()) << String::ToUtf8(szPlid);
        m_shell.Write(L"D\\A.lnk", "");
        EXPECT_TRUE(Remove(Describe(Link("A"))));
        EXPECT_EQ("", Found());
    }
}

TEST_F(ShortCutTest, AnUnreachableStartMenuEndsTheWalkAndAnUnreachableDesktopDoesNot)
{
    const std::string strDescription = "<S><Desktop available='1'>" + Link("A") +
                                       "</Desktop><StartMenu available='1'><Folder name='F'/></StartMenu>"
                                       "<Desktop available='1'>" +
                                       Link("B") + "</Desktop></S>";
    SetFolders(m_shell.PathOf(L"D"), L"Q:\\none");
    EXPECT_FALSE(Create(strDescription));
    EXPECT_EQ("D\\A.lnk ", Found());
    SetFolders(L"Q:\\none", m_shell.PathOf(L"M"));
    EXPECT_TRUE(Create(strDescription));
    EXPECT_EQ("D\\A.lnk M\\F\\ ", Found());
    EXPECT_THAT(m_trace.Messages(),
                IsSupersetOf({"!!! *** InstCommon::Utility::ShellLink::GetAllUsersDesktop() failed.",
                              "!!! *** InstCommon::Utility::ShellLink::GetAllUsersStartMenuPrograms failed.",
                              "!!! *** Fatal error occured."}));
}

TEST_F(ShortCutTest, WithoutADescriptionOrAnInstallFolderNothingIsMade)
{
    EXPECT_FALSE(ShortCutXmlHandler().CreateShortCuts(m_install.Path()));
    EXPECT_FALSE(Remove("<S>\n<Desktop available='1'></S>"));
    ShortCutXmlHandler handler;
    EXPECT_TRUE(handler.ParseXml(m_install.Write(L"s.xml", Describe(Link("A")))) && handler.CreateShortCuts(L""));
    EXPECT_EQ("", Found());
    EXPECT_THAT(m_trace.Messages(),
                AllOf(Contains("!!! *** Xml is not parsed."), Contains(ContainsRegex("s.xml. failed.*line 2,")),
                      Contains("!!! *** ShortCutXmlHandler::m_tstrInstallDir is empty.")));
}

TEST_F(ShortCutTest, FoldersWithoutEndStopAtTheLongestPath)
{
    std::string strFolders;
    for (int i = 0; i < 900; ++i) strFolders = "<Folder name='twenty characters ..x'>" + strFolders + "</Folder>";
    EXPECT_TRUE(Create(Describe("", strFolders)));
    EXPECT_THAT(m_trace.Messages(), Contains(StartsWith("!!! *** Path is too long: ")));
    EXPECT_THAT(m_shell.List().size(), AllOf(Gt(5U), Lt(20U)));
    EXPECT_TRUE(Remove(Describe("", strFolders)));
    EXPECT_EQ("", Found());
}

TEST_F(ShortCutTest, LinksAreUnpinnedBeforeTheyGoAndTheirPinnedCopiesWithThem)
{
    struct Recorder : PinRecorder {
        HRESULT OnRemove(const std::wstring& tstrPath) override
        {
            m_removed.push_back((std::filesystem::exists(tstrPath) ? L"" : L"too late: ") + tstrPath);
            return E_FAIL;
        }
        std::vector<std::wstring> m_removed;
    } recorder;
    std::wstring tstrProfile;
    ASSERT_TRUE(Links::GetUsersProfilePath(tstrProfile));
    const std::filesystem::path pinned =
        tstrProfile + L"\\AppData\\Roaming\\Microsoft\\Internet Explorer\\Quick Launch\\User Pinned\\Kazmere";
    std::filesystem::create_directories(pinned);
    std::filesystem::copy_file(m_shell.Write(L"M\\F\\B.lnk", ""), pinned / L"B.lnk");
    m_shell.Write(L"M\\F\\A.lnk", "");

    const Com::Apartment apartment;
    DWORD dwCookie = 0;
    ASSERT_EQ(S_OK, ::CoRegisterClassObject(kStartMenuPinClass, static_cast<IClassFactory*>(&recorder),
                                            CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &dwCookie));
    EXPECT_TRUE(Remove(Describe("", "<Folder name='F'>" + Link("A") + Link("B") + "</Folder>")));
    ::CoRevokeClassObject(dwCookie);
    EXPECT_EQ(0U, recorder.m_cReferences);
    EXPECT_THAT(recorder.m_removed, ElementsAre(m_shell.PathOf(L"M\\F\\A.lnk"), m_shell.PathOf(L"M\\F\\B.lnk"),
                                                (pinned / L"B.lnk").wstring()));
    EXPECT_EQ("", Found());
    EXPECT_FALSE(std::filesystem::exists(pinned / L"B.lnk"));
    EXPECT_THAT(m_trace.Messages(), Contains(ContainsRegex("ParsingName.failed.*Taskbar.Kazmere Qorvault.lnk, hr=-")));
    std::filesystem::remove_all(pinned);
}
