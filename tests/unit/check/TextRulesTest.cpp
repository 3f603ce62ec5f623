#include "unit/check/CheckFixture.h"

#include "common/KzComn_XmlParser.h"

class TextRulesTest : public CheckTest {
protected:
    TextRulesTest()
        : CheckTest([](const Subject& subject, Report& report) {
              for (const auto pfnFamily : {CheckConfiguration, CheckShortcuts, CheckTexts}) pfnFamily(subject, report);
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
            {"<a>\n<b/></a>", {}},
            {"<a>\n<b></a>", {strRule + "2:6"}},
            {"<a/>" + strBlanks + " ", {strRule + "0:0"}},
            {"<a/>" + strBlanks, {}},
        };
        Expect(rows, "", "", m_tstrShare + L"Setting\\" + szFile + L"_EN-US.xml");
    }
}

TEST_F(TextRulesTest, AStringTableMustGiveTheProductsName)
{
    const std::wstring tstrName = L"S_STR_PRODUCT_NAME=Qorvault\n";
    // Of the largest buffer, 28672 characters, all but its two closing zeros and one more may be used.
    const std::wstring tstrFill =
        L"[Global]\n" + tstrName + L"K=" + std::wstring(28672 - 3 - tstrName.size() - 3, L'x');
    const Row rows[] = {
        {Utf16(L"[Global]\n" + tstrName), {}},
        {Utf16(L"[Global]\nS_STR_PRODUCT_NAMES=Qorvault\n"), {"B090 2:1 S_STR_PRODUCT_NAME"}},
        {Utf16(L"[Global]\nS_STR_PRODUCT_NAME=\n"), {"B090 1:2"}},
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
    const Row rows[] = {{"text=title\ntext=message\n", {}}, {"text=title\n", {"B091 1:2"}}};
    Expect(rows, "[RestartNotification_EN-US]\n");
}
