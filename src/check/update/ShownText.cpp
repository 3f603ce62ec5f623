#include "check/update/ShownText.h"

#include <algorithm>

namespace Check {

std::wstring OnOneLine(std::wstring tstrText)
{
    const auto isControl = [](wchar_t ch) {
        return ch < L' ' || (ch >= 0x7F && ch < 0xA0);
    };
    std::replace_if(tstrText.begin(), tstrText.end(), isControl, L' ');
    return tstrText;
}

std::wstring Counted(std::size_t uCount, const wchar_t* szOne, const wchar_t* szMany)
{
    return std::to_wstring(uCount) + L" " + (uCount == 1 ? szOne : szMany);
}

}  // namespace Check
