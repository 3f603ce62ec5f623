#include "agent/DownloadPath.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileName.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_Retry.h"

using namespace KzCommon;

namespace {

constexpr DownloadKey kProduct32{L"Component1_DownloadPath", L"c21t2103v0.0.0l1p1r1o1"};
constexpr DownloadKey kProduct64{L"Component101_DownloadPath", L"c21t2103v0.0.0l1p1r1o1"};
constexpr DownloadKey kResource{L"Component2_DownloadPath", L"c21t2101v0.0.0l1p-1r1o1"};

bool IsFolderName(std::wstring_view tstrName) noexcept
{
    // The system drops dots and blanks at the end: the name would be another one.
    return Storage::File::IsPlainName(tstrName) && tstrName.back() != L'.' && tstrName.back() != L' ';
}

/// Opens a file so that others still can, and reads from it. No file, or a folder of that name, is no failure.
bool OpenForReading(const std::wstring& tstrPath, UniqueFile& file, DWORD& dwError)
{
    file.Reset(::CreateFileW(tstrPath.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    char chFirst = 0;
    DWORD cbRead = 0;
    if (file && ::ReadFile(file.Get(), &chFirst, 1, &cbRead, nullptr)) return true;
    dwError = ::GetLastError();
    return !Storage::IsHeldByOthers(dwError) || Storage::Directory::IsExisted(tstrPath);
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

bool IsDownloadPath(std::wstring_view tstrPath) noexcept
{
    if (tstrPath.ends_with(L'\\')) tstrPath.remove_suffix(1);
    for (;;) {
        const std::size_t uSlash = tstrPath.find(L'\\');
        if (!IsFolderName(tstrPath.substr(0, uSlash))) return false;
        if (uSlash == std::wstring_view::npos) return true;
        tstrPath.remove_prefix(uSlash + 1);
    }
}

bool ReadDownloadPath(const std::wstring& tstrUpdateInfo, const DownloadKey& key, std::wstring& tstrPath)
{
    // Of a file that others hold the system reads nothing and says nothing: it is opened first, and kept open so that
    // nobody can hold it in between.
    UniqueFile file;
    DWORD dwError = ERROR_SUCCESS;
    if (!tstrUpdateInfo.empty() &&
        !Storage::TryWhileHeld([&](DWORD& dwCode) { return OpenForReading(tstrUpdateInfo, file, dwCode); }, &dwError)) {
        Trace(kTraceError, L"*** PathValues::ReadDownloadPath() - [%s] cannot be read. [0x%08x]",
              tstrUpdateInfo.c_str(), dwError);
        return false;
    }
    std::wstring tstrValue;
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        Storage::IniFile updateInfo;
        updateInfo.Open(tstrUpdateInfo);
        tstrValue = updateInfo.ReadString(L"COMPONENT_LIST", key.szKey, key.szDefault);
    }));
    // An empty name would mean the folder of all packages.
    tstrPath = tstrValue.empty() ? key.szDefault : tstrValue;
    if (IsDownloadPath(tstrPath)) return true;
    Trace(kTraceError, L"*** PathValues::ReadDownloadPath() - %s=[%s] is no name below \"Component\\\", [%s] is taken.",
          key.szKey, tstrPath.c_str(), key.szDefault);
    tstrPath = key.szDefault;
    return true;
}
