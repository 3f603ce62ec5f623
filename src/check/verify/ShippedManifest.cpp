#include "check/verify/ShippedManifest.h"

#include "check/verify/Destination.h"
#include "check/verify/Manifest.h"

#include "agent/DownloadPath.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

#include <optional>

using namespace KzCommon;

namespace Check {

namespace {

/// The manifest of the update in the download folder; empty when that is not below the install folder.
std::wstring DownloadedManifest(const Folder& installed)
{
    const DownloadKey& key = ProductDownloadKey();
    std::wstring tstrPackage = key.szDefault;
    const WindowsMachine machine;
    static_cast<void>(ReadDownloadPath(machine, installed / kUpdateInfoFile, key, tstrPackage));
    MachineFolders folders(installed, tstrPackage);
    const Destination place{kInstalledDir, kComponents + tstrPackage + L"\\Share\\Setting\\" + kShippedManifest};
    return folders.LeadsElsewhere(machine, place) ? std::wstring() : folders.PathOf(place);
}

/// The last write time of a file; empty when it does not exist.
std::optional<ULONGLONG> TimeOf(const std::wstring& tstrPath)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (tstrPath.empty() || !::GetFileAttributesExW(LongPath(tstrPath).c_str(), GetFileExInfoStandard, &data))
        return {};
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) return {};
    return ULARGE_INTEGER{{data.ftLastWriteTime.dwLowDateTime, data.ftLastWriteTime.dwHighDateTime}}.QuadPart;
}

}  // namespace

std::wstring FindShippedManifest(const Folder& installed, const PendingPlaces& pending)
{
    std::wstring tstrFound = installed / kShippedManifest;
    const PendingFate fate = pending.After(tstrFound);
    // Another program may move a file there, too: one from elsewhere does not belong to an update.
    if (fate.eKind == PendingFate::Kind::eTaken && installed.Contains(fate.tstrFrom)) {
        tstrFound = fate.tstrFrom;
    }
    std::wstring tstrDownloaded = DownloadedManifest(installed);
    const auto optFound = TimeOf(tstrFound);
    const auto optDownloaded = TimeOf(tstrDownloaded);
    if (optDownloaded && (!optFound || *optDownloaded > *optFound)) return tstrDownloaded;
    return optFound ? tstrFound : std::wstring();
}

std::optional<ULONGLONG> TimeOfArrival(const std::wstring& tstrManifest)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const UniqueFile hFile(::CreateFileW(LongPath(tstrManifest).c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr,
                                         OPEN_EXISTING, 0, nullptr));
    // A move keeps the times of creation and writing, and sets this one.
    FILE_BASIC_INFO times{};
    if (!hFile || !::GetFileInformationByHandleEx(hFile.Get(), FileBasicInfo, &times, sizeof(times)) ||
        times.ChangeTime.QuadPart <= 0) {
        return std::nullopt;
    }
    return static_cast<ULONGLONG>(times.ChangeTime.QuadPart);
}

void AddOwnContent(const std::wstring& tstrManifest, ExpectedState& expected)
{
    ContentReader reader;
    Content content;
    if (!reader.Read(tstrManifest, content, nullptr)) return;
    for (ExpectedFile& file : expected.files) {
        if (String::EqualsNoCase(file.tstrPlace, kInstalledDir + std::wstring(kShippedManifest))) {
            file.optContent = content;
        }
    }
}

}  // namespace Check
