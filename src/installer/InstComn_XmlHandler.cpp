#include "installer/InstComn_XmlHandler.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_XmlParser.h"

namespace InstCommon::Utility {

using namespace KzCommon;

bool XmlHandler::ParseXml(const std::wstring& tstrPath)
{
    const OperationTrace trace(L"InstCommon::Utility::XmlHandler::ParseXml()");
    Release();
    try {
        m_document = Storage::XmlParser().ParseFile(tstrPath);
    } catch (Storage::XmlException* pException) {
        const std::unique_ptr<Storage::XmlException> caught(pException);
        const Storage::XmlPosition& position = caught->Position();
        Trace(kTraceError,
              L"*** KzCommon::Storage::XmlParser::ParseFile(%s) failed. [0x%08x] line %llu, column %llu: %s",
              tstrPath.c_str(), caught->ErrorCode(), position.ullLine, position.ullColumn, caught->Reason().c_str());
        return false;
    } catch (Storage::Exception* pException) {
        const Storage::CaughtException caught(pException);
        Trace(kTraceError, L"*** KzCommon::Storage::XmlParser::ParseFile(%s) failed. [0x%08x]", tstrPath.c_str(),
              caught->ErrorCode());
        return false;
    }
    m_bParsed = true;
    return true;
}

bool XmlHandler::SkipAllChildElements()
{
    const OperationTrace trace(L"InstCommon::Utility::XmlHandler::SkipAllChildElements()");
    if (!m_pElement) {
        Trace(kTraceError, L"*** Parameter is invalid.");
        return false;
    }
    const Storage::XmlElement* pRoot = m_document ? m_document->GetRoot() : nullptr;
    for (const Storage::XmlElement* pElement = m_pElement;; pElement = pElement->GetParent()) {
        const Storage::XmlElement* pParent = pElement->GetParent();
        if (!pParent) {
            Trace(kTraceError, L"*** KzCommon::Storage::XmlElement::GetParent() retuned invalid handle.");
            return false;
        }
        if (pParent == pRoot) {
            m_pElement = pElement;
            return true;
        }
    }
}

void XmlHandler::Release() noexcept
{
    m_pElement = nullptr;
    m_bParsed = false;
    m_document.reset();
}

}  // namespace InstCommon::Utility
