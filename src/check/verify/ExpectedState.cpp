#include "check/verify/ExpectedState.h"

#include "check/update/ErrorText.h"
#include "check/update/Instructions.h"
#include "check/update/XmlForm.h"
#include "check/verify/Destination.h"

#include "agent/PackageLayout.h"
#include "agent/RunOnce.h"
#include "agent/Sections.h"
#include "agent/SettingsFiles.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/KzComn_XmlParser.h"

#include <algorithm>
#include <map>

using namespace KzCommon;

namespace Check {

namespace {

ExpectedValue* FindValue(std::vector<ExpectedValue>& registry, const std::wstring& tstrKeyPath,
                         const std::wstring& tstrName)
{
    const auto itValue = std::find_if(registry.begin(), registry.end(), [&](const ExpectedValue& expected) {
        return String::EqualsNoCase(expected.tstrKeyPath, tstrKeyPath) &&
               String::EqualsNoCase(expected.tstrValueName, tstrName);
    });
    return itValue == registry.end() ? nullptr : &*itValue;
}

ExpectedValue& FindOrAddValue(std::vector<ExpectedValue>& registry, const std::wstring& tstrKeyPath,
                              const std::wstring& tstrName)
{
    ExpectedValue* pValue = FindValue(registry, tstrKeyPath, tstrName);
    if (!pValue) {
        pValue = &registry.emplace_back();
        pValue->tstrKeyPath = tstrKeyPath;
        pValue->tstrValueName = tstrName;
    }
    return *pValue;
}

/// Whether "add_if_non" keeps a value whose state is known from earlier records: one of the same type, unless its data
/// counts as missing.
bool IsLeftAlone(const ExpectedValue& known, const RegistryRecord& record)
{
    if (known.eState == ValueState::eAbsent || known.eType != record.eType) return false;
    RegistryRecord held = record;
    held.tstrData = known.tstrData;
    held.dwData = static_cast<DWORD>(known.ullData);
    held.ullData = known.ullData;
    return known.eState == ValueState::eAnyData || !CountsAsMissing(held);
}

/// Run-once commands do not stay in their key.
bool StaysInKey(const RegistryRecord& record)
{
    return !record.tstrKeyPath.empty() && !String::EqualsNoCase(KeyPathOf(record.tstrKeyPath), kRunOnceKey);
}

void SetData(ExpectedValue& expected, const RegistryRecord& record, ValueState eState)
{
    expected.eState = eState;
    expected.eType = record.eType;
    expected.tstrData.clear();
    expected.ullData = 0;
    switch (record.eType) {
        case RegistryType::eText: expected.tstrData = record.tstrData; break;
        case RegistryType::eDword: expected.ullData = record.dwData; break;
        case RegistryType::eQword: expected.ullData = record.ullData; break;
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: break;
    }
}

void PromiseNoValue(std::vector<ExpectedValue>& registry, const RegistryRecord& record)
{
    if (!StaysInKey(record)) return;
    FindOrAddValue(registry, KeyPathOf(record.tstrKeyPath), record.tstrValueName).eState = ValueState::eAbsent;
}

/// Applies a registry record to the state expected from earlier records. `bOnlyMissing`: "add_if_non".
void ExpectValue(std::vector<ExpectedValue>& registry, const RegistryRecord& record, bool bOnlyMissing)
{
    if (!IsWritten(record.eType) || !StaysInKey(record)) return;
    const std::wstring tstrKeyPath = KeyPathOf(record.tstrKeyPath);
    const ExpectedValue* const pKnown = FindValue(registry, tstrKeyPath, record.tstrValueName);
    if (bOnlyMissing && pKnown && IsLeftAlone(*pKnown, record)) return;
    // Read under its literal name, written as the unnamed value.
    const bool bUnnamed = bOnlyMissing && record.tstrValueName == L"(Default)";
    const bool bKnown = pKnown != nullptr;
    ExpectedValue& expected = FindOrAddValue(registry, tstrKeyPath, bUnnamed ? std::wstring() : record.tstrValueName);
    SetData(expected, record, !bOnlyMissing || bUnnamed || bKnown ? ValueState::eData : ValueState::eAnyData);
    expected.bUnlessLiteral = bUnnamed && !bKnown;
}

void PromiseIniValue(std::vector<ExpectedIniKey>& updateInfo, const ::IniRecord& record)
{
    if (!record.IsComplete()) return;
    std::erase_if(updateInfo, [&](const ExpectedIniKey& expected) {
        return String::EqualsNoCase(expected.tstrSection, record.tstrSection) &&
               String::EqualsNoCase(expected.tstrKey, record.tstrKey);
    });
    updateInfo.push_back({record.tstrSection, record.tstrKey, record.tstrValue});
}

/// Collects the expected state of one update.
class Collector {
public:
    Collector(const Update& update, ExpectedState& expected, std::wstring& tstrErrors)
        : m_update(update),
          m_expected(expected),
          m_tstrErrors(tstrErrors),
          m_folders(InstalledFolderOf(update), update.Product().tstrDownloadPath)
    {
    }

    bool Collect()
    {
        m_expected.tstrProduct = m_update.Product().tstrDownloadPath;
        m_expected.tstrResource = m_update.Resource().tstrDownloadPath;
        AddSection(SectionOf(L"QOR_DIR", L"CreateDirBeforeReboot"));
        if (m_update.Product().bThere) AddSection(SectionOf(L"QOR_REGISTRY_PATCH", L"PatchRegistry"));
        AddFiles();
        AddUpdateInfo();
        AddDeletions();
        m_expected.uncovered = ListUncoveredParts(m_update);
        m_expected.languages = ListLanguages(m_update);
        AddContents();
        return m_bRead;
    }

private:
    [[nodiscard]] SectionRecords Read(const Section& section) const { return ReadRecords(m_update, section); }

    /// The known or default install folder: full paths below it are places of the product.
    static Folder InstalledFolderOf(const Update& update)
    {
        const std::wstring tstrRegistered = Frwk::Utility::GetInstalledFolder(WindowsMachine());
        return update.InstalledFolder().value_or(tstrRegistered.empty() ? Folder(kUsualInstallFolder)
                                                                        : Folder(tstrRegistered));
    }

    /// A record's place; empty, with an error line, if a manifest cannot express it.
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
                return PromiseNoValue(m_expected.registry, ParseRegistryRecord(tstrRecord));
            case RecordEffect::eWriteValue:
            case RecordEffect::eWriteMissingValue:
                return ExpectValue(m_expected.registry, ParseRegistryRecord(tstrRecord),
                                   eEffect == RecordEffect::eWriteMissingValue);
            case RecordEffect::eEditIni: return PromiseIniValue(m_expected.updateInfo, ParseIniRecord(tstrRecord));
            case RecordEffect::eCreateFolder:
            case RecordEffect::eDeleteFolder:
            case RecordEffect::eDeleteFiles:
            case RecordEffect::eDeleteFilesNow:  // see above
            case RecordEffect::eCarryOver:       // with the file that receives the values
            case RecordEffect::eRunOnce:
            case RecordEffect::eShowText: break;  // has no effect on the machine that can be verified
        }
    }

    void AddFileRecord(FileOp eOp, const std::wstring& tstrRecord)
    {
        const bool bFolder = eOp == op_dir_add || eOp == op_dir_delete;
        const auto optPlace = PlaceOf(tstrRecord, !bFolder);
        if (!optPlace) return;
        if (eOp == op_dir_add) {
            m_expected.folders.push_back(*optPlace);
        } else {
            m_expected.deletions.push_back({*optPlace, bFolder, eOp != op_file_delete_now});
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
        if (folders.empty() || files.empty()) return;  // then the agent removes nothing
        AddRecords(kFolders, folders);
        AddRecords(kFiles, files);
    }

    /// Of several files for one place and language, the last one wins; files moved at the restart replace those copied
    /// at once.
    void AddFiles()
    {
        String::NoCaseMap<String::NoCaseMap<const Delivery*>> last;  // by place and language
        for (const PackageLayout::When eWhen : {PackageLayout::When::eNow, PackageLayout::When::eAtRestart}) {
            for (const Delivery& delivery : m_update.Deliveries()) {
                if (delivery.eWhen != eWhen) continue;
                last[PlaceOf(delivery)][delivery.tstrLanguage] = &delivery;
            }
        }
        const bool bMerged = ReadMigrated(m_migrated);
        for (const auto& [tstrPlace, byLanguage] : last) {
            for (const auto& [tstrLanguage, pDelivery] : byLanguage) AddFile(*pDelivery, bMerged);
        }
    }

    void AddFile(const Delivery& delivery, bool bMerged)
    {
        ExpectedFile& expected = m_expected.files.emplace_back();
        expected.tstrPlace = PlaceOf(delivery);
        expected.tstrSource = delivery.tstrSource;
        expected.bAtRestart = delivery.eWhen == PackageLayout::When::eAtRestart;
        expected.tstrLanguage = delivery.tstrLanguage;
        if (delivery.tstrContent.empty()) return;
        if (delivery.bMerged && bMerged) {
            ExpectSettings(expected, delivery.tstrContent);
        } else {
            expected.optContent = ContentOf(delivery.tstrContent);
        }
    }

    static std::wstring PlaceOf(const Delivery& delivery) { return PlaceholderOf(delivery.eBase) + delivery.tstrBelow; }

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

    /// The settings to migrate. False when the section is missing, so that nothing is merged.
    bool ReadMigrated(std::vector<std::wstring>& migrated) const
    {
        constexpr const Section& kSection = SectionOf(L"QOR_CONFIG_MERGE", L"MergeConfig");
        const SectionRecords records = Read(kSection);
        ForEachRecord(kSection, records, [&](const SectionKey&, const std::wstring& tstrTag) {
            if (IsRecordLengthValid(tstrTag)) migrated.push_back(tstrTag);
        });
        return !records.empty();
    }

    /// A refused file gets no user's values and is deployed unchanged.
    void ExpectSettings(ExpectedFile& expected, const std::wstring& tstrFile)
    {
        try {
            const auto document = Storage::XmlParser().ParseFile(m_update.FullPath(tstrFile));
            expected.optSettings = SettingsOf(*document->GetRoot(), m_migrated);
        } catch (Storage::XmlException* pException) {
            const std::unique_ptr<Storage::XmlException> caught(pException);
            if (caught->Position().ullLine > 0) {
                expected.optContent = ContentOf(tstrFile);
            } else {
                m_tstrErrors += m_update.FullPath(tstrFile) + L": " + ReasonOf(*caught) + L"\n";
            }
        }
    }

    /// The changes of the update information. An update's own update information replaces the changed file.
    void AddUpdateInfo()
    {
        constexpr const Section& kSection = SectionOf(L"UPDATE_INFO", L"ModifyUpdateInfo");
        const std::wstring tstrSource = m_update.SettingFolder() / kUpdateInfoFile;
        const bool bPrepared =
            std::any_of(m_update.Deliveries().begin(), m_update.Deliveries().end(), [&](const Delivery& delivery) {
                return delivery.tstrContent.empty() && String::EqualsNoCase(delivery.tstrSource, tstrSource);
            });
        const SectionRecords records = bPrepared ? Read(kSection) : SectionRecords();
        if (records.empty()) return;
        AddRecords(kSection, records);
        PromiseIniValue(m_expected.updateInfo, DeployedVersion());
    }

    void AddContents()
    {
        std::vector<std::wstring> files = m_update.Files();
        if (Storage::File::IsExisted(m_update.FullPath(kInstructionFile))) files.emplace_back(kInstructionFile);
        std::ranges::sort(files, String::OrdinalNoCase());
        for (const std::wstring& tstrFile : files) {
            if (IsManifestOrSignature(m_update, tstrFile)) continue;
            if (const auto optContent = ContentOf(tstrFile)) m_expected.contents.push_back({tstrFile, *optContent});
        }
    }

    /// Reads each file once.
    std::optional<Content> ContentOf(const std::wstring& tstrFile)
    {
        const auto itKnown = m_contents.find(tstrFile);
        if (itKnown != m_contents.end()) return itKnown->second;
        Content content;
        DWORD dwError = ERROR_SUCCESS;
        if (m_reader.Read(m_update.FullPath(tstrFile), content, &dwError)) {
            return m_contents.emplace(tstrFile, content).first->second;
        }
        m_tstrErrors += m_update.FullPath(tstrFile) + L": cannot be read: " + DescribeError(dwError) + L"\n";
        m_bRead = false;
        return std::nullopt;
    }

    const Update& m_update;
    ExpectedState& m_expected;
    std::wstring& m_tstrErrors;
    const MachineFolders m_folders;
    ContentReader m_reader;
    std::vector<std::wstring> m_migrated;
    String::NoCaseMap<Content> m_contents;  // of the files that were read
    bool m_bRead = true;
};

}  // namespace

bool IsVersionKey(const std::wstring& tstrKey)
{
    constexpr std::wstring_view kEnd = L"_Version";
    return tstrKey.size() >= kEnd.size() && String::EqualsNoCase(tstrKey.substr(tstrKey.size() - kEnd.size()), kEnd);
}

bool IsManifestOrSignature(const Update& update, const std::wstring& tstrFile)
{
    const std::wstring tstrManifest = update.SettingFolder() / kShippedManifest;
    return String::EqualsNoCase(tstrFile, tstrManifest) || String::EqualsNoCase(tstrFile, tstrManifest + kSignatureEnd);
}

bool CollectExpectedState(const Update& update, ExpectedState& expected, std::wstring& tstrErrors)
{
    return Collector(update, expected, tstrErrors).Collect();
}

}  // namespace Check
