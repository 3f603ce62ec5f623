#include "check/verify/Signature.h"

#include "check/verify/Sha256.h"

#include "common/KzComn_Result.h"

#include <wincrypt.h>

#include <algorithm>
#include <array>
#include <span>

using namespace KzCommon;

namespace Check {

namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING;
constexpr std::size_t kNumberBytes = 32;  // of each of the two numbers of a signature
constexpr std::size_t kIdDigits = 16;

/// Whether the bytes are one short DER element, with nothing after it: the decoder ignores what follows.
bool IsOneElement(std::string_view strDer)
{
    constexpr std::size_t kLongForm = 0x80;
    const std::size_t cb = strDer.size() < 2 ? kLongForm : static_cast<unsigned char>(strDer[1]);
    return cb < kLongForm && strDer.size() == 2 + cb;
}

/// Decodes DER; null for anything else. CryptDecodeObjectEx.
template <class Structure>
std::unique_ptr<Structure, decltype(&::LocalFree)> Decode(LPCSTR szStructure, std::string_view strDer)
{
    void* pDecoded = nullptr;
    DWORD cb = 0;
    const bool bOk =
        IsOneElement(strDer) &&
        ::CryptDecodeObjectEx(kEncoding, szStructure, reinterpret_cast<const BYTE*>(strDer.data()),
                              static_cast<DWORD>(strDer.size()), CRYPT_DECODE_ALLOC_FLAG, nullptr, &pDecoded, &cb);
    return {bOk ? static_cast<Structure*>(pDecoded) : nullptr, &::LocalFree};
}

/// Whether a key is one for ECDSA, with its curve by name, and that is P-256 (1.2.840.10045.3.1.7).
bool IsOnP256(const CERT_PUBLIC_KEY_INFO& info)
{
    constexpr BYTE kCurve[] = {0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
    const CRYPT_OBJID_BLOB& curve = info.Algorithm.Parameters;
    return info.Algorithm.pszObjId == std::string_view(szOID_ECC_PUBLIC_KEY) &&
           std::ranges::equal(std::span(curve.pbData, curve.cbData), kCurve);
}

bool DecodePem(std::string_view strPem, std::string& strDer)
{
    DWORD cb = 0;
    const auto cch = static_cast<DWORD>(strPem.size());
    if (!::CryptStringToBinaryA(strPem.data(), cch, CRYPT_STRING_BASE64HEADER, nullptr, &cb, nullptr, nullptr)) {
        return false;
    }
    strDer.resize(cb);
    return ::CryptStringToBinaryA(strPem.data(), cch, CRYPT_STRING_BASE64HEADER, reinterpret_cast<BYTE*>(strDer.data()),
                                  &cb, nullptr, nullptr) != FALSE;
}

/// A number of a signature, the lowest byte first, as the fixed-size number that BCryptVerifySignature takes, the
/// highest byte first. False if it is too large.
bool TakeNumber(const CRYPT_UINT_BLOB& number, UCHAR* pTarget)
{
    std::size_t cb = number.cbData;
    while (cb > 0 && number.pbData[cb - 1] == 0) --cb;
    if (cb > kNumberBytes) return false;
    std::fill_n(pTarget, kNumberBytes, UCHAR{0});
    std::reverse_copy(number.pbData, number.pbData + cb, pTarget + kNumberBytes - cb);
    return true;
}

}  // namespace

void PublicKey::Release::operator()(void* hKey) const noexcept
{
    ::BCryptDestroyKey(hKey);
}

bool PublicKey::Read(std::string_view strPem, DWORD* pdwError)
{
    std::string strDer;
    Content content;
    if (!DecodePem(strPem, strDer)) return Storage::Fail(ERROR_INVALID_DATA, pdwError);
    const auto pInfo = Decode<CERT_PUBLIC_KEY_INFO>(X509_PUBLIC_KEY_INFO, strDer);
    BCRYPT_KEY_HANDLE hKey = nullptr;
    if (!pInfo || !IsOnP256(*pInfo) || !::CryptImportPublicKeyInfoEx2(kEncoding, pInfo.get(), 0, nullptr, &hKey)) {
        return Storage::Fail(ERROR_INVALID_DATA, pdwError);
    }
    m_hKey.reset(hKey);
    if (!ContentReader::HashBytes(strDer, content, pdwError)) return false;
    m_strId = content.strSha256.substr(0, kIdDigits);
    return true;
}

bool PublicKey::HasSigned(std::string_view strBytes, std::string_view strSignature) const
{
    const auto pNumbers = Decode<CERT_ECC_SIGNATURE>(X509_ECC_SIGNATURE, strSignature);
    std::array<UCHAR, 2 * kNumberBytes> numbers{};
    Digest digest{};
    if (!pNumbers || !TakeNumber(pNumbers->r, numbers.data()) ||
        !TakeNumber(pNumbers->s, numbers.data() + kNumberBytes) || !ContentReader::DigestOf(strBytes, digest)) {
        return false;
    }
    return BCRYPT_SUCCESS(::BCryptVerifySignature(m_hKey.get(), nullptr, digest.data(),
                                                  static_cast<ULONG>(digest.size()), numbers.data(),
                                                  static_cast<ULONG>(numbers.size()), 0));
}

}  // namespace Check
