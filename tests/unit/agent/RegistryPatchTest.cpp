#include "unit/agent/AgentFixture.h"

#include "agent/RegistryPatch.h"

namespace {

const wchar_t kKey[] = L"SOFTWARE\\X";

class RegistryPatchTest : public AgentTest {
protected:
    static std::optional<RawValue> Value(const wchar_t* szName) { return ReadRaw(HKEY_LOCAL_MACHINE, kKey, szName); }
};

}  // namespace

// One record for the value "Name" per row: operation, record after the key, value before and after.
TEST_F(RegistryPatchTest, RecordsDoWhatTheirOperationAndTypeSay)
{
    using Optional = std::optional<RawValue>;
    const RawValue qwordHalf = RawNumber(0xEB0A1234, REG_QWORD),
                   qwordSentinel = RawNumber(0xEB0A1234EB0A1234, REG_QWORD);
    const std::wstring tstrDir = m_install.Path(), tstrTooLongKey = std::wstring(256, L'k') + L"!Name!REG_";
    const std::tuple<DWORD, std::wstring, Optional, Optional> rows[] = {
        // clang-format off
        {op_reg_add, L"!Name!REG_SZ!{InstalledDir}|{InstalledDir}", {}, RawText(tstrDir + L"|" + tstrDir)},
        {op_reg_add, L"!Name!REG_DWORD!7", RawText(L"old"), RawNumber(7)},
        {op_reg_add, L"!Name!REG_QDWORD!81985529216486895", {}, RawNumber(0x0123456789ABCDEF, REG_QWORD)},
        {op_reg_add, L"!Name!REG_DWORD!0x10", {}, RawNumber(0)},
        {op_reg_add, L"!Name!REG_DWORD!4294967296", {}, RawNumber(0)},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", RawNumber(9), RawNumber(9)},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", {}, RawNumber(5)},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", RawNumber(0xEB0A1234), RawNumber(5)},
        {op_reg_add_if_non, L"!Name!REG_QDWORD!5", qwordSentinel, RawNumber(5, REG_QWORD)},
        {op_reg_add_if_non, L"!Name!REG_QDWORD!5", qwordHalf, qwordHalf},
        {op_reg_add_if_non, L"!Name!REG_SZ!n", RawText(L"!!default_val!REG_SZ!!"), RawText(L"n")},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", RawText(L"text"), RawNumber(5)},
        {op_reg_add_if_non, L"!Name!REG_DWORD!5", RawValue{REG_BINARY, "\1\2\3"}, RawNumber(5)},
        {op_reg_add_if_non, L"!Name!REG_SZ!n", RawNumber(7), RawText(L"n")},
        {op_reg_add, tstrTooLongKey + L"SZ!n", {}, {}},
        {op_reg_add, tstrTooLongKey + L"DWORD!5", {}, {}}, {op_reg_add, tstrTooLongKey + L"QDWORD!5", {}, {}},
        {op_reg_delete, L"!Name", RawNumber(1), {}},
        {op_reg_delete, L"!Name", {}, {}},
        {op_reg_add_if_non, L"!Name!REG_MULTI_SZ!a", {}, {}},
        {op_reg_add, L"!!REG_SZ!v", {}, {}},
        {op_reg_add, L"!Name!reg_sz!v", {}, {}},
        {op_reg_add, L"!Name!REG_SZ!v!w", {}, RawText(L"v")},
        {op_reg_add, L"\\!Name!REG_SZ!v", {}, RawText(L"v")},
        {op_reg_add, L"!Name!REG_SZ!" + std::wstring(1000, L'v'), {}, RawText(std::wstring(1000, L'v'))},
        {op_reg_add, L"!Name!REG_SZ!" + std::wstring(1001, L'v'), {}, {}},
        {99, L"!Name!REG_SZ!v", {}, {}},
        {103, L"!Name!REG_SZ!v", {}, {}}};
    // clang-format on
    for (const auto& [dwOp, tstrRecord, before, after] : rows) {
        SCOPED_TRACE(std::to_string(dwOp) + String::ToUtf8(tstrRecord));
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
        if (before) WriteRaw(HKEY_LOCAL_MACHINE, kKey, L"Name", *before);
        PatchReg(m_run, dwOp, kKey + tstrRecord);
        EXPECT_EQ(Value(L"Name"), after);
    }
    PatchReg(m_run, op_reg_add, L"");
    PatchReg(m_run, op_reg_delete, L"!!!");
    PatchReg(m_run, op_reg_add, L"\\SOFTWARE\\X!Name!REG_SZ!v");  // a key that begins with a backslash
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
