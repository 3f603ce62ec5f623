// Lists the items of a shortcut description without creating or removing anything.
//
//     <any>
//       <Desktop available="1">
//         <Shortcut lnk="bin\App.exe" icon="" desc="Tooltip" arg="/show">Link name</Shortcut>
//       </Desktop>
//       <StartMenu available="1">
//         <Folder name="Maker\Product">
//           <Shortcut .../>
//           <Folder name="Tools"> ... </Folder>
//         </Folder>
//       </StartMenu>
//     </any>
//
// "lnk" and "icon" are relative to the install folder. Element names are case-insensitive, attribute names
// case-sensitive; unknown elements and attributes are ignored. "Desktop" and "StartMenu" count only with available="1".
//
// The text of a "Shortcut" and the "name" of a "Folder" are paths below their place or folder. A folder's name may have
// several levels; an empty one means the folder around it. Only paths that leave the place are refused.
#pragma once

#include "common/KzComn_XmlElement.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace InstCommon::Utility {

/// The longest folder that the shell handles. Also ends a description with endlessly nested folders.
inline constexpr std::size_t kLongestFolder = 259;
/// The longest possible path. The shell itself checks its lower limit for links.
inline constexpr std::size_t kLongestLink = 32766;

/// The direction of a walk over a description; the two directions handle different elements.
enum class ShortcutWalk : int { eRemove = 0, eCreate = 1 };

/// The place of shortcuts: the desktop or the Start menu's programs folder, shared by all users.
enum class ShortcutPlace { eDesktop, eStartMenu };

/// One folder or link file of a walk.
struct ShortcutItem {
    ShortcutPlace ePlace = ShortcutPlace::eDesktop;
    bool bFolder = false;
    /// As described, below its place or folder (in a whole plan: below the place); a link's with ".lnk".
    std::wstring tstrPath;
    /// Why it is skipped, with its contents: the end of a sentence that begins with the name; null otherwise.
    const wchar_t* szRefusal = nullptr;
    // For links only, as described.
    std::wstring tstrTarget;       ///< relative to the install folder
    std::wstring tstrIcon;         ///< relative to the install folder; if empty, see IconBeside
    std::wstring tstrDescription;  ///< the tooltip
    std::wstring tstrArguments;
    /// Its element; valid as long as the document.
    const KzCommon::Storage::XmlElement* pElement = nullptr;
};

/// The place for a child of the root; empty for any other element.
[[nodiscard]] std::optional<ShortcutPlace> PlaceOf(const KzCommon::Storage::XmlElement& element);

/// Whether the description allows changes in a place.
[[nodiscard]] bool IsAvailable(const KzCommon::Storage::XmlElement& place);

/// The direct items of a place's or folder's element, in walk order. When creating, every child of the desktop is a
/// link, links directly in the Start menu are ignored, and a folder's links precede its folders. When removing, links
/// count everywhere and folders only in the Start menu, in the order of the description.
[[nodiscard]] std::vector<ShortcutItem> ItemsOf(const KzCommon::Storage::XmlElement& parent, ShortcutPlace ePlace,
                                                ShortcutWalk eWalk);

/// All items of a walk over the document, in walk order, including refused ones and those whose path is too long for
/// any place. Does not know whether the machine's desktop must be skipped or a place is missing.
[[nodiscard]] std::vector<ShortcutItem> ListShortcuts(const KzCommon::Storage::XmlElement& root, ShortcutWalk eWalk);

/// Why an item with that name would be outside its folder, as in ShortcutItem; null when it is inside.
[[nodiscard]] const wchar_t* WhyRefused(std::wstring_view tstrName);

/// The levels of a folder's name, outermost first: "Maker\Product" has two, a name that means the folder around it has
/// none.
[[nodiscard]] std::vector<std::wstring> LevelsOf(std::wstring_view tstrName);

/// The icon file beside a program with the same base name, which a link without a described icon uses if it exists;
/// empty for a target that is not a program. Relative to the install folder, like the target.
[[nodiscard]] std::wstring IconBeside(const std::wstring& tstrTarget);

}  // namespace InstCommon::Utility
