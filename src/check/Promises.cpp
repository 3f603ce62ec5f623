#include "check/Promises.h"

#include "check/Destination.h"
#include "check/simulate/ErrorText.h"
#include "check/Instructions.h"
#include "check/XmlForm.h"

#include "agent/PackageLayout.h"
#include "agent/RunOnce.h"
#include "agent/Sections.h"
#include "agent/SettingsFiles.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_XmlParser.h"

#include <algorithm>
#include <map>

using namespace KzCommon;

namespace Check {

namespace {

RegistryPromise* FindValue(std::vector<RegistryPromise>& registry, const std::wstring& tstrKeyPath,
                           const std::wstring& tstrName)
{
    const auto itValue = std::find_if(registry.begin(), registry.end(), [&](const RegistryPromise& promise) {
        return String::EqualsNoCase(promise.tstrKeyPath, tstrKeyPath) &&
               String::EqualsNoCase(promise.tstrValueName, tstrName);
    });
    return itValue == registry.end() ? nullptr : &*itValue;
}

RegistryPromise& FindOrAddValue(std::vector<RegistryPromise>& registry, const std::wstring& tstrKeyPath,
                                const std::wstring& tstrName)
{
    RegistryPromise* pPromise = FindValue(registry, tstrKeyPath, tstrName);
    if (!pPromise) {
        pPromise = &registry.emplace_back();
        pPromise->tstrKeyPath = tstrKeyPath;
        pPromise->tstrValueName = tstrName;
    }
    return *pPromise;
}

/// Whether "add_if_non" leaves a value alone of which the records before it tell the state: one of the same type,
/// unless its data are those that stand for a missing value.
bool IsLeftAlone(const RegistryPromise& known, const RegistryRecord& record)
{
    if (known.eState == ValueState::eAbsent || known.eType != record.eType) return false;
    RegistryRecord held = record;
    held.tstrData = known.tstrData;
    held.dwData = static_cast<DWORD>(known.ullData);
    held.ullData = known.ullData;
    return known.eState == ValueState::eAnyData || !CountsAsMissing(held);
}

/// Run-once commands do not stay where they are written.
bool LastsAnywhere(const RegistryRecord& record)
{
    return !record.tstrKeyPath.empty() && !String::EqualsNoCase(KeyPathOf(record.tstrKeyPath), kRunOnceKey);
}

void SetData(RegistryPromise& promise, const RegistryRecord& record, ValueState eState)
{
    promise.eState = eState;
    promise.eType = record.eType;
    promise.tstrData.clear();
    promise.ullData = 0;
    switch (record.eType) {
        case RegistryType::eText: promise.tstrData = record.tstrData; break;
        case RegistryType::eDword: promise.ullData = record.dwData; break;
        case RegistryType::eQword: promise.ullData = record.ullData; break;
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: break;
    }
}

void PromiseNoValue(std::vector<RegistryPromise>& registry, const RegistryRecord& record)
{
    if (!LastsAnywhere(record)) return;
    FindOrAddValue(registry, KeyPathOf(record.tstrKeyPath), record.tstrValueName).eState = ValueState::eAbsent;
}

/// Carries a registry record out on what the records before it promise. `bOnlyMissing`: "add_if_non".
void PromiseValue(std::vector<RegistryPromise>& registry, const RegistryRecord& record, bool bOnlyMissing)
{
    if (!IsWritten(record.eType) || !LastsAnywhere(record)) return;
    const std::wstring tstrKeyPath = KeyPathOf(record.tstrKeyPath);
    const RegistryPromise* const pKnown = FindValue(registry, tstrKeyPath, record.tstrValueName);
    if (bOnlyMissing && pKnown && IsLeftAlone(*pKnown, record)) return;
    // Looked for under its literal name, written as the unnamed value.
    const bool bUnnamed = bOnlyMissing && record.tstrValueName == L"(Default)";
    const bool bKnown = pKnown != nullptr;
    RegistryPromise& promise = FindOrAddValue(registry, tstrKeyPath, bUnnamed ? std::wstring() : record.tstrValueName);
    SetData(promise, record, !bOnlyMissing || bUnnamed || bKnown ? ValueState::eData : ValueState::eAnyData);
    promise.bUnlessLiteral = bUnnamed && !bKnown;
}

void PromiseIniValue(std::vector<IniPromise>& updateInfo, const ::IniRecord& record)
{
    if (!record.IsComplete()) return;
    std::erase_if(updateInfo, [&](const IniPromise& promise) {
        return String::EqualsNoCase(promise.tstrSection, record.tstrSection) &&
               String::EqualsNoCase(promise.tstrKey, record.tstrKey);
    });
    updateInfo.push_back({record.tstrSection, record.tstrKey, record.tstrValue});
}

/// Puts together what one update promises.
class Collector {
public:
    Collector(const Update& update, Promises& promises, std::wstring& tstrErrors)
        : m_update(update),
          m_promises(promises),
          m_tstrErrors(tstrErrors),
          m_folders(InstalledFolderOf(update), update.Product().tstrDownloadPath)
    {
    }

    bool Collect()
    {
        m_promises.tstrProduct = m_update.Product().tstrDownloadPath;
        m_promises.tstrResource = m_update.Resource().tstrDownloadPath;
        AddSection(SectionOf(L"QOR_DIR", L"CreateDirBeforeReboot"));
        if (m_update.Product().bThere) AddSection(SectionOf(L"QOR_REGISTRY_PATCH", L"PatchRegistry"));
        AddRows();
        AddDeletions();
        return m_bRead;
    }

private:
    using Row = PackageLayout::CopyRow;

    [[nodiscard]] SectionRecords Read(const Section& section) const
    {
        SectionRecords records;
        static_cast<void>(Storage::Guarded(nullptr, [&] {
            Storage::IniFile instructions;
            instructions.Open(m_update.FullPath(kInstructionFile));
            static_cast<void>(ReadSectionRecords(instructions, section.szName, records));
        }));
        return records;
    }

    /// Where the product is installed, or usually is: a full path below it is one of the product's places.
    static std::wstring InstalledFolderOf(const Update& update)
    {
        const std::wstring tstrRegistered = Frwk::Utility::GetInstalledFolder(WindowsMachine());
        return update.InstalledFolder().value_or(tstrRegistered.empty() ? kUsualInstallFolder : tstrRegistered);
    }

    /// A record's place; nothing, with a line that says so, for one that no manifest can name.
    std::optional<std::wstring> PlaceOf(const std::wstring& tstrRecord, bool bPattern)
    {
        Destination destination;
        if (IsRecordLengthValid(tstrRecord) && m_folders.ParseRecordPlace(tstrRecord, bPattern, destination)) {
            return PlainPlace(tstrRecord, bPattern);
        }
        m_tstrErrors += tstrRecord + L": not below a folder that a placeholder names, left out\n";
        return std::nullopt;
    }

    void AddRecord(RecordEffect eEffect, const std::wstring& tstrRecord)
    {
        if (FormOf(eEffect) == RecordForm::ePath) return AddFileRecord(FileOpOf(eEffect), tstrRecord);
        if (!IsRecordLengthValid(tstrRecord)) return;
        switch (eEffect) {
            case RecordEffect::eDeleteValue:
                return PromiseNoValue(m_promises.registry, ParseRegistryRecord(tstrRecord));
            case RecordEffect::eWriteValue:
            case RecordEffect::eWriteMissingValue:
                return PromiseValue(m_promises.registry, ParseRegistryRecord(tstrRecord),
                                    eEffect == RecordEffect::eWriteMissingValue);
            case RecordEffect::eEditIni: return PromiseIniValue(m_promises.updateInfo, ParseIniRecord(tstrRecord));
            case RecordEffect::eCreateFolder:
            case RecordEffect::eDeleteFolder:
            case RecordEffect::eDeleteFiles:
            case RecordEffect::eDeleteFilesNow:  // above
            case RecordEffect::eCarryOver:       // with the file that gets the values
            case RecordEffect::eRunOnce:
            case RecordEffect::eShowText: break;  // nothing that can be verified on the machine
        }
    }

    void AddFileRecord(FileOp eOp, const std::wstring& tstrRecord)
    {
        const bool bFolder = eOp == op_dir_add || eOp == op_dir_delete;
        const auto optPlace = PlaceOf(tstrRecord, !bFolder);
        if (!optPlace) return;
        if (eOp == op_dir_add) {
            m_promises.folders.push_back(*optPlace);
        } else {
            m_promises.deletions.push_back({*optPlace, bFolder, eOp != op_file_delete_now});
        }
    }

    void AddRecords(const Section& section, const SectionRecords& records)
    {
        ForEachRecord(section, records, [&](const SectionKey& key, const std::wstring& tstrRecord) {
            AddRecord(key.eEffect, tstrRecord);
        });
    }
    void AddSection(const Section& section) { AddRecords(section, Read(section)); }

    void AddDeletions()
    {
        constexpr const Section& kFolders = SectionOf(L"QOR_DIR", L"RemoveFileAfterReboot");
        constexpr const Section& kFiles = SectionOf(L"QOR_FILE", L"RemoveFileAfterReboot");
        const SectionRecords folders = Read(kFolders);
        const SectionRecords files = Read(kFiles);
        if (folders.empty() || files.empty()) return;  // then nothing at all is removed
        AddRecords(kFolders, folders);
        AddRecords(kFiles, files);
    }

    void AddRows()
    {
        const Package& product = m_update.Product();
        const Package& resource = m_update.Resource();
        const PackageLayout::BaseFolders bases(WindowsMachine(), {.tstrInstallDir = m_update.Folder(),
                                                                  .tstrProductDownloadDir = product.tstrFolder,
                                                                  .tstrProductDownloadPath = product.tstrDownloadPath,
                                                                  .tstrResourceDownloadDir = resource.tstrFolder});
        // What is copied at once is replaced by what the restart moves to the same place.
        for (const PackageLayout::When eWhen : {PackageLayout::When::eNow, PackageLayout::When::eAtRestart}) {
            for (const PackageLayout::DeployStep& step : PackageLayout::ProgramSteps()) {
                if (product.bThere) AddStep(step, bases, eWhen);
            }
            if (resource.bThere) AddStep(PackageLayout::ResourceStep(), bases, eWhen);
        }
        if (product.bThere) AddSettings();
        for (auto& [tstrKey, promise] : m_files) m_promises.files.push_back(std::move(promise));
    }

    void AddStep(const PackageLayout::DeployStep& step, const PackageLayout::BaseFolders& bases,
                 PackageLayout::When eWhen)
    {
        for (const Row& row : step.rows) {
            if (row.eWhen == eWhen) AddRow(row, m_update.RelativeName(bases.FolderOf(row.source)));
        }
    }

    void AddRow(const Row& row, const std::wstring& tstrSourceDir)
    {
        std::wstring tstrPlace = PlaceholderOf(row.destination.eBase) + std::wstring(row.destination.szBelow);
        if (row.destination.szBelow[0]) tstrPlace += L"\\";
        for (const std::wstring& tstrFile : m_update.Files()) {
            if (!String::IsBelow(tstrFile, tstrSourceDir)) continue;
            const std::wstring tstrName = tstrFile.substr(tstrSourceDir.size());
            const bool bBelow = tstrName.find(L'\\') != std::wstring::npos;
            if (bBelow && row.eDepth == PackageLayout::Depth::eFolderOnly) continue;
            if (Storage::File::IsTemporaryName(tstrName.substr(String::FolderPart(tstrName).size())))
                continue;  // of a run that was ended
            FilePromise promise;
            promise.tstrPlace = tstrPlace + tstrName;
            promise.tstrSource = tstrFile;
            promise.bAtRestart = row.eWhen == PackageLayout::When::eAtRestart;
            promise.optContent = ContentOf(tstrFile);
            Put(std::move(promise));
        }
    }

    static const wchar_t* PlaceholderOf(PackageLayout::Base eBase)
    {
        switch (eBase) {
            case PackageLayout::Base::eAppData: return kAppData;
            case PackageLayout::Base::eSystemDrive: return kSystemDrive;
            case PackageLayout::Base::ePackage:
            case PackageLayout::Base::eProduct:
            case PackageLayout::Base::eShare:
            case PackageLayout::Base::eResource:
            case PackageLayout::Base::eInstall: break;
        }
        return kInstalledDir;
    }

    /// The settings that the agent makes out of what the update brings.
    void AddSettings()
    {
        const std::wstring tstrFolder = m_update.SettingFolder();
        if (!Storage::Directory::IsExisted(m_update.FullPath(tstrFolder))) return;
        std::vector<std::wstring> migrated;
        const bool bMerged = ReadMigrated(migrated);
        for (const LanguageFile& file : LanguageFiles()) {
            const std::wstring tstrName = file.szBase + std::wstring(L".") + file.szExtension;
            const bool bOwn = bMerged && file.szBase == std::wstring_view(L"config");
            const std::wstring tstrBegin = tstrFolder + file.szBase + L"_";
            const std::wstring tstrEnd = L"." + std::wstring(file.szExtension);
            for (const std::wstring& tstrFile :
                 m_update.FilesIn(tstrFolder, (file.szBase + std::wstring(L"_*") + tstrEnd).c_str())) {
                FilePromise promise;
                promise.tstrPlace = kInstalledDir + tstrName;
                promise.tstrSource = tstrFolder + tstrName;
                promise.tstrLanguage =
                    tstrFile.substr(tstrBegin.size(), tstrFile.size() - tstrBegin.size() - tstrEnd.size());
                if (bOwn) {
                    PromiseSettings(promise, tstrFile, migrated);
                } else {
                    promise.optContent = ContentOf(tstrFile);
                }
                Put(std::move(promise));
            }
            const auto itShipped = m_files.find({LowerCase(kInstalledDir + tstrName), {}});
            if (bOwn && itShipped != m_files.end()) PromiseSettings(itShipped->second, tstrFolder + tstrName, migrated);
        }
        AddUpdateInfo(tstrFolder + kUpdateInfoFile);
    }

    /// The settings to carry over. False when the section is not there, and nothing is merged.
    bool ReadMigrated(std::vector<std::wstring>& migrated) const
    {
        constexpr const Section& kSection = SectionOf(L"QOR_CONFIG_MERGE", L"MergeConfig");
        const SectionRecords records = Read(kSection);
        ForEachRecord(kSection, records, [&](const SectionKey&, const std::wstring& tstrTag) {
            if (IsRecordLengthValid(tstrTag)) migrated.push_back(tstrTag);
        });
        return !records.empty();
    }

    /// A file that is refused gets no user's values: it is deployed as it is.
    void PromiseSettings(FilePromise& promise, const std::wstring& tstrFile, const std::vector<std::wstring>& migrated)
    {
        promise.optContent.reset();
        try {
            const auto document = Storage::XmlParser().ParseFile(m_update.FullPath(tstrFile));
            promise.optSettings = SettingsOf(*document->GetRoot(), migrated);
        } catch (Storage::XmlException* pException) {
            const std::unique_ptr<Storage::XmlException> caught(pException);
            if (caught->Position().ullLine > 0) {
                promise.optContent = ContentOf(tstrFile);
            } else {
                m_tstrErrors += m_update.FullPath(tstrFile) + L": " + ReasonOf(*caught) + L"\n";
            }
        }
    }

    /// The update information goes through the download folder, unless the update brings one of its own, which then
    /// replaces the one with the changes.
    void AddUpdateInfo(const std::wstring& tstrSource)
    {
        const std::wstring tstrPlace = kInstalledDir + std::wstring(kUpdateInfoFile);
        if (Storage::File::IsExisted(m_update.FullPath(tstrSource))) return;
        FilePromise promise;
        promise.tstrPlace = tstrPlace;
        promise.tstrSource = tstrSource;
        Put(std::move(promise));
        constexpr const Section& kSection = SectionOf(L"UPDATE_INFO", L"ModifyUpdateInfo");
        const SectionRecords records = Read(kSection);
        if (records.empty()) return;
        AddRecords(kSection, records);
        PromiseIniValue(m_promises.updateInfo, DeployedVersion());
    }

    /// Puts a file in its place; one that was to go there before loses it.
    void Put(FilePromise promise)
    {
        m_files[{LowerCase(promise.tstrPlace), LowerCase(promise.tstrLanguage)}] = std::move(promise);
    }

    std::optional<Content> ContentOf(const std::wstring& tstrFile)
    {
        Content content;
        DWORD dwError = ERROR_SUCCESS;
        if (m_reader.Read(m_update.FullPath(tstrFile), content, &dwError)) return content;
        m_tstrErrors += m_update.FullPath(tstrFile) + L": cannot be read: " + DescribeError(dwError) + L"\n";
        m_bRead = false;
        return std::nullopt;
    }

    const Update& m_update;
    Promises& m_promises;
    std::wstring& m_tstrErrors;
    const MachineFolders m_folders;
    ContentReader m_reader;
    std::map<std::pair<std::wstring, std::wstring>, FilePromise> m_files;  // by place and language
    bool m_bRead = true;
};

}  // namespace

bool IsVersionKey(const std::wstring& tstrKey)
{
    constexpr std::wstring_view kEnd = L"_Version";
    return tstrKey.size() >= kEnd.size() && String::EqualsNoCase(tstrKey.substr(tstrKey.size() - kEnd.size()), kEnd);
}

bool CollectPromises(const Update& update, Promises& promises, std::wstring& tstrErrors)
{
    return Collector(update, promises, tstrErrors).Collect();
}

}  // namespace Check
