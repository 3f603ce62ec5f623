#include "check/verify/Destination.h"

#include "common/KzComn_File.h"
#include "common/KzComn_FileName.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMaxCharacters = 1023;

/// All placeholders of places, in the order in which a full path is compared with their folders.
const std::vector<std::wstring>& PlaceholdersOfPlaces()
{
    static const std::vector<std::wstring> s_placeholders = [] {
        std::vector<std::wstring> placeholders(kPlaceholders.size());
        std::transform(kPlaceholders.begin(), kPlaceholders.end(), placeholders.begin(),
                       [](const Placeholder& placeholder) { return placeholder.szText; });
        placeholders.insert(placeholders.end(), {kAppData, kSystemDrive});
        return placeholders;
    }();
    return s_placeholders;
}

/// The placeholder at the beginning of a place, or an empty text.
std::wstring PlaceholderOf(std::wstring_view tstrPlace)
{
    for (const std::wstring& tstrPlaceholder : PlaceholdersOfPlaces()) {
        if (tstrPlace.starts_with(tstrPlaceholder)) return tstrPlaceholder;
    }
    return {};
}

/// Replaces the folder of a placeholder while a place is resolved; never accessed.
constexpr wchar_t kStandIn[] = L"C:\\{}\\";

}  // namespace

bool IsRelativeName(std::wstring_view tstrName, bool bPattern)
{
    if (tstrName.empty() || tstrName.size() > kMaxCharacters) return false;
    while (true) {
        const std::size_t uEnd = tstrName.find(L'\\');
        std::wstring tstrPart(tstrName.substr(0, uEnd));
        const bool bLast = uEnd == std::wstring_view::npos;
        if (bLast && bPattern) {
            // Treat wildcards like letters, but keep dots and spaces beside them.
            std::replace_if(
                tstrPart.begin(), tstrPart.end(), [](wchar_t ch) { return ch == L'*' || ch == L'?'; }, L'x');
        }
        if (!Storage::File::IsPlainName(tstrPart)) return false;
        if (bLast) return true;
        tstrName.remove_prefix(uEnd + 1);
    }
}

bool ParseDestination(std::wstring_view tstrText, bool bPattern, Destination& destination)
{
    const std::wstring tstrPlaceholder = PlaceholderOf(tstrText);
    if (tstrPlaceholder.empty()) return false;
    std::wstring_view tstrName = tstrText.substr(tstrPlaceholder.size());
    if (tstrName.starts_with(L'\\')) tstrName.remove_prefix(1);
    if (!tstrName.empty() && !IsRelativeName(tstrName, bPattern)) return false;
    if (tstrPlaceholder == kSystemDrive && tstrName.find(L'\\') != std::wstring_view::npos) return false;
    destination = {tstrPlaceholder, std::wstring(tstrName)};
    return true;
}

std::optional<std::wstring> PlainPlace(const std::wstring& tstrRecord, bool bPattern)
{
    const std::wstring tstrPlaceholder = PlaceholderOf(tstrRecord);
    std::wstring tstrPath = tstrRecord;
    if (!tstrPlaceholder.empty()) tstrPath.replace(0, tstrPlaceholder.size(), kStandIn);
    if (!String::IsFullPath(tstrPath)) return std::nullopt;
    const std::size_t uName = bPattern ? String::FolderPart(tstrPath).size() : tstrPath.size();
    const std::wstring tstrName = tstrPath.substr(uName);
    tstrPath = String::EnsureBackslash(Storage::Directory::FullPath(tstrPath.substr(0, uName))) + tstrName;
    if (!tstrPlaceholder.empty()) {
        if (!tstrPath.starts_with(kStandIn)) return std::nullopt;
        tstrPath.replace(0, std::size(kStandIn) - 1, tstrPlaceholder);
    }
    if (!bPattern && tstrPath.ends_with(L'\\')) tstrPath.pop_back();
    return tstrPath;
}

MachineFolders::MachineFolders(const Folder& installed, const std::wstring& tstrDownloadPath)
    : MachineFolders(WindowsMachine(), installed, tstrDownloadPath)
{
}

MachineFolders::MachineFolders(const Machine& machine, const Folder& installed, const std::wstring& tstrDownloadPath)
{
    PathValues paths(machine);
    paths.ReadLogFolders();
    if (IsRelativeName(tstrDownloadPath)) paths.TakeProductFolders(installed, tstrDownloadPath);
    const PlaceholderFolders folders = paths.FoldersOfPlaceholders(installed);
    for (const Placeholder& placeholder : kPlaceholders) {
        if (folders.*placeholder.pFolder) m_folders[placeholder.szText] = *(folders.*placeholder.pFolder);
    }
    m_folders[kAppData] = machine.FolderOf(KnownFolder::eCommonAppData);
    m_folders[kSystemDrive] = machine.FolderOf(KnownFolder::eSystem).substr(0, std::size(L"C:\\") - 1);
}

const Folder& MachineFolders::FolderOf(const std::wstring& tstrPlaceholder) const
{
    static const Folder unknown;
    const auto itFolder = m_folders.find(tstrPlaceholder);
    // A path that is not full depends on the current folder.
    return itFolder != m_folders.end() && String::IsFullPath(itFolder->second.Text()) ? itFolder->second : unknown;
}

std::wstring MachineFolders::PathOf(const Destination& destination) const
{
    const Folder& folder = FolderOf(destination.tstrPlaceholder);
    return folder.IsKnown() ? folder / destination.tstrName : std::wstring();
}

std::wstring MachineFolders::PlaceOf(const std::wstring& tstrPath) const
{
    for (const std::wstring& tstrPlaceholder : PlaceholdersOfPlaces()) {
        const Folder& folder = FolderOf(tstrPlaceholder);
        if (folder.IsKnown() && String::StartsWithNoCase(tstrPath, folder.Text())) {
            return tstrPlaceholder + tstrPath.substr(folder.Text().size());
        }
    }
    return tstrPath;
}

bool MachineFolders::ParseRecordPlace(const std::wstring& tstrRecord, bool bPattern, Destination& destination) const
{
    // These two are not placeholders in records.
    if (tstrRecord.starts_with(kAppData) || tstrRecord.starts_with(kSystemDrive)) return false;
    const auto optPlain = PlainPlace(tstrRecord, bPattern);
    if (!optPlain) return false;
    if (!PlaceholderOf(*optPlain).empty()) return ParseDestination(*optPlain, bPattern, destination);
    Destination found;
    if (!ParseDestination(PlaceOf(*optPlain), bPattern, found) || found.tstrName.empty()) return false;
    if (found.tstrPlaceholder == kSystemDrive && !bPattern) return false;
    destination = std::move(found);
    return true;
}

bool MachineFolders::LeadsElsewhere(const Machine& machine, const Destination& destination)
{
    const Folder& base = FolderOf(destination.tstrPlaceholder);
    for (std::size_t uEnd = destination.tstrName.find(L'\\'); uEnd != std::wstring::npos;
         uEnd = destination.tstrName.find(L'\\', uEnd + 1)) {
        const std::wstring tstrFolder = base / destination.tstrName.substr(0, uEnd);
        const auto [itLink, bNew] = m_links.try_emplace(tstrFolder, false);
        if (bNew) itLink->second = machine.IsLink(tstrFolder);
        if (itLink->second) return true;
    }
    return false;
}

}  // namespace Check
