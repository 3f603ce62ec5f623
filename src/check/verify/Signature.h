// Signatures of manifests: ECDSA with P-256 and SHA-256, in DER, as "openssl dgst -sha256 -sign" writes them.
#pragma once

#include <windows.h>

#include <bcrypt.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// A public key.
class PublicKey {
public:
    /// Reads a key in PEM ("-----BEGIN PUBLIC KEY-----"). False with the code; ERROR_INVALID_DATA (13) for anything but
    /// a key on the curve P-256. CryptStringToBinaryA, CryptDecodeObjectEx, CryptImportPublicKeyInfoEx2.
    [[nodiscard]] bool Read(std::string_view strPem, DWORD* pdwError);

    /// The first 16 digits of the SHA-256 of the key's DER.
    [[nodiscard]] const std::string& Id() const noexcept { return m_strId; }

    /// Whether `strSignature` is this key's signature of `strBytes`. CryptDecodeObjectEx, BCryptVerifySignature.
    [[nodiscard]] bool HasSigned(std::string_view strBytes, std::string_view strSignature) const;

private:
    struct Release {
        void operator()(void* hKey) const noexcept;
    };

    std::unique_ptr<void, Release> m_hKey;
    std::string m_strId;
};

}  // namespace Check
