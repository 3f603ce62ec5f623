// Scans an INI file with positions, which the Windows functions do not provide.
#pragma once

#include "check/update/TextPosition.h"

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace Check {

enum class IniEncoding {
    eUtf16,          ///< UTF-16 little-endian with BOM: the same on every machine
    eAscii,          ///< no BOM and only ASCII: also the same
    eUtf16Unmarked,  ///< UTF-16 without BOM
    eCodePage,       ///< non-ASCII characters in the code page of some machine
    eOtherMark       ///< a UTF-8 or UTF-16 big-endian BOM
};

/// One line of a section that is neither empty nor a comment.
struct IniRecord {
    TextPosition place;         ///< position of the key
    TextPosition valuePlace;    ///< position of the value
    std::wstring tstrKey;       ///< with all but the last of a run of "="; the whole line if it has no "="
    std::wstring tstrValue;     ///< empty when the line is not a record
    bool bEquals = false;       ///< the line has a "="
    bool bBlankBefore = false;  ///< spaces before the "="

    /// Whether Windows's whole-section function and the following split give a record.
    [[nodiscard]] bool IsRecord() const noexcept { return !tstrValue.empty(); }
};

struct IniSection {
    std::wstring tstrName;
    TextPosition place;
    std::vector<IniRecord> records;
};

/// A comment and the line that it refers to.
struct IniComment {
    std::wstring tstrText;  ///< after ";"
    unsigned uLine;         ///< the next line that is not a comment; 0 before the first section
};

/// The sections of one file in line order; sections with the same name are separate.
class IniScan {
public:
    /// Reads and scans the file at `tstrPath`. False with the Win32 code; ERROR_FILE_TOO_LARGE (223) for more than
    /// kMaxBytes. CreateFileW, ReadFile.
    [[nodiscard]] bool Read(const std::wstring& tstrPath, DWORD* pdwError);
    /// Scans the content of a file.
    void Scan(std::string_view strBytes);

    [[nodiscard]] IniEncoding Encoding() const noexcept { return m_eEncoding; }
    /// The first non-ASCII character in an encoding that does not support it; otherwise line 0.
    [[nodiscard]] TextPosition FirstForeign() const noexcept { return m_foreign; }
    /// Unpaired surrogates and a half character at the end.
    [[nodiscard]] const std::vector<TextPosition>& Damaged() const noexcept { return m_damaged; }
    /// Carriage returns that no line feed follows.
    [[nodiscard]] const std::vector<TextPosition>& LoneReturns() const noexcept { return m_loneReturns; }
    /// Lines before the first section.
    [[nodiscard]] const std::vector<IniRecord>& Stray() const noexcept { return m_stray; }
    [[nodiscard]] const std::vector<IniComment>& Comments() const noexcept { return m_comments; }
    [[nodiscard]] const std::vector<IniSection>& Sections() const noexcept { return m_sections; }
    /// The section that Windows reads under that name (case-insensitive), which is the first one; null if missing.
    [[nodiscard]] const IniSection* Find(std::wstring_view tstrName) const noexcept;

    static constexpr std::size_t kMaxBytes = std::size_t{16} * 1024 * 1024;

private:
    [[nodiscard]] std::wstring Decode(std::string_view strBytes);
    void ScanLine(std::wstring_view tstrLine, unsigned uLine);
    void NoteComment(std::wstring_view tstrText);
    void NoteCharacters(std::wstring_view tstrLine, unsigned uLine);

    IniEncoding m_eEncoding = IniEncoding::eAscii;
    bool m_bHalfCharacter = false;
    TextPosition m_foreign;
    std::vector<TextPosition> m_damaged;
    std::vector<TextPosition> m_loneReturns;
    std::vector<IniRecord> m_stray;
    std::vector<IniComment> m_comments;
    std::size_t m_cCommentsWithLine = 0;  ///< the later ones have no line yet
    std::vector<IniSection> m_sections;
};

}  // namespace Check
