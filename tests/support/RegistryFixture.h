// A registry of the test's own, so that tests are safe on a developer's machine.
#pragma once

#include "common/KzComn_WindowsMachine.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <optional>
#include <string>
#include <vector>

/// One value as it is stored.
struct RawValue {
    DWORD dwType = REG_NONE;
    std::string strBytes;
    bool operator==(const RawValue&) const = default;
};

/// Stores a value of any type and creates its key.
void WriteRaw(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, const RawValue& value);
/// A value as it is stored; nothing when it is absent.
[[nodiscard]] std::optional<RawValue> ReadRaw(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName);
/// The value that a text of that type is stored as, its terminating zero included.
[[nodiscard]] RawValue RawText(const std::wstring& tstrText, DWORD dwType = REG_SZ);
/// The value that a number is stored as: REG_DWORD or REG_QWORD.
[[nodiscard]] RawValue RawNumber(ULONGLONG ullNumber, DWORD dwType = REG_DWORD);
/// Stores a text below the product's key.
void WriteProduct(const std::wstring& tstrName, const std::wstring& tstrText);

/// A test with HKEY_LOCAL_MACHINE and HKEY_CLASSES_ROOT of this process redirected to a new empty key below
/// HKEY_CURRENT_USER, which it removes when it goes. The 32-bit and 64-bit views are not told apart behind it.
class RegistryTest : public ::testing::Test {
protected:
    RegistryTest();
    ~RegistryTest() override;

    /// Ends the program with kNotRedirected unless both families of registry functions, the core's and advapi32's,
    /// work on the test's key: otherwise a test would change this machine's registry. Every test begins with this.
    void RequireRedirection() const;
    static constexpr int kNotRedirected = 3;

    KzCommon::WindowsMachine m_machine;

private:
    std::wstring m_tstrPath;
};
