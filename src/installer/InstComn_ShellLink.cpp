#include "installer/InstComn_ShellLink.h"

#include "common/KzComn_Com.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Retry.h"

#include <shlobj.h>

namespace InstCommon::Utility::ShellLink {

using namespace KzCommon;
using Com::ComPtr;

namespace {

/// Item-id lists, which are freed with the shell's allocator.
struct ItemIdListTraits {
    using Handle = PIDLIST_ABSOLUTE;
    static Handle Empty() noexcept { return nullptr; }
    static void Release(Handle handle)
    {
        ComPtr<IMalloc> allocator;
        const HRESULT hr = ::SHGetMalloc(allocator.GetAddressOf());
        if (FAILED(hr)) {
            Trace(kTraceError, L"*** ::SHGetMalloc() failed. [0x%08x]", hr);
            return;
        }
        allocator->Free(handle);
    }
};
using UniqueItemIdList = UniqueHandle<ItemIdListTraits>;

[[nodiscard]] bool GetSpecialFolder(int nFolder, std::wstring& tstrFolder)
{
    UniqueItemIdList list;
    const HRESULT hr = ::SHGetSpecialFolderLocation(nullptr, nFolder, list.Receive());
    if (FAILED(hr)) {
        Trace(kTraceError, L"*** ::SHGetSpecialFolderLocation() failed. [0x%08x]", hr);
        return false;
    }
    wchar_t szPath[MAX_PATH] = {};
    if (!::SHGetPathFromIDListW(list.Get(), szPath)) {
        Trace(kTraceError, L"*** ::SHGetPathFromIDList() failed.");
        return false;
    }
    tstrFolder = szPath;
    return true;
}

/// Whether a step on the link succeeded; traces the step's failure text with its argument and the code.
[[nodiscard]] bool Done(HRESULT hr, TraceFormat<const wchar_t*, HRESULT> failure, const std::wstring& tstrArgument)
{
    if (SUCCEEDED(hr)) return true;
    Trace(kTraceError, failure, tstrArgument.c_str(), hr);
    return false;
}

/// The Win32 code of a result from the file system or structured storage, which uses the same numbers; other results
/// unchanged.
[[nodiscard]] DWORD Win32CodeOf(HRESULT hr) noexcept
{
    const int nFacility = HRESULT_FACILITY(hr);
    const bool bWin32 = nFacility == FACILITY_WIN32 || nFacility == FACILITY_STORAGE;
    return static_cast<DWORD>(bWin32 ? HRESULT_CODE(hr) : hr);
}

/// Writes a link file; retries while the old file is in use, for example by a scanner.
[[nodiscard]] HRESULT Save(IPersistFile& file, const std::wstring& tstrLink)
{
    HRESULT hr = S_OK;
    const auto save = [&](DWORD& dwError) {
        hr = file.Save(tstrLink.c_str(), TRUE);
        dwError = Win32CodeOf(hr);
        return SUCCEEDED(hr);
    };
    const auto mayPass = [&] {
        const DWORD dwAttributes = ::GetFileAttributesW(tstrLink.c_str());
        return dwAttributes == INVALID_FILE_ATTRIBUTES ||
               !(dwAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY));
    };
    static_cast<void>(Storage::RetryWhileInUse(save, mayPass, nullptr));
    return hr;
}

}  // namespace

bool GetAllUsersDesktop(std::wstring& tstrFolder)
{
    return GetSpecialFolder(CSIDL_COMMON_DESKTOPDIRECTORY, tstrFolder);
}

bool GetAllUsersStartMenuPrograms(std::wstring& tstrFolder)
{
    return GetSpecialFolder(CSIDL_COMMON_PROGRAMS, tstrFolder);
}

bool GetUsersProfilePath(std::wstring& tstrFolder)
{
    return GetSpecialFolder(CSIDL_PROFILE, tstrFolder);
}

bool CreateShortcut(const std::wstring& tstrLink, const LinkProperties& properties)
{
    const Com::Apartment apartment;
    ComPtr<IShellLinkW> link;
    const HRESULT hr =
        ::CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(link.GetAddressOf()));
    if (FAILED(hr)) {
        Trace(kTraceError, L"*** CComPtrBase::CoCreateInstance() failed. [0x%08x]", hr);
        return false;
    }
    ComPtr<IPersistFile> file;
    const auto& [tstrTarget, tstrIcon, tstrArguments, tstrDescription, tstrWorkingDirectory] = properties;
    return Done(link->SetPath(tstrTarget.c_str()), L"*** IShellLink::SetPath(%s) failed. [0x%08x]", tstrTarget) &&
           Done(link->SetIconLocation(tstrIcon.c_str(), 0), L"*** IShellLink::SetIconLocation(%s) failed. [0x%08x]",
                tstrIcon) &&
           Done(link->SetDescription(tstrDescription.c_str()), L"*** IShellLink::SetDescription(%s) failed. [0x%08x]",
                tstrDescription) &&
           Done(link->SetArguments(tstrArguments.c_str()), L"*** IShellLink::SetArguments(%s) failed. [0x%08x]",
                tstrArguments) &&
           Done(link->SetWorkingDirectory(tstrWorkingDirectory.c_str()),
                L"*** IShellLink::SetWorkingDirectory(%s) failed. [0x%08x]", tstrWorkingDirectory) &&
           Done(link.As(&file), L"*** IShellLink::QueryInterface(IPersistFile) failed for %s. [0x%08x]", tstrLink) &&
           Done(Save(*file.Get(), tstrLink), L"*** IPersistFile::Save(%s) failed. [0x%08x]", tstrLink);
}

}  // namespace InstCommon::Utility::ShellLink
