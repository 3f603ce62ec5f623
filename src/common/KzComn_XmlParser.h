// Reads XML documents.
#pragma once

#include "common/KzComn_Expat.h"
#include "common/KzComn_Machine.h"
#include "common/KzComn_XmlElement.h"
#include "common/KzComn_XmlException.h"

#include <memory>
#include <string>
#include <string_view>

namespace KzCommon::Storage {

/// Parses a document with Expat, "libexpat.dll" in the program's folder. Refuses, besides malformed XML: a document
/// type declaration (and so custom entities, their expansion and external files), more than kMaxLevels nested elements
/// and files of more than kMaxBytes. Encodings: UTF-8, UTF-16 with a BOM, and single-byte encodings named in the
/// declaration and known to Expat (ISO-8859-1, US-ASCII) or Windows (see KzComn_XmlEncoding.h).
class XmlParser {
public:
    /// Deep enough for every document of the product, shallow enough for recursive walks.
    static constexpr unsigned kMaxLevels = 1000;
    static constexpr std::size_t kMaxBytes = std::size_t{4} * 1024 * 1024;

    /// Reads and parses the file at `tstrPath`; waits about two seconds while it is in use. Throws XmlException:
    /// without a position when the file is unreadable (ERROR_BAD_ARGUMENTS, 160, for an empty path;
    /// ERROR_FILE_TOO_LARGE, 223) or the library cannot be loaded, with a position for a refused document.
    [[nodiscard]] std::unique_ptr<XmlDocument> ParseFile(const std::wstring& tstrPath);
    /// Likewise for a file of that machine.
    [[nodiscard]] std::unique_ptr<XmlDocument> ParseFile(const Machine& machine, const std::wstring& tstrPath);

    /// Parses a whole document in memory; throws like ParseFile.
    [[nodiscard]] std::unique_ptr<XmlDocument> ParseText(std::string_view strBytes);

private:
    Library::Expat m_library;
};

}  // namespace KzCommon::Storage
