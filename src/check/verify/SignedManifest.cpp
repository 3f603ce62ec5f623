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
        if (!keys.emplace_back().Read(strPem, &dwError)) {
            tstrErrors += tstrFile + L": no public key on the curve P-256 in PEM\n";
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
