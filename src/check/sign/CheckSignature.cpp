#include "check/sign/CheckSignature.h"

#include "check/update/ErrorText.h"
#include "check/update/HostPaths.h"
#include "check/update/OpenFolder.h"
#include "check/update/OpenUpdate.h"
#include "check/update/ShownText.h"
#include "check/update/VersionText.h"
#include "check/verify/Manifest.h"
#include "check/verify/Presence.h"
#include "check/verify/SignedManifest.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WholeFile.h"
#include "common/KzComn_WindowsMachine.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

/// Compares the files of an update with the contents of its manifest.
class FileComparison {
public:
    FileComparison(const Update& update, std::vector<std::wstring>& faults) : m_update(update), m_faults(faults) {}

    void CompareAll(const ExpectedState& expected)
    {
        ComparePackage(m_update.Product(), expected.tstrProduct);
        ComparePackage(m_update.Resource(), expected.tstrResource);
        for (const std::wstring& tstrFile : m_update.Files()) {
            if (!m_present.insert(tstrFile).second) m_faults.push_back(tstrFile + L": there twice, in another case");
        }
        for (const UpdateFile& file : expected.contents) {
            m_known.insert(file.tstrFile);
            Compare(file);
        }
        for (const std::wstring& tstrFile : m_update.Files()) {
            if (m_known.contains(tstrFile) || IsManifestOrSignature(m_update, tstrFile)) continue;
            m_faults.push_back(tstrFile + L": not in the manifest");
        }
        if (!m_known.contains(kInstructionFile) && IsThere(kInstructionFile)) {
            m_faults.push_back(std::wstring(kInstructionFile) + L": not in the manifest");
        }
    }

private:
    [[nodiscard]] bool IsThere(const wchar_t* szFile) const
    {
        return ::GetFileAttributesW(m_update.FullPath(szFile).c_str()) != INVALID_FILE_ATTRIBUTES;
    }

    void ComparePackage(const Package& package, const std::wstring& tstrSigned)
    {
        if (String::EqualsNoCase(package.tstrDownloadPath, tstrSigned)) return;
        m_faults.push_back(package.tstrDownloadPath + L": the manifest is for the package " + tstrSigned);
    }

    void Compare(const UpdateFile& file)
    {
        if (!IsInUpdate(file.tstrFile)) return m_faults.push_back(file.tstrFile + L": missing");
        UniqueFile hFile(::CreateFileW(m_update.FullPath(file.tstrFile).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                       OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN | FILE_FLAG_OPEN_REPARSE_POINT,
                                       nullptr));
        DWORD dwError = hFile ? ERROR_SUCCESS : ::GetLastError();
        Content content;
        if (!hFile || !m_reader.ReadOpen(hFile.Get(), content, &dwError)) {
            m_faults.push_back(file.tstrFile + L": " + DescribeError(dwError));
        } else if (content != file.content) {
            m_faults.push_back(file.tstrFile + L": another content than the signed one");
        }
        m_open.push_back(std::move(hFile));
    }

    [[nodiscard]] bool IsInUpdate(const std::wstring& tstrFile) const
    {
        return String::EqualsNoCase(tstrFile, kInstructionFile) || m_present.contains(tstrFile);
    }

    const Update& m_update;
    std::vector<std::wstring>& m_faults;
    String::NoCaseSet m_known;
    String::NoCaseSet m_present;
    std::vector<UniqueFile> m_open;
    ContentReader m_reader;
};

/// A version that is older than the installed one would bring back faults that are known by now.
void CheckVersions(const Arguments& arguments, const ExpectedState& expected, std::vector<std::wstring>& faults)
{
    const WindowsMachine machine;
    const Folder installed(arguments.optInstalled.value_or(Frwk::Utility::GetInstalledFolder(machine)));
    if (!installed.IsKnown() || arguments.bOlder) return;
    for (const ExpectedIniKey& value : expected.updateInfo) {
        std::wstring tstrInstalled;
        DWORD dwError = ERROR_SUCCESS;
        if (!IsVersionKey(value.tstrKey)) continue;
        const bool bRead = machine.ReadIniValue(installed / kUpdateInfoFile, value.tstrSection, value.tstrKey, L"",
                                                tstrInstalled, &dwError);
        // A version that cannot be compared would let an old update pass.
        if (!bRead && !MeansNothingThere(dwError)) {
            return faults.push_back(installed / kUpdateInfoFile + L": the installed version cannot be read: " +
                                    DescribeError(dwError) + L"; --older accepts that");
        }
        if (tstrInstalled.empty() || tstrInstalled == value.tstrValue) continue;
        if (!IsVersion(value.tstrValue) || !IsVersion(tstrInstalled)) {
            faults.push_back(value.tstrKey + L": " + value.tstrValue + L" and the installed " + tstrInstalled +
                             L" cannot be compared; --older accepts that");
        } else if (IsOlderVersion(value.tstrValue, tstrInstalled)) {
            faults.push_back(value.tstrKey + L": " + value.tstrValue + L" is older than the installed " +
                             tstrInstalled + L"; --older accepts it");
        }
    }
}

void CheckPlaces(const Update& update, std::vector<std::wstring>& faults)
{
    for (const DoubtfulPlace& place : ListDoubtfulPlaces(update, RightsOf::eFoldersAndFiles)) {
        faults.push_back(place.tstrPlace + L": " + Describe(place));
    }
}

/// Why an update is not as a signed manifest says, one line each. Every file stays open until the last one is compared,
/// so that no program can change it.
std::vector<std::wstring> CompareUpdate(const Arguments& arguments, const Update& update, std::string_view strManifest)
{
    std::vector<std::wstring> faults;
    ExpectedState expected;
    std::wstring tstrError;
    if (!ParseManifest(strManifest, expected, tstrError)) return {L"the manifest: " + tstrError};
    if (expected.contents.empty()) {
        return {L"the manifest lists no contents: renew it with \"BrevantCheck manifest --into\""};
    }
    FileComparison comparison(update, faults);
    comparison.CompareAll(expected);
    CheckVersions(arguments, expected, faults);
    CheckPlaces(update, faults);
    return faults;
}

}  // namespace

int RunCheckSignature(const Arguments& arguments, Output& output)
{
    Update update;
    std::vector<PublicKey> keys;
    if (arguments.keys.empty()) {
        output.tstrErrors += L"--key FILE is missing\n";
        return kWrongUse;
    }
    if (!OpenUpdate(arguments, update, output) || !ReadKeys(arguments.keys, keys, output.tstrErrors)) {
        return kCannotRead;
    }
    std::string strManifest;
    DWORD dwError = ERROR_SUCCESS;
    const std::wstring tstrManifest = update.FullPath(update.SettingFolder() / kShippedManifest);
    if (!Storage::File::ReadWhole(tstrManifest, kMaxManifestBytes, strManifest, &dwError)) {
        return CannotRead(tstrManifest, dwError, output);
    }
    std::vector<std::wstring> faults;
    std::wstring tstrReason;
    const PublicKey* const pSigner = FindSigner(keys, tstrManifest, strManifest, tstrReason);
    if (pSigner) {
        faults = CompareUpdate(arguments, update, strManifest);
    } else {
        faults.push_back(tstrReason);
    }
    std::wstring tstrText;
    for (const std::wstring& tstrFault : faults) tstrText += OnOneLine(tstrFault) + L"\n";
    tstrText += faults.empty() ? L"signed with key " + String::FromAnsi(pSigner->Id()) + L"\n"
                               : Counted(faults.size(), L"fault", L"faults") + L"\n";
    output.strText = String::ToUtf8(WithHostPaths(tstrText));
    return faults.empty() ? kClean : kFound;
}

}  // namespace Check
