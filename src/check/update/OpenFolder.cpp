#include "check/update/OpenFolder.h"

#include "check/update/ErrorText.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <vector>

using namespace KzCommon;

namespace Check {

namespace {

UniqueFile OpenPlace(const std::wstring& tstrPlace)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return UniqueFile(::CreateFileW(LongPath(tstrPlace).c_str(), READ_CONTROL, kShareAll, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

/// The path of a file or folder without links and substituted drives; empty with the code on failure.
/// GetFinalPathNameByHandleW.
std::wstring RealPath(const std::wstring& tstrPlace, DWORD* pdwError)
{
    constexpr DWORD kLongest = 32'767;
    std::wstring tstrPath(kLongest, L'\0');
    const UniqueFile hPlace = OpenPlace(tstrPlace);
    // The normalized name would need the right to list every folder above it, on servers.
    const DWORD cch = hPlace ? ::GetFinalPathNameByHandleW(hPlace.Get(), tstrPath.data(), kLongest,
                                                           FILE_NAME_OPENED | VOLUME_NAME_DOS)
                             : 0;
    if (cch == 0) *pdwError = ::GetLastError();
    tstrPath.resize(cch < kLongest ? cch : 0);
    return tstrPath.empty() ? tstrPath : String::EnsureBackslash(WithoutPrefix(tstrPath));
}

/// Collects places and the folders above them, then asks for their rights.
class PlaceWalk {
public:
    void AddUpdate(const Update& update, RightsOf eRights)
    {
        m_eRights = eRights;
        AddTop(update.Root());
        const std::wstring tstrComponents = update.Root() / kComponents;
        for (const std::wstring& tstrPlace :
             {tstrComponents, update.Root() / kInstructionFile, update.Root() / kUpdateInfoFile}) {
            if (!IsLink(tstrPlace)) Add(tstrPlace);
        }
        for (const Package* const pPackage : {&update.Product(), &update.Resource()}) {
            if (pPackage->bThere) AddPackage(pPackage->folder.Text(), tstrComponents.size());
        }
    }

    /// Adds a folder and its path, from the root of the drive. A folder in another one needs no question of its own
    /// about links: the agent follows none there.
    void AddTop(const std::wstring& tstrFolder)
    {
        const auto contains = [&](const std::wstring& tstrTop) {
            return String::IsBelow(tstrFolder, tstrTop);
        };
        if (!Add(tstrFolder) || std::ranges::any_of(m_tops, contains)) return;
        m_tops.push_back(tstrFolder);
        if (Storage::Directory::LeadsThroughLink(LongPath(tstrFolder)))
            m_doubtful.push_back({tstrFolder, Doubt::eThroughLink});
        DWORD dwError = ERROR_SUCCESS;
        const std::wstring tstrReal = RealPath(tstrFolder, &dwError);
        if (tstrReal.empty()) return DoubtUnreadable(tstrFolder, dwError);
        m_real.push_back(tstrReal);
    }

    [[nodiscard]] std::vector<DoubtfulPlace> Judge()
    {
        for (const std::wstring& tstrPlace : m_places) AddParents(tstrPlace);
        for (const std::wstring& tstrPlace : m_real) AddParents(tstrPlace);
        for (const std::wstring& tstrPlace : m_places) JudgePlace(tstrPlace, kChangeRights, Doubt::eOpen);
        for (const std::wstring& tstrParent : m_parents) {
            const bool bRoot = tstrParent.size() <= Storage::Directory::RootLength(tstrParent) + 1;
            JudgePlace(tstrParent, bRoot ? kExchangeRightsInRoot : kExchangeRights, Doubt::eExchange);
        }
        return std::move(m_doubtful);
    }

private:
    /// Adds a place; false for one that is there already.
    bool Add(const std::wstring& tstrPlace)
    {
        const bool bNew = m_known.insert(tstrPlace).second;
        if (bNew) m_places.push_back(tstrPlace);
        return bNew;
    }

    /// Adds the folders above a place, after all places. Above a known one all are known, or will be.
    void AddParents(const std::wstring& tstrPlace)
    {
        const std::size_t cchRoot = Storage::Directory::RootLength(tstrPlace) + 1;
        for (std::size_t cch = tstrPlace.size(); cch > cchRoot;) {
            cch = tstrPlace.rfind(L'\\', cch - 2) + 1;
            const std::wstring tstrParent = tstrPlace.substr(0, cch);
            if (!m_known.insert(tstrParent).second) return;
            m_parents.push_back(tstrParent);
        }
    }

    void DoubtUnreadable(const std::wstring& tstrPlace, DWORD dwError)
    {
        const bool bMissing = dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND;
        const auto bSame = [&](const DoubtfulPlace& place) {
            return place.eDoubt == Doubt::eUnreadable && place.tstrPlace == tstrPlace;
        };
        if (bMissing || std::ranges::any_of(m_doubtful, bSame)) return;
        m_doubtful.push_back({tstrPlace, Doubt::eUnreadable, dwError});
    }

    void JudgePlace(const std::wstring& tstrPlace, ACCESS_MASK rights, Doubt eDoubt)
    {
        const auto contains = [&](const std::wstring& tstrFolder) {
            return String::IsBelow(tstrPlace, tstrFolder);
        };
        if (std::ranges::any_of(m_open, contains)) return;
        DWORD dwError = ERROR_SUCCESS;
        const auto optOpen = IsOpenToUsers(tstrPlace, &dwError, rights);
        if (!optOpen) DoubtUnreadable(tstrPlace, dwError);
        if (!optOpen.value_or(false)) return;
        m_doubtful.push_back({tstrPlace, eDoubt});
        if (eDoubt == Doubt::eOpen && tstrPlace.ends_with(L'\\')) m_open.push_back(tstrPlace);
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

    RightsOf m_eRights = RightsOf::eFolders;
    std::vector<std::wstring> m_tops;
    std::vector<std::wstring> m_real;  // their real paths
    std::vector<std::wstring> m_places;
    std::vector<std::wstring> m_parents;  // that are no places themselves
    std::vector<std::wstring> m_open;
    String::NoCaseSet m_known;
    std::vector<DoubtfulPlace> m_doubtful;
};

}  // namespace

std::optional<bool> IsOpenToUsers(const std::wstring& tstrPlace, DWORD* pdwError, ACCESS_MASK rights)
{
    const UniqueFile hPlace = OpenPlace(tstrPlace);
    // Most descriptors fit at once, which saves a second request for every file of an update.
    constexpr DWORD kUsualBytes = 1024;
    std::vector<BYTE> descriptor(kUsualBytes);
    DWORD cb = 0;
    const auto read = [&] {
        return ::GetKernelObjectSecurity(hPlace.Get(), OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                         descriptor.data(), static_cast<DWORD>(descriptor.size()), &cb) != FALSE;
    };
    bool bRead = hPlace && read();
    if (hPlace && !bRead && ::GetLastError() == ERROR_INSUFFICIENT_BUFFER) {
        descriptor.resize(cb);
        bRead = read();
    }
    if (!bRead) {
        *pdwError = ::GetLastError();
        return std::nullopt;
    }
    return GrantsUsers(descriptor.data(), rights);
}

std::vector<DoubtfulPlace> ListDoubtfulPlaces(const Update& update, RightsOf eRights,
                                              const std::vector<std::wstring>& others)
{
    PlaceWalk walk;
    walk.AddUpdate(update, eRights);
    for (const std::wstring& tstrOther : others) walk.AddTop(tstrOther);
    return walk.Judge();
}

std::vector<DoubtfulPlace> ListDoubtfulPlaces(const std::wstring& tstrFolder)
{
    PlaceWalk walk;
    walk.AddTop(tstrFolder);
    return walk.Judge();
}

std::wstring Describe(const DoubtfulPlace& place)
{
    const bool bFolder = place.tstrPlace.ends_with(L'\\');
    switch (place.eDoubt) {
        case Doubt::eOpen:
            return std::wstring(L"standard users can change ") + (bFolder ? L"what is in it" : L"it") +
                   L", also after this check";
        case Doubt::eExchange:
            return L"standard users can put something else in the place of what is in it, also after this check";
        case Doubt::eThroughLink: return L"a link leads there that standard users may have made";
        case Doubt::eLink: return L"a link, and no signature covers what it leads to";
        case Doubt::eUnreadable: break;
    }
    return L"it, or its rights, cannot be read: " + DescribeError(place.dwError);
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
