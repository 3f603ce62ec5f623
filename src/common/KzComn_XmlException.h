// The failure of reading or writing an XML document.
#pragma once

#include "common/KzComn_Exception.h"
#include "common/KzComn_String.h"
#include "common/KzComn_XmlPosition.h"

#include <string>
#include <utility>

namespace KzCommon::Storage {

/// An XML document cannot be read or written. The code is ERROR_XML_PARSE_ERROR (1465) for a document that is refused,
/// ERROR_INVALID_HANDLE (6) when memory is out, otherwise that of the file or library call that failed.
class XmlException : public Exception {
public:
    XmlException(DWORD dwCode, const XmlPosition& position, std::wstring tstrReason,
                 const std::source_location& where = std::source_location::current())
        : Exception(dwCode, String::BaseName(where.file_name()), static_cast<unsigned>(where.line())),
          m_position(position),
          m_tstrReason(std::move(tstrReason))
    {
    }

    /// The place in the document (none when the failure belongs to no place in it), not to be confused with Line(), the
    /// place in the program.
    [[nodiscard]] const XmlPosition& Position() const noexcept { return m_position; }
    /// What is wrong, for the trace.
    [[nodiscard]] const std::wstring& Reason() const noexcept { return m_tstrReason; }

private:
    XmlPosition m_position;
    std::wstring m_tstrReason;
};

}  // namespace KzCommon::Storage
