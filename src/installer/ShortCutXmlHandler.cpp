#include "installer/ShortCutXmlHandler.h"

#include "common/KzComn_Com.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileName.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"
#include "installer/InstComn_PinnedItems.h"
#include "installer/InstComn_ShellLink.h"

using namespace KzCommon;
using namespace InstCommon;
using Utility::PinnedItems;

namespace {

// The shell makes no links with longer paths. Also what ends a description of folders without end.
constexpr std::size_t kMostPathCharacters = MAX_PATH - 1;

const wchar_t kLinkExtension[] = L".lnk";

/// Calls `visit` with each child of that name (without regard to case), or with each child at all for a null name.
template <class Visit>
void ForEachChild(const Storage::XmlElement& parent, const wchar_t* szName, Visit&& visit)
{
    for (const Storage::XmlElement* pChild = parent.GetFirstChild(); pChild; pChild = pChild->GetNextSibling()) {
        if (!szName || pChild->IsNamed(szName)) visit(*pChild);
    }
}

/// The path of an item that the description names in a folder. False, with a trace line, for a name that no item in
/// that folder can have and for a path that is too long.
[[nodiscard]] bool ItemPath(const std::wstring& tstrFolder, const std::wstring& tstrName, const wchar_t* szExtension,
                            std::wstring& tstrPath)
{
    if (!Storage::File::IsPlainName(tstrName)) {
        Trace(kTraceError, L"*** [%s] is no name for an item in %s.", tstrName.c_str(), tstrFolder.c_str());
        return false;
    }
    tstrPath = String::JoinPath(tstrFolder, tstrName) + szExtension;
    if (tstrPath.size() <= kMostPathCharacters) return true;
    Trace(kTraceError, L"*** Path is too long: %s", tstrPath.c_str());
    return false;
}

void DeleteLink(const std::wstring& tstrLink)
{
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::File::Delete(tstrLink, &dwError)) {
        Trace(kTraceError, L"*** ::DeleteFile(%s) failed. [0x%08x]", tstrLink.c_str(), dwError);
    }
}

void RemoveDesktopLinks(const Storage::XmlElement& desktop, const std::wstring& tstrFolder)
{
    Trace(kTraceInfo, L"Remove shortcuts...");
    ForEachChild(desktop, L"Shortcut", [&](const Storage::XmlElement& shortcut) {
        std::wstring tstrLink;
        if (ItemPath(tstrFolder, shortcut.GetText(), kLinkExtension, tstrLink)) DeleteLink(tstrLink);
    });
}

void RemoveStartMenuLink(const std::wstring& tstrName, const std::wstring& tstrFolder, const PinnedItems& pinnedItems)
{
    std::wstring tstrLink;
    if (!ItemPath(tstrFolder, tstrName, kLinkExtension, tstrLink)) return;
    pinnedItems.UnpinLink(tstrLink);
    DeleteLink(tstrLink);
    pinnedItems.RemoveCachedLink(tstrName + kLinkExtension);
}

/// The path of a Start-menu folder that the description names. False, with a trace line, like ItemPath, and for a
/// junction or symbolic link: what is in it lies elsewhere.
[[nodiscard]] bool FolderPath(const std::wstring& tstrParent, const Storage::XmlElement& folder, std::wstring& tstrPath)
{
    const std::wstring tstrName = folder.GetAttribute(L"name");
    if (!ItemPath(tstrParent, tstrName, L"", tstrPath)) return false;
    if (!Storage::Directory::IsLink(tstrPath)) return true;
    Trace(kTraceError, L"*** Folder %s leads elsewhere, nothing in it is touched.", tstrPath.c_str());
    return false;
}

[[nodiscard]] bool IsBundlePlid(const std::wstring& tstrPlid)
{
    const auto contains = [&](const wchar_t* szPart) {
        return tstrPlid.find(szPart) != std::wstring::npos;
    };
    return (contains(L"-BS2-") && contains(L"0720")) || contains(L"0800");
}

/// Whether the sibling suite is installed as a bundle with this product.
[[nodiscard]] bool IsBundleModel()
{
    const bool b64Bit = Process::Is64BitWindows();
    const DWORD dwView = b64Bit ? Storage::eView64Bit : Storage::eViewDefault;
    if (b64Bit) Trace(kTraceInfo, L"Registry mode is eMode64bitKey");
    // The trace has a number of its own for the default view.
    Trace(kTraceInfo, L"Registry mode is %d", b64Bit ? 2 : 1);
    std::wstring tstrPlid;
    std::wstring tstrUninstall;
    static_cast<void>(
        Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\Lumetra", L"PLID", tstrPlid, dwView, nullptr));
    static_cast<void>(Storage::Reg::ReadValue(
        HKEY_LOCAL_MACHINE,
        L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\{D40E8B62-19C5-47A3-8F0B-3A6C2E95D1F7}",
        L"UninstallString", tstrUninstall, dwView, nullptr));
    Trace(kTraceInfo, L"Found Qe PLID is %s", tstrPlid.c_str());
    Trace(kTraceInfo, L"Found Qe UninstallString is %s", tstrUninstall.c_str());
    return IsBundlePlid(tstrPlid) && !tstrUninstall.empty();
}

}  // namespace

bool ShortCutXmlHandler::CreateShortCuts(const std::wstring& tstrInstallDir)
{
    const OperationTrace trace(L"ShortCutXmlHandler::CreateShortCuts()");
    const Com::Apartment apartment;  // one for all links instead of one for each
    m_tstrInstallDir = tstrInstallDir;
    m_iMode = eCreate;
    if (HandleEachElement()) return true;
    Trace(kTraceError, L"*** ShortCutXmlHandler::HandleEachElement() failed.");
    return false;
}

bool ShortCutXmlHandler::RemoveShortCuts()
{
    const OperationTrace trace(L"ShortCutXmlHandler::RemoveShortCuts()");
    m_iMode = eRemove;
    if (HandleEachElement()) return true;
    Trace(kTraceError, L"*** ShortCutXmlHandler::HandleEachElement() failed.");
    return false;
}

bool ShortCutXmlHandler::HandleEachElement()
{
    const OperationTrace trace(L"ShortCutXmlHandler::HandleEachElement()");
    if (!m_bParsed) {
        Trace(kTraceError, L"*** Xml is not parsed.");
        return false;
    }
    for (m_pElement = m_document->GetRoot()->GetFirstChild(); m_pElement; m_pElement = m_pElement->GetNextSibling()) {
        bool bOk = true;
        if (m_pElement->IsNamed(L"Desktop")) bOk = HandleDesktopElement(m_pElement);
        if (m_pElement->IsNamed(L"StartMenu")) bOk = HandleStartMenuElement(m_pElement);
        if (!bOk) {
            Trace(kTraceError, L"*** Fatal error occured.");
            Release();
            return false;
        }
    }
    return true;
}

bool ShortCutXmlHandler::HandleDesktopElement(const Element* pDesktop)
{
    const OperationTrace trace(L"ShortCutXmlHandler::HandleDesktopElement()");
    if (!pDesktop) {
        Trace(kTraceError, L"*** Parameter is invalid.");
        return false;
    }
    const std::wstring tstrAvailable = pDesktop->GetAttribute(L"available");
    Trace(kTraceInfo, L"<Desktop> element is handled.");
    Trace(kTraceInfo, L"<Desktop available=%s>", tstrAvailable.c_str());
    if (tstrAvailable != L"1") {
        Trace(kTraceInfo, L"Skip <Desktop> element.");
        return SkipAllChildElements();
    }
    std::wstring tstrFolder;
    if (!Utility::ShellLink::GetAllUsersDesktop(tstrFolder)) {
        Trace(kTraceError, L"*** InstCommon::Utility::ShellLink::GetAllUsersDesktop() failed.");
        return SkipAllChildElements();
    }
    if (m_iMode == eRemove) {
        RemoveDesktopLinks(*pDesktop, tstrFolder);
        return true;
    }
    if (IsBundleModel()) {
        Trace(kTraceInfo, L"Bundle Qe model: Do not install desktop shortcut.");
        return true;
    }
    Trace(kTraceInfo, L"Not bundle Qe model: install desktop shortcut");
    // Unlike the removal, this takes every child, whatever its name.
    ForEachChild(*pDesktop, nullptr,
                 [&](const Element& child) { static_cast<void>(CreateShortCut(&child, tstrFolder)); });
    return true;
}

bool ShortCutXmlHandler::HandleStartMenuElement(const Element* pStartMenu)
{
    const OperationTrace trace(L"ShortCutXmlHandler::HandleStartMenuElement()");
    if (!pStartMenu) {
        Trace(kTraceError, L"*** Parameter is invalid.");
        return false;
    }
    const std::wstring tstrAvailable = pStartMenu->GetAttribute(L"available");
    Trace(kTraceInfo, L"<StartMenu> element is handled.");
    Trace(kTraceInfo, L"<StartMenu available=%s>", tstrAvailable.c_str());
    const auto skip = [this] {
        if (SkipAllChildElements()) return true;
        Trace(kTraceError, L"*** InstCommon::Utility::XmlHandler::SkipAllChildElements() failed.");
        return false;
    };
    if (tstrAvailable != L"1") {
        Trace(kTraceInfo, L"Skip <StartMenu> element.");
        return skip();
    }
    std::wstring tstrFolder;
    if (!Utility::ShellLink::GetAllUsersStartMenuPrograms(tstrFolder)) {
        Trace(kTraceError, L"*** InstCommon::Utility::ShellLink::GetAllUsersStartMenuPrograms failed.");
        static_cast<void>(skip());
        return false;
    }
    return m_iMode == eCreate ? CreateStartMenus(pStartMenu, tstrFolder) : RemoveStartMenus(pStartMenu, tstrFolder);
}

bool ShortCutXmlHandler::CreateStartMenus(const Element* pParent, const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"ShortCutXmlHandler::CreateStartMenus()");
    if (!pParent) return false;
    ForEachChild(*pParent, L"Folder", [&](const Element& folder) {
        std::wstring tstrPath;
        if (!FolderPath(tstrFolder, folder, tstrPath)) return;
        Trace(kTraceInfo, L"p_StartMenuDir = %s", tstrFolder.c_str());
        DWORD dwError = ERROR_SUCCESS;
        if (!Storage::Directory::Create(tstrPath, nullptr, &dwError)) {
            Trace(kTraceError, L"*** ::CreateDirectory(%s) failed. [0x%08x]", tstrPath.c_str(), dwError);
        }
        static_cast<void>(CreateStartMenuShortcut(folder, tstrPath));
        static_cast<void>(CreateStartMenus(&folder, tstrPath));
    });
    return true;
}

bool ShortCutXmlHandler::CreateStartMenuShortcut(const Element& folder, const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"ShortCutXmlHandler::CreateStartMenuShortcut()");
    if (tstrFolder.empty()) return false;
    ForEachChild(folder, L"Shortcut",
                 [&](const Element& shortcut) { static_cast<void>(CreateShortCut(&shortcut, tstrFolder)); });
    return true;
}

bool ShortCutXmlHandler::CreateShortCut(const Element* pShortcut, const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"ShortCutXmlHandler::CreateShortCut()");
    if (!pShortcut) {
        Trace(kTraceError, L"*** Parameter is invalid.");
        return false;
    }
    if (m_tstrInstallDir.empty()) {
        Trace(kTraceError, L"*** ShortCutXmlHandler::m_tstrInstallDir is empty.");
        return false;
    }
    std::wstring tstrLink;
    if (!ItemPath(tstrFolder, pShortcut->GetText(), kLinkExtension, tstrLink)) return false;
    const std::wstring tstrTarget = String::JoinPath(m_tstrInstallDir, pShortcut->GetAttribute(L"lnk"));
    if (Utility::ShellLink::CreateShortcut(tstrLink, tstrTarget, IconOf(*pShortcut), pShortcut->GetAttribute(L"arg"),
                                           pShortcut->GetAttribute(L"desc"), L"")) {
        return true;
    }
    Trace(kTraceError, L"*** InstCommon::Utility::ShellLink::CreateShortcut is failed.");
    return false;
}

/// The icon's path: the one described, or an icon file beside a program and named like it, or none.
std::wstring ShortCutXmlHandler::IconOf(const Element& shortcut) const
{
    const std::wstring tstrDescribed = shortcut.GetAttribute(L"icon");
    if (!tstrDescribed.empty()) return String::JoinPath(m_tstrInstallDir, tstrDescribed);
    std::wstring tstrName = shortcut.GetAttribute(L"lnk").substr(0, kMostPathCharacters);
    const std::size_t uDot = tstrName.rfind(L'.');
    if (uDot == std::wstring::npos || !String::EqualsNoCase(tstrName.substr(uDot), L".exe")) return {};
    std::wstring tstrIcon = String::JoinPath(m_tstrInstallDir, tstrName.replace(uDot, 4, L".ico"));
    if (!Storage::File::IsExisted(tstrIcon)) return {};
    Trace(kTraceInfo, L"ShortCutXmlHandler::CreateShortCut(): change icon name [%s]", tstrIcon.c_str());
    return tstrIcon;
}

bool ShortCutXmlHandler::RemoveStartMenus(const Element* pStartMenu, const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"ShortCutXmlHandler::RemoveStartMenus()");
    if (!pStartMenu) {
        Trace(kTraceError, L"*** Parameter is invalid.");
        return false;
    }
    const PinnedItems pinnedItems;
    pinnedItems.UnpinProductLink();
    RemoveStartMenuItems(*pStartMenu, tstrFolder, pinnedItems);
    return true;
}

void ShortCutXmlHandler::RemoveStartMenuItems(const Element& parent, const std::wstring& tstrFolder,
                                              const PinnedItems& pinnedItems)
{
    ForEachChild(parent, nullptr, [&](const Element& child) {
        if (child.IsNamed(L"Folder")) RemoveStartMenuFolder(child, tstrFolder, pinnedItems);
        if (child.IsNamed(L"Shortcut")) RemoveStartMenuLink(child.GetText(), tstrFolder, pinnedItems);
    });
}

void ShortCutXmlHandler::RemoveStartMenuFolder(const Element& folder, const std::wstring& tstrParent,
                                               const PinnedItems& pinnedItems)
{
    std::wstring tstrPath;
    if (!FolderPath(tstrParent, folder, tstrPath)) return;
    RemoveStartMenuItems(folder, tstrPath, pinnedItems);
    // Fails for a folder in which something is left that the description does not name.
    if (!::RemoveDirectoryW(tstrPath.c_str())) {
        const DWORD dwError = ::GetLastError();
        Trace(kTraceInfo, L"Folder %s stays. [0x%08x]", tstrPath.c_str(), dwError);
    }
}
