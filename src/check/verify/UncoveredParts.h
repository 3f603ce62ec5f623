// The parts of an update that a verification cannot check on a machine.
#pragma once

#include "check/update/Update.h"

#include <string>
#include <vector>

namespace Check {

enum class UncoveredKind {
    eCommand,   ///< a run-once command
    eShortcut,  ///< a shortcut of the description that the renaming run carries out
    eNewName    ///< the product's name in one language
};

/// A part that changes nothing that stays, or changes it only on some machines.
struct UncoveredPart {
    UncoveredKind eKind = UncoveredKind::eCommand;
    std::wstring tstrWhat;        ///< the command; the link, "Desktop\...lnk"; the name
    std::wstring tstrDetail{};    ///< a link's target and arguments
    std::wstring tstrLanguage{};  ///< of a name, or of a description of shortcuts; empty for all
};

/// Commands and shortcuts in their order, then the names in the order of their languages. Skips unreadable files: lint
/// reports them.
[[nodiscard]] std::vector<UncoveredPart> ListUncoveredParts(const Update& update);

/// The languages with a string table of their own, sorted.
[[nodiscard]] std::vector<std::wstring> ListLanguages(const Update& update);

}  // namespace Check
