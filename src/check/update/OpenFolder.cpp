#include "check/update/OpenFolder.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <vector>

using namespace KzCommon;

namespace Check {

namespace {

/// Whether an access list lets one of the groups of all users change a file, or a folder's content.
bool HasOpenEntry(PACL pList)
{
    constexpr ACCESS_MASK kChange = FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_DELETE_CHILD | DELETE | WRITE_DAC |
                                    WRITE_OWNER | GENERIC_WRITE | GENERIC_ALL;
    for (DWORD uEntry = 0; uEntry < pList->AceCount; ++uEntry) {
        void* pEntry = nullptr;
        if (!::GetAce(pList, uEntry, &pEntry)) return false;
        auto* const pAce = static_cast<ACCESS_ALLOWED_ACE*>(pEntry);
        const bool bAllows = pAce->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
                             !(pAce->Header.AceFlags & INHERIT_ONLY_ACE) && (pAce->Mask & kChange);
        if (!bAllows) continue;
        for (const WELL_KNOWN_SID_TYPE eGroup : {WinWorldSid, WinAuthenticatedUserSid, WinBuiltinUsersSid,
                                                 WinInteractiveSid, WinLocalSid, WinBuiltinGuestsSid}) {
            if (::IsWellKnownSid(&pAce->SidStart, eGroup)) return true;
        }
    }
    return false;
}

/// Collects the places of an update, then asks for their rights.
class PlaceWalk {
public:
    PlaceWalk(const Update& update, RightsOf eRights, const std::vector<std::wstring>& others) : m_eRights(eRights)
    {
        Add(update.Root().Text());
        for (const std::wstring& tstrOther : others) Add(tstrOther);
        const std::wstring tstrComponents = update.Root() / kComponents;
        for (const std::wstring& tstrPlace :
             {tstrComponents, update.Root() / kInstructionFile, update.Root() / kUpdateInfoFile}) {
            if (!IsLink(tstrPlace)) Add(tstrPlace);
        }
        for (const Package* const pPackage : {&update.Product(), &update.Resource()}) {
            if (pPackage->bThere) AddPackage(pPackage->folder.Text(), tstrComponents.size());
        }
    }

    [[nodiscard]] std::vector<DoubtfulPlace> Judge()
    {
        std::vector<std::wstring> open;
        for (const std::wstring& tstrPlace : m_places) {
            const auto contains = [&](const std::wstring& tstrFolder) {
                return String::IsBelow(tstrPlace, tstrFolder);
            };
            if (std::ranges::any_of(open, contains)) continue;
            DWORD dwError = ERROR_SUCCESS;
            const auto optOpen = IsOpenToUsers(tstrPlace, &dwError);
            if (!optOpen && dwError != ERROR_FILE_NOT_FOUND && dwError != ERROR_PATH_NOT_FOUND) {
                m_doubtful.push_back({tstrPlace, Doubt::eUnreadable, dwError});
            }
            if (!optOpen.value_or(false)) continue;
            m_doubtful.push_back({tstrPlace, Doubt::eOpen});
            if (tstrPlace.ends_with(L'\\')) open.push_back(tstrPlace);
        }
        return std::move(m_doubtful);
    }

private:
    void Add(const std::wstring& tstrPlace)
    {
        if (m_known.insert(tstrPlace).second) m_places.push_back(tstrPlace);
    }

    bool IsLink(const std::wstring& tstrPlace)
    {
        const bool bLink = Storage::Directory::IsLink(LongPath(tstrPlace));
        if (bLink) m_doubtful.push_back({tstrPlace, Doubt::eLink});
        return bLink;
    }

    /// Adds the folders from "Component\" to the package, and everything in it.
    void AddPackage(const std::wstring& tstrPackage, std::size_t cchComponents)
    {
        for (std::size_t u = cchComponents; (u = tstrPackage.find(L'\\', u)) != std::wstring::npos; ++u) {
            const std::wstring tstrFolder = tstrPackage.substr(0, u + 1);
            if (IsLink(tstrFolder)) return;
            Add(tstrFolder);
        }
        std::vector<std::wstring> folders{tstrPackage};
        while (!folders.empty()) {
            const std::wstring tstrFolder = std::move(folders.back());
            folders.pop_back();
            const auto take = [&](const Storage::Directory::Entry& entry) {
                const std::wstring tstrPlace = tstrFolder + entry.tstrName + (entry.bFolder ? L"\\" : L"");
                if (entry.bLink) return m_doubtful.push_back({tstrPlace, Doubt::eLink});
                if (entry.bFolder || m_eRights == RightsOf::eFoldersAndFiles) Add(tstrPlace);
                if (entry.bFolder) folders.push_back(tstrPlace);
            };
            DWORD dwError = ERROR_SUCCESS;
            const std::wstring tstrListed = String::EnsureBackslash(LongPath(tstrFolder));
            if (!Storage::Directory::ForEachEntry(tstrListed, L"*", take, &dwError) &&
                dwError != ERROR_FILE_NOT_FOUND) {
                m_doubtful.push_back({tstrFolder, Doubt::eUnreadable, dwError});
            }
        }
    }

    RightsOf m_eRights;
    std::vector<std::wstring> m_places;
    String::NoCaseSet m_known;
    std::vector<DoubtfulPlace> m_doubtful;
};

}  // namespace

std::optional<bool> IsOpenToUsers(const std::wstring& tstrPlace, DWORD* pdwError)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const UniqueFile hPlace(::CreateFileW(LongPath(tstrPlace).c_str(), READ_CONTROL, kShareAll, nullptr, OPEN_EXISTING,
                                          FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    // Most descriptors fit at once, which saves a second request for every file of an update.
    constexpr DWORD kUsualBytes = 1024;
    std::vector<BYTE> descriptor(kUsualBytes);
    DWORD cb = 0;
    const auto read = [&] {
        return ::GetKernelObjectSecurity(hPlace.Get(), DACL_SECURITY_INFORMATION, descriptor.data(),
                                         static_cast<DWORD>(descriptor.size()), &cb) != FALSE;
    };
    bool bRead = hPlace && read();
    if (hPlace && !bRead && ::GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        descriptor.resize(cb);
        bRead = read();
    }
    BOOL bPresent = FALSE;
    BOOL bDefaulted = FALSE;
    PACL pList = nullptr;
    if (!bRead || !::GetSecurityDescriptorDacl(descriptor.data(), &bPresent, &pList, &bDefaulted)) {
        *pdwError = ::GetLastError();
        return std::nullopt;
    }
    return !bPresent || !pList || HasOpenEntry(pList);
}

std::vector<DoubtfulPlace> ListDoubtfulPlaces(const Update& update, RightsOf eRights,
                                              const std::vector<std::wstring>& others)
{
    return PlaceWalk(update, eRights, others).Judge();
}

bool IsUsersFolder(const std::wstring& tstrPath, const std::wstring& tstrInstalled)
{
    constexpr std::wstring_view kUsersFolders[] = {L"\\ProgramData\\", L"\\Users\\", L"\\Documents and Settings\\",
                                                   L"\\Windows\\Temp\\"};
    constexpr std::size_t kDrive = 2;  // "C:"
    if (String::StartsWithNoCase(tstrPath, tstrInstalled) || tstrPath.size() < kDrive) return false;
    const std::wstring_view tstrBelow = std::wstring_view(tstrPath).substr(kDrive);
    return tstrPath[1] == L':' &&
           std::any_of(std::begin(kUsersFolders), std::end(kUsersFolders),
                       [&](std::wstring_view tstrUsers) { return String::StartsWithNoCase(tstrBelow, tstrUsers); });
}

}  // namespace Check
