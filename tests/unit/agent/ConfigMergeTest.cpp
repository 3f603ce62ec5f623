#include "unit/agent/AgentFixture.h"

#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

class ConfigMergeTest : public AgentTest {
protected:
    ConfigMergeTest()
    {
        Instruct("[QOR_CONFIG_MERGE]\nmigrate=/P/B\nmigrate=/P/A\nMigrate=/P/C\nmigrate=/P/B\n");
        m_install.Write(L"config.xml", "<r><P><A>mine</A><B type='bool'>1</B><C>mine</C></P></r>");
        m_install.Write(L"new\\config.xml", "<r><P><A>new</A><B type='bool'>0</B><C>new</C></P></r>");
    }
    /// Merges and gives the trace without the lines of the provider.
    [[nodiscard]] std::vector<std::string> Merge()
    {
        m_agent.MergeConfig(m_install.PathOf(L"new\\"));
        std::vector<std::string> messages = m_trace.Messages();
        std::erase_if(messages, [](const std::string& str) { return str.find("CConfigProvider::M") != str.npos; });
        return messages;
    }
    [[nodiscard]] std::string Target() const { return m_install.Read(L"new\\config.xml").value_or("none"); }
};

TEST_F(ConfigMergeTest, CarriesTheUsersValuesOver)
{
    EXPECT_THAT(Merge(),
                ElementsAre(StartsWith(".w. [Enter] FrameworkDeployAgent::MergeConfig("), HasSubstr("PreInitialize()"),
                            HasSubstr("PreInitialize()"), HasSubstr("Initialize()"), HasSubstr("Initialize()"),
                            "@@@ *** FrameworkDeployAgent::MergeConfig() - Add tag. [/P/B]",
                            "@@@ *** FrameworkDeployAgent::MergeConfig() - Add tag. [/P/A]",
                            "@@@ *** FrameworkDeployAgent::MergeConfig() - Add tag. [/P/B]",
                            "@@@ Query OK: {\"Data\":{\"/P/A\":\"mine\",\"/P/B\":\"1\"}}",
                            AllOf(StartsWith("@@@ Write OK: {\"Data\":{\"/P/A\":\"mine\",\"/P/B\":\"1\"},\"FileName\":"
                                             "\"config.xml\",\"FilePath\":\""),
                                  HasSubstr("\\\\new\\\\\"}")),
                            ".w. [Leave] FrameworkDeployAgent::MergeConfig()..."));
    EXPECT_THAT(Target(), HasSubstr("<r><P><A>mine</A><B type=\"bool\">1</B><C>new</C></P></r>"));
}

TEST_F(ConfigMergeTest, FailuresAreTracedAndTheFileStays)
{
    const std::string strBefore = Target();
    m_install.Write(L"config.xml", "");
    EXPECT_THAT(Merge(), AllOf(Contains("!!! Fail to get the product config, error code: 0x10000006"),
                               Contains(HasSubstr("@@@ Write OK: {\"Data\":{\"/P/A\":null,\"/P/B\":null},"))));
    EXPECT_EQ(Target(), strBefore);

    m_install.Write(L"new\\config.xml", "<r>");
    EXPECT_THAT(Merge(), Contains("!!! Fail to write the product config, error code: 0x10000006"));
    EXPECT_EQ(Target(), "<r>");

    Instruct("[Other]\nmigrate=/P/A\n");
    m_trace.Clear();
    EXPECT_THAT(Merge(), AllOf(Contains(StartsWith("!!! *** FrameworkDeployAgent::MergeConfig() - "
                                                   "QueryValue(QOR_CONFIG_MERGE) failed. [0x")),
                               Contains(".w. [Leave] FrameworkDeployAgent::MergeConfig()..."),
                               Not(Contains(HasSubstr("error code")))));

    m_trace.Clear();
    EXPECT_TRUE(KzCommon::Storage::Reg::DeleteValue(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, L"ProductPath", 0,
                                                    nullptr));
    EXPECT_THAT(Merge(), AllOf(Contains("!!! *** FrameworkDeployAgent::MergeConfig() - "
                                        "CConfigProvider::PreInitialize() failed."),
                               Contains(".w. [Leave] FrameworkDeployAgent::MergeConfig()..."),
                               Not(Contains(HasSubstr("QueryValue")))));
}

}  // namespace
