#include "agent/ConfigMerge.h"

#include "unit/agent/AgentFixture.h"

namespace {

const std::string kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
const std::string kShipped = kHead + "<r><P><A>new</A><B type=\"bool\">0</B><C>new</C></P></r>";
const std::string kUsers = "<r><P><A>mine</A><B type='bool'>1</B><C>mine</C></P></r>";
const std::string kMerged = kHead + "<r><P><A>mine</A><B type=\"bool\">1</B><C>new</C></P></r>";
const std::string kTags = "[QOR_CONFIG_MERGE]\nmigrate=/P/B\nmigrate=/P/A\nMigrate=/P/C\nmigrate=/P/B\n";

class ConfigMergeTest : public AgentTest {
protected:
    void Merge() { MergeConfig(m_run, {m_tstrNew, m_tstrNew}); }
    [[nodiscard]] std::string Kept() const { return m_install.Read(L"config.previous.xml").value_or("none"); }

    const std::wstring m_tstrNew = m_install.PathOf(L"new\\config.xml");
};

}  // namespace

TEST_F(ConfigMergeTest, MigratesTheUsersValuesOrKeepsTheirFile)
{
    const std::tuple<const char*, std::string, std::string, std::string, std::string, std::string> rows[] = {
        // clang-format off
            {"merged", kTags, kUsers, kShipped, kMerged, "none"},
            {"user's file broken", kTags, "<r", kShipped, kShipped, "<r"},
            {"package's file broken", kTags, kUsers, "<r>", "<r>", kUsers},
            {"a value refused in the user's file", kTags, "<r><P><B type='bool'>yes</B></P></r>", kShipped, kShipped,
             "<r><P><B type='bool'>yes</B></P></r>"},
            {"a value refused in the package's", kTags, kUsers, "<r><P><A type='int'>1</A></P></r>",
             kHead + "<r><P><A type=\"int\">1</A><B type=\"bool\">1</B></P></r>", kUsers},
            {"no section", "[Other]\na=b\n", kUsers, kShipped, kShipped, kUsers},
            {"no tag", "[QOR_CONFIG_MERGE]\nMigrate=/P/A\n", kUsers, kShipped, kShipped, kUsers},
            {"a tag too long", kTags + "migrate=/" + std::string(1023, 'x'), kUsers, kShipped, kMerged, kUsers},
            {"no user's file", kTags, "", kShipped, kShipped, "none"},
            {"no file in the package", kTags, kUsers, "", "none", "none"}};  // clang-format on
    const auto put = [this](const wchar_t* szName, const std::string& strBytes) {
        const std::wstring tstrPath = m_install.Write(szName, strBytes);
        if (strBytes.empty()) ::DeleteFileW(tstrPath.c_str());
    };
    for (const auto& [szRow, strInstructions, strInstalled, strBefore, strAfter, strKept] : rows) {
        SCOPED_TRACE(szRow);
        Instruct(strInstructions);
        put(L"config.xml", strInstalled);
        put(L"new\\config.xml", strBefore);
        put(L"config.previous.xml", "");
        Merge();
        EXPECT_EQ(m_install.Read(L"new\\config.xml").value_or("none"), strAfter);
        EXPECT_EQ(Kept(), strKept);
        EXPECT_EQ(m_install.Read(L"config.xml").value_or(""), strInstalled);
    }
}

TEST_F(ConfigMergeTest, AnUnreadableUsersFileIsKeptAndAnEarlierOneStays)
{
    Instruct(kTags);
    const std::wstring tstrNew = m_install.Write(L"new\\config.xml", kShipped);
    const std::wstring tstrUsers = m_install.Write(L"config.xml", kUsers);
    m_install.Write(L"config.previous.xml", "older");
    m_install.MakeFolder(L"config.previous.2.xml");  // a folder blocks the name, too
    const auto third = [&] {
        return m_install.Read(L"config.previous.3.xml").value_or("none");
    };
    for (const DWORD dwLinkCode : {ERROR_INVALID_FUNCTION, ERROR_SUCCESS, ERROR_ALREADY_EXISTS}) {
        UniqueFile held = Hold(L"config.xml");
        SystemWatch watch(m_install.Path());
        watch.m_bHurry = true;
        watch.Fail("CreateHardLinkW", dwLinkCode);
        Merge();
        held.Reset();
        EXPECT_EQ(third(), dwLinkCode == ERROR_INVALID_FUNCTION ? "none" : kUsers);
    }
    m_install.Write(L"new\\config.xml", "<r>");
    Merge();  // the same settings again
    ASSERT_TRUE(::MoveFileExW(tstrNew.c_str(), tstrUsers.c_str(), MOVEFILE_REPLACE_EXISTING)) << "as at the restart";
    EXPECT_EQ(m_install.Read(L"config.xml"), "<r>");
    EXPECT_EQ(third(), kUsers);
    EXPECT_EQ(Kept(), "older");
    EXPECT_THAT(m_install.List(), ElementsAre(L"QorPaFrwk.ini", L"config.previous.2.xml\\", L"config.previous.3.xml",
                                              L"config.previous.xml", L"config.xml", L"new\\"));
    m_install.Write(L"new\\config.xml", "<r>");
    for (wchar_t ch = L'3'; ch <= L'9'; ++ch) m_install.Write(L"config.previous." + std::wstring(1, ch) + L".xml", "x");
    Merge();
    EXPECT_EQ(m_install.Read(L"config.previous.9.xml"), "<r>") << "the last name is reused";
    EXPECT_EQ(Kept(), "older");
    m_install.Write(L"config.xml", kUsers);
    m_install.Write(L"new\\config.xml", kShipped, FILE_ATTRIBUTE_READONLY);
    SystemWatch watch(m_install.Path());
    watch.Fail("SetFileAttributesW", ERROR_ACCESS_DENIED);
    Merge();
    watch.Fail("BCryptOpenAlgorithmProvider", ERROR_NOT_READY);
    Merge();
    WriteProduct(L"ProductPath", L"");
    Merge();
}
