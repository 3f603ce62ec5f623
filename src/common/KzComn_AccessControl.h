// Security attributes of the objects that the program creates.
#pragma once

#include <windows.h>

namespace KzCommon::AccessControl {

/// Attributes with the default descriptor: the new object gets its rights from its parent and the process token.
class SecurityAttributes {
public:
    [[nodiscard]] SECURITY_ATTRIBUTES* Get() noexcept { return &m_attributes; }

private:
    SECURITY_ATTRIBUTES m_attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

}  // namespace KzCommon::AccessControl
