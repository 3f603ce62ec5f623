// Links that a standard user can create, and how Windows and the product's own rule handle them.
#include "Assumptions.h"

#include "common/KzComn_File.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_Process.h"

#include <sddl.h>
#include <shlobj.h>
#include <winioctl.h>

#include <cwchar>
#include <memory>

using namespace KzCommon;

namespace Platform {

namespace {

const wchar_t kNoJunction[] = L"no junction can be created";

/// Impersonates this account without administrator rights until the end of the scope, like its programs that are not
/// elevated.
class StandardUser {
public:
    StandardUser()
    {
        PSID pAdministrators = nullptr, pMedium = nullptr;
        UniqueKernelHandle own, filtered;
        constexpr DWORD kAccess = TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_IMPERSONATE | TOKEN_ADJUST_DEFAULT;
        Require(::ConvertStringSidToSidW(L"S-1-5-32-544", &pAdministrators) &&
                    ::ConvertStringSidToSidW(L"S-1-16-8192", &pMedium) &&
                    ::OpenProcessToken(::GetCurrentProcess(), kAccess, own.Receive()),
                L"the program's own rights can be read");
        SID_AND_ATTRIBUTES disabled{pAdministrators, 0};
        TOKEN_MANDATORY_LABEL label{{pMedium, SE_GROUP_INTEGRITY}};
        Require(::CreateRestrictedToken(own.Get(), DISABLE_MAX_PRIVILEGE, 1, &disabled, 0, nullptr, 0, nullptr,
                                        filtered.Receive()),
                L"rights can be given up");
        ::SetTokenInformation(filtered.Get(), TokenIntegrityLevel, &label, sizeof(label) + ::GetLengthSid(pMedium));
        ::LocalFree(pAdministrators);
        ::LocalFree(pMedium);
        Require(::ImpersonateLoggedOnUser(filtered.Get()), L"rights can be given up for a while");
    }
    StandardUser(const StandardUser&) = delete;
    StandardUser& operator=(const StandardUser&) = delete;
    ~StandardUser() { ::RevertToSelf(); }
};

/// Creates a folder that is a junction; `tstrTarget` is in the system's form without "\??\". False when refused. (Wine
/// 8 has no junctions.)
bool MakeJunction(const Text& tstrLink, const Text& tstrTarget, bool bUser)
{
    const auto user = bUser ? std::make_unique<StandardUser>() : nullptr;
    Require(::CreateDirectoryW(tstrLink.c_str(), nullptr), L"a folder can be created");
    const Text tstrNames = L"\\??\\" + tstrTarget + L'\0' + tstrTarget + L'\0';
    const auto bytes = [](std::size_t cch) {
        return static_cast<WORD>(cch * sizeof(wchar_t));
    };
    const WORD cbName = bytes(tstrTarget.size() + 4), cbNames = bytes(tstrNames.size());
    const WORD lengths[] = {IO_REPARSE_TAG_MOUNT_POINT & 0xFFFF,
                            IO_REPARSE_TAG_MOUNT_POINT >> 16,
                            static_cast<WORD>(cbNames + 8),
                            0,
                            0,
                            cbName,
                            static_cast<WORD>(cbName + 2),
                            bytes(tstrTarget.size())};
    std::string strData(reinterpret_cast<const char*>(lengths), sizeof(lengths));
    strData.append(reinterpret_cast<const char*>(tstrNames.data()), cbNames);
    UniqueFile link = Open(tstrLink, GENERIC_WRITE, 0, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT);
    DWORD cb = 0;
    const bool bMade = link && ::DeviceIoControl(link.Get(), FSCTL_SET_REPARSE_POINT, strData.data(),
                                                 static_cast<DWORD>(strData.size()), nullptr, 0, &cb, nullptr);
    link.Reset();
    if (!bMade) ::RemoveDirectoryW(tstrLink.c_str());
    return bMade;
}

/// Creates a folder "target" with a file in it; returns it without trailing backslash.
Text MakeTarget(const Text& tstrFolder)
{
    ::CreateDirectoryW((tstrFolder + L"target").c_str(), nullptr);
    WriteFileAt(tstrFolder + L"target\\a", "a");
    return tstrFolder + L"target";
}

// -- the product's own rule --

Text RuleSays(const Text& tstrLink)
{
    const Text tstrSays = Storage::Directory::LeadsThroughLink(tstrLink) ? L"refused" : L"followed";
    ::RemoveDirectoryW(tstrLink.c_str());  // at once, because it may lead to the whole drive
    return tstrSays;
}

constexpr DWORD kByUser = 1, kInWindows = 2;  // options of the rows

/// The rule's result for a junction in a Windows folder, created by an administrator or without those rights.
Text RuleInside(const Text&, DWORD dwOption)
{
    if (!(dwOption & kByUser) && !::IsUserAnAdmin()) return {};
    const Text tstrPlace = dwOption & kInWindows ? Process::WindowsFolder() : Process::CommonAppDataFolder();
    const Text tstrLink = tstrPlace + L"brevant-trial-link";
    ::RemoveDirectoryW(tstrLink.c_str());
    const Text tstrTarget = Process::WindowsFolder() + L"Temp";  // only administrators can put links above it
    return MakeJunction(tstrLink, tstrTarget, dwOption & kByUser) ? RuleSays(tstrLink) : kNoJunction;
}

void MakeVolumeLink(const Text& tstrFolder, DWORD)
{
    wchar_t szVolume[MAX_PATH] = {};
    const Text tstrDrive = Process::WindowsFolder().substr(0, 3);
    Require(::GetVolumeNameForVolumeMountPointW(tstrDrive.c_str(), szVolume, MAX_PATH), L"the drive is a volume");
    static_cast<void>(MakeJunction(tstrFolder + L"volume", szVolume + std::wcslen(L"\\\\?\\"), true));
}

Text RuleOfVolumeLink(const Text& tstrFolder, DWORD dwNow)
{
    if (dwNow) MakeVolumeLink(tstrFolder, 0);
    const Text tstrLink = tstrFolder + L"volume";
    return Storage::Directory::IsLink(tstrLink) ? RuleSays(tstrLink) : kNoJunction;
}

// -- the policy of Windows, which stays enabled in this process --

Text SetPolicy(const Text&, DWORD)
{
    DWORD dwError = ERROR_SUCCESS;
    return OutcomeOf(Process::RefuseUsersJunctions(&dwError), dwError);
}

Text OpenThrough(const Text& tstrFolder, DWORD dwOption)
{
    if (!(dwOption & kByUser) && !::IsUserAnAdmin()) return {};
    const Text tstrLink = tstrFolder + L"link";
    if (!MakeJunction(tstrLink, MakeTarget(tstrFolder), dwOption & kByUser)) return kNoJunction;
    const UniqueFile file = Open(tstrLink + L"\\a", GENERIC_READ, FILE_SHARE_READ);
    return file ? L"followed" : Outcome(FALSE);
}

// -- the next restart --

/// Schedules the deletion of "folder\a"; then a standard user replaces the folder with a junction.
void DelayDeletionAndSwap(const Text& tstrFolder, DWORD)
{
    const Text tstrSwapped = tstrFolder + L"folder";
    ::CreateDirectoryW(tstrSwapped.c_str(), nullptr);
    Delay(WriteFileAt(tstrSwapped + L"\\a", "a"));
    Require(::MoveFileW(tstrSwapped.c_str(), (tstrFolder + L"aside").c_str()), L"a folder can be moved");
    static_cast<void>(MakeJunction(tstrSwapped, MakeTarget(tstrFolder), true));
}

Text FileDeletedAtRestart(const Text& tstrFolder, DWORD)
{
    if (!Storage::Directory::IsLink(tstrFolder + L"folder")) return kNoJunction;
    return ReadFileAt(tstrFolder + L"target\\a") == "a" ? L"nothing" : L"the link's target file";
}

// question, assumed, Wine 8 where it differs, the dependent feature
// clang-format off
constexpr Assumption kLinkRows[] = {
    {L"a standard user's junction in ProgramData, by the product's rule", L"refused", kNoJunction,
     L"copies, deletions and traces there", &RuleInside, kByUser},
    {L"an administrator's junction in ProgramData, by the product's rule", L"refused", kNoJunction,
     L"the same: users may change it", &RuleInside},
    {L"an administrator's junction in the Windows folder, by the product's rule", L"followed", kNoJunction,
     L"an administrator may move the install folder", &RuleInside, kInWindows},
    {L"a standard user's junction to a volume, by the product's rule", L"refused", kNoJunction,
     L"the list of mounted volumes has only an administrator's", &RuleOfVolumeLink, TRUE},
    {L"the same junction after a restart", L"refused", kNoJunction, L"the same", &RuleOfVolumeLink, FALSE, &MakeVolumeLink},
    {L"delayed deletion in a folder that a standard user replaces with a junction", L"the link's target file",
     kNoJunction, L"lint warns of delayed deletions where users can write", &FileDeletedAtRestart, 0, &DelayDeletionAndSwap},
    {L"a standard user's junction, without the policy against them", L"followed", kNoJunction,
     L"the policy is the reason for the refusal", &OpenThrough, kByUser},
    {L"the policy against standard users' junctions (Windows 10 and 11 with the updates of 2022)", L"done", nullptr,
     L"a junction created during a run cannot redirect the agent", &SetPolicy},
    {L"a standard user's junction, with the policy", L"refused (448)", kNoJunction, L"the same", &OpenThrough, kByUser},
    {L"an administrator's junction, with the policy", L"followed", kNoJunction,
     L"an administrator may move the install folder", &OpenThrough},
};
// clang-format on

}  // namespace

std::span<const Assumption> LinkAssumptions()
{
    return kLinkRows;
}

}  // namespace Platform
