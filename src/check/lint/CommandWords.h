// The words of a run-once command, and the files that it starts.
#pragma once

#include "check/update/Instructions.h"

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// A word of a command line. Spaces separate words, except inside quotes.
struct Word {
    std::size_t uBegin;
    std::wstring tstrText;  ///< without quotes
    bool bQuoted = false;   ///< begins with a quote
};

/// The command, equally long, without the quotes that open and close nothing for its reader: the outer ones of what the
/// command interpreter carries out ("cmd /c ""C:\a b" c""), and those that a backslash hands on ("\"C:\a b\" c").
[[nodiscard]] std::wstring WithPlainQuotes(std::wstring tstrCommand);

[[nodiscard]] std::vector<Word> SplitCommand(std::wstring_view tstrCommand);

/// The words of a command, split before the placeholders are expanded: a space in a folder name splits no word.
[[nodiscard]] std::vector<Word> SplitExpanded(std::wstring_view tstrCommand, const CustomerFolders& folders);

/// A file that a command starts, or has a program of Windows carry out.
struct StartedFile {
    enum class Kind {
        eProgram,
        eLibrary,   ///< for rundll32 and regsvr32, which look for a bare name in the system's folders
        eDocument,  ///< a script, a registry file, a package: a bare name is looked for in the current folder
        eBuiltIn    ///< a word of the command interpreter's own where a program is needed
    };
    Kind eKind;
    std::wstring tstrFile;  ///< placeholders and Windows' own variables expanded
    std::size_t uAt;        ///< where it is named in the command
};

/// The files that a command starts, those after "cmd /c" included. Files whose name has a variable in it that is not
/// known are left out.
[[nodiscard]] std::vector<StartedFile> ListStarted(std::wstring_view tstrCommand, const CustomerFolders& folders);

/// Whether Windows has a program of that name, with or without ".exe": one that every Windows has, or one in the
/// folders of this machine's.
[[nodiscard]] bool IsWindowsProgram(const std::wstring& tstrName);
/// The program of Windows that may have been meant; empty when none comes near.
[[nodiscard]] std::wstring NearestWindowsProgram(const std::wstring& tstrName);

}  // namespace Check
