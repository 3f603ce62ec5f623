// A path as Windows reads it.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// A full path, and why Windows would refuse it.
class FullPath {
public:
    /// Reads a path as the system does: "/", "." and "..", trailing dots and spaces of names, the prefix "\\?\".
    /// GetFullPathNameW.
    explicit FullPath(const std::wstring& tstrPath);

    /// Without "\\?\" and without trailing backslash; a drive is "C:". Empty for a path without a name.
    [[nodiscard]] const std::wstring& Text() const noexcept { return m_tstrText; }
    /// The drive or share.
    [[nodiscard]] std::wstring_view Root() const noexcept;
    /// The names below the root, from the top.
    [[nodiscard]] std::vector<std::wstring_view> Names() const;
    /// The parent folder; a root is its own parent.
    [[nodiscard]] FullPath Parent() const;
    /// The same path without its trailing backslash, which only a folder may have.
    [[nodiscard]] FullPath WithoutBackslash() const;
    /// The last name; empty for a root.
    [[nodiscard]] std::wstring_view Name() const noexcept;

    /// The code with which Windows refuses the path on any machine, otherwise ERROR_SUCCESS. Does not check the length;
    /// see IsLong().
    [[nodiscard]] DWORD Error() const noexcept { return m_dwError; }
    /// Whether it is a device ("NUL") instead of a file.
    [[nodiscard]] bool IsDevice() const noexcept { return m_bDevice; }
    /// Whether it ends in a backslash, so that it can only be a folder.
    [[nodiscard]] bool IsFolderText() const noexcept { return m_bFolderText; }
    /// Whether it has at least that many characters and no prefix that allows long paths.
    [[nodiscard]] bool IsLong(std::size_t cchFrom) const noexcept
    {
        return !m_bPrefixed && m_tstrText.size() >= cchFrom;
    }

private:
    FullPath() = default;
    [[nodiscard]] DWORD JudgeNames() const;

    std::wstring m_tstrText;
    DWORD m_dwError = ERROR_SUCCESS;
    bool m_bPrefixed = false;
    bool m_bDevice = false;
    bool m_bFolderText = false;
};

}  // namespace Check
