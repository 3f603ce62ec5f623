// A privilege of the process, switched on for one call.
#pragma once

#include "common/KzComn_Handle.h"

namespace KzCommon::Process {

/// While it lives, a privilege that the process has is enabled; then it is as it was before. A process that does not
/// have it, a standard user's, goes on without. AdjustTokenPrivileges.
class EnabledPrivilege {
public:
    /// `szName` is one of the SE_..._NAME constants.
    explicit EnabledPrivilege(const wchar_t* szName) noexcept;
    EnabledPrivilege(const EnabledPrivilege&) = delete;
    EnabledPrivilege& operator=(const EnabledPrivilege&) = delete;
    ~EnabledPrivilege();

private:
    UniqueKernelHandle m_token;
    TOKEN_PRIVILEGES m_before{};  // none when nothing was changed
};

}  // namespace KzCommon::Process
