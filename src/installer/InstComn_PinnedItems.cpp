#include "installer/InstComn_PinnedItems.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "installer/InstComn_ShellLink.h"

namespace InstCommon::Utility {

using namespace KzCommon;
using Com::ComPtr;

namespace {

const CLSID kStartMenuPin = {0xA2A9545D, 0xA0C2, 0x42B4, {0x97, 0x08, 0xA0, 0xB2, 0xBA, 0xDD, 0x77, 0xC8}};

/// The trace texts for one kind of link.
struct UnpinTexts {
    TraceFormat<const wchar_t*, HRESULT> noItem;
    TraceFormat<const wchar_t*> removed;
    TraceFormat<const wchar_t*, HRESULT> notRemoved;
};

constexpr UnpinTexts kLinkTexts{
    L"[SHCreateItemFromParsingName]failed. strFilePath=%s, hr=%ld",
    L"pStartMenuPinnedList->RemoveFromList successfully. strFilePath=%s",
    L"pStartMenuPinnedList->RemoveFromList failed. strFilePath=%s, hr=%ld",
};
constexpr UnpinTexts kCacheTexts{
    L"[SHCreateItemFromParsingName]failed. tstrCacheShorcut=%s, hr=%ld",
    L"pStartMenuPinnedList->RemoveFromList successfully. tstrCacheShorcut=%s",
    L"pStartMenuPinnedList->RemoveFromList failed. tstrCacheShorcut=%s, hr=%ld",
};

void Unpin(IStartMenuPinnedList* pList, decltype(&::SHCreateItemFromParsingName) pfnCreateItem,
           const std::wstring& tstrLink, const UnpinTexts& texts)
{
    if (!pList || !pfnCreateItem) return;
    ComPtr<IShellItem> item;
    HRESULT hr = pfnCreateItem(tstrLink.c_str(), nullptr, IID_PPV_ARGS(item.GetAddressOf()));
    if (FAILED(hr)) {
        Trace(kTraceError, texts.noItem, tstrLink.c_str(), hr);
        return;
    }
    Trace(kTraceInfo, L"[SHCreateItemFromParsingName]successfully.");
    hr = pList->RemoveFromList(item.Get());
    if (FAILED(hr)) {
        Trace(kTraceError, texts.notRemoved, tstrLink.c_str(), hr);
        return;
    }
    Trace(kTraceInfo, texts.removed, tstrLink.c_str());
}

}  // namespace

PinnedItems::PinnedItems()
{
    if (SUCCEEDED(m_apartment.Result())) {
        Trace(kTraceInfo, L"CoInitializeEx successfully.");
    } else {
        Trace(kTraceError, L"*** ::CoInitializeEx() failed. [0x%08x]", m_apartment.Result());
    }
    PrepareList();
    PrepareFolders();
}

void PinnedItems::PrepareList()
{
    DWORD dwError = ERROR_SUCCESS;
    if (!m_shell32.LoadSystem(L"Shell32.dll", &dwError)) {
        Trace(kTraceError, L"*** ::LoadLibrary(Shell32.dll) failed. [0x%08x]", dwError);
        return;
    }
    m_pfnCreateItem = m_shell32.GetProcedure<decltype(m_pfnCreateItem)>("SHCreateItemFromParsingName");
    if (!m_pfnCreateItem) {
        dwError = ::GetLastError();
        Trace(kTraceError, L"*** ::GetProcAddress(SHCreateItemFromParsingName) failed. [0x%08x]", dwError);
        return;
    }
    Trace(kTraceInfo, L"GetProcAddress [SHCreateItemFromParsingName]successfully.");
    const HRESULT hr =
        ::CoCreateInstance(kStartMenuPin, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(m_list.GetAddressOf()));
    if (FAILED(hr)) {
        Trace(kTraceError, L"*** CoCreateInstance [IStartMenuPinnedList] failed. [0x%08x]", hr);
        return;
    }
    Trace(kTraceInfo, L"CoCreateInstance [IStartMenuPinnedList] successfully.");
}

void PinnedItems::PrepareFolders()
{
    std::wstring tstrUsersProfilePath;
    if (!ShellLink::GetUsersProfilePath(tstrUsersProfilePath)) {
        Trace(kTraceError, L"*** InstCommon::Utility::ShellLink::GetUsersProfilePath failed.");
        return;
    }
    m_tstrCacheFolder = String::JoinPath(
        tstrUsersProfilePath, L"AppData\\Roaming\\Microsoft\\Internet Explorer\\Quick Launch\\User Pinned\\Kazmere\\");
    m_tstrTaskbarFolder = String::JoinPath(
        tstrUsersProfilePath, L"AppData\\Roaming\\Microsoft\\Internet Explorer\\Quick Launch\\User Pinned\\Taskbar\\");
    Trace(kTraceInfo, L"tstrUsersProfilePath = %s", tstrUsersProfilePath.c_str());
}

void PinnedItems::UnpinProductLink() const
{
    if (m_tstrTaskbarFolder.empty()) return;
    UnpinLink(m_tstrTaskbarFolder + L"Kazmere Qorvault.lnk");
}

void PinnedItems::UnpinLink(const std::wstring& tstrLink) const
{
    Unpin(m_list.Get(), m_pfnCreateItem, tstrLink, kLinkTexts);
}

void PinnedItems::RemoveCachedLink(const std::wstring& tstrLinkName) const
{
    if (m_tstrCacheFolder.empty()) return;
    const std::wstring tstrCacheShorcut = m_tstrCacheFolder + tstrLinkName;
    Trace(kTraceInfo, L"tstrCacheShorcut = %s", tstrCacheShorcut.c_str());
    if (!Storage::File::IsExisted(tstrCacheShorcut)) return;
    Unpin(m_list.Get(), m_pfnCreateItem, tstrCacheShorcut, kCacheTexts);
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::File::Delete(tstrCacheShorcut, &dwError)) {
        Trace(kTraceError, L"*** ::DeleteFile(%s) failed. [0x%08x]", tstrCacheShorcut.c_str(), dwError);
    }
}

}  // namespace InstCommon::Utility
