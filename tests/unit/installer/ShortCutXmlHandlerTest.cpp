#include "installer/ShortCutXmlHandler.h"

#include "common/KzComn_Com.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_XmlParser.h"
#include "installer/InstComn_ShellLink.h"
#include "support/PinRecorder.h"
#include "support/Testing.h"

using namespace InstCommon::Utility;
namespace Links = InstCommon::Utility::ShellLink;

namespace {

std::string Link(const std::string& strName, const std::string& strAttributes = "")
{
    return "<Shortcut " + strAttributes + ">" + strName + "</Shortcut>";
}

std::string InFolder(const std::string& strName, const std::string& strInside)
{
    return "<Folder name='" + strName + "'>" + strInside + "</Folder>";
}

/// A description with the given content of "Desktop" and "StartMenu".
std::string Describe(const std::string& strDesktop, const std::string& strMenu = "")
{
    return "<S><Desktop available='1'>" + strDesktop + "</Desktop><StartMenu available='1'>" + strMenu +
           "</StartMenu></S>";
}

/// All-users desktop ("D") and Start menu ("M") in a private folder of the test.
class ShortCutTest : public RegistryTest {
protected:
    void SetUp() override
    {
        std::wstring tstrDesktop, tstrMenu;
        SetFolders(m_shell.MakeFolder(L"D"), m_shell.MakeFolder(L"M"));
        ASSERT_TRUE(Links::GetAllUsersDesktop(tstrDesktop));
        ASSERT_TRUE(Links::GetAllUsersStartMenuPrograms(tstrMenu));
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
    /// The planned items in the form of Found(), and the refused ones.
    std::string Planned(const std::string& strDescription, ShortcutWalk eWalk = ShortcutWalk::eCreate) const
    {
        const auto document = Storage::XmlParser().ParseFile(m_install.Write(L"s.xml", strDescription));
        std::set<std::wstring> items;
        std::wstring tstrPlanned;
        for (const ShortcutItem& item : ListShortcuts(*document->GetRoot(), eWalk)) {
            std::wstring tstrPath = item.ePlace == ShortcutPlace::eDesktop ? L"D" : L"M";
            for (const std::wstring& tstrLevel : LevelsOf(item.tstrPath)) {
                if (item.szRefusal) break;
                tstrPath += L"\\" + tstrLevel;
                items.insert(tstrPath + (tstrPath.ends_with(L".lnk") ? L"" : L"\\"));
            }
            if (item.szRefusal) items.insert(std::wstring(L"(") + item.szRefusal + L")");
        }
        for (const std::wstring& tstrItem : items) tstrPlanned += tstrItem + L" ";
        return String::ToUtf8(tstrPlanned);
    }
    /// The contents of desktop and Start menu as one text.
    std::string Found() const
    {
        std::wstring tstrFound;
        for (const std::wstring& tstrName : m_shell.List()) {
            if (tstrName.size() > 2 && !tstrName.starts_with(L"Shell")) tstrFound += tstrName + L" ";
        }
        return String::ToUtf8(tstrFound);
    }

    TempFolder m_shell, m_install;
};

}  // namespace

TEST_F(ShortCutTest, CreatesWhatIsPlannedAndNothingOutsideItsPlace)
{
    const std::string rows[] = {
        // clang-format off
        Describe(Link("A"), InFolder("F", InFolder("G", Link("C")) + Link("B"))),
        // Every child of the desktop is a shortcut, but no child of the Start menu itself.
        Describe("<Any>A</Any><Folder name='F'>B</Folder>", Link("B") + "<Group name='G'>" + Link("C") + "</Group>"),
        "<S><Desktop available='0'>" + Link("A") + "</Desktop><Desktop>" + Link("A") + "</Desktop>" +
        "<StartMenu available='true'><Folder name='F'/></StartMenu><!-- -->"
        "<DESKTOP available='1'><SHORTCUT>B</SHORTCUT></DESKTOP></S>",
        // A name with several levels; the programs folder itself; a link in a folder of another element.
        Describe("", InFolder("K\\L", Link("A")) + InFolder("N/O\\", InFolder("", Link("P")))),
        Describe("", "<Folder>" + Link("A") + "</Folder>" + InFolder(".", Link("B") + InFolder("Q", "")) +
                 InFolder("", Link("Q\\C"))),
        Describe(Link("..\\A") + Link("x/../A"), InFolder("..", Link("A")) + InFolder("F\\.. .\\G", Link("H"))),
        Describe(Link("C:\\B") + Link("C:") + Link("ab:c"), InFolder("Q:", "")),
        Describe(Link("\\A") + Link("/A"), InFolder("\\\\s\\F", Link("A"))),
        Describe(Link(std::string(33000, 'x')), InFolder(std::string(260, 'x'), "")),
        Describe(Link("nul") + Link("x\\Com1 .y"), InFolder("F\\aux", Link("A")))};
    // clang-format on
    for (const std::string& strDescription : rows) {
        const std::string strPlanned = Planned(strDescription);
        Trace(kTraceInfo, L"== %s", String::FromAnsi(strPlanned).c_str());
        EXPECT_TRUE(Create(strDescription));
        EXPECT_EQ(strPlanned.starts_with("(") ? "" : strPlanned, Found()) << strDescription;
        fs::remove_all(m_shell.Path());
        SetUp();
    }
}

TEST_F(ShortCutTest, ARefusedNameOrALinkInUseDoesNotAffectOthers)
{
    const std::string strLong(230, 'x');
    const std::string strDescription = Describe(Link("None\\A") + Link(strLong + strLong) + Link("a|b") + Link("B"),
                                                InFolder("c|d", Link("A")) + InFolder("F", Link("A")));
    EXPECT_TRUE(Create(strDescription));
    EXPECT_EQ("D\\B.lnk M\\F\\ M\\F\\A.lnk ", Found());
    ::SetFileAttributesW(m_shell.PathOf(L"M\\F\\A.lnk").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    const std::wstring tstrHeld = m_shell.Write(L"D\\B.lnk", "");
    const UniqueFile held(
        ::CreateFileW(tstrHeld.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(Remove(strDescription));
    EXPECT_EQ("D\\B.lnk ", Found());
}

TEST_F(ShortCutTest, AFailingStepOfTheShellEndsOnlyWhatNeedsIt)
{
    const std::string strDescription = Describe(Link("A"), InFolder("F", Link(std::string(33000, 'x')) + Link("B")));
    for (const char* szCall : {"", "CoInitializeEx", "CoCreateInstance", "SHGetMalloc", "SHGetSpecialFolderLocation",
                               "SHGetPathFromIDListW"}) {
        SystemWatch watch(m_shell.Path());
        watch.Fail(szCall, ERROR_NOT_READY);
        const bool bKnown = *szCall != 'S' || szCall == std::string_view("SHGetMalloc");
        EXPECT_EQ(bKnown, Create(strDescription)) << szCall;
        EXPECT_EQ(bKnown, Remove(strDescription)) << szCall;
        EXPECT_EQ("", Found()) << szCall;
    }
}

TEST_F(ShortCutTest, ALinkInUseIsRetriedButNotAFolderInItsPlace)
{
    const std::wstring tstrLink = m_shell.PathOf(L"D\\A.lnk");
    ASSERT_TRUE(Links::CreateShortcut(tstrLink, {}));  // the first one in a process is slow
    const std::optional<std::string> old = m_shell.Read(L"D\\A.lnk");
    UniqueFile held(::CreateFileW(tstrLink.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    std::jthread release([&] { ::Sleep(300), held.Reset(); });
    EXPECT_TRUE(Links::CreateShortcut(tstrLink, {L"", L"", L"", L"new", L""}));
    release.join();
    EXPECT_NE(old, m_shell.Read(L"D\\A.lnk"));

    const ULONGLONG ullStart = ::GetTickCount64();
    EXPECT_FALSE(Links::CreateShortcut(m_shell.MakeFolder(L"D\\F.lnk"), {}));
    EXPECT_LT(::GetTickCount64() - ullStart, 1500U);
}

TEST_F(ShortCutTest, AProgramWithoutAnIconTakesTheIconFileBesideIt)
{
    for (const wchar_t* szIcon : {L"bin\\App.ico", L"bin\\notes.ico"}) m_install.Write(szIcon, "");
    for (const auto& [szTarget, szIcon] : {std::pair("App.EXE", L"App.ico"), {"Tool.exe", L""}, {"notes.txt", L""}}) {
        EXPECT_TRUE(Create(Describe(Link("A", std::string("lnk='bin\\") + szTarget + "'"))));
        const std::string strIcon = RawText(*szIcon ? szIcon : L".ico").strBytes;
        const std::string strLink = m_shell.Read(L"D\\A.lnk").value_or("");
        EXPECT_EQ(*szIcon != 0, strLink.find(strIcon.data(), 0, strIcon.size() - 2) != strLink.npos) << szTarget;
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

TEST_F(ShortCutTest, OnlyAMissingStartMenuEndsTheWalk)
{
    const std::string strDescription = "<S><Desktop available='1'>" + Link("A") +
                                       "</Desktop><StartMenu available='1'><Folder name='F'/></StartMenu>"
                                       "<Desktop available='1'><B>B</B></Desktop></S>";
    SetFolders(m_shell.PathOf(L"D"), L"Q:\\none");
    ShortCutXmlHandler handler;
    EXPECT_TRUE(handler.ParseXml(m_install.Write(L"s.xml", strDescription)));
    EXPECT_FALSE(handler.CreateShortCuts(m_install.Path()));
    EXPECT_FALSE(handler.CreateShortCuts(m_install.Path()));
    EXPECT_EQ("D\\A.lnk ", Found());
    SetFolders(L"Q:\\none", m_shell.PathOf(L"M"));
    EXPECT_TRUE(Create(strDescription));
    EXPECT_EQ("D\\A.lnk M\\F\\ ", Found());
}

TEST_F(ShortCutTest, RemovesEmptyFoldersLevelByLevelButNoLinks)
{
    const std::tuple<std::vector<const wchar_t*>, std::string, std::string> rows[] = {
        // clang-format off
        {{L"M\\K\\L\\A.lnk", L"M\\N\\x"}, "K\\L", "M\\N\\ M\\N\\x "}, {{L"M\\K\\L\\A.lnk"}, "K/L\\", ""},
        {{L"M\\K\\L\\A.lnk", L"M\\K\\x"}, "K\\L", "M\\K\\ M\\K\\x "},
        {{L"M\\K\\L\\A.lnk", L"M\\K\\L\\x"}, "K\\L", "M\\K\\ M\\K\\L\\ M\\K\\L\\x "},
        {{L"M\\K\\A.lnk"}, "K\\.", ""}, {{L"M\\A.lnk"}, "", "M\\K\\ "}, {{}, "K\\L", ""},
        {{L"A.lnk", L"M\\x"}, "..", "A.lnk M\\K\\ M\\x "},
        {{L"M\\K\\Away\\x"}, "K\\Away", "M\\K\\ M\\K\\Away\\ M\\K\\Away\\x "},
        {{L"M\\Away\\L\\A.lnk"}, "Away\\L", "M\\Away\\ M\\K\\ "}};
    // clang-format on
    for (const auto& [files, strName, strLeft] : rows) {
        SCOPED_TRACE(strName + " " + strLeft);
        m_shell.MakeFolder(L"M\\K");
        for (const wchar_t* szFile : files) m_shell.Write(szFile, "");
        {
            SystemWatch watch(m_shell.Path());
            watch.m_tstrLink = L"Away";
            const std::string strDescription = Describe("", InFolder("C:", "") + InFolder(strName, Link("A")));
            const bool bMade = strName == "K\\Away" && Create(strDescription);
            EXPECT_EQ(bMade, fs::exists(m_shell.PathOf(L"M\\K\\Away\\A.lnk"))) << "in the other place, too";
            EXPECT_TRUE(Remove(strDescription));
        }
        EXPECT_EQ(strLeft, Found());
        EXPECT_TRUE(fs::is_directory(m_shell.PathOf(L"M")));
        fs::remove_all(m_shell.Path());
        SetUp();
    }
}

TEST_F(ShortCutTest, RemovesOnlyWhatIsDescribedAndUnpinsItBefore)
{
    const SystemWatch watch(m_shell.Path());  // moves the user's profile into the sandbox
    const std::wstring tstrPinned =
        L"Shell\\AppData\\Roaming\\Microsoft\\Internet Explorer\\Quick Launch\\User Pinned\\";
    const std::wstring tstrTaskbarLink = m_shell.Write(tstrPinned + L"Taskbar\\Kazmere Qorvault.lnk", "");
    const Com::Apartment apartment;
    for (const HRESULT hrAnswer : {S_OK, E_FAIL}) {
        PinRecorder recorder(hrAnswer);
        for (const wchar_t* szFile : {L"D\\B", L"M\\A", L"M\\F\\B", L"M\\F\\C"})
            m_shell.Write(szFile + std::wstring(L".lnk"), "");
        const std::wstring tstrCached = m_shell.Write(tstrPinned + L"Kazmere\\B.lnk", "");
        DWORD dwCookie = 0;
        ASSERT_EQ(S_OK, ::CoRegisterClassObject(kStartMenuPinClass, static_cast<IClassFactory*>(&recorder),
                                                CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &dwCookie));
        const UniqueFile held = FAILED(hrAnswer) ? HoldFile(tstrCached) : UniqueFile();
        EXPECT_TRUE(Remove(Describe("<Any>B</Any>", Link("A") + Link("None") + InFolder("F", Link("B")))));
        ::CoRevokeClassObject(dwCookie);
        EXPECT_EQ(0U, recorder.m_cReferences);
        EXPECT_THAT(recorder.m_removed, ElementsAre(tstrTaskbarLink, m_shell.PathOf(L"M\\A.lnk"),
                                                    m_shell.PathOf(L"M\\F\\B.lnk"), tstrCached));
        EXPECT_EQ("D\\B.lnk M\\F\\ M\\F\\C.lnk ", Found());
        EXPECT_EQ(held.IsValid(), fs::exists(tstrCached));
        EXPECT_TRUE(fs::exists(tstrTaskbarLink)) << "only unpinned";
    }
}
