// A list of pinned items that only records removals, and its class object.
#pragma once

#include <windows.h>
#include <shlobj.h>

#include <string>
#include <vector>

// {A2A9545D-A0C2-42B4-9708-A0B2BADD77C8}
inline constexpr CLSID kStartMenuPinClass = {
    0xA2A9545D, 0xA0C2, 0x42B4, {0x97, 0x08, 0xA0, 0xB2, 0xBA, 0xDD, 0x77, 0xC8}};

// COM interfaces have no virtual destructor.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// Both objects in one. Its owner controls its lifetime; the reference count only shows leaks. Records every removal
/// and returns the owner's result.
class PinRecorder final : public IClassFactory, public IStartMenuPinnedList {
public:
    explicit PinRecorder(HRESULT hrAnswer) : m_hrAnswer(hrAnswer) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** ppv) override
    {
        *ppv = nullptr;
        if (IsEqualIID(iid, IID_IStartMenuPinnedList)) *ppv = static_cast<IStartMenuPinnedList*>(this);
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IClassFactory))
            *ppv = static_cast<IClassFactory*>(this);
        return *ppv ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_cReferences; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_cReferences; }

    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** ppv) override
    {
        return QueryInterface(iid, ppv);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

    HRESULT STDMETHODCALLTYPE RemoveFromList(IShellItem* pItem) override
    {
        wchar_t* szPath = nullptr;
        if (FAILED(pItem->GetDisplayName(SIGDN_FILESYSPATH, &szPath))) return E_INVALIDARG;
        const bool bThere = ::GetFileAttributesW(szPath) != INVALID_FILE_ATTRIBUTES;
        m_removed.push_back((bThere ? L"" : L"too late: ") + std::wstring(szPath));
        ::CoTaskMemFree(szPath);
        return m_hrAnswer;
    }

    ULONG m_cReferences = 0;
    std::vector<std::wstring> m_removed;

private:
    HRESULT m_hrAnswer;
};

#pragma GCC diagnostic pop
