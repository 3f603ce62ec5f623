#include "unit/check/CheckFixture.h"

#include "common/KzComn_XmlParser.h"

class TextRulesTest : public CheckTest {
protected:
    TextRulesTest()
        : CheckTest([](const LintContext& context, Report& report) {
              for (const auto pfnFamily : {CheckConfiguration, CheckShortcuts, CheckTexts}) pfnFamily(context, report);
          })
    {
    }

    const std::wstring m_tstrShare = L"Component\\p1\\Share\\";
};

TEST_F(TextRulesTest, XmlIsRefusedWhereTheProductRefusesIt)
{
    using KzCommon::Storage::XmlParser;
    const std::string strBlanks(XmlParser::kMaxBytes - 4, ' ');
    for (const auto& [szFile, strRule] : {std::pair(L"config", std::string("B062 ")), {L"qorshcut", "B080 "}}) {
        const Row rows[] = {
            {"<a>\n<Desktop/></a>", {}},
            {"<a>\n<b></a>", {strRule + "2:6"}},
            {"<a/>" + strBlanks + " ", {strRule + "0:0"}},
            {"<a/>" + strBlanks, {}},
        };
        Expect(rows, "", "", m_tstrShare + L"Setting\\" + szFile + L"_EN-US.xml");
    }
}

TEST_F(TextRulesTest, AnXmlFindingNamesTheTagThatIsOpen)
{
    const std::wstring tstrMismatch = L"mismatched tag: </Prt> of line 3 does not close <Port> of line 2";
    const std::pair<std::string, std::wstring> rows[] = {
        {"<a>\n<Port>\n</Prt></a>", tstrMismatch},
        {Utf16(L"<a>\n<Port>\n</Prt ></a>"), tstrMismatch},
        {"<a>\n<Port>\n", L"no element found: <Port> of line 2 is not closed"},
        {"<a>\n<Port>\n</Port>\n<b", L"unclosed token"},
    };
    for (const auto& [strText, tstrReason] : rows) {
        Write(m_tstrShare + L"Setting\\config.xml", strText);
        Report report;
        CheckConfiguration({Open(), {}, {}}, report);
        EXPECT_THAT(report.Sorted(), ElementsAre(Field(&Finding::tstrText, tstrReason)));
    }
}

TEST_F(TextRulesTest, AStringTableMustGiveTheProductsName)
{
    const std::wstring tstrName = L"S_STR_PRODUCT_NAME=Qorvault\n";
    // The largest buffer has 28672 characters; a section may use all but its two closing zeros and one more.
    const std::wstring tstrFill =
        L"[Global]\n" + tstrName + L"K=" + std::wstring(28672 - 3 - tstrName.size() - 3, L'x');
    const Row rows[] = {
        {Utf16(L"[Global]\n" + tstrName), {}},
        {Utf16(L"[Global]\nS_STR_PRODUCT_NAMES=Qorvault\n"), {"B090 2:1 S_STR_PRODUCT_NAME"}},
        {Utf16(L"[Global]\nS_STR_PRODUCT_NAME=\n"), {"B090 1:2"}},
        {Utf16(L"[Global]\nS_STR_PRODUCT_NAME='Qorvault'\n"), {"B093 2:20 Qorvault"}},
        {Utf16(L"[Global]\rS_STR_PRODUCT_NAME=Qorvault\r"), {"B100 1:9"}},
        {Utf16(L"[Globe]\n" + tstrName), {"B090 0:0"}},
        {"[Global]\nS_STR_PRODUCT_NAME=Qorvault f\xFCr\n", {"B090 2:30"}},
        {Utf16(tstrFill), {}},
        {Utf16(tstrFill + L"x"), {"B090 1:2"}},
    };
    const std::wstring tstrTable = m_tstrShare + L"Resource\\DE-DE\\StringTable.ini";
    Expect(rows, "", "", tstrTable);
    Write(tstrTable, "[Global]\nS_STR_PRODUCT_NAME=Qorvault\n");
    Write(L"Component\\r1\\EN-US\\StringTable.ini", "[X]\n");
    EXPECT_THAT(Findings(), ElementsAre("B090 0:0 Component\\r1\\EN-US\\StringTable.ini"));
}

TEST_F(TextRulesTest, ANotificationHasATitleAndAMessage)
{
    Write(m_tstrShare + L"Resource\\EN-US\\StringTable.ini", "[Global]\nS_STR_PRODUCT_NAME=Qorvault\n");
    const Row rows[] = {{"text=title\ntext=message\n", {}},
                        {"text=title\n", {"B091 1:2"}},
                        {"text=title\ntext=message\ntext=more\ntext=more\n", {"B091 4:1"}},
                        {"text=\"title\"\ntext=Press \"Yes\"\n", {"B093 2:6 title"}}};
    Expect(rows, "[RestartNotification_EN-US]\n");
}

TEST_F(TextRulesTest, ANewNameThatIsDueHasAStringTable)
{
    m_bWarnings = true;
    const std::string strQuestion = "[QOR_DIR]\nadd=C:\\a\n[RestartNotification_X]\ntext=a\ntext=b\n";
    const auto patch = [](const std::string& strValue) {
        return "[QOR_REGISTRY_PATCH]\nadd=software\\kazmere\\kzvlt\\!" + strValue +
               "\n[RestartNotification_X]\ntext=a\ntext=b\n";
    };
    const Row unknown[] = {
        {"[QOR_DIR]\nadd=C:\\a\n", {}},
        {strQuestion, {"warning B092 3:2"}},
        {patch("version!REG_SZ!3.8.0.1099"), {"B092 3:2"}},
        {patch("version!REG_SZ!3.8.0.1100"), {}},
        {patch("{2B7F61C4-9A0E-4F83-B5D2-6E18A4C0973B}!REG_SZ!{8E3D9A10-42F7-4B5C-A1E6-0D59C7B3F284}"), {}},
    };
    Expect(unknown);

    // The product is installed on this machine.
    m_optInstalled = m_update.MakeFolder(L"installed");
    WriteProduct(L"ProductPath", *m_optInstalled);
    WriteProduct(L"Version", L"3.8.0.1099");
    EXPECT_THAT(Lint(""), ElementsAre("B092 0:0"));
    EXPECT_THAT(Lint(patch("Version!REG_SZ!3.8.0.1100")), IsEmpty());
    WriteProduct(L"Language", L"ja-jp");
    EXPECT_THAT(Lint(strQuestion), IsEmpty());
    WriteProduct(L"Language", L"DE-DE");
    Write(L"installed\\Resource\\EN-US\\StringTable.ini", "");
    EXPECT_THAT(Lint(strQuestion), ElementsAre("B092 3:2")) << "no table of the product's language";
    m_languages = {L"EN-US"};
    EXPECT_THAT(Lint(strQuestion), IsEmpty());
    m_languages.clear();
    WriteProduct(L"ProductPath", L"C:\\elsewhere");
    EXPECT_THAT(Lint(strQuestion), IsEmpty()) << "any table, because the language is unknown";
    ::DeleteFileW(m_update.PathOf(L"installed\\Resource\\EN-US\\StringTable.ini").c_str());
    EXPECT_THAT(Lint(strQuestion), ElementsAre("warning B092 3:2"));
    Write(m_tstrShare + L"Resource\\FR-FR\\StringTable.ini", "[Global]\nS_STR_PRODUCT_NAME=Qorvault\n");
    EXPECT_THAT(Lint(strQuestion), IsEmpty());
}
