// The registry of a machine in memory, over that of another machine.
#pragma once

#include "common/KzComn_Machine.h"
#include "common/KzComn_String.h"

#include <map>
#include <optional>
#include <set>

namespace Check {

/// Changes nothing but itself. Codes are those of Storage::Reg.
class RegistryTree {
public:
    /// `pBase` may be null: there is no machine below. It must outlive the tree.
    explicit RegistryTree(const KzCommon::Machine* pBase);

    /// Reads a value of any type.
    [[nodiscard]] bool Read(const KzCommon::RegistryPlace& place, KzCommon::StoredValue& value, DWORD* pdwError) const;
    [[nodiscard]] bool HasKey(const KzCommon::RegistryPlace& place) const;
    /// The code with which Windows refuses to create the key or the value; ERROR_SUCCESS when it does not.
    [[nodiscard]] DWORD WhyNotWritable(const KzCommon::RegistryPlace& place) const;
    /// Writes a value; creates the key.
    [[nodiscard]] bool Write(const KzCommon::RegistryPlace& place, KzCommon::StoredValue value, DWORD* pdwError);
    /// Deletes a value.
    [[nodiscard]] bool Delete(const KzCommon::RegistryPlace& place, DWORD* pdwError);

    /// Sets a value, or removes it when none is given, whatever Windows would say. Creates the key.
    void Put(const KzCommon::RegistryPlace& place, std::optional<KzCommon::StoredValue> optValue);
    /// Creates a key.
    void PutKey(const KzCommon::RegistryPlace& place);
    /// Takes away a key with all it holds.
    void RemoveKey(const KzCommon::RegistryPlace& place);

private:
    using NoCase = KzCommon::String::OrdinalNoCase;
    using Values = std::map<std::wstring, std::optional<KzCommon::StoredValue>, NoCase>;  // nothing: deleted

    [[nodiscard]] bool IsHidden(const std::wstring& tstrKey) const;

    const KzCommon::Machine* m_pBase;
    // Keys by root, view and path.
    std::map<std::wstring, Values, NoCase> m_keys;
    std::set<std::wstring, NoCase> m_removed;  // the machine below is not asked for these and what is below them
};

/// The data as a value of the registry.
[[nodiscard]] KzCommon::StoredValue ToStored(const KzCommon::RegistryData& data);

/// A stored value as the type that `data` has, read as Storage::Registry reads it. ERROR_INVALID_DATA (13) for a value
/// of another type or size.
[[nodiscard]] bool FromStored(const KzCommon::StoredValue& value, KzCommon::RegistryData& data, DWORD* pdwError);

/// A value as plans show it: numbers in decimal, texts as they are, the parts of a REG_MULTI_SZ between ";".
[[nodiscard]] std::wstring ShowStored(const KzCommon::StoredValue& value);

/// The name of a root key ("HKEY_LOCAL_MACHINE").
[[nodiscard]] std::wstring NameOfRoot(HKEY hRoot);

}  // namespace Check
