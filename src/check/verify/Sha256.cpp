#include "check/verify/Sha256.h"

#include "check/update/LongPath.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_Result.h"
#include "config/ConfigProtection.h"

#include <bcrypt.h>

#include <array>

using namespace KzCommon;
using Storage::Fail;

namespace Check {

namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 20;

struct HashTraits {
    using Handle = BCRYPT_HASH_HANDLE;
    static Handle Empty() noexcept { return nullptr; }
    static void Release(Handle handle) noexcept { ::BCryptDestroyHash(handle); }
};

/// Opens a file, even if it is in use, and returns its size.
bool OpenFile(const std::wstring& tstrPath, UniqueFile& hFile, ULONGLONG& ullSize, DWORD* pdwError)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    // A folder opens only with the backup flag; the attributes then identify it.
    constexpr DWORD kFlags = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN | FILE_FLAG_BACKUP_SEMANTICS;
    hFile.Reset(
        ::CreateFileW(LongPath(tstrPath).c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, kFlags, nullptr));
    // Faster than GetFileInformationByHandle, which also queries the volume of every file.
    FILE_BASIC_INFO attributes{};
    FILE_STANDARD_INFO information{};
    if (!hFile || !::GetFileInformationByHandleEx(hFile.Get(), FileBasicInfo, &attributes, sizeof(attributes)) ||
        !::GetFileInformationByHandleEx(hFile.Get(), FileStandardInfo, &information, sizeof(information))) {
        return Fail(::GetLastError(), pdwError);
    }
    if (attributes.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) return Fail(ERROR_CANT_ACCESS_FILE, pdwError);
    if (information.Directory) return Fail(ERROR_DIRECTORY, pdwError);
    if (::GetFileType(hFile.Get()) != FILE_TYPE_DISK) return Fail(ERROR_CANT_ACCESS_FILE, pdwError);
    ullSize = static_cast<ULONGLONG>(information.EndOfFile.QuadPart);
    return true;
}

std::string ToHex(const Digest& bytes)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string strText;
    for (const UCHAR by : bytes) {
        strText += kDigits[by >> 4];
        strText += kDigits[by & 0xF];
    }
    return strText;
}

/// The algorithm, opened once for all files.
BCRYPT_ALG_HANDLE Sha256()
{
    static const UniqueHandle<Config::AlgorithmTraits> hAlgorithm = [] {
        UniqueHandle<Config::AlgorithmTraits> hOpened;
        static_cast<void>(::BCryptOpenAlgorithmProvider(hOpened.Receive(), BCRYPT_SHA256_ALGORITHM, nullptr, 0));
        return hOpened;
    }();
    return hAlgorithm.Get();
}

/// Hashes the blocks from `read`, which returns bytes and their number (0 at the end), or false with a code.
template <class Read>
bool Hash(Read&& read, ULONGLONG& ullSize, Digest& digest, DWORD* pdwError)
{
    UniqueHandle<HashTraits> hHash;
    if (!Sha256() || !BCRYPT_SUCCESS(::BCryptCreateHash(Sha256(), hHash.Receive(), nullptr, 0, nullptr, 0, 0))) {
        return Fail(ERROR_INTERNAL_ERROR, pdwError);
    }
    ullSize = 0;
    const UCHAR* pBytes = nullptr;
    ULONG cbBlock = 0;
    for (bool bMore = true; bMore; ullSize += cbBlock) {
        if (!read(pBytes, cbBlock, bMore)) return Fail(::GetLastError(), pdwError);
        if (!BCRYPT_SUCCESS(::BCryptHashData(hHash.Get(), const_cast<PUCHAR>(pBytes), cbBlock, 0))) {
            return Fail(ERROR_INTERNAL_ERROR, pdwError);
        }
    }
    return BCRYPT_SUCCESS(::BCryptFinishHash(hHash.Get(), digest.data(), static_cast<ULONG>(digest.size()), 0)) ||
           Fail(ERROR_INTERNAL_ERROR, pdwError);
}

bool HashFile(HANDLE hFile, std::vector<unsigned char>& buffer, Content& content, DWORD* pdwError)
{
    buffer.resize(kBufferBytes);
    const auto read = [&](const UCHAR*& pBytes, ULONG& cbBlock, bool& bMore) {
        pBytes = buffer.data();
        const bool bRead = ::ReadFile(hFile, buffer.data(), static_cast<DWORD>(buffer.size()), &cbBlock, nullptr);
        bMore = cbBlock == buffer.size();  // only the last block is incomplete
        return bRead;
    };
    Digest digest{};
    if (!Hash(read, content.ullSize, digest, pdwError)) return false;
    content.strSha256 = ToHex(digest);
    return true;
}

bool HashBlock(std::string_view strBytes, ULONGLONG& ullSize, Digest& digest, DWORD* pdwError)
{
    const auto read = [&](const UCHAR*& pBytes, ULONG& cbBlock, bool& bMore) {
        pBytes = reinterpret_cast<const UCHAR*>(strBytes.data());
        cbBlock = static_cast<ULONG>(strBytes.size());
        bMore = false;
        return true;
    };
    return Hash(read, ullSize, digest, pdwError);
}

}  // namespace

bool IsSha256(std::string_view strText)
{
    return strText.size() == 2 * std::tuple_size_v<Digest> &&
           strText.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool ContentReader::DigestOf(std::string_view strBytes, Digest& digest)
{
    ULONGLONG ullSize = 0;
    return HashBlock(strBytes, ullSize, digest, nullptr);
}

bool ContentReader::HashBytes(std::string_view strBytes, Content& content, DWORD* pdwError)
{
    Digest digest{};
    if (!HashBlock(strBytes, content.ullSize, digest, pdwError)) return false;
    content.strSha256 = ToHex(digest);
    return true;
}

bool ContentReader::ReadOpen(HANDLE hFile, Content& content, DWORD* pdwError)
{
    return HashFile(hFile, m_buffer, content, pdwError);
}

bool ContentReader::ReadSize(const std::wstring& tstrPath, ULONGLONG& ullSize, DWORD* pdwError)
{
    UniqueFile hFile;
    return OpenFile(tstrPath, hFile, ullSize, pdwError);
}

bool ContentReader::Read(const std::wstring& tstrPath, Content& content, DWORD* pdwError)
{
    UniqueFile hFile;
    ULONGLONG ullSize = 0;
    return OpenFile(tstrPath, hFile, ullSize, pdwError) && HashFile(hFile.Get(), m_buffer, content, pdwError);
}

bool ContentReader::ReadWhole(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes, DWORD* pdwError)
{
    UniqueFile hFile;
    ULONGLONG ullSize = 0;
    if (!OpenFile(tstrPath, hFile, ullSize, pdwError)) return false;
    if (ullSize > cbMost) return Fail(ERROR_FILE_TOO_LARGE, pdwError);
    strBytes.resize(static_cast<std::size_t>(ullSize));
    DWORD cbRead = 0;
    if (!::ReadFile(hFile.Get(), strBytes.data(), static_cast<DWORD>(ullSize), &cbRead, nullptr)) {
        return Fail(::GetLastError(), pdwError);
    }
    strBytes.resize(cbRead);
    return true;
}

bool ContentReader::Compare(const std::wstring& tstrPath, const Content& content, bool& bSame, DWORD* pdwError)
{
    UniqueFile hFile;
    Content found;
    if (!OpenFile(tstrPath, hFile, found.ullSize, pdwError)) return false;
    bSame = false;
    if (found.ullSize != content.ullSize) return true;
    if (!HashFile(hFile.Get(), m_buffer, found, pdwError)) return false;
    bSame = found == content;
    return true;
}

}  // namespace Check
