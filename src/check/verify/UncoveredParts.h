// The parts of an update that a verification cannot check on a machine.
#pragma once

#include "check/update/Update.h"

#include <string>
#include <vector>

namespace Check {

enum class UncoveredKind {
    eCommand,     ///< a run-once command
    eShortcut,    ///< a shortcut of the description that the renaming run carries out
    eNewName,     ///< the product's name in one language
    eNotRestored  ///< a part of another update that this one does not undo
};

/// A part that changes nothing that stays, or changes it only on some machines.
struct UncoveredPart {
    UncoveredKind eKind = UncoveredKind::eCommand;
    std::wstring tstrWhat;        ///< the command; the link, "Desktop\...lnk"; the name; the file, the value
    std::wstring tstrDetail{};    ///< a link's target and arguments; why it is not restored
    std::wstring tstrLanguage{};  ///< of a name, or of a description of shortcuts; empty for all
};

/// In front of the comments of an instruction file that name the parts not restored: "; Not restored: WHAT | WHY".
inline constexpr wchar_t kNotRestored[] = L"Not restored: ";
inline constexpr wchar_t kWhyNot[] = L" | ";

/// Commands, parts that are not restored, and shortcuts in their order, then the names in the order of their languages.
/// Skips unreadable files: lint reports them.
[[nodiscard]] std::vector<UncoveredPart> ListUncoveredParts(const Update& update);

/// The languages with a string table of their own, sorted.
[[nodiscard]] std::vector<std::wstring> ListLanguages(const Update& update);

}  // namespace Check
