// Enables a privilege of the process for one call.
#pragma once

#include "common/KzComn_Handle.h"

namespace KzCommon::Process {

/// Enables a privilege of the process for its lifetime, then restores the previous state. Does nothing if the process
/// (for example of a standard user) does not have it. AdjustTokenPrivileges.
class EnabledPrivilege {
public:
    /// `szName` is one of the SE_..._NAME constants.
    explicit EnabledPrivilege(const wchar_t* szName) noexcept;
    EnabledPrivilege(const EnabledPrivilege&) = delete;
    EnabledPrivilege& operator=(const EnabledPrivilege&) = delete;
    ~EnabledPrivilege();

private:
    UniqueKernelHandle m_token;
    TOKEN_PRIVILEGES m_before{};  // empty when nothing was changed
};

}  // namespace KzCommon::Process
