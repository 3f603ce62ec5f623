// Folder texts.
#pragma once

#include "common/KzComn_String.h"

#include <string>
#include <string_view>
#include <utility>

namespace Check {

/// A folder, full or relative. Its text ends in a backslash; an unknown folder is empty.
class Folder {
public:
    Folder() = default;
    /// Adds a missing backslash.
    Folder(std::wstring tstrText) : m_tstrText(KzCommon::String::EnsureBackslash(std::move(tstrText))) {}
    Folder(const wchar_t* szText) : Folder(std::wstring(szText)) {}

    [[nodiscard]] const std::wstring& Text() const noexcept { return m_tstrText; }
    operator const std::wstring&() const noexcept { return m_tstrText; }
    operator std::wstring_view() const noexcept { return m_tstrText; }
    [[nodiscard]] bool IsKnown() const noexcept { return !m_tstrText.empty(); }

    /// The path of a file or folder in it.
    [[nodiscard]] std::wstring operator/(std::wstring_view tstrName) const
    {
        return std::wstring(m_tstrText).append(tstrName);
    }
    /// Whether a path is below it, comparing only the texts.
    [[nodiscard]] bool Contains(std::wstring_view tstrPath) const noexcept
    {
        return KzCommon::String::IsBelow(tstrPath, m_tstrText);
    }
    /// A path below this folder relative to it; any other path unchanged.
    [[nodiscard]] std::wstring Relative(const std::wstring& tstrPath) const
    {
        return Contains(tstrPath) ? tstrPath.substr(m_tstrText.size()) : tstrPath;
    }

private:
    std::wstring m_tstrText;
};

}  // namespace Check
