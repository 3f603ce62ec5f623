// The system's one way of touching the Windows registry.
#pragma once

#include "common/KzComn_ByteArray.h"
#include "common/KzComn_Exception.h"
#include "common/KzComn_Handle.h"

#include <string>

namespace KzCommon::Storage {

/// Where settings are kept: names the store and the place in it.
class Key {
public:
    /// Which store serves the location.
    enum Kind : DWORD { eRegistry = 0, eIniFile = 1, eRegistryOther = 4 };

    /// A registry location. `szPath` is not owned: callers pass literals.
    Key(HKEY hRoot, const wchar_t* szPath) noexcept : m_hRoot(hRoot), m_szPath(szPath) {}
    /// A location of another kind; for eIniFile, `szPath` is the path of the INI file.
    Key(DWORD dwKind, HKEY hRoot, const wchar_t* szPath) noexcept : m_dwKind(dwKind), m_hRoot(hRoot), m_szPath(szPath)
    {
    }
    virtual ~Key() = default;

    DWORD m_dwKind = eRegistry;
    HKEY m_hRoot;
    const wchar_t* m_szPath;
};

/// The registry view: which half of a redirected tree an open reaches.
enum RegistryView : DWORD { eViewDefault = 0, eView32Bit = 1, eView64Bit = 2 };

/// One open registry key. Every operation reports failure by throwing Exception with the Win32 code of the registry
/// call; ERROR_INVALID_HANDLE (6) when no key is open or memory is out, ERROR_INVALID_DATA (13) when a value has
/// another type or size than asked for, ERROR_BAD_ARGUMENTS (160) for an empty path. Names and paths are in characters
/// without the root. An open key must be closed before the object opens another.
class Registry {
public:
    explicit Registry(DWORD dwView = eViewDefault) noexcept : m_dwView(dwView) {}
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    virtual ~Registry() = default;

    /// Opens the key's path, followed by a backslash and `szSubKey` when that is given, for reading values.
    /// RegOpenKeyExW.
    virtual void Open(const Key& key, const wchar_t* szSubKey = nullptr);
    /// Opens for writing; creates the key and the missing keys above it. RegCreateKeyExW.
    virtual void OpenOrCreate(HKEY hRoot, const std::wstring& tstrPath);
    /// Opens for deleting values. RegOpenKeyExW.
    virtual void OpenForDelete(HKEY hRoot, const std::wstring& tstrPath);
    /// Opens for reading values and listing sub-keys. RegOpenKeyExW.
    virtual void OpenForEnumerate(HKEY hRoot, const std::wstring& tstrPath);
    /// Forgets root, handle and path. RegCloseKey.
    virtual void Close();
    /// RegFlushKey.
    virtual void Flush();
    /// ReadBinary that returns false and the code instead of throwing.
    virtual bool TryReadBinary(const std::wstring& tstrName, ByteArray& bytes, DWORD* pdwError);
    /// Reads REG_BINARY into `bytes`, which must be empty (else ERROR_OBJECT_ALREADY_EXISTS, 5010). RegQueryValueExW.
    virtual void ReadBinary(const std::wstring& tstrName, ByteArray& bytes);
    /// ReadString that returns false and the code instead of throwing; `tstrValue` is set only on success.
    virtual bool TryReadString(const std::wstring& tstrName, const std::wstring& tstrDefault, std::wstring& tstrValue,
                               DWORD* pdwError);
    /// Reads REG_SZ and REG_EXPAND_SZ (not expanded) up to the first zero, REG_MULTI_SZ whole, its zeros included. An
    /// absent value throws ERROR_FILE_NOT_FOUND (2); the default is no answer to that. RegQueryValueExW.
    virtual std::wstring ReadString(const std::wstring& tstrName, const std::wstring& tstrDefault);
    /// ReadDword that returns false and the code instead of throwing.
    virtual bool TryReadDword(const std::wstring& tstrName, DWORD& dwValue, DWORD* pdwError);
    /// Reads a REG_DWORD value of 4 bytes; `dwValue` keeps the caller's default on failure. RegQueryValueExW.
    virtual void ReadDword(const std::wstring& tstrName, DWORD& dwValue);
    /// Writes REG_BINARY. RegSetValueExW.
    virtual void WriteBinary(const std::wstring& tstrName, const ByteArray& bytes);
    /// Writes REG_SZ with its terminating zero. RegSetValueExW.
    virtual void WriteString(const std::wstring& tstrName, const std::wstring& tstrValue);
    /// Writes REG_QWORD. RegSetValueExW.
    virtual void WriteQword(const std::wstring& tstrName, ULONGLONG ullValue);
    /// Writes REG_DWORD. RegSetValueExW.
    virtual void WriteDword(const std::wstring& tstrName, DWORD dwValue);
    /// Deletes a key below the open one. RegDeleteKeyW.
    virtual void DeleteSubKey(const std::wstring& tstrName);
    /// Sets the path that Path() reports; the registry is not touched.
    virtual void SetPath(const std::wstring& tstrPath);
    /// RegDeleteValueW.
    virtual void DeleteValue(const std::wstring& tstrName);
    /// Name of the sub-key at `dwIndex`; throws ERROR_NO_MORE_ITEMS (259) past the last. RegEnumKeyExW.
    virtual std::wstring EnumSubKey(DWORD dwIndex);
    /// Name of the value at `dwIndex`; throws ERROR_NO_MORE_ITEMS (259) past the last. RegEnumValueW.
    virtual std::wstring EnumValue(DWORD dwIndex);

    /// Reads type and bytes of a value, whatever they are; ERROR_MORE_DATA (234) when it keeps growing meanwhile.
    /// RegQueryValueExW.
    void ReadStored(const std::wstring& tstrName, DWORD& dwType, std::string& strBytes);

    /// Reads a REG_QWORD value of 8 bytes; `ullValue` keeps the caller's default on failure. RegQueryValueExW.
    void ReadQword(const std::wstring& tstrName, ULONGLONG& ullValue);

    [[nodiscard]] const std::wstring& Path() const noexcept { return m_tstrPath; }

private:
    void OpenExisting(HKEY hRoot, const std::wstring& tstrPath, REGSAM dwAccess);
    void Adopt(HKEY hRoot, HKEY hKey, const std::wstring& tstrPath);
    void RequireOpen(const std::source_location& where = std::source_location::current()) const;
    void ReadFixed(const std::wstring& tstrName, DWORD dwType, void* pvValue, DWORD cbValue);
    void ReadSized(const std::wstring& tstrName, DWORD& dwType, ByteArray& bytes);
    void Write(const std::wstring& tstrName, DWORD dwType, const void* pvData, DWORD cbData);
    [[nodiscard]] REGSAM ViewBits() const noexcept;

    HKEY m_hRoot = nullptr;
    UniqueRegistryKey m_hKey;
    std::wstring m_tstrPath;
    DWORD m_dwView;
};

/// Open, act and close in one call. All return true on success and then set `*pdwError` to 0; on failure they return
/// false and set it to the Win32 code, or to 0x800300FD for a failure without one. `pdwError` may be null. Paths are
/// without the root; an empty value name is the key's unnamed value; `dwView` is a RegistryView.
namespace Reg {

/// Writes REG_SZ, creating the key. RegSetValueExW.
bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, const std::wstring& tstrValue,
                DWORD dwView, DWORD* pdwError);
/// Writes REG_DWORD, creating the key. RegSetValueExW.
bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD dwValue, DWORD dwView,
                DWORD* pdwError);
/// The same with raw texts, of which a null pointer counts as empty.
bool StoreValue(HKEY hRoot, const wchar_t* szPath, const wchar_t* szName, DWORD dwValue, DWORD dwView, DWORD* pdwError);
/// Writes REG_QWORD, creating the key. RegSetValueExW.
bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, ULONGLONG ullValue,
                DWORD dwView, DWORD* pdwError);
/// Reads a text; `tstrValue` brings the default and keeps it on failure. RegQueryValueExW.
bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, std::wstring& tstrValue,
               DWORD dwView, DWORD* pdwError);
/// Reads a REG_DWORD; `dwValue` brings the default and keeps it on failure. RegQueryValueExW.
bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD& dwValue, DWORD dwView,
               DWORD* pdwError);
/// Reads a REG_QWORD; `ullValue` brings the default and keeps it on failure. RegQueryValueExW.
bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, ULONGLONG& ullValue,
               DWORD dwView, DWORD* pdwError);
/// Reads type and bytes of a value of any type, both left alone on failure. RegQueryValueExW.
bool ReadStored(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD& dwType,
                std::string& strBytes, DWORD dwView, DWORD* pdwError);
/// Whether a key exists; yes also for one that may not be opened. RegOpenKeyExW.
[[nodiscard]] bool HasKey(HKEY hRoot, const std::wstring& tstrPath, DWORD dwView);
/// Deletes a value; the key must exist. RegDeleteValueW.
bool DeleteValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD dwView, DWORD* pdwError);

}  // namespace Reg

}  // namespace KzCommon::Storage
