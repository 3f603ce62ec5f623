// A private registry for each test, so that tests are safe on a developer's machine.
#pragma once

#include "common/KzComn_WindowsMachine.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <optional>
#include <string>
#include <vector>

/// One value in its stored form.
struct RawValue {
    DWORD dwType = REG_NONE;
    std::string strBytes;
    bool operator==(const RawValue&) const = default;
};

/// Stores a value of any type and creates its key.
void WriteRaw(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName, const RawValue& value);
/// A value in its stored form; empty when missing.
[[nodiscard]] std::optional<RawValue> ReadRaw(HKEY hRoot, const std::wstring& tstrPath, const std::wstring& tstrName);
/// The stored form of a text of that type, with its terminating zero.
[[nodiscard]] RawValue RawText(const std::wstring& tstrText, DWORD dwType = REG_SZ);
/// The stored form of a number: REG_DWORD or REG_QWORD.
[[nodiscard]] RawValue RawNumber(ULONGLONG ullNumber, DWORD dwType = REG_DWORD);
/// Stores a text below the product's key.
void WriteProduct(const std::wstring& tstrName, const std::wstring& tstrText);

/// A test with HKEY_LOCAL_MACHINE and HKEY_CLASSES_ROOT of this process redirected to a new empty key below
/// HKEY_CURRENT_USER; the destructor deletes it. The 32-bit and 64-bit views are the same there.
class RegistryTest : public ::testing::Test {
protected:
    RegistryTest();
    ~RegistryTest() override;

    /// Ends the program with kNotRedirected unless both families of registry functions, the core's and advapi32's, use
    /// the test's key: otherwise a test would change this machine's registry. Every test calls this first.
    void RequireRedirection() const;
    static constexpr int kNotRedirected = 3;

    KzCommon::WindowsMachine m_machine;

private:
    std::wstring m_tstrPath;
};
