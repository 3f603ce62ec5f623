#include "check/Verify.h"

#include "check/ErrorWords.h"
#include "check/Instructions.h"

#include "agent/ComponentFiles.h"
#include "agent/FileOperations.h"
#include "agent/PathValues.h"
#include "agent/RunOnce.h"
#include "agent/SettingsFiles.h"
#include "common/KzComn_File.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"
#include "config/ConfigDefaults.h"

#include <set>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::wstring_view kComponents = L"Component\\";

/// An INI value as Windows reads it back: without the blanks and the pair of quotes around it.
std::wstring ReadBack(const std::wstring& tstrValue)
{
    const std::size_t uBegin = tstrValue.find_first_not_of(L" \t");
    if (uBegin == std::wstring::npos) return {};
    std::wstring tstrText = tstrValue.substr(uBegin, tstrValue.find_last_not_of(L" \t") + 1 - uBegin);
    const bool bQuoted = tstrText.size() > 1 && (tstrText.front() == L'"' || tstrText.front() == L'\'') &&
                         tstrText.front() == tstrText.back();
    return bQuoted ? tstrText.substr(1, tstrText.size() - 2) : tstrText;
}

/// The data of a registry value in words.
std::wstring DescribeValue(RegistryType eType, const std::wstring& tstrText, ULONGLONG ullNumber)
{
    if (eType == RegistryType::eText) return L"\"" + tstrText + L"\"";
    return std::wstring(WordOf(eType)) + L" " + std::to_wstring(ullNumber);
}

/// A registry value as it is, of one of the types that an update writes.
struct FoundValue {
    DWORD dwError = ERROR_SUCCESS;  ///< why it cannot be read as any of them
    RegistryType eType = RegistryType::eUnknown;
    std::wstring tstrText;
    ULONGLONG ullNumber = 0;

    [[nodiscard]] bool IsThere() const noexcept
    {
        return dwError != ERROR_FILE_NOT_FOUND && dwError != ERROR_PATH_NOT_FOUND;
    }
};

FoundValue ReadRegistryValue(const std::wstring& tstrKeyPath, const std::wstring& tstrName)
{
    FoundValue found;
    const auto read = [&](RegistryType eType, auto& value) {
        if (!Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, tstrKeyPath, tstrName, value, Storage::eViewDefault,
                                     &found.dwError)) {
            return false;
        }
        found.eType = eType;
        return true;
    };
    DWORD dwNumber = 0;
    if (read(RegistryType::eText, found.tstrText) || !found.IsThere()) return found;
    if (read(RegistryType::eDword, dwNumber)) {
        found.ullNumber = dwNumber;
    } else {
        static_cast<void>(read(RegistryType::eQword, found.ullNumber));
    }
    return found;
}

/// Looks promises up one by one.
class Verifier {
public:
    Verifier(const Promises& promises, Machine& machine) : m_promises(promises), m_machine(machine)
    {
        m_paths.ReadLogFolders();
        for (const FilePromise& file : m_promises.files) {
            if (IsInItsLanguage(file)) m_chosen.insert(LowerCase(file.tstrPlace));
        }
    }

    std::vector<Answer> Verify()
    {
        for (const std::wstring& tstrFolder : m_promises.folders) VerifyFolder(tstrFolder);
        for (const FilePromise& file : m_promises.files) {
            if (!IsForThisMachine(file)) continue;
            VerifyFile(file);
            Destination destination;
            if (ParseDestination(file.tstrPlace, false, destination)) {
                m_brought.insert(LowerCase(m_machine.folders.PathOf(destination)));
            }
        }
        for (const DeletionPromise& deletion : m_promises.deletions) VerifyDeletion(deletion);
        for (const RegistryPromise& value : m_promises.registry) VerifyValue(value);
        for (const IniPromise& value : m_promises.updateInfo) VerifyUpdateInfo(value);
        for (const CommandPromise& command : m_promises.commands) VerifyCommand(command);
        return std::move(m_answers);
    }

private:
    void Add(Verdict eVerdict, const std::wstring& tstrWhat, const std::wstring& tstrDetail = {})
    {
        m_answers.push_back({eVerdict, tstrWhat, tstrDetail});
    }

    /// The full path of a place; empty, with an answer, when it is not to be looked at.
    std::wstring Resolve(const std::wstring& tstrPlace, bool bPattern)
    {
        Destination destination;
        if (!ParseDestination(tstrPlace, bPattern, destination)) {
            Add(Verdict::eRefused, tstrPlace, L"no place below a folder of the product");
            return {};
        }
        std::wstring tstrPath = m_machine.folders.PathOf(destination);
        if (tstrPath.empty()) {
            Add(Verdict::eRefused, tstrPlace, L"this machine has no such folder");
        } else if (m_machine.folders.LeadsElsewhere(destination)) {
            Add(Verdict::eRefused, tstrPath, L"a folder above it is a link");
            return {};
        }
        return tstrPath;
    }

    void VerifyFolder(const std::wstring& tstrPlace)
    {
        const std::wstring tstrPath = Resolve(tstrPlace, false);
        if (tstrPath.empty()) return;
        Add(Storage::Directory::IsExisted(tstrPath) ? Verdict::eArrived : Verdict::eMissing, tstrPath);
    }

    /// Of several files for one place that differ by language this machine gets the one of the product's; without one
    /// of that language the one without any.
    [[nodiscard]] bool IsForThisMachine(const FilePromise& file) const
    {
        return file.tstrLanguage.empty() ? !m_chosen.contains(LowerCase(file.tstrPlace)) : IsInItsLanguage(file);
    }
    [[nodiscard]] bool IsInItsLanguage(const FilePromise& file) const
    {
        return !file.tstrLanguage.empty() && String::EqualsNoCase(file.tstrLanguage, m_machine.tstrLanguage);
    }

    void VerifyFile(const FilePromise& file)
    {
        const std::wstring tstrPath = Resolve(file.tstrPlace, false);
        if (tstrPath.empty()) return;
        const Destination source{kInstalledDir, file.tstrSource};
        if (!String::IsBelow(file.tstrSource, kComponents) || !IsRelativeName(file.tstrSource) ||
            m_machine.folders.LeadsElsewhere(source)) {
            return Add(Verdict::eRefused, tstrPath, L"its source is no file of a package: " + file.tstrSource);
        }
        if (m_machine.pending.IsDestination(tstrPath)) return Add(Verdict::eWaiting, tstrPath);
        const std::wstring tstrSource = m_machine.folders.PathOf(source);
        std::wstring tstrDetail;
        const Verdict eVerdict = JudgeFile(tstrPath, tstrSource, file, tstrDetail);
        // Only what is moved leaves the download folder.
        const bool bLeft =
            eVerdict != Verdict::eArrived && file.bAtRestart && Storage::File::IsExisted(LongPath(tstrSource));
        Add(bLeft ? Verdict::eLeftInDownload : eVerdict, tstrPath,
            bLeft && eVerdict == Verdict::eMissing ? L"nothing is there" : tstrDetail);
    }

    /// Whether a file is there with its content. Of one whose content is not promised, the file that is still in the
    /// download folder tells it; once that is gone, it has been moved.
    Verdict JudgeFile(const std::wstring& tstrPath, const std::wstring& tstrSource, const FilePromise& file,
                      std::wstring& tstrDetail)
    {
        DWORD dwError = ERROR_SUCCESS;
        bool bSame = true;
        bool bRead = true;
        Content content;
        ULONGLONG ullSize = 0;
        // Settings change in use: the copy that a move from another drive leaves behind says nothing of them.
        const bool bBySource = !file.optSettings || IsSameDrive(tstrSource, tstrPath);
        if (file.optContent) {
            bRead = m_reader.Compare(tstrPath, *file.optContent, bSame, &dwError);
        } else if (bBySource && m_reader.Read(tstrSource, content, nullptr)) {
            bRead = m_reader.Compare(tstrPath, content, bSame, &dwError);
        } else if (file.optSettings) {
            bRead = JudgeSettings(tstrPath, *file.optSettings, tstrDetail, &dwError);
            bSame = tstrDetail.empty();
        } else {
            bRead = m_reader.ReadSize(tstrPath, ullSize, &dwError);
        }
        if (bRead) {
            if (!bSame && tstrDetail.empty()) tstrDetail = L"another content";
            return bSame ? Verdict::eArrived : Verdict::eDifferent;
        }
        if (dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND) return Verdict::eMissing;
        tstrDetail = WordsOf(dwError);
        return Verdict::eDifferent;
    }

    /// False with the code when the file cannot be read.
    bool JudgeSettings(const std::wstring& tstrPath, const SettingsPromise& settings, std::wstring& tstrDetail,
                       DWORD* pdwError) const
    {
        std::string strMerged;
        std::string strKept;
        if (!ContentReader::ReadWhole(tstrPath, Config::kMaxFileBytes, strMerged, pdwError)) return false;
        if (!settings.carriedOver.empty()) {
            static_cast<void>(
                ContentReader::ReadWhole(NewestKeptFile(tstrPath), Config::kMaxFileBytes, strKept, nullptr));
        }
        tstrDetail = WhyNotMerged(settings, strMerged, strKept);
        return true;
    }

    /// Whether a file is one that a run keeps for the user: a pattern that happens to match it does not delete it.
    bool IsKept(const std::wstring& tstrPath, const std::wstring& tstrPattern) const
    {
        return tstrPattern.find_first_of(L"*?") != std::wstring::npos &&
               IsKeptFileFor(m_machine.folders.InstalledDir() + L"config.xml", tstrPath);
    }

    void VerifyDeletion(const DeletionPromise& deletion)
    {
        Destination destination;
        const bool bPlace = ParseDestination(deletion.tstrPlace, !deletion.bFolder, destination);
        // A log folder that is not set: the agent refuses the record, so that nothing was promised.
        if (bPlace && m_machine.folders.FolderOf(destination.tstrPlaceholder).empty()) return;
        const std::wstring tstrPath = Resolve(deletion.tstrPlace, !deletion.bFolder);
        if (tstrPath.empty()) return;
        const FileRecord record = ParseFileRecord(deletion.bFolder ? op_dir_delete : op_file_delete, tstrPath);
        if (record.eRefusal != FileRefusal::eNone) return;
        if (deletion.bFolder) return VerifyNoFolder(record.tstrFolder);
        std::size_t cLeft = 0;
        static_cast<void>(Storage::Directory::ForEachEntry(
            LongPath(record.tstrFolder), record.tstrPattern,
            [&](const Storage::Directory::Entry& entry) {
                const std::wstring tstrFile = record.tstrFolder + entry.tstrName;
                if (entry.bFolder || m_brought.contains(LowerCase(tstrFile)) || IsKept(tstrFile, record.tstrPattern))
                    return;
                ++cLeft;
                Add(m_machine.pending.IsDeleted(tstrFile) ? Verdict::eWaiting : Verdict::eNotDeleted, tstrFile);
            },
            nullptr));
        if (cLeft == 0) Add(Verdict::eDeleted, tstrPath);
    }

    /// Everything below a folder is to be gone but what the update brought.
    void VerifyNoFolder(const std::wstring& tstrFolder)
    {
        if (!Storage::Directory::IsExisted(tstrFolder)) return Add(Verdict::eDeleted, tstrFolder);
        std::size_t cLeft = 0;
        std::size_t cWaiting = 0;
        bool bBrought = false;
        const auto count = [&](const std::wstring& tstrPath) {
            ++cLeft;
            if (m_machine.pending.IsDeleted(tstrPath)) ++cWaiting;
        };
        std::vector<std::wstring> folders;
        if (!Storage::Directory::IsLink(tstrFolder)) folders.push_back(tstrFolder);
        while (!folders.empty()) {
            const std::wstring tstrListed = std::move(folders.back());
            folders.pop_back();
            static_cast<void>(Storage::Directory::ForEachEntry(
                LongPath(tstrListed), L"*",
                [&](const Storage::Directory::Entry& entry) {
                    const std::wstring tstrPath = tstrListed + entry.tstrName;
                    if (entry.bFolder && !entry.bLink) return folders.push_back(tstrPath + L"\\");
                    if (m_brought.contains(LowerCase(tstrPath)) || IsKept(tstrPath, L"*")) {
                        bBrought = true;
                    } else {
                        count(tstrPath);
                    }
                },
                nullptr));
        }
        const std::size_t cFiles = cLeft;
        if (!bBrought) count(tstrFolder);
        if (cLeft == 0) return Add(Verdict::eDeleted, tstrFolder);
        Add(cWaiting == cLeft ? Verdict::eWaiting : Verdict::eNotDeleted, tstrFolder,
            std::to_wstring(cFiles) + (cFiles == 1 ? L" file" : L" files"));
    }

    void VerifyValue(const RegistryPromise& value)
    {
        const std::wstring tstrWhat = L"HKEY_LOCAL_MACHINE\\" + value.tstrKeyPath + L": " +
                                      (value.tstrValueName.empty() ? L"(unnamed)" : value.tstrValueName);
        const FoundValue found = ReadRegistryValue(value.tstrKeyPath, value.tstrValueName);
        std::wstring tstrText = value.tstrData;
        if (value.eType == RegistryType::eText) Expand(tstrText);
        if (IsRight(value, found, tstrText)) return Add(Verdict::eValueRight, tstrWhat);
        if (value.bUnlessLiteral) {
            const FoundValue literal = ReadRegistryValue(value.tstrKeyPath, L"(Default)");
            if (literal.dwError == ERROR_SUCCESS && literal.eType == value.eType) {
                return Add(Verdict::eValueRight, tstrWhat);
            }
        }
        std::wstring tstrIs = L"not there";
        if (found.IsThere()) tstrIs = L"of another type";
        if (found.dwError == ERROR_ACCESS_DENIED) tstrIs = WordsOf(found.dwError);
        if (found.dwError == ERROR_SUCCESS) tstrIs = DescribeValue(found.eType, found.tstrText, found.ullNumber);
        const std::wstring tstrPromised = value.eState == ValueState::eAbsent
                                              ? std::wstring(L"none")
                                              : DescribeValue(value.eType, tstrText, value.ullData);
        Add(Verdict::eValueDiffers, tstrWhat, L"promised " + tstrPromised + L", is " + tstrIs);
    }

    static bool IsRight(const RegistryPromise& value, const FoundValue& found, const std::wstring& tstrText)
    {
        if (value.eState == ValueState::eAbsent) return !found.IsThere();
        if (found.dwError != ERROR_SUCCESS || found.eType != value.eType) return false;
        if (value.eState == ValueState::eAnyData) return true;
        return value.eType == RegistryType::eText ? found.tstrText == tstrText : found.ullNumber == value.ullData;
    }

    /// Expands as the run did: the download folder is the one of the promises, whatever is installed by now.
    void Expand(std::wstring& tstrText) const
    {
        const std::wstring& tstrDownload = m_machine.folders.FolderOf(kDownloadDir);
        if (!tstrDownload.empty()) String::ReplaceAll(tstrText, kDownloadDir, tstrDownload);
        String::ReplaceAll(tstrText, kInstalledDir, m_machine.folders.InstalledDir());
        m_paths.ExpandPlaceholders(tstrText);
    }

    /// Windows takes a command out of its key before it starts it.
    void VerifyCommand(const CommandPromise& command)
    {
        const std::wstring tstrWhat = L"run " + command.tstrCommand;
        if (!command.bRegistered) return Add(Verdict::eMissing, tstrWhat, L"could not be registered");
        if (ReadRegistryValue(kRunOnceKey, command.tstrName).IsThere()) return Add(Verdict::eWaiting, tstrWhat);
        Add(Verdict::eArrived, tstrWhat, L"taken by Windows");
    }

    void VerifyUpdateInfo(const IniPromise& value)
    {
        const std::wstring tstrFile = m_machine.folders.InstalledDir() + kUpdateInfoFile;
        const std::wstring tstrWhat = tstrFile + L": [" + value.tstrSection + L"] " + value.tstrKey;
        std::wstring tstrIs;
        DWORD dwError = ERROR_SUCCESS;
        if (!Storage::Guarded(&dwError, [&] {
                Storage::IniFile updateInfo;
                updateInfo.Open(tstrFile);
                tstrIs = updateInfo.ReadString(value.tstrSection, value.tstrKey, {});
            })) {
            return Add(Verdict::eValueDiffers, tstrWhat, WordsOf(dwError));
        }
        if (tstrIs == ReadBack(value.tstrValue)) return Add(Verdict::eValueRight, tstrWhat);
        if (m_machine.pending.IsDestination(tstrFile)) return Add(Verdict::eWaiting, tstrWhat);
        Add(Verdict::eValueDiffers, tstrWhat,
            L"promised \"" + value.tstrValue + L"\", is " + (tstrIs.empty() ? L"not there" : L"\"" + tstrIs + L"\""));
    }

    const Promises& m_promises;
    Machine& m_machine;
    PathValues m_paths;
    ContentReader m_reader;
    std::set<std::wstring> m_brought;  // full paths of the promised files
    std::set<std::wstring> m_chosen;   // places that have a file of the product's language
    std::vector<Answer> m_answers;
};

}  // namespace

std::vector<Answer> VerifyPromises(const Promises& promises, Machine& machine)
{
    return Verifier(promises, machine).Verify();
}

}  // namespace Check
