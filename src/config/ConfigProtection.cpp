#include "config/ConfigProtection.h"

#include "common/KzComn_String.h"

#include <wincrypt.h>

#include <algorithm>
#include <array>
#include <vector>

using namespace KzCommon;

namespace Config {

namespace {

using Bytes = std::vector<UCHAR>;

/// The prefix of a text that is bound to its tag path. Base64 text cannot begin with it.
constexpr std::wstring_view kBoundPrefix = L"2:";

constexpr std::size_t kNonceBytes = 12;
constexpr std::size_t kTagBytes = 16;
constexpr std::size_t kHashBytes = 32;

[[nodiscard]] bool Ok(NTSTATUS status, DWORD& dwError) noexcept
{
    if (status < 0) dwError = static_cast<DWORD>(status);
    return status >= 0;
}

[[nodiscard]] bool Hash(std::wstring_view tstrText, std::array<UCHAR, kHashBytes>& hash, DWORD& dwError)
{
    UniqueHandle<AlgorithmTraits> hSha256;
    std::string strText = String::ToUtf8(tstrText);
    return Ok(::BCryptOpenAlgorithmProvider(hSha256.Receive(), BCRYPT_SHA256_ALGORITHM, nullptr, 0), dwError) &&
           Ok(::BCryptHash(hSha256.Get(), nullptr, 0, reinterpret_cast<PUCHAR>(strText.data()),
                           static_cast<ULONG>(strText.size()), hash.data(), static_cast<ULONG>(hash.size())),
              dwError);
}

[[nodiscard]] bool ToBase64(const Bytes& bytes, std::wstring& tstrText)
{
    constexpr DWORD kForm = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    const DWORD cb = static_cast<DWORD>(bytes.size());
    DWORD cch = 0;
    if (!::CryptBinaryToStringW(bytes.data(), cb, kForm, nullptr, &cch)) return false;
    std::wstring tstrOut(cch, L'\0');
    if (!::CryptBinaryToStringW(bytes.data(), cb, kForm, tstrOut.data(), &cch)) return false;
    tstrOut.resize(cch);  // without the terminating zero
    tstrText = std::move(tstrOut);
    return true;
}

[[nodiscard]] bool FromBase64(const std::wstring& tstrText, Bytes& bytes)
{
    const DWORD cch = static_cast<DWORD>(tstrText.size());
    DWORD cb = 0;
    const auto read = [&](BYTE* pbOut) {
        return ::CryptStringToBinaryW(tstrText.c_str(), cch, CRYPT_STRING_BASE64, pbOut, &cb, nullptr, nullptr);
    };
    if (!read(nullptr)) return false;
    bytes.resize(cb);
    if (!read(bytes.data())) return false;
    bytes.resize(cb);
    return true;
}

/// The parts of a protected value in sequence: nonce, cipher text and tag. `strBinding` is authenticated as well.
class Sealed {
public:
    Sealed(Bytes& bytes, std::string& strBinding) noexcept : m_bytes(bytes)
    {
        m_info.cbSize = sizeof m_info;
        m_info.dwInfoVersion = BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO_VERSION;
        m_info.pbNonce = m_bytes.data();
        m_info.cbNonce = kNonceBytes;
        m_info.pbTag = m_bytes.data() + m_bytes.size() - kTagBytes;
        m_info.cbTag = kTagBytes;
        if (strBinding.empty()) return;
        m_info.pbAuthData = reinterpret_cast<PUCHAR>(strBinding.data());
        m_info.cbAuthData = static_cast<ULONG>(strBinding.size());
    }
    [[nodiscard]] PUCHAR Nonce() noexcept { return m_bytes.data(); }
    [[nodiscard]] PUCHAR Cipher() noexcept { return m_bytes.data() + kNonceBytes; }
    [[nodiscard]] ULONG CipherBytes() const noexcept
    {
        return static_cast<ULONG>(m_bytes.size() - kNonceBytes - kTagBytes);
    }
    [[nodiscard]] void* Info() noexcept { return &m_info; }

private:
    Bytes& m_bytes;
    BCRYPT_AUTHENTICATED_CIPHER_MODE_INFO m_info{};
};

}  // namespace

bool ValueProtection::Open(std::wstring_view tstrKeyString, DWORD& dwError)
{
    Secret<std::array<UCHAR, kHashBytes>> key{};
    wchar_t szMode[] = BCRYPT_CHAIN_MODE_GCM;
    m_hKey.Reset();
    return Hash(tstrKeyString, key.value, dwError) &&
           Ok(::BCryptOpenAlgorithmProvider(m_hAlgorithm.Receive(), BCRYPT_AES_ALGORITHM, nullptr, 0), dwError) &&
           Ok(::BCryptSetProperty(m_hAlgorithm.Get(), BCRYPT_CHAINING_MODE, reinterpret_cast<PUCHAR>(szMode),
                                  sizeof szMode, 0),
              dwError) &&
           Ok(::BCryptGenerateSymmetricKey(m_hAlgorithm.Get(), m_hKey.Receive(), nullptr, 0, key.value.data(),
                                           static_cast<ULONG>(key.value.size()), 0),
              dwError);
}

bool ValueProtection::IsBound(std::wstring_view tstrText) noexcept
{
    return tstrText.empty() || tstrText.starts_with(kBoundPrefix);
}

bool ValueProtection::Protect(const TagPath& path, const std::wstring& tstrClear, std::wstring& tstrText,
                              DWORD& dwError) const
{
    if (tstrClear.empty()) {
        tstrText.clear();
        return true;
    }
    Secret<std::string> clear;
    clear.value = String::ToUtf8(tstrClear);
    Bytes bytes(kNonceBytes + clear.value.size() + kTagBytes);
    std::string strBinding = String::ToUtf8(path.Folded());
    Sealed sealed(bytes, strBinding);
    ULONG cbDone = 0;
    if (!Ok(::BCryptGenRandom(nullptr, sealed.Nonce(), kNonceBytes, BCRYPT_USE_SYSTEM_PREFERRED_RNG), dwError) ||
        !Ok(::BCryptEncrypt(m_hKey.Get(), reinterpret_cast<PUCHAR>(clear.value.data()), sealed.CipherBytes(),
                            sealed.Info(), nullptr, 0, sealed.Cipher(), sealed.CipherBytes(), &cbDone, 0),
            dwError)) {
        return false;
    }
    std::wstring tstrBase64;
    if (!ToBase64(bytes, tstrBase64)) {
        dwError = ::GetLastError();
        return false;
    }
    tstrText = std::wstring(kBoundPrefix) + tstrBase64;
    return true;
}

bool ValueProtection::Unprotect(const TagPath& path, const std::wstring& tstrText, Secret<std::wstring>& clear,
                                DWORD& dwError) const
{
    if (tstrText.empty()) {
        clear.value.clear();
        return true;
    }
    const bool bBound = IsBound(tstrText);
    Bytes bytes;
    dwError = ERROR_INVALID_DATA;
    if (!FromBase64(tstrText.substr(bBound ? kBoundPrefix.size() : 0), bytes) || bytes.size() < kNonceBytes + kTagBytes)
        return false;

    std::string strBinding = bBound ? String::ToUtf8(path.Folded()) : std::string();
    Sealed sealed(bytes, strBinding);
    Secret<std::string> utf8;
    utf8.value.resize(sealed.CipherBytes());
    ULONG cbDone = 0;
    return Ok(::BCryptDecrypt(m_hKey.Get(), sealed.Cipher(), sealed.CipherBytes(), sealed.Info(), nullptr, 0,
                              reinterpret_cast<PUCHAR>(utf8.value.data()), sealed.CipherBytes(), &cbDone, 0),
              dwError) &&
           String::FromUtf8(utf8.value, clear.value);
}

}  // namespace Config
