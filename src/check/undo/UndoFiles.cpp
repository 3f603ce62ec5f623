// Files and folders of an update that undoes another one.
#include "check/undo/UndoParts.h"

#include "check/update/OpenFolder.h"

#include "agent/PackageLayout.h"

#include <algorithm>

using namespace KzCommon;
using namespace PackageLayout;

namespace Check {

namespace {

constexpr wchar_t kNoPathRecord[] = L"no record can name it, or its section has no room";
constexpr wchar_t kOpenFolder[] = L"every user could write to its folder once an update has created it";

/// Whether records can name the path: they take braces for placeholders.
bool IsNameable(const std::wstring& tstrName)
{
    constexpr std::wstring_view kInstalled = L"{InstalledDir}";
    return tstrName.find(L'{', tstrName.starts_with(kInstalled) ? kInstalled.size() : 0) == std::wstring::npos;
}

/// Finds the places of an update's files from their destinations: the reverse of the deploy steps.
class PlaceFinder {
public:
    PlaceFinder(const UndoContext& context, const std::wstring& tstrPackage)
        : m_copies(
              ListCopies(context.before, {.tstrInstallDir = context.installed,
                                          .tstrProductDownloadDir = String::EnsureBackslash(kComponents + tstrPackage),
                                          .tstrProductDownloadPath = tstrPackage,
                                          .tstrResourceDownloadDir = {}}))
    {
    }

    /// The place below the update's folder; empty when no step brings a file there.
    [[nodiscard]] std::wstring Find(const std::wstring& tstrDestination) const
    {
        const FolderCopy* pBest = nullptr;
        for (const FolderCopy& copy : m_copies) {
            if (Fits(copy, tstrDestination) && (!pBest || IsNearer(copy, *pBest))) pBest = &copy;
        }
        return pBest ? pBest->tstrSourceDir + tstrDestination.substr(pBest->tstrDestinationDir.size()) : std::wstring();
    }

private:
    static bool Fits(const FolderCopy& copy, const std::wstring& tstrDestination)
    {
        // The settings step changes what it brings, and driver files go to two places at once.
        const bool bDriver = copy.pRow->eWhen == When::eNow && copy.pRow->destination.eBase != Base::eSystemDrive;
        // Texts of a language would ask for its settings files.
        const bool bTexts = copy.pRow->source.szBelow == std::wstring_view(L"Resource");
        if (copy.tstrSourceDir.empty() || copy.pStep->bPreparesSettings || bDriver || bTexts) return false;
        if (!String::IsBelow(tstrDestination, copy.tstrDestinationDir)) return false;
        return copy.pRow->eDepth == Depth::eWithSubfolders ||
               tstrDestination.find(L'\\', copy.tstrDestinationDir.size()) == std::wstring::npos;
    }

    static bool IsNearer(const FolderCopy& copy, const FolderCopy& other)
    {
        return copy.tstrDestinationDir.size() > other.tstrDestinationDir.size();
    }

    std::vector<FolderCopy> m_copies;
};

/// Whether the settings step of the new update brings the file.
bool IsBroughtAsSetting(const UndoContext& context, const UndoParts& parts, const std::wstring& tstrPath)
{
    const std::wstring tstrSetting = std::wstring(kComponents) + parts.tstrPackage + L"\\Share\\Setting\\";
    return std::any_of(parts.files.begin(), parts.files.end(), [&](const auto& file) {
        const bool bSetting = String::IsBelow(file.first, tstrSetting);
        return bSetting && (String::EqualsNoCase(file.second, tstrPath) ||
                            String::EqualsNoCase(context.installed / file.first.substr(tstrSetting.size()), tstrPath));
    });
}

/// The records that delete a file which the update has brought. In places where every user may write, a delayed
/// deletion could follow a link.
bool AddDeletion(const UndoContext& context, const std::wstring& tstrPath, UndoSection& section)
{
    const std::wstring tstrName = NameOfPath(context.installed, tstrPath);
    const bool bUsers = IsUsersFolder(tstrPath, context.installed);
    return tstrPath.size() <= _MAX_PATH && IsNameable(tstrName) &&
           AddRecord(section, bUsers ? L"delete_now" : L"delete", tstrName);
}

/// Brings an installed file from its place below the update's folder, if there is one.
void AddFile(const UndoContext& context, const std::wstring& tstrPlace, const std::wstring& tstrPath,
             String::NoCaseSet& folders, UndoParts& parts)
{
    const std::wstring tstrFolder = String::FolderPart(tstrPath);
    const bool bNewFolder = !context.after.HasFolder(tstrFolder);
    if (tstrPlace.empty()) {
        parts.reasons[NameOfPath(context.installed, tstrPath)] = L"no deploy step brings files there";
    } else if (bNewFolder && IsUsersFolder(tstrFolder, context.installed)) {
        parts.reasons[NameOfPath(context.installed, tstrPath)] = kOpenFolder;
    } else {
        parts.files[tstrPlace] = tstrPath;
        if (bNewFolder) folders.insert(tstrFolder);
    }
}

void AddFolders(const UndoContext& context, const String::NoCaseSet& folders, UndoParts& parts)
{
    std::vector<std::wstring>& lines = parts.folderRecords.lines;
    std::wstring tstrAdded;
    // Those in a folder come first; it is created with them.
    for (auto itFolder = folders.rbegin(); itFolder != folders.rend(); ++itFolder) {
        if (String::IsBelow(tstrAdded, *itFolder)) continue;
        const std::wstring tstrName = NameOfPath(context.installed, *itFolder);
        if (IsUsersFolder(*itFolder, context.installed)) {
            parts.reasons[tstrName] = kOpenFolder;
        } else if (!IsNameable(tstrName) ||
                   !AddRecord(parts.folderRecords, L"add", tstrName.substr(0, tstrName.size() - 1))) {
            parts.reasons[tstrName] = kNoPathRecord;
        } else {
            tstrAdded = *itFolder;
        }
    }
    std::reverse(lines.begin(), lines.end());
}

}  // namespace

void AddUndoFiles(const UndoContext& context, UndoParts& parts)
{
    const PlaceFinder finder(context, parts.tstrPackage);
    String::NoCaseSet folders;
    for (const std::wstring& tstrPath : context.touched.paths) {
        if (IsOfUpdates(context.installed, tstrPath) || IsSamePath(context.before, context.after, tstrPath)) continue;
        parts.bAny = true;
        if (IsBroughtAsSetting(context, parts, tstrPath)) continue;
        const std::wstring tstrName = NameOfPath(context.installed, tstrPath);
        if (context.before.HasFolder(tstrPath)) {
            folders.insert(tstrPath + L"\\");
        } else if (!context.before.HasFile(tstrPath)) {
            if (context.after.HasFolder(tstrPath)) continue;
            if (!AddDeletion(context, tstrPath, parts.fileRecords)) parts.reasons[tstrName] = kNoPathRecord;
        } else {
            AddFile(context, finder.Find(tstrPath), tstrPath, folders, parts);
        }
    }
    AddFolders(context, folders, parts);
}

}  // namespace Check
