#include "check/PendingMoves.h"

#include "check/Instructions.h"

#include "common/KzComn_Registry.h"

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
/// The second one is carried out after the first.
constexpr const wchar_t* kLists[] = {L"PendingFileRenameOperations", L"PendingFileRenameOperations2"};

constexpr std::wstring_view kNative = L"\\??\\";
constexpr std::wstring_view kNativeShare = L"\\??\\UNC\\";

/// A path as the list has it: flags in front, then the native form.
std::wstring PlainPath(std::wstring_view tstrNative)
{
    const std::size_t uPath = tstrNative.find(kNative);
    if (uPath == std::wstring_view::npos) return std::wstring(tstrNative);
    tstrNative.remove_prefix(uPath);
    if (tstrNative.starts_with(kNativeShare)) return L"\\\\" + std::wstring(tstrNative.substr(kNativeShare.size()));
    return std::wstring(tstrNative.substr(kNative.size()));
}

/// What two spellings of a path have in common.
std::wstring FoldedPath(std::wstring tstrPath)
{
    if (tstrPath.ends_with(L'\\')) tstrPath.pop_back();
    return LowerCase(std::move(tstrPath));
}

}  // namespace

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
        const std::wstring_view tstrSource = take();
        if (tstrSource.empty()) break;  // the end of the list
        const std::wstring_view tstrDestination = take();
        moves.push_back({PlainPath(tstrSource), PlainPath(tstrDestination)});
    }
    return moves;
}

std::vector<PendingMove> ReadPendingMoves()
{
    std::vector<PendingMove> moves;
    for (const wchar_t* const szList : kLists) {
        std::wstring tstrRaw;
        static_cast<void>(Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, kSessionManager, szList, tstrRaw,
                                                  Storage::eViewDefault, nullptr));
        const std::vector<PendingMove> more = ParsePendingMoves(tstrRaw);
        moves.insert(moves.end(), more.begin(), more.end());
    }
    return moves;
}

PendingPlaces::PendingPlaces(const std::vector<PendingMove>& moves)
{
    for (const PendingMove& move : moves) {
        if (move.tstrDestination.empty()) {
            m_deleted.insert(FoldedPath(move.tstrSource));
        } else {
            m_destinations.insert(FoldedPath(move.tstrDestination));
        }
    }
}

bool PendingPlaces::IsDestination(const std::wstring& tstrPath) const
{
    return m_destinations.contains(FoldedPath(tstrPath));
}

bool PendingPlaces::IsDeleted(const std::wstring& tstrPath) const
{
    return m_deleted.contains(FoldedPath(tstrPath));
}

}  // namespace Check
