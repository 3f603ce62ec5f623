// Decides which links the program follows: only those that an administrator must have created. The program runs with
// full rights, and the creator of a junction or symbolic link decides which files it changes. Has no other
// dependencies, because the trace library uses it as well.
#pragma once

#include "common/KzComn_FolderPath.h"
#include "common/KzComn_Handle.h"

#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <vector>

namespace KzCommon::Storage::Directory {

/// ERROR_STOPPED_ON_SYMLINK, missing in the toolchain's headers: the path of a folder contains a junction or symbolic
/// link that a non-administrator may have created.
inline constexpr DWORD kStoppedOnLink = 681;

/// The name, with trailing backslash, of the volume that Windows has mounted at the folder; empty if no volume is.
/// Only administrators can mount volumes; a junction to a volume created by another user is not in Windows's list.
/// GetVolumePathNamesForVolumeNameW.
[[nodiscard]] inline std::wstring MountedVolume(const std::wstring& tstrFolder)
{
    const std::wstring tstrMount = tstrFolder + L'\\';
    wchar_t szVolume[MAX_PATH] = {};
    if (!::GetVolumeNameForVolumeMountPointW(tstrMount.c_str(), szVolume, MAX_PATH)) return {};
    DWORD cch = 0;
    ::GetVolumePathNamesForVolumeNameW(szVolume, nullptr, 0, &cch);
    std::wstring tstrPaths(cch, L'\0');
    if (cch == 0 || !::GetVolumePathNamesForVolumeNameW(szVolume, tstrPaths.data(), cch, &cch)) return {};
    for (const wchar_t* sz = tstrPaths.c_str(); *sz; sz += std::wcslen(sz) + 1) {
        if (::CompareStringOrdinal(sz, -1, tstrMount.c_str(), -1, TRUE) == CSTR_EQUAL) return szVolume;
    }
    return {};
}

/// Whether an identifier is for administrators only or, in an access control list, for the owner.
[[nodiscard]] inline bool IsAdministrators(PSID pSid) noexcept
{
    for (const WELL_KNOWN_SID_TYPE eType :
         {WinLocalSystemSid, WinBuiltinAdministratorsSid, WinCreatorOwnerSid, WinCreatorOwnerRightsSid}) {
        if (::IsWellKnownSid(pSid, eType)) return true;
    }
    // The Windows installer service.
    constexpr struct {
        BYTE bRevision = SID_REVISION;
        BYTE cAuthorities = 6;
        SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
        DWORD authorities[6] = {80, 956008885, 3418522649, 1831038044, 1853292631, 2271478464};
    } kInstaller;
    return ::GetLengthSid(pSid) == sizeof(kInstaller) && std::memcmp(pSid, &kInstaller, sizeof(kInstaller)) == 0;
}

/// Whether an open folder is owned by administrators and only they may change it. Write access to a folder's attributes
/// or content is enough to make it a link or to change a link's target. False also for a folder with unreadable rights.
/// GetKernelObjectSecurity.
[[nodiscard]] inline bool IsChangedByAdministratorsOnly(HANDLE hFolder)
{
    constexpr SECURITY_INFORMATION kAsked = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    DWORD cb = 0;
    ::GetKernelObjectSecurity(hFolder, kAsked, nullptr, 0, &cb);
    std::vector<BYTE> descriptor(std::max<std::size_t>(cb, SECURITY_DESCRIPTOR_MIN_LENGTH));
    if (!::GetKernelObjectSecurity(hFolder, kAsked, descriptor.data(), cb, &cb)) return false;
    BOOL bPresent = FALSE;
    BOOL bDefaulted = FALSE;
    PSID pOwner = nullptr;
    PACL pList = nullptr;
    if (!::GetSecurityDescriptorOwner(descriptor.data(), &pOwner, &bDefaulted) || !pOwner ||
        !::GetSecurityDescriptorDacl(descriptor.data(), &bPresent, &pList, &bDefaulted) || !bPresent || !pList) {
        return false;
    }
    constexpr ACCESS_MASK kChange =
        FILE_WRITE_DATA | FILE_WRITE_ATTRIBUTES | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL;
    for (DWORD uEntry = 0; uEntry < pList->AceCount; ++uEntry) {
        void* pEntry = nullptr;
        if (!::GetAce(pList, uEntry, &pEntry)) return false;
        auto* const pAce = static_cast<ACCESS_ALLOWED_ACE*>(pEntry);
        if ((pAce->Header.AceFlags & INHERIT_ONLY_ACE) || pAce->Header.AceType == ACCESS_DENIED_ACE_TYPE) continue;
        if (pAce->Header.AceType != ACCESS_ALLOWED_ACE_TYPE) return false;
        if ((pAce->Mask & kChange) && !IsAdministrators(&pAce->SidStart)) return false;
    }
    return IsAdministrators(pOwner);
}

/// The target folder of an open junction or symbolic link; empty when unreadable. FSCTL_GET_REPARSE_POINT.
[[nodiscard]] inline std::wstring TargetOf(HANDLE hLink, const std::wstring& tstrLink)
{
    // The common beginning of both reparse buffers; a symbolic link has flags after it.
    struct Names {
        DWORD dwTag;
        WORD cbAll, wReserved, cbBeforeName, cbName, cbBeforeShown, cbShown;
        DWORD dwFlags;
    } names{};
    constexpr DWORD kRelative = 1;
    std::vector<BYTE> data(MAXIMUM_REPARSE_DATA_BUFFER_SIZE);
    DWORD cb = 0;
    if (!::DeviceIoControl(hLink, FSCTL_GET_REPARSE_POINT, nullptr, 0, data.data(), static_cast<DWORD>(data.size()),
                           &cb, nullptr)) {
        return {};
    }
    std::memcpy(&names, data.data(), sizeof(names));
    const bool bSymbolic = names.dwTag == IO_REPARSE_TAG_SYMLINK;
    if (!bSymbolic && names.dwTag != IO_REPARSE_TAG_MOUNT_POINT) return {};
    const std::size_t cbBefore = sizeof(names) - (bSymbolic ? 0 : sizeof(names.dwFlags)) + names.cbBeforeName;
    if (names.cbName == 0 || cbBefore + names.cbName > cb) return {};
    std::wstring tstrTarget(names.cbName / sizeof(wchar_t), L'\0');
    std::memcpy(tstrTarget.data(), data.data() + cbBefore, tstrTarget.size() * sizeof(wchar_t));
    if (bSymbolic && (names.dwFlags & kRelative)) {
        const bool bFromRoot = tstrTarget.starts_with(L'\\');
        const std::size_t uRoot = RootLength(tstrLink);
        return tstrLink.substr(0, bFromRoot ? uRoot : tstrLink.find_last_of(L'\\') + 1) + tstrTarget;
    }
    if (!tstrTarget.starts_with(L"\\??\\")) return {};
    // Drive paths get their usual form, which Windows also uses in its lists.
    return tstrTarget.find(L':') == 5 ? tstrTarget.substr(4) : L"\\\\?\\" + tstrTarget.substr(4);
}

/// The maximum number of links in a chain.
inline constexpr unsigned kMaxLinks = 16;

[[nodiscard]] inline bool LeadsThroughLink(const std::wstring& tstrFolder, unsigned uLinks = kMaxLinks);

/// Whether the program may follow a link, given as a full path without trailing backslash: a volume mounted by an
/// administrator, or an administrator's link to a folder whose path has no other kind of link. `tstrTarget` is then its
/// target.
[[nodiscard]] inline bool IsPassableLink(const std::wstring& tstrLink, std::wstring& tstrTarget,
                                         unsigned uLinks = kMaxLinks)
{
    tstrTarget = MountedVolume(tstrLink);
    if (!tstrTarget.empty()) return true;
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    constexpr DWORD kItself = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;
    const UniqueFile link(::CreateFileW(tstrLink.c_str(), READ_CONTROL | FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                        OPEN_EXISTING, kItself, nullptr));
    if (!link || uLinks == 0 || !IsChangedByAdministratorsOnly(link.Get())) return false;
    tstrTarget = TargetOf(link.Get(), tstrLink);
    return !tstrTarget.empty() && !LeadsThroughLink(tstrTarget, uLinks - 1);
}

/// Whether a folder or one above it is a link that is refused: any link except an IsPassableLink(). The result may
/// become outdated; LockedFolder prevents that.
[[nodiscard]] inline bool LeadsThroughLink(const std::wstring& tstrFolder, unsigned uLinks)
{
    const std::wstring tstrFull = FullPath(tstrFolder);
    std::wstring tstrTarget;
    for (std::size_t uEnd = RootLength(tstrFull); uEnd < tstrFull.size();) {
        uEnd = std::min(tstrFull.find(L'\\', uEnd + 1), tstrFull.size());
        const std::wstring tstrPath = tstrFull.substr(0, uEnd);
        if (IsLink(tstrPath) && !IsPassableLink(tstrPath, tstrTarget, uLinks)) return true;
    }
    return false;
}

}  // namespace KzCommon::Storage::Directory
