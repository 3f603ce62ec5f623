// The values of the configuration store: tag paths, types, and the form of values in requests.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// The path of one setting: the names of elements below the root, such as "/ProxySettings/Enable". Names are
/// case-insensitive; extra slashes are ignored.
class TagPath {
public:
    /// Empty for a text without a name, with a zero in it, or with more than kMaxNames names.
    [[nodiscard]] static std::optional<TagPath> Parse(const std::wstring& tstrPath);

    static constexpr std::size_t kMaxNames = 32;

    /// Contains at least one name.
    [[nodiscard]] const std::vector<std::wstring>& Names() const noexcept { return m_names; }
    /// The path with one slash before every name.
    [[nodiscard]] std::wstring Text() const;
    /// The same text for all spellings of the path: Text() in upper case. LCMapStringEx.
    [[nodiscard]] std::wstring Folded() const;

private:
    std::vector<std::wstring> m_names;
};

/// The type of a value, by its element's attribute "type".
enum class Type {
    eString,  ///< any text; also without the attribute
    eInt,     ///< decimal, 64 bits with sign
    eBool,    ///< "0" or "1"
    eUnknown  ///< another word in the attribute: no value fits
};

/// The type for the attribute's text (case-sensitive); eString for an empty one.
[[nodiscard]] Type TypeOfName(std::wstring_view tstrName) noexcept;
/// The attribute's text; empty for eString, which needs no attribute, and for eUnknown.
[[nodiscard]] const wchar_t* NameOfType(Type eType) noexcept;
/// Whether the (clear) value is valid for the type.
[[nodiscard]] bool Fits(Type eType, const std::wstring& tstrValue) noexcept;

/// A value that is copied between configuration files.
struct Value {
    bool bProtected = false;
    std::wstring tstrText;  ///< protected text (see ConfigProtection.h) or clear text

    bool operator==(const Value&) const = default;
};

/// The value as one text: "{protected}" before a protected one; a clear one unchanged, or after "{clear}" if it begins
/// with one of these words.
[[nodiscard]] std::wstring ToTransit(const Value& value);
/// The value of a text from ToTransit.
[[nodiscard]] Value FromTransit(const std::wstring& tstrTransit);

}  // namespace Config
