// The base of the classes that read a description file.
#pragma once

#include "common/KzComn_XmlElement.h"

#include <memory>
#include <string>

namespace InstCommon::Utility {

/// Owns a parsed description file and a cursor over the children of its root.
class XmlHandler {
public:
    XmlHandler() = default;
    XmlHandler(const XmlHandler&) = delete;
    XmlHandler& operator=(const XmlHandler&) = delete;
    virtual ~XmlHandler() = default;

    /// Loads a file and discards the previous one. False, with a trace line with the reason and position, when it is
    /// unreadable or not XML.
    [[nodiscard]] bool ParseXml(const std::wstring& tstrPath);

    /// Moves the cursor from any place inside a child of the root back to that child, so that the walk continues with
    /// the child's next sibling. False, with a trace line, when there is no current element or it is not inside such a
    /// child.
    [[nodiscard]] virtual bool SkipAllChildElements();

protected:
    /// Discards the document and the cursor.
    void Release() noexcept;

    std::unique_ptr<KzCommon::Storage::XmlDocument> m_document;
    bool m_bParsed = false;
    const KzCommon::Storage::XmlElement* m_pElement = nullptr;  // the cursor
};

}  // namespace InstCommon::Utility
