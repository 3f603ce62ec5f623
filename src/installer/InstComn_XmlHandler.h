// The base of the classes that walk a description file.
#pragma once

#include "common/KzComn_XmlElement.h"

#include <memory>
#include <string>

namespace InstCommon::Utility {

/// Owns a parsed description file and a cursor that goes over the children of its root.
class XmlHandler {
public:
    XmlHandler() = default;
    XmlHandler(const XmlHandler&) = delete;
    XmlHandler& operator=(const XmlHandler&) = delete;
    virtual ~XmlHandler() = default;

    /// Loads a file in place of what was loaded before. False, with a trace line that says what is wrong and where,
    /// when it cannot be read or is no XML.
    [[nodiscard]] bool ParseXml(const std::wstring& tstrPath);

    /// Moves the cursor from anywhere inside a child of the root back to that child, so that the walk goes on with the
    /// child's next sibling. False, with a trace line, when there is no current element or it lies in no such child.
    [[nodiscard]] virtual bool SkipAllChildElements();

protected:
    /// Forgets the document and the cursor.
    void Release() noexcept;

    std::unique_ptr<KzCommon::Storage::XmlDocument> m_document;
    bool m_bParsed = false;
    const KzCommon::Storage::XmlElement* m_pElement = nullptr;  // the cursor
};

}  // namespace InstCommon::Utility
