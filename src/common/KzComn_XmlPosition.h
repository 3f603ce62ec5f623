// Places in XML documents.
#pragma once

#include <windows.h>

namespace KzCommon::Storage {

/// Where something stands in a document, counted from 1; both 0 for what has no place in it.
struct XmlPosition {
    ULONGLONG ullLine = 0;
    ULONGLONG ullColumn = 0;  ///< in characters

    bool operator==(const XmlPosition&) const = default;
};

}  // namespace KzCommon::Storage
