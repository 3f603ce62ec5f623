#include "check/verify/PendingMoves.h"

#include "check/update/Instructions.h"
#include "check/verify/Presence.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cstring>

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
/// Windows carries out the second one after the first.
constexpr const wchar_t* kLists[] = {L"PendingFileRenameOperations", L"PendingFileRenameOperations2"};

/// The root folders of drives and volumes in native paths.
constexpr std::wstring_view kNativeRoots[] = {L"\\??\\", L"\\DosDevices\\", L"\\GLOBAL??\\"};
constexpr std::wstring_view kShare = L"UNC\\";
constexpr std::wstring_view kVolume = L"Volume{";
constexpr std::wstring_view kSystemRoot = L"\\SystemRoot\\";

/// Replaces a volume's own name at the beginning of a path with the volume's first mount point; an unmounted volume's
/// path is unchanged.
std::wstring MountedPath(const std::wstring& tstrPath)
{
    std::wstring tstrLong = L"\\\\?\\" + tstrPath;
    const std::size_t uName = tstrLong.find(L"}\\");
    if (uName == std::wstring::npos) return tstrLong;
    std::wstring tstrMounts(MAX_PATH, L'\0');
    DWORD cch = 0;
    const std::wstring tstrVolume = tstrLong.substr(0, uName + 2);
    const bool bTold = ::GetVolumePathNamesForVolumeNameW(tstrVolume.c_str(), tstrMounts.data(),
                                                          static_cast<DWORD>(tstrMounts.size()), &cch) != FALSE;
    tstrMounts.resize(bTold ? tstrMounts.find(L'\0') : 0);
    return tstrMounts.empty() ? tstrLong : tstrMounts + tstrLong.substr(uName + 2);
}

/// A path in the list: optional flags ("!", "*" and a number), then usually the native form.
std::wstring PlainPath(std::wstring_view tstrNative, bool& bReplace)
{
    const std::size_t uPath = std::min(tstrNative.find_first_not_of(L"!*@0123456789"), tstrNative.size());
    bReplace = tstrNative.substr(0, uPath).find(L'!') != std::wstring_view::npos;
    tstrNative.remove_prefix(uPath);
    if (tstrNative.starts_with(kSystemRoot)) {
        return Process::WindowsFolder() + std::wstring(tstrNative.substr(kSystemRoot.size()));
    }
    for (const std::wstring_view tstrRoot : kNativeRoots) {
        if (!tstrNative.starts_with(tstrRoot)) continue;
        const std::wstring tstrPath(tstrNative.substr(tstrRoot.size()));
        if (tstrPath.starts_with(kShare)) return L"\\\\" + tstrPath.substr(kShare.size());
        return tstrPath.starts_with(kVolume) ? MountedPath(tstrPath) : tstrPath;
    }
    return std::wstring(tstrNative);
}

/// A path with the long names of an existing file or folder; unchanged if it does not exist.
std::wstring WithLongNames(const std::wstring& tstrPath)
{
    std::wstring tstrLong(::GetLongPathNameW(tstrPath.c_str(), nullptr, 0), L'\0');
    tstrLong.resize(::GetLongPathNameW(tstrPath.c_str(), tstrLong.data(), static_cast<DWORD>(tstrLong.size())));
    return tstrLong.empty() ? tstrPath : tstrLong;
}

}  // namespace

std::wstring PlainName(std::wstring tstrPath)
{
    while (tstrPath.ends_with(L'\\')) tstrPath.pop_back();
    if (tstrPath.find(L'~') != std::wstring::npos) {
        const std::wstring tstrFolder = String::FolderPart(tstrPath);
        const std::wstring tstrLong = WithLongNames(tstrPath);
        // A missing file may be in an existing folder.
        tstrPath = tstrLong == tstrPath ? WithLongNames(tstrFolder) + tstrPath.substr(tstrFolder.size()) : tstrLong;
    }
    return tstrPath;
}

std::vector<PendingMove> ParsePendingMoves(std::wstring_view tstrRaw)
{
    std::vector<PendingMove> moves;
    const auto take = [&tstrRaw] {
        const std::size_t uEnd = std::min(tstrRaw.find(L'\0'), tstrRaw.size());
        const std::wstring_view tstrText = tstrRaw.substr(0, uEnd);
        tstrRaw.remove_prefix(std::min(uEnd + 1, tstrRaw.size()));
        return tstrText;
    };
    while (!tstrRaw.empty()) {
        PendingMove move;
        bool bIgnored = false;
        move.tstrSource = PlainPath(take(), bIgnored);
        move.tstrDestination = PlainPath(take(), move.bReplace);
        if (!move.tstrSource.empty()) moves.push_back(std::move(move));
    }
    return moves;
}

std::vector<PendingMove> ReadPendingMoves(const Machine& machine)
{
    std::vector<PendingMove> moves;
    for (const wchar_t* const szList : kLists) {
        StoredValue list;
        if (!machine.ReadStored({.tstrKeyPath = kSessionManager, .tstrName = szList}, list, nullptr)) continue;
        const std::vector<PendingMove> more = ParsePendingMoves(String::FromUtf16(list.strBytes));
        moves.insert(moves.end(), more.begin(), more.end());
    }
    return moves;
}

PendingPlaces::PendingPlaces(const Machine& machine, const std::vector<PendingMove>& moves) : m_machine(machine)
{
    for (const PendingMove& move : moves) CarryOut(move);
}

void PendingPlaces::CarryOut(const PendingMove& move)
{
    const Origin optNow = OriginOf(move.tstrSource);
    const std::wstring tstrSource = PlainName(move.tstrSource);
    const std::wstring tstrDestination = PlainName(move.tstrDestination);
    if (!optNow) {
        if (!tstrDestination.empty()) m_lost.insert(tstrDestination);
        return;
    }
    if (tstrDestination.empty()) {
        if (!IsRealFolder(*optNow) || IsEmptyFolder(move.tstrSource, *optNow)) m_places[tstrSource] = std::nullopt;
        return;
    }
    if (String::EqualsNoCase(tstrSource, tstrDestination)) return;
    const Origin optThere = OriginOf(move.tstrDestination);
    const bool bInTheWay = optThere && (!move.bReplace || IsRealFolder(*optThere));
    if (bInTheWay || !OriginOf(String::FolderPart(move.tstrDestination))) return;
    if (optThere && IsReadOnlyFile(*optThere)) {
        m_protected.insert(tstrDestination);
        return;
    }
    m_places[tstrDestination] = optNow;
    m_places[tstrSource] = std::nullopt;
    m_movedTo.insert(tstrDestination);
    m_lost.erase(tstrDestination);
    m_protected.erase(tstrDestination);
}

PendingPlaces::Origin PendingPlaces::OriginOf(const std::wstring& tstrPath) const
{
    // A change of a folder also affects everything below it.
    for (std::size_t uEnd = tstrPath.size(); uEnd != std::wstring::npos && uEnd > 0 && !m_places.empty();
         uEnd = tstrPath.rfind(L'\\', uEnd - 1)) {
        const auto itPlace = m_places.find(PlainName(tstrPath.substr(0, uEnd)));
        if (itPlace == m_places.end()) continue;
        if (!itPlace->second) return std::nullopt;
        const std::wstring tstrNow = *itPlace->second + tstrPath.substr(uEnd);
        return IsThere(tstrNow) ? Origin(tstrNow) : std::nullopt;
    }
    return IsThere(tstrPath) ? Origin(tstrPath) : std::nullopt;
}

bool PendingPlaces::IsThere(const std::wstring& tstrPath) const
{
    DWORD dwError = ERROR_SUCCESS;
    return AttributesOf(m_machine, tstrPath, dwError) != INVALID_FILE_ATTRIBUTES || !MeansNothingThere(dwError);
}

bool PendingPlaces::IsReadOnlyFile(const std::wstring& tstrPath) const
{
    constexpr DWORD kAsked = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY;
    DWORD dwError = ERROR_SUCCESS;
    const DWORD dwAttributes = AttributesOf(m_machine, tstrPath, dwError);
    return dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & kAsked) == FILE_ATTRIBUTE_READONLY;
}

/// A folder that must be empty before its deletion; a link is deleted with any contents of its target.
bool PendingPlaces::IsRealFolder(const std::wstring& tstrPath) const
{
    return m_machine.HasFolder(LongPath(tstrPath)) && !m_machine.IsLink(tstrPath);
}

bool PendingPlaces::IsEmptyFolder(const std::wstring& tstrPath, const std::wstring& tstrNow) const
{
    const std::wstring tstrFolder = String::EnsureBackslash(tstrPath);
    bool bEmpty = true;
    static_cast<void>(m_machine.ForEachEntry(
        LongPath(String::EnsureBackslash(tstrNow)), L"*",
        [&](const Storage::Directory::Entry& entry) { bEmpty = bEmpty && !OriginOf(tstrFolder + entry.tstrName); },
        nullptr));
    const std::wstring tstrPlain = PlainName(tstrFolder) + L"\\";
    return bEmpty && std::none_of(m_places.begin(), m_places.end(), [&](const auto& place) {
               return place.second && String::StartsWithNoCase(place.first, tstrPlain);
           });
}

PendingFate PendingPlaces::After(const std::wstring& tstrPath) const
{
    PendingFate fate;
    if (m_places.empty() && m_lost.empty() && m_protected.empty()) return fate;
    const std::wstring tstrPlain = PlainName(tstrPath);
    fate.bMovedTo = m_movedTo.contains(tstrPlain);
    fate.bLost = m_lost.contains(tstrPlain);
    fate.bProtected = m_protected.contains(tstrPlain);
    const Origin optThen = OriginOf(tstrPath);
    if (optThen && !String::EqualsNoCase(PlainName(*optThen), tstrPlain)) {
        fate.eKind = PendingFate::Kind::eTaken;
        fate.tstrFrom = *optThen;
    } else if (!optThen && (m_places.contains(tstrPlain) || IsThere(tstrPath))) {
        fate.eKind = PendingFate::Kind::eGone;
    }
    return fate;
}

bool PendingPlaces::IsGone(const std::wstring& tstrPath) const
{
    return After(tstrPath).eKind == PendingFate::Kind::eGone;
}

}  // namespace Check
