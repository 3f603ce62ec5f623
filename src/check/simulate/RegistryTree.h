// The registry of a machine in memory, layered over a base machine.
#pragma once

#include "common/KzComn_Machine.h"
#include "common/KzComn_String.h"

#include <map>
#include <optional>
#include <set>

namespace Check {

/// Changes only itself. Codes are those of Storage::Reg.
class RegistryTree {
public:
    /// `pBase` may be null (no base machine); otherwise it must outlive the tree.
    explicit RegistryTree(const KzCommon::Machine* pBase);

    /// Reads a value of any type.
    [[nodiscard]] bool Read(const KzCommon::RegistryPlace& place, KzCommon::StoredValue& value, DWORD* pdwError) const;
    [[nodiscard]] bool HasKey(const KzCommon::RegistryPlace& place) const;
    /// The code with which Windows refuses to create the key or the value, otherwise ERROR_SUCCESS.
    [[nodiscard]] DWORD WhyNotWritable(const KzCommon::RegistryPlace& place) const;
    /// Writes a value; creates the key.
    [[nodiscard]] bool Write(const KzCommon::RegistryPlace& place, KzCommon::StoredValue value, DWORD* pdwError);
    /// Deletes a value.
    [[nodiscard]] bool Delete(const KzCommon::RegistryPlace& place, DWORD* pdwError);

    /// Sets a value, or removes it if `optValue` is empty, without Windows's checks. Creates the key.
    void Put(const KzCommon::RegistryPlace& place, std::optional<KzCommon::StoredValue> optValue);
    /// Creates a key.
    void PutKey(const KzCommon::RegistryPlace& place);
    /// Removes a key with its contents.
    void RemoveKey(const KzCommon::RegistryPlace& place);

private:
    using NoCase = KzCommon::String::OrdinalNoCase;
    using Values = std::map<std::wstring, std::optional<KzCommon::StoredValue>, NoCase>;  // empty: deleted

    [[nodiscard]] bool IsHidden(const std::wstring& tstrKey) const;

    const KzCommon::Machine* m_pBase;
    // Keys by root, view and path.
    std::map<std::wstring, Values, NoCase> m_keys;
    std::set<std::wstring, NoCase> m_removed;  // these and their sub-keys are not looked up on the base machine
};

/// Converts data to a stored value.
[[nodiscard]] KzCommon::StoredValue ToStored(const KzCommon::RegistryData& data);

/// Converts a stored value to the type of `data` as Storage::Registry does. ERROR_INVALID_DATA (13) for a value of
/// another type or size.
[[nodiscard]] bool FromStored(const KzCommon::StoredValue& value, KzCommon::RegistryData& data, DWORD* pdwError);

/// A value as shown in plans: numbers in decimal, texts unchanged, the parts of a REG_MULTI_SZ separated by ";".
[[nodiscard]] std::wstring ShowStored(const KzCommon::StoredValue& value);

/// The name of a root key ("HKEY_LOCAL_MACHINE").
[[nodiscard]] std::wstring NameOfRoot(HKEY hRoot);

}  // namespace Check
