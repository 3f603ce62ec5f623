#include "unit/agent/AgentFixture.h"

#include "agent/IniEdits.h"
#include "BrevantVersion.h"
#include "common/KzComn_IniFile.h"

class IniEditsTest : public AgentTest {
protected:
    [[nodiscard]] std::wstring Value(const wchar_t* szSection, const wchar_t* szKey) const
    {
        KzCommon::Storage::IniFile file;
        file.Open(m_tstrFile);
        return file.ReadString(szSection, szKey, L"-");
    }
    const std::wstring m_tstrFile = m_install.PathOf(L"UpdateInfo.ini");
};

TEST_F(IniEditsTest, RecordsWriteTheirKeyOrLeaveTheirLine)
{
    const std::tuple<std::wstring, const wchar_t*, const char*> rows[] = {
        // clang-format off
        {L"S!K!V", L"V", "@@@ [S] K=V"}, {L"S!!!K!{InstalledDir}", L"{InstalledDir}", "@@@ [S] K={InstalledDir}"},
        {L"S!K!V!X", L"V", "!!! ModifyIniKeyValue() field index>2, too many fields, ignore remaining ones"},
        {L"S!K!", L"-", "@@@ [S] K="}, {L"", L"-", "!!! ModifyIniKeyValue(tszData==empty || tszData.size()>1023)"},
        {L"S!K!" + std::wstring(1020, L'v'), L"-", "!!! ModifyIniKeyValue(tszData==empty || tszData.size()>1023)"}};
    // clang-format on
    for (const auto& [tstrRecord, szValue, szTraced] : rows) {
        SCOPED_TRACE(KzCommon::String::ToUtf8(tstrRecord));
        m_install.Write(L"UpdateInfo.ini", "");
        m_trace.Clear();
        ModifyIniKeyValue({m_tstrFile, m_tstrFile}, tstrRecord);
        EXPECT_EQ(Value(L"S", L"K"), szValue);
        EXPECT_EQ(CountTraced(szTraced), 1);
    }
}

TEST_F(IniEditsTest, TheVersionIsWrittenAfterTheRecordsAndNotWithoutTheSection)
{
    m_install.Write(L"UpdateInfo.ini", "");
    ModifyUpdateInfo({m_tstrFile, m_tstrFile});
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component103_iUD_Version"), L"-");
    Instruct("[UPDATE_INFO]\r\nmodify=COMPONENT_LIST!Component103_iUD_Version!0\r\nmodify=A!B!C\r\n");
    ModifyUpdateInfo({m_tstrFile, m_tstrFile});
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component103_iUD_Version"), BREVANT_WIDE_VERSION);
    EXPECT_EQ(Value(L"A", L"B"), L"C");
    EXPECT_EQ(CountTraced("@@@ *** FrameworkDeployAgent::ModifyUpdateInfo(A!B!C) "), 1) << "the blank belongs to it";
}
