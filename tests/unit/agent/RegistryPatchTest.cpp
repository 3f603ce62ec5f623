#include "unit/agent/AgentFixture.h"

#include "agent/RegistryPatch.h"

namespace {

const wchar_t kKey[] = L"SOFTWARE\\X";
const std::string kStore = "!!! KzCommon::Storage::Reg::StoreValue";

class RegistryPatchTest : public AgentTest {
protected:
    static std::optional<RawValue> Value(const wchar_t* szName) { return ReadRaw(HKEY_LOCAL_MACHINE, kKey, szName); }
};

}  // namespace

// One record for the value "Name" per row: operation, record after the key, value before and after, a trace line.
TEST_F(RegistryPatchTest, RecordsDoWhatTheirOperationAndTypeSay)
{
    using Optional = std::optional<RawValue>;
    const RawValue qwordHalf = RawNumber(0xEB0A1234, REG_QWORD),
                   qwordSentinel = RawNumber(0xEB0A1234EB0A1234, REG_QWORD);
    const std::wstring tstrDir = m_install.Path(), tstrTooLongKey = std::wstring(256, L'k') + L"!Name!REG_";
    const std::string strTooLong = "!!! PatchReg(tszData==empty || tszData.size()>1023)";
    const std::string strAdd = "@@@ To write registry key: HKEY_LOCAL_MACHINE:SOFTWARE\\X:Name:";
    const std::string strAddIfNon = "@@@ To check if registry key exists: HKEY_LOCAL_MACHINE:SOFTWARE\\X:Name:";
    const std::tuple<DWORD, std::wstring, Optional, Optional, std::string> rows[] = {
        // clang-format off
        {op_reg_add, L"!Name!REG_SZ!{InstalledDir}|{InstalledDir}", {}, RawText(tstrDir + L"|" + tstrDir), strAdd},
        {op_reg_add, L"!Name!REG_DWORD!7", RawText(L"old"), RawNumber(7), strAdd + "7"},
        {op_reg_add, L"!Name!REG_QDWORD!81985529216486895", {}, RawNumber(0x0123456789ABCDEF, REG_QWORD), strAdd},
        {op_reg_add, L"!Name!REG_DWORD!0x10", {}, RawNumber(0), strAdd},
        {op_reg_add, L"!Name!REG_DWORD!4294967296", {}, RawNumber(0), strAdd},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", RawNumber(9), RawNumber(9), strAddIfNon + "5"},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", {}, RawNumber(5), kStore + "(SOFTWARE\\XName=5)"},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", RawNumber(0xEB0A1234), RawNumber(5), strAddIfNon},
        {op_reg_add_if_non, L"!Name!REG_QDWORD!5", qwordSentinel, RawNumber(5, REG_QWORD), strAddIfNon},
        {op_reg_add_if_non, L"!Name!REG_QDWORD!5", qwordHalf, qwordHalf, strAddIfNon},
        {op_reg_add_if_non, L"!Name!REG_SZ!n", RawText(L"!!default_val!REG_SZ!!"), RawText(L"n"),
         kStore + "(SOFTWARE\\XName=n)"},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", RawText(L"text"), RawNumber(5), strAddIfNon},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", RawValue{REG_BINARY, "\1\2\3"}, RawNumber(5), strAddIfNon},
        {op_reg_add_if_non, L"!Name!REG_SZ!n", RawNumber(7), RawText(L"n"), strAddIfNon},
        {op_reg_add, tstrTooLongKey + L"SZ!n", {}, {}, kStore + "() failed. Win32ErrorCode="},
        {op_reg_add, tstrTooLongKey + L"QDWORD!5", {}, {}, kStore + "(REG_QDWORD) failed. Win32ErrorCode="},
        {op_reg_delete, L"!Name", RawNumber(1), {}, "@@@ To delete registry key: HKEY_LOCAL_MACHINE:SOFTWARE\\X:Name"},
        {op_reg_delete, L"!Name", {}, {}, kStore + "() failed. Win32ErrorCode=2"},
        {op_reg_add_if_non, L"!Name!REG_MULTI_SZ!a", {}, {}, kStore + "(). REG_MULTI_SZ not supported yet"},
        {op_reg_add, L"!!REG_SZ!v", {}, {}, kStore + "(). incorrect data type"},
        {op_reg_add, L"!Name!reg_sz!v", {}, {}, kStore + "(). incorrect data type"},
        {op_reg_add, L"!Name!REG_SZ!v!w", {}, RawText(L"v"),
         "!!! PatchReg() field index>3, too many fields, ignore remaining ones"},
        {op_reg_add, L"\\!Name!REG_SZ!v", {}, RawText(L"v"), "@@@ To write registry key: "},
        {op_reg_add, L"!Name!REG_SZ!" + std::wstring(1000, L'v'), {}, RawText(std::wstring(1000, L'v')), strAdd},
        {op_reg_add, L"!Name!REG_SZ!" + std::wstring(1001, L'v'), {}, {}, strTooLong},
        {99, L"!Name!REG_SZ!v", {}, {}, "!!! PatchReg(op<op_begin_reg || op>op_end_reg)"},
        {103, L"!Name!REG_SZ!v", {}, {}, "!!! PatchReg(op<op_begin_reg || op>op_end_reg)"}};
    // clang-format on
    for (const auto& [dwOp, tstrRecord, before, after, strTraced] : rows) {
        SCOPED_TRACE(std::to_string(dwOp) + String::ToUtf8(tstrRecord));
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
        if (before) WriteRaw(HKEY_LOCAL_MACHINE, kKey, L"Name", *before);
        m_trace.Clear();
        PatchReg(m_run, dwOp, kKey + tstrRecord);
        EXPECT_EQ(Value(L"Name"), after);
        EXPECT_THAT(m_trace.Messages(), Contains(HasSubstr(strTraced)));
    }
    PatchReg(m_run, op_reg_add, L"");
    PatchReg(m_run, op_reg_delete, L"!!!");
    PatchReg(m_run, op_reg_add, L"\\SOFTWARE\\X!Name!REG_SZ!v");
    EXPECT_EQ(CountTraced(strTooLong), 1);
    EXPECT_EQ(CountTraced(kStore + "() failed. Win32ErrorCode=a0"), 1);
    EXPECT_EQ(CountTraced(kStore + "() failed. Win32ErrorCode=a1"), 1) << "the key begins with a backslash";
}

TEST_F(RegistryPatchTest, DefaultNamesTheUnnamedValueOnlyWhenAddingAMissingOne)
{
    PatchReg(m_run, op_reg_add_if_non, L"SOFTWARE\\X!(Default)!REG_SZ!unnamed");
    EXPECT_EQ(Value(L"(Default)"), std::nullopt);
    PatchReg(m_run, op_reg_add_if_non, L"SOFTWARE\\X!(Default)!REG_SZ!unnamed again");
    PatchReg(m_run, op_reg_add, L"SOFTWARE\\X!(Default)!REG_SZ!literal");
    EXPECT_EQ(Value(L"(Default)"), RawText(L"literal"));
    PatchReg(m_run, op_reg_delete, L"SOFTWARE\\X!(Default)");
    EXPECT_EQ(Value(L"(Default)"), std::nullopt);
    EXPECT_EQ(Value(L""), RawText(L"unnamed again"));
}
