#include "unit/check/CheckFixture.h"

#include "common/KzComn_XmlParser.h"

class TextRulesTest : public CheckTest {
protected:
    /// Findings about one file of the product package's shared part.
    [[nodiscard]] std::vector<std::string> LintFile(const std::wstring& tstrName, const std::string& strBytes) const
    {
        Write(L"Component\\p1\\Share\\" + tstrName, strBytes);
        std::vector<std::string> findings = Lint("[QOR_DIR]\nadd=C:\\a\n[QOR_FILE]\ndelete=C:\\a\\b\n");
        for (std::string& strFinding : findings) strFinding = strFinding.substr(0, strFinding.find(" Component"));
        return findings;
    }
};

TEST_F(TextRulesTest, XmlIsRefusedWhereTheProductRefusesIt)
{
    using KzCommon::Storage::XmlParser;
    const auto nested = [](unsigned cLevels) {
        std::string strText;
        for (unsigned u = 0; u < cLevels; ++u) strText += "<a>";
        for (unsigned u = 0; u < cLevels; ++u) strText += "</a>";
        return strText;
    };
    const std::string strBlanks(XmlParser::kMaxBytes - 4, ' ');
    const std::pair<std::string, std::string> rows[] = {
        {"<a>\n<b/></a>", ""},
        {"<a>\n<b></a>", "2:6"},
        {"<!DOCTYPE a>\n<a/>", "1:12"},
        {nested(XmlParser::kMaxLevels), ""},
        {nested(XmlParser::kMaxLevels + 1), "1:3001"},
        {"<a/>" + strBlanks, ""},
        {"<a/>" + strBlanks + " ", "0:0"},
    };
    for (const auto& [strText, strPlace] : rows) {
        using Strings = std::vector<std::string>;
        const std::string strShown = strText.substr(0, 30);
        EXPECT_EQ(strPlace.empty() ? Strings{} : Strings{"B062 " + strPlace},
                  LintFile(L"Setting\\config_EN-US.xml", strText))
            << strShown;
        Write(L"Component\\p1\\Share\\Setting\\config_EN-US.xml", "<a/>");
        EXPECT_EQ(strPlace.empty() ? Strings{} : Strings{"B080 " + strPlace},
                  LintFile(L"Setting\\qorshcut_EN-US.xml", strText))
            << strShown;
        Write(L"Component\\p1\\Share\\Setting\\qorshcut_EN-US.xml", "<a/>");
    }
}

TEST_F(TextRulesTest, AStringTableMustGiveTheProductsName)
{
    const std::wstring tstrName = L"S_STR_PRODUCT_NAME=Qorvault\n";
    // Of the largest buffer, 28672 characters, all but its two closing zeros and one more may be used.
    const std::wstring tstrFill =
        L"[Global]\n" + tstrName + L"K=" + std::wstring(28672 - 3 - tstrName.size() - 3, L'x');
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {Utf16(L"[Global]\n" + tstrName), {}},
        {Utf16(L"[Global]\nS_STR_PRODUCT_NAMES=Qorvault\n"), {"B090 2:1"}},
        {Utf16(L"[Global]\nS_STR_PRODUCT_NAME=\n"), {"B090 1:2"}},
        {Utf16(L"[Globe]\n" + tstrName), {"B090 0:0"}},
        {"[Global]\nS_STR_PRODUCT_NAME=Qorvault f\xFCr\n", {"B090 2:30"}},
        {Utf16(tstrFill), {}},
        {Utf16(tstrFill + L"x"), {"B090 1:2"}},
    };
    for (const auto& [strText, findings] : rows) {
        EXPECT_EQ(findings, LintFile(L"Resource\\DE-DE\\StringTable.ini", strText)) << strText.substr(0, 60);
    }
    Write(L"Component\\r1\\EN-US\\StringTable.ini", "[X]\n");
    EXPECT_THAT(LintFile(L"Resource\\DE-DE\\StringTable.ini", Utf16(L"[Global]\n" + tstrName)),
                ElementsAre("B090 0:0"));
}

TEST_F(TextRulesTest, ANotificationHasATitleAndAMessage)
{
    const std::string strClean = "[QOR_DIR]\nadd=C:\\a\n[QOR_FILE]\ndelete=C:\\a\\b\n[RestartNotification_EN-US]\n";
    EXPECT_THAT(Lint(strClean + "text=title\ntext=message\n"), IsEmpty());
    EXPECT_THAT(Lint(strClean + "text=title\n"), ElementsAre("B091 5:2"));
}
