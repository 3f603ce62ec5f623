// INI files, read and written through the private-profile functions of Windows.
#pragma once

#include "common/KzComn_Exception.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_Retry.h"

#include <string>
#include <utility>
#include <vector>

namespace KzCommon::Storage {

/// One INI file. It need not exist: reading returns defaults, writing creates it. Failures throw Exception with the
/// Win32 code; ERROR_BAD_ARGUMENTS (160) for an empty path, ERROR_INVALID_HANDLE (6) while the object is not open.
class IniFile {
public:
    IniFile() = default;
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;
    virtual ~IniFile() = default;

    /// Opens the file at `tstrPath` (a full path: the system looks for a bare name in the Windows folder).
    void Open(const std::wstring& tstrPath);
    /// Opens the file of a location of kind eIniFile. The overloads without a section read `szSection`.
    void Open(const Key& key, const wchar_t* szSection);
    void Close() noexcept;
    [[nodiscard]] bool IsReady() const noexcept { return !m_tstrPath.empty(); }
    [[nodiscard]] const std::wstring& Path() const noexcept { return m_tstrPath; }

    /// The value, or the default when file, section or key is missing. GetPrivateProfileStringW.
    [[nodiscard]] std::wstring ReadString(const std::wstring& tstrSection, const std::wstring& tstrKey,
                                          const std::wstring& tstrDefault) const;
    /// Likewise in the section given to Open.
    [[nodiscard]] std::wstring ReadString(const std::wstring& tstrKey, const std::wstring& tstrDefault) const;
    /// Reads a decimal value in the section given to Open. `dwValue` keeps the default when the key is missing and
    /// becomes 0 when its text is not a number.
    void ReadDword(const std::wstring& tstrKey, DWORD& dwValue) const;

    /// Writes one value. WritePrivateProfileStringW.
    void StoreString(const std::wstring& tstrSection, const std::wstring& tstrKey, const std::wstring& tstrValue) const;

private:
    void RequireReady() const;

    std::wstring m_tstrPath;
    std::wstring m_tstrSection;
};

namespace Ini {

/// Writes one value of the file at `tstrPath`; retries with `patience` while it is in use. False with the code in
/// GetLastError(). WritePrivateProfileStringW.
[[nodiscard]] bool StoreValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                              const std::wstring& tstrKey, const std::wstring& tstrValue, Patience& patience);

/// How the buffer for a whole section grows, in characters: from `cchFirst` in steps of `cchStep` while below
/// `cchLimit`.
struct SectionGrowth {
    DWORD cchFirst;
    DWORD cchStep;
    DWORD cchLimit;
};

/// The result of reading a whole section.
enum class SectionOutcome {
    eRead,      ///< the entries were read
    eTooLarge,  ///< the section does not fit below the limit
    eNoMemory,  ///< a buffer of `cchBuffer` characters could not be allocated
    eFailed     ///< no such file or section, or an empty section; `dwError` has the code
};

/// A section's entries in line order, and the result of the read.
struct Section {
    SectionOutcome eOutcome = SectionOutcome::eFailed;
    DWORD dwError = ERROR_SUCCESS;
    DWORD cchBuffer = 0;
    std::vector<std::pair<std::wstring, std::wstring>> entries;
};

/// Reads a whole section. Splits an entry at its first run of "="; all but the last "=" of the run belong to the key.
/// Ignores lines without "=" and lines without a value. GetPrivateProfileSectionW.
[[nodiscard]] Section ReadSection(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                  const SectionGrowth& growth);

}  // namespace Ini

}  // namespace KzCommon::Storage
