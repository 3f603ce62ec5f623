// JSON output of the program.
#pragma once

#include <json/json.h>

#include <string>
#include <string_view>

namespace Check {

/// The value as text with an indentation of two spaces, members in alphabetical order and a line end. Pure ASCII: other
/// characters are "\u" and four digits, twice beyond U+FFFF.
[[nodiscard]] std::string ToJsonText(const Json::Value& value);

/// A text as a JSON value; an unpaired surrogate becomes U+FFFD.
[[nodiscard]] Json::Value ToJson(std::wstring_view tstrText);

}  // namespace Check
