// Places on a machine as a manifest names them: a placeholder for a folder that every machine has elsewhere, and a name
// below it.
#pragma once

#include "agent/PathValues.h"
#include "check/update/Folder.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Check {

/// What a place may begin with besides the placeholders of instruction files.
inline constexpr wchar_t kAppData[] = L"{AppData}";
inline constexpr wchar_t kSystemDrive[] = L"{SystemDrive}";

/// A place taken apart.
struct Destination {
    std::wstring tstrPlaceholder;  ///< one of those that are known
    std::wstring tstrName;  ///< below its folder: plain names with backslashes between them; empty for the folder
};

/// Whether every part of a relative name is the plain name of one file or folder, so that it can only mean something
/// below the folder that it is appended to. With `bPattern` the last part may have wildcards.
[[nodiscard]] bool IsRelativeName(std::wstring_view tstrName, bool bPattern = false);

/// Takes a place apart. False for one without a known placeholder in front, for a name that is not relative, and for
/// files of the system drive that do not lie at its root: the agent puts none there.
[[nodiscard]] bool ParseDestination(std::wstring_view tstrText, bool bPattern, Destination& destination);

/// The place of an instruction file's record as the agent's calls take it, with backslashes alone, none doubled, "."
/// and
/// ".." resolved; of a pattern the last part stays as it is. A placeholder stays, any other place is a full path.
/// Nothing for what is neither, and for what leads out of the placeholder's folder. GetFullPathNameW.
[[nodiscard]] std::optional<std::wstring> PlainPlace(const std::wstring& tstrRecord, bool bPattern);

/// The folders of this machine behind the placeholders.
class MachineFolders {
public:
    /// The folders of `machine`. `installed`: the install folder. `tstrDownloadPath`: the name of the product
    /// package's download folder; empty when it is not known.
    MachineFolders(const KzCommon::Machine& machine, const Folder& installed, const std::wstring& tstrDownloadPath);
    /// The same of the machine that the program runs on.
    MachineFolders(const Folder& installed, const std::wstring& tstrDownloadPath);

    [[nodiscard]] const Folder& InstalledDir() const { return FolderOf(kInstalledDir); }
    /// An unknown one is empty.
    [[nodiscard]] const Folder& FolderOf(const std::wstring& tstrPlaceholder) const;
    /// The full path of a place; empty when its folder is not known.
    [[nodiscard]] std::wstring PathOf(const Destination& destination) const;
    /// A full path as a place below the first folder that holds it; as it is when none does.
    [[nodiscard]] std::wstring PlaceOf(const std::wstring& tstrPath) const;
    /// Takes the place of a record apart, whatever its spelling, full paths below one of the folders included. Of the
    /// system drive they are the files at its root, nothing else.
    [[nodiscard]] bool ParseRecordPlace(const std::wstring& tstrRecord, bool bPattern, Destination& destination) const;
    /// Whether a folder between the placeholder's and the place is a junction or symbolic link, so that the place would
    /// lie elsewhere. Every folder is looked at once.
    [[nodiscard]] bool LeadsElsewhere(const KzCommon::Machine& machine, const Destination& destination);

private:
    std::map<std::wstring, Folder> m_folders;
    std::map<std::wstring, bool> m_links;
};

}  // namespace Check
