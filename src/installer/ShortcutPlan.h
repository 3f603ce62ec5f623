// What a shortcut description asks for, found out without making or removing anything.
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
// "lnk" and "icon" are relative to the install folder. Element names match without regard to case, attribute names
// exactly; unknown elements and attributes are ignored. "Desktop" and "StartMenu" count only with available="1".
//
// The text of a "Shortcut" and the "name" of a "Folder" are paths below the place or folder they stand in: a folder's
// may have several levels, an empty one is the folder around it. Refused is only what leaves the place.
#pragma once

#include "common/KzComn_XmlElement.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace InstCommon::Utility {

/// The longest folder that the shell handles. Also what ends a description of folders without end.
inline constexpr std::size_t kLongestFolder = 259;
/// A link's path goes to the shell, which knows its own limit; longer than this is no path at all.
inline constexpr std::size_t kLongestLink = 32766;

/// The direction of a walk over a description; the two do not look at the same elements.
enum class ShortcutWalk : int { eRemove = 0, eCreate = 1 };

/// Where shortcuts lie: on the desktop, or in the Start menu's programs folder, that all users share.
enum class ShortcutPlace { eDesktop, eStartMenu };

/// One folder or link file that a walk meets.
struct ShortcutItem {
    ShortcutPlace ePlace = ShortcutPlace::eDesktop;
    bool bFolder = false;
    /// As described, below the place or folder it stands in (in a whole plan: below the place); a link's with ".lnk".
    std::wstring tstrPath;
    /// Why it is left out, with all that is in it: the end of a sentence that begins with the name; null when it is
    /// not.
    const wchar_t* szRefusal = nullptr;
    // Of a link only, as described.
    std::wstring tstrTarget;       ///< below the install folder
    std::wstring tstrIcon;         ///< below the install folder; empty: see IconBeside
    std::wstring tstrDescription;  ///< the tooltip
    std::wstring tstrArguments;
    /// Where it is described; valid as long as its document.
    const KzCommon::Storage::XmlElement* pElement = nullptr;
};

/// The place that a child of the root stands for; nothing for any other element.
[[nodiscard]] std::optional<ShortcutPlace> PlaceOf(const KzCommon::Storage::XmlElement& element);

/// Whether the description lets a place be touched.
[[nodiscard]] bool IsAvailable(const KzCommon::Storage::XmlElement& place);

/// The items that a walk handles directly in a place's element or in a folder's, in the order of the walk. Creating, it
/// takes every child of the desktop for a link, no link directly in the Start menu, and a folder's links before its
/// folders; removing, it takes folders of the Start menu and links wherever they stand, in the order of the
/// description.
[[nodiscard]] std::vector<ShortcutItem> ItemsOf(const KzCommon::Storage::XmlElement& parent, ShortcutPlace ePlace,
                                                ShortcutWalk eWalk);

/// Everything that a walk over the document with that root handles, in the order of the walk, refused items included,
/// also those whose path is too long wherever the place lies. That a machine's desktop is to be left alone, or a place
/// cannot be found, is not known here.
[[nodiscard]] std::vector<ShortcutItem> ListShortcuts(const KzCommon::Storage::XmlElement& root, ShortcutWalk eWalk);

/// Why an item of that name would lie outside the folder it stands in, as in ShortcutItem; null when it does not.
[[nodiscard]] const wchar_t* WhyRefused(std::wstring_view tstrName);

/// The levels of a folder's name, outermost first: "Maker\Product" has two, a name that means the folder around it
/// none.
[[nodiscard]] std::vector<std::wstring> LevelsOf(std::wstring_view tstrName);

/// The icon file beside a program, named like it, that a link takes when it is there and no icon is described; empty
/// for a target that is no program. Below the install folder, like the target.
[[nodiscard]] std::wstring IconBeside(const std::wstring& tstrTarget);

}  // namespace InstCommon::Utility
