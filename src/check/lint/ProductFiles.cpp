#include "check/lint/ProductFiles.h"

#include "check/simulate/PlanMachine.h"
#include "check/update/Instructions.h"
#include "check/update/Suggestion.h"

#include "agent/FileOperations.h"
#include "common/KzComn_File.h"
#include "common/KzComn_NamePattern.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

ProductFiles::ProductFiles(const Update& update, const IniScan& instructions)
    : m_installed(update.InstalledFolder().value_or(kUsualInstallFolder)),
      m_bInstalled(update.InstalledFolder().has_value())
{
    for (const Delivery& delivery : update.Deliveries()) {
        m_brought.insert(delivery.tstrDestination);
        if (!IsInstallPath(delivery.tstrDestination)) continue;
        m_below.push_back(m_installed.Relative(delivery.tstrDestination));
    }
    for (const std::wstring& tstrFile : update.Files()) m_downloaded.insert(m_installed / tstrFile);
    const CustomerFolders folders(m_installed, update.Product().tstrDownloadPath);
    for (const Instruction& instruction : ListInstructions(instructions)) {
        const FileOp eOp = FileOpOf(instruction.pKey->eEffect);
        const std::optional<FileOpTraits> optTraits = TraitsOf(eOp);
        if (!optTraits || optTraits->eAction != Action::eDelete) continue;
        const FileRecord record = ParseFileRecord(eOp, folders.Expand(instruction.pRecord->tstrValue));
        if (record.eRefusal != FileRefusal::eNone) continue;
        m_deletions.push_back({Storage::Directory::FullPath(WithoutPrefix(record.tstrFolder)),
                               optTraits->bFolder ? std::wstring() : record.tstrPattern});
    }
}

std::wstring ProductFiles::PathOf(const std::wstring& tstrBelow) const
{
    return Storage::Directory::FullPath(m_installed / tstrBelow);
}

bool ProductFiles::IsInstallPath(const std::wstring& tstrPath) const
{
    return m_installed.Contains(tstrPath);
}

bool ProductFiles::HasFile(const std::wstring& tstrPath) const
{
    if (m_brought.contains(tstrPath)) return true;
    if (!m_bInstalled || IsDeleted(tstrPath)) return false;
    if (IsInstallPath(tstrPath)) return Storage::File::IsExisted(LongPath(tstrPath));
    constexpr std::wstring_view kDriveC = L"C:\\";
    return String::StartsWithNoCase(tstrPath, kDriveC) &&
           Storage::File::IsExisted(LongPath(m_installed / kOutsideFolder + tstrPath.substr(kDriveC.size() - 1)));
}

bool ProductFiles::IsDeleted(const std::wstring& tstrPath) const
{
    if (m_brought.contains(tstrPath)) return false;
    const std::wstring tstrFolder = String::FolderPart(tstrPath);
    return std::any_of(m_deletions.begin(), m_deletions.end(), [&](const Deletion& deletion) {
        if (deletion.tstrPattern.empty()) return deletion.folder.Contains(tstrPath);
        return String::EqualsNoCase(deletion.folder.Text(), tstrFolder) &&
               Storage::File::MatchesPattern(tstrPath.substr(tstrFolder.size()), deletion.tstrPattern);
    });
}

bool ProductFiles::HasPath(const std::wstring& tstrPath) const
{
    if (HasFile(tstrPath)) return true;
    const std::wstring tstrBelow = String::EnsureBackslash(tstrPath);
    const auto itBelow = m_brought.lower_bound(tstrBelow);
    if (itBelow != m_brought.end() && String::StartsWithNoCase(*itBelow, tstrBelow)) return true;
    return m_bInstalled && String::StartsWithNoCase(tstrPath, m_installed) &&
           Storage::Directory::IsExisted(LongPath(tstrPath));
}

bool ProductFiles::IsDownloaded(const std::wstring& tstrPath) const
{
    return m_downloaded.contains(tstrPath);
}

std::wstring ProductFiles::NearestOf(const std::wstring& tstrPath) const
{
    const std::wstring tstrName = tstrPath.substr(String::FolderPart(tstrPath).size());
    const auto itSame = std::find_if(m_below.begin(), m_below.end(), [&](const std::wstring& tstrBelow) {
        return String::EqualsNoCase(tstrBelow.substr(String::FolderPart(tstrBelow).size()), tstrName);
    });
    if (itSame != m_below.end()) return *itSame;
    return Check::NearestOf(IsInstallPath(tstrPath) ? m_installed.Relative(tstrPath) : tstrName, m_below);
}

}  // namespace Check
