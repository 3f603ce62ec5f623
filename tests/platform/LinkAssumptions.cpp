// Links that a standard user can create, and how Windows and the product's own rule handle them.
#include "Assumptions.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_Process.h"

#include <winioctl.h>

#include <cstring>

using namespace KzCommon;

namespace Platform {

namespace {

const wchar_t kNoJunction[] = L"no junction can be created";

bool IsAdministrator()
{
    BYTE sid[SECURITY_MAX_SID_SIZE] = {};
    DWORD cbSid = sizeof(sid);
    BOOL bMember = FALSE;
    return ::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &cbSid) &&
           ::CheckTokenMembership(nullptr, sid, &bMember) && bMember;
}

/// Impersonates this account without administrator rights until the end of the scope, like its programs that are not
/// elevated.
class StandardUser {
public:
    StandardUser()
    {
        BYTE administrators[SECURITY_MAX_SID_SIZE] = {};
        BYTE medium[SECURITY_MAX_SID_SIZE] = {};
        DWORD cbAdministrators = sizeof(administrators);
        DWORD cbMedium = sizeof(medium);
        UniqueKernelHandle own;
        UniqueKernelHandle filtered;
        constexpr DWORD kAccess = TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_IMPERSONATE | TOKEN_ADJUST_DEFAULT;
        Require(::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators, &cbAdministrators) &&
                    ::CreateWellKnownSid(WinMediumLabelSid, nullptr, medium, &cbMedium) &&
                    ::OpenProcessToken(::GetCurrentProcess(), kAccess, own.Receive()),
                L"the program's own rights can be read");
        SID_AND_ATTRIBUTES disabled{administrators, 0};
        TOKEN_MANDATORY_LABEL label{{medium, SE_GROUP_INTEGRITY}};
        Require(::CreateRestrictedToken(own.Get(), DISABLE_MAX_PRIVILEGE, 1, &disabled, 0, nullptr, 0, nullptr,
                                        filtered.Receive()),
                L"rights can be given up");
        ::SetTokenInformation(filtered.Get(), TokenIntegrityLevel, &label, sizeof(label) + cbMedium);
        Require(::ImpersonateLoggedOnUser(filtered.Get()), L"rights can be given up for a while");
    }
    StandardUser(const StandardUser&) = delete;
    StandardUser& operator=(const StandardUser&) = delete;
    ~StandardUser() { ::RevertToSelf(); }
};

/// Creates a folder that is a junction; `tstrTarget` is in the system's form without "\??\". False when refused. (Wine
/// 8 has no junctions.)
bool MakeJunction(const std::wstring& tstrLink, const std::wstring& tstrTarget)
{
    Require(::CreateDirectoryW(tstrLink.c_str(), nullptr), L"a folder can be created");
    const std::wstring tstrNames =
        L"\\??\\" + tstrTarget + std::wstring(1, L'\0') + tstrTarget + std::wstring(1, L'\0');
    const auto cbName = static_cast<WORD>((tstrTarget.size() + 4) * sizeof(wchar_t));
    const auto cbShown = static_cast<WORD>(tstrTarget.size() * sizeof(wchar_t));
    const auto cbNames = static_cast<WORD>(tstrNames.size() * sizeof(wchar_t));
    const DWORD dwTag = IO_REPARSE_TAG_MOUNT_POINT;
    const WORD lengths[] = {static_cast<WORD>(cbNames + 8), 0, 0, cbName, static_cast<WORD>(cbName + 2), cbShown};
    std::string strData(reinterpret_cast<const char*>(&dwTag), sizeof(dwTag));
    strData.append(reinterpret_cast<const char*>(lengths), sizeof(lengths));
    strData.append(reinterpret_cast<const char*>(tstrNames.data()), cbNames);
    bool bMade = false;
    {
        const UniqueFile link(::CreateFileW(tstrLink.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                            FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        DWORD cb = 0;
        bMade = link && ::DeviceIoControl(link.Get(), FSCTL_SET_REPARSE_POINT, strData.data(),
                                          static_cast<DWORD>(strData.size()), nullptr, 0, &cb, nullptr);
    }
    if (!bMade) ::RemoveDirectoryW(tstrLink.c_str());
    return bMade;
}

bool MakeUsersJunction(const std::wstring& tstrLink, const std::wstring& tstrTarget)
{
    const StandardUser user;
    return MakeJunction(tstrLink, tstrTarget);
}

/// Creates a folder "target" with a file in it; returns it without trailing backslash.
std::wstring MakeTarget(const std::wstring& tstrFolder)
{
    ::CreateDirectoryW((tstrFolder + L"target").c_str(), nullptr);
    WriteFileAt(tstrFolder + L"target\\a", "a");
    return tstrFolder + L"target";
}

std::wstring SystemVolume()
{
    wchar_t szVolume[MAX_PATH] = {};
    const std::wstring tstrDrive = Process::WindowsFolder().substr(0, 3);
    Require(::GetVolumeNameForVolumeMountPointW(tstrDrive.c_str(), szVolume, MAX_PATH), L"the drive is a volume");
    return szVolume + std::wcslen(L"\\\\?\\");
}

// -- the product's own rule --

std::wstring WhatTheRuleSays(const std::wstring& tstrLink)
{
    return Storage::Directory::LeadsThroughLink(tstrLink) ? L"refused" : L"followed";
}

/// The rule's result for a junction in a Windows folder, created by an administrator or without those rights.
std::wstring RuleInside(const std::wstring& tstrPlace, bool bUser)
{
    if (!bUser && !IsAdministrator()) return {};
    const std::wstring tstrLink = tstrPlace + L"brevant-trial-link";
    ::RemoveDirectoryW(tstrLink.c_str());
    const std::wstring tstrTarget = Process::WindowsFolder() + L"Temp";  // only administrators can put links above it
    if (!(bUser ? MakeUsersJunction(tstrLink, tstrTarget) : MakeJunction(tstrLink, tstrTarget))) return kNoJunction;
    std::wstring tstrSeen = WhatTheRuleSays(tstrLink);
    ::RemoveDirectoryW(tstrLink.c_str());
    return tstrSeen;
}

std::wstring RuleOfVolumeLink(const std::wstring& tstrFolder)
{
    const std::wstring tstrLink = tstrFolder + L"volume";
    if (!Storage::Directory::IsLink(tstrLink)) return kNoJunction;
    std::wstring tstrSeen = WhatTheRuleSays(tstrLink);
    ::RemoveDirectoryW(tstrLink.c_str());  // at once, because it leads to the whole drive
    return tstrSeen;
}

void MakeVolumeLink(const std::wstring& tstrFolder)
{
    static_cast<void>(MakeUsersJunction(tstrFolder + L"volume", SystemVolume()));
}

// -- the policy of Windows, which stays enabled in this process --

std::wstring SetPolicy(const std::wstring&)
{
    DWORD dwError = ERROR_SUCCESS;
    const bool bSet = Process::RefuseUsersJunctions(&dwError);
    ::SetLastError(dwError);
    return Outcome(bSet);
}

std::wstring OpenThrough(const std::wstring& tstrFolder, bool bUser)
{
    if (!bUser && !IsAdministrator()) return {};
    const std::wstring tstrTarget = MakeTarget(tstrFolder);
    const std::wstring tstrLink = tstrFolder + L"link";
    if (!(bUser ? MakeUsersJunction(tstrLink, tstrTarget) : MakeJunction(tstrLink, tstrTarget))) return kNoJunction;
    constexpr DWORD kShare = FILE_SHARE_READ;
    const UniqueFile file(
        ::CreateFileW((tstrLink + L"\\a").c_str(), GENERIC_READ, kShare, nullptr, OPEN_EXISTING, 0, nullptr));
    return file ? L"followed" : Outcome(FALSE);
}

// -- the next restart --

/// Schedules the deletion of "folder\a"; then a standard user replaces the folder with a junction.
void DelayDeletionAndSwap(const std::wstring& tstrFolder)
{
    const std::wstring tstrSwapped = tstrFolder + L"folder";
    const std::wstring tstrTarget = MakeTarget(tstrFolder);
    ::CreateDirectoryW(tstrSwapped.c_str(), nullptr);
    Require(::MoveFileExW(WriteFileAt(tstrSwapped + L"\\a", "a").c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT),
            L"deletions can be delayed (run it as an administrator)");
    Require(::MoveFileW(tstrSwapped.c_str(), (tstrFolder + L"aside").c_str()), L"a folder can be moved");
    static_cast<void>(MakeUsersJunction(tstrSwapped, tstrTarget));
}

std::wstring WhatWasDeleted(const std::wstring& tstrFolder)
{
    if (!Storage::Directory::IsLink(tstrFolder + L"folder")) return kNoJunction;
    return ReadFileAt(tstrFolder + L"target\\a") == "a" ? L"nothing" : L"the link's target file";
}

// question, assumed, Wine 8 where it differs, the dependent feature; clang-format would put each trial on its own lines
// clang-format off
constexpr Assumption kLinkRows[] = {
    {L"a standard user's junction in ProgramData, by the product's rule", L"refused", kNoJunction,
     L"copies, deletions and traces there",
     [](const std::wstring&) { return RuleInside(Process::CommonAppDataFolder(), true); }},
    {L"an administrator's junction in ProgramData, by the product's rule", L"refused", kNoJunction,
     L"the same: users may change it",
     [](const std::wstring&) { return RuleInside(Process::CommonAppDataFolder(), false); }},
    {L"an administrator's junction in the Windows folder, by the product's rule", L"followed", kNoJunction,
     L"an administrator may move the install folder",
     [](const std::wstring&) { return RuleInside(Process::WindowsFolder(), false); }},
    {L"a standard user's junction to a volume, by the product's rule", L"refused", kNoJunction,
     L"the list of mounted volumes has only an administrator's",
     [](const std::wstring& tstrFolder) { MakeVolumeLink(tstrFolder); return RuleOfVolumeLink(tstrFolder); }},
    {L"the same junction after a restart", L"refused", kNoJunction, L"the same", &RuleOfVolumeLink, &MakeVolumeLink},
    {L"delayed deletion in a folder that a standard user replaces with a junction", L"the link's target file",
     kNoJunction, L"lint warns of delayed deletions where users can write", &WhatWasDeleted, &DelayDeletionAndSwap},
    {L"a standard user's junction, without the policy against them", L"followed", kNoJunction,
     L"the policy is the reason for the refusal",
     [](const std::wstring& tstrFolder) { return OpenThrough(tstrFolder, true); }},
    {L"the policy against standard users' junctions (Windows 10 and 11 with the updates of 2022)", L"done", nullptr,
     L"a junction created during a run cannot redirect the agent", &SetPolicy},
    {L"a standard user's junction, with the policy", L"refused (448)", kNoJunction, L"the same",
     [](const std::wstring& tstrFolder) { return OpenThrough(tstrFolder, true); }},
    {L"an administrator's junction, with the policy", L"followed", kNoJunction,
     L"an administrator may move the install folder",
     [](const std::wstring& tstrFolder) { return OpenThrough(tstrFolder, false); }},
};
// clang-format on

}  // namespace

std::span<const Assumption> LinkAssumptions()
{
    return kLinkRows;
}

}  // namespace Platform
