#include "unit/agent/AgentFixture.h"

#include "agent/IniEdits.h"
#include "BrevantVersion.h"
#include "common/KzComn_IniFile.h"
#include "support/watch/SystemWatch.h"

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
        KzCommon::Storage::Patience patience;
        ModifyIniKeyValue(m_machine, {m_tstrFile, m_tstrFile}, tstrRecord, patience);
        EXPECT_EQ(Value(L"S", L"K"), szValue);
        EXPECT_EQ(CountTraced(szTraced), 1);
    }
}

TEST_F(IniEditsTest, TheVersionIsWrittenAfterTheRecordsAndNotWithoutTheSection)
{
    m_install.Write(L"UpdateInfo.ini", "");
    ModifyUpdateInfo(m_machine, {m_tstrFile, m_tstrFile});
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component103_iUD_Version"), L"-");
    Instruct("[UPDATE_INFO]\r\nmodify=COMPONENT_LIST!Component103_iUD_Version!0\r\nmodify=A!B!C\r\n");
    ModifyUpdateInfo(m_machine, {m_tstrFile, m_tstrFile});
    EXPECT_EQ(Value(L"COMPONENT_LIST", L"Component103_iUD_Version"), BREVANT_WIDE_VERSION);
    EXPECT_EQ(Value(L"A", L"B"), L"C");
    EXPECT_EQ(CountTraced("@@@ *** FrameworkDeployAgent::ModifyUpdateInfo(A!B!C) "), 1) << "the space is part of it";
}

TEST_F(IniEditsTest, EditsShareTheirWaitForAFileInUseAndFailSeparately)
{
    std::string strRecords = "[UPDATE_INFO]\n";
    for (int i = 1; i <= 40; ++i) strRecords += "modify=S!K" + std::to_string(i) + "!new\n";
    Instruct(strRecords);
    const auto changed = [this] {
        const std::string strText = m_install.Read(L"UpdateInfo.ini").value_or("");
        int cChanged = strText.find(KzCommon::String::ToUtf8(BREVANT_WIDE_VERSION)) != std::string::npos;
        for (int i = 1; i <= 40; ++i) cChanged += strText.find("K" + std::to_string(i) + "=new") != std::string::npos;
        return cChanged;
    };
    // The number of attempts during which the file is in use, the code, and how many of the 41 edits succeed.
    constexpr int kForGood = 1'000'000;
    constexpr int kMost = static_cast<int>(kEditRepetitions);
    const std::tuple<const char*, int, DWORD, DWORD, int> rows[] = {
        {"free", 0, ERROR_SHARING_VIOLATION, FILE_ATTRIBUTE_NORMAL, 41},
        {"for a moment", 3, ERROR_SHARING_VIOLATION, FILE_ATTRIBUTE_NORMAL, 41},
        {"refused for a moment", 1, ERROR_ACCESS_DENIED, FILE_ATTRIBUTE_NORMAL, 41},
        {"slightly longer than the edits wait", kMost + 2, ERROR_SHARING_VIOLATION, FILE_ATTRIBUTE_NORMAL, 39},
        {"read-only", kForGood, ERROR_ACCESS_DENIED, FILE_ATTRIBUTE_READONLY, 0},
        {"for another reason", 5, ERROR_DISK_FULL, FILE_ATTRIBUTE_NORMAL, 36}};
    for (const auto& [szRow, cFailures, dwCode, dwAttributes, cChanged] : rows) {
        SCOPED_TRACE(szRow);
        ::SetFileAttributesW(m_install.Write(L"UpdateInfo.ini", "").c_str(), dwAttributes);
        m_trace.Clear();
        {
            SystemWatch watch(m_install.Path());
            watch.m_bHurry = true;
            watch.m_fault = [&, cLeft = cFailures](std::string_view strCall, auto&&) mutable {
                return strCall == "WritePrivateProfileStringW" && cLeft-- > 0 ? dwCode : ERROR_SUCCESS;
            };
            ModifyUpdateInfo(m_machine, {m_tstrFile, m_tstrFile});
            EXPECT_LE(watch.m_dwPausedMs, kEditRepetitions * KzCommon::Storage::kHeldPauseMs) << "together";
        }
        EXPECT_EQ(changed(), cChanged);
        EXPECT_EQ(CountTraced("!!! KzCommon::Storage::Ini::StoreValue() failed. Error code: " + std::to_string(dwCode)),
                  41 - cChanged);
        ::SetFileAttributesW(m_tstrFile.c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    {
        // A scanner opens the file for a moment after every change: in total longer than the edits wait.
        m_install.Write(L"UpdateInfo.ini", "");
        SystemWatch watch(m_install.Path());
        watch.m_bHurry = true;
        watch.m_fault = [&, cCalls = 0](std::string_view strCall, auto&&) mutable -> DWORD {
            return strCall == "WritePrivateProfileStringW" && ++cCalls % 4 != 0 ? ERROR_SHARING_VIOLATION
                                                                                : ERROR_SUCCESS;
        };
        ModifyUpdateInfo(m_machine, {m_tstrFile, m_tstrFile});
        EXPECT_EQ(changed(), 41);
    }
    // A reader that does not share the file for writing.
    m_install.Write(L"UpdateInfo.ini", "");
    const std::jthread reader = HoldForAMoment(L"UpdateInfo.ini");
    ModifyUpdateInfo(m_machine, {m_tstrFile, m_tstrFile});
    EXPECT_EQ(changed(), 41);
}
