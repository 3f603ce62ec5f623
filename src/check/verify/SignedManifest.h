// Whose signature a manifest has.
#pragma once

#include "check/verify/Signature.h"

#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// Longer files are no signatures: one takes about 72 bytes.
inline constexpr std::size_t kMostSignatureBytes = 1024;

/// Reads all keys of PEM files, one or more in each. False, with an error line, when a file is unreadable, or one of
/// its blocks is no public key on P-256.
[[nodiscard]] bool ReadKeys(const std::vector<std::wstring>& files, std::vector<PublicKey>& keys,
                            std::wstring& tstrErrors);

/// The key that has signed a manifest, by the signature in the file beside it; null, with the reason in `tstrReason`,
/// if none has.
[[nodiscard]] const PublicKey* FindSigner(const std::vector<PublicKey>& keys, const std::wstring& tstrManifest,
                                          std::string_view strManifest, std::wstring& tstrReason);

}  // namespace Check
