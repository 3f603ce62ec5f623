// Access to the Windows registry.
#pragma once

#include "common/KzComn_ByteArray.h"
#include "common/KzComn_Exception.h"
#include "common/KzComn_Handle.h"

#include <string>

namespace KzCommon::Storage {

/// A settings location: the store and the place in it.
class Key {
public:
    /// The store of the location.
    enum Kind : DWORD { eRegistry = 0, eIniFile = 1, eRegistryOther = 4 };

    /// A registry location. `szPath` is not copied: callers pass literals.
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

/// The registry view: the half of a redirected tree that an open call accesses.
enum RegistryView : DWORD { eViewDefault = 0, eView32Bit = 1, eView64Bit = 2 };

/// One open registry key. Every operation throws Exception with the Win32 code of the registry call on failure;
/// ERROR_INVALID_HANDLE (6) when no key is open or memory runs out, ERROR_INVALID_DATA (13) when a value has another
/// type or size than requested, ERROR_BAD_ARGUMENTS (160) for an empty path. Names and paths do not contain the root.
/// Close an open key before opening another.
class Registry {
public:
    explicit Registry(DWORD dwView = eViewDefault) noexcept : m_dwView(dwView) {}
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    virtual ~Registry() = default;

    /// Opens the key's path, with a backslash and `szSubKey` if given, for reading values. RegOpenKeyExW.
    virtual void Open(const Key& key, const wchar_t* szSubKey = nullptr);
    /// Opens for writing; creates the key and the missing keys above it. RegCreateKeyExW.
    virtual void OpenOrCreate(HKEY hRoot, const std::wstring& tstrPath);
    /// Opens for deleting values. RegOpenKeyExW.
    virtual void OpenForDelete(HKEY hRoot, const std::wstring& tstrPath);
    /// Opens for reading values and listing sub-keys. RegOpenKeyExW.
    virtual void OpenForEnumerate(HKEY hRoot, const std::wstring& tstrPath);
    /// Clears root, handle and path. RegCloseKey.
    virtual void Close();
    /// RegFlushKey.
    virtual void Flush();
    /// Like ReadBinary, but returns false and the code instead of throwing.
    virtual bool TryReadBinary(const std::wstring& tstrName, ByteArray& bytes, DWORD* pdwError);
    /// Reads REG_BINARY into `bytes`, which must be empty (else ERROR_OBJECT_ALREADY_EXISTS, 5010). RegQueryValueExW.
    virtual void ReadBinary(const std::wstring& tstrName, ByteArray& bytes);
    /// Like ReadString, but returns false and the code instead of throwing; sets `tstrValue` only on success.
    virtual bool TryReadString(const std::wstring& tstrName, const std::wstring& tstrDefault, std::wstring& tstrValue,
                               DWORD* pdwError);
    /// Reads REG_SZ and REG_EXPAND_SZ (not expanded) up to the first zero, REG_MULTI_SZ whole with its zeros. A missing
    /// value throws ERROR_FILE_NOT_FOUND (2) and does not return the default. RegQueryValueExW.
    virtual std::wstring ReadString(const std::wstring& tstrName, const std::wstring& tstrDefault);
    /// Like ReadDword, but returns false and the code instead of throwing.
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
    /// Sets the path that Path() returns; does not access the registry.
    virtual void SetPath(const std::wstring& tstrPath);
    /// RegDeleteValueW.
    virtual void DeleteValue(const std::wstring& tstrName);
    /// The name of the sub-key at `dwIndex`; throws ERROR_NO_MORE_ITEMS (259) after the last. RegEnumKeyExW.
    virtual std::wstring EnumSubKey(DWORD dwIndex);
    /// The name of the value at `dwIndex`; throws ERROR_NO_MORE_ITEMS (259) after the last. RegEnumValueW.
    virtual std::wstring EnumValue(DWORD dwIndex);

    /// Reads type and bytes of a value of any type; ERROR_MORE_DATA (234) when it keeps growing. RegQueryValueExW.
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

/// Open, act and close in one call. All return true and set `*pdwError` to 0 on success; on failure they return false
/// and set it to the Win32 code, or to 0x800300FD for a failure without one. `pdwError` may be null. Paths do not
/// contain the root; an empty value name is the key's unnamed value; `dwView` is a RegistryView.
namespace Reg {

/// Writes REG_SZ, creating the key. RegSetValueExW.
bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, const std::wstring& tstrValue,
                DWORD dwView, DWORD* pdwError);
/// Writes REG_DWORD, creating the key. RegSetValueExW.
bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD dwValue, DWORD dwView,
                DWORD* pdwError);
/// Likewise with raw texts; a null pointer counts as empty.
bool StoreValue(HKEY hRoot, const wchar_t* szPath, const wchar_t* szName, DWORD dwValue, DWORD dwView, DWORD* pdwError);
/// Writes REG_QWORD, creating the key. RegSetValueExW.
bool StoreValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, ULONGLONG ullValue,
                DWORD dwView, DWORD* pdwError);
/// Reads a text; `tstrValue` contains the default and keeps it on failure. RegQueryValueExW.
bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, std::wstring& tstrValue,
               DWORD dwView, DWORD* pdwError);
/// Reads a REG_DWORD; `dwValue` contains the default and keeps it on failure. RegQueryValueExW.
bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD& dwValue, DWORD dwView,
               DWORD* pdwError);
/// Reads a REG_QWORD; `ullValue` contains the default and keeps it on failure. RegQueryValueExW.
bool ReadValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, ULONGLONG& ullValue,
               DWORD dwView, DWORD* pdwError);
/// Reads type and bytes of a value of any type; both are unchanged on failure. RegQueryValueExW.
bool ReadStored(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD& dwType,
                std::string& strBytes, DWORD dwView, DWORD* pdwError);
/// Whether a key exists; true also without the right to open it. RegOpenKeyExW.
[[nodiscard]] bool HasKey(HKEY hRoot, const std::wstring& tstrPath, DWORD dwView);
/// Deletes a value; the key must exist. RegDeleteValueW.
bool DeleteValue(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, DWORD dwView, DWORD* pdwError);

}  // namespace Reg

}  // namespace KzCommon::Storage
