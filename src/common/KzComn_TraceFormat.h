// The check that a trace call's format and arguments belong together, made by the compiler.
#pragma once

#include <cstddef>
#include <source_location>
#include <type_traits>

namespace KzCommon {

/// What one conversion of a wide format takes.
enum class TraceArgument { eNone, eText, eNumber32, eNumber64, eNotTraceable };

template <class Argument>
consteval TraceArgument KindOfTraceArgument()
{
    using Plain = std::remove_cvref_t<Argument>;
    using Decayed = std::decay_t<Argument>;
    if (std::is_same_v<Decayed, wchar_t*> || std::is_same_v<Decayed, const wchar_t*>) return TraceArgument::eText;
    if (!std::is_integral_v<Plain>) return TraceArgument::eNotTraceable;
    return sizeof(Plain) <= 4 ? TraceArgument::eNumber32 : TraceArgument::eNumber64;
}

/// A wide printf-style format whose conversions match `Arguments`, or it does not compile: "%s" takes a zero-terminated
/// wide text (not a std::wstring, not a narrow one), "%d %i %u %x %X %c", with or without "l", a number of up to 32
/// bits, the same with "ll" one of 64 bits. The number of conversions must be the number of arguments.
template <class... Arguments>
class TraceFormat {
public:
    consteval TraceFormat(const wchar_t* szFormat,  // NOLINT(google-explicit-constructor)
                          const std::source_location& where = std::source_location::current())
        : m_szFormat(szFormat), m_where(where)
    {
        static_assert(((KindOfTraceArgument<Arguments>() != TraceArgument::eNotTraceable) && ...),
                      "a trace argument is a number or a zero-terminated wide text");
        constexpr TraceArgument kGiven[] = {KindOfTraceArgument<Arguments>()..., TraceArgument::eNone};
        std::size_t uArgument = 0;
        for (const wchar_t* sz = szFormat; *sz; ++sz) {
            if (*sz != L'%') continue;
            if (*++sz == L'%') continue;
            if (uArgument >= sizeof...(Arguments)) throw "more conversions than arguments";
            if (ReadConversion(sz) != kGiven[uArgument++]) throw "the conversion does not match its argument";
        }
        if (uArgument != sizeof...(Arguments)) throw "more arguments than conversions";
    }

    /// No format: nothing is to be traced.
    consteval TraceFormat(std::nullptr_t) : m_szFormat(nullptr) {}  // NOLINT(google-explicit-constructor)

    explicit constexpr operator bool() const noexcept { return m_szFormat != nullptr; }
    [[nodiscard]] constexpr const wchar_t* Get() const noexcept { return m_szFormat; }
    /// The place in the source where the format stands.
    [[nodiscard]] constexpr const char* File() const noexcept { return m_where.file_name(); }
    [[nodiscard]] constexpr unsigned long Line() const noexcept { return m_where.line(); }

private:
    static consteval bool IsOneOf(wchar_t ch, const wchar_t* szSet)
    {
        for (; *szSet; ++szSet) {
            if (ch == *szSet) return true;
        }
        return false;
    }

    /// Reads flags, width, precision, length and type; leaves `sz` on the type.
    static consteval TraceArgument ReadConversion(const wchar_t*& sz)
    {
        while (*sz && IsOneOf(*sz, L"-+ #0123456789.")) ++sz;
        int cLong = 0;
        for (; *sz == L'l'; ++sz) ++cLong;
        if (*sz == L's' && cLong == 0) return TraceArgument::eText;
        if (!*sz || !IsOneOf(*sz, L"diuxXc")) throw "a conversion that the trace does not know";
        return cLong == 2 ? TraceArgument::eNumber64 : TraceArgument::eNumber32;
    }

    const wchar_t* m_szFormat;
    std::source_location m_where;
};

}  // namespace KzCommon
