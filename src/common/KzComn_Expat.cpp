#include "common/KzComn_Expat.h"

namespace KzCommon::Library {

bool Expat::LoadBesideProgram(DWORD* pdwError)
{
    if (IsLoaded()) return true;
    if (!Load(L"libexpat.dll", pdwError)) return false;
    if (Resolve(pdwError)) return true;
    Free();
    return false;
}

bool Expat::Resolve(DWORD* pdwError) noexcept
{
    ProcedureLoader procedures(*this);
    const auto take = [&](auto& pfn, const char* szName) {
        procedures.Take(pfn, szName);
    };
    take(m_functions.ParserCreate, "XML_ParserCreate");
    take(m_functions.ParserFree, "XML_ParserFree");
    take(m_functions.Parse, "XML_Parse");
    take(m_functions.StopParser, "XML_StopParser");
    take(m_functions.SetUserData, "XML_SetUserData");
    take(m_functions.SetElementHandler, "XML_SetElementHandler");
    take(m_functions.SetCharacterDataHandler, "XML_SetCharacterDataHandler");
    take(m_functions.SetCdataSectionHandler, "XML_SetCdataSectionHandler");
    take(m_functions.SetCommentHandler, "XML_SetCommentHandler");
    take(m_functions.SetProcessingInstructionHandler, "XML_SetProcessingInstructionHandler");
    take(m_functions.SetXmlDeclHandler, "XML_SetXmlDeclHandler");
    take(m_functions.SetStartDoctypeDeclHandler, "XML_SetStartDoctypeDeclHandler");
    take(m_functions.SetDefaultHandler, "XML_SetDefaultHandler");
    take(m_functions.SetUnknownEncodingHandler, "XML_SetUnknownEncodingHandler");
    take(m_functions.GetErrorCode, "XML_GetErrorCode");
    take(m_functions.ErrorString, "XML_ErrorString");
    take(m_functions.GetCurrentLineNumber, "XML_GetCurrentLineNumber");
    take(m_functions.GetCurrentColumnNumber, "XML_GetCurrentColumnNumber");
    take(m_functions.GetCurrentByteCount, "XML_GetCurrentByteCount");
    take(m_functions.GetCurrentByteIndex, "XML_GetCurrentByteIndex");
    return procedures.HasAll(pdwError);
}

void Expat::Free() noexcept
{
    m_functions = {};
    Wrapper::Free();
}

}  // namespace KzCommon::Library
