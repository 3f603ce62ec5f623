// The user's settings in a plan.
#include "check/PlanSteps.h"

#include "agent/SettingsFiles.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "config/ConfigDefaults.h"
#include "config/ConfigStore.h"

#include <set>

using namespace KzCommon;
using Config::ConfigStore;

namespace Check {

namespace {

constexpr wchar_t kConfigFile[] = L"config.xml";

/// The user's file and the update's, which is written in memory only.
struct ConfigPair {
    const ConfigStore& users;
    ConfigStore& updates;
    bool bUsers;    ///< could be read
    bool bUpdates;  ///< could be read
};

struct Held {
    ConfigStore::Found eFound = ConfigStore::Found::eNone;
    Config::Value value;
    Config::Type eType = Config::Type::eString;
};

Held Read(const ConfigStore& store, const Config::TagPath& path)
{
    Held held;
    held.eFound = store.Read(path, held.value, held.eType);
    return held;
}

/// Shows what becomes of a value, unless one of them is a secret.
void Show(Change& change, const Config::TagPath& path, const Held& before, const Held& users, const Held& after)
{
    const bool bThere = before.eFound == ConfigStore::Found::eValue;
    change.eOutcome = !bThere                                                      ? Outcome::eNew
                      : before.value == after.value && before.eType == after.eType ? Outcome::eStay
                                                                                   : Outcome::eReplace;
    if (Config::IsSecret(path) || before.value.bProtected || users.value.bProtected || after.value.bProtected) {
        change.tstrReason = L"a secret";
        return;
    }
    if (bThere) change.optOld = before.value.tstrText;
    change.optNew = users.value.tstrText;
}

/// Carries one setting over. False when it cannot be; one that the user's file has not is none.
bool CarryOver(Change& change, const ConfigPair& files, const Config::TagPath& path)
{
    const Held users = Read(files.users, path);
    if (users.eFound == ConfigStore::Found::eNone) {
        change.eOutcome = Outcome::eStay;
        change.tstrReason = L"left alone: the installed file has no such setting";
        return true;
    }
    if (users.eFound == ConfigStore::Found::eRefused) {
        change.tstrReason = L"left alone: the installed value does not fit its type or is not authentic";
        return false;
    }
    const Held before = Read(files.updates, path);
    if (!files.updates.Write(path, users.value, users.eType)) {
        change.tstrReason = L"left alone: the update's file cannot take the value";
        return false;
    }
    Show(change, path, before, users, Read(files.updates, path));
    return true;
}

bool PlanTag(PlanWork& work, const std::wstring& tstrTarget, const ConfigPair& files, const std::string& strTag)
{
    Change change{.eAction = Action::eCarryOver, .eOutcome = Outcome::eFail};
    change.tstrTarget = tstrTarget;
    static_cast<void>(String::FromUtf8(strTag, change.tstrName));
    const auto optPath = Config::TagPath::Parse(change.tstrName);
    bool bOk = true;
    if (!files.bUsers || !files.bUpdates) {
        change.tstrReason = files.bUsers ? L"the update's file cannot be read" : L"the installed file cannot be read";
    } else if (!optPath) {
        change.tstrReason = L"no tag path";
    } else {
        bOk = CarryOver(change, files, *optPath);
    }
    work.Add(std::move(change));
    return bOk;
}

/// Plans the merge. False unless every value gets there.
bool PlanCarryOver(PlanWork& work, const std::wstring& tstrSettingDir, const std::wstring& tstrTarget)
{
    Config::ValueProtection protection;
    DWORD dwError = ERROR_SUCCESS;
    if (!protection.Open(Config::kStoreKey, dwError)) {
        work.plan.steps.back().tstrReason = L"the encryption cannot be used";
        return false;
    }
    constexpr const Section& kSection = SectionOf(L"QOR_CONFIG_MERGE", L"MergeConfig");
    SectionRecords records;
    if (!work.Read(kSection, records)) return false;

    bool bAll = true;
    std::set<std::string> tags;  // in the order in which they are written
    ForEachRecord(kSection, records, [&](const SectionKey&, const std::wstring& tstrTag) {
        if (IsRecordLengthValid(tstrTag)) {
            tags.insert(String::ToUtf8(tstrTag));
            return;
        }
        bAll = false;
        Change change{.eAction = Action::eCarryOver, .eOutcome = Outcome::eFail};
        change.tstrName = tstrTag;
        change.tstrReason = kTooLong;
        work.Add(std::move(change));
    });

    ConfigStore users(protection);
    ConfigStore updates(protection);
    const std::wstring tstrOfLanguage = tstrSettingDir + L"config_" + work.Language() + L".xml";
    const bool bOfLanguage = Storage::File::IsExisted(tstrOfLanguage);
    const bool bUsers = users.Open(work.paths.InstallDir() + kConfigFile);
    const bool bUpdates = updates.Open(bOfLanguage ? tstrOfLanguage : tstrSettingDir + kConfigFile);
    const ConfigPair files{users, updates, bUsers, bUpdates};
    bAll = bAll && !tags.empty() && bUsers && bUpdates;
    for (const std::string& strTag : tags) bAll = PlanTag(work, tstrTarget, files, strTag) && bAll;
    return bAll;
}

/// A kept file that is not needed any more.
void PlanDrop(PlanWork& work, const std::wstring& tstrKept)
{
    Change change{.eAction = Action::eDelete, .eOutcome = Outcome::eRemove};
    change.tstrTarget = tstrKept;
    change.tstrReason = L"kept by an earlier run: the same settings are carried over";
    work.Add(std::move(change));
    work.forecast.RemoveFile(tstrKept);
}

}  // namespace

void PlanMerge(PlanWork& work, const std::wstring& tstrSettingDir)
{
    work.Begin(L"MergeConfig");
    const std::wstring tstrTarget = work.forecast.PlaceThen(tstrSettingDir) + kConfigFile;
    const std::wstring tstrUsers = work.paths.InstallDir() + kConfigFile;
    if (PlanCarryOver(work, tstrSettingDir, tstrTarget)) {
        for (const std::wstring& tstrKept : KeptFilesLike(tstrUsers)) PlanDrop(work, tstrKept);
        return;
    }
    if (!work.forecast.HasFile(tstrUsers) || !work.forecast.HasFile(tstrTarget)) return;
    const std::wstring tstrKept = KeptFileFor(tstrUsers);
    if (PlanCopy(work, Action::eKeep, tstrUsers, tstrKept)) work.paths.KeepFile(tstrKept);
}

}  // namespace Check
