#include "common/KzComn_XmlElement.h"

#include "common/KzComn_Exception.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <utility>

namespace KzCommon::Storage {

namespace {

bool IsCharacterData(const XmlNode& node) noexcept
{
    return node.eKind == XmlNode::Kind::eText || node.eKind == XmlNode::Kind::eCData;
}

/// Whether the node puts the next tag on its own line.
bool IsLineBreak(const XmlNode& node) noexcept
{
    return node.eKind == XmlNode::Kind::eText && node.tstrText.find(L'\n') != std::wstring::npos &&
           node.tstrText.find_first_not_of(L" \t\r\n") == std::wstring::npos;
}

}  // namespace

bool IsXmlText(std::wstring_view tstrText) noexcept
{
    for (std::size_t uAt = 0; uAt < tstrText.size(); ++uAt) {
        const wchar_t ch = tstrText[uAt];
        if (IS_HIGH_SURROGATE(ch)) {
            if (++uAt == tstrText.size() || !IS_LOW_SURROGATE(tstrText[uAt])) return false;
        } else if (IS_LOW_SURROGATE(ch) || ch >= 0xFFFE || (ch < L' ' && ch != L'\t' && ch != L'\n' && ch != L'\r')) {
            return false;
        }
    }
    return true;
}

XmlElement::XmlElement(std::wstring tstrName) : m_tstrName(std::move(tstrName)) {}

// Destroys the tree from its leaves, without recursion and without allocating memory, at any depth.
XmlElement::~XmlElement()
{
    XmlElement* pElement = this;
    while (pElement != this || !m_nodes.empty()) {
        if (pElement->m_nodes.empty()) {
            pElement = pElement->m_pParent;
            pElement->m_nodes.pop_back();
        } else if (XmlElement* pLast = pElement->m_nodes.back().element.get(); pLast && !pLast->m_nodes.empty()) {
            pElement = pLast;
        } else {
            pElement->m_nodes.pop_back();
        }
    }
}

bool XmlElement::IsNamed(std::wstring_view tstrName) const noexcept
{
    return String::EqualsNoCase(m_tstrName, tstrName);
}

std::wstring XmlElement::GetAttribute(std::wstring_view tstrName) const
{
    for (const XmlAttribute& attribute : m_attributes) {
        if (attribute.tstrName == tstrName) return attribute.tstrValue;
    }
    return {};
}

std::wstring XmlElement::GetText() const
{
    std::wstring tstrText;
    for (const XmlNode& node : m_nodes) {
        if (IsCharacterData(node)) tstrText += node.tstrText;
    }
    return tstrText;
}

const XmlElement* XmlElement::ElementFrom(std::size_t uIndex) const noexcept
{
    for (; uIndex < m_nodes.size(); ++uIndex) {
        if (m_nodes[uIndex].element) return m_nodes[uIndex].element.get();
    }
    return nullptr;
}

const XmlElement* XmlElement::GetFirstChild() const noexcept
{
    return ElementFrom(0);
}

XmlElement* XmlElement::GetFirstChild() noexcept
{
    return const_cast<XmlElement*>(std::as_const(*this).GetFirstChild());
}

const XmlElement* XmlElement::GetNextSibling() const noexcept
{
    return m_pParent ? m_pParent->ElementFrom(m_uIndex + 1) : nullptr;
}

XmlElement* XmlElement::GetNextSibling() noexcept
{
    return const_cast<XmlElement*>(std::as_const(*this).GetNextSibling());
}

const XmlElement* XmlElement::GetParent() const noexcept
{
    return m_pParent && !m_pParent->m_tstrName.empty() ? m_pParent : nullptr;
}

XmlElement* XmlElement::GetParent() noexcept
{
    return const_cast<XmlElement*>(std::as_const(*this).GetParent());
}

const XmlElement* XmlElement::FindChild(std::wstring_view tstrName) const noexcept
{
    const XmlElement* pChild = GetFirstChild();
    while (pChild && !pChild->IsNamed(tstrName)) pChild = pChild->GetNextSibling();
    return pChild;
}

XmlElement* XmlElement::FindChild(std::wstring_view tstrName) noexcept
{
    return const_cast<XmlElement*>(std::as_const(*this).FindChild(tstrName));
}

XmlElement& XmlElement::AddChild(std::wstring_view tstrName)
{
    if (!IsXmlName(tstrName)) Throw(ERROR_BAD_ARGUMENTS);
    if (m_nodes.size() < 2 || !IsLineBreak(m_nodes.front()) || !IsLineBreak(m_nodes.back())) {
        return AppendElement(std::wstring(tstrName), {});
    }
    const std::wstring tstrFirstBreak = m_nodes.front().tstrText;
    XmlNode lastBreak = std::move(m_nodes.back());
    m_nodes.pop_back();
    AppendNode({XmlNode::Kind::eText, tstrFirstBreak.substr(tstrFirstBreak.rfind(L'\n')), {}, {}});
    XmlElement& child = AppendElement(std::wstring(tstrName), {});
    AppendNode(std::move(lastBreak));
    return child;
}

void XmlElement::SetText(std::wstring_view tstrText)
{
    if (!IsXmlText(tstrText)) Throw(ERROR_BAD_ARGUMENTS);
    XmlNode* pFirst = nullptr;
    for (XmlNode& node : m_nodes) {
        if (!IsCharacterData(node)) continue;
        node.eKind = XmlNode::Kind::eText;
        node.tstrText.clear();
        if (!pFirst) pFirst = &node;
    }
    if (pFirst) {
        pFirst->tstrText = tstrText;
    } else {
        AppendNode({XmlNode::Kind::eText, std::wstring(tstrText), {}, {}});
    }
}

void XmlElement::SetAttribute(std::wstring_view tstrName, std::wstring_view tstrValue)
{
    if (!IsXmlName(tstrName) || !IsXmlText(tstrValue)) Throw(ERROR_BAD_ARGUMENTS);
    for (XmlAttribute& attribute : m_attributes) {
        if (attribute.tstrName != tstrName) continue;
        attribute.tstrValue = tstrValue;
        return;
    }
    m_attributes.push_back({std::wstring(tstrName), std::wstring(tstrValue)});
}

void XmlElement::RemoveAttributes(std::wstring_view tstrName)
{
    std::erase_if(m_attributes,
                  [&](const XmlAttribute& attribute) { return String::EqualsNoCase(attribute.tstrName, tstrName); });
}

void XmlElement::AppendNode(XmlNode node)
{
    if (node.element) {
        node.element->m_pParent = this;
        node.element->m_uIndex = m_nodes.size();
    }
    m_nodes.push_back(std::move(node));
}

XmlElement& XmlElement::AppendElement(std::wstring tstrName, std::vector<XmlAttribute> attributes,
                                      const XmlPosition& position)
{
    auto element = std::make_unique<XmlElement>(std::move(tstrName));
    element->m_attributes = std::move(attributes);
    element->m_position = position;
    XmlElement& added = *element;
    AppendNode({XmlNode::Kind::eElement, {}, {}, std::move(element)});
    return added;
}

}  // namespace KzCommon::Storage
