// Writes XML documents.
#pragma once

#include "common/KzComn_Machine.h"
#include "common/KzComn_XmlElement.h"

#include <string>

namespace KzCommon::Storage {

/// Writes a document as UTF-8 after the declaration <?xml version="1.0" encoding="UTF-8"?>. Parsing the output gives
/// the same document.
class XmlWriter {
public:
    /// The document's bytes.
    [[nodiscard]] static std::string ToText(const XmlDocument& document);

    /// Writes the file at `tstrPath` in one step: it contains the old or the new document at every moment. Throws
    /// XmlException with the code of the failure, ERROR_ACCESS_DENIED (5) for a read-only file.
    static void WriteFile(const XmlDocument& document, Machine& machine, const std::wstring& tstrPath);
};

}  // namespace KzCommon::Storage
