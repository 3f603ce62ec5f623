#include "agent/DownloadPath.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileName.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_Retry.h"

#include <algorithm>
#include <utility>
#include <vector>

using namespace KzCommon;

namespace {

constexpr DownloadKey kProduct32{L"Component1_DownloadPath", L"c21t2103v0.0.0l1p1r1o1"};
constexpr DownloadKey kProduct64{L"Component101_DownloadPath", L"c21t2103v0.0.0l1p1r1o1"};
constexpr DownloadKey kResource{L"Component2_DownloadPath", L"c21t2101v0.0.0l1p-1r1o1"};

constexpr wchar_t kSeparators[] = L"\\/";

/// A name of a path as Windows reads it: without all dots and spaces at the end of the path, without one dot elsewhere.
std::wstring_view WithoutDroppedEnd(std::wstring_view tstrName, bool bLast) noexcept
{
    if (bLast) return tstrName.substr(0, tstrName.find_last_not_of(L". ") + 1);
    if (tstrName.ends_with(L'.')) tstrName.remove_suffix(1);
    return tstrName;
}

bool IsFolderName(std::wstring_view tstrName) noexcept
{
    // Windows never creates a name that ends in a dot or a space.
    return Storage::File::IsPlainName(tstrName) && tstrName.back() != L'.' && tstrName.back() != L' ';
}

}  // namespace

const DownloadKey& ProductDownloadKey() noexcept
{
    return Process::Is64BitWindows() ? kProduct64 : kProduct32;
}

const DownloadKey& ResourceDownloadKey() noexcept
{
    return kResource;
}

bool NormalizeDownloadPath(std::wstring& tstrPath)
{
    std::wstring_view tstrRest = tstrPath;
    tstrRest = tstrRest.substr(0, tstrRest.find_last_not_of(kSeparators) + 1);
    if (tstrRest.find_first_of(kSeparators) == 0) return false;
    std::vector<std::wstring_view> names;
    while (!tstrRest.empty()) {
        const std::size_t uEnd = std::min(tstrRest.find_first_of(kSeparators), tstrRest.size());
        const std::wstring_view tstrName = tstrRest.substr(0, uEnd);
        tstrRest.remove_prefix(std::min(tstrRest.find_first_not_of(kSeparators, uEnd), tstrRest.size()));
        if (tstrName == L".") continue;
        if (tstrName == L"..") {
            if (names.empty()) return false;
            names.pop_back();
            continue;
        }
        names.push_back(WithoutDroppedEnd(tstrName, tstrRest.empty()));
        if (!IsFolderName(names.back())) return false;
    }
    if (names.empty()) return false;
    std::wstring tstrNormal(names.front());
    for (std::size_t u = 1; u < names.size(); ++u) tstrNormal.append(L"\\").append(names[u]);
    tstrPath = std::move(tstrNormal);
    return true;
}

bool ReadDownloadPath(const Machine& machine, const std::wstring& tstrUpdateInfo, const DownloadKey& key,
                      std::wstring& tstrPath)
{
    std::wstring tstrValue = key.szDefault;
    DWORD dwError = ERROR_SUCCESS;
    if (!tstrUpdateInfo.empty() &&
        !machine.ReadIniValue(tstrUpdateInfo, L"COMPONENT_LIST", key.szKey, key.szDefault, tstrValue, &dwError)) {
        Trace(kTraceError, L"*** PathValues::ReadDownloadPath() - [%s] cannot be read. [0x%08x]",
              tstrUpdateInfo.c_str(), dwError);
        return false;
    }
    // An empty name would be the folder of all packages.
    tstrPath = tstrValue.empty() ? key.szDefault : tstrValue;
    if (NormalizeDownloadPath(tstrPath)) return true;
    Trace(kTraceError, L"*** PathValues::ReadDownloadPath() - %s=[%s] is no name below \"Component\\\", [%s] is taken.",
          key.szKey, tstrPath.c_str(), key.szDefault);
    tstrPath = key.szDefault;
    return true;
}
