#include "unit/agent/AgentFixture.h"

#include "agent/IniEdits.h"
#include "BrevantVersion.h"
#include "common/KzComn_IniFile.h"

class IniEditsTest : public AgentTest {
protected:
    [[nodiscard]] std::wstring Value(const wchar_t* szSection, const wchar_t* szKey) const
    {
        Storage::IniFile file;
        file.Open(m_tstrFile);
        return file.ReadString(szSection, szKey, L"-");
    }
    void Modify() { ModifyUpdateInfo(m_machine, {m_tstrFile, m_tstrFile}); }

    const std::wstring m_tstrFile = m_install.Write(L"UpdateInfo.ini", "");
};

TEST_F(IniEditsTest, RecordsWriteTheirKeyOrLeaveTheirLine)
{
    const std::pair<std::wstring, const wchar_t*> rows[] = {
        {L"S!K!V", L"V"}, {L"S!!!K!{InstalledDir}", L"{InstalledDir}"}, {L"S!K!V!X", L"V"}, {L"S!K!", L"-"},
        {L"", L"-"},      {L"S!K!" + std::wstring(1020, L'v'), L"-"}};
    for (const auto& [tstrRecord, szValue] : rows) {
        SCOPED_TRACE(String::ToUtf8(tstrRecord));
        m_install.Write(L"UpdateInfo.ini", "");
        Storage::Patience patience;
        ModifyIniKeyValue(m_machine, {m_tstrFile, m_tstrFile}, tstrRecord, patience);
        EXPECT_EQ(Value(L"S", L"K"), szValue);
    }
}

TEST_F(IniEditsTest, TheVersionIsWrittenAfterTheRecordsAndNotWithoutTheSection)
{
    Modify();
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component103_iUD_Version"), L"-");
    Instruct("[UPDATE_INFO]\r\nmodify=COMPONENT_LIST!Component103_iUD_Version!0\r\nmodify=A!B!C\r\n");
    Modify();
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component103_iUD_Version"), BREVANT_WIDE_VERSION);
    EXPECT_EQ(Value(L"A", L"B"), L"C");
}

TEST_F(IniEditsTest, EditsShareTheirWaitForAFileInUseAndFailSeparately)
{
    std::string strRecords = "[UPDATE_INFO]\n";
    for (int i = 1; i <= 40; ++i) strRecords += "modify=S!K" + std::to_string(i) + "!new\n";
    Instruct(strRecords);
    const auto changed = [this] {
        int cChanged = Value(L"COMPONENT_LIST", L"Component103_iUD_Version") == BREVANT_WIDE_VERSION;
        for (int i = 1; i <= 40; ++i) cChanged += Value(L"S", (L"K" + std::to_wstring(i)).c_str()) == L"new";
        return cChanged;
    };
    // The number of attempts during which the file is in use ("every": of each four), the code, and how many of the 41
    // edits succeed.
    constexpr unsigned kForGood = 1'000'000, kMost = kEditRepetitions;
    const std::tuple<const char*, unsigned, DWORD, DWORD, int> rows[] = {
        {"refused for a moment", 1, ERROR_ACCESS_DENIED, 0, 41},
        {"slightly longer than the edits wait", kMost + 2, ERROR_SHARING_VIOLATION, 0, 39},
        {"every change, in total longer than that", 3, ERROR_SHARING_VIOLATION, 0, 41},
        {"then free for one edit, then for good", kMost - 1, ERROR_SHARING_VIOLATION, 0, 1},
        {"read-only", kForGood, ERROR_ACCESS_DENIED, FILE_ATTRIBUTE_READONLY, 0},
        {"for another reason", 5, ERROR_DISK_FULL, 0, 36}};
    for (const auto& [szRow, cFailures, dwCode, dwAttributes, cChanged] : rows) {
        SCOPED_TRACE(szRow);
        m_install.Write(L"UpdateInfo.ini", "", dwAttributes);
        {
            SystemWatch watch(m_install.Path());
            watch.m_bHurry = true;
            const bool bEvery = szRow[0] == 'e', bOne = szRow[0] == 't';
            watch.m_fault = [&, cCalls = 0U](std::string_view strCall, auto&&) mutable {
                if (strCall != "WritePrivateProfileStringW") return DWORD{ERROR_SUCCESS};
                const unsigned uCall = bEvery ? cCalls++ % 4 : cCalls++;
                return (bOne ? uCall != cFailures : uCall < cFailures) ? dwCode : DWORD{ERROR_SUCCESS};
            };
            Modify();
            const unsigned cMost = kMost + (bOne ? Storage::kInUseRepetitions : 0);
            EXPECT_TRUE(bEvery || watch.m_dwPausedMs <= cMost * Storage::kHeldPauseMs) << "together";
        }
        EXPECT_EQ(changed(), cChanged);
    }
    m_install.Write(L"UpdateInfo.ini", "");
    const std::jthread reader = HoldForAMoment(m_tstrFile);
    Modify();
    EXPECT_EQ(changed(), 41) << "a reader that does not share the file for writing";
}
