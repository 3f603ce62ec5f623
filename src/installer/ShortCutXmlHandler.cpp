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
using namespace InstCommon::Utility;

namespace {

/// The path of an item in a folder. False, with a trace line, for an item outside the folder and for a path that is too
/// long.
[[nodiscard]] bool ItemPath(const std::wstring& tstrFolder, const ShortcutItem& item, std::wstring& tstrPath)
{
    if (item.szRefusal) {
        Trace(kTraceError, L"*** [%s] is no name for an item in %s: it %s.", item.tstrPath.c_str(), tstrFolder.c_str(),
              item.szRefusal);
        return false;
    }
    tstrPath = String::JoinPath(tstrFolder, item.tstrPath);
    if (tstrPath.size() <= (item.bFolder ? kLongestFolder : kLongestLink)) return true;
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
    for (const ShortcutItem& shortcut : ItemsOf(desktop, ShortcutPlace::eDesktop, ShortcutWalk::eRemove)) {
        std::wstring tstrLink;
        if (ItemPath(tstrFolder, shortcut, tstrLink)) DeleteLink(tstrLink);
    }
}

void RemoveStartMenuLink(const ShortcutItem& shortcut, const std::wstring& tstrLink, const PinnedItems& pinnedItems)
{
    pinnedItems.UnpinLink(tstrLink);
    DeleteLink(tstrLink);
    pinnedItems.RemoveCachedLink(shortcut.tstrPath);
}

/// Removes one folder if it is empty. False when it stays.
[[nodiscard]] bool RemoveEmptyFolder(const std::wstring& tstrPath)
{
    // RemoveDirectoryW would remove a link instead of the folder that it points to.
    if (Storage::Directory::IsLink(tstrPath)) {
        Trace(kTraceInfo, L"Folder %s stays: it is a link to another place.", tstrPath.c_str());
        return false;
    }
    if (::RemoveDirectoryW(tstrPath.c_str())) return true;
    const DWORD dwError = ::GetLastError();
    Trace(kTraceInfo, L"Folder %s stays. [0x%08x]", tstrPath.c_str(), dwError);
    return false;
}

/// Removes the folders of a name below `tstrParent` if they are empty, starting with the innermost existing one. Keeps
/// `tstrParent` itself.
void RemoveFolderLevels(const std::wstring& tstrParent, const std::wstring& tstrName)
{
    std::vector<std::wstring> paths;
    std::wstring tstrPath = tstrParent;
    for (const std::wstring& tstrLevel : LevelsOf(tstrName)) {
        tstrPath = String::JoinPath(tstrPath, tstrLevel);
        if (!Storage::Directory::IsExisted(tstrPath)) break;
        paths.push_back(tstrPath);
    }
    while (!paths.empty() && RemoveEmptyFolder(paths.back())) paths.pop_back();
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
    // The trace uses its own number for the default view.
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
    m_eMode = Walk::eCreate;
    if (HandleEachElement()) return true;
    Trace(kTraceError, L"*** ShortCutXmlHandler::HandleEachElement() failed.");
    return false;
}

bool ShortCutXmlHandler::RemoveShortCuts()
{
    const OperationTrace trace(L"ShortCutXmlHandler::RemoveShortCuts()");
    m_eMode = Walk::eRemove;
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
        if (HandlePlace(*m_pElement)) continue;
        Trace(kTraceError, L"*** Fatal error occured.");
        Release();
        return false;
    }
    return true;
}

bool ShortCutXmlHandler::HandlePlace(const Element& element)
{
    const std::optional<ShortcutPlace> place = PlaceOf(element);
    if (!place) return true;
    return *place == ShortcutPlace::eDesktop ? HandleDesktopElement(&element) : HandleStartMenuElement(&element);
}

bool ShortCutXmlHandler::HandleDesktopElement(const Element* pDesktop)
{
    const OperationTrace trace(L"ShortCutXmlHandler::HandleDesktopElement()");
    if (!pDesktop) {
        Trace(kTraceError, L"*** Parameter is invalid.");
        return false;
    }
    Trace(kTraceInfo, L"<Desktop> element is handled.");
    Trace(kTraceInfo, L"<Desktop available=%s>", pDesktop->GetAttribute(L"available").c_str());
    if (!IsAvailable(*pDesktop)) {
        Trace(kTraceInfo, L"Skip <Desktop> element.");
        return SkipAllChildElements();
    }
    std::wstring tstrFolder;
    if (!InstCommon::Utility::ShellLink::GetAllUsersDesktop(tstrFolder)) {
        Trace(kTraceError, L"*** InstCommon::Utility::ShellLink::GetAllUsersDesktop() failed.");
        return SkipAllChildElements();
    }
    if (m_eMode == Walk::eRemove) {
        RemoveDesktopLinks(*pDesktop, tstrFolder);
        return true;
    }
    if (IsBundleModel()) {
        Trace(kTraceInfo, L"Bundle Qe model: Do not install desktop shortcut.");
        return true;
    }
    Trace(kTraceInfo, L"Not bundle Qe model: install desktop shortcut");
    for (const Item& shortcut : ItemsOf(*pDesktop, ShortcutPlace::eDesktop, Walk::eCreate)) {
        static_cast<void>(CreateShortCut(shortcut, tstrFolder));
    }
    return true;
}

bool ShortCutXmlHandler::HandleStartMenuElement(const Element* pStartMenu)
{
    const OperationTrace trace(L"ShortCutXmlHandler::HandleStartMenuElement()");
    if (!pStartMenu) {
        Trace(kTraceError, L"*** Parameter is invalid.");
        return false;
    }
    Trace(kTraceInfo, L"<StartMenu> element is handled.");
    Trace(kTraceInfo, L"<StartMenu available=%s>", pStartMenu->GetAttribute(L"available").c_str());
    if (!IsAvailable(*pStartMenu)) {
        Trace(kTraceInfo, L"Skip <StartMenu> element.");
        return SkipStartMenu();
    }
    std::wstring tstrFolder;
    if (!InstCommon::Utility::ShellLink::GetAllUsersStartMenuPrograms(tstrFolder)) {
        Trace(kTraceError, L"*** InstCommon::Utility::ShellLink::GetAllUsersStartMenuPrograms failed.");
        static_cast<void>(SkipStartMenu());
        return false;
    }
    if (m_eMode == Walk::eRemove) return RemoveStartMenus(pStartMenu, tstrFolder);
    return CreateStartMenus(pStartMenu, tstrFolder);
}

bool ShortCutXmlHandler::SkipStartMenu()
{
    if (SkipAllChildElements()) return true;
    Trace(kTraceError, L"*** InstCommon::Utility::XmlHandler::SkipAllChildElements() failed.");
    return false;
}

bool ShortCutXmlHandler::CreateStartMenus(const Element* pParent, const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"ShortCutXmlHandler::CreateStartMenus()");
    if (!pParent) return false;
    for (const Item& folder : ItemsOf(*pParent, ShortcutPlace::eStartMenu, Walk::eCreate)) {
        std::wstring tstrPath;
        if (!folder.bFolder || !ItemPath(tstrFolder, folder, tstrPath)) continue;
        Trace(kTraceInfo, L"p_StartMenuDir = %s", tstrFolder.c_str());
        DWORD dwError = ERROR_SUCCESS;
        if (!Storage::Directory::Create(tstrPath, nullptr, &dwError)) {
            Trace(kTraceError, L"*** ::CreateDirectory(%s) failed. [0x%08x]", tstrPath.c_str(), dwError);
        }
        static_cast<void>(CreateStartMenuShortcut(*folder.pElement, tstrPath));
        static_cast<void>(CreateStartMenus(folder.pElement, tstrPath));
    }
    return true;
}

bool ShortCutXmlHandler::CreateStartMenuShortcut(const Element& folder, const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"ShortCutXmlHandler::CreateStartMenuShortcut()");
    if (tstrFolder.empty()) return false;
    for (const Item& shortcut : ItemsOf(folder, ShortcutPlace::eStartMenu, Walk::eCreate)) {
        if (!shortcut.bFolder) static_cast<void>(CreateShortCut(shortcut, tstrFolder));
    }
    return true;
}

bool ShortCutXmlHandler::CreateShortCut(const Item& shortcut, const std::wstring& tstrFolder)
{
    const OperationTrace trace(L"ShortCutXmlHandler::CreateShortCut()");
    if (!shortcut.pElement) {
        Trace(kTraceError, L"*** Parameter is invalid.");
        return false;
    }
    if (m_tstrInstallDir.empty()) {
        Trace(kTraceError, L"*** ShortCutXmlHandler::m_tstrInstallDir is empty.");
        return false;
    }
    std::wstring tstrLink;
    if (!ItemPath(tstrFolder, shortcut, tstrLink)) return false;
    const InstCommon::Utility::ShellLink::LinkProperties properties{
        .tstrTarget = String::JoinPath(m_tstrInstallDir, shortcut.tstrTarget),
        .tstrIcon = IconOf(shortcut),
        .tstrArguments = shortcut.tstrArguments,
        .tstrDescription = shortcut.tstrDescription,
        .tstrWorkingDirectory = {}};
    if (InstCommon::Utility::ShellLink::CreateShortcut(tstrLink, properties)) return true;
    Trace(kTraceError, L"*** InstCommon::Utility::ShellLink::CreateShortcut is failed.");
    return false;
}

/// The icon's path: the described icon, otherwise an existing icon file beside a program with the same base name,
/// otherwise empty.
std::wstring ShortCutXmlHandler::IconOf(const Item& shortcut) const
{
    if (!shortcut.tstrIcon.empty()) return String::JoinPath(m_tstrInstallDir, shortcut.tstrIcon);
    const std::wstring tstrBeside = IconBeside(shortcut.tstrTarget);
    if (tstrBeside.empty()) return {};
    std::wstring tstrIcon = String::JoinPath(m_tstrInstallDir, tstrBeside);
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
    for (const Item& item : ItemsOf(parent, ShortcutPlace::eStartMenu, Walk::eRemove)) {
        std::wstring tstrPath;
        if (!ItemPath(tstrFolder, item, tstrPath)) continue;
        if (!item.bFolder) {
            RemoveStartMenuLink(item, tstrPath, pinnedItems);
            continue;
        }
        RemoveStartMenuItems(*item.pElement, tstrPath, pinnedItems);
        RemoveFolderLevels(tstrFolder, item.tstrPath);
    }
}
