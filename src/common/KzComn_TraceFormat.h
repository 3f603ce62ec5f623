// Lets the compiler check a trace call's format against its arguments.
#pragma once

#include <cstddef>
#include <source_location>
#include <type_traits>

namespace KzCommon {

/// The argument of one conversion in a wide format.
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

/// A wide printf-style format whose conversions must match `Arguments`, otherwise it does not compile: "%s" takes a
/// zero-terminated wide text (not a std::wstring, not a narrow one), "%d %i %u %x %X %c", with or without "l", a number
/// of up to 32 bits, and with "ll" one of 64 bits. The numbers of conversions and arguments must be equal.
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

    /// No format: trace nothing.
    consteval TraceFormat(std::nullptr_t) : m_szFormat(nullptr) {}  // NOLINT(google-explicit-constructor)

    explicit constexpr operator bool() const noexcept { return m_szFormat != nullptr; }
    [[nodiscard]] constexpr const wchar_t* Get() const noexcept { return m_szFormat; }
    /// The source location of the format.
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
