#include "common/KzComn_FileReplace.h"

#include "common/KzComn_ByteArray.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Privilege.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_Retry.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <cwchar>
#include <vector>

namespace KzCommon::Storage::File {

namespace {

// A temporary file's name: the id of its process in hexadecimal digits, and a number. Its length does not depend on the
// target's name, so that a long name cannot make it too long.
constexpr std::wstring_view kPrefix = L"~kzcomn-";
constexpr std::wstring_view kSuffix = L".tmp";
constexpr std::size_t kProcessDigits = 8;
constexpr std::size_t kNameLength = kPrefix.size() + kProcessDigits + 3 + kSuffix.size();
constexpr unsigned kNames = 100;
const wchar_t kNameFormat[] = L"~kzcomn-%08lx-%02u.tmp";
const wchar_t kNamePattern[] = L"~kzcomn-*.tmp";

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// Whether the process that created a temporary file is another one that is still running.
bool IsInUse(const std::wstring& tstrName)
{
    return Process::IsAnotherRunning(
        std::wcstoul(tstrName.substr(kPrefix.size(), kProcessDigits).c_str(), nullptr, 16));
}

void DeleteTemporary(const std::wstring& tstrPath) noexcept
{
    ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
    ::DeleteFileW(tstrPath.c_str());
}

void RemoveLeftovers(const std::wstring& tstrFolder)
{
    std::vector<std::wstring> leftovers;
    const auto gather = [&](const Directory::Entry& entry) {
        if (!entry.bFolder && IsLeftover(entry.tstrName)) leftovers.push_back(tstrFolder + entry.tstrName);
    };
    static_cast<void>(Directory::ForEachEntry(tstrFolder, kNamePattern, gather, nullptr));
    for (const std::wstring& tstrPath : leftovers) DeleteTemporary(tstrPath);
}

/// Owner or access control list of an existing file.
class Security {
public:
    [[nodiscard]] bool Read(const std::wstring& tstrPath, SECURITY_INFORMATION asked, DWORD* pdwError)
    {
        DWORD cb = 0;
        ::GetFileSecurityW(tstrPath.c_str(), asked, nullptr, 0, &cb);
        if (cb == 0) return Fail(::GetLastError(), pdwError);
        m_bytes.Allocate(cb);
        return ::GetFileSecurityW(tstrPath.c_str(), asked, m_bytes.Data(), cb, &cb) || Fail(::GetLastError(), pdwError);
    }
    [[nodiscard]] PSECURITY_DESCRIPTOR Get() noexcept { return m_bytes.Data(); }

    /// The access control list's bytes; empty for a null list, which allows everyone.
    [[nodiscard]] std::string_view List() noexcept
    {
        BOOL bPresent = FALSE;
        BOOL bDefaulted = FALSE;
        PACL pList = nullptr;
        if (!::GetSecurityDescriptorDacl(Get(), &bPresent, &pList, &bDefaulted) || !bPresent || !pList) return {};
        return {reinterpret_cast<const char*>(pList), pList->AclSize};
    }
    [[nodiscard]] bool HasOwnerOf(Security& other) noexcept
    {
        BOOL bDefaulted = FALSE;
        PSID pOwner = nullptr;
        PSID pOther = nullptr;
        return ::GetSecurityDescriptorOwner(Get(), &pOwner, &bDefaulted) && pOwner &&
               ::GetSecurityDescriptorOwner(other.Get(), &pOther, &bDefaulted) && pOther && ::EqualSid(pOwner, pOther);
    }

    /// Sets bits of the descriptor.
    void Switch(SECURITY_DESCRIPTOR_CONTROL bits) noexcept { ::SetSecurityDescriptorControl(Get(), bits, bits); }
    [[nodiscard]] bool Is(SECURITY_DESCRIPTOR_CONTROL bit) noexcept
    {
        SECURITY_DESCRIPTOR_CONTROL bits = 0;
        DWORD dwRevision = 0;
        return ::GetSecurityDescriptorControl(Get(), &bits, &dwRevision) && (bits & bit) != 0;
    }

private:
    ByteArray m_bytes;
};

/// Flushes a file (read-only or not) created with CopyFileW and sets its attributes.
bool Finish(const std::wstring& tstrPath, DWORD dwAttributes, DWORD* pdwError)
{
    ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
    const auto flush = [&](DWORD& dwError) {
        const UniqueFile file(
            ::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
        if (file && ::FlushFileBuffers(file.Get())) return true;
        dwError = ::GetLastError();
        return false;
    };
    if (!RetryWhileInUse(flush, pdwError)) return false;
    return ::SetFileAttributesW(tstrPath.c_str(), dwAttributes) || Fail(::GetLastError(), pdwError);
}

/// Gives a file the owner in `security`. Opens it with backup semantics, so that the privilege replaces missing rights
/// on the file.
bool GiveTo(Security& security, const std::wstring& tstrPath, DWORD& dwError)
{
    const Process::EnabledPrivilege restore(SE_RESTORE_NAME);
    const UniqueFile file(::CreateFileW(tstrPath.c_str(), WRITE_OWNER, kShareAll, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (file && ::SetKernelObjectSecurity(file.Get(), OWNER_SECURITY_INFORMATION, security.Get())) return true;
    dwError = ::GetLastError();
    return false;
}

// FileRenameInfoEx and its flags. The toolchain's headers hide them unless built for a recent Windows 10; older systems
// reject the request.
constexpr auto kRenameInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
constexpr DWORD kReplaceIfExists = 0x1;
constexpr DWORD kPosixSemantics = 0x2;

/// Renames a file over another one. False when that one is read-only or open without shared deletion, or when the
/// system does not support the request.
bool RenameAtOnce(const std::wstring& tstrPath, const std::wstring& tstrTarget)
{
    // Like MOVEFILE_WRITE_THROUGH: the call returns when the new name is on the disk.
    constexpr DWORD kFlags = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_WRITE_THROUGH;
    const UniqueFile file(
        ::CreateFileW(tstrPath.c_str(), DELETE | SYNCHRONIZE, kShareAll, nullptr, OPEN_EXISTING, kFlags, nullptr));
    if (!file) return false;
    constexpr DWORD kHow = kReplaceIfExists | kPosixSemantics;
    static_assert(offsetof(FILE_RENAME_INFO, ReplaceIfExists) == 0 &&
                  offsetof(FILE_RENAME_INFO, RootDirectory) >= sizeof(kHow));
    const std::wstring tstrFull = Directory::FullPath(tstrTarget);
    const std::size_t cbName = tstrFull.size() * sizeof(wchar_t);
    std::vector<BYTE> request(sizeof(FILE_RENAME_INFO) + cbName);  // includes the terminating null
    auto* const pInfo = reinterpret_cast<FILE_RENAME_INFO*>(request.data());
    std::memcpy(pInfo, &kHow, sizeof(kHow));
    pInfo->FileNameLength = static_cast<DWORD>(cbName);
    std::memcpy(pInfo->FileName, tstrFull.c_str(), cbName);
    return ::SetFileInformationByHandle(file.Get(), kRenameInfoEx, pInfo, static_cast<DWORD>(request.size())) != FALSE;
}

}  // namespace

bool IsTemporaryName(std::wstring_view tstrName) noexcept
{
    if (tstrName.size() != kNameLength || !tstrName.starts_with(kPrefix) || !tstrName.ends_with(kSuffix)) return false;
    const std::wstring_view tstrProcess = tstrName.substr(kPrefix.size(), kProcessDigits);
    const std::wstring_view tstrNumber = tstrName.substr(kPrefix.size() + kProcessDigits, 3);
    const auto isDigit = [](wchar_t ch) {
        return ch >= L'0' && ch <= L'9';
    };
    const auto isHexDigit = [&](wchar_t ch) {
        return isDigit(ch) || (ch >= L'a' && ch <= L'f');
    };
    return std::all_of(tstrProcess.begin(), tstrProcess.end(), isHexDigit) && tstrNumber[0] == L'-' &&
           isDigit(tstrNumber[1]) && isDigit(tstrNumber[2]);
}

bool IsLeftover(const std::wstring& tstrName)
{
    return IsTemporaryName(tstrName) && !IsInUse(tstrName);
}

Replacement::~Replacement()
{
    if (!m_tstrPath.empty()) DeleteTemporary(m_tstrPath);
}

bool Replacement::Create(const std::wstring& tstrLike, DWORD dwAttributes, DWORD* pdwError)
{
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
    Security security;
    if (!tstrLike.empty()) {
        // Without the owner: Windows does not create a file for an owner that the caller may not assign.
        if (!security.Read(tstrLike, DACL_SECURITY_INFORMATION, pdwError)) return false;
        security.Switch(SE_DACL_PROTECTED);  // no inherited rights, even for a moment
        attributes.lpSecurityDescriptor = security.Get();
    }
    const std::wstring tstrFolder = String::FolderPart(m_tstrTarget);
    RemoveLeftovers(tstrFolder);
    for (unsigned uName = 0; uName < kNames; ++uName) {
        wchar_t szName[kNameLength + 1] = {};
        ::_snwprintf_s(szName, _TRUNCATE, kNameFormat, ::GetCurrentProcessId(), uName);
        const std::wstring tstrPath = tstrFolder + szName;
        // A link at this path makes the call fail; it is not followed.
        const UniqueFile file(::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, 0, &attributes, CREATE_NEW,
                                            dwAttributes | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        if (file) {
            m_tstrPath = tstrPath;
            return true;
        }
        const DWORD dwError = ::GetLastError();
        if (dwError != ERROR_FILE_EXISTS && dwError != ERROR_ALREADY_EXISTS) return Fail(dwError, pdwError);
    }
    return Fail(ERROR_FILE_EXISTS, pdwError);
}

bool Replacement::CopyFrom(const std::wstring& tstrSource, DWORD* pdwError)
{
    // Copy over the empty file, which keeps its access rights.
    const auto copy = [&](DWORD& dwError) {
        if (::CopyFileW(tstrSource.c_str(), m_tstrPath.c_str(), FALSE)) return true;
        dwError = ::GetLastError();
        return false;
    };
    if (!RetryWhileInUse(copy, pdwError)) return false;
    // The attributes that a copy to a new file gets; Wine ignores them when it overwrites a file.
    constexpr DWORD kCopied =
        FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
    const DWORD dwAttributes = ::GetFileAttributesW(tstrSource.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES) return Fail(::GetLastError(), pdwError);
    return Finish(m_tstrPath, (dwAttributes & kCopied) | FILE_ATTRIBUTE_ARCHIVE, pdwError);
}

bool Replacement::Write(std::string_view strBytes, DWORD* pdwError)
{
    const auto write = [&](DWORD& dwError) {
        const UniqueFile file(::CreateFileW(m_tstrPath.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        DWORD cbWritten = 0;
        const DWORD cb = static_cast<DWORD>(strBytes.size());
        const bool bOk = file && ::WriteFile(file.Get(), strBytes.data(), cb, &cbWritten, nullptr) &&
                         ::SetEndOfFile(file.Get()) && ::FlushFileBuffers(file.Get());
        dwError = bOk ? ERROR_DISK_FULL : ::GetLastError();
        return bOk && cbWritten == cb;
    };
    return RetryWhileInUse(write, pdwError);
}

bool Replacement::TakeAccess(const std::wstring& tstrLike, DWORD* pdwError)
{
    Security wanted;
    if (!wanted.Read(tstrLike, DACL_SECURITY_INFORMATION, pdwError)) return false;
    const std::string strWanted(wanted.List());
    // Without the request bit the system forgets that the list is inherited.
    if (wanted.Is(SE_DACL_AUTO_INHERITED)) wanted.Switch(SE_DACL_AUTO_INHERIT_REQ);
    const DWORD dwAttributes = ::GetFileAttributesW(m_tstrPath.c_str());
    if (!::SetFileSecurityW(m_tstrPath.c_str(), DACL_SECURITY_INFORMATION, wanted.Get())) {
        return Fail(::GetLastError(), pdwError);
    }
    Security given;
    if (!given.Read(m_tstrPath, DACL_SECURITY_INFORMATION, pdwError)) return false;
    if (given.List() != strWanted) return Fail(ERROR_INVALID_ACL, pdwError);
    // Under Wine the access rights make a file read-only.
    if (::GetFileAttributesW(m_tstrPath.c_str()) != dwAttributes) {
        ::SetFileAttributesW(m_tstrPath.c_str(), dwAttributes);
    }
    return true;
}

void Replacement::TakeOwner(const std::wstring& tstrLike)
{
    Security wanted;
    Security given;
    DWORD dwError = ERROR_SUCCESS;
    if (wanted.Read(tstrLike, OWNER_SECURITY_INFORMATION, &dwError) &&
        given.Read(m_tstrPath, OWNER_SECURITY_INFORMATION, &dwError) &&
        (given.HasOwnerOf(wanted) || GiveTo(wanted, m_tstrPath, dwError))) {
        return;
    }
    Trace(kTraceError, L"*** KzCommon::Storage::File - [%s] does not keep its owner. [0x%08x]", m_tstrTarget.c_str(),
          dwError);
}

bool Replacement::TakePlace(DWORD* pdwError)
{
    const auto rename = [&](DWORD& dwError) {
        if (RenameAtOnce(m_tstrPath, m_tstrTarget)) return true;
        // An older Windows or another file system may not support the request. If something else blocks both calls,
        // this one returns its code.
        constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
        if (::MoveFileExW(m_tstrPath.c_str(), m_tstrTarget.c_str(), kFlags)) return true;
        dwError = ::GetLastError();
        return false;
    };
    if (!RetryWhileInUse(rename, pdwError)) return false;
    m_tstrPath.clear();
    return true;
}

}  // namespace KzCommon::Storage::File
