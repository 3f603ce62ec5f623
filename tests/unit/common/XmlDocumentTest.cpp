#include "common/KzComn_XmlParser.h"
#include "common/KzComn_XmlWriter.h"

#include <gtest/gtest.h>

using namespace KzCommon::Storage;
using namespace std::string_literals;

namespace {

const std::string kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

std::string Rewritten(const std::string& strDocument)
{
    return XmlWriter::ToText(*XmlParser().ParseText(strDocument));
}

std::string Nested(std::size_t cLevels)
{
    std::string strText;
    for (std::size_t u = 0; u < cLevels; ++u) strText = "<a>" + strText + "</a>";
    return strText;
}

}  // namespace

TEST(Xml, RoundTripKeepsEverythingButDeclarationAndQuoting)
{
    for (const char* szUnchanged : {
             "\n<r/>",
             "\n<!-- first --><?style a=\"b\"?>\n<r a=\"2\" B=\"1\" b=\"\"/>\n<!-- last -->\n<?end?>\n",
             "\n<r>one <b>1</b>\n\n\t<a></a>\n<!-- - four --> <?p i?>five <b/>\n</r>",
             "\n<r><![CDATA[<&>\"']]> <![CDATA[]]></r>",
             "\n<r a=\"&#9;&#10;&#13; &lt;&gt;&amp;&quot;&apos;\">&#13;\n\t&lt;&gt;&amp;&quot;&apos;</r>",
             "\r\n<r>\r\n  <a>x&#13;\r\n</a><!--\r\n--><![CDATA[\r\n]]>\r\n</r>\r\n",
             "\n<r>gr\xC3\xBC\xC3\x9F \xE6\x97\xA5 \xF0\x9F\x94\x91<n\xC3\xA4me/></r>",
         }) {
        EXPECT_EQ(Rewritten(kHead + szUnchanged), kHead + szUnchanged);
    }
    EXPECT_EQ(Rewritten("\xEF\xBB\xBF<?xml version='1.0' standalone='yes'?>\n<r  a = 'x\"y'  ></r >"),
              kHead + "\n<r a=\"x&quot;y\"></r>");
    EXPECT_EQ(Rewritten("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><r>\xFC&#65;</r>"), kHead + "\n<r>\u00FCA</r>");
    EXPECT_EQ(Rewritten("\xFF\xFE<\0r\0/\0>\0"s), kHead + "\n<r/>");
}

TEST(Xml, RefusesABadDocumentAndSaysWhere)
{
    const std::tuple<std::string, ULONGLONG, ULONGLONG> rows[] = {
        // clang-format off
        {"", 1, 1}, {"no document", 1, 1}, {"<r>\n  <a></b>\n</r>", 2, 8}, {"<r>\n<a>", 2, 4}, {"<r/>\n<r/>", 2, 1},
        {"<r/>\ntext", 2, 1}, {"<r a='1' a='2'/>", 1, 10}, {"<r>&unknown;</r>", 1, 4}, {"<r>&#1;</r>", 1, 4},
        {"<r>\n\xC3(</r>", 2, 1}, {"<r>\0</r>"s, 1, 4}, {"<?xml version='1.0' encoding='none'?>\n<r/>", 1, 31},
        {"<!DOCTYPE r [<!ENTITY a \"a\">]>\n<r>&a;</r>", 1, 13},
        {"<!DOCTYPE r SYSTEM \"file:///c:/windows/win.ini\"><r/>", 1, 48},
        {Nested(9'000), 1, 3 * XmlParser::kMostLevels + 1}};  // clang-format on
    for (const auto& [strDocument, ullLine, ullColumn] : rows) {
        SCOPED_TRACE(strDocument.substr(0, 80));
        try {
            FAIL() << Rewritten(strDocument);
        } catch (Exception* pException) {
            const std::unique_ptr<Exception> caught(pException);
            const XmlPosition at = dynamic_cast<const XmlException&>(*pException).Position();
            EXPECT_EQ(pException->ErrorCode(), DWORD{ERROR_XML_PARSE_ERROR});
            EXPECT_EQ(std::pair(at.ullLine, at.ullColumn), std::pair(ullLine, ullColumn));
        }
    }
    EXPECT_EQ(Rewritten(Nested(XmlParser::kMostLevels)), kHead + "\n" + Nested(XmlParser::kMostLevels));
    DWORD dwCode = 0;
    EXPECT_FALSE(Guarded(&dwCode, [] { Rewritten(std::string(XmlParser::kMostBytes + 1, ' ')); }));
    EXPECT_EQ(dwCode, DWORD{ERROR_FILE_TOO_LARGE});
}

TEST(Xml, ElementsAreFoundAndChangedWithoutTouchingWhatSurroundsThem)
{
    const auto document =
        XmlParser().ParseText("<r>\n  <a A='1' a='2'>1<!-- kept --><i>-</i><![CDATA[2]]></a>\n\n  <b/>\n</r>");
    XmlElement* pRoot = document->GetRoot();
    XmlElement* pFirst = pRoot->FindChild(L"A");
    ASSERT_TRUE(pFirst && pFirst == pRoot->GetFirstChild() && !pRoot->FindChild(L"i"));
    EXPECT_EQ(pFirst->GetAttribute(L"a") + pFirst->GetText(), L"212");
    pFirst->SetText(L"new");
    pRoot->FindChild(L"b")->SetText(L"<b>");
    pRoot->AddChild(L"c").AddChild(L"d").SetAttribute(L"type", L"int");
    const char szChanged[] =
        "\n<r>\n  <a A=\"1\" a=\"2\">new<!-- kept --><i>-</i></a>\n\n  <b>&lt;b&gt;</b>\n"
        "  <c><d type=\"int\"/></c>\n</r>";
    EXPECT_EQ(XmlWriter::ToText(*document), kHead + szChanged);
    for (const wchar_t* szBad : {L"", L"1a", L"a b", L"a>", L"-a", L"a:b"}) EXPECT_FALSE(IsXmlName(szBad)) << szBad;
    for (const wchar_t* szBad : {L"\x1", L"\xD800", L"\xDC00x", L"\xFFFF"}) EXPECT_FALSE(IsXmlText(szBad));
    EXPECT_FALSE(Guarded(nullptr, [&] { pRoot->AddChild(L"a b"); }) ||
                 Guarded(nullptr, [&] { pRoot->SetText(L"\x1"); }));
}
