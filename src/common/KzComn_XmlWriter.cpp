#include "common/KzComn_XmlWriter.h"

#include "common/KzComn_String.h"
#include "common/KzComn_XmlException.h"

#include <utility>
#include <vector>

namespace KzCommon::Storage {

namespace {

constexpr std::wstring_view kDeclaration = L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

class Output {
public:
    explicit Output(bool bCrLf) : m_tstrText(kDeclaration), m_tstrLineEnd(bCrLf ? L"\r\n" : L"\n") {}

    void StartTag(const XmlElement& element)
    {
        m_tstrText.append(L"<").append(element.GetName());
        for (const XmlAttribute& attribute : element.Attributes()) {
            m_tstrText.append(L" ").append(attribute.tstrName).append(L"=\"");
            Escaped(attribute.tstrValue, true);
            m_tstrText += L'"';
        }
        m_tstrText += IsEmptyTag(element) ? L"/>" : L">";
    }

    void EndTag(const XmlElement& element)
    {
        if (!IsEmptyTag(element)) m_tstrText.append(L"</").append(element.GetName()).append(L">");
    }

    void Node(const XmlNode& node)
    {
        switch (node.eKind) {
            case XmlNode::Kind::eElement: break;  // the walk writes its tags
            case XmlNode::Kind::eText: Escaped(node.tstrText, false); break;
            case XmlNode::Kind::eCData: Verbatim(L"<![CDATA[", node.tstrText, L"]]>"); break;
            case XmlNode::Kind::eComment: Verbatim(L"<!--", node.tstrText, L"-->"); break;
            case XmlNode::Kind::eInstruction:
                m_tstrText.append(L"<?").append(node.tstrTarget);
                Verbatim(node.tstrText.empty() ? L"" : L" ", node.tstrText, L"?>");
                break;
        }
    }

    void LineEnd() { m_tstrText += m_tstrLineEnd; }

    [[nodiscard]] std::string ToUtf8() const { return String::ToUtf8(m_tstrText); }

private:
    static bool IsEmptyTag(const XmlElement& element) { return element.Nodes().empty() && !element.HasEndTag(); }

    void Verbatim(std::wstring_view tstrBefore, std::wstring_view tstrText, std::wstring_view tstrAfter)
    {
        m_tstrText += tstrBefore;
        for (const wchar_t ch : tstrText) ch == L'\n' ? LineEnd() : m_tstrText.push_back(ch);
        m_tstrText += tstrAfter;
    }

    /// A parser turns a carriage return into a line feed and, in attributes, all white space into spaces. Characters
    /// that must stay are written as numeric references.
    void Escaped(std::wstring_view tstrText, bool bAttribute)
    {
        for (const wchar_t ch : tstrText) {
            switch (ch) {
                case L'&': m_tstrText += L"&amp;"; break;
                case L'<': m_tstrText += L"&lt;"; break;
                case L'>': m_tstrText += L"&gt;"; break;
                case L'"': m_tstrText += L"&quot;"; break;
                case L'\'': m_tstrText += L"&apos;"; break;
                case L'\r': m_tstrText += L"&#13;"; break;
                case L'\n': m_tstrText += bAttribute ? L"&#10;" : m_tstrLineEnd; break;
                case L'\t': m_tstrText += bAttribute ? L"&#9;" : L"\t"; break;
                default: m_tstrText += ch; break;
            }
        }
    }

    std::wstring m_tstrText;
    const wchar_t* m_tstrLineEnd;
};

}  // namespace

std::string XmlWriter::ToText(const XmlDocument& document)
{
    Output output(document.HasCrLf());
    const std::vector<XmlNode>& top = document.Content().Nodes();
    if (top.empty() || top.front().eKind != XmlNode::Kind::eText) output.LineEnd();

    // An explicit stack instead of recursion: the elements down to the current one, with the next child index of each.
    std::vector<std::pair<const XmlElement*, std::size_t>> path{{&document.Content(), 0}};
    while (!path.empty()) {
        auto& [pElement, uNext] = path.back();
        if (uNext == pElement->Nodes().size()) {
            if (path.size() > 1) output.EndTag(*pElement);
            path.pop_back();
            continue;
        }
        const XmlNode& node = pElement->Nodes()[uNext++];
        output.Node(node);
        if (!node.element) continue;
        output.StartTag(*node.element);
        path.emplace_back(node.element.get(), 0);
    }
    return output.ToUtf8();
}

void XmlWriter::WriteFile(const XmlDocument& document, Machine& machine, const std::wstring& tstrPath)
{
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.ReplaceContent(tstrPath, ToText(document), &dwError)) {
        throw new XmlException(dwError, {}, L"the file cannot be written");
    }
}

}  // namespace KzCommon::Storage
