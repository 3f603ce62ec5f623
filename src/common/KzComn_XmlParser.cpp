#include "common/KzComn_XmlParser.h"

#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_XmlEncoding.h"

#include <algorithm>
#include <utility>

namespace KzCommon::Storage {

namespace {

using Functions = Library::Expat::Functions;

std::wstring ToWide(std::string_view strText)
{
    std::wstring tstrText;
    if (!String::FromUtf8(strText, tstrText)) Throw(ERROR_NO_UNICODE_TRANSLATION);
    return tstrText;
}

/// The file's white space with line ends converted to line feeds.
std::string NormalizeLineEnds(std::string_view strText)
{
    std::string strOut;
    for (std::size_t uAt = 0; uAt < strText.size(); ++uAt) {
        const bool bPair = strText[uAt] == '\r' && uAt + 1 < strText.size() && strText[uAt + 1] == '\n';
        if (!bPair) strOut.push_back(strText[uAt] == '\r' ? '\n' : strText[uAt]);
    }
    return strOut;
}

/// Whether the first line ends in carriage return and line feed, in one or two bytes per character.
bool EndsLinesWithCrLf(std::string_view strBytes)
{
    const std::size_t uLineFeed = strBytes.find('\n');
    if (uLineFeed == std::string_view::npos || uLineFeed == 0) return false;
    const std::size_t uBack = strBytes[uLineFeed - 1] == '\0' ? 2 : 1;
    return uLineFeed >= uBack && strBytes[uLineFeed - uBack] == '\r';
}

/// Describes an encoding that Expat does not know to Expat.
int XMLCALL OnUnknownEncoding(void*, const XML_Char* szName, XML_Encoding* pEncoding) noexcept
{
    ByteCharacters characters{};
    if (!FindSingleByteEncoding(szName, characters)) return XML_STATUS_ERROR;
    *pEncoding = {};
    std::copy(characters.begin(), characters.end(), pEncoding->map);
    return XML_STATUS_OK;
}

/// One parse: builds the document from Expat's callbacks. No exception passes through Expat: the first failure is
/// stored, the parser stopped, and the exception thrown after it returns.
class Builder {
public:
    explicit Builder(const Functions& api) : m_api(api), m_document(std::make_unique<XmlDocument>())
    {
        m_pCurrent = &m_document->Content();
    }
    Builder(const Builder&) = delete;
    Builder& operator=(const Builder&) = delete;
    ~Builder()
    {
        if (m_parser) m_api.ParserFree(m_parser);
    }

    std::unique_ptr<XmlDocument> Build(std::string_view strBytes)
    {
        m_parser = m_api.ParserCreate(nullptr);
        if (!m_parser) throw new XmlException(ERROR_INVALID_HANDLE, {}, L"out of memory");
        SetHandlers();
        const XML_Status status = m_api.Parse(m_parser, strBytes.data(), static_cast<int>(strBytes.size()), XML_TRUE);
        if (m_dwFailure != ERROR_SUCCESS) throw new XmlException(m_dwFailure, m_failedAt, m_szReason);
        if (status != XML_STATUS_OK) ThrowExpatError(strBytes);
        FlushText();
        m_document->SetCrLf(EndsLinesWithCrLf(strBytes));
        return std::move(m_document);
    }

private:
    /// Turns a member function into the C callback for Expat.
    template <auto pfnMember>
    struct Callback;
    template <class... Arguments, void (Builder::*pfnMember)(Arguments...)>
    struct Callback<pfnMember> {
        static void XMLCALL Call(void* pvBuilder, Arguments... arguments) noexcept
        {
            static_cast<Builder*>(pvBuilder)->Attempt([&](Builder& builder) { (builder.*pfnMember)(arguments...); });
        }
    };

    void SetHandlers()
    {
        m_api.SetUserData(m_parser, this);
        m_api.SetElementHandler(m_parser, &Callback<&Builder::OnStart>::Call, &Callback<&Builder::OnEnd>::Call);
        m_api.SetCharacterDataHandler(m_parser, &Callback<&Builder::OnText>::Call);
        m_api.SetCdataSectionHandler(m_parser, &Callback<&Builder::OnCDataStart>::Call,
                                     &Callback<&Builder::OnCDataEnd>::Call);
        m_api.SetCommentHandler(m_parser, &Callback<&Builder::OnComment>::Call);
        m_api.SetProcessingInstructionHandler(m_parser, &Callback<&Builder::OnInstruction>::Call);
        m_api.SetXmlDeclHandler(m_parser, &Callback<&Builder::OnDeclaration>::Call);
        m_api.SetStartDoctypeDeclHandler(m_parser, &Callback<&Builder::OnDoctype>::Call);
        m_api.SetDefaultHandler(m_parser, &Callback<&Builder::OnAnythingElse>::Call);
        m_api.SetUnknownEncodingHandler(m_parser, &OnUnknownEncoding, nullptr);
    }

    template <class Action>
    void Attempt(Action&& action) noexcept
    {
        if (m_dwFailure != ERROR_SUCCESS) return;  // a stopped parser may still report buffered events
        try {
            action(*this);
        } catch (Exception* pException) {
            const CaughtException caught(pException);
            Fail(caught->ErrorCode(), L"the text cannot be converted");
        } catch (...) {
            Fail(ERROR_INVALID_HANDLE, L"out of memory");
        }
    }

    void Fail(DWORD dwCode, const wchar_t* szReason) noexcept
    {
        m_dwFailure = dwCode;
        m_szReason = szReason;
        m_failedAt = Position();
        m_api.StopParser(m_parser, XML_FALSE);
    }

    /// Expat counts lines from 1 and columns from 0.
    [[nodiscard]] XmlPosition Position() const noexcept
    {
        return {m_api.GetCurrentLineNumber(m_parser), m_api.GetCurrentColumnNumber(m_parser) + 1ULL};
    }

    [[noreturn]] void ThrowExpatError(std::string_view strBytes) const
    {
        const XML_Error error = m_api.GetErrorCode(m_parser);
        const XML_LChar* szReason = m_api.ErrorString(error);
        throw new XmlException(error == XML_ERROR_NO_MEMORY ? ERROR_INVALID_HANDLE : ERROR_XML_PARSE_ERROR, Position(),
                               String::FromAnsi(szReason ? szReason : "unknown error") + OpenTag(error, strBytes));
    }

    /// The element that a wrong or missing end tag leaves open, after what Expat says; else empty.
    [[nodiscard]] std::wstring OpenTag(XML_Error error, std::string_view strBytes) const
    {
        if (m_cLevels == 0) return {};
        const std::wstring tstrOpen =
            L"<" + m_pCurrent->GetName() + L"> of line " + std::to_wstring(m_pCurrent->Position().ullLine);
        if (error == XML_ERROR_NO_ELEMENTS) return L": " + tstrOpen + L" is not closed";
        if (error != XML_ERROR_TAG_MISMATCH) return {};
        return L": </" + NameAt(strBytes, m_api.GetCurrentByteIndex(m_parser)) + L"> of line " +
               std::to_wstring(Position().ullLine) + L" does not close " + tstrOpen;
    }

    /// The name of a tag, which begins at that byte; in an encoding of two bytes a character only its ASCII letters.
    [[nodiscard]] static std::wstring NameAt(std::string_view strBytes, XML_Index index)
    {
        constexpr std::size_t kMostBytes = 200;
        if (index < 0 || static_cast<std::size_t>(index) > strBytes.size()) return {};
        strBytes = strBytes.substr(static_cast<std::size_t>(index), kMostBytes);
        std::string strName(strBytes.substr(0, strBytes.find_first_of("> \t\r\n")));
        std::erase(strName, '\0');
        std::wstring tstrName;
        return String::FromUtf8(strName, tstrName) ? tstrName : String::FromAnsi(strName);
    }

    /// Ends a run of character data that arrived in pieces.
    void FlushText()
    {
        if (m_strText.empty()) return;
        const bool bOutside = m_cLevels == 0;
        m_pCurrent->AppendNode(
            {XmlNode::Kind::eText, ToWide(bOutside ? NormalizeLineEnds(m_strText) : m_strText), {}, {}});
        m_strText.clear();
    }

    void OnStart(const XML_Char* szName, const XML_Char** pszAttributes)
    {
        if (m_cLevels == XmlParser::kMaxLevels) {
            Fail(ERROR_XML_PARSE_ERROR, L"too many elements inside each other");
            return;
        }
        FlushText();
        std::vector<XmlAttribute> attributes;
        for (const XML_Char** psz = pszAttributes; *psz; psz += 2) {
            attributes.push_back({ToWide(psz[0]), ToWide(psz[1])});
        }
        m_pCurrent = &m_pCurrent->AppendElement(ToWide(szName), std::move(attributes), Position());
        ++m_cLevels;
    }

    void OnEnd(const XML_Char*)
    {
        FlushText();
        m_pCurrent->SetEndTag(m_api.GetCurrentByteCount(m_parser) > 0);  // <name/> has none
        --m_cLevels;
        m_pCurrent = m_cLevels > 0 ? m_pCurrent->GetParent() : &m_document->Content();
    }

    void OnText(const XML_Char* pchText, int cch) { m_strText.append(pchText, static_cast<std::size_t>(cch)); }

    void OnCDataStart() { FlushText(); }

    void OnCDataEnd()
    {
        m_pCurrent->AppendNode({XmlNode::Kind::eCData, ToWide(m_strText), {}, {}});
        m_strText.clear();
    }

    void OnComment(const XML_Char* szText)
    {
        FlushText();
        m_pCurrent->AppendNode({XmlNode::Kind::eComment, ToWide(szText), {}, {}});
    }

    void OnInstruction(const XML_Char* szTarget, const XML_Char* szText)
    {
        FlushText();
        m_pCurrent->AppendNode({XmlNode::Kind::eInstruction, ToWide(szText), ToWide(szTarget), {}});
    }

    void OnDeclaration(const XML_Char*, const XML_Char*, int) {}

    void OnDoctype(const XML_Char*, const XML_Char*, const XML_Char*, int)
    {
        Fail(ERROR_XML_PARSE_ERROR, L"a document type declaration is not accepted");
    }

    /// Outside the root element: white space, for which no other callback exists.
    void OnAnythingElse(const XML_Char* pchText, int cch)
    {
        const std::string_view strText(pchText, static_cast<std::size_t>(cch));
        if (m_cLevels == 0 && strText.find_first_not_of(" \t\r\n") == std::string_view::npos) m_strText += strText;
    }

    const Functions& m_api;
    XML_Parser m_parser = nullptr;
    std::unique_ptr<XmlDocument> m_document;
    XmlElement* m_pCurrent = nullptr;
    unsigned m_cLevels = 0;
    std::string m_strText;
    DWORD m_dwFailure = ERROR_SUCCESS;
    XmlPosition m_failedAt;
    const wchar_t* m_szReason = L"";
};

}  // namespace

std::unique_ptr<XmlDocument> XmlParser::ParseFile(const std::wstring& tstrPath)
{
    return ParseFile(WindowsMachine(), tstrPath);
}

std::unique_ptr<XmlDocument> XmlParser::ParseFile(const Machine& machine, const std::wstring& tstrPath)
{
    std::string strBytes;
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.ReadContent(tstrPath, kMaxBytes, strBytes, &dwError)) {
        throw new XmlException(dwError, {}, L"the file cannot be read");
    }
    return ParseText(strBytes);
}

std::unique_ptr<XmlDocument> XmlParser::ParseText(std::string_view strBytes)
{
    if (strBytes.size() > kMaxBytes) throw new XmlException(ERROR_FILE_TOO_LARGE, {}, L"the document is too large");
    DWORD dwError = ERROR_SUCCESS;
    if (!m_library.LoadBesideProgram(&dwError)) {
        throw new XmlException(dwError, {}, L"libexpat.dll cannot be loaded");
    }
    return Builder(m_library.Api()).Build(strBytes);
}

}  // namespace KzCommon::Storage
