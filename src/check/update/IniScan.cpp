#include "check/update/IniScan.h"

#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"

#include <algorithm>
#include <cstring>

using namespace KzCommon;

namespace Check {

namespace {

/// The characters that Windows strips from both ends of a line; the last one is the old end-of-file character.
constexpr std::wstring_view kSpaces = L" \t\v\f\x1a";

constexpr std::string_view kUtf16Mark("\xFF\xFE", 2);
constexpr std::string_view kUtf16BigMark("\xFE\xFF", 2);
constexpr std::string_view kUtf8Mark("\xEF\xBB\xBF", 3);

bool IsAscii(std::string_view strBytes)
{
    return std::all_of(strBytes.begin(), strBytes.end(), [](char ch) { return static_cast<unsigned char>(ch) < 0x80; });
}

/// Every line end of a UTF-16 text contains a zero byte.
bool LooksLikeUtf16(std::string_view strBytes)
{
    return strBytes.find('\0') != std::string_view::npos;
}

std::size_t FirstOf(std::wstring_view tstrText, std::size_t uFrom = 0)
{
    const std::size_t uFirst = tstrText.find_first_not_of(kSpaces, uFrom);
    return uFirst == std::wstring_view::npos ? tstrText.size() : uFirst;
}

std::wstring_view TrimEnd(std::wstring_view tstrText)
{
    const std::size_t uLast = tstrText.find_last_not_of(kSpaces);
    return tstrText.substr(0, uLast == std::wstring_view::npos ? 0 : uLast + 1);
}

TextPosition PlaceOf(unsigned uLine, std::size_t uOffset)
{
    return {uLine, static_cast<unsigned>(uOffset) + 1};
}

/// Splits a line as the system and then ReadSection do: removes spaces around the first "=", adds further "=" to the
/// key, and takes the rest as the value.
IniRecord SplitLine(std::wstring_view tstrLine, std::size_t uStart, unsigned uLine)
{
    IniRecord record;
    record.place = record.valuePlace = PlaceOf(uLine, uStart);
    const std::size_t uEquals = tstrLine.find(L'=', uStart);
    if (uEquals == std::wstring_view::npos) {
        record.tstrKey = tstrLine.substr(uStart);
        return record;
    }
    record.bEquals = true;
    record.tstrKey = TrimEnd(tstrLine.substr(uStart, uEquals - uStart));
    record.bBlankBefore = record.tstrKey.size() < uEquals - uStart;
    const std::size_t uValue = FirstOf(tstrLine, uEquals + 1);
    const std::size_t uText = std::min(tstrLine.find_first_not_of(L'=', uValue), tstrLine.size());
    record.tstrKey.append(uText - uValue, L'=');
    record.tstrValue = tstrLine.substr(uText);
    record.valuePlace = PlaceOf(uLine, uText);
    return record;
}

}  // namespace

bool IniScan::Read(const std::wstring& tstrPath, DWORD* pdwError)
{
    std::string strBytes;
    if (!Storage::File::ReadWhole(tstrPath, kMaxBytes, strBytes, pdwError)) return false;
    Scan(strBytes);
    return true;
}

void IniScan::Scan(std::string_view strBytes)
{
    *this = {};
    const std::wstring tstrText = Decode(strBytes);
    std::wstring_view tstrRest = tstrText;
    unsigned uLine = 1;
    for (; !tstrRest.empty(); ++uLine) {
        const std::size_t uEnd = std::min(tstrRest.find_first_of(L"\r\n"), tstrRest.size());
        ScanLine(tstrRest.substr(0, uEnd), uLine);
        tstrRest.remove_prefix(uEnd);
        const bool bLone = tstrRest.starts_with(L'\r') && !tstrRest.starts_with(L"\r\n");
        if (bLone) m_loneReturns.push_back(PlaceOf(uLine, uEnd));
        tstrRest.remove_prefix(tstrRest.starts_with(L"\r\n") ? 2 : std::min<std::size_t>(tstrRest.size(), 1));
    }
    if (m_bHalfCharacter) m_damaged.push_back({uLine, 1});
}

const IniSection* IniScan::Find(std::wstring_view tstrName) const noexcept
{
    for (const IniSection& section : m_sections) {
        if (String::EqualsNoCase(section.tstrName, tstrName)) return &section;
    }
    return nullptr;
}

std::wstring IniScan::Decode(std::string_view strBytes)
{
    const bool bMarked = strBytes.starts_with(kUtf16Mark);
    const bool bUnmarked = !bMarked && !strBytes.starts_with(kUtf16BigMark) && LooksLikeUtf16(strBytes);
    if (bMarked || bUnmarked) {
        m_eEncoding = bMarked ? IniEncoding::eUtf16 : IniEncoding::eUtf16Unmarked;
        m_bHalfCharacter = strBytes.size() % sizeof(wchar_t) != 0;
        return String::FromUtf16(strBytes.substr(bMarked ? kUtf16Mark.size() : 0));
    }
    if (strBytes.starts_with(kUtf16BigMark)) {
        m_eEncoding = IniEncoding::eOtherMark;
        std::wstring tstrText = String::FromUtf16(strBytes.substr(kUtf16BigMark.size()));
        for (wchar_t& ch : tstrText) ch = static_cast<wchar_t>((ch << 8 | ch >> 8) & 0xFFFF);
        return tstrText;
    }
    const bool bUtf8Mark = strBytes.starts_with(kUtf8Mark);
    if (bUtf8Mark) strBytes.remove_prefix(kUtf8Mark.size());
    m_eEncoding = bUtf8Mark           ? IniEncoding::eOtherMark
                  : IsAscii(strBytes) ? IniEncoding::eAscii
                                      : IniEncoding::eCodePage;
    std::wstring tstrText;
    return bUtf8Mark && String::FromUtf8(strBytes, tstrText) ? tstrText : String::FromAnsi(strBytes);
}

void IniScan::NoteComment(std::wstring_view tstrText)
{
    m_comments.push_back({std::wstring(tstrText), 0});
    if (m_sections.empty()) m_cCommentsWithLine = m_comments.size();
}

void IniScan::ScanLine(std::wstring_view tstrLine, unsigned uLine)
{
    NoteCharacters(tstrLine, uLine);
    tstrLine = TrimEnd(tstrLine);
    const std::size_t uStart = FirstOf(tstrLine);
    if (uStart == tstrLine.size()) return;
    if (tstrLine[uStart] == L';') return NoteComment(tstrLine.substr(uStart + 1));
    for (; m_cCommentsWithLine < m_comments.size(); ++m_cCommentsWithLine) {
        m_comments[m_cCommentsWithLine].uLine = uLine;
    }
    const std::size_t uClose = tstrLine.rfind(L']');
    if (tstrLine[uStart] == L'[' && uClose != std::wstring_view::npos && uClose > uStart) {
        const std::wstring_view tstrName = tstrLine.substr(uStart + 1, uClose - uStart - 1);
        m_sections.push_back({std::wstring(tstrName), PlaceOf(uLine, uStart + 1), {}});
        return;
    }
    std::vector<IniRecord>& records = m_sections.empty() ? m_stray : m_sections.back().records;
    records.push_back(SplitLine(tstrLine, uStart, uLine));
}

void IniScan::NoteCharacters(std::wstring_view tstrLine, unsigned uLine)
{
    for (std::size_t uAt = 0; uAt < tstrLine.size(); ++uAt) {
        if (tstrLine[uAt] < 0x80) continue;
        if (m_foreign.uLine == 0 && m_eEncoding == IniEncoding::eCodePage) m_foreign = PlaceOf(uLine, uAt);
        if (!IS_SURROGATE_PAIR(tstrLine[uAt], uAt + 1 < tstrLine.size() ? tstrLine[uAt + 1] : L'\0')) {
            if (tstrLine[uAt] >= 0xD800 && tstrLine[uAt] <= 0xDFFF) m_damaged.push_back(PlaceOf(uLine, uAt));
        } else {
            ++uAt;
        }
    }
}

}  // namespace Check
