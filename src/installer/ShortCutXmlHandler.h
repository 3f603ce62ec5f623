// Shortcuts made and removed as a description file has them; ShortcutPlan.h says what such a file holds.
#pragma once

#include "installer/InstComn_XmlHandler.h"
#include "installer/ShortcutPlan.h"

#include <string>

namespace InstCommon::Utility {
class PinnedItems;
}

/// Walks one description file, in one of two directions. Single shortcuts that fail are traced and left out; a walk
/// fails only when no file is parsed, or when the Start menu that it needs cannot be found, which ends it and forgets
/// the file.
class ShortCutXmlHandler : public InstCommon::Utility::XmlHandler {
public:
    /// Creates everything described, targets and icons below `tstrInstallDir`, and the folders it lies in. The desktop
    /// is left alone on a machine that has the sibling suite's bundle.
    [[nodiscard]] bool CreateShortCuts(const std::wstring& tstrInstallDir);

    /// Removes everything described, pinned items first, and the Start-menu folders that are empty then, level by
    /// level. What is not described stays, and its folder with it; so do the programs folder and every folder that is a
    /// junction or symbolic link, while the described links inside go.
    [[nodiscard]] bool RemoveShortCuts();

private:
    using Element = KzCommon::Storage::XmlElement;
    using Item = InstCommon::Utility::ShortcutItem;
    using Walk = InstCommon::Utility::ShortcutWalk;

    [[nodiscard]] bool HandleEachElement();
    [[nodiscard]] bool HandlePlace(const Element& element);
    [[nodiscard]] bool HandleDesktopElement(const Element* pDesktop);
    [[nodiscard]] bool HandleStartMenuElement(const Element* pStartMenu);
    [[nodiscard]] bool SkipStartMenu();
    [[nodiscard]] bool CreateStartMenus(const Element* pParent, const std::wstring& tstrFolder);
    [[nodiscard]] bool CreateStartMenuShortcut(const Element& folder, const std::wstring& tstrFolder);
    [[nodiscard]] bool CreateShortCut(const Item& shortcut, const std::wstring& tstrFolder);
    [[nodiscard]] bool RemoveStartMenus(const Element* pStartMenu, const std::wstring& tstrFolder);
    void RemoveStartMenuItems(const Element& parent, const std::wstring& tstrFolder,
                              const InstCommon::Utility::PinnedItems& pinnedItems);
    [[nodiscard]] std::wstring IconOf(const Item& shortcut) const;

    std::wstring m_tstrInstallDir;
    Walk m_eMode = Walk::eRemove;
};
