#include "check/verify/Verify.h"

#include "check/update/ErrorText.h"
#include "check/update/Instructions.h"
#include "check/verify/FoundValue.h"
#include "check/verify/Presence.h"

#include "agent/ComponentFiles.h"
#include "agent/FileOperations.h"
#include "agent/PathValues.h"
#include "agent/SettingsFiles.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "config/ConfigDefaults.h"

#include <algorithm>
#include <set>

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kCreatedSince[] = L"created after the update had arrived";

/// An INI value as Windows reads it: without the spaces and the pair of quotes around it.
std::wstring ReadBack(const std::wstring& tstrValue)
{
    const std::size_t uBegin = tstrValue.find_first_not_of(L" \t");
    if (uBegin == std::wstring::npos) return {};
    std::wstring tstrText = tstrValue.substr(uBegin, tstrValue.find_last_not_of(L" \t") + 1 - uBegin);
    const bool bQuoted = tstrText.size() > 1 && (tstrText.front() == L'"' || tstrText.front() == L'\'') &&
                         tstrText.front() == tstrText.back();
    return bQuoted ? tstrText.substr(1, tstrText.size() - 2) : tstrText;
}

/// Whether a path can be a staged copy beside a file's place: the place followed by a number.
bool IsStagedFor(const std::wstring& tstrPath, const std::wstring& tstrPlace)
{
    if (tstrPath.size() <= tstrPlace.size() || !String::StartsWithNoCase(tstrPath, tstrPlace)) return false;
    return tstrPath.find_first_not_of(L"0123456789", tstrPlace.size()) == std::wstring::npos;
}

/// The result of checking one file.
struct Judgement {
    Verdict eVerdict = Verdict::eUnknown;
    std::wstring tstrDetail;
    bool bContentKnown = false;  ///< its content was compared, not only its existence
    bool bValuesKnown = false;   ///< the carried-over values were compared with the file kept for the user
};

/// Checks the expected items one by one.
class Verifier {
public:
    Verifier(const ExpectedState& expected, VerifyContext& context) : m_expected(expected), m_context(context)
    {
        m_paths.ReadLogFolders();
        for (const ExpectedFile& file : m_expected.files) {
            if (IsInItsLanguage(file)) m_chosen.insert(file.tstrPlace);
        }
    }

    std::vector<VerifyResult> Verify()
    {
        for (const std::wstring& tstrFolder : m_expected.folders) VerifyFolder(tstrFolder);
        for (const ExpectedFile& file : m_expected.files) {
            if (!IsForThisMachine(file)) continue;
            VerifyFile(file);
            Destination destination;
            if (ParseDestination(file.tstrPlace, false, destination)) {
                m_brought.insert(m_context.folders.PathOf(destination));
            }
        }
        for (const ExpectedDeletion& deletion : m_expected.deletions) VerifyDeletion(deletion);
        for (const ExpectedValue& value : m_expected.registry) VerifyValue(value);
        for (const ExpectedIniKey& value : m_expected.updateInfo) VerifyUpdateInfo(value);
        if (!HasRun()) DoubtFiles();
        return std::move(m_results);
    }

private:
    void Add(Verdict eVerdict, const std::wstring& tstrWhat, const std::wstring& tstrDetail = {})
    {
        m_results.push_back({eVerdict, tstrWhat, tstrDetail});
    }

    /// Whether there is evidence that the update ran here: its version in the update information or, if it has none,
    /// anything else that can be checked.
    [[nodiscard]] bool HasRun() const
    {
        if (m_cVersions > 0) return m_cRightVersions == m_cVersions;
        return m_bEvidence && std::all_of(m_results.begin(), m_results.end(),
                                          [](const VerifyResult& result) { return !IsAgainst(result); });
    }

    /// Without evidence that the update ran, matching files may be the older ones.
    void DoubtFiles()
    {
        for (const std::size_t uAnswer : m_doubtful) {
            m_results[uAnswer].eVerdict = Verdict::eUnknown;
            m_results[uAnswer].tstrDetail = L"it may be an older one: there is no evidence that the update ran here";
        }
    }

    /// The full path of a file's place; empty, with a result, if it must not be accessed.
    std::wstring Resolve(const std::wstring& tstrPlace)
    {
        Destination destination;
        return ResolveParsed(tstrPlace, ParseDestination(tstrPlace, false, destination), destination);
    }
    /// Likewise for the place of a record, which may have other spellings.
    std::wstring ResolveRecord(const std::wstring& tstrPlace, bool bPattern)
    {
        Destination destination;
        return ResolveParsed(tstrPlace, m_context.folders.ParseRecordPlace(tstrPlace, bPattern, destination),
                             destination);
    }
    std::wstring ResolveParsed(const std::wstring& tstrPlace, bool bParsed, const Destination& destination)
    {
        if (!bParsed) {
            Add(Verdict::eRefused, tstrPlace, L"not a place below a folder of the product");
            return {};
        }
        std::wstring tstrPath = m_context.folders.PathOf(destination);
        if (tstrPath.empty()) {
            Add(Verdict::eRefused, tstrPlace, L"this machine has no such folder");
        } else if (m_context.folders.LeadsElsewhere(m_context.machine, destination)) {
            Add(Verdict::eRefused, tstrPath, L"a folder above it is a link");
            return {};
        }
        return tstrPath;
    }

    void VerifyFolder(const std::wstring& tstrPlace)
    {
        const std::wstring tstrPath = ResolveRecord(tstrPlace, false);
        if (tstrPath.empty()) return;
        DWORD dwError = ERROR_SUCCESS;
        const DWORD dwAttributes = AttributesOf(m_context.machine, tstrPath, dwError);
        if (dwError != ERROR_SUCCESS && !MeansNothingThere(dwError)) {
            return Add(Verdict::eUnknown, tstrPath, DescribeError(dwError));
        }
        const bool bFolder = dwError == ERROR_SUCCESS && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY);
        Add(bFolder ? Verdict::eArrived : Verdict::eMissing, tstrPath);
    }

    /// Of several files for one place, the machine gets the one in the product's language, otherwise the one without a
    /// language.
    [[nodiscard]] bool IsForThisMachine(const ExpectedFile& file) const
    {
        return file.tstrLanguage.empty() ? !m_chosen.contains(file.tstrPlace) : IsInItsLanguage(file);
    }
    [[nodiscard]] bool IsInItsLanguage(const ExpectedFile& file) const
    {
        return !file.tstrLanguage.empty() && String::EqualsNoCase(file.tstrLanguage, m_context.tstrLanguage);
    }

    void VerifyFile(const ExpectedFile& file)
    {
        const std::wstring tstrPath = Resolve(file.tstrPlace);
        if (tstrPath.empty()) return;
        const Destination source{kInstalledDir, file.tstrSource};
        if (!String::IsBelow(file.tstrSource, kComponents) || !IsRelativeName(file.tstrSource) ||
            m_context.folders.LeadsElsewhere(m_context.machine, source)) {
            return Add(Verdict::eRefused, tstrPath, L"its source is not a file of a package: " + file.tstrSource);
        }
        const std::wstring tstrSource = m_context.folders.PathOf(source);
        const PendingFate fate = m_context.pending.After(tstrPath);
        if (IsWaiting(file, tstrSource, tstrPath, fate)) return Add(Verdict::eWaiting, tstrPath);
        Judgement judgement = JudgeFile(tstrPath, tstrSource, file);
        if (IsOverruled(judgement, tstrPath, fate)) return;
        if (judgement.eVerdict != Verdict::eArrived && IsInAnotherLanguage(file, tstrPath, fate)) return;
        const bool bThere = judgement.eVerdict == Verdict::eArrived;
        if (!bThere && fate.bProtected) judgement.tstrDetail = L"read-only, so the restart does not replace it";
        // Only moved files leave the download folder.
        if (!bThere && file.bAtRestart && m_context.machine.HasFile(LongPath(tstrSource))) {
            if (judgement.eVerdict == Verdict::eMissing) judgement.tstrDetail = L"nothing is there";
            judgement.eVerdict = Verdict::eLeftInDownload;
        }
        if (bThere && judgement.bContentKnown) m_bEvidence = true;
        if (bThere && !judgement.bContentKnown) m_doubtful.push_back(m_results.size());
        Add(judgement.eVerdict, tstrPath, judgement.tstrDetail);
        const bool bUsersValues = file.optSettings && !file.optSettings->carriedOver.empty();
        if (!bThere || !bUsersValues || judgement.bValuesKnown) return;
        std::wstring tstrTags;
        for (const std::wstring& tstrTag : file.optSettings->carriedOver) tstrTags += L" " + tstrTag;
        Add(Verdict::eNotCovered, tstrPath, L"the user's values, which change in use:" + tstrTags);
    }

    /// Adds a result if a place has, or will have, the update's file for another language: then the product's language
    /// has been changed since the deployment.
    bool IsInAnotherLanguage(const ExpectedFile& expected, const std::wstring& tstrPath, const PendingFate& fate)
    {
        for (const ExpectedFile& file : m_expected.files) {
            if (!String::EqualsNoCase(file.tstrPlace, expected.tstrPlace) || IsForThisMachine(file)) continue;
            const std::wstring tstrSource = m_context.folders.PathOf({kInstalledDir, file.tstrSource});
            const std::wstring tstrDetail =
                (file.tstrLanguage.empty() ? L"the one for other languages" : L"the one for " + file.tstrLanguage) +
                L"; the product's language is " + m_context.tstrLanguage + L" now";
            if (file.optContent && IsWaiting(file, tstrSource, tstrPath, fate)) {
                Add(Verdict::eWaiting, tstrPath, tstrDetail);
                return true;
            }
            const bool bComparable = file.optContent || file.optSettings;
            if (!bComparable || JudgeFile(tstrPath, tstrSource, file).eVerdict != Verdict::eArrived) continue;
            m_bEvidence = true;
            Add(Verdict::eChangedSince, tstrPath, tstrDetail);
            return true;
        }
        return false;
    }

    /// Whether somebody created a file or folder after the update had arrived. GetFileAttributesExW.
    [[nodiscard]] bool IsNewer(const std::wstring& tstrPath) const
    {
        WIN32_FILE_ATTRIBUTE_DATA data = {};
        return m_context.optArrived &&
               ::GetFileAttributesExW(LongPath(tstrPath).c_str(), GetFileExInfoStandard, &data) &&
               ULARGE_INTEGER{{data.ftCreationTime.dwLowDateTime, data.ftCreationTime.dwHighDateTime}}.QuadPart >
                   *m_context.optArrived;
    }

    /// Whether the file that the restart moves to a place is the expected one. A file with unknown content is
    /// identified by its path: in the download folder, or staged beside its place.
    bool IsWaiting(const ExpectedFile& file, const std::wstring& tstrSource, const std::wstring& tstrPath,
                   const PendingFate& fate)
    {
        if (fate.eKind != PendingFate::Kind::eTaken) return false;
        const bool bOwn = String::EqualsNoCase(fate.tstrFrom, tstrSource) || IsStagedFor(fate.tstrFrom, tstrPath);
        if (!file.optContent) return bOwn;
        const Verdict eVerdict = JudgeFile(fate.tstrFrom, tstrSource, file).eVerdict;
        return eVerdict == Verdict::eArrived || (eVerdict == Verdict::eUnknown && bOwn);
    }

    /// Adds a result for a file if the pending moves matter more than the current state; otherwise false.
    bool IsOverruled(const Judgement& judgement, const std::wstring& tstrPath, const PendingFate& fate)
    {
        const bool bThere = judgement.eVerdict == Verdict::eArrived;
        if (fate.eKind == PendingFate::Kind::eGone && (bThere || fate.bMovedTo)) {
            Add(Verdict::eToBeDeleted, tstrPath, L"at the restart");
        } else if (fate.eKind == PendingFate::Kind::eTaken && bThere) {
            Add(Verdict::eToBeReplaced, tstrPath, L"at the restart, by " + fate.tstrFrom);
        } else if (fate.bLost && !(bThere && judgement.bContentKnown)) {
            Add(Verdict::eMissing, tstrPath, L"the file that the restart should move there is missing");
        } else {
            return false;
        }
        return true;
    }

    /// Whether a file exists with its content. If its content is unknown, it is compared with the file in the download
    /// folder; if that no longer exists, it has been moved.
    Judgement JudgeFile(const std::wstring& tstrPath, const std::wstring& tstrSource, const ExpectedFile& file)
    {
        DWORD dwError = ERROR_SUCCESS;
        bool bSame = true;
        bool bRead = true;
        Judgement judgement;
        Content content;
        ULONGLONG ullSize = 0;
        // Settings change in use, so the copy that a move from another drive leaves behind cannot be compared.
        const bool bBySource = !file.optSettings || IsSameDrive(tstrSource, tstrPath);
        if (file.optContent) {
            bRead = m_context.contents.Compare(tstrPath, *file.optContent, bSame, &dwError);
            judgement.bContentKnown = true;
        } else if (bBySource && m_context.contents.Read(tstrSource, content, nullptr)) {
            bRead = m_context.contents.Compare(tstrPath, content, bSame, &dwError);
            judgement.bContentKnown = true;
        } else if (file.optSettings) {
            bRead = JudgeSettings(tstrPath, *file.optSettings, judgement, &dwError);
            bSame = judgement.tstrDetail.empty();
        } else {
            bRead = m_context.contents.ReadSize(tstrPath, ullSize, &dwError);
        }
        if (bRead) {
            if (!bSame && judgement.tstrDetail.empty()) judgement.tstrDetail = L"another content";
            judgement.eVerdict = bSame ? Verdict::eArrived : Verdict::eDifferent;
        } else if (dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND) {
            judgement.eVerdict = Verdict::eMissing;
        } else {
            // A visible object of another kind has another content; an inaccessible file may have any.
            const bool bSeen =
                dwError == ERROR_DIRECTORY || dwError == ERROR_CANT_ACCESS_FILE || dwError == ERROR_FILE_TOO_LARGE;
            judgement.eVerdict = bSeen ? Verdict::eDifferent : Verdict::eUnknown;
            judgement.tstrDetail = DescribeError(dwError);
        }
        return judgement;
    }

    /// False with the code when the file is unreadable.
    bool JudgeSettings(const std::wstring& tstrPath, const ExpectedSettings& settings, Judgement& judgement,
                       DWORD* pdwError) const
    {
        std::string strMerged;
        std::string strKept;
        if (!m_context.contents.ReadWhole(tstrPath, Config::kMaxFileBytes, strMerged, pdwError)) return false;
        if (!settings.carriedOver.empty()) {
            static_cast<void>(m_context.contents.ReadWhole(NewestKeptFile(m_context.machine, tstrPath),
                                                           Config::kMaxFileBytes, strKept, nullptr));
        }
        judgement.tstrDetail = WhyNotMerged(settings, strMerged, strKept);
        judgement.bValuesKnown = !strKept.empty();
        return true;
    }

    /// Whether a run keeps the file for the user: a matching pattern does not delete it.
    bool IsKept(const std::wstring& tstrPath, const std::wstring& tstrPattern) const
    {
        return tstrPattern.find_first_of(L"*?") != std::wstring::npos &&
               IsKeptFileFor(m_context.folders.InstalledDir() / L"config.xml", tstrPath);
    }

    void VerifyDeletion(const ExpectedDeletion& deletion)
    {
        Destination destination;
        const bool bPlace = m_context.folders.ParseRecordPlace(deletion.tstrPlace, !deletion.bFolder, destination);
        // A log folder that is not set: the agent refuses the record, so nothing is expected.
        if (bPlace && !m_context.folders.FolderOf(destination.tstrPlaceholder).IsKnown()) return;
        const std::wstring tstrPath = ResolveRecord(deletion.tstrPlace, !deletion.bFolder);
        if (tstrPath.empty()) return;
        const FileRecord record = ParseFileRecord(deletion.bFolder ? op_dir_delete : op_file_delete, tstrPath);
        if (record.eRefusal != FileRefusal::eNone) return;
        if (deletion.bFolder) return VerifyNoFolder(record.tstrFolder);
        std::size_t cLeft = 0;
        const DWORD dwError = List(record.tstrFolder, record.tstrPattern, [&](const Storage::Directory::Entry& entry) {
            const std::wstring tstrFile = record.tstrFolder + entry.tstrName;
            if (entry.bFolder || m_brought.contains(tstrFile) || IsKept(tstrFile, record.tstrPattern)) return;
            ++cLeft;
            if (m_context.pending.IsGone(tstrFile)) return Add(Verdict::eWaiting, tstrFile);
            if (IsNewer(tstrFile)) return Add(Verdict::eChangedSince, tstrFile, kCreatedSince);
            Add(Verdict::eNotDeleted, tstrFile);
        });
        if (dwError != ERROR_SUCCESS) return Add(Verdict::eUnknown, tstrPath, DescribeError(dwError));
        if (cLeft == 0) Add(Verdict::eDeleted, tstrPath);
    }

    /// Lists a folder. ERROR_SUCCESS also for a missing folder; otherwise why its contents are unknown.
    template <class Visit>
    DWORD List(const std::wstring& tstrFolder, const std::wstring& tstrPattern, Visit&& visit) const
    {
        DWORD dwError = ERROR_SUCCESS;
        const bool bListed = m_context.machine.ForEachEntry(LongPath(tstrFolder), tstrPattern, visit, &dwError);
        return bListed || MeansNothingThere(dwError) ? DWORD{ERROR_SUCCESS} : dwError;
    }

    /// Everything below a folder must be deleted except the update's own files.
    void VerifyNoFolder(const std::wstring& tstrFolder)
    {
        DWORD dwUnknown = ERROR_SUCCESS;
        const DWORD dwAttributes = AttributesOf(m_context.machine, tstrFolder, dwUnknown);
        if (dwUnknown != ERROR_SUCCESS && !MeansNothingThere(dwUnknown)) {
            return Add(Verdict::eUnknown, tstrFolder, DescribeError(dwUnknown));
        }
        if (dwUnknown != ERROR_SUCCESS || !(dwAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
            return Add(Verdict::eDeleted, tstrFolder);
        }
        std::size_t cLeft = 0;
        std::size_t cWaiting = 0;
        std::size_t cNewer = 0;
        bool bBrought = false;
        const auto count = [&](const std::wstring& tstrPath) {
            const bool bWaiting = m_context.pending.IsGone(tstrPath);
            if (!bWaiting && IsNewer(tstrPath)) return void(++cNewer);
            ++cLeft;
            if (bWaiting) ++cWaiting;
        };
        std::vector<std::wstring> folders;
        if (!m_context.machine.IsLink(tstrFolder)) folders.push_back(tstrFolder);
        dwUnknown = ERROR_SUCCESS;
        while (!folders.empty()) {
            const std::wstring tstrListed = std::move(folders.back());
            folders.pop_back();
            const DWORD dwError = List(tstrListed, L"*", [&](const Storage::Directory::Entry& entry) {
                const std::wstring tstrPath = tstrListed + entry.tstrName;
                if (entry.bFolder && !entry.bLink) return folders.push_back(tstrPath + L"\\");
                if (m_brought.contains(tstrPath) || IsKept(tstrPath, L"*")) {
                    bBrought = true;
                } else {
                    count(tstrPath);
                }
            });
            if (dwUnknown == ERROR_SUCCESS) dwUnknown = dwError;
        }
        const std::size_t cFiles = cLeft;
        if (dwUnknown != ERROR_SUCCESS && cWaiting == cLeft) {
            return Add(Verdict::eUnknown, tstrFolder, DescribeError(dwUnknown));
        }
        if (!bBrought) count(tstrFolder);
        if (cLeft == 0) {
            return cNewer > 0 ? Add(Verdict::eChangedSince, tstrFolder, kCreatedSince)
                              : Add(Verdict::eDeleted, tstrFolder);
        }
        Add(cWaiting == cLeft ? Verdict::eWaiting : Verdict::eNotDeleted, tstrFolder,
            std::to_wstring(cFiles) + (cFiles == 1 ? L" file" : L" files"));
    }

    void VerifyValue(const ExpectedValue& value)
    {
        const std::wstring tstrWhat = L"HKEY_LOCAL_MACHINE\\" + value.tstrKeyPath + L": " +
                                      (value.tstrValueName.empty() ? L"(unnamed)" : value.tstrValueName);
        const FoundValue found = ReadRegistryValue(m_context.machine, value.tstrKeyPath, value.tstrValueName);
        std::wstring tstrText = value.tstrData;
        if (HoldsText(value.eType)) Expand(tstrText);
        if (!found.IsKnown()) return Add(Verdict::eUnknown, tstrWhat, DescribeError(found.dwError));
        if (IsRight(value, found, tstrText)) {
            // A value that stays if it exists, or that is deleted, may already have been in this state.
            return value.eState == ValueState::eData ? AddRight(tstrWhat) : Add(Verdict::eValueRight, tstrWhat);
        }
        if (value.bUnlessLiteral) {
            const FoundValue literal = ReadRegistryValue(m_context.machine, value.tstrKeyPath, L"(Default)");
            if (literal.dwError == ERROR_SUCCESS && literal.eType == value.eType) {
                return AddRight(tstrWhat);
            }
        }
        std::wstring tstrIs = found.IsThere() ? L"of another type" : L"not there";
        if (found.dwError == ERROR_SUCCESS) tstrIs = DescribeValue(found.eType, found.tstrText, found.ullNumber);
        const std::wstring tstrPromised = value.eState == ValueState::eAbsent
                                              ? std::wstring(L"none")
                                              : DescribeValue(value.eType, tstrText, value.ullData);
        Add(Verdict::eValueDiffers, tstrWhat, L"promised " + tstrPromised + L", is " + tstrIs);
    }

    static bool IsRight(const ExpectedValue& value, const FoundValue& found, const std::wstring& tstrText)
    {
        if (value.eState == ValueState::eAbsent) return !found.IsThere();
        if (found.dwError != ERROR_SUCCESS || found.eType != value.eType) return false;
        if (value.eState == ValueState::eAnyData) return true;
        return HoldsText(value.eType) ? found.tstrText == tstrText : found.ullNumber == value.ullData;
    }

    /// Expands placeholders as the run did, with the update's own download folder, even if another version is installed
    /// by now.
    void Expand(std::wstring& tstrText) const
    {
        const std::wstring& tstrDownload = m_context.folders.FolderOf(kDownloadDir);
        if (!tstrDownload.empty()) String::ReplaceAll(tstrText, kDownloadDir, tstrDownload);
        String::ReplaceAll(tstrText, kInstalledDir, m_context.folders.InstalledDir().Text());
        m_paths.ExpandPlaceholders(tstrText);
    }

    void VerifyUpdateInfo(const ExpectedIniKey& value)
    {
        const std::wstring tstrFile = m_context.folders.InstalledDir() / kUpdateInfoFile;
        const std::wstring tstrWhat = tstrFile + L": [" + value.tstrSection + L"] " + value.tstrKey;
        const std::wstring tstrPromised = ReadBack(value.tstrValue);
        std::wstring tstrIs;
        DWORD dwError = ERROR_SUCCESS;
        const bool bRead = ReadUpdateInfo(tstrFile, value, tstrIs, dwError);
        const bool bRight = bRead && tstrIs == tstrPromised;
        // Many updates set the same version of the agent.
        const ::IniRecord own = DeployedVersion();
        const bool bOwn = String::EqualsNoCase(value.tstrKey, own.tstrKey);
        if (!bOwn && IsVersionKey(value.tstrKey)) {
            ++m_cVersions;
            if (bRight) ++m_cRightVersions;
        }
        if (bRight) return bOwn ? Add(Verdict::eValueRight, tstrWhat) : AddRight(tstrWhat);
        const PendingFate fate = m_context.pending.After(tstrFile);
        std::wstring tstrThen;
        DWORD dwThen = ERROR_SUCCESS;
        const bool bTaken = fate.eKind == PendingFate::Kind::eTaken;
        if (bTaken && ReadUpdateInfo(fate.tstrFrom, value, tstrThen, dwThen) && tstrThen == tstrPromised) {
            return Add(Verdict::eWaiting, tstrWhat);
        }
        if (!bRead) return Add(Verdict::eUnknown, tstrWhat, DescribeError(dwError));
        Add(Verdict::eValueDiffers, tstrWhat,
            L"promised \"" + value.tstrValue + L"\", is " + (tstrIs.empty() ? L"not there" : L"\"" + tstrIs + L"\""));
    }

    bool ReadUpdateInfo(const std::wstring& tstrFile, const ExpectedIniKey& value, std::wstring& tstrIs,
                        DWORD& dwError) const
    {
        return m_context.machine.ReadIniValue(tstrFile, value.tstrSection, value.tstrKey, {}, tstrIs, &dwError);
    }

    /// Adds a correct value that an older machine may not have.
    void AddRight(const std::wstring& tstrWhat)
    {
        m_bEvidence = true;
        Add(Verdict::eValueRight, tstrWhat);
    }

    const ExpectedState& m_expected;
    VerifyContext& m_context;
    PathValues m_paths{m_context.machine};
    String::NoCaseSet m_brought;  // full paths of the expected files
    String::NoCaseSet m_chosen;   // places with a file in the product's language
    std::vector<VerifyResult> m_results;
    std::vector<std::size_t> m_doubtful;  // results of correct files that may be older ones
    std::size_t m_cVersions = 0;          // number of the update's versions in the update information
    std::size_t m_cRightVersions = 0;
    bool m_bEvidence = false;  // something exists that an older machine may not have
};

}  // namespace

std::vector<VerifyResult> VerifyState(const ExpectedState& expected, VerifyContext& context)
{
    return Verifier(expected, context).Verify();
}

}  // namespace Check
