#include "check/verify/SignedManifest.h"

#include "check/update/ErrorText.h"
#include "check/update/LongPath.h"
#include "check/verify/ExpectedState.h"

#include "common/KzComn_File.h"
#include "common/KzComn_WholeFile.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMostKeyBytes = std::size_t{16} * 1024;

/// Reads every block of a PEM file as a key; text before a block is a comment. False without a block, or if
/// a block is not a key on P-256: with only some of the keys a change of keys would seem to be prepared.
bool ReadBlocks(const std::string& strPem, std::vector<PublicKey>& keys)
{
    constexpr std::string_view kBegin = "-----BEGIN ";
    std::size_t uBegin = strPem.find(kBegin);
    if (uBegin == std::string::npos) return false;
    while (uBegin != std::string::npos) {
        const std::size_t uNext = strPem.find(kBegin, uBegin + 1);
        const std::string_view strBlock = std::string_view(strPem).substr(uBegin, uNext - uBegin);
        if (!keys.emplace_back().Read(strBlock, nullptr)) return false;
        uBegin = uNext;
    }
    return true;
}

}  // namespace

bool ReadKeys(const std::vector<std::wstring>& files, std::vector<PublicKey>& keys, std::wstring& tstrErrors)
{
    for (const std::wstring& tstrFile : files) {
        std::string strPem;
        DWORD dwError = ERROR_SUCCESS;
        const std::wstring tstrPath = LongPath(Storage::Directory::FullPath(tstrFile));
        if (!Storage::File::ReadWhole(tstrPath, kMostKeyBytes, strPem, &dwError)) {
            tstrErrors += tstrFile + L": cannot be read: " + DescribeError(dwError) + L"\n";
            return false;
        }
        if (!ReadBlocks(strPem, keys)) {
            tstrErrors += tstrFile + L": not only public keys on the curve P-256 in PEM\n";
            return false;
        }
    }
    return true;
}

const PublicKey* FindSigner(const std::vector<PublicKey>& keys, const std::wstring& tstrManifest,
                            std::string_view strManifest, std::wstring& tstrReason)
{
    std::string strSignature;
    DWORD dwError = ERROR_SUCCESS;
    const std::wstring tstrFile = tstrManifest + kSignatureEnd;
    if (!Storage::File::ReadWhole(tstrFile, kMostSignatureBytes, strSignature, &dwError)) {
        tstrReason = tstrFile + L": " + DescribeError(dwError);
        return nullptr;
    }
    const auto itKey =
        std::ranges::find_if(keys, [&](const PublicKey& key) { return key.HasSigned(strManifest, strSignature); });
    if (itKey != keys.end()) return &*itKey;
    tstrReason = tstrFile + L": of none of the keys, or the manifest has been changed since";
    return nullptr;
}

}  // namespace Check
