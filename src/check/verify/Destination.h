// Places in a manifest: a placeholder for a folder, which differs between machines, and a name below it.
#pragma once

#include "agent/PathValues.h"
#include "check/update/Folder.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Check {

/// Placeholders of places besides those of instruction files.
inline constexpr wchar_t kAppData[] = L"{AppData}";
inline constexpr wchar_t kSystemDrive[] = L"{SystemDrive}";

/// A parsed place.
struct Destination {
    std::wstring tstrPlaceholder;  ///< a known placeholder
    std::wstring tstrName;         ///< below its folder: plain names separated by backslashes; empty for the folder
};

/// Whether every part of a relative name is a valid name of one file or folder, so that it stays below the folder that
/// it is appended to. With `bPattern` the last part may have wildcards.
[[nodiscard]] bool IsRelativeName(std::wstring_view tstrName, bool bPattern = false);

/// Parses a place. False without a known placeholder, for a name that is not relative, and for files of the system
/// drive that are not in its root, where the agent puts none.
[[nodiscard]] bool ParseDestination(std::wstring_view tstrText, bool bPattern, Destination& destination);

/// The place of an instruction file's record as the agent uses it: single backslashes only, "." and ".." resolved; the
/// last part of a pattern is unchanged. The result keeps a placeholder or is a full path. Empty for any other text and
/// for a path that leaves the placeholder's folder. GetFullPathNameW.
[[nodiscard]] std::optional<std::wstring> PlainPlace(const std::wstring& tstrRecord, bool bPattern);

/// The folders of this machine for the placeholders.
class MachineFolders {
public:
    /// The folders of `machine`. `installed` is the install folder, `tstrDownloadPath` the name of the product
    /// package's download folder (empty when unknown).
    MachineFolders(const KzCommon::Machine& machine, const Folder& installed, const std::wstring& tstrDownloadPath);
    /// Likewise for the real machine.
    MachineFolders(const Folder& installed, const std::wstring& tstrDownloadPath);

    [[nodiscard]] const Folder& InstalledDir() const { return FolderOf(kInstalledDir); }
    /// An unknown folder is empty.
    [[nodiscard]] const Folder& FolderOf(const std::wstring& tstrPlaceholder) const;
    /// The full path of a place; empty when its folder is unknown.
    [[nodiscard]] std::wstring PathOf(const Destination& destination) const;
    /// Converts a full path to a place below the first folder that contains it; unchanged if none does.
    [[nodiscard]] std::wstring PlaceOf(const std::wstring& tstrPath) const;
    /// Parses the place of a record in any spelling, including full paths below one of the folders. On the system drive
    /// only files in its root are accepted.
    [[nodiscard]] bool ParseRecordPlace(const std::wstring& tstrRecord, bool bPattern, Destination& destination) const;
    /// Whether a folder between the placeholder's folder and the place is a junction or symbolic link, so that the
    /// place is really elsewhere. Checks each folder once.
    [[nodiscard]] bool LeadsElsewhere(const KzCommon::Machine& machine, const Destination& destination);

private:
    std::map<std::wstring, Folder> m_folders;
    std::map<std::wstring, bool> m_links;
};

}  // namespace Check
