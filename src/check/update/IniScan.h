// A scan of our own of an INI file. Windows' functions tell what a section holds, but not where it stands.
#pragma once

#include "check/update/TextPosition.h"

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

namespace Check {

enum class IniEncoding {
    eUtf16,          ///< UTF-16 with its byte order mark, little end first: what Windows reads the same everywhere
    eAscii,          ///< no mark and nothing outside ASCII: the same, too
    eUtf16Unmarked,  ///< UTF-16 without its mark
    eCodePage,       ///< characters outside ASCII in the code page of whichever machine
    eOtherMark       ///< the mark of UTF-8, or of UTF-16 with the big end first
};

/// One line of a section that is not empty and no comment.
struct IniRecord {
    TextPosition place;         ///< of the key
    TextPosition valuePlace;    ///< of the value
    std::wstring tstrKey;       ///< of a run of "=" all but the last belong to it; of a line without "=" all of it
    std::wstring tstrValue;     ///< empty when the line is no record
    bool bEquals = false;       ///< the line has a "="
    bool bBlankBefore = false;  ///< blanks stand before the "="

    /// Whether Windows' whole-section function and the splitting after it make a record of it.
    [[nodiscard]] bool IsRecord() const noexcept { return !tstrValue.empty(); }
};

struct IniSection {
    std::wstring tstrName;
    TextPosition place;
    std::vector<IniRecord> records;
};

/// A comment, and the line that it is about.
struct IniComment {
    std::wstring tstrText;  ///< after ";"
    unsigned uLine;         ///< the next line that is no comment; 0 for a comment before the first section
};

/// The sections of one file in the order of their lines, those of equal names each by itself.
class IniScan {
public:
    /// Reads and scans the file at `tstrPath`. False with the Win32 code; ERROR_FILE_TOO_LARGE (223) for more than
    /// kMaxBytes. CreateFileW, ReadFile.
    [[nodiscard]] bool Read(const std::wstring& tstrPath, DWORD* pdwError);
    /// Scans the content of a file.
    void Scan(std::string_view strBytes);

    [[nodiscard]] IniEncoding Encoding() const noexcept { return m_eEncoding; }
    /// The first character outside ASCII where the encoding does not bear it; line 0 when there is none.
    [[nodiscard]] TextPosition FirstForeign() const noexcept { return m_foreign; }
    /// Halves of surrogate pairs that stand alone, and a last half character.
    [[nodiscard]] const std::vector<TextPosition>& Damaged() const noexcept { return m_damaged; }
    /// Lines before the first section, which belong to none.
    [[nodiscard]] const std::vector<IniRecord>& Stray() const noexcept { return m_stray; }
    [[nodiscard]] const std::vector<IniComment>& Comments() const noexcept { return m_comments; }
    [[nodiscard]] const std::vector<IniSection>& Sections() const noexcept { return m_sections; }
    /// The section that Windows reads under that name, the first one, compared without regard to case; null without.
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
    std::vector<IniRecord> m_stray;
    std::vector<IniComment> m_comments;
    std::size_t m_cCommentsWithLine = 0;  ///< those after them wait for theirs
    std::vector<IniSection> m_sections;
};

}  // namespace Check
