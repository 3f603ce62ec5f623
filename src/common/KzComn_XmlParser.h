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

/// Parses a document with Expat, "libexpat.dll" in the program's own folder. Refused besides what is not well-formed
/// XML: a document type declaration (with it go entities of the document's own, their expansion, and files outside it),
/// more than kMaxLevels elements inside each other, a file of more than kMaxBytes. Encodings: UTF-8, UTF-16 with a
/// byte order mark, and the single-byte ones that the declaration names and Expat (ISO-8859-1, US-ASCII) or Windows
/// (see KzComn_XmlEncoding.h) knows.
class XmlParser {
public:
    /// Deep enough for every document of the product, shallow enough for walkers that call themselves.
    static constexpr unsigned kMaxLevels = 1000;
    static constexpr std::size_t kMaxBytes = std::size_t{4} * 1024 * 1024;

    /// Reads and parses the file at `tstrPath`; one that others hold is waited for, some two seconds. Throws
    /// XmlException: without a position when the file cannot be read (ERROR_BAD_ARGUMENTS, 160, for an empty path;
    /// ERROR_FILE_TOO_LARGE, 223) or the library cannot be loaded, with one for a document that is refused.
    [[nodiscard]] std::unique_ptr<XmlDocument> ParseFile(const std::wstring& tstrPath);
    /// The same for a file of that machine.
    [[nodiscard]] std::unique_ptr<XmlDocument> ParseFile(const Machine& machine, const std::wstring& tstrPath);

    /// Parses a whole document in memory; throws like ParseFile.
    [[nodiscard]] std::unique_ptr<XmlDocument> ParseText(std::string_view strBytes);

private:
    Library::Expat m_library;
};

}  // namespace KzCommon::Storage
