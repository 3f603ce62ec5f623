#include "agent/SettingsFiles.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"

using namespace KzCommon;

namespace {

constexpr LanguageFile kLanguageFiles[] = {{L"config", L"xml", true}, {L"qorshcut", L"xml"}, {L"readme", L"htm"}};
constexpr unsigned kKeptFiles = 9;
constexpr std::size_t kMaxComparedBytes = std::size_t{16} * 1024 * 1024;

/// One of the names that kept files have: "config.previous.xml", "config.previous.2.xml" and so on.
std::wstring KeptName(const std::wstring& tstrUsersFile, unsigned uNumber)
{
    const std::wstring tstrNumber = uNumber == 1 ? std::wstring() : L"." + std::to_wstring(uNumber);
    return tstrUsersFile.substr(0, tstrUsersFile.rfind(L'.')) + L".previous" + tstrNumber + L".xml";
}

/// What the system knows of a file, which it also tells while others hold it.
bool IdentityOf(const std::wstring& tstrFile, BY_HANDLE_FILE_INFORMATION& info)
{
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const UniqueFile file(::CreateFileW(tstrFile.c_str(), FILE_READ_ATTRIBUTES, kShare, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    return file && ::GetFileInformationByHandle(file.Get(), &info);
}

/// Whether two paths are names of one file, as a file that could only be kept by a link has them.
bool IsOneFile(const std::wstring& tstrFile, const std::wstring& tstrOther)
{
    BY_HANDLE_FILE_INFORMATION file{};
    BY_HANDLE_FILE_INFORMATION other{};
    return IdentityOf(tstrFile, file) && IdentityOf(tstrOther, other) &&
           file.dwVolumeSerialNumber == other.dwVolumeSerialNumber && file.nFileIndexHigh == other.nFileIndexHigh &&
           file.nFileIndexLow == other.nFileIndexLow;
}

}  // namespace

std::span<const LanguageFile> LanguageFiles() noexcept
{
    return kLanguageFiles;
}

bool IsUpdateInfoCopied(const std::wstring& tstrInstalled, const std::wstring& tstrDownloaded)
{
    return Storage::File::IsExisted(tstrInstalled) &&
           ::GetFileAttributesW(tstrDownloaded.c_str()) == INVALID_FILE_ATTRIBUTES;
}

bool IsKeptIn(const std::wstring& tstrKept, const std::wstring& tstrUsersFile)
{
    std::string strKept;
    std::string strUsers;
    return IsOneFile(tstrKept, tstrUsersFile) ||
           (Storage::File::ReadWhole(tstrKept, kMaxComparedBytes, strKept, nullptr) &&
            Storage::File::ReadWhole(tstrUsersFile, kMaxComparedBytes, strUsers, nullptr) && strKept == strUsers);
}

std::wstring KeptFileFor(const std::wstring& tstrUsersFile)
{
    for (unsigned uNumber = 1; uNumber < kKeptFiles; ++uNumber) {
        std::wstring tstrKept = KeptName(tstrUsersFile, uNumber);
        // A folder of that name is in the way as well as a file.
        const bool bFree = ::GetFileAttributesW(tstrKept.c_str()) == INVALID_FILE_ATTRIBUTES;
        if (bFree || IsKeptIn(tstrKept, tstrUsersFile)) return tstrKept;
    }
    return KeptName(tstrUsersFile, kKeptFiles);
}

bool IsKeptFileFor(const std::wstring& tstrUsersFile, std::wstring_view tstrPath)
{
    for (unsigned uNumber = 1; uNumber <= kKeptFiles; ++uNumber) {
        if (String::EqualsNoCase(KeptName(tstrUsersFile, uNumber), tstrPath)) return true;
    }
    return false;
}

std::vector<std::wstring> KeptFilesLike(const std::wstring& tstrUsersFile)
{
    std::vector<std::wstring> files;
    for (unsigned uNumber = 1; uNumber <= kKeptFiles; ++uNumber) {
        std::wstring tstrKept = KeptName(tstrUsersFile, uNumber);
        if (Storage::File::IsExisted(tstrKept) && IsKeptIn(tstrKept, tstrUsersFile)) files.push_back(tstrKept);
    }
    return files;
}

std::wstring NewestKeptFile(const std::wstring& tstrUsersFile)
{
    for (unsigned uNumber = kKeptFiles; uNumber > 0; --uNumber) {
        std::wstring tstrKept = KeptName(tstrUsersFile, uNumber);
        if (Storage::File::IsExisted(tstrKept)) return tstrKept;
    }
    return {};
}
