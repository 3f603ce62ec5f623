#include "check/update/OpenFolder.h"

#include "check/update/LongPath.h"

#include "common/KzComn_Handle.h"

#include <algorithm>
#include <vector>

using namespace KzCommon;

namespace Check {

namespace {

/// Whether an access list lets one of the groups of all users change a folder's content.
bool HasOpenEntry(PACL pList)
{
    constexpr ACCESS_MASK kChange =
        FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_DELETE_CHILD | WRITE_DAC | WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL;
    for (DWORD uEntry = 0; uEntry < pList->AceCount; ++uEntry) {
        void* pEntry = nullptr;
        if (!::GetAce(pList, uEntry, &pEntry)) return false;
        auto* const pAce = static_cast<ACCESS_ALLOWED_ACE*>(pEntry);
        const bool bAllows = pAce->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
                             !(pAce->Header.AceFlags & INHERIT_ONLY_ACE) && (pAce->Mask & kChange);
        if (!bAllows) continue;
        for (const WELL_KNOWN_SID_TYPE eGroup : {WinWorldSid, WinAuthenticatedUserSid, WinBuiltinUsersSid,
                                                 WinInteractiveSid, WinLocalSid, WinBuiltinGuestsSid}) {
            if (::IsWellKnownSid(&pAce->SidStart, eGroup)) return true;
        }
    }
    return false;
}

}  // namespace

std::optional<bool> IsOpenToUsers(const std::wstring& tstrFolder, DWORD* pdwError)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const UniqueFile folder(::CreateFileW(LongPath(tstrFolder).c_str(), READ_CONTROL, kShareAll, nullptr, OPEN_EXISTING,
                                          FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    DWORD cb = 0;
    ::GetKernelObjectSecurity(folder.Get(), DACL_SECURITY_INFORMATION, nullptr, 0, &cb);
    std::vector<BYTE> descriptor(std::max<std::size_t>(cb, SECURITY_DESCRIPTOR_MIN_LENGTH));
    BOOL bPresent = FALSE;
    BOOL bDefaulted = FALSE;
    PACL pList = nullptr;
    if (!folder || !::GetKernelObjectSecurity(folder.Get(), DACL_SECURITY_INFORMATION, descriptor.data(), cb, &cb) ||
        !::GetSecurityDescriptorDacl(descriptor.data(), &bPresent, &pList, &bDefaulted)) {
        *pdwError = ::GetLastError();
        return std::nullopt;
    }
    return !bPresent || !pList || HasOpenEntry(pList);
}

}  // namespace Check
