// The XML parser library, loaded at run time.
#pragma once

#include "common/KzComn_Library.h"

#include <expat.h>

namespace KzCommon::Library {

/// "libexpat.dll" and the functions of it that the program uses.
class Expat : public Wrapper {
public:
    /// Loads the library from the program's folder and its functions by name; does nothing if it is already loaded.
    /// False, with the code in `*pdwError` (may be null) and nothing loaded, when the library or a function is missing.
    [[nodiscard]] bool LoadBesideProgram(DWORD* pdwError = nullptr);
    void Free() noexcept override;

    /// The functions by name, null while the library is not loaded.
    struct Functions {
        decltype(&::XML_ParserCreate) ParserCreate = nullptr;
        decltype(&::XML_ParserFree) ParserFree = nullptr;
        decltype(&::XML_Parse) Parse = nullptr;
        decltype(&::XML_StopParser) StopParser = nullptr;
        decltype(&::XML_SetUserData) SetUserData = nullptr;
        decltype(&::XML_SetElementHandler) SetElementHandler = nullptr;
        decltype(&::XML_SetCharacterDataHandler) SetCharacterDataHandler = nullptr;
        decltype(&::XML_SetCdataSectionHandler) SetCdataSectionHandler = nullptr;
        decltype(&::XML_SetCommentHandler) SetCommentHandler = nullptr;
        decltype(&::XML_SetProcessingInstructionHandler) SetProcessingInstructionHandler = nullptr;
        decltype(&::XML_SetXmlDeclHandler) SetXmlDeclHandler = nullptr;
        decltype(&::XML_SetStartDoctypeDeclHandler) SetStartDoctypeDeclHandler = nullptr;
        decltype(&::XML_SetDefaultHandler) SetDefaultHandler = nullptr;
        decltype(&::XML_SetUnknownEncodingHandler) SetUnknownEncodingHandler = nullptr;
        decltype(&::XML_GetErrorCode) GetErrorCode = nullptr;
        decltype(&::XML_ErrorString) ErrorString = nullptr;
        decltype(&::XML_GetCurrentLineNumber) GetCurrentLineNumber = nullptr;
        decltype(&::XML_GetCurrentColumnNumber) GetCurrentColumnNumber = nullptr;
        decltype(&::XML_GetCurrentByteCount) GetCurrentByteCount = nullptr;
        decltype(&::XML_GetCurrentByteIndex) GetCurrentByteIndex = nullptr;
    };
    [[nodiscard]] const Functions& Api() const noexcept { return m_functions; }

private:
    [[nodiscard]] bool Resolve(DWORD* pdwError) noexcept;

    Functions m_functions;
};

}  // namespace KzCommon::Library
