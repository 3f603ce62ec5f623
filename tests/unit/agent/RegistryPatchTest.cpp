#include "unit/agent/AgentFixture.h"

using ::testing::Contains;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

const wchar_t kKey[] = L"SOFTWARE\\X";

RawValue RawNumber(ULONGLONG ullNumber, DWORD dwType)
{
    return {dwType, std::string(reinterpret_cast<const char*>(&ullNumber), dwType == REG_QWORD ? 8 : 4)};
}
RawValue Dword(DWORD dwNumber)
{
    return RawNumber(dwNumber, REG_DWORD);
}
RawValue Qword(ULONGLONG ullNumber)
{
    return RawNumber(ullNumber, REG_QWORD);
}

std::wstring RecordOf(std::size_t cch)
{
    std::wstring tstrRecord = L"SOFTWARE\\X!Name!REG_SZ!";
    return tstrRecord.append(cch - tstrRecord.size(), L'v');
}

struct Row {
    const char* szWhat;
    DWORD dwOp;
    std::wstring tstrRecord;
    std::optional<RawValue> before;
    std::optional<RawValue> after;
    const char* szTraced;  // a line that must be there
};

class RegistryPatchTest : public AgentTest {};

// One record each on the value "Name".
TEST_F(RegistryPatchTest, RecordsDoWhatTheirOperationAndTypeSay)
{
    const std::wstring tstrName = L"SOFTWARE\\X!Name!";
    const Row rows[] = {
        {"text is expanded",
         op_reg_add,
         tstrName + L"REG_SZ!{InstalledDir}|{InstalledDir}",
         {},
         RawText(m_install.Path() + L"|" + m_install.Path()),
         "[Leave] FrameworkDeployAgent::PatchReg()..."},
        {"add replaces", op_reg_add, tstrName + L"REG_DWORD!7", RawText(L"old"), Dword(7),
         "@@@ To write registry key: HKEY_LOCAL_MACHINE:SOFTWARE\\X:Name:7"},
        {"64 bits", op_reg_add, tstrName + L"REG_QDWORD!81985529216486895", {}, Qword(0x0123456789ABCDEF), ""},
        {"hexadecimal is no number", op_reg_add, tstrName + L"REG_DWORD!0x10", {}, Dword(0), ""},
        {"a sign is no number", op_reg_add, tstrName + L"REG_DWORD!-1", {}, Dword(0), ""},
        {"a blank is no number", op_reg_add, tstrName + L"REG_DWORD! 5", {}, Dword(0), ""},
        {"33 bits do not fit a DWORD", op_reg_add, tstrName + L"REG_DWORD!4294967296", {}, Dword(0), ""},
        {"there: left alone", op_reg_add_if_non, tstrName + L"REG_DWORD!5", Dword(9), Dword(9),
         "@@@ To check if registry key exists: HKEY_LOCAL_MACHINE:SOFTWARE\\X:Name:5"},
        {"missing: added",
         op_reg_add_if_non,
         tstrName + L"REG_DWORD!5",
         {},
         Dword(5),
         "!!! KzCommon::Storage::Reg::StoreValue(SOFTWARE\\XName=5)"},
        {"the DWORD sentinel counts as missing", op_reg_add_if_non, tstrName + L"REG_DWORD!5", Dword(0xEB0A1234),
         Dword(5), ""},
        {"the QWORD sentinel counts as missing", op_reg_add_if_non, tstrName + L"REG_QDWORD!5",
         Qword(0xEB0A1234EB0A1234), Qword(5), "!!! KzCommon::Storage::Reg::StoreValue(SOFTWARE\\XName=5)"},
        {"half the QWORD sentinel does not", op_reg_add_if_non, tstrName + L"REG_QDWORD!5", Qword(0xEB0A1234),
         Qword(0xEB0A1234), ""},
        {"the text sentinel counts as missing", op_reg_add_if_non, tstrName + L"REG_SZ!new",
         RawText(L"!!default_val!REG_SZ!!"), RawText(L"new"),
         "!!! KzCommon::Storage::Reg::StoreValue(SOFTWARE\\XName=new)"},
        {"another type is rewritten", op_reg_add_if_non, tstrName + L"REG_DWORD!5", RawText(L"text"), Dword(5), ""},
        {"delete",
         op_reg_delete,
         L"SOFTWARE\\X!Name",
         Dword(1),
         {},
         "@@@ To delete registry key: HKEY_LOCAL_MACHINE:SOFTWARE\\X:Name"},
        {"nothing to delete",
         op_reg_delete,
         L"SOFTWARE\\X!Name",
         {},
         {},
         "!!! KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=2"},
        {"multi text is not supported",
         op_reg_add_if_non,
         tstrName + L"REG_MULTI_SZ!a",
         {},
         {},
         "!!! KzCommon::Storage::Reg::StoreValue(). REG_MULTI_SZ not supported yet"},
        {"empty fields vanish",
         op_reg_add,
         L"SOFTWARE\\X!!REG_SZ!v",
         {},
         {},
         "!!! KzCommon::Storage::Reg::StoreValue(). incorrect data type"},
        {"types are exact",
         op_reg_add,
         tstrName + L"reg_sz!v",
         {},
         {},
         "!!! KzCommon::Storage::Reg::StoreValue(). incorrect data type"},
        {"too many fields",
         op_reg_add,
         tstrName + L"REG_SZ!v!w",
         {},
         RawText(L"v"),
         "!!! PatchReg() field index>3, too many fields, ignore remaining ones"},
        {"no field at all",
         op_reg_delete,
         L"!!!",
         {},
         {},
         "!!! KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=a0"},
        {"1023 characters", op_reg_add, RecordOf(1023), {}, RawText(RecordOf(1023).substr(23)), ""},
        {"1024 characters", op_reg_add, RecordOf(1024), {}, {}, "!!! PatchReg(tszData==empty || tszData.size()>1023)"},
        {"empty", op_reg_add, L"", {}, {}, "!!! PatchReg(tszData==empty || tszData.size()>1023)"},
        {"below the operations", 99, tstrName + L"REG_SZ!v", {}, {}, "!!! PatchReg(op<op_begin_reg || op>op_end_reg)"},
        {"above the operations", 103, tstrName + L"REG_SZ!v", {}, {}, "!!! PatchReg(op<op_begin_reg || op>op_end_reg)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szWhat);
        ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
        if (row.before) WriteRaw(HKEY_LOCAL_MACHINE, kKey, L"Name", *row.before);
        m_trace.Clear();
        m_agent.PatchReg(row.dwOp, row.tstrRecord);
        EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, kKey, L"Name"), row.after);
        EXPECT_THAT(m_trace.Messages(), Contains(::testing::HasSubstr(row.szTraced)));
    }
}

TEST_F(RegistryPatchTest, DefaultNamesTheUnnamedValueOnlyWhenAddingAMissingOne)
{
    m_agent.PatchReg(op_reg_add_if_non, L"SOFTWARE\\X!(Default)!REG_SZ!unnamed");
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, kKey, L""), RawText(L"unnamed"));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, kKey, L"(Default)"), std::nullopt);
    m_agent.PatchReg(op_reg_add, L"SOFTWARE\\X!(Default)!REG_SZ!literal");
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, kKey, L"(Default)"), RawText(L"literal"));
    m_agent.PatchReg(op_reg_delete, L"SOFTWARE\\X!(Default)");
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, kKey, L"(Default)"), std::nullopt);
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, kKey, L""), RawText(L"unnamed"));
}

TEST_F(RegistryPatchTest, PassesRunInTheirOwnOrderAndBadRecordsStopNothing)
{
    WriteRaw(HKEY_LOCAL_MACHINE, kKey, L"A", RawText(L"before"));
    Instruct(
        "[QOR_REGISTRY_PATCH]\r\nadd_if_non=SOFTWARE\\X!A!REG_SZ!late\r\nadd=SOFTWARE\\X!A!REG_SZ!added\r\n"
        "add=" +
        std::string(1024, 'x') +
        "\r\nadd=SOFTWARE\\X\r\njunk\r\nDELETE=SOFTWARE\\X!A\r\n"
        "delete=SOFTWARE\\X!A\r\nadd=SOFTWARE\\X!B!REG_DWORD!1\r\n");
    m_agent.PatchRegistry();
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, kKey, L"A"), RawText(L"added"));
    EXPECT_EQ(ReadRaw(HKEY_LOCAL_MACHINE, kKey, L"B"), Dword(1));
    std::vector<std::string> passes;
    for (const std::string& strLine : m_trace.Messages()) {
        if (strLine.starts_with("@@@ ***")) passes.push_back(strLine);
    }
    const std::string strName = "@@@ *** FrameworkDeployAgent::PatchRegistry() - ";
    EXPECT_THAT(passes,
                ::testing::ElementsAre(strName + "delete: [SOFTWARE\\X!A]",
                                       strName + "add: [SOFTWARE\\X!A!REG_SZ!added]", StartsWith(strName + "add: [xxx"),
                                       strName + "add: [SOFTWARE\\X]", strName + "add: [SOFTWARE\\X!B!REG_DWORD!1]",
                                       strName + "add: [SOFTWARE\\X!A!REG_SZ!late]"));
}

TEST_F(RegistryPatchTest, AMissingSectionIsOneFailureLine)
{
    m_agent.PatchRegistry();
    EXPECT_THAT(
        m_trace.Messages(),
        ::testing::ElementsAre(".w. [Enter] FrameworkDeployAgent::PatchRegistry()...",
                               "!!! *** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x00000002]",
                               ".w. [Leave] FrameworkDeployAgent::PatchRegistry()..."));
}

}  // namespace
