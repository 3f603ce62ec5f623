// Replacing and deleting files: owners, access lists, readers, mappings, mounted volumes.
#include "Assumptions.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Privilege.h"
#include "common/KzComn_Process.h"

#include <sddl.h>
#include <shlobj.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

using namespace KzCommon;

namespace Platform {

namespace {

/// A security descriptor from its text form.
std::unique_ptr<void, decltype(&::LocalFree)> Descriptor(const wchar_t* szText)
{
    void* p = nullptr;
    Require(::ConvertStringSecurityDescriptorToSecurityDescriptorW(szText, SDDL_REVISION_1, &p, nullptr),
            L"a security descriptor can be created");
    return {p, &::LocalFree};
}

void Protect(const Text& tstrPath, const wchar_t* szText, SECURITY_INFORMATION what = DACL_SECURITY_INFORMATION)
{
    Require(::SetFileSecurityW(tstrPath.c_str(), what, Descriptor(szText).get()),
            L"owner and access list of a file can be set");
}

// -- owners and access lists --

Text CreateForSystem(const Text& tstrFolder, DWORD dwWithPrivilege)
{
    if (dwWithPrivilege && !::IsUserAnAdmin()) return {};
    const auto privilege = dwWithPrivilege ? std::make_unique<Process::EnabledPrivilege>(SE_RESTORE_NAME) : nullptr;
    const auto descriptor = Descriptor(L"O:SYD:(A;;FA;;;WD)");
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.get(), FALSE};
    const UniqueFile file(
        ::CreateFileW((tstrFolder + L"a").c_str(), GENERIC_WRITE, 0, &attributes, CREATE_NEW, 0, nullptr));
    return Outcome(file.IsValid());
}

/// The owner of a system file after copying over it; administrators may change the file but do not own it.
Text CopyOverSystemFile(const Text& tstrFolder, DWORD)
{
    if (!::IsUserAnAdmin()) return {};
    const Text tstrOld = WriteFileAt(tstrFolder + L"old", "old");
    {
        const Process::EnabledPrivilege restore(SE_RESTORE_NAME);
        Protect(tstrOld, L"O:SY", OWNER_SECURITY_INFORMATION);
    }
    Protect(tstrOld, L"D:P(A;;FA;;;SY)(A;;0x1301bf;;;BA)");
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::File::Copy(tstrOld, WriteFileAt(tstrFolder + L"new", "new"), true, &dwError))
        return OutcomeOf(false, dwError);
    return (ReadFileAt(tstrOld) == "new" ? L"new content, " : L"old content, ") +
           SecurityOf(tstrOld, OWNER_SECURITY_INFORMATION);
}

/// Whether a file keeps its access list, including its bits, when copied over.
Text ListAfterCopy(const Text& tstrFolder, DWORD dwProtected)
{
    const Text tstrOld = WriteFileAt(tstrFolder + L"old", "old");
    if (dwProtected)
        Protect(tstrOld, L"D:P(A;;FA;;;BA)(A;;FA;;;IU)",
                DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION);
    const Text tstrBefore = SecurityOf(tstrOld, DACL_SECURITY_INFORMATION);
    static_cast<void>(Storage::File::Copy(tstrOld, WriteFileAt(tstrFolder + L"new", "new"), true, nullptr));
    const Text tstrAfter = SecurityOf(tstrOld, DACL_SECURITY_INFORMATION);
    return tstrAfter == tstrBefore ? L"as before" : tstrBefore + L" became " + tstrAfter;
}

/// A file without rights for anyone, in a folder whose files may be deleted.
Text DeleteByFolder(const Text& tstrFolder, DWORD)
{
    const Text tstrPath = WriteFileAt(tstrFolder + L"a", "a");
    Protect(tstrPath, L"D:P");
    DWORD dwError = ERROR_SUCCESS;
    return OutcomeOf(Storage::File::Delete(tstrPath, &dwError), dwError);
}

// -- names that change while a file is in use --

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
enum { eSharedDeletion, eOtherReader, eMapped, eReadOnly, eFolder };

/// The file "old" in one of these states.
class Old {
public:
    Old(const Text& tstrFolder, DWORD dwState) : m_tstrPath(tstrFolder + L"old")
    {
        if (dwState == eFolder) ::CreateDirectoryW(m_tstrPath.c_str(), nullptr);
        if (dwState == eFolder) return;
        WriteFileAt(m_tstrPath, "old", dwState == eReadOnly ? FILE_ATTRIBUTE_READONLY : 0);
        if (dwState <= eMapped)
            m_file = Open(m_tstrPath, GENERIC_READ, dwState == eOtherReader ? FILE_SHARE_READ : kShareAll);
        if (dwState != eMapped) return;
        m_section.Reset(::CreateFileMappingW(m_file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
        m_pView = ::MapViewOfFile(m_section.Get(), FILE_MAP_READ, 0, 0, 0);
        Require(m_pView != nullptr, L"a file can be mapped");
        m_file.Reset();
    }
    Old(const Old&) = delete;
    Old& operator=(const Old&) = delete;
    ~Old() { ::UnmapViewOfFile(m_pView); }
    [[nodiscard]] const Text& Path() const noexcept { return m_tstrPath; }

private:
    const Text m_tstrPath;
    UniqueFile m_file;
    UniqueKernelHandle m_section;
    const void* m_pView = nullptr;
};

/// FileRenameInfoEx: replaces an existing file with POSIX semantics.
Text RenameOnto(const Text& tstrFolder, DWORD dwState)
{
    const Old old(tstrFolder, dwState);
    const UniqueFile file = Open(WriteFileAt(tstrFolder + L"new", "new"), DELETE | SYNCHRONIZE, kShareAll);
    std::vector<BYTE> request(sizeof(FILE_RENAME_INFO) + old.Path().size() * sizeof(wchar_t));
    auto* const pInfo = reinterpret_cast<FILE_RENAME_INFO*>(request.data());
    constexpr DWORD kReplaceIfExistsPosix = 3;
    std::memcpy(pInfo, &kReplaceIfExistsPosix, sizeof(DWORD));
    pInfo->FileNameLength = static_cast<DWORD>(old.Path().size() * sizeof(wchar_t));
    std::memcpy(pInfo->FileName, old.Path().c_str(), pInfo->FileNameLength);
    return Outcome(::SetFileInformationByHandle(file.Get(), static_cast<FILE_INFO_BY_HANDLE_CLASS>(22), pInfo,
                                                static_cast<DWORD>(request.size())));
}

Text CopyOntoUsed(const Text& tstrFolder, DWORD dwState)
{
    const Old old(tstrFolder, dwState);
    return Outcome(::CopyFileW(WriteFileAt(tstrFolder + L"new", "new").c_str(), old.Path().c_str(), FALSE));
}

/// FileDispositionInfoEx: deletes the name at once, unless the file is a running program.
Text DeleteAtOnce(const Text& tstrFolder, DWORD dwState)
{
    const Old old(tstrFolder, dwState);
    const UniqueFile file = Open(old.Path(), DELETE, kShareAll);
    DWORD dwHow = 0x1 | 0x2 | 0x4;
    if (!file ||
        !::SetFileInformationByHandle(file.Get(), static_cast<FILE_INFO_BY_HANDLE_CLASS>(21), &dwHow, sizeof(dwHow)))
        return Outcome(FALSE);
    return Exists(old.Path()) ? L"there until it is closed" : L"gone";
}

// -- folders --

/// Deletes a file in the root of the system drive through a folder that is the drive's mount point. The folder is
/// beside the trial's, so that deleting the trial's folder never finds a whole drive in it.
Text DeleteInMountedRoot(const Text&, DWORD)
{
    const Text tstrMount = (std::filesystem::temp_directory_path() / L"brevant-trial-mount" / L"").wstring();
    const Text tstrDrive = Process::WindowsFolder().substr(0, 3);
    const wchar_t szName[] = L"brevant-trial-mounted.tmp";
    wchar_t szVolume[MAX_PATH] = {};
    Text tstrSeen;
    ::CreateDirectoryW(tstrMount.c_str(), nullptr);
    if (::IsUserAnAdmin() && ::GetVolumeNameForVolumeMountPointW(tstrDrive.c_str(), szVolume, MAX_PATH) &&
        ::SetVolumeMountPointW(tstrMount.c_str(), szVolume)) {
        const Text tstrFile = WriteFileAt(tstrDrive + szName, "a");
        DWORD dwError = ERROR_SUCCESS;
        tstrSeen = OutcomeOf(Storage::Directory::DeleteFiles(tstrMount, szName, &dwError), dwError);
        ::DeleteFileW(tstrFile.c_str());
        ::DeleteVolumeMountPointW(tstrMount.c_str());
    }
    ::RemoveDirectoryW(tstrMount.c_str());
    return tstrSeen;
}

Text List(const Text& tstrPattern)
{
    WIN32_FIND_DATAW data{};
    return Outcome(UniqueFind(::FindFirstFileW(tstrPattern.c_str(), &data)).IsValid());
}

enum { eListAll, eListOne, eAttributes };

/// Looks at a file in a folder that may be traversed but not listed.
Text LookIntoUnlisted(const Text& tstrFolder, DWORD dwHow)
{
    const Text tstrClosed = tstrFolder + L"closed\\";
    ::CreateDirectoryW(tstrClosed.c_str(), nullptr);
    const Text tstrFile = WriteFileAt(tstrClosed + L"a", "a");
    Protect(tstrClosed, L"D:P(D;;CC;;;WD)(A;OICI;FA;;;WD)");
    const Text tstrSeen =
        dwHow == eAttributes ? Outcome(Exists(tstrFile)) : List(dwHow == eListOne ? tstrFile : tstrClosed + L"*");
    Protect(tstrClosed, L"D:P(A;OICI;FA;;;WD)");
    return tstrSeen;
}

// question, assumed, Wine 8 | Wine 10 where they differ, what depends on it
// clang-format off
constexpr Assumption kFileRows[] = {
    {L"a new file with the system as owner", L"refused (1307)", L"done", L"a replacement is created without its owner", &CreateForSystem},
    {L"the same with SeRestorePrivilege enabled", L"done", nullptr, L"the owner is set with that privilege", &CreateForSystem, TRUE},
    {L"a system file that administrators may change, copied over", L"new content, O:SY",
     L"new content, O:S-1-5-21-0-0-0-1000", L"a replaced file keeps its owner", &CopyOverSystemFile},
    {L"a protected access list after a file was copied over", L"as before", nullptr, L"a replaced file keeps its rights", &ListAfterCopy, TRUE},
    {L"an inherited access list after a file was copied over", L"as before", nullptr, L"the same", &ListAfterCopy},
    {L"a file without any rights, deleted with its folder's", L"done", nullptr, L"what \"delete_now\" can delete", &DeleteByFolder},
    {L"POSIX rename over a file open with shared deletion", L"done", L"refused (87)",
     L"scanners and indexers do not block a replacement", &RenameOnto, eSharedDeletion},
    {L"POSIX rename over a file open without shared deletion", L"refused (5)", L"refused (87)",
     L"a replacement is tried again, then copied onto", &RenameOnto, eOtherReader},
    {L"POSIX rename over a mapped file", L"done", L"refused (87)", L"the same", &RenameOnto, eMapped},
    {L"POSIX rename over a read-only file", L"refused (5)", L"refused (87)", L"a file protected by a user stays", &RenameOnto, eReadOnly},
    {L"POSIX rename over an empty folder", L"refused (5)", L"refused (87)", L"a folder with the file's name stays", &RenameOnto, eFolder},
    {L"CopyFileW onto a mapped file", L"refused (1224)", nullptr, L"this code counts as in use", &CopyOntoUsed, eMapped},
    {L"POSIX deletion of a file that somebody reads who lets it be deleted", L"gone",
     L"refused (87) | there until it is closed", L"a folder is empty when its files are deleted", &DeleteAtOnce, eSharedDeletion},
    {L"POSIX deletion of a file open without shared deletion", L"refused (32)", nullptr, L"a deletion is tried again", &DeleteAtOnce, eOtherReader},
    {L"POSIX deletion of a mapped file", L"gone", L"refused (87) | refused (5)", L"the same", &DeleteAtOnce, eMapped},
    {L"a file in the root of a mounted volume, deleted through its folder", L"done", nullptr,
     L"\"delete_now\" on a drive that is mounted in a folder", &DeleteInMountedRoot},
    {L"FindFirstFileW in a folder that may not be listed", L"refused (5)", L"done",
     L"such a folder is not taken as empty", &LookIntoUnlisted, eListAll},
    {L"the same for one file by its name", L"refused (5)", L"done", L"the same", &LookIntoUnlisted, eListOne},
    {L"GetFileAttributesW of a file in such a folder", L"done", nullptr, L"a named file can be found there", &LookIntoUnlisted, eAttributes},
};
// clang-format on

}  // namespace

std::span<const Assumption> FileAssumptions()
{
    return kFileRows;
}

Text SecurityOf(const Text& tstrPath, SECURITY_INFORMATION what)
{
    BYTE found[4096] = {};
    DWORD cb = sizeof(found);
    wchar_t* szText = nullptr;
    if (!::GetFileSecurityW(tstrPath.c_str(), what, found, cb, &cb) ||
        !::ConvertSecurityDescriptorToStringSecurityDescriptorW(found, SDDL_REVISION_1, what, &szText, nullptr))
        return L"not known";
    const Text tstrText = szText;
    ::LocalFree(szText);
    return tstrText;
}

}  // namespace Platform
