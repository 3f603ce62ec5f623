#include "common/KzComn_XmlParser.h"
#include "common/KzComn_XmlWriter.h"
#include "support/Testing.h"

using namespace Storage;
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
    EXPECT_EQ(Rewritten("\xFF\xFE<\0r\0/\0>\0"s), kHead + "\n<r/>");
    EXPECT_EQ(Rewritten("<r>a\rb\r</r>\r"), kHead + "\n<r>a\nb\n</r>\n");
}

TEST(Xml, SingleByteEncodingsAreReadAndMultiByteOnesRefused)
{
    const std::tuple<const char*, const char*, const char*> rows[] = {
        // clang-format off
        {"ISO-8859-1", "\xFC&#65;", "\u00FCA"}, {"windows-1252", "\x80 \xE4", "\u20AC \u00E4"},
        {"Windows-1251", "\xC0", "\u0410"}, {"cp1250", "\xB9", "\u0105"}, {"KOI8-R", "\xC1", "\u0430"},
        {"koi8-u", "\xA4", "\u0454"}, {"iso-8859-15", "\xA4", "\u20AC"}, {"ISO-8859-2", "\xB1", "\u0105"},
        {"IBM850", "\x84", "\u00E4"}, {"cp437", "\x9C", "\u00A3"},
        {"windows-1253", "\xD2", nullptr},  // not a character in this encoding
        {"cp932", "a", nullptr}, {"cp65001", "a", nullptr}, {"cp0", "a", nullptr}, {"cp037", "a", nullptr},
        {"windows-", "a", nullptr}, {"windows-1252x", "a", nullptr}, {"windows--4", "a", nullptr},
        {"koi8", "a", nullptr}, {"iso-8859-99", "a", nullptr}, {"cp4294968548", "a", nullptr}};  // clang-format on
    for (const auto& [szEncoding, szText, szUtf8] : rows) {
        const std::string strDocument =
            "<?xml version=\"1.0\" encoding=\"" + std::string(szEncoding) + "\"?>\n<r>" + szText + "</r>";
        std::string strRewritten;
        EXPECT_EQ(CodeOf([&] { strRewritten = Rewritten(strDocument); }), szUtf8 ? 0 : ERROR_XML_PARSE_ERROR)
            << szEncoding;
        EXPECT_EQ(strRewritten, szUtf8 ? kHead + "\n<r>" + szUtf8 + "</r>" : "") << szEncoding;
    }
}

TEST(Xml, RefusesABadDocumentAndSaysWhere)
{
    for (const std::string& strDocument :
         {""s, "no document"s, "<r>\n  <a></b>\n</r>"s, "<r>\n<a>"s, "<r/>\n<r/>"s, "<r/>\ntext"s, "<r a='1' a='2'/>"s,
          "<r>&unknown;</r>"s, "<r>&#1;</r>"s, "<r>\n\xC3(</r>"s, "<r>\0</r>"s,
          "<?xml version='1.0' encoding='none'?>\n<r/>"s, "<!DOCTYPE r [<!ENTITY a \"a\">]>\n<r>&a;</r>"s,
          "<!DOCTYPE r SYSTEM \"file:///c:/windows/win.ini\"><r/>"s, Nested(9'000)}) {
        SCOPED_TRACE(strDocument.substr(0, 80));
        try {
            FAIL() << Rewritten(strDocument);
        } catch (Storage::Exception* pException) {
            const CaughtException caught(pException);
            const auto& told = dynamic_cast<const XmlException&>(*pException);
            EXPECT_EQ(told.ErrorCode(), DWORD{ERROR_XML_PARSE_ERROR});
            Trace(kTraceInfo, L"line %llu, column %llu: %s", told.Position().ullLine, told.Position().ullColumn,
                  told.Reason().c_str());
        }
    }
    EXPECT_EQ(Rewritten(Nested(XmlParser::kMaxLevels)), kHead + "\n" + Nested(XmlParser::kMaxLevels));
    EXPECT_EQ(CodeOf([] { Rewritten(std::string(XmlParser::kMaxBytes + 1, ' ')); }), ERROR_FILE_TOO_LARGE);
}

TEST(Xml, ElementsAreAddedUnderTheNamesThatCanBeReadAgain)
{
    for (const wchar_t* szGood :
         {L"a", L"_a-1.", L"a:b", L"Stra\u00dfe", L"\u00fcber", L"\u0416\u0434", L"\u65e5\u672c", L"e\u0301"}) {
        const auto document = XmlParser().ParseText("<r/>");
        document->GetRoot()->AddChild(szGood);
        const auto again = XmlParser().ParseText(XmlWriter::ToText(*document));
        EXPECT_TRUE(again->GetRoot()->FindChild(szGood)) << String::ToUtf8(szGood);
    }
    // Among them: a colon only, a sign, a leading combining accent, a name unknown to Expat, an unpaired surrogate.
    const auto document = XmlParser().ParseText("<r/>");
    for (const std::wstring& tstrBad :
         {L""s,        L"1a"s,     L"a b"s,      L" a"s,           L"a\n"s,        L"a>"s,
          L"-a"s,      L"a='b'"s,  L"a x='1'"s,  L"a/><b"s,        L"a><b/></a"s,  L"!--a--"s,
          L"?a?"s,     L"\u20ac"s, L"\u00d7"s,   L"\u0301e"s,      L"\ufeffa"s,    L"\xD83D\xDD11"s,
          L"a\xD800"s, L"a\0b"s,   L"\u00fc\0"s, L"\u00fc x='1'"s, L"\u00fc/><b"s, L"\u00fc><b/></\u00fc"s}) {
        EXPECT_EQ(CodeOf([&] { document->GetRoot()->AddChild(tstrBad); }), ERROR_BAD_ARGUMENTS)
            << String::ToUtf8(tstrBad);
    }
}

TEST(Xml, ElementsAreFoundAndChangedWithoutOtherChanges)
{
    const auto document =
        XmlParser().ParseText("<r>\n  <a A='1' a='2'>1<!-- kept --><i>-</i><![CDATA[2]]></a>\n\n  <b/>\n</r>");
    XmlElement* pRoot = document->GetRoot();
    XmlElement* pFirst = pRoot->FindChild(L"A");
    ASSERT_TRUE(pFirst);
    EXPECT_EQ(pFirst, pRoot->GetFirstChild());
    EXPECT_FALSE(pRoot->FindChild(L"i"));
    EXPECT_EQ(pFirst->GetAttribute(L"a") + pFirst->GetText(), L"212");
    EXPECT_EQ(pFirst->Position(), (XmlPosition{2, 3}));
    EXPECT_EQ(pFirst->FindChild(L"i")->Position(), (XmlPosition{2, 32}));
    EXPECT_EQ(pRoot->FindChild(L"b")->Position(), (XmlPosition{4, 3}));
    pFirst->SetText(L"new");
    pRoot->FindChild(L"b")->SetText(L"<b>");
    XmlElement& added = pRoot->AddChild(L"c").AddChild(L"d");
    added.SetAttribute(L"TYPE", L"x");
    added.RemoveAttributes(L"Type");
    for (const wchar_t* szType : {L"bool", L"int"}) added.SetAttribute(L"type", szType);
    EXPECT_EQ(added.Position(), XmlPosition{});
    const char szChanged[] =
        "\n<r>\n  <a A=\"1\" a=\"2\">new<!-- kept --><i>-</i></a>\n\n  <b>&lt;b&gt;</b>\n"
        "  <c><d type=\"int\"/></c>\n</r>";
    EXPECT_EQ(XmlWriter::ToText(*document), kHead + szChanged);
    for (const wchar_t* szBad : {L"\x1", L"\xD800", L"\xDC00x", L"\xFFFF"}) {
        EXPECT_EQ(CodeOf([&] { pRoot->SetText(szBad); }), ERROR_BAD_ARGUMENTS) << int{*szBad};
    }
}
