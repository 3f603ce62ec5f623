// JSON that the program writes and reads.
#pragma once

#include <json/json.h>

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// The value as text with an indentation of two spaces, members in alphabetical order and a line end. Pure ASCII: other
/// characters are "\u" and four digits, twice beyond U+FFFF.
[[nodiscard]] std::string ToJsonText(const Json::Value& value);

/// A text as a JSON value; an unpaired surrogate becomes U+FFFD.
[[nodiscard]] Json::Value ToJson(std::wstring_view tstrText);

/// Texts as an array.
[[nodiscard]] Json::Value ToJson(const std::vector<std::wstring>& texts);

/// A text as UTF-8, from UTF-8 with or without BOM or, as some consoles redirect output, UTF-16 with BOM.
[[nodiscard]] std::string DecodeText(std::string_view strBytes);

/// Parses strict JSON in one of the encodings of DecodeText(), at most 16 levels deep. False
/// with the reason in `tstrError`.
[[nodiscard]] bool ParseJson(std::string_view strBytes, Json::Value& root, std::wstring& tstrError);

}  // namespace Check
