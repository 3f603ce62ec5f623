#include "agent/SettingsFiles.h"

#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

constexpr LanguageFile kLanguageFiles[] = {{L"config", L"xml", true}, {L"qorshcut", L"xml"}, {L"readme", L"htm"}};
constexpr unsigned kKeptFiles = 9;
constexpr std::size_t kMaxComparedBytes = std::size_t{16} * 1024 * 1024;

/// The name of kept file `uNumber`: "config.previous.xml", "config.previous.2.xml" and so on.
std::wstring KeptName(const std::wstring& tstrUsersFile, unsigned uNumber)
{
    const std::wstring tstrNumber = uNumber == 1 ? std::wstring() : L"." + std::to_wstring(uNumber);
    return tstrUsersFile.substr(0, tstrUsersFile.rfind(L'.')) + L".previous" + tstrNumber + L".xml";
}

}  // namespace

std::span<const LanguageFile> LanguageFiles() noexcept
{
    return kLanguageFiles;
}

std::wstring InstalledName(const LanguageFile& file)
{
    return file.szBase + (L"." + std::wstring(file.szExtension));
}

std::wstring NameInLanguage(const LanguageFile& file, const std::wstring& tstrLanguage)
{
    return file.szBase + (L"_" + tstrLanguage) + L"." + file.szExtension;
}

std::optional<std::wstring> LanguageOf(const LanguageFile& file, std::wstring_view tstrName)
{
    const std::wstring tstrBefore = file.szBase + std::wstring(L"_");
    const std::size_t cchAfter = 1 + std::wstring_view(file.szExtension).size();
    if (tstrName.size() <= tstrBefore.size() + cchAfter) return std::nullopt;
    std::wstring tstrLanguage(tstrName.substr(tstrBefore.size(), tstrName.size() - tstrBefore.size() - cchAfter));
    if (!String::EqualsNoCase(NameInLanguage(file, tstrLanguage), tstrName)) return std::nullopt;
    return tstrLanguage;
}

bool BringsUpdateInfo(const Machine& machine, const std::wstring& tstrDownloaded)
{
    return machine.HasAny(tstrDownloaded);
}

bool IsUpdateInfoCopied(const Machine& machine, const std::wstring& tstrInstalled, const std::wstring& tstrDownloaded)
{
    return machine.HasFile(tstrInstalled) && !BringsUpdateInfo(machine, tstrDownloaded);
}

bool IsKeptIn(const Machine& machine, const std::wstring& tstrKept, const std::wstring& tstrUsersFile)
{
    std::string strKept;
    std::string strUsers;
    return machine.IsSameFile(tstrKept, tstrUsersFile) ||
           (machine.ReadContent(tstrKept, kMaxComparedBytes, strKept, nullptr) &&
            machine.ReadContent(tstrUsersFile, kMaxComparedBytes, strUsers, nullptr) && strKept == strUsers);
}

std::wstring KeptFileFor(const Machine& machine, const std::wstring& tstrUsersFile)
{
    for (unsigned uNumber = 1; uNumber < kKeptFiles; ++uNumber) {
        std::wstring tstrKept = KeptName(tstrUsersFile, uNumber);
        // A folder with that name blocks it, too.
        const bool bFree = !machine.HasAny(tstrKept);
        if (bFree || IsKeptIn(machine, tstrKept, tstrUsersFile)) return tstrKept;
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

std::vector<std::wstring> KeptFilesLike(const Machine& machine, const std::wstring& tstrUsersFile)
{
    std::vector<std::wstring> files;
    for (unsigned uNumber = 1; uNumber <= kKeptFiles; ++uNumber) {
        const std::wstring tstrKept = KeptName(tstrUsersFile, uNumber);
        if (machine.HasFile(tstrKept) && IsKeptIn(machine, tstrKept, tstrUsersFile)) files.push_back(tstrKept);
    }
    return files;
}

std::wstring NewestKeptFile(const Machine& machine, const std::wstring& tstrUsersFile)
{
    for (unsigned uNumber = kKeptFiles; uNumber > 0; --uNumber) {
        std::wstring tstrKept = KeptName(tstrUsersFile, uNumber);
        if (machine.HasFile(tstrKept)) return tstrKept;
    }
    return {};
}
