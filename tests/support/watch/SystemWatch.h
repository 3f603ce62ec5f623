// Watches the changes that the code under test requests from the system.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// Judges one call by the name of its Windows function and the file, folder or key that it concerns; false when the
/// code under test may not access that place. A move is judged twice: "MoveFileExW" with its destination (for a
/// deletion: the deleted file) and "MoveFileExW source" with its source.
using Judge = std::function<bool(std::string_view strCall, const std::wstring& tstrPlace)>;

/// The Win32 code with which a call fails; ERROR_SUCCESS lets it pass. Called for judged calls and for some that only
/// read: for a listing with its path, for SetFileInformationByHandle with the class, for "CreateFileW list" with a
/// folder, for "CreateFileW owner" when the file gets an owner; without a place for "SetKernelObjectSecurity owner" and
/// for steps of files, of the shell, of encryption and of privileges.
using Fault = std::function<DWORD(std::string_view strCall, const std::wstring& tstrPlace)>;

/// During its lifetime, presents every call that changes or lists files, folders or keys to a judge, in the executable
/// that it is linked into: it replaces the import table. A refused call fails the test. No call outside the sandbox
/// folder, and no delayed move, reaches the system. Special folders of the shell outside the sandbox are replaced with
/// its folder "Shell". Only one at a time; without one every call passes.
class SystemWatch {
public:
    explicit SystemWatch(
        const std::wstring& tstrSandbox, Judge judge = [](auto&&...) { return true; });
    SystemWatch(const SystemWatch&) = delete;
    SystemWatch& operator=(const SystemWatch&) = delete;
    ~SystemWatch();

    /// Makes the calls of one function fail, on places with that end.
    void Fail(std::string_view strFunction, DWORD dwCode, const std::wstring& tstrPlaceEnd = L"")
    {
        m_fault = [=](std::string_view strCall, const std::wstring& tstrPlace) {
            return strCall == strFunction && tstrPlace.ends_with(tstrPlaceEnd) ? dwCode : ERROR_SUCCESS;
        };
    }
    /// Likewise only the first `cTimes` calls.
    void FailFirst(std::string_view strFunction, unsigned cTimes, DWORD dwCode)
    {
        m_fault = [=, cLeft = cTimes](std::string_view strCall, auto&&) mutable {
            return strCall == strFunction && cLeft > 0 && cLeft-- > 0 ? dwCode : ERROR_SUCCESS;
        };
    }

    const std::wstring m_tstrSandbox;
    const Judge m_judge;
    Fault m_fault = [](auto&&...) {
        return ERROR_SUCCESS;
    };                              // makes calls fail that the judge allows
    std::wstring m_tstrMountPoint;  // the volume of every folder; empty for the real one
    std::wstring m_tstrLink;        // every folder of this name is a symbolic link
    std::wstring m_tstrLinkRights;  // its owner and access list as text; empty for the folder's own
    std::wstring m_tstrLinkTarget;  // its target
    std::wstring m_tstrSwapped;     // files opened in a folder of this name are behind the link as well
    std::wstring m_tstrVolume;      // the sandbox's folder of this name is a volume, mounted at the sandbox's "Mount"
    std::wstring m_tstrForeign;     // every file of this name belongs to the system
    bool m_bRenamesAtOnce = false;  // the system supports FileRenameInfoEx
    bool m_bHurry = false;          // pauses of the code under test take no time but are counted
    mutable DWORD m_dwPausedMs = 0;

    // The delayed moves and deletions, which are not passed to the system, in call order: "source > destination"
    // without the sandbox folder.
    mutable std::vector<std::wstring> m_moves;
    // The immediate renames: "name > destination flags".
    mutable std::vector<std::wstring> m_renames;
    // The paths whose volume was requested.
    mutable std::vector<std::wstring> m_volumeQuestions;
};
