// Failures in reading or writing XML documents.
#pragma once

#include "common/KzComn_Exception.h"
#include "common/KzComn_String.h"
#include "common/KzComn_XmlPosition.h"

#include <string>
#include <utility>

namespace KzCommon::Storage {

/// An XML document cannot be read or written. The code is ERROR_XML_PARSE_ERROR (1465) for a refused document,
/// ERROR_INVALID_HANDLE (6) when memory runs out, otherwise the code of the file or library call.
class XmlException : public Exception {
public:
    XmlException(DWORD dwCode, const XmlPosition& position, std::wstring tstrReason,
                 const std::source_location& where = std::source_location::current())
        : Exception(dwCode, String::BaseName(where.file_name()), static_cast<unsigned>(where.line())),
          m_position(position),
          m_tstrReason(std::move(tstrReason))
    {
    }

    /// The position in the document (empty if the failure has none), unlike Line(), the line in the program's source.
    [[nodiscard]] const XmlPosition& Position() const noexcept { return m_position; }
    /// A description for the trace.
    [[nodiscard]] const std::wstring& Reason() const noexcept { return m_tstrReason; }

private:
    XmlPosition m_position;
    std::wstring m_tstrReason;
};

}  // namespace KzCommon::Storage
