// Checks names of elements and attributes.
#include "common/KzComn_Expat.h"
#include "common/KzComn_String.h"
#include "common/KzComn_XmlElement.h"

#include <algorithm>
#include <memory>

namespace KzCommon::Storage {

namespace {

void XMLCALL OnStart(void* pvName, const XML_Char* szName, const XML_Char**) noexcept
{
    auto& strLeft = *static_cast<std::string*>(pvName);
    // Expat may treat a part of the name as something else, for example an attribute.
    if (strLeft == szName) strLeft.clear();
}

/// Whether Expat reads an element with that name and reports exactly the same name.
bool IsReadByExpat(std::wstring_view tstrName)
{
    Library::Expat library;
    if (!library.LoadBesideProgram()) return false;
    const Library::Expat::Functions& api = library.Api();
    const std::unique_ptr<XML_ParserStruct, decltype(api.ParserFree)> parser(api.ParserCreate("UTF-8"), api.ParserFree);
    if (!parser) return false;
    std::string strLeft = String::ToUtf8(std::wstring(tstrName));
    const std::string strDocument = "<" + strLeft + "/>";
    api.SetUserData(parser.get(), &strLeft);
    api.SetElementHandler(parser.get(), &OnStart, nullptr);
    return api.Parse(parser.get(), strDocument.data(), static_cast<int>(strDocument.size()), XML_TRUE) ==
               XML_STATUS_OK &&
           strLeft.empty();
}

constexpr bool IsNameStart(wchar_t ch) noexcept
{
    return (ch >= L'A' && ch <= L'Z') || (ch >= L'a' && ch <= L'z') || ch == L'_' || ch == L':';
}

constexpr bool IsNameRest(wchar_t ch) noexcept
{
    return IsNameStart(ch) || (ch >= L'0' && ch <= L'9') || ch == L'-' || ch == L'.';
}

}  // namespace

bool IsXmlName(std::wstring_view tstrName)
{
    if (tstrName.empty()) return false;
    // Most names are ASCII and need no library. For all other letters, Expat decides.
    const bool bAscii = std::ranges::all_of(tstrName, [](wchar_t ch) { return ch < 0x80; });
    if (!bAscii) return IsReadByExpat(tstrName);
    return IsNameStart(tstrName.front()) && std::ranges::all_of(tstrName, &IsNameRest);
}

}  // namespace KzCommon::Storage
