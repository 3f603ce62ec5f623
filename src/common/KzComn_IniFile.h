// INI files, read and written through the system's private-profile functions.
#pragma once

#include "common/KzComn_Exception.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_Retry.h"

#include <string>
#include <utility>
#include <vector>

namespace KzCommon::Storage {

/// One INI file. It need not exist: reading gives defaults, writing creates it. Failures throw Exception with the Win32
/// code; ERROR_BAD_ARGUMENTS (160) for an empty path, ERROR_INVALID_HANDLE (6) while the object is not open.
class IniFile {
public:
    IniFile() = default;
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;
    virtual ~IniFile() = default;

    /// Takes the file at `tstrPath` (a full path: the system looks for a bare name in the Windows folder).
    void Open(const std::wstring& tstrPath);
    /// Takes the file that a location of kind eIniFile names, and in it the section that the forms below without a
    /// section read.
    void Open(const Key& key, const wchar_t* szSection);
    void Close() noexcept;
    [[nodiscard]] bool IsReady() const noexcept { return !m_tstrPath.empty(); }
    [[nodiscard]] const std::wstring& Path() const noexcept { return m_tstrPath; }

    /// The value, or the default when file, section or key is missing. GetPrivateProfileStringW.
    [[nodiscard]] std::wstring ReadString(const std::wstring& tstrSection, const std::wstring& tstrKey,
                                          const std::wstring& tstrDefault) const;
    /// The same in the section given to Open.
    [[nodiscard]] std::wstring ReadString(const std::wstring& tstrKey, const std::wstring& tstrDefault) const;
    /// A decimal value in the section given to Open; `dwValue` keeps the default when the key is missing, and becomes 0
    /// when its text is no number.
    void ReadDword(const std::wstring& tstrKey, DWORD& dwValue) const;

    /// Writes one value. WritePrivateProfileStringW.
    void StoreString(const std::wstring& tstrSection, const std::wstring& tstrKey, const std::wstring& tstrValue) const;

private:
    void RequireReady() const;

    std::wstring m_tstrPath;
    std::wstring m_tstrSection;
};

namespace Ini {

/// Writes one value of the file at `tstrPath`, which is waited for while others use it and `patience` lasts; false with
/// the code left in GetLastError(). WritePrivateProfileStringW.
[[nodiscard]] bool StoreValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                              const std::wstring& tstrKey, const std::wstring& tstrValue, Patience& patience);

/// How the buffer of a whole-section read grows, in characters: from `cchFirst` on in steps of `cchStep` while it stays
/// below `cchLimit`. A section of any length that some step holds is read.
struct SectionGrowth {
    DWORD cchFirst;
    DWORD cchStep;
    DWORD cchLimit;
};

/// How a whole-section read ended.
enum class SectionOutcome {
    eRead,      ///< the entries are there
    eTooLarge,  ///< the section does not fit below the limit
    eNoMemory,  ///< a buffer of `cchBuffer` characters could not be allocated
    eFailed     ///< no such file or section, or an empty section: `dwError`
};

/// A section's entries in the order of their lines, and how reading them went.
struct Section {
    SectionOutcome eOutcome = SectionOutcome::eFailed;
    DWORD dwError = ERROR_SUCCESS;
    DWORD cchBuffer = 0;
    std::vector<std::pair<std::wstring, std::wstring>> entries;
};

/// Reads a whole section. An entry is split at its first run of "=": all of the run but its last "=" still belongs to
/// the key. Lines without "=" and lines without a text after it are left out. GetPrivateProfileSectionW.
[[nodiscard]] Section ReadSection(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                  const SectionGrowth& growth);

}  // namespace Ini

}  // namespace KzCommon::Storage
