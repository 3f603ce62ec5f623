#include "common/Frwk_Utility.h"
#include "common/KzComn_String.h"
#include "config/ConfigProvider.h"
#include "support/RecordedTrace.h"
#include "support/RegistryFixture.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>
#include <json/reader.h>
#include <json/writer.h>

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

constexpr char kHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

/// JSON written with single quotes.
Json::Value FromText(std::string strJson)
{
    std::replace(strJson.begin(), strJson.end(), '\'', '"');
    Json::Value value;
    std::istringstream(strJson) >> value;
    return value;
}

std::string ToText(const Json::Value& value)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    std::string strJson = Json::writeString(builder, value);
    std::replace(strJson.begin(), strJson.end(), '"', '\'');
    return strJson;
}

class ConfigProviderTest : public RegistryTest {
protected:
    ConfigProviderTest()
    {
        WriteRaw(HKEY_LOCAL_MACHINE, Frwk::Utility::kProductKey, L"ProductPath", RawText(m_install.Path()));
        EXPECT_EQ(m_provider.PreInitialize(), 0U);
        EXPECT_EQ(m_provider.Initialize(), 0U);
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_TRUE(m_protection.Open(Config::kStoreKey, dwError));
    }

    [[nodiscard]] std::string Protected(const wchar_t* szClear)
    {
        std::wstring tstrText;
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_TRUE(m_protection.Protect(szClear, tstrText, dwError));
        return KzCommon::String::ToUtf8(tstrText);
    }
    [[nodiscard]] std::string Unprotected(const std::string& strText)
    {
        Config::Secret<std::wstring> clear;
        DWORD dwError = ERROR_SUCCESS;
        EXPECT_TRUE(m_protection.Unprotect(std::wstring(strText.begin(), strText.end()), clear, dwError)) << strText;
        return KzCommon::String::ToUtf8(clear.value);
    }

    /// Queries tags out of the installed file.
    DWORD Query(Json::Value& data, const std::string& strRootContent)
    {
        m_install.Write(L"config.xml", "<Config>" + strRootContent + "</Config>");
        Json::Value request;
        request["Data"] = data;
        const DWORD dwResult = m_provider.MessageProc(CConfigProvider::kQuery, request);
        data = request["Data"];
        return dwResult;
    }
    /// Writes tags into the file "new\config.xml".
    DWORD Write(const Json::Value& data)
    {
        Json::Value request;
        request["Data"] = data;
        request["FilePath"] = KzCommon::String::ToUtf8(m_install.PathOf(L"new"));
        request["FileName"] = "config.xml";
        return m_provider.MessageProc(CConfigProvider::kWrite, request);
    }
    void SetTarget(const std::string& strRootContent) const
    {
        m_install.Write(L"new\\config.xml", kHead + ("<Config>" + strRootContent + "</Config>"));
    }
    /// What stands in the target's root; the whole file when that is not as expected.
    [[nodiscard]] std::string Target() const
    {
        const std::string strBefore = std::string(kHead) + "<Config>";
        const std::string strFile = m_install.Read(L"new\\config.xml").value_or("");
        if (!strFile.starts_with(strBefore) || !strFile.ends_with("</Config>")) return strFile;
        return strFile.substr(strBefore.size(), strFile.size() - strBefore.size() - 9);
    }
    void ExpectTraceWithout(const std::string& strSecret) const
    {
        EXPECT_THAT(m_trace.Messages(), Each(Not(HasSubstr(strSecret))));
    }

    TempFolder m_install;
    RecordedTrace m_trace;
    CConfigProvider m_provider;
    Config::ValueProtection m_protection;
};

}  // namespace

TEST_F(ConfigProviderTest, QueryGivesTheValueTheDefaultOrNull)
{
    constexpr DWORD kRefused = 0x10000008;
    const struct {
        const char* szContent;
        const char* szTag;
        const char* szValue;
        DWORD dwResult = 0;
    } rows[] = {
        {"<A><B>x</B></A>", "/A/B", "'x'"},
        {"<!-- --><a><b type='string'> x&amp;\xC3\xA4 </b></a>", "/A/B", "' x&\\u00e4 '"},
        {"<A><B>first</B><B>second</B></A><A><C>third</C></A>", "/A/B", "'first'"},
        {"<A/><A><C>third</C></A>", "/A/C", "null"},
        {"<A><B type='int'> -12\n</B></A>", "A//B", "'-12'"},
        {"<A><B type='bool'>1</B></A>", "/A/B", "'1'"},
        {"<A><B/></A>", "/A/B", "''"},
        {"<A>{protected}x</A>", "/A", "'{clear}{protected}x'"},
        {"<A>{clear}x</A>", "/A", "'{clear}{clear}x'"},
        {"<A protected='1'/>", "/A", "'{protected}'"},
        {"<A protected='1'>hunter2</A>", "/A", "null", kRefused},
        {"<A type='int'>twelve</A>", "/A", "null", kRefused},
        {"<A type='int'>9223372036854775808</A>", "/A", "null", kRefused},
        {"<A type='int'>+1</A>", "/A", "null", kRefused},
        {"<A type='bool'>true</A>", "/A", "null", kRefused},
        {"<A type='date'>1</A>", "/A", "null", kRefused},
        {"<A><B>x</B></A>", "/A", "null"},
        {"<A/>", "/", "null"},
        {"<A/>", "", "null"},
        {"<A/>", "/proxysettings/ENABLE", "'0'"},
        {"<ProxySettings><Port type='int'>1</Port></ProxySettings>", "/ProxySettings/Port", "'1'"},
        {"", "/FeedbackServer/Address", "'https://feedback.kazmere.example/qorvault/'"},
        {"", "/FeedbackServer", "null"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.szContent) + " " + row.szTag);
        Json::Value data = FromText("{'other':'','" + std::string(row.szTag) + "':''}");
        EXPECT_EQ(Query(data, row.szContent + std::string("<other>o</other>")), row.dwResult);
        EXPECT_EQ(ToText(data[row.szTag]), row.szValue);
        EXPECT_EQ(data["other"], "o");
    }
    ExpectTraceWithout("hunter2");
}

TEST_F(ConfigProviderTest, WriteReplacesValuesAndNothingElse)
{
    constexpr DWORD kRefused = 0x10000008;
    const std::string strBefore =
        "\n  <!-- kept --><a z='1' type=\"int\">1</a>\n  <B><C>'x'</C>\n<C>2nd</C></B> <D type=\"bool\">0</D>\n";
    const std::string strAfterRewrite =  // what a replaced file looks like
        "\n  <!-- kept --><a z=\"1\" type=\"int\">1</a>\n  <B><C>&apos;x&apos;</C>\n<C>2nd</C></B> <D "
        "type=\"bool\">0</D>\n";
    const struct {
        const char* szData;
        const char* szReplaced;
        const char* szBy;
        DWORD dwResult = 0;
    } rows[] = {
        {"{'/A':'-5'}", ">1<", ">-5<"},
        {"{'/b/c':'<new> '}", "&apos;x&apos;", "&lt;new&gt; "},
        {"{'/D':'1','/A':null}", ">0<", ">1<"},
        {"{'/D':'1','/A':'','/B':'x','/B/C/X':'x'}", ">0<", ">1<", kRefused},
        {"{'/D':'1','/A':5,'':'x','/B/C':'\\u0001'}", ">0<", ">1<", kRefused},
        {"{'/D':'1','/A b/C':'x','/A':'{protected}AAAA'}", ">0<", ">1<", kRefused},
        {"{'/B/C':'{clear}{protected}x'}", "&apos;x&apos;", "{protected}x"},
        {"{'/New/Sub':'n'}", "</D>", "</D>\n  <New><Sub>n</Sub></New>"},
        {"{'/ProxySettings/Port':'1'}", "</D>", "</D>\n  <ProxySettings><Port type=\"int\">1</Port></ProxySettings>"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.szData);
        SetTarget(strBefore);
        EXPECT_EQ(Write(FromText(row.szData)), row.dwResult);
        std::string strExpected = strAfterRewrite;
        strExpected.replace(strExpected.find(row.szReplaced), strlen(row.szReplaced), row.szBy);
        EXPECT_EQ(Target(), strExpected);
    }
    // Nothing changes: not even the quotation marks.
    for (const char* szData : {"{}", "{'/A':null}", "{'/A':'1','/b/c':'\\u0027x\\u0027'}"}) {
        SetTarget(strBefore);
        ASSERT_TRUE(::SetFileAttributesW(m_install.PathOf(L"new\\config.xml").c_str(), FILE_ATTRIBUTE_READONLY));
        EXPECT_EQ(Write(FromText(szData)), 0U);
        EXPECT_EQ(Target(), strBefore);
        ASSERT_TRUE(::SetFileAttributesW(m_install.PathOf(L"new\\config.xml").c_str(), FILE_ATTRIBUTE_NORMAL));
    }
}

TEST_F(ConfigProviderTest, ANewElementHasTheTypeThatTheInstalledOneHas)
{
    Json::Value data = FromText("{'/A':''}");
    EXPECT_EQ(Query(data, "<A type='bool'>1</A>"), 0U);
    SetTarget("");
    EXPECT_EQ(Write(data), 0U);
    EXPECT_EQ(Target(), "<A type=\"bool\">1</A>");
}

TEST_F(ConfigProviderTest, ASecretIsMergedWithoutBeingSeenOrChangedTwice)
{
    const std::string strOld = Protected(L"hunter2");
    const std::string strShipped = Protected(L"shipped");
    const std::string strContent =
        "<P protected='1'>\n" + strOld + "\n</P><C>clear</C><N type='int' protected='1'>" + Protected(L"7") + "</N>";
    Json::Value data = FromText("{'/P':'','/C':'','/N':''}");
    EXPECT_EQ(Query(data, strContent), 0U);
    EXPECT_EQ(data["/P"].asString(), "{protected}" + strOld);
    EXPECT_THAT(ToText(data), Not(HasSubstr("hunter2")));

    const std::string strProtectedTag = "<P protected=\"1\">";
    SetTarget(strProtectedTag + strShipped + "</P><C protected=\"1\"/><N type=\"int\">1</N>");
    EXPECT_EQ(Write(data), 0U);
    const std::string strOnce = Target();
    EXPECT_THAT(strOnce, StartsWith(strProtectedTag + strOld + "</P><C protected=\"1\">"));
    EXPECT_THAT(strOnce, HasSubstr("<N type=\"int\">7</N>"));
    const std::size_t uClear = strOnce.find("<C protected=\"1\">") + 17;
    EXPECT_EQ(Unprotected(strOnce.substr(uClear, strOnce.find("</C>") - uClear)), "clear");

    EXPECT_EQ(Write(data), 0U);
    EXPECT_EQ(Target(), strOnce);

    // Never into a file in clear without being told to; refused when it is no longer what it was.
    SetTarget("");
    EXPECT_EQ(Write(data), 0U);
    EXPECT_THAT(Target(), HasSubstr(strProtectedTag + strOld + "</P>"));
    SetTarget(strProtectedTag + strShipped + "</P>");
    data["/P"] = "{protected}AAAA" + strOld.substr(4);
    EXPECT_EQ(Write(data), 0x10000008U);
    EXPECT_THAT(Target(), HasSubstr(strProtectedTag + strShipped + "</P>"));
    ExpectTraceWithout("hunter2");
}

TEST_F(ConfigProviderTest, AFailedQueryBlanksNothing)
{
    for (const char* szInstalled : {"", "<Config><A>x</B></Config>"}) {
        m_install.Write(L"config.xml", szInstalled);
        Json::Value request = FromText("{'Data':{'/A':'','/ProxySettings/Enable':''}}");
        EXPECT_EQ(m_provider.MessageProc(CConfigProvider::kQuery, request), 0x10000006U);
        EXPECT_EQ(ToText(request), "{'Data':{'/A':null,'/ProxySettings/Enable':null}}");
        SetTarget("<A>1</A>");
        EXPECT_EQ(Write(request["Data"]), 0U);
        EXPECT_EQ(Target(), "<A>1</A>");
    }
}

TEST_F(ConfigProviderTest, WhatCannotBeDoneIsAFailureCodeAndLeavesTheFile)
{
    const struct {
        DWORD dwMessage;
        const char* szRequest;
        DWORD dwResult;
    } rows[] = {
        {0x15000000, "{'Data':{}}", 0x10000004},
        {0x15000001, "null", 0x10000005},
        {0x15000001, "[]", 0x10000005},
        {0x15000001, "{'Data':''}", 0x10000005},
        {0x15000002, "{'Data':{'/A':'2'}}", 0x10000005},
        {0x15000002, "{'Data':{'/A':'2'},'FilePath':1,'FileName':'config.xml'}", 0x10000005},
        {0x15000002, "{'Data':{'/A':'2'},'FilePath':'','FileName':'config.xml'}", 0x10000005},
        {0x15000002, "{'Data':{'/A':'2'},'FilePath':'new','FileName':'..\\\\config.xml'}", 0x10000005},
        {0x15000002, "{'Data':{'/A':'2'},'FilePath':'C:\\\\none\\\\','FileName':'config.xml'}", 0x10000006},
    };
    for (const auto& row : rows) {
        Json::Value request = FromText(row.szRequest);
        EXPECT_EQ(m_provider.MessageProc(row.dwMessage, request), row.dwResult) << row.szRequest;
    }
    SetTarget("<A>1</A>");
    const std::wstring tstrTarget = m_install.PathOf(L"new\\config.xml");
    ASSERT_TRUE(::SetFileAttributesW(tstrTarget.c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(Write(FromText("{'/A':'2'}")), 0x10000007U);
    EXPECT_EQ(Target(), "<A>1</A>");
    EXPECT_THAT(m_install.List(), ::testing::ElementsAre(L"new\\", L"new\\config.xml"));

    m_provider.Uninitialize();
    EXPECT_EQ(Write(FromText("{}")), 0x10000001U);
    EXPECT_EQ(m_provider.Initialize(), 0x10000001U);
    EXPECT_TRUE(Config::IsFailure(0x10000001) && !Config::IsFailure(0) && !Config::IsFailure(0x20000001));
}
