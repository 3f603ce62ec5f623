// What the code under test asks the system to change.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// Judges one call by the name of its Windows function and the file, folder or key that it is about: false when nothing
/// allows the code under test to touch that place. A move is judged twice, as "MoveFileExW" by where it goes (a
/// deletion: by what it deletes) and as "MoveFileExW source" by what it takes away.
using Judge = std::function<bool(std::string_view strCall, const std::wstring& tstrPlace)>;

/// The Win32 code with which a call fails; ERROR_SUCCESS lets it pass. Asked of the judged calls, and of some that only
/// read: of a listing by the name before, of SetFileInformationByHandle by the class, of "CreateFileW owner" for a file
/// that is to have an owner, of "SetKernelObjectSecurity owner" without a place.
using Fault = std::function<DWORD(std::string_view strCall, const std::wstring& tstrPlace)>;

/// While it lives, puts every call that changes or lists files, folders or keys before a judge, in the executable that
/// it is linked into: it stands in the place of the import table. A call that the judge refuses fails the test. No call
/// outside the sandbox folder, and no delayed move at all, reaches the system. Every special folder of the shell that
/// lies outside is the sandbox's folder "Shell". One at a time; without one every call passes.
class SystemWatch {
public:
    explicit SystemWatch(
        const std::wstring& tstrSandbox, Judge judge = [](auto&&...) { return true; });
    SystemWatch(const SystemWatch&) = delete;
    SystemWatch& operator=(const SystemWatch&) = delete;
    ~SystemWatch();

    const std::wstring m_tstrSandbox;
    const Judge m_judge;
    Fault m_fault = [](auto&&...) {
        return ERROR_SUCCESS;
    };                              // makes calls fail that the judge has allowed
    std::wstring m_tstrMountPoint;  // what the system says of the volume of every folder; empty for the truth
    std::wstring m_tstrLink;        // every folder of this name is a symbolic link
    std::wstring m_tstrLinkRights;  // its owner and access list as text; empty for the folder's own
    std::wstring m_tstrLinkTarget;  // where it leads
    std::wstring m_tstrSwapped;     // what is opened in a folder of this name lies behind the link as well
    std::wstring m_tstrVolume;      // the sandbox's folder of this name is a volume, mounted at the sandbox's "Mount"
    std::wstring m_tstrForeign;     // every file of this name belongs to the system
    bool m_bRenamesAtOnce = false;  // the system knows FileRenameInfoEx
    bool m_bHurry = false;          // pauses of the code under test take no time, but are counted
    mutable DWORD m_dwPausedMs = 0;

    // The delayed moves and deletions that the system has not been told of, in the order in which they were asked for:
    // "source > destination", the sandbox folder left out.
    mutable std::vector<std::wstring> m_moves;
    // The renames at once: "name > destination flags".
    mutable std::vector<std::wstring> m_renames;
    // The paths whose volume was asked for.
    mutable std::vector<std::wstring> m_volumeQuestions;
};
