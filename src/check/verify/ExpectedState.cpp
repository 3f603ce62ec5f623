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
        AddSections();
        AddFiles();
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

    void AddRecord(const EffectTraits& effect, const std::wstring& tstrRecord)
    {
        switch (effect.eForm) {
            case RecordForm::ePath: return AddFileRecord(*TraitsOf(effect.eFileOp), tstrRecord);
            case RecordForm::eRegistryValue: return AddValueRecord(effect.eRegOp, ParseRegistryRecord(tstrRecord));
            case RecordForm::eIniValue: return PromiseIniValue(m_expected.updateInfo, ParseIniRecord(tstrRecord));
            case RecordForm::eTag:  // with the file that receives the values
            case RecordForm::eCommand:
            case RecordForm::eText: break;  // has no effect on the machine that can be verified
        }
    }

    void AddValueRecord(RegOp eOp, const RegistryRecord& record)
    {
        if (eOp == op_reg_delete) return PromiseNoValue(m_expected.registry, record);
        ExpectValue(m_expected.registry, record, eOp == op_reg_add_if_non);
    }

    void AddFileRecord(const FileOpTraits& operation, const std::wstring& tstrRecord)
    {
        if (operation.eAction == Action::eCopy) return;  // one of the deliveries
        const auto optPlace = PlaceOf(tstrRecord, !operation.bFolder);
        if (!optPlace) return;
        if (operation.eAction == Action::eCreateFolder) {
            m_expected.folders.push_back(*optPlace);
        } else {
            m_expected.deletions.push_back({*optPlace, operation.bFolder, operation.bAtRestart});
        }
    }

    void AddRecords(const Section& section, const SectionRecords& records)
    {
        ForEachRecord(section, records, [&](const SectionKey& key, const std::wstring& tstrRecord) {
            const EffectTraits effect = TraitsOf(key.eEffect);
            if (effect.eForm == RecordForm::ePath || IsRecordLengthValid(tstrRecord)) AddRecord(effect, tstrRecord);
        });
    }

    /// Of several files for one place and language, the last one wins; files moved at the restart replace those copied
    /// at once.
    void AddFiles()
    {
        String::NoCaseMap<String::NoCaseMap<const Delivery*>> last;  // by place and language
        for (const PackageLayout::When eWhen : {PackageLayout::When::eNow, PackageLayout::When::eAtRestart}) {
            for (const Delivery& delivery : m_update.Deliveries()) {
                const auto optPlace = delivery.eWhen == eWhen ? PlaceOf(delivery) : std::nullopt;
                if (optPlace) last[*optPlace][delivery.tstrLanguage] = &delivery;
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
        expected.tstrPlace = PlaceOf(delivery).value_or(std::wstring());
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

    std::optional<std::wstring> PlaceOf(const Delivery& delivery)
    {
        if (delivery.tstrPlace.empty()) return PlaceholderOf(delivery.eBase) + delivery.tstrBelow;
        const auto optPlace = PlaceOf(delivery.tstrPlace, false);
        return optPlace ? m_folders.PlaceOf(*optPlace) : optPlace;
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

    void AddSections()
    {
        constexpr const Section& kUpdateInfo = SectionOf(L"UPDATE_INFO", L"ModifyUpdateInfo");
        for (const Section& section : kSections) {
            if (&section == &kUpdateInfo) {
                AddUpdateInfo(section);
            } else if (section.ePhase != RunPhase::eDeployment || m_update.Product().bThere) {
                AddRecords(section, Read(section));
            }
        }
    }

    /// The changes of the update information. An update's own update information replaces the changed file.
    void AddUpdateInfo(const Section& section)
    {
        const std::wstring tstrSource = m_update.SettingFolder() / kUpdateInfoFile;
        const bool bPrepared =
            std::any_of(m_update.Deliveries().begin(), m_update.Deliveries().end(), [&](const Delivery& delivery) {
                return delivery.tstrContent.empty() && String::EqualsNoCase(delivery.tstrSource, tstrSource);
            });
        const SectionRecords records = bPrepared ? Read(section) : SectionRecords();
        if (records.empty()) return;
        AddRecords(section, records);
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
