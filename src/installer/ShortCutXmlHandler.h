// Creates and removes the shortcuts of a description file; ShortcutPlan.h explains the file.
#pragma once

#include "installer/InstComn_XmlHandler.h"
#include "installer/ShortcutPlan.h"

#include <string>

namespace InstCommon::Utility {
class PinnedItems;
}

/// Walks one description file in one of two directions. Single shortcuts that fail are traced and skipped. A walk fails
/// only when no file is parsed or when a required Start menu is not found; the latter also discards the file.
class ShortCutXmlHandler : public InstCommon::Utility::XmlHandler {
public:
    /// Creates all described shortcuts, with targets and icons below `tstrInstallDir`, and their folders. Skips the
    /// desktop on a machine with the sibling suite's bundle.
    [[nodiscard]] bool CreateShortCuts(const std::wstring& tstrInstallDir);

    /// Removes all described shortcuts, pinned items first, and then the empty Start-menu folders, level by level.
    /// Keeps other files and their folders, the programs folder and every folder that is a junction or symbolic link
    /// (but removes the described links inside).
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
