// The XML document model: a tree of elements that keeps everything of a document that carries meaning or layout.
//
// Kept besides elements, attributes (in their order) and character data: comments, processing instructions, CDATA
// sections, the white space between elements, the spelling of empty elements and the kind of line end. Not kept: the
// XML declaration (the writer writes its own), white space inside tags, the quotation marks of attribute values, and
// whether a character was written as itself or as a reference.
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

/// Whether an element or attribute of this name can be added: what Expat takes for a name. It is asked itself about a
/// name with letters beyond ASCII; false where it cannot be loaded: no document was read with it either.
[[nodiscard]] bool IsXmlName(std::wstring_view tstrName);
/// Whether XML can carry the text: no control characters but tab, line feed and carriage return, no half of a surrogate
/// pair.
[[nodiscard]] bool IsXmlText(std::wstring_view tstrText) noexcept;

/// One element. It owns what is in it; the pointers to other elements that it gives are not owned by the caller, null
/// where there is none, and valid as long as the document.
class XmlElement {
public:
    explicit XmlElement(std::wstring tstrName);
    XmlElement(const XmlElement&) = delete;
    XmlElement& operator=(const XmlElement&) = delete;
    ~XmlElement();

    // -- reading --

    [[nodiscard]] const std::wstring& GetName() const noexcept { return m_tstrName; }
    /// Whether the element has that name, without regard to case.
    [[nodiscard]] bool IsNamed(std::wstring_view tstrName) const noexcept;
    /// An attribute's value, the name compared exactly; empty when it is missing.
    [[nodiscard]] std::wstring GetAttribute(std::wstring_view tstrName) const;
    [[nodiscard]] const std::vector<XmlAttribute>& Attributes() const noexcept { return m_attributes; }
    /// The element's own character data, that of its children left out; white space as it stands.
    [[nodiscard]] std::wstring GetText() const;
    /// Where the element's start tag begins in the document that was parsed; none for an element that was added.
    [[nodiscard]] const XmlPosition& Position() const noexcept { return m_position; }

    // -- walking: elements only, comments and the like are not seen --

    [[nodiscard]] const XmlElement* GetFirstChild() const noexcept;
    [[nodiscard]] XmlElement* GetFirstChild() noexcept;
    [[nodiscard]] const XmlElement* GetNextSibling() const noexcept;
    [[nodiscard]] XmlElement* GetNextSibling() noexcept;
    /// Null for the root.
    [[nodiscard]] const XmlElement* GetParent() const noexcept;
    [[nodiscard]] XmlElement* GetParent() noexcept;
    /// The first child of that name, without regard to case.
    [[nodiscard]] const XmlElement* FindChild(std::wstring_view tstrName) const noexcept;
    [[nodiscard]] XmlElement* FindChild(std::wstring_view tstrName) noexcept;

    // -- changing; a name or text that XML cannot carry throws Exception with ERROR_BAD_ARGUMENTS (160) --

    /// Adds a child after the last one, on a line of its own where the others stand on lines of their own.
    XmlElement& AddChild(std::wstring_view tstrName);
    /// Replaces the element's own character data and leaves its children and comments in place.
    void SetText(std::wstring_view tstrText);
    /// Replaces an attribute or adds it after the last one.
    void SetAttribute(std::wstring_view tstrName, std::wstring_view tstrValue);
    /// Removes all attributes of that name, compared without regard to case.
    void RemoveAttributes(std::wstring_view tstrName);

    // -- for parser and writer --

    /// Everything between the element's tags, in order.
    [[nodiscard]] const std::vector<XmlNode>& Nodes() const noexcept { return m_nodes; }
    /// Adds a node after the last one; an element's index in its parent is set.
    void AppendNode(XmlNode node);
    /// The same for a new element, which stood at `position`. Nothing is checked.
    XmlElement& AppendElement(std::wstring tstrName, std::vector<XmlAttribute> attributes,
                              const XmlPosition& position = {});
    /// Whether the element is written as a start and an end tag even with nothing between them.
    [[nodiscard]] bool HasEndTag() const noexcept { return m_bEndTag; }
    void SetEndTag(bool bEndTag) noexcept { m_bEndTag = bEndTag; }

private:
    [[nodiscard]] const XmlElement* ElementFrom(std::size_t uIndex) const noexcept;

    std::wstring m_tstrName;  // empty only for a document's own node, which walkers do not meet
    std::vector<XmlAttribute> m_attributes;
    std::vector<XmlNode> m_nodes;
    XmlElement* m_pParent = nullptr;
    std::size_t m_uIndex = 0;  // among the parent's nodes
    XmlPosition m_position;
    bool m_bEndTag = false;
};

/// One thing that can stand between two tags.
struct XmlNode {
    enum class Kind { eElement, eText, eCData, eComment, eInstruction };

    Kind eKind = Kind::eText;
    std::wstring tstrText;    ///< character data; of an instruction what follows its target
    std::wstring tstrTarget;  ///< of an instruction
    std::unique_ptr<XmlElement> element;
};

/// A document: its root element and what stands before and after it.
class XmlDocument {
public:
    XmlDocument() : m_content(std::wstring()) {}
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    ~XmlDocument() = default;

    /// The root element; null only in a document that was not filled.
    [[nodiscard]] const XmlElement* GetRoot() const noexcept { return m_content.GetFirstChild(); }
    [[nodiscard]] XmlElement* GetRoot() noexcept { return m_content.GetFirstChild(); }

    /// The node that stands for the document; its nodes are the root and what surrounds it.
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
