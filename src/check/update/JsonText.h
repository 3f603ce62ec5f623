// JSON as the program writes it.
#pragma once

#include <json/json.h>

#include <string>
#include <string_view>

namespace Check {

/// The value as text, two spaces a level, members in alphabetical order, with a line end after it. Pure ASCII: other
/// characters are "\u" and four digits, beyond U+FFFF two of them.
[[nodiscard]] std::string ToJsonText(const Json::Value& value);

/// A text as a JSON value; an unpaired surrogate becomes U+FFFD.
[[nodiscard]] Json::Value ToJson(std::wstring_view tstrText);

}  // namespace Check
