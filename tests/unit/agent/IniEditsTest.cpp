#include "unit/agent/AgentFixture.h"

#include "common/KzComn_String.h"

using ::testing::Contains;
using ::testing::HasSubstr;

namespace {

class IniEditsTest : public AgentTest {
protected:
    [[nodiscard]] std::wstring Value(const wchar_t* szSection, const wchar_t* szKey) const
    {
        KzCommon::Storage::IniFile file;
        file.Open(m_install.PathOf(L"UpdateInfo.ini"));
        return file.ReadString(szSection, szKey, L"-");
    }
};

TEST_F(IniEditsTest, RecordsWriteTheirKeyOrLeaveTheirLine)
{
    const struct {
        std::wstring tstrRecord;
        const wchar_t* szValue;
        const char* szTraced;
    } rows[] = {
        {L"S!K!V", L"V", "@@@ [S] K=V"},
        {L"S!!!K!{InstalledDir}", L"{InstalledDir}", "@@@ [S] K={InstalledDir}"},
        {L"S!K!V!X", L"V", "!!! ModifyIniKeyValue() field index>2, too many fields, ignore remaining ones"},
        {L"S!K!", L"-", "@@@ [S] K="},
        {L"!", L"-", "@@@ [] ="},
        {L"", L"-", "!!! ModifyIniKeyValue(tszData==empty || tszData.size()>1023)"},
        {L"S!K!" + std::wstring(1020, L'v'), L"-", "!!! ModifyIniKeyValue(tszData==empty || tszData.size()>1023)"},
    };
    for (const auto& row : rows) {
        m_install.Write(L"UpdateInfo.ini", "");
        m_trace.Clear();
        m_agent.ModifyIniKeyValue(m_install.PathOf(L"UpdateInfo.ini"), row.tstrRecord);
        EXPECT_EQ(Value(L"S", L"K"), row.szValue);
        EXPECT_THAT(m_trace.Messages(), Contains(row.szTraced));
    }
    m_install.MakeFolder(L"taken");
    m_agent.ModifyIniKeyValue(m_install.PathOf(L"taken"), L"S!K!V");
    EXPECT_THAT(m_trace.Messages(),
                Contains(HasSubstr("!!! KzCommon::Storage::Ini::StoreValue() failed. Error code: ")));
}

TEST_F(IniEditsTest, TheVersionIsWrittenAfterTheRecordsAndNotWithoutTheSection)
{
    const std::wstring tstrFile = m_install.Write(L"UpdateInfo.ini", "");
    m_agent.ModifyUpdateInfo(tstrFile);
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component103_iUD_Version"), L"-");
    Instruct("[UPDATE_INFO]\r\nmodify=COMPONENT_LIST!Component103_iUD_Version!0\r\nmodify=A!B!C\r\n");
    m_agent.ModifyUpdateInfo(tstrFile);
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component103_iUD_Version"), L"1.9.1112");
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component3_iUD_Version"), L"-");
    EXPECT_EQ(Value(L"A", L"B"), L"C");
    EXPECT_EQ(CountTraced("@@@ *** FrameworkDeployAgent::ModifyUpdateInfo(A!B!C) "), 1)
        << "the blank at the end belongs to it";
    EXPECT_EQ(CountTraced(".w. [Leve] DeployVersion()"), 1);
}

}  // namespace
