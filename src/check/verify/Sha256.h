// The size and hash of file contents.
#pragma once

#include <windows.h>

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// A file's size in bytes and its SHA-256, 64 lower-case hexadecimal digits.
struct Content {
    ULONGLONG ullSize = 0;
    std::string strSha256;
    bool operator==(const Content&) const = default;
};

/// Whether a text is a SHA-256 as it is written here: 64 lower-case hexadecimal digits.
[[nodiscard]] bool IsSha256(std::string_view strText);

/// A SHA-256.
using Digest = std::array<unsigned char, 32>;

/// Reads the files of this machine through one buffer; refuses links instead of following them. Derived classes read
/// files of other machines.
class ContentReader {
public:
    ContentReader() = default;
    ContentReader(const ContentReader&) = delete;
    ContentReader& operator=(const ContentReader&) = delete;
    virtual ~ContentReader() = default;

    /// Reads only the size. False with the code: ERROR_CANT_ACCESS_FILE (1920) for a link, ERROR_DIRECTORY (267) for a
    /// folder. CreateFileW.
    [[nodiscard]] virtual bool ReadSize(const std::wstring& tstrPath, ULONGLONG& ullSize, DWORD* pdwError);
    /// Reads size and hash, with the same codes. ReadFile, BCryptHashData.
    [[nodiscard]] virtual bool Read(const std::wstring& tstrPath, Content& content, DWORD* pdwError);
    /// Compares the file with a content; reads it only if its size matches. Sets `bSame`; false with the code when the
    /// comparison fails.
    [[nodiscard]] virtual bool Compare(const std::wstring& tstrPath, const Content& content, bool& bSame,
                                       DWORD* pdwError);

    /// Reads the whole file; ERROR_FILE_TOO_LARGE (223) for more than `cbMost` bytes, otherwise the same codes.
    /// ReadFile.
    [[nodiscard]] virtual bool ReadWhole(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes,
                                         DWORD* pdwError);

    /// Size and hash of an open file, from its beginning; false with the code. ReadFile, BCryptHashData.
    [[nodiscard]] bool ReadOpen(HANDLE hFile, Content& content, DWORD* pdwError);

    /// The hash of bytes; false on failure.
    [[nodiscard]] static bool DigestOf(std::string_view strBytes, Digest& digest);
    /// Size and hash of bytes; false with ERROR_INTERNAL_ERROR (1359). BCryptHashData.
    [[nodiscard]] static bool HashBytes(std::string_view strBytes, Content& content, DWORD* pdwError);

private:
    std::vector<unsigned char> m_buffer;
};

}  // namespace Check
