// The single-byte encodings of XML documents.
#pragma once

#include <windows.h>

#include <array>
#include <string_view>

namespace KzCommon::Storage {

/// What each byte of a single-byte encoding stands for: a character of UTF-16's first plane, or -1 for none.
using ByteCharacters = std::array<int, 256>;

/// Fills `characters` for the encoding that a document's declaration names `strName` (in ASCII, without regard to
/// case): the Windows, ISO 8859, KOI8 and DOS (IBM) ones. False, with `characters` left alone, for any other name and
/// for a code page that this Windows has not or that takes more than one byte a character. MultiByteToWideChar.
[[nodiscard]] bool FindSingleByteEncoding(std::string_view strName, ByteCharacters& characters) noexcept;

}  // namespace KzCommon::Storage
