// The links that the user pinned to the Start menu and the taskbar.
#pragma once

#include "common/KzComn_Com.h"
#include "common/KzComn_Library.h"

#include <shlobj.h>

#include <string>

namespace InstCommon::Utility {

/// Takes the product's links out of the shell's list of pinned items and removes the copies that the shell keeps of
/// them in the user's profile. Prepared once for many links. Where the shell offers no list (or no profile is known),
/// only files (or nothing of the profile) are touched. Every failure is traced; none matters to the caller.
/// IStartMenuPinnedList.
class PinnedItems {
public:
    PinnedItems();

    /// Unpins the product's own link from the taskbar.
    void UnpinProductLink() const;
    /// Unpins a link file, given by full path. To be done while the file exists.
    void UnpinLink(const std::wstring& tstrLink) const;
    /// Unpins and deletes the pinned copy of a link, given by its file name with ".lnk", where there is one.
    void RemoveCachedLink(const std::wstring& tstrLinkName) const;

private:
    void PrepareList();
    void PrepareFolders();

    KzCommon::Com::Apartment m_apartment;  // first: everything below must be gone before it ends
    KzCommon::Library::Wrapper m_shell32;
    decltype(&::SHCreateItemFromParsingName) m_pfnCreateItem = nullptr;
    KzCommon::Com::ComPtr<IStartMenuPinnedList> m_list;
    std::wstring m_tstrCacheFolder;
    std::wstring m_tstrTaskbarFolder;
};

}  // namespace InstCommon::Utility
