// Shortcuts made and removed as a description file has them.
//
//     <any>
//       <Desktop available="1">
//         <Shortcut lnk="bin\App.exe" icon="" desc="Tooltip" arg="/show">Link name</Shortcut>
//       </Desktop>
//       <StartMenu available="1">
//         <Folder name="Product">
//           <Shortcut .../>
//           <Folder name="Tools"> ... </Folder>
//         </Folder>
//       </StartMenu>
//     </any>
//
// "lnk" and "icon" are relative to the install folder. Element names match without regard to case, attribute names
// exactly; unknown elements and attributes are ignored. "Desktop" and "StartMenu" count only with available="1". Names
// that could lead out of their folder are refused, and so are paths longer than the shell can handle.
#pragma once

#include "installer/InstComn_XmlHandler.h"

#include <string>

namespace InstCommon::Utility {
class PinnedItems;
}

/// Walks one description file, in one of two directions. Single shortcuts that fail are traced and left out; a walk
/// fails only when no file is parsed, or when the Start menu that it needs cannot be found, which ends it and forgets
/// the file.
class ShortCutXmlHandler : public InstCommon::Utility::XmlHandler {
public:
    /// Creates everything described, targets and icons below `tstrInstallDir`. The desktop is left alone on a machine
    /// that has the sibling suite's bundle.
    [[nodiscard]] bool CreateShortCuts(const std::wstring& tstrInstallDir);

    /// Removes everything described, pinned items first, and the Start-menu folders that are empty then. What is not
    /// described stays, and its folder with it.
    [[nodiscard]] bool RemoveShortCuts();

private:
    enum Mode : int { eRemove = 0, eCreate = 1 };
    using Element = KzCommon::Storage::XmlElement;

    [[nodiscard]] bool HandleEachElement();
    [[nodiscard]] bool HandleDesktopElement(const Element* pDesktop);
    [[nodiscard]] bool HandleStartMenuElement(const Element* pStartMenu);
    [[nodiscard]] bool CreateStartMenus(const Element* pParent, const std::wstring& tstrFolder);
    [[nodiscard]] bool CreateStartMenuShortcut(const Element& folder, const std::wstring& tstrFolder);
    [[nodiscard]] bool CreateShortCut(const Element* pShortcut, const std::wstring& tstrFolder);
    [[nodiscard]] bool RemoveStartMenus(const Element* pStartMenu, const std::wstring& tstrFolder);
    void RemoveStartMenuItems(const Element& parent, const std::wstring& tstrFolder,
                              const InstCommon::Utility::PinnedItems& pinnedItems);
    void RemoveStartMenuFolder(const Element& folder, const std::wstring& tstrParent,
                               const InstCommon::Utility::PinnedItems& pinnedItems);
    [[nodiscard]] std::wstring IconOf(const Element& shortcut) const;

    std::wstring m_tstrInstallDir;
    int m_iMode = eRemove;
};
