#include "common/KzComn_XmlParser.h"
#include "common/KzComn_XmlWriter.h"
#include "support/TempFolder.h"

#include <gmock/gmock.h>

using namespace KzCommon::Storage;
using ::testing::ElementsAre;

namespace {

const std::string kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

std::unique_ptr<XmlDocument> Parse(std::string_view strBytes)
{
    return XmlParser().ParseText(strBytes);
}

/// What `action` throws; null when it returns.
template <class Action>
std::unique_ptr<Exception> Caught(Action&& action)
{
    try {
        action();
    } catch (Exception* pException) {
        return std::unique_ptr<Exception>(pException);
    }
    return nullptr;
}

std::string Nested(std::size_t cLevels)
{
    std::string strText;
    for (std::size_t u = 0; u < cLevels; ++u) strText += "<a>";
    for (std::size_t u = 0; u < cLevels; ++u) strText += "</a>";
    return strText;
}

}  // namespace

TEST(XmlRoundTrip, KeepsEverythingButDeclarationAndQuoting)
{
    const std::string kUnchanged[] = {
        "<r/>",
        "\n<r></r>\n",
        "\n<!-- first --><?style a=\"b\"?>\n<r a=\"2\" B=\"1\" b=\"\"/>\n<!-- last -->\n<?end?>\n",
        "\n<r>\n  <b>1</b>\n\n\t<a>2</a>\n  <b/>\n</r>",
        "<r>one <b>two</b> three<!-- - four --> <?p i?>five</r>",
        "<r><![CDATA[<&>\"']]> <![CDATA[]]></r>",
        "<r a=\"&#9;&#10;&#13; &lt;&gt;&amp;&quot;&apos;\">&#13;\n\t&lt;&gt;&amp;&quot;&apos;</r>",
        "\r\n<r>\r\n  <a>x&#13;\r\n</a><!--\r\n--><![CDATA[\r\n]]>\r\n</r>\r\n",
        "<r>gr\xC3\xBC\xC3\x9F \xE6\x97\xA5 \xF0\x9F\x94\x91<n\xC3\xA4me/></r>",
    };
    for (const std::string& strRow : kUnchanged) {
        // A line end follows the declaration in any case.
        const std::string strDocument = kHead + (strRow[0] == '<' ? "\n" : "") + strRow;
        EXPECT_EQ(XmlWriter::ToText(*Parse(strDocument)), strDocument);
    }
    const struct {
        const char* szRead;
        const char* szWritten;
    } kChanged[] = {
        {"<r/>", "\n<r/>"},
        {"\xEF\xBB\xBF<?xml version='1.0' standalone='yes'?>\n<r  a = 'x\"y'  ></r >", "\n<r a=\"x&quot;y\"></r>"},
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<r>\xFC&#65;</r>",
         "\n<r>\xC3\xBC"
         "A</r>"},
        {"<?xml version=\"1.0\"?>\r<r>\ra\nb</r>", "\n<r>\na\nb</r>"},
    };
    for (const auto& row : kChanged) EXPECT_EQ(XmlWriter::ToText(*Parse(row.szRead)), kHead + row.szWritten);

    const std::wstring tstrWide = L"\xFEFF<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<r>\x65E5</r>\r\n";
    const std::string strWide(reinterpret_cast<const char*>(tstrWide.data()), tstrWide.size() * 2);
    EXPECT_EQ(XmlWriter::ToText(*Parse(strWide)), kHead + "\r\n<r>\xE6\x97\xA5</r>\r\n");
}

TEST(XmlParser, RefusesABadDocumentAndSaysWhere)
{
    const struct {
        std::string strDocument;
        ULONGLONG ullLine, ullColumn;
    } kRows[] = {
        {"", 1, 1},
        {"   \n", 2, 1},
        {"no document", 1, 1},
        {"<r>\n  <a></b>\n</r>", 2, 8},
        {"<r>\n<a>", 2, 4},
        {"<r/>\n<r/>", 2, 1},
        {"<r/>\ntext", 2, 1},
        {"<r a='1' a='2'/>", 1, 10},
        {"<r>&unknown;</r>", 1, 4},
        {"<r>&#1;</r>", 1, 4},
        {"<r>\n\xC3(</r>", 2, 1},
        {std::string("<r>\0</r>", 8), 1, 4},
        {"<?xml version=\"1.0\" encoding=\"windows-9999\"?>\n<r/>", 1, 31},
        {"<?xml version=\"1.0\"?>\n<!DOCTYPE r [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>\n<r>&b;</r>",
         2, 13},
        {"<!DOCTYPE r SYSTEM \"file:///c:/windows/win.ini\"><r/>", 1, 48},
        {Nested(100'000), 1, 3 * XmlParser::kMostLevels + 1},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.strDocument.substr(0, 80));
        const std::unique_ptr<Exception> caught = Caught([&] { static_cast<void>(Parse(row.strDocument)); });
        const auto* pException = dynamic_cast<const XmlException*>(caught.get());
        ASSERT_NE(pException, nullptr);
        EXPECT_EQ(pException->ErrorCode(), static_cast<DWORD>(ERROR_XML_PARSE_ERROR));
        EXPECT_FALSE(pException->Reason().empty());
        EXPECT_EQ(pException->Position().ullLine, row.ullLine);
        EXPECT_EQ(pException->Position().ullColumn, row.ullColumn);
    }
    EXPECT_EQ(XmlWriter::ToText(*Parse(Nested(XmlParser::kMostLevels))), kHead + "\n" + Nested(XmlParser::kMostLevels));
    const std::unique_ptr<Exception> tooLarge =
        Caught([] { static_cast<void>(Parse(std::string(XmlParser::kMostBytes + 1, ' '))); });
    ASSERT_TRUE(tooLarge);
    EXPECT_EQ(tooLarge->ErrorCode(), static_cast<DWORD>(ERROR_FILE_TOO_LARGE));
}

TEST(XmlElement, IsWalkedByElementsOnly)
{
    const auto document = Parse(
        "<!-- c --><Root>\n<!-- c -->x<Desk Ä='1' a='2' A='3'>t<i>-</i><![CDATA[&]]>u</Desk><desk/>\n</Root><!-- c "
        "-->");
    const XmlElement* pRoot = document->GetRoot();
    const XmlElement* pFirst = pRoot->GetFirstChild();
    const XmlElement* pSecond = pFirst->GetNextSibling();
    EXPECT_TRUE(pFirst->IsNamed(L"dESK"));
    EXPECT_FALSE(pFirst->IsNamed(L"Desktop"));
    EXPECT_EQ(pFirst->GetName(), L"Desk");
    EXPECT_EQ(pFirst->GetAttribute(L"A"), L"3");
    EXPECT_EQ(pFirst->GetAttribute(L"Missing"), L"");
    EXPECT_EQ(pFirst->GetText(), L"t&u");
    EXPECT_EQ(pRoot->FindChild(L"DESK"), pFirst);
    EXPECT_EQ(pRoot->FindChild(L"i"), nullptr);
    EXPECT_EQ(pSecond->GetParent(), pRoot);
    EXPECT_EQ(pSecond->GetNextSibling(), nullptr);
    EXPECT_EQ(pSecond->GetFirstChild(), nullptr);
    EXPECT_EQ(pRoot->GetParent(), nullptr);
    EXPECT_EQ(pRoot->GetNextSibling(), nullptr);
}

TEST(XmlElement, IsChangedWithoutTouchingWhatSurroundsIt)
{
    const auto document = Parse("<r>\n  <a>1<!-- kept --><![CDATA[2]]></a>\n\n  <b/>\n</r>");
    XmlElement* pRoot = document->GetRoot();
    pRoot->FindChild(L"a")->SetText(L"new");
    pRoot->FindChild(L"b")->SetText(L"<b>");
    pRoot->AddChild(L"c").AddChild(L"d").SetAttribute(L"type", L"int");
    EXPECT_EQ(pRoot->FindChild(L"b")->GetNextSibling(), pRoot->FindChild(L"c"));
    EXPECT_EQ(XmlWriter::ToText(*document),
              kHead + "\n<r>\n  <a>new<!-- kept --></a>\n\n  <b>&lt;b&gt;</b>\n  <c><d type=\"int\"/></c>\n</r>");

    for (const wchar_t* szName : {L"", L"1a", L"a b", L"a>", L"-a", L"a:b"}) {
        const auto caught = Caught([&] { pRoot->AddChild(szName); });
        ASSERT_TRUE(caught) << szName;
        EXPECT_EQ(caught->ErrorCode(), static_cast<DWORD>(ERROR_BAD_ARGUMENTS));
    }
    for (const wchar_t* szText : {L"\x1", L"\xD800", L"\xDC00x", L"\xD800x", L"\xFFFF"}) {
        EXPECT_TRUE(Caught([&] { pRoot->SetText(szText); }));
    }
}

TEST(XmlElement, TreesOfAnyDepthAreWrittenAndTakenDown)
{
    XmlDocument document;
    XmlElement* pDeepest = &document.Content();
    for (int i = 0; i < 100'000; ++i) pDeepest = &pDeepest->AppendElement(L"a", {});
    pDeepest->SetEndTag(true);
    EXPECT_EQ(XmlWriter::ToText(document), kHead + "\n" + Nested(100'000));
}

TEST(XmlFile, IsReplacedWholeOrLeftAsItIs)
{
    const TempFolder folder;
    const std::wstring tstrFile = folder.Write(L"config.xml", "<r/>");
    const auto document = XmlParser().ParseFile(tstrFile);
    document->GetRoot()->SetText(L"1");

    ASSERT_TRUE(::SetFileAttributesW(tstrFile.c_str(), FILE_ATTRIBUTE_HIDDEN));
    XmlWriter::WriteFile(*document, tstrFile);
    EXPECT_EQ(folder.Read(L"config.xml"), kHead + "\n<r>1</r>");
    EXPECT_TRUE(::GetFileAttributesW(tstrFile.c_str()) & FILE_ATTRIBUTE_HIDDEN);

    document->GetRoot()->SetText(L"2");
    ASSERT_TRUE(::SetFileAttributesW(tstrFile.c_str(), FILE_ATTRIBUTE_READONLY));
    const struct {
        std::wstring tstrPath;
        DWORD dwError;
    } kRows[] = {
        {tstrFile, ERROR_ACCESS_DENIED},
        {folder.PathOf(L"missing.xml"), ERROR_FILE_NOT_FOUND},
        {folder.PathOf(L"missing\\config.xml"), ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : kRows) {
        const auto caught = Caught([&] { XmlWriter::WriteFile(*document, row.tstrPath); });
        ASSERT_TRUE(caught);
        EXPECT_EQ(caught->ErrorCode(), row.dwError);
    }
    EXPECT_EQ(folder.Read(L"config.xml"), kHead + "\n<r>1</r>");
    EXPECT_THAT(folder.List(), ElementsAre(L"config.xml"));

    for (const std::wstring& tstrPath : {std::wstring(), folder.PathOf(L"missing.xml")}) {
        const auto caught = Caught([&] { static_cast<void>(XmlParser().ParseFile(tstrPath)); });
        const auto* pException = dynamic_cast<const XmlException*>(caught.get());
        ASSERT_NE(pException, nullptr);
        EXPECT_EQ(pException->ErrorCode(),
                  static_cast<DWORD>(tstrPath.empty() ? ERROR_BAD_ARGUMENTS : ERROR_FILE_NOT_FOUND));
        EXPECT_EQ(pException->Position().ullLine, 0U);
    }
}
