// The XML document model: an element tree with everything of a document that carries meaning or layout.
//
// Besides elements, attributes (in order) and character data, it keeps comments, processing instructions, CDATA
// sections, white space between elements, the form of empty elements and the kind of line end. It does not keep the XML
// declaration (the writer writes its own), white space inside tags, the quotation marks of attributes, or whether a
// character was written as a reference.
#pragma once

#include "common/KzComn_XmlPosition.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace KzCommon::Storage {

struct XmlNode;

struct XmlAttribute {
    std::wstring tstrName;
    std::wstring tstrValue;
};

/// Whether an element or attribute with this name can be added, as defined by Expat. Expat itself is called for names
/// with non-ASCII letters; false when it cannot be loaded (then no document can be read either).
[[nodiscard]] bool IsXmlName(std::wstring_view tstrName);
/// Whether XML can contain the text: no control characters except tab, line feed and carriage return, no unpaired
/// surrogate.
[[nodiscard]] bool IsXmlText(std::wstring_view tstrText) noexcept;

/// One element. It owns its contents. Pointers to other elements are not owned by the caller, null if there is no such
/// element, and valid as long as the document.
class XmlElement {
public:
    explicit XmlElement(std::wstring tstrName);
    XmlElement(const XmlElement&) = delete;
    XmlElement& operator=(const XmlElement&) = delete;
    ~XmlElement();

    // -- reading --

    [[nodiscard]] const std::wstring& GetName() const noexcept { return m_tstrName; }
    /// Whether the element has that name (case-insensitive).
    [[nodiscard]] bool IsNamed(std::wstring_view tstrName) const noexcept;
    /// An attribute's value (name case-sensitive); empty when missing.
    [[nodiscard]] std::wstring GetAttribute(std::wstring_view tstrName) const;
    [[nodiscard]] const std::vector<XmlAttribute>& Attributes() const noexcept { return m_attributes; }
    /// The element's own character data, without that of its children, with white space unchanged.
    [[nodiscard]] std::wstring GetText() const;
    /// The position of the start tag in the parsed document; empty for an element that was added.
    [[nodiscard]] const XmlPosition& Position() const noexcept { return m_position; }

    // -- walking: elements only, without comments and the like --

    [[nodiscard]] const XmlElement* GetFirstChild() const noexcept;
    [[nodiscard]] XmlElement* GetFirstChild() noexcept;
    [[nodiscard]] const XmlElement* GetNextSibling() const noexcept;
    [[nodiscard]] XmlElement* GetNextSibling() noexcept;
    /// Null for the root.
    [[nodiscard]] const XmlElement* GetParent() const noexcept;
    [[nodiscard]] XmlElement* GetParent() noexcept;
    /// The first child with that name (case-insensitive).
    [[nodiscard]] const XmlElement* FindChild(std::wstring_view tstrName) const noexcept;
    [[nodiscard]] XmlElement* FindChild(std::wstring_view tstrName) noexcept;

    // -- changing; a name or text that XML cannot contain throws Exception with ERROR_BAD_ARGUMENTS (160) --

    /// Adds a child after the last one, on its own line if the other children are.
    XmlElement& AddChild(std::wstring_view tstrName);
    /// Replaces the element's own character data; keeps its children and comments in place.
    void SetText(std::wstring_view tstrText);
    /// Replaces an attribute or adds it after the last one.
    void SetAttribute(std::wstring_view tstrName, std::wstring_view tstrValue);
    /// Removes all attributes with that name (case-insensitive).
    void RemoveAttributes(std::wstring_view tstrName);

    // -- for parser and writer --

    /// Everything between the element's tags, in order.
    [[nodiscard]] const std::vector<XmlNode>& Nodes() const noexcept { return m_nodes; }
    /// Adds a node after the last one and sets an element's index in its parent.
    void AppendNode(XmlNode node);
    /// Likewise for a new element parsed at `position`. Checks nothing.
    XmlElement& AppendElement(std::wstring tstrName, std::vector<XmlAttribute> attributes,
                              const XmlPosition& position = {});
    /// Whether the element is written with start and end tag even when it is empty.
    [[nodiscard]] bool HasEndTag() const noexcept { return m_bEndTag; }
    void SetEndTag(bool bEndTag) noexcept { m_bEndTag = bEndTag; }

private:
    [[nodiscard]] const XmlElement* ElementFrom(std::size_t uIndex) const noexcept;

    std::wstring m_tstrName;  // empty only for a document's own node, which walks skip
    std::vector<XmlAttribute> m_attributes;
    std::vector<XmlNode> m_nodes;
    XmlElement* m_pParent = nullptr;
    std::size_t m_uIndex = 0;  // among the parent's nodes
    XmlPosition m_position;
    bool m_bEndTag = false;
};

/// One item between two tags.
struct XmlNode {
    enum class Kind { eElement, eText, eCData, eComment, eInstruction };

    Kind eKind = Kind::eText;
    std::wstring tstrText;    ///< character data; for an instruction the text after its target
    std::wstring tstrTarget;  ///< for an instruction
    std::unique_ptr<XmlElement> element;
};

/// A document: its root element and the nodes before and after it.
class XmlDocument {
public:
    XmlDocument() : m_content(std::wstring()) {}
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    ~XmlDocument() = default;

    /// The root element; null only in an empty document.
    [[nodiscard]] const XmlElement* GetRoot() const noexcept { return m_content.GetFirstChild(); }
    [[nodiscard]] XmlElement* GetRoot() noexcept { return m_content.GetFirstChild(); }

    /// The document's own node, which contains the root and the nodes around it.
    [[nodiscard]] const XmlElement& Content() const noexcept { return m_content; }
    [[nodiscard]] XmlElement& Content() noexcept { return m_content; }
    /// Whether lines end in carriage return and line feed.
    [[nodiscard]] bool HasCrLf() const noexcept { return m_bCrLf; }
    void SetCrLf(bool bCrLf) noexcept { m_bCrLf = bCrLf; }

private:
    XmlElement m_content;
    bool m_bCrLf = false;
};

}  // namespace KzCommon::Storage
