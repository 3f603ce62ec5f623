#include "config/ConfigProvider.h"
#include "support/Testing.h"

#include <json/reader.h>

using String::ToUtf8;

namespace {

constexpr DWORD kQuery = CConfigProvider::kQuery, kWrite = CConfigProvider::kWrite, kRefused = 0x10000008;
const wchar_t kTarget[] = L"new\\config.xml";
const std::wstring kFirstForm = L"AAECAwQFBgcICQoLdGJe4AdZrks2Rh0EI2eJX9yzAiygF72tD8ow";
const std::wstring kBoundForm = L"2:AAECAwQFBgcICQoLdGJe4AdZrks2Rh1oXsZIZ6EtYdZPO96QgKj7";  // for "/P/Secret"

/// JSON written with single quotes.
Json::Value FromText(std::string strJson)
{
    std::replace(strJson.begin(), strJson.end(), '\'', '"');
    Json::Value value;
    std::istringstream(strJson) >> value;
    return value;
}

std::string Document(const std::string& strRootContent)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Config>" + strRootContent + "</Config>";
}

class ConfigTest : public RegistryTest {
protected:
    ConfigTest()
    {
        WriteProduct(L"ProductPath", m_install.Path());
        StartSession();
        EXPECT_TRUE(m_protection.Open(Config::kStoreKey, m_dwError));
    }
    void StartSession()
    {
        EXPECT_EQ(m_provider.PreInitialize(), 0U);
        EXPECT_EQ(m_provider.Initialize(), 0U);
    }
    [[nodiscard]] std::wstring Protected(const std::wstring& tstrClear, const wchar_t* szPath = L"/P")
    {
        std::wstring tstrText;
        EXPECT_TRUE(m_protection.Protect(*Config::TagPath::Parse(szPath), tstrClear, tstrText, m_dwError));
        return tstrText;
    }
    [[nodiscard]] bool Unprotect(const std::wstring& tstrText, const wchar_t* szPath = L"/P")
    {
        return m_protection.Unprotect(*Config::TagPath::Parse(szPath), tstrText, m_clear, m_dwError);
    }
    /// Queries tags from an installed file, or writes them to one with the content `strDocument`.
    DWORD Send(DWORD dwMessage, const std::string& strDocument, Json::Value& data)
    {
        if (!strDocument.empty()) m_install.Write(dwMessage == kQuery ? L"config.xml" : kTarget, strDocument);
        Json::Value request = FromText("{'FileName':'config.xml'}");
        request["Data"] = data;
        request["FilePath"] = ToUtf8(m_install.PathOf(L"new"));
        const DWORD dwResult = m_provider.MessageProc(dwMessage, request);
        data = request["Data"];
        return dwResult;
    }
    [[nodiscard]] std::string Target() const { return m_install.Read(kTarget).value_or(""); }

    TempFolder m_install;
    RecordedTrace m_trace;
    CConfigProvider m_provider{m_machine};
    Config::ValueProtection m_protection;
    DWORD m_dwError = ERROR_SUCCESS;
    Config::Secret<std::wstring> m_clear;
};

}  // namespace

TEST_F(ConfigTest, ProtectedValuesCountForTheirTagOnly)
{
    // Files of installed products must stay readable: created with another implementation, nonce 00 01 ... 0B.
    const std::tuple<std::wstring, const wchar_t*, bool> rows[] = {
        {kFirstForm, L"/P/Secret", true},         {kFirstForm, L"/Other", true},
        {kBoundForm, L"/p//SECRET/", true},       {kBoundForm, L"/P/Secret2", false},
        {kBoundForm, L"/Secret", false},          {kBoundForm.substr(2), L"/P/Secret", false},
        {L"2:" + kFirstForm, L"/P/Secret", false}};
    for (const auto& [tstrText, szPath, bAccepted] : rows) {
        m_clear.value.clear();
        EXPECT_EQ(Unprotect(tstrText, szPath), bAccepted) << ToUtf8(tstrText) << " in " << ToUtf8(szPath);
        EXPECT_EQ(m_clear.value, bAccepted ? L"geheim \xD83D\xDD11" : L"");
    }
}

TEST_F(ConfigTest, ChangedProtectedValuesAreRefused)
{
    const std::wstring tstrText = Protected(L"secret");
    EXPECT_NE(tstrText, Protected(L"secret")) << "no two texts are alike";
    // The last character before "==" has unused bits.
    for (std::size_t uAt = 2; uAt + 3 < tstrText.size(); ++uAt) {
        std::wstring tstrChanged = tstrText;
        tstrChanged[uAt] = tstrChanged[uAt] == L'A' ? L'B' : L'A';
        EXPECT_FALSE(Unprotect(tstrChanged)) << uAt;
        EXPECT_EQ(m_dwError, 0xC000A002) << "the tag does not match";
    }
    const std::pair<std::wstring, DWORD> rows[] = {{tstrText.substr(6), 0xC000A002},
                                                   {tstrText.substr(0, 22), ERROR_INVALID_DATA},
                                                   {L"2:", ERROR_INVALID_DATA},
                                                   {L"3:" + tstrText, ERROR_INVALID_DATA}};
    for (const auto& [tstrBad, dwError] : rows) {
        EXPECT_FALSE(Unprotect(tstrBad)) << ToUtf8(tstrBad);
        EXPECT_EQ(m_dwError, dwError) << ToUtf8(tstrBad);
    }
    EXPECT_TRUE(m_clear.value.empty());
}

TEST_F(ConfigTest, QueryGivesTheValueTheDefaultOrNull)
{
    const std::tuple<std::string, const char*, const char*> rows[] = {
        // clang-format off
        {"<!-- --><a><b type='string'> x&amp;\xC3\xA4 </b></a>", "/A/B", " x&\xC3\xA4 "},
        {"<A><B>first</B><B>second</B></A><A><C>third</C></A>", "/A/B", "first"},
        {"<A/><A><C>third</C></A>", "/A/C", nullptr}, {"<A><B type='int'> -12\n</B></A>", "A//B", "-12"},
        {"<A><B type='bool'>1</B></A>", "/A/B", "1"}, {"<A><B/></A>", "/A/B", ""}, {"<A><B>x</B></A>", "/A", nullptr},
        {"<A>{protected}x</A>", "/A", "{clear}{protected}x"}, {"<A>{clear}x</A>", "/A", "{clear}{clear}x"},
        {"<A protected='1'/>", "/A", "{protected}"}, {"<A/>", "/proxysettings/ENABLE", "0"},
        {"<ProxySettings><Port>1</Port></ProxySettings>", "/ProxySettings/Port", "1"},
        {"", "/FeedbackServer/Address", "https://feedback.kazmere.example/qorvault/"},
        {"<A protected='1'>hunter2</A>", "/A", "refused"}, {"<A type='date'>1</A>", "/A", "refused"},
        {"<A type='int'>twelve</A>", "/A", "refused"}, {"<A type='int'>+1</A>", "/A", "refused"},
        {"<A type='int'>9223372036854775808</A>", "/A", "refused"}, {"<A type='bool'>true</A>", "/A", "refused"},
        {"<A type='int'/>", "/A", nullptr}, {"<A type='bool'>\n </A>", "/A", nullptr},
        {"<A type='int' protected='1'></A>", "/A", nullptr},
        {"<ProxySettings><Port type='int'/></ProxySettings>", "/ProxySettings/Port", "8080"}};
    // clang-format on
    for (const auto& [strContent, szTag, szValue] : rows) {
        SCOPED_TRACE(strContent + " " + szTag);
        const bool bRefused = szValue && szValue == std::string("refused");
        Json::Value data = FromText("{'other':'','" + std::string(szTag) + "':''}");
        EXPECT_EQ(Send(kQuery, Document(strContent + "<other>o</other>"), data), bRefused ? kRefused : 0U);
        EXPECT_EQ(data[szTag], bRefused ? Json::Value("") : szValue ? Json::Value(szValue) : Json::Value());
        EXPECT_EQ(data["other"], "o");
    }
    EXPECT_THAT(m_trace.Messages(), Each(Not(HasSubstr("hunter2"))));
}

TEST_F(ConfigTest, WriteReplacesValuesAndNothingElse)
{
    const std::string strBefore =
        "\n  <!-- kept --><E> </E><a z='1' type='int'>1</a>\n  <B><C>x</C>\n<C>2nd</C></B> <D type='bool'>0</D>\n";
    const std::tuple<const char*, std::string, const char*, DWORD> rows[] = {
        // clang-format off
        {"{'/A':'-5'}", ">1<", ">-5<", 0}, {"{'/b/c':'<new> '}", ">x<", ">&lt;new&gt; <", 0},
        {"{'/D':'1','/A':null}", ">0<", ">1<", 0}, {"{'/B/C':'{clear}{protected}x'}", ">x<", ">{protected}x<", 0},
        {"{'/D':'1','/A':'','/B':'x','/B/C/X':'x'}", ">0<", ">1<", kRefused},
        {"{'/D':'1','/A':5,'':'x','/B/C':'\\u0001'}", ">0<", ">1<", kRefused},
        {"{'/D':'1','/A b/C':'x','/A':'{protected}AAAA'}", ">0<", ">1<", kRefused},
        {"{'/New/Sub':'n'}", "</D>", "</D>\n  <New><Sub>n</Sub></New>", 0},
        {"{'/Stra\xC3\x9F""e':'n'}", "</D>", "</D>\n  <Stra\xC3\x9F""e>n</Stra\xC3\x9F""e>", 0},
        {"{'/ProxySettings/Port':'1'}", "</D>", "</D>\n  <ProxySettings><Port type='int'>1</Port></ProxySettings>", 0},
        {"{'/E/X':'n'}", "<E> <", "<E> <X>n</X><", 0},
        {"{'/A':'1','/b/c':'x','/D':null}", "", "", 0}};  // clang-format on
    for (const auto& [szData, strReplaced, szBy, dwResult] : rows) {
        SCOPED_TRACE(szData);
        Json::Value data = FromText(szData);
        EXPECT_EQ(Send(kWrite, Document(strBefore), data), dwResult);
        std::string strExpected = strBefore;
        strExpected.replace(strExpected.find(strReplaced), strReplaced.size(), szBy);
        // Without a change even the quotation marks stay.
        if (*szBy) std::replace(strExpected.begin(), strExpected.end(), '\'', '"');
        EXPECT_EQ(Target(), Document(strExpected));
    }
}

TEST_F(ConfigTest, ASecretIsMergedWithoutBeingSeenOrChangedTwice)
{
    const std::string strTag = "<P protected=\"1\">", strOld = ToUtf8(Protected(L"hunter2"));
    const std::string strNumber = ToUtf8(Protected(L"7", L"/N"));
    const std::string strShipped =
        Document(strTag + ToUtf8(Protected(L"shipped")) + "</P><C protected=\"1\"/><N>1</N>");
    Json::Value data = FromText("{'/P':'','/C':'','/T':'','/N':''}");
    const std::string strInstalled = "<P protected='1'>\n" + strOld + "\n</P><C>open</C><T type='bool'>1</T>" +
                                     "<N type='int' protected='1'>" + strNumber + "</N>";
    EXPECT_EQ(Send(kQuery, Document(strInstalled), data), 0U);
    EXPECT_EQ(data["/P"].asString(), "{protected}" + strOld);
    EXPECT_EQ(Send(kWrite, strShipped, data), 0U);
    const std::string strOnce = Target();
    EXPECT_THAT(strOnce, HasSubstr("<Config>" + strTag + strOld + "</P><C protected=\"1\">"));
    EXPECT_THAT(strOnce, EndsWith("=</C><N>7</N><T type=\"bool\">1</T></Config>"))
        << "encrypted, in clear, of the old type";
    EXPECT_EQ(Send(kWrite, "", data), 0U);
    EXPECT_EQ(Target(), strOnce) << "the encrypted value is the same";

    // Never written in clear without a request; refused after a modification.
    EXPECT_EQ(Send(kWrite, Document(""), data), 0U);
    EXPECT_THAT(Target(), HasSubstr(strTag + strOld + "</P>"));
    for (const std::string& strForged : {"2:AAAA" + strOld.substr(6), strNumber, strOld.substr(2)}) {
        data = FromText("{'/P':'{protected}" + strForged + "'}");
        EXPECT_EQ(Send(kWrite, strShipped, data), kRefused) << strForged;
        EXPECT_EQ(Target(), strShipped);
    }
    EXPECT_THAT(m_trace.Messages(), Each(Not(HasSubstr("hunter2"))));
}

TEST_F(ConfigTest, AProtectedValueOfTheFirstFormIsWrittenInTodays)
{
    const std::string strShipped = Document("<P protected='1'>" + ToUtf8(kFirstForm) + "</P>");
    Json::Value data = FromText("{'/P':''}");
    EXPECT_EQ(Send(kQuery, strShipped, data), 0U);
    EXPECT_EQ(Send(kWrite, strShipped, data), 0U);
    const std::string strOnce = Target();
    const std::size_t uText = strOnce.find("2:"), uEnd = strOnce.find("</P>");
    ASSERT_LT(uText, uEnd) << strOnce;
    EXPECT_TRUE(Unprotect(std::wstring(strOnce.begin() + uText, strOnce.begin() + uEnd)));
    EXPECT_EQ(m_clear.value, L"geheim \xD83D\xDD11");
    EXPECT_EQ(Send(kWrite, "", data), 0U);
    EXPECT_EQ(Target(), strOnce) << "written twice, it is the same";
}

TEST_F(ConfigTest, SecretsOfTheProgramAreNeverInClear)
{
    const std::pair<const char*, const char*> rows[] = {
        // clang-format off
        // the update's proxy settings, the result for the first one
        {"<Password/>", "<Password protected=\"1\">2:"},
        {"<Password>hunter2</Password>", "<Password protected=\"1\">2:"},
        {"<PASSWORD Protected='1' a='b'/>", "<PASSWORD a=\"b\" protected=\"1\">2:"},
        {"<Password protected='true'>x</Password>", "<Password protected=\"1\">2:"},
        {"<Password protected='0'/>", "<Password protected=\"1\">2:"},
        {"<Password>1</Password><Password protected='1'/>", "<Password protected=\"1\">2:"},
        {"<Password protected='1'/>", "<Password protected=\"1\">2:"},
        {"", "<Password protected=\"1\">2:"},
        // A setting that the program does not call secret is protected only if its author marked it.
        {"<P Protected='true'/>", "<P protected=\"1\">2:"},
        {"<P protected=' False '/>", "<P protected=\" False \">open<"}, {"<P protected=''/>", "<P protected=\"\">open<"}};
    // clang-format on
    const std::string strInstalled =
        "<Password>hunter2</Password><P protected='1'>" + ToUtf8(Protected(L"open", L"/ProxySettings/P")) + "</P>";
    for (const auto& [szShipped, szWritten] : rows) {
        SCOPED_TRACE(szShipped);
        m_trace.Clear();
        Json::Value data = FromText("{'/ProxySettings/Password':'','/ProxySettings/P':''}");
        EXPECT_EQ(Send(kQuery, Document("<ProxySettings>" + strInstalled + "</ProxySettings>"), data), 0U);
        EXPECT_THAT(data["/ProxySettings/Password"].asString(), StartsWith("{protected}2:"));
        EXPECT_EQ(Send(kWrite, Document("<ProxySettings>" + std::string(szShipped) + "</ProxySettings>"), data), 0U);
        EXPECT_THAT(Target(), AllOf(HasSubstr(szWritten), Not(HasSubstr("hunter2"))));
        EXPECT_THAT(m_trace.Messages(), Each(Not(HasSubstr("hunter2"))));
        EXPECT_EQ(Send(kQuery, Target(), data), 0U);
        const std::wstring tstrPassword = String::FromAnsi(data["/ProxySettings/Password"].asString());
        EXPECT_TRUE(Unprotect(tstrPassword.substr(11), L"/ProxySettings/Password"));
        EXPECT_EQ(m_clear.value, L"hunter2");
    }
}

TEST_F(ConfigTest, AfterAQueryOnlyWhatItFoundIsWritten)
{
    const std::string strShipped = Document("<A>a</A><ProxySettings><Port>3128</Port></ProxySettings>");
    const std::tuple<std::string, DWORD, const char*> rows[] = {
        // clang-format off
        {Document("<A>a</A>"), 0, "{'/A':'a','/ProxySettings/Port':'8080','/ProxySettings/Enable':'0'}"},
        {Document("<B>b</B>"), 0, "{'/A':null,'/ProxySettings/Port':'8080','/ProxySettings/Enable':'0'}"},
        {Document("<A type='int'>x</A>"), kRefused,
         "{'/A':'','/ProxySettings/Port':'8080','/ProxySettings/Enable':'0'}"},
        {"<Config", 0x10000006, "{'/A':'','/ProxySettings/Port':'','/ProxySettings/Enable':''}"}};
    // clang-format on
    for (const auto& [strInstalled, dwResult, szAnswer] : rows) {
        Json::Value data = FromText("{'/A':'','/ProxySettings/Port':'','/ProxySettings/Enable':''}");
        EXPECT_EQ(Send(kQuery, strInstalled, data), dwResult) << strInstalled;
        EXPECT_EQ(data, FromText(szAnswer)) << strInstalled;
        EXPECT_EQ(Send(kWrite, strShipped, data), 0U);
        EXPECT_EQ(Target(), strShipped) << strInstalled;
    }
    m_provider.Uninitialize();
    StartSession();
    Json::Value data = FromText("{'/A':'b'}");
    EXPECT_EQ(Send(kWrite, strShipped, data), 0U);
    EXPECT_THAT(Target(), HasSubstr("<A>b</A>")) << "without a query in the session";
}

TEST_F(ConfigTest, WithoutEncryptionNoSecretIsReadOrWritten)
{
    Json::Value data = FromText("{'/ProxySettings/Password':''}");
    SystemWatch watch(m_install.Path());
    watch.Fail("BCryptGenRandom", ERROR_NOT_READY);
    EXPECT_EQ(Send(kQuery, Document("<ProxySettings><Password>x</Password></ProxySettings>"), data), kRefused);
    watch.Fail("BCryptOpenAlgorithmProvider", ERROR_NOT_READY);
    EXPECT_EQ(m_provider.Initialize(), DWORD{Config::eNoProtection});
}

TEST_F(ConfigTest, FailuresHaveACodeAndKeepTheFile)
{
    const std::tuple<DWORD, const char*, DWORD> rows[] = {
        // clang-format off
        {0x15000000, "{'Data':{}}", 0x10000004}, {kQuery, "[]", 0x10000005}, {kQuery, "{'Data':''}", 0x10000005},
        {kWrite, "{'Data':{'/A':'2'},'FilePath':'','FileName':'config.xml'}", 0x10000005},
        {kWrite, "{'Data':{'/A':'2'},'FilePath':'new','FileName':'..\\\\config.xml'}", 0x10000005},
        {kWrite, "{'Data':{'/A':'2'},'FilePath':'C:\\\\none\\\\','FileName':'config.xml'}", 0x10000006}};
    // clang-format on
    for (const auto& [dwMessage, szRequest, dwResult] : rows) {
        Json::Value request = FromText(szRequest);
        EXPECT_EQ(m_provider.MessageProc(dwMessage, request), dwResult) << szRequest;
    }
    Json::Value data = FromText("{'/A':'2'}");
    ASSERT_TRUE(::SetFileAttributesW(m_install.Write(kTarget, "<r/>").c_str(), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(Send(kWrite, "", data), 0x10000007U);
    EXPECT_EQ(Target(), "<r/>");
    EXPECT_THAT(m_install.List(), ElementsAre(L"new\\", kTarget));
}
