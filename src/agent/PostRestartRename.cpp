#include "agent/PostRestartRename.h"

#include "agent/NewNameDecision.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"
#include "common/L10nReader.h"
#include "installer/ShortCutXmlHandler.h"

using namespace KzCommon;

namespace {

/// The names that the shell and the browsers show; empty when unreadable.
struct Names {
    std::wstring tstrProduct;
    std::wstring tstrToolbar;
};

/// A registry value that contains a name.
struct NamePlace {
    HKEY hRoot;
    const wchar_t* szKey;
    const wchar_t* szValue;
    std::wstring Names::*pName;
    const wchar_t* szSuffix;
    bool bWow64Only;
};

const NamePlace kPlaces[] = {
    {HKEY_LOCAL_MACHINE,
     L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{5A1C2E77-3B90-4d6e-9F21-7C04B8E2D913}", L"DisplayName",
     &Names::tstrProduct, L"", false},
    {HKEY_CLASSES_ROOT, L"CLSID\\{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}", L"", &Names::tstrProduct, L" BHO", false},
    {HKEY_CLASSES_ROOT, L"CLSID\\{E2905B7D-8C13-4A6F-9D42-5F7B1E0C38A6}", L"", &Names::tstrProduct, L" ActiveX", false},
    {HKEY_CLASSES_ROOT, L"CLSID\\{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}", L"", &Names::tstrToolbar, L"", false},
    {HKEY_CLASSES_ROOT, L"Wow6432Node\\CLSID\\{71C4A0E9-5D2B-4E86-B3F7-C1280D9A6E45}", L"", &Names::tstrProduct,
     L" BHO", true},
    {HKEY_CLASSES_ROOT, L"Wow6432Node\\CLSID\\{E2905B7D-8C13-4A6F-9D42-5F7B1E0C38A6}", L"", &Names::tstrProduct,
     L" ActiveX", true},
    {HKEY_CLASSES_ROOT, L"Wow6432Node\\CLSID\\{46AD27F3-B8E1-4C09-A5D6-93E0F4B71C28}", L"", &Names::tstrToolbar, L"",
     true},
};

void WriteNames(Machine& machine, const Names& names, bool bWow64Only, DWORD dwView)
{
    for (const NamePlace& place : kPlaces) {
        if (place.bWow64Only != bWow64Only) continue;
        const RegistryPlace written{
            .tstrKeyPath = place.szKey, .tstrName = place.szValue, .dwView = dwView, .hRoot = place.hRoot};
        static_cast<void>(machine.StoreValue(written, names.*place.pName + place.szSuffix, nullptr));
    }
}

Names ReadNames(const Machine& machine)
{
    Names names;
    CL10nReader reader(machine);
    if (!reader.ParseL10nFile(Frwk::Utility::GetLanguage(machine), L"")) return names;
    const wchar_t* szProduct = reader.GetString(kProductNameText);
    const wchar_t* szToolbar = reader.GetString(L"S_TOOLBAR_DISPLAY_NAME");
    names.tstrProduct = szProduct ? szProduct : kNewProductName;
    names.tstrToolbar = szToolbar ? szToolbar : L"Kazmere Qorvault ToolBar";
    return names;
}

/// Replaces the shortcuts. The old ones go first, because a shortcut with an unchanged name would otherwise be removed.
void ReplaceShortcuts(const Machine& machine)
{
    const std::wstring tstrInstallDir = Frwk::Utility::GetInstalledFolder(machine);
    Trace(kTraceInfo, L"[YES] Remove old shortcuts");
    if (machine.HasFile(Frwk::Utility::InstalledFile(machine, kShortcutBackupFile))) {
        UninstallShortCut(tstrInstallDir, kShortcutBackupFile);
    } else {
        Trace(kTraceError, L"qorshcutbackup.xml does not exist!");
    }
    Trace(kTraceInfo, L"[YES] Create new shortcuts");
    if (machine.HasFile(Frwk::Utility::InstalledFile(machine, kShortcutFile))) {
        InstallShortCut(tstrInstallDir, kShortcutFile);
    } else {
        Trace(kTraceError, L"qorshcut.xml does not exist!");
    }
}

}  // namespace

void PostUdActionForNewName(Machine& machine)
{
    Trace(kTraceStep, L"PostUdActionForNewName()");
    Trace(kTraceInfo, L"Rename shortcuts");
    ReplaceShortcuts(machine);

    Trace(kTraceInfo, L"Writing L10N product name into registry, uninstaller display name, and IE toolbar name.");
    const Names names = ReadNames(machine);
    Trace(kTraceInfo, L"Writing L10N product name: [%s] into registry", names.tstrProduct.c_str());
    const DWORD dwView = Frwk::Utility::ProductRegistryView();
    Frwk::Utility::WriteToRegHKLM_KZVLT(machine, L"ProductName", names.tstrProduct);

    Trace(kTraceInfo, L"Write default registrys");
    WriteNames(machine, names, false, dwView);
    if (dwView != Storage::eView64Bit) return;
    Trace(kTraceInfo, L"Write Wow3264Node registrys");
    WriteNames(machine, names, true, dwView);
}

std::wstring NewProductName(const Machine& machine)
{
    return ReadNames(machine).tstrProduct;
}

void UninstallShortCut(const std::wstring& tstrInstallDir, const std::wstring& tstrFileName)
{
    const OperationTrace trace(L"::UninstallShortCut()");
    const std::wstring tstrPath = String::JoinPath(tstrInstallDir, tstrFileName);
    ShortCutXmlHandler handler;
    if (!handler.ParseXml(tstrPath)) {
        Trace(kTraceError, L"FAILED*** ShortCutXmlHandler::ParseXml(%s) failed.", tstrPath.c_str());
        return;
    }
    if (!handler.RemoveShortCuts()) Trace(kTraceError, L"FAILED*** ShortCutXmlHandler::RemoveShortCuts() failed.");
}

void InstallShortCut(const std::wstring& tstrInstallDir, const std::wstring& tstrFileName)
{
    const OperationTrace trace(L"::InstallShortCut()");
    const std::wstring tstrPath = String::JoinPath(tstrInstallDir, tstrFileName);
    ShortCutXmlHandler handler;
    if (!handler.ParseXml(tstrPath) || !handler.CreateShortCuts(tstrInstallDir)) {
        Trace(kTraceError, L"FAILED*** ::InstallShortCut(%s)", tstrPath.c_str());
    }
}
