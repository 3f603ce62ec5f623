#include "unit/agent/AgentFixture.h"

#include "agent/ConfigMerge.h"

using ConfigMergeTest = AgentTest;

TEST_F(ConfigMergeTest, CarriesTheUsersValuesOverAndFailuresLeaveTheFile)
{
    const std::string strDefault =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r><P><A>new</A><B type=\"bool\">0</B><C>new</C></P></r>";
    const std::string strMerged =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<r><P><A>mine</A><B type=\"bool\">1</B><C>new</C></P></r>";
    const std::tuple<const char*, std::string, std::string, std::vector<std::string>> rows[] = {
        // clang-format off
        {"<r><P><A>mine</A><B type='bool'>1</B><C>mine</C></P></r>", strDefault, strMerged,
         {"Query OK: {\"Data\":{\"/P/A\":\"mine\",\"/P/B\":\"1\"}}",
          "Write OK: {\"Data\":{\"/P/A\":\"mine\",\"/P/B\":\"1\"},\"FileName\":\"config.xml\",\"FilePath\":\""}},
        {"", strDefault, strDefault, {"Fail to get the product config, error code: 0x10000006",
          "Write OK: {\"Data\":{\"/P/A\":null,\"/P/B\":null},"}},
        {"<r/>", "<r>", "<r>", {"Query OK:", "Fail to write the product config, error code: 0x10000006"}}};
    // clang-format on
    Instruct("[QOR_CONFIG_MERGE]\nmigrate=/P/B\nmigrate=/P/A\nMigrate=/P/C\nmigrate=/P/B\n");
    for (const auto& [szInstalled, strBefore, strAfter, traced] : rows) {
        m_install.Write(L"config.xml", szInstalled);
        m_install.Write(L"new\\config.xml", strBefore);
        m_trace.Clear();
        MergeConfig(m_install.PathOf(L"new\\"));
        EXPECT_EQ(m_install.Read(L"new\\config.xml"), strAfter);
        for (const std::string& strLine : traced) EXPECT_THAT(m_trace.Messages(), Contains(HasSubstr(strLine)));
        EXPECT_EQ(CountTraced("@@@ *** FrameworkDeployAgent::MergeConfig() - Add tag. [/P/B]"), 2);
    }
}
