#include "config/ConfigStore.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"
#include "common/KzComn_XmlParser.h"
#include "common/KzComn_XmlWriter.h"
#include "config/ConfigDefaults.h"

#include <algorithm>

using namespace KzCommon;
using Storage::XmlElement;

namespace Config {

namespace {

std::wstring Trimmed(const std::wstring& tstrText)
{
    const std::size_t uFirst = tstrText.find_first_not_of(L" \t\r\n");
    if (uFirst == std::wstring::npos) return {};
    return tstrText.substr(uFirst, tstrText.find_last_not_of(L" \t\r\n") - uFirst + 1);
}

bool IsProtected(const XmlElement& element)
{
    return ProtectionOf(element) == Protection::eProtected;
}

/// Whether child elements can be added to this one without damaging a value.
bool IsSection(const XmlElement& element)
{
    return element.GetFirstChild() || Trimmed(element.GetText()).empty();
}

/// Follows the path from the root as far as elements exist; `cLeft` is the number of remaining names.
template <class Element>
Element* Follow(Element* pElement, const TagPath& path, std::size_t& cLeft)
{
    cLeft = path.Names().size();
    for (const std::wstring& tstrName : path.Names()) {
        Element* pChild = pElement->FindChild(tstrName);
        if (!pChild) break;
        pElement = pChild;
        --cLeft;
    }
    return pElement;
}

}  // namespace

Protection ProtectionOf(const XmlElement& element)
{
    if (element.GetAttribute(L"protected") == L"1") return Protection::eProtected;
    for (const Storage::XmlAttribute& attribute : element.Attributes()) {
        if (!String::EqualsNoCase(attribute.tstrName, L"protected")) continue;
        const std::wstring tstrValue = Trimmed(attribute.tstrValue);
        const bool bMeantNot = tstrValue.empty() || tstrValue == L"0" || String::EqualsNoCase(tstrValue, L"false") ||
                               String::EqualsNoCase(tstrValue, L"no");
        if (!bMeantNot) return Protection::eMisspelt;
    }
    return Protection::eNone;
}

Value ValueOf(const XmlElement& element)
{
    const bool bProtected = IsProtected(element);
    const bool bTextual = !bProtected && TypeOfName(element.GetAttribute(L"type")) == Type::eString;
    return {bProtected, bTextual ? element.GetText() : Trimmed(element.GetText())};
}

bool ConfigStore::Open(const std::wstring& tstrPath)
{
    try {
        m_document = Storage::XmlParser().ParseFile(m_machine, tstrPath);
    } catch (Storage::XmlException* pException) {
        const std::unique_ptr<Storage::XmlException> caught(pException);
        Trace(kTraceError, L"*** ConfigStore::Open(%s) - [0x%08x] line %llu, column %llu: %s", tstrPath.c_str(),
              caught->ErrorCode(), caught->Position().ullLine, caught->Position().ullColumn, caught->Reason().c_str());
        return false;
    }
    m_tstrPath = tstrPath;
    m_bChanged = false;
    return true;
}

bool ConfigStore::Save()
{
    if (!m_bChanged) return true;
    try {
        Storage::XmlWriter::WriteFile(*m_document, m_machine, m_tstrPath);
    } catch (Storage::XmlException* pException) {
        const std::unique_ptr<Storage::XmlException> caught(pException);
        Trace(kTraceError, L"*** ConfigStore::Save(%s) failed. [0x%08x]", m_tstrPath.c_str(), caught->ErrorCode());
        return false;
    }
    m_bChanged = false;
    return true;
}

bool ConfigStore::Clear(const TagPath& path, const Value& value, Secret<std::wstring>& clear) const
{
    if (!value.bProtected) {
        clear.value = value.tstrText;
        return true;
    }
    DWORD dwError = ERROR_SUCCESS;
    if (m_protection.Unprotect(path, value.tstrText, clear, dwError)) return true;
    Trace(kTraceError, L"*** ConfigStore - the protected value of [%s] is not authentic. [0x%08x]", path.Text().c_str(),
          dwError);
    return false;
}

ConfigStore::Found ConfigStore::Read(const TagPath& path, Value& value, Type& eType) const
{
    std::size_t cLeft = 0;
    const XmlElement* pElement = Follow<const XmlElement>(m_document->GetRoot(), path, cLeft);
    if (cLeft > 0 || pElement->GetFirstChild()) return Found::eNone;

    Value held = ValueOf(*pElement);
    const Type eHeld = TypeOfName(pElement->GetAttribute(L"type"));
    Secret<std::wstring> clear;
    if (!Clear(path, held, clear)) return Found::eRefused;
    if (clear.value.empty() && (eHeld == Type::eInt || eHeld == Type::eBool)) return Found::eNone;
    if (!Fits(eHeld, clear.value)) {
        Trace(kTraceError, L"*** ConfigStore::Read() - [%s] does not fit its type.", path.Text().c_str());
        return Found::eRefused;
    }
    if (!held.bProtected && IsSecret(path)) {
        if (!Seal(path, clear.value, held.tstrText)) return Found::eRefused;
        held.bProtected = true;
    }
    value = std::move(held);
    eType = eHeld;
    return Found::eValue;
}

bool ConfigStore::Write(const TagPath& path, const Value& value, Type eNewType)
{
    Secret<std::wstring> clear;
    if (!Clear(path, value, clear)) return false;

    std::size_t cLeft = 0;
    XmlElement* pElement = Follow(m_document->GetRoot(), path, cLeft);
    const Type eType = cLeft > 0 ? eNewType : TypeOfName(pElement->GetAttribute(L"type"));
    if (!Fits(eType, clear.value) || !Storage::IsXmlText(clear.value)) {
        Trace(kTraceError, L"*** ConfigStore::Write() - the value does not fit the type of [%s].", path.Text().c_str());
        return false;
    }
    if (cLeft > 0) {
        pElement = Create(path, eNewType, value.bProtected || IsSecret(path));
    } else if (pElement->GetFirstChild()) {
        Trace(kTraceError, L"*** ConfigStore::Write() - [%s] is a section.", path.Text().c_str());
        return false;
    }
    return pElement && Store(*pElement, path, value, clear.value);
}

bool ConfigStore::Store(XmlElement& element, const TagPath& path, const Value& value, const std::wstring& tstrClear)
{
    const Protection eProtection = ProtectionOf(element);
    const bool bMissing = eProtection != Protection::eProtected &&
                          (IsSecret(path) || (value.bProtected && eProtection == Protection::eMisspelt));
    std::wstring tstrNew = tstrClear;
    const bool bProtect = bMissing || eProtection == Protection::eProtected;
    if (bProtect && !SealedText(element, path, value, tstrClear, tstrNew)) return false;
    if (bMissing) {
        Trace(kTraceError, L"*** ConfigStore::Write() - [%s] is not protected=\"1\" in the file: made so.",
              path.Text().c_str());
        element.RemoveAttributes(L"protected");
        element.SetAttribute(L"protected", L"1");
        m_bChanged = true;
    }
    if (ValueOf(element).tstrText != tstrNew) {
        element.SetText(tstrNew);
        m_bChanged = true;
    }
    return true;
}

/// The text for a protected element.
bool ConfigStore::SealedText(const XmlElement& element, const TagPath& path, const Value& value,
                             const std::wstring& tstrClear, std::wstring& tstrText) const
{
    // The same value would get a different text with a new nonce, so keep the existing one.
    const Value held = ValueOf(element);
    DWORD dwError = ERROR_SUCCESS;
    Secret<std::wstring> clear;
    if (held.bProtected && ValueProtection::IsBound(held.tstrText) &&
        m_protection.Unprotect(path, held.tstrText, clear, dwError) && clear.value == tstrClear) {
        tstrText = held.tstrText;
        return true;
    }
    if (!value.bProtected || !ValueProtection::IsBound(value.tstrText)) return Seal(path, tstrClear, tstrText);
    tstrText = value.tstrText;
    return true;
}

bool ConfigStore::Seal(const TagPath& path, const std::wstring& tstrClear, std::wstring& tstrText) const
{
    DWORD dwError = ERROR_SUCCESS;
    if (m_protection.Protect(path, tstrClear, tstrText, dwError)) return true;
    Trace(kTraceError, L"*** ConfigStore - [%s] cannot be protected. [0x%08x]", path.Text().c_str(), dwError);
    return false;
}

XmlElement* ConfigStore::Create(const TagPath& path, Type eType, bool bProtected)
{
    std::size_t cLeft = 0;
    XmlElement* pElement = Follow(m_document->GetRoot(), path, cLeft);
    const auto itNew = path.Names().end() - static_cast<std::ptrdiff_t>(cLeft);
    if (!IsSection(*pElement) || !std::all_of(itNew, path.Names().end(), &Storage::IsXmlName)) {
        Trace(kTraceError, L"*** ConfigStore::Write() - [%s] cannot be created.", path.Text().c_str());
        return nullptr;
    }
    for (auto itName = itNew; itName != path.Names().end(); ++itName) pElement = &pElement->AddChild(*itName);
    if (eType != Type::eString) pElement->SetAttribute(L"type", NameOfType(eType));
    if (bProtected) pElement->SetAttribute(L"protected", L"1");
    m_bChanged = true;
    return pElement;
}

}  // namespace Config
