// How a file is replaced: in one step, with its access rights, over a temporary neighbour that is gone on every way
// out.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>

namespace KzCommon::Storage::File {

/// Whether `tstrName` is one that a replacement makes beside its target. What an ended run left under such a name is no
/// file of anybody's: walks leave it out, and the next replacement in that folder removes it.
[[nodiscard]] bool IsTemporaryName(std::wstring_view tstrName) noexcept;
/// Whether a file of that name is one that a program which has ended left behind: the next replacement in its folder
/// removes it.
[[nodiscard]] bool IsLeftover(const std::wstring& tstrName);

/// A new file beside `tstrTarget` that is given its content and then takes the target's place; deleted with this object
/// unless it did. The operations stand in the order in which they are called. All return false with the Win32 code in
/// `*pdwError`. For one thread at a time.
class Replacement {
public:
    explicit Replacement(std::wstring tstrTarget) : m_tstrTarget(std::move(tstrTarget)) {}
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement();

    /// Removes what ended runs left in the folder, then makes the file: open to nobody whom `tstrLike`, an existing
    /// file, is not open to; like a new file of the folder when that is empty. Its owner is the caller's. CreateFileW.
    [[nodiscard]] bool Create(const std::wstring& tstrLike, DWORD dwAttributes, DWORD* pdwError);

    /// Takes content and attributes of another file, which is waited for while others hold it; flushed. CopyFileW.
    [[nodiscard]] bool CopyFrom(const std::wstring& tstrSource, DWORD* pdwError);
    /// Takes these bytes as its content; flushed. WriteFile.
    [[nodiscard]] bool Write(std::string_view strBytes, DWORD* pdwError);

    /// Takes exactly the access control list of `tstrLike`. SetFileSecurityW.
    [[nodiscard]] bool TakeAccess(const std::wstring& tstrLike, DWORD* pdwError);
    /// Takes the owner of `tstrLike`, where that is another one; the caller's privilege to restore files is switched on
    /// for that call. An owner that the system refuses leaves a line in the trace, and the replacement goes on.
    /// SetKernelObjectSecurity.
    void TakeOwner(const std::wstring& tstrLike);

    /// Takes the place of the target, which is waited for while others hold it. Programs that share its deletion do not
    /// stop it: they keep the old content. A rename: unlike ReplaceFileW it leaves no moment without a file, and it is
    /// on the disk when it is done. SetFileInformationByHandle; MoveFileExW where that is refused.
    [[nodiscard]] bool TakePlace(DWORD* pdwError);

private:
    std::wstring m_tstrTarget;
    std::wstring m_tstrPath;  // empty while there is no temporary file
};

}  // namespace KzCommon::Storage::File
