// The user's pinned links in the Start menu and the taskbar.
#pragma once

#include "common/KzComn_Com.h"
#include "common/KzComn_Library.h"

#include <shlobj.h>

#include <string>

namespace InstCommon::Utility {

/// Removes the product's links from the shell's list of pinned items and deletes the shell's copies of them in the
/// user's profile. One object serves many links. Without the shell's list only files are deleted; without a known
/// profile nothing in it is changed. Failures are traced and do not concern the caller. IStartMenuPinnedList.
class PinnedItems {
public:
    PinnedItems();

    /// Unpins the product's own link from the taskbar.
    void UnpinProductLink() const;
    /// Unpins a link file, given by its full path. Call it while the file exists.
    void UnpinLink(const std::wstring& tstrLink) const;
    /// Unpins and deletes the pinned copy of a link, if any, given by its file name with ".lnk".
    void RemoveCachedLink(const std::wstring& tstrLinkName) const;

private:
    void PrepareList();
    void PrepareFolders();

    KzCommon::Com::Apartment m_apartment;  // first: everything below must be released before it ends
    KzCommon::Library::Wrapper m_shell32;
    decltype(&::SHCreateItemFromParsingName) m_pfnCreateItem = nullptr;
    KzCommon::Com::ComPtr<IStartMenuPinnedList> m_list;
    std::wstring m_tstrCacheFolder;
    std::wstring m_tstrTaskbarFolder;
};

}  // namespace InstCommon::Utility
