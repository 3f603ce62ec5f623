// The values of the configuration store: tag paths, types, and the form in which values travel.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// The path of one setting: the names of elements below the root, such as "/ProxySettings/Enable". Names are matched
/// without regard to case; a slash too many changes nothing.
class TagPath {
public:
    /// Nothing for a text without a name, with a zero in it, or with more than kMaxNames names.
    [[nodiscard]] static std::optional<TagPath> Parse(const std::wstring& tstrPath);

    static constexpr std::size_t kMaxNames = 32;

    /// At least one.
    [[nodiscard]] const std::vector<std::wstring>& Names() const noexcept { return m_names; }
    /// The path with one slash before every name.
    [[nodiscard]] std::wstring Text() const;
    /// The same text for all spellings of the path: that of Text() in capitals. LCMapStringEx.
    [[nodiscard]] std::wstring Folded() const;

private:
    std::vector<std::wstring> m_names;
};

/// What an element's attribute "type" says about its value.
enum class Type {
    eString,  ///< any text; also without the attribute
    eInt,     ///< decimal, 64 bits with sign
    eBool,    ///< "0" or "1"
    eUnknown  ///< another word in the attribute: no value fits
};

/// What the attribute's text means, compared exactly; eString for an empty one.
[[nodiscard]] Type TypeOfName(std::wstring_view tstrName) noexcept;
/// The attribute's text; empty for eString, of which the attribute says nothing, and for eUnknown.
[[nodiscard]] const wchar_t* NameOfType(Type eType) noexcept;
/// Whether the (clear) value is one of the type.
[[nodiscard]] bool Fits(Type eType, const std::wstring& tstrValue) noexcept;

/// A value on its way from one configuration file to another.
struct Value {
    bool bProtected = false;
    std::wstring tstrText;  ///< protected text (see ConfigProtection.h) or clear

    bool operator==(const Value&) const = default;
};

/// The value as one text: a protected one after "{protected}", a clear one as it is; a clear one that could be taken
/// for either form stands after "{clear}".
[[nodiscard]] std::wstring ToTransit(const Value& value);
/// The value that ToTransit made the text of.
[[nodiscard]] Value FromTransit(const std::wstring& tstrTransit);

}  // namespace Config
