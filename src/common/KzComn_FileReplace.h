// Replaces a file in one step, with its access rights, through a temporary file beside it that is always removed.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <utility>

namespace KzCommon::Storage::File {

/// Whether `tstrName` is the name of a temporary file of a replacement. Files left by an interrupted run have no user:
/// folder walks skip them, and the next replacement in the folder deletes them.
[[nodiscard]] bool IsTemporaryName(std::wstring_view tstrName) noexcept;
/// Whether a file with this name was left by a process that has ended. The next replacement in the folder deletes it.
[[nodiscard]] bool IsLeftover(const std::wstring& tstrName);

/// A new file beside `tstrTarget` that gets its content and then replaces the target; otherwise the destructor deletes
/// it. The operations are listed in call order. All return false with the Win32 code in `*pdwError`. Not thread-safe.
class Replacement {
public:
    explicit Replacement(std::wstring tstrTarget) : m_tstrTarget(std::move(tstrTarget)) {}
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement();

    /// Deletes the leftovers of interrupted runs in the folder, then creates the file. Only accounts with access to
    /// `tstrLike`, an existing file, can open it; if that is empty, it gets the folder's rights. The caller is the
    /// owner. CreateFileW.
    [[nodiscard]] bool Create(const std::wstring& tstrLike, DWORD dwAttributes, DWORD* pdwError);

    /// Copies content and attributes of another file and flushes them; waits while that file is in use. CopyFileW.
    [[nodiscard]] bool CopyFrom(const std::wstring& tstrSource, DWORD* pdwError);
    /// Writes these bytes as the content and flushes them. WriteFile.
    [[nodiscard]] bool Write(std::string_view strBytes, DWORD* pdwError);

    /// Copies the access control list of `tstrLike` exactly. SetFileSecurityW.
    [[nodiscard]] bool TakeAccess(const std::wstring& tstrLike, DWORD* pdwError);
    /// Copies the owner of `tstrLike` if it differs, with the caller's restore privilege enabled for the call. If the
    /// system refuses the owner, this is traced and the replacement continues. SetKernelObjectSecurity.
    void TakeOwner(const std::wstring& tstrLike);

    /// Replaces the target; waits while it is in use. Programs that opened it with shared deletion do not block it and
    /// keep the old content. A rename: unlike with ReplaceFileW, the file exists at every moment, and the change is on
    /// the disk on return. SetFileInformationByHandle; MoveFileExW if that is refused.
    [[nodiscard]] bool TakePlace(DWORD* pdwError);

private:
    std::wstring m_tstrTarget;
    std::wstring m_tstrPath;  // empty without a temporary file
};

}  // namespace KzCommon::Storage::File
