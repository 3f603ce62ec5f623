#include "agent/SettingsFiles.h"

#include "common/KzComn_File.h"
#include "common/KzComn_WholeFile.h"

using namespace KzCommon;

namespace {

constexpr LanguageFile kLanguageFiles[] = {{L"config", L"xml"}, {L"qorshcut", L"xml"}, {L"readme", L"htm"}};
constexpr unsigned kKeptFiles = 9;
constexpr std::size_t kMaxComparedBytes = std::size_t{16} * 1024 * 1024;

/// One of the names that kept files have: "config.previous.xml", "config.previous.2.xml" and so on.
std::wstring KeptName(const std::wstring& tstrUsersFile, unsigned uNumber)
{
    const std::wstring tstrNumber = uNumber == 1 ? std::wstring() : L"." + std::to_wstring(uNumber);
    return tstrUsersFile.substr(0, tstrUsersFile.rfind(L'.')) + L".previous" + tstrNumber + L".xml";
}

bool HoldSame(const std::wstring& tstrFile, const std::wstring& tstrOther)
{
    std::string strBytes;
    std::string strOther;
    return Storage::File::ReadWhole(tstrFile, kMaxComparedBytes, strBytes, nullptr) &&
           Storage::File::ReadWhole(tstrOther, kMaxComparedBytes, strOther, nullptr) && strBytes == strOther;
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

std::wstring KeptFileFor(const std::wstring& tstrUsersFile)
{
    for (unsigned uNumber = 1; uNumber < kKeptFiles; ++uNumber) {
        std::wstring tstrKept = KeptName(tstrUsersFile, uNumber);
        if (!Storage::File::IsExisted(tstrKept) || HoldSame(tstrKept, tstrUsersFile)) return tstrKept;
    }
    return KeptName(tstrUsersFile, kKeptFiles);
}

std::wstring NewestKeptFile(const std::wstring& tstrUsersFile)
{
    for (unsigned uNumber = kKeptFiles; uNumber > 0; --uNumber) {
        std::wstring tstrKept = KeptName(tstrUsersFile, uNumber);
        if (Storage::File::IsExisted(tstrKept)) return tstrKept;
    }
    return {};
}
