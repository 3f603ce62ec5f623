// The XML parser library, loaded at run time.
#pragma once

#include "common/KzComn_Library.h"

#include <expat.h>

namespace KzCommon::Library {

/// "libexpat.dll" and those of its functions that the program uses.
class Expat : public Wrapper {
public:
    /// Loads the library from the program's own folder and takes its functions by name; does nothing when that is done
    /// already. False, with the code in `*pdwError` (may be null) and nothing loaded, when the library or one of the
    /// functions is missing.
    [[nodiscard]] bool LoadBesideProgram(DWORD* pdwError = nullptr);
    void Free() noexcept override;

    /// The functions under their own names, null while nothing is loaded.
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
    };
    [[nodiscard]] const Functions& Api() const noexcept { return m_functions; }

private:
    [[nodiscard]] bool Resolve(DWORD* pdwError) noexcept;

    Functions m_functions;
};

}  // namespace KzCommon::Library
