// Replacing and deleting files: owners, access lists, readers, mappings, mounted volumes.
#include "Assumptions.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Privilege.h"

#include <accctrl.h>
#include <aclapi.h>
#include <sddl.h>
#include <shlobj.h>

#include <cstring>
#include <filesystem>
#include <vector>

using namespace KzCommon;

namespace Platform {

namespace {

/// A security descriptor from its text form.
class Descriptor {
public:
    explicit Descriptor(const wchar_t* szText)
    {
        Require(::ConvertStringSecurityDescriptorToSecurityDescriptorW(szText, SDDL_REVISION_1, &m_p, nullptr),
                L"a security descriptor can be created");
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { ::LocalFree(m_p); }
    [[nodiscard]] PSECURITY_DESCRIPTOR Get() const noexcept { return m_p; }
    void GiveTo(const std::wstring& tstrPath, SECURITY_INFORMATION what) const
    {
        Require(::SetFileSecurityW(tstrPath.c_str(), what, m_p), L"owner and access list of a file can be set");
    }

private:
    PSECURITY_DESCRIPTOR m_p = nullptr;
};

std::wstring SecurityOf(const std::wstring& tstrPath, SECURITY_INFORMATION what)
{
    BYTE found[4096] = {};
    DWORD cb = sizeof(found);
    wchar_t* szText = nullptr;
    if (!::GetFileSecurityW(tstrPath.c_str(), what, found, cb, &cb) ||
        !::ConvertSecurityDescriptorToStringSecurityDescriptorW(found, SDDL_REVISION_1, what, &szText, nullptr)) {
        return L"not known";
    }
    const std::wstring tstrText = szText;
    ::LocalFree(szText);
    return tstrText;
}

// -- owners and access lists --

std::wstring CreateForSystem(const std::wstring& tstrFolder)
{
    const Descriptor descriptor(L"O:SYD:(A;;FA;;;WD)");
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.Get(), FALSE};
    return Outcome(
        UniqueFile(::CreateFileW((tstrFolder + L"a").c_str(), GENERIC_WRITE, 0, &attributes, CREATE_NEW, 0, nullptr))
            .IsValid());
}

std::wstring CreateForSystemWithPrivilege(const std::wstring& tstrFolder)
{
    if (!::IsUserAnAdmin()) return {};
    const Process::EnabledPrivilege restore(SE_RESTORE_NAME);
    return CreateForSystem(tstrFolder);
}

/// The owner of a system file after copying over it; administrators may change the file but do not own it.
std::wstring CopyOverSystemFile(const std::wstring& tstrFolder)
{
    if (!::IsUserAnAdmin()) return {};
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
    {
        const Process::EnabledPrivilege restore(SE_RESTORE_NAME);
        Descriptor(L"O:SY").GiveTo(tstrOld, OWNER_SECURITY_INFORMATION);
    }
    Descriptor(L"D:P(A;;FA;;;SY)(A;;0x1301bf;;;BA)").GiveTo(tstrOld, DACL_SECURITY_INFORMATION);
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::File::Copy(tstrOld, WriteFileAt(tstrFolder + L"new", "new"), true, &dwError)) {
        ::SetLastError(dwError);
        return Outcome(FALSE);
    }
    return (ReadFileAt(tstrOld) == "new" ? L"new content, " : L"old content, ") +
           SecurityOf(tstrOld, OWNER_SECURITY_INFORMATION);
}

/// Whether a file keeps its access list, including its bits, when copied over.
std::wstring ListAfterCopy(const std::wstring& tstrFolder, const wchar_t* szList)
{
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
    if (szList) Descriptor(szList).GiveTo(tstrOld, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION);
    const std::wstring tstrBefore = SecurityOf(tstrOld, DACL_SECURITY_INFORMATION);
    static_cast<void>(Storage::File::Copy(tstrOld, WriteFileAt(tstrFolder + L"new", "new"), true, nullptr));
    const std::wstring tstrAfter = SecurityOf(tstrOld, DACL_SECURITY_INFORMATION);
    return tstrAfter == tstrBefore ? L"as before" : tstrBefore + L" became " + tstrAfter;
}

/// A file without rights for anyone, in a folder whose files may be deleted.
std::wstring DeleteByFolder(const std::wstring& tstrFolder)
{
    const std::wstring tstrPath = WriteFileAt(tstrFolder + L"a", "a");
    Descriptor(L"D:P").GiveTo(tstrPath, DACL_SECURITY_INFORMATION);
    DWORD dwError = ERROR_SUCCESS;
    const bool bDeleted = Storage::File::Delete(tstrPath, &dwError);
    ::SetLastError(dwError);
    return Outcome(bDeleted);
}

// -- names that change while a file is in use --

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

UniqueFile Open(const std::wstring& tstrPath, DWORD dwAccess, DWORD dwShare)
{
    return UniqueFile(::CreateFileW(tstrPath.c_str(), dwAccess, dwShare, nullptr, OPEN_EXISTING, 0, nullptr));
}

/// A mapped file that is not open elsewhere.
class Mapped {
public:
    explicit Mapped(const std::wstring& tstrPath)
    {
        const UniqueFile file = Open(tstrPath, GENERIC_READ, kShareAll);
        m_section.Reset(::CreateFileMappingW(file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
        m_pView = ::MapViewOfFile(m_section.Get(), FILE_MAP_READ, 0, 0, 0);
        Require(m_pView != nullptr, L"a file can be mapped");
    }
    Mapped(const Mapped&) = delete;
    Mapped& operator=(const Mapped&) = delete;
    ~Mapped() { ::UnmapViewOfFile(m_pView); }

private:
    UniqueKernelHandle m_section;
    const void* m_pView = nullptr;
};

/// FileRenameInfoEx: replaces an existing file with POSIX semantics.
std::wstring RenameOnto(const std::wstring& tstrFolder, const std::wstring& tstrTarget)
{
    const UniqueFile file = Open(WriteFileAt(tstrFolder + L"new", "new"), DELETE | SYNCHRONIZE, kShareAll);
    std::vector<BYTE> request(sizeof(FILE_RENAME_INFO) + tstrTarget.size() * sizeof(wchar_t));
    auto* const pInfo = reinterpret_cast<FILE_RENAME_INFO*>(request.data());
    constexpr DWORD kReplaceIfExistsPosix = 3;
    std::memcpy(pInfo, &kReplaceIfExistsPosix, sizeof(DWORD));
    pInfo->FileNameLength = static_cast<DWORD>(tstrTarget.size() * sizeof(wchar_t));
    std::memcpy(pInfo->FileName, tstrTarget.c_str(), pInfo->FileNameLength);
    return Outcome(::SetFileInformationByHandle(file.Get(), static_cast<FILE_INFO_BY_HANDLE_CLASS>(22), pInfo,
                                                static_cast<DWORD>(request.size())));
}

std::wstring RenameOntoRead(const std::wstring& tstrFolder, DWORD dwShare)
{
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
    const UniqueFile reader = Open(tstrOld, GENERIC_READ, dwShare);
    return RenameOnto(tstrFolder, tstrOld);
}

std::wstring RenameOntoMapped(const std::wstring& tstrFolder)
{
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
    const Mapped mapped(tstrOld);
    return RenameOnto(tstrFolder, tstrOld);
}

std::wstring RenameOntoFolder(const std::wstring& tstrFolder)
{
    ::CreateDirectoryW((tstrFolder + L"old").c_str(), nullptr);
    return RenameOnto(tstrFolder, tstrFolder + L"old");
}

/// FileDispositionInfoEx: deletes the name at once, unless the file is a running program.
std::wstring DeleteAtOnce(const std::wstring& tstrPath)
{
    const UniqueFile file = Open(tstrPath, DELETE, kShareAll);
    if (!file) return Outcome(FALSE);
    DWORD dwHow = 0x1 | 0x2 | 0x4;
    if (!::SetFileInformationByHandle(file.Get(), static_cast<FILE_INFO_BY_HANDLE_CLASS>(21), &dwHow, sizeof(dwHow))) {
        return Outcome(FALSE);
    }
    return ::GetFileAttributesW(tstrPath.c_str()) == INVALID_FILE_ATTRIBUTES ? L"gone" : L"there until it is closed";
}

std::wstring DeleteRead(const std::wstring& tstrFolder, DWORD dwShare)
{
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
    const UniqueFile reader = Open(tstrOld, GENERIC_READ, dwShare);
    return DeleteAtOnce(tstrOld);
}

// -- folders --

/// A volume mounted in a folder beside the trial's folder, so that deleting the trial's folder never finds a whole
/// drive in it.
class Mount {
public:
    Mount() : m_tstrPath((std::filesystem::temp_directory_path() / L"brevant-trial-mount" / L"").wstring()) {}
    Mount(const Mount&) = delete;
    Mount& operator=(const Mount&) = delete;
    ~Mount()
    {
        ::DeleteVolumeMountPointW(m_tstrPath.c_str());
        ::RemoveDirectoryW(m_tstrPath.c_str());
    }
    [[nodiscard]] bool Make(const std::wstring& tstrDrive) const
    {
        wchar_t szVolume[MAX_PATH] = {};
        ::CreateDirectoryW(m_tstrPath.c_str(), nullptr);
        return ::GetVolumeNameForVolumeMountPointW(tstrDrive.c_str(), szVolume, MAX_PATH) &&
               ::SetVolumeMountPointW(m_tstrPath.c_str(), szVolume);
    }
    [[nodiscard]] const std::wstring& Path() const noexcept { return m_tstrPath; }

private:
    std::wstring m_tstrPath;
};

/// Deletes a file in the root of the system drive through a folder that is the drive's mount point.
std::wstring DeleteInMountedRoot(const std::wstring&)
{
    wchar_t szWindows[MAX_PATH] = {};
    ::GetSystemWindowsDirectoryW(szWindows, MAX_PATH);
    const std::wstring tstrDrive(szWindows, 3);
    const Mount mount;
    if (!::IsUserAnAdmin() || !mount.Make(tstrDrive)) return {};
    const std::wstring tstrFile = WriteFileAt(tstrDrive + L"brevant-trial-mounted.tmp", "a");
    DWORD dwError = ERROR_SUCCESS;
    const bool bDeleted = Storage::Directory::DeleteFiles(mount.Path(), L"brevant-trial-mounted.tmp", &dwError);
    ::DeleteFileW(tstrFile.c_str());
    ::SetLastError(dwError);
    return Outcome(bDeleted);
}

/// Runs an action in a folder with a file "a" that may be traversed but not listed.
std::wstring InUnlisted(const std::wstring& tstrFolder, std::wstring (*pfnAct)(const std::wstring& tstrClosed))
{
    const std::wstring tstrClosed = tstrFolder + L"closed\\";
    ::CreateDirectoryW(tstrClosed.c_str(), nullptr);
    WriteFileAt(tstrClosed + L"a", "a");
    Descriptor(L"D:P(D;;CC;;;WD)(A;OICI;FA;;;WD)").GiveTo(tstrClosed, DACL_SECURITY_INFORMATION);
    const std::wstring tstrSeen = pfnAct(tstrClosed);
    Descriptor(L"D:P(A;OICI;FA;;;WD)").GiveTo(tstrClosed, DACL_SECURITY_INFORMATION);
    return tstrSeen;
}

std::wstring List(const std::wstring& tstrPattern)
{
    WIN32_FIND_DATAW data{};
    return Outcome(UniqueFind(::FindFirstFileW(tstrPattern.c_str(), &data)).IsValid());
}

// question, assumed, Wine 8 | Wine 10 where they differ, what depends on it; clang-format would give each trial lines
// of its own
// clang-format off
constexpr Assumption kFileRows[] = {
    {L"a new file with the system as owner", L"refused (1307)", L"done",
     L"a replacement is created without its owner", &CreateForSystem},
    {L"the same with SeRestorePrivilege enabled", L"done", nullptr, L"the owner is set with that privilege",
     &CreateForSystemWithPrivilege},
    {L"a system file that administrators may change, copied over", L"new content, O:SY",
     L"new content, O:S-1-5-21-0-0-0-1000",
     L"a replaced file keeps its owner", &CopyOverSystemFile},
    {L"a protected access list after a file was copied over", L"as before", nullptr,
     L"a replaced file keeps its rights",
     [](const std::wstring& tstrFolder) { return ListAfterCopy(tstrFolder, L"D:P(A;;FA;;;BA)(A;;FA;;;IU)"); }},
    {L"an inherited access list after a file was copied over", L"as before", nullptr, L"the same",
     [](const std::wstring& tstrFolder) { return ListAfterCopy(tstrFolder, nullptr); }},
    {L"a file without any rights, deleted with its folder's", L"done", nullptr,
     L"what \"delete_now\" can delete",
     &DeleteByFolder},
    {L"POSIX rename over a file open with shared deletion", L"done", L"refused (87)",
     L"scanners and indexers do not block a replacement",
     [](const std::wstring& tstrFolder) { return RenameOntoRead(tstrFolder, kShareAll); }},
    {L"POSIX rename over a file open without shared deletion", L"refused (5)", L"refused (87)",
     L"a replacement is tried again, then copied onto",
     [](const std::wstring& tstrFolder) { return RenameOntoRead(tstrFolder, FILE_SHARE_READ); }},
    {L"POSIX rename over a mapped file", L"done", L"refused (87)", L"the same", &RenameOntoMapped},
    {L"POSIX rename over a read-only file", L"refused (5)", L"refused (87)", L"a file protected by a user stays",
     [](const std::wstring& tstrFolder) {
         return RenameOnto(tstrFolder, WriteFileAt(tstrFolder + L"old", "old", FILE_ATTRIBUTE_READONLY));
     }},
    {L"POSIX rename over an empty folder", L"refused (5)", L"refused (87)", L"a folder with the file's name stays",
     &RenameOntoFolder},
    {L"CopyFileW onto a mapped file", L"refused (1224)", nullptr, L"this code counts as in use",
     [](const std::wstring& tstrFolder) {
         const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
         const Mapped mapped(tstrOld);
         return Outcome(::CopyFileW(WriteFileAt(tstrFolder + L"new", "new").c_str(), tstrOld.c_str(), FALSE));
     }},
    {L"POSIX deletion of a file that somebody reads who lets it be deleted", L"gone",
     L"refused (87) | there until it is closed",
     L"a folder is empty when its files are deleted",
     [](const std::wstring& tstrFolder) { return DeleteRead(tstrFolder, kShareAll); }},
    {L"POSIX deletion of a file open without shared deletion", L"refused (32)", nullptr,
     L"a deletion is tried again",
     [](const std::wstring& tstrFolder) { return DeleteRead(tstrFolder, FILE_SHARE_READ); }},
    {L"POSIX deletion of a mapped file", L"gone", L"refused (87) | refused (5)", L"the same",
     [](const std::wstring& tstrFolder) {
         const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
         const Mapped mapped(tstrOld);
         return DeleteAtOnce(tstrOld);
     }},
    {L"a file in the root of a mounted volume, deleted through its folder", L"done", nullptr,
     L"\"delete_now\" on a drive that is mounted in a folder", &DeleteInMountedRoot},
    {L"FindFirstFileW in a folder that may not be listed", L"refused (5)", L"done",
     L"such a folder is not taken as empty",
     [](const std::wstring& tstrFolder) {
         return InUnlisted(tstrFolder, [](const std::wstring& tstrClosed) { return List(tstrClosed + L"*"); });
     }},
    {L"the same for one file by its name", L"refused (5)", L"done", L"the same",
     [](const std::wstring& tstrFolder) {
         return InUnlisted(tstrFolder, [](const std::wstring& tstrClosed) { return List(tstrClosed + L"a"); });
     }},
    {L"GetFileAttributesW of a file in such a folder", L"done", nullptr, L"a named file can be found there",
     [](const std::wstring& tstrFolder) {
         return InUnlisted(tstrFolder, [](const std::wstring& tstrClosed) {
             return Outcome(::GetFileAttributesW((tstrClosed + L"a").c_str()) != INVALID_FILE_ATTRIBUTES);
         });
     }},
    {L"FindFirstFileW in a file", L"refused (267)", L"refused (123)", L"a file is not taken as an empty folder",
     [](const std::wstring& tstrFolder) { return List(WriteFileAt(tstrFolder + L"a", "a") + L"\\*"); }},
};
// clang-format on

}  // namespace

std::span<const Assumption> FileAssumptions()
{
    return kFileRows;
}

}  // namespace Platform
