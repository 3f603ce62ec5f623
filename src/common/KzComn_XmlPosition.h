// Positions in XML documents.
#pragma once

#include <windows.h>

namespace KzCommon::Storage {

/// A position in a document, counted from 1; both fields are 0 without a position.
struct XmlPosition {
    ULONGLONG ullLine = 0;
    ULONGLONG ullColumn = 0;  ///< in characters

    bool operator==(const XmlPosition&) const = default;
};

}  // namespace KzCommon::Storage
