// The single-byte encodings of XML documents.
#pragma once

#include <windows.h>

#include <array>
#include <string_view>

namespace KzCommon::Storage {

/// The character of each byte in a single-byte encoding: in UTF-16's first plane, or -1 for an unused byte.
using ByteCharacters = std::array<int, 256>;

/// Fills `characters` for the encoding `strName` (ASCII, case-insensitive) of a document's declaration: Windows, ISO
/// 8859, KOI8 and DOS (IBM) ones. False, with `characters` unchanged, for any other name and for a code page that this
/// Windows does not have or that is not single-byte. MultiByteToWideChar.
[[nodiscard]] bool FindSingleByteEncoding(std::string_view strName, ByteCharacters& characters) noexcept;

}  // namespace KzCommon::Storage
