// A path as Windows reads it.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// A path made full, and why Windows would refuse it.
class FullPath {
public:
    /// Reads a path as the system does: "/", "." and "..", dots and spaces at the end of names, "\\?\" in front.
    /// GetFullPathNameW.
    explicit FullPath(const std::wstring& tstrPath);

    /// Without "\\?\" and without backslash at its end; a drive is "C:". Empty for a path that names nothing.
    [[nodiscard]] const std::wstring& Text() const noexcept { return m_tstrText; }
    /// The drive or share.
    [[nodiscard]] std::wstring_view Root() const noexcept;
    /// The names below it, from the top.
    [[nodiscard]] std::vector<std::wstring_view> Names() const;
    /// The folder above; the same for a root.
    [[nodiscard]] FullPath Parent() const;
    /// The same without a backslash at its end, which only a folder may have.
    [[nodiscard]] FullPath WithoutBackslash() const;
    /// The last name; empty for a root.
    [[nodiscard]] std::wstring_view Name() const noexcept;

    /// The code with which Windows refuses the path whatever is on the machine; ERROR_SUCCESS when it does not. Paths
    /// that are too long are not among them: see IsLong().
    [[nodiscard]] DWORD Error() const noexcept { return m_dwError; }
    /// Whether it names a device ("NUL") instead of a file.
    [[nodiscard]] bool IsDevice() const noexcept { return m_bDevice; }
    /// Whether it ends in a backslash, so that it can only name a folder.
    [[nodiscard]] bool IsFolderText() const noexcept { return m_bFolderText; }
    /// Whether it has that many characters and no prefix that lets it be long.
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
