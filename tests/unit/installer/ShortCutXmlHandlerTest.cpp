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

/// A description with the given content of "Desktop" and "StartMenu".
std::string Description(const std::string& strDesktop, const std::string& strMenu)
{
    return "<S><Desktop available=\"1\">" + strDesktop + "</Desktop><StartMenu available=\"1\">" + strMenu +
           "</StartMenu></S>";
}

std::string Repeat(const char* szText, std::size_t cTimes)
{
    std::string strText;
    for (; cTimes > 0; --cTimes) strText += szText;
    return strText;
}

/// What a link file says.
struct LinkFacts {
    std::wstring tstrTarget, tstrIcon, tstrArguments, tstrDescription, tstrWorkingDirectory;
    bool operator==(const LinkFacts&) const = default;
};

LinkFacts ReadLink(const std::wstring& tstrLink)
{
    const Com::Apartment apartment;
    Com::ComPtr<IShellLinkW> link;
    Com::ComPtr<IPersistFile> file;
    wchar_t sz[5][MAX_PATH] = {};
    int iIcon = -1;
    if (FAILED(::CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(link.GetAddressOf()))) ||
        FAILED(link.As(&file)) || FAILED(file->Load(tstrLink.c_str(), STGM_READ))) {
        return {};
    }
    link->GetPath(sz[0], MAX_PATH, nullptr, SLGP_RAWPATH);
    link->GetIconLocation(sz[1], MAX_PATH, &iIcon);
    link->GetArguments(sz[2], MAX_PATH);
    link->GetDescription(sz[3], MAX_PATH);
    link->GetWorkingDirectory(sz[4], MAX_PATH);
    EXPECT_EQ(0, iIcon);
    return {sz[0], sz[1], sz[2], sz[3], sz[4]};
}

/// All-users desktop and Start menu in a folder of the test's own.
class ShortCutTest : public RegistryTest {
protected:
    ShortCutTest()
    {
        m_shell.MakeFolder(L"D");
        m_shell.MakeFolder(L"M");
        SetFolders(m_shell.PathOf(L"D"), m_shell.PathOf(L"M"));
    }
    void SetUp() override
    {
        // Where the system does not let itself be told, the test would work on the real folders.
        std::wstring tstrDesktop, tstrMenu;
        ASSERT_TRUE(Links::GetAllUsersDesktop(tstrDesktop) && Links::GetAllUsersStartMenuPrograms(tstrMenu));
        if (tstrDesktop != m_shell.PathOf(L"D") || tstrMenu != m_shell.PathOf(L"M")) GTEST_SKIP();
    }
    void SetFolders(const std::wstring& tstrDesktop, const std::wstring& tstrMenu)
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
    /// What is on desktop ("D") and Start menu ("M"), one text.
    std::string Found() const
    {
        std::wstring tstrFound;
        for (const std::wstring& tstrName : m_shell.List()) {
            if (tstrName != L"D\\" && tstrName != L"M\\") tstrFound += tstrName + L" ";
        }
        return String::ToUtf8(tstrFound);
    }

    TempFolder m_shell;
    TempFolder m_install;
    RecordedTrace m_trace;
};

}  // namespace

TEST_F(ShortCutTest, CreatesWhatIsDescribedInPlainFoldersOnly)
{
    const std::pair<std::string, std::string> rows[] = {
        {Description("<Shortcut>A</Shortcut>",
                     "<Folder name='F'><Folder name='G'><Shortcut>C</Shortcut></Folder>"
                     "<Shortcut>B</Shortcut></Folder>"),
         "D\\A.lnk M\\F\\ M\\F\\B.lnk M\\F\\G\\ M\\F\\G\\C.lnk "},
        {"<any><!-- c --><Other><Desktop available='1'/></Other><DESKTOP available='1'><SHORTCUT>A</SHORTCUT></DESKTOP>"
         "<startmenu available='1'><fOLDER name='F'/></startmenu></any>",
         "D\\A.lnk M\\F\\ "},
        // Any child of the desktop is a shortcut; directly below the Start menu none is, nor outside a folder.
        {Description("<Anything>A</Anything>", "<Shortcut>B</Shortcut><Group name='G'><Shortcut>C</Shortcut></Group>"),
         "D\\A.lnk "},
        {"<S><Desktop available='0'><Shortcut>A</Shortcut></Desktop><Desktop><Shortcut>A</Shortcut></Desktop>"
         "<StartMenu available='true'><Folder name='F'/></StartMenu><Desktop available='1'><Shortcut>B</Shortcut>"
         "</Desktop></S>",
         "D\\B.lnk "},
        // Names that lead elsewhere, and a folder that is only a name for one that exists.
        {Description("<Shortcut>..\\A</Shortcut><Shortcut/><Shortcut>C:\\B</Shortcut><Shortcut>C*</Shortcut>",
                     "<Folder name='..'><Shortcut>A</Shortcut></Folder><Folder><Shortcut>B</Shortcut></Folder>"
                     "<Folder name='F\\G'><Shortcut>C</Shortcut></Folder>"),
         ""},
        {Description("<Shortcut>" + Repeat("x", 260) + "</Shortcut>", "<Folder name='" + Repeat("x", 260) + "'/>"), ""},
    };
    for (const auto& [strDescription, strExpected] : rows) {
        EXPECT_TRUE(Create(strDescription));
        EXPECT_EQ(strExpected, Found()) << strDescription;
        EXPECT_TRUE(Remove(strDescription));
        for (const wchar_t* szFolder : {L"D", L"M"}) {
            std::filesystem::remove_all(m_shell.PathOf(szFolder));
            m_shell.MakeFolder(szFolder);
        }
    }
    EXPECT_THAT(m_trace.Messages(),
                AllOf(Contains("@@@ <Desktop available=0>"), Contains("@@@ Skip <Desktop> element."),
                      Contains("@@@ Skip <StartMenu> element.")));
}

TEST_F(ShortCutTest, LinksCarryWhatTheirAttributesSay)
{
    m_install.Write(L"bin\\App.ico", "");
    m_install.Write(L"bin\\notes.ico", "");
    const std::wstring& tstrDir = m_install.Path();
    const std::tuple<const char*, LinkFacts> rows[] = {
        {"lnk='bin\\App.EXE' arg='/show \"x\"' desc='Caf\xC3\xA9'",
         {tstrDir + L"bin\\App.EXE", tstrDir + L"bin\\App.ico", L"/show \"x\"", L"Caf\u00E9", L""}},
        {"lnk='bin\\App.exe' icon='other.ico'", {tstrDir + L"bin\\App.exe", tstrDir + L"other.ico", L"", L"", L""}},
        {"lnk='bin\\Tool.exe'", {tstrDir + L"bin\\Tool.exe", L"", L"", L"", L""}},
        {"lnk='bin\\notes.txt'", {tstrDir + L"bin\\notes.txt", L"", L"", L"", L""}},
    };
    for (const auto& [szAttributes, facts] : rows) {
        EXPECT_TRUE(Create(Description("<Shortcut " + std::string(szAttributes) + ">A</Shortcut>", "")));
        EXPECT_EQ(facts, ReadLink(m_shell.PathOf(L"D\\A.lnk"))) << szAttributes;
    }
}

TEST_F(ShortCutTest, RemovesOnlyWhatIsDescribed)
{
    const std::string strDescription =
        Description("<Shortcut>A</Shortcut><Anything>B</Anything>",
                    "<Shortcut>A</Shortcut><Folder name='F'><Shortcut>A</Shortcut><Folder name='Empty'/></Folder>");
    for (const wchar_t* szFile : {L"D\\A.lnk", L"D\\B.lnk", L"M\\A.lnk", L"M\\F\\A.lnk", L"M\\F\\Other.lnk"}) {
        m_shell.Write(szFile, "");
    }
    m_shell.MakeFolder(L"M\\F\\Empty");
    ::SetFileAttributesW(m_shell.PathOf(L"M\\F\\A.lnk").c_str(), FILE_ATTRIBUTE_READONLY);
    EXPECT_TRUE(Remove(strDescription));
    EXPECT_EQ("D\\B.lnk M\\F\\ M\\F\\Other.lnk ", Found());
}

TEST_F(ShortCutTest, TheSiblingSuitesBundleKeepsTheDesktopFree)
{
    const std::tuple<const wchar_t*, const wchar_t*, bool> rows[] = {
        {L"X-BS2-0720", L"u", true}, {L"AB0800", L"u", true}, {L"X-BS2-", L"u", false}, {L"X0720", L"u", false},
        {L"-bs2-0720", L"u", false}, {L"0800", L"", false},   {L"", L"u", false},
    };
    for (const auto& [szPlid, szUninstall, bBundle] : rows) {
        WriteRaw(HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\Lumetra", L"PLID", RawText(szPlid));
        WriteRaw(HKEY_LOCAL_MACHINE,
                 L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{D40E8B62-19C5-47A3-8F0B-3A6C2E95D1F7}",
                 L"UninstallString", RawText(szUninstall));
        EXPECT_TRUE(Create(Description("<Shortcut>A</Shortcut>", "<Folder name='F'/>")));
        EXPECT_EQ(bBundle ? "M\\F\\ " : "D\\A.lnk M\\F\\ ", Found()) << String::ToUtf8(szPlid);
        m_shell.Write(L"D\\A.lnk", "");
        EXPECT_TRUE(Remove(Description("<Shortcut>A</Shortcut>", "<Folder name='F'/>")));
        EXPECT_EQ("", Found());
    }
}

TEST_F(ShortCutTest, AnUnreachableStartMenuEndsTheWalkAndAnUnreachableDesktopDoesNot)
{
    const std::string strDescription =
        "<S><Desktop available='1'><Shortcut>A</Shortcut></Desktop>"
        "<StartMenu available='1'><Folder name='F'/></StartMenu>"
        "<Desktop available='1'><Shortcut>B</Shortcut></Desktop></S>";
    SetFolders(L"Q:\\none", m_shell.PathOf(L"M"));
    EXPECT_TRUE(Create(strDescription));
    EXPECT_EQ("M\\F\\ ", Found());
    EXPECT_TRUE(Remove(strDescription));

    SetFolders(m_shell.PathOf(L"D"), L"Q:\\none");
    EXPECT_FALSE(Create(strDescription));
    EXPECT_EQ("D\\A.lnk ", Found());
    EXPECT_THAT(
        m_trace.Messages(),
        IsSupersetOf({"!!! *** InstCommon::Utility::ShellLink::GetAllUsersDesktop() failed.",
                      "!!! *** InstCommon::Utility::ShellLink::GetAllUsersStartMenuPrograms failed.",
                      "!!! *** Fatal error occured.", "!!! *** ShortCutXmlHandler::HandleEachElement() failed."}));
}

TEST_F(ShortCutTest, WithoutADescriptionOrAnInstallFolderNothingIsMade)
{
    ShortCutXmlHandler handler;
    EXPECT_FALSE(handler.CreateShortCuts(m_install.Path()));
    EXPECT_FALSE(handler.ParseXml(m_install.PathOf(L"missing.xml")));
    EXPECT_FALSE(handler.ParseXml(m_install.Write(L"s.xml", "<S>\n<Desktop available='1'></S>")));
    EXPECT_FALSE(handler.RemoveShortCuts());
    EXPECT_TRUE(handler.ParseXml(m_install.Write(L"s.xml", Description("<Shortcut>A</Shortcut>", ""))));
    EXPECT_TRUE(handler.CreateShortCuts(L""));
    EXPECT_EQ("", Found());
    EXPECT_THAT(m_trace.Messages(),
                AllOf(Contains("!!! *** Xml is not parsed."), Contains(ContainsRegex("s.xml. failed.*line 2,")),
                      Contains("!!! *** ShortCutXmlHandler::m_tstrInstallDir is empty.")));
}

TEST_F(ShortCutTest, FoldersWithoutEndStopAtTheLongestPath)
{
    constexpr std::size_t kLevels = 900;
    const std::string strDescription =
        Description("", Repeat("<Folder name='f'><Shortcut>s</Shortcut>", kLevels) + Repeat("</Folder>", kLevels));
    EXPECT_TRUE(Create(strDescription));
    EXPECT_THAT(m_trace.Messages(), Contains(StartsWith("!!! *** Path is too long: ")));
    EXPECT_THAT(m_shell.List().size(), AllOf(Gt(50U), Lt(260U)));
    EXPECT_TRUE(Remove(strDescription));
    EXPECT_EQ("", Found());
}

TEST_F(ShortCutTest, LinksAreUnpinnedBeforeTheyGoAndTheirPinnedCopiesWithThem)
{
    struct Recorder : PinRecorder {
        HRESULT OnRemove(const std::wstring& tstrPath) override
        {
            m_existing += std::filesystem::exists(tstrPath) ? 1 : 0;
            m_removed.push_back(tstrPath);
            return tstrPath.ends_with(L"A.lnk") ? S_OK : E_FAIL;
        }
        std::vector<std::wstring> m_removed;
        std::ptrdiff_t m_existing = 0;
    } recorder;
    std::wstring tstrProfile;
    ASSERT_TRUE(Links::GetUsersProfilePath(tstrProfile));
    const std::filesystem::path pinned =
        tstrProfile + L"\\AppData\\Roaming\\Microsoft\\Internet Explorer\\Quick Launch\\User Pinned\\Kazmere";
    std::filesystem::create_directories(pinned);
    std::filesystem::copy_file(m_shell.Write(L"M\\F\\B.lnk", ""), pinned / L"B.lnk");
    m_shell.Write(L"M\\F\\A.lnk", "");
    const std::string strDescription =
        Description("", "<Folder name='F'><Shortcut>A</Shortcut><Shortcut>B</Shortcut></Folder>");
    {
        const Com::Apartment apartment;
        DWORD dwCookie = 0;
        ASSERT_EQ(S_OK, ::CoRegisterClassObject(kStartMenuPinClass, static_cast<IClassFactory*>(&recorder),
                                                CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &dwCookie));
        EXPECT_TRUE(Remove(strDescription));
        ::CoRevokeClassObject(dwCookie);
    }
    EXPECT_EQ(0U, recorder.m_cReferences);
    EXPECT_THAT(recorder.m_removed, ElementsAre(m_shell.PathOf(L"M\\F\\A.lnk"), m_shell.PathOf(L"M\\F\\B.lnk"),
                                                (pinned / L"B.lnk").wstring()));
    EXPECT_EQ(3, recorder.m_existing);
    EXPECT_EQ("", Found());
    EXPECT_FALSE(std::filesystem::exists(pinned / L"B.lnk"));
    EXPECT_THAT(m_trace.Messages(),
                AllOf(Contains(AllOf(StartsWith("!!! [SHCreateItemFromParsingName]failed. strFilePath="),
                                     HasSubstr("User Pinned\\Taskbar\\Kazmere Qorvault.lnk"))),
                      Contains(StartsWith("@@@ pStartMenuPinnedList->RemoveFromList successfully. strFilePath=")),
                      Contains(StartsWith("!!! pStartMenuPinnedList->RemoveFromList failed. tstrCacheShorcut="))));
    std::filesystem::remove_all(pinned);
}
