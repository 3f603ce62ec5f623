// Encryption of values in the configuration file.
#pragma once

#include "common/KzComn_Handle.h"
#include "config/ConfigValue.h"

#include <windows.h>
#include <bcrypt.h>

#include <string>
#include <string_view>

namespace Config {

/// The key string of the product's store.
inline constexpr std::wstring_view kStoreKey = L"Kazmere configuration store, key 1";

/// A buffer that is wiped before it is freed.
template <class Buffer>
struct Secret {
    Buffer value;

    Secret() = default;
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret() { ::SecureZeroMemory(value.data(), value.size() * sizeof(typename Buffer::value_type)); }
};

struct AlgorithmTraits {
    using Handle = BCRYPT_ALG_HANDLE;
    static Handle Empty() noexcept { return nullptr; }
    static void Release(Handle handle) noexcept { ::BCryptCloseAlgorithmProvider(handle, 0); }
};
struct KeyTraits {
    using Handle = BCRYPT_KEY_HANDLE;
    static Handle Empty() noexcept { return nullptr; }
    static void Release(Handle handle) noexcept { ::BCryptDestroyKey(handle); }
};

/// Encrypts values to protected text and back: AES-256 in Galois/counter mode with the SHA-256 hash of a key string as
/// key, a new random nonce for every value and the folded tag path as authenticated data, so that the text is valid
/// only for that setting. The text is "2:", then nonce, cipher text and tag in Base64. Texts of the first form, without
/// "2:" and tag path, can still be read. An empty value has an empty text.
class ValueProtection {
public:
    /// Prepares the key. False with the NTSTATUS code of the failed call in `dwError`. BCryptGenerateSymmetricKey.
    [[nodiscard]] bool Open(std::wstring_view tstrKeyString, DWORD& dwError);

    /// False with the code of the failure. BCryptEncrypt.
    [[nodiscard]] bool Protect(const TagPath& path, const std::wstring& tstrClear, std::wstring& tstrText,
                               DWORD& dwError) const;

    /// False with the code: STATUS_AUTH_TAG_MISMATCH (0xc000a002) for a text made with another key or for another path
    /// or changed since, ERROR_INVALID_DATA (13) for one of an invalid form. BCryptDecrypt.
    [[nodiscard]] bool Unprotect(const TagPath& path, const std::wstring& tstrText, Secret<std::wstring>& clear,
                                 DWORD& dwError) const;

    /// Whether a protected text has the current form instead of the first one.
    [[nodiscard]] static bool IsBound(std::wstring_view tstrText) noexcept;

private:
    KzCommon::UniqueHandle<AlgorithmTraits> m_hAlgorithm;
    KzCommon::UniqueHandle<KeyTraits> m_hKey;  // destroyed before its algorithm
};

}  // namespace Config
