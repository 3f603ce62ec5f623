// Stand-in for the shell's list of pinned items: adds the path of every item that is taken out to "startmenupin.log"
// beside itself. To be registered as the InprocServer32 of its class, threading model "Apartment".
#include "../BesideLibrary.h"
#include "PinRecorder.h"

namespace {

class FileRecorder : public PinRecorder {
    HRESULT OnRemove(const std::wstring& tstrPath) override
    {
        const bool bExists = ::GetFileAttributesW(tstrPath.c_str()) != INVALID_FILE_ATTRIBUTES;
        RecordLine(BesideLibrary(L"startmenupin.log"), (bExists ? L"unpin " : L"unpin missing ") + tstrPath);
        return S_OK;
    }
};

}  // namespace

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    static FileRecorder s_recorder;
    if (IsEqualCLSID(clsid, kStartMenuPinClass)) return s_recorder.QueryInterface(iid, ppv);
    *ppv = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
}
