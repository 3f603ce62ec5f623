#include "check/ready/Ready.h"

#include "check/ready/FilesInUse.h"
#include "check/update/ErrorText.h"
#include "check/update/Instructions.h"
#include "check/update/OpenFolder.h"
#include "check/update/ShownText.h"
#include "check/verify/ExpectedState.h"

#include "agent/IniEdits.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

constexpr ULONGLONG kMegabyte = 1'048'576;
constexpr wchar_t kControlKey[] = L"SYSTEM\\CurrentControlSet\\Control\\";

/// Carries out one check; its findings get the number of its row.
class Checking {
public:
    Checking(const ReadyContext& checked, unsigned uNumber, ReadyReport& report)
        : context(checked), m_uNumber(uNumber), m_report(report)
    {
    }

    void Find(const std::wstring& tstrWhat, const std::wstring& tstrReason)
    {
        m_report.findings.push_back({m_uNumber, tstrWhat, tstrReason});
    }
    void Skip(const std::wstring& tstrWhat, const std::wstring& tstrReason)
    {
        m_report.notExamined.push_back({tstrWhat, tstrReason});
    }
    /// Calls `visit` with every change of the plan.
    template <class Visit>
    void ForEachChange(Visit&& visit) const
    {
        for (const PlanStep& step : context.plan.steps) {
            for (const Change& change : step.changes) visit(change);
        }
    }

    const ReadyContext& context;

private:
    unsigned m_uNumber;
    ReadyReport& m_report;
};

bool Happens(const Change& change)
{
    return change.eOutcome == Outcome::eNew || change.eOutcome == Outcome::eReplace;
}

ULONGLONG SizeOf(const std::wstring& tstrFile)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (!::GetFileAttributesExW(LongPath(tstrFile).c_str(), GetFileExInfoStandard, &data)) return 0;
    return ULARGE_INTEGER{{data.nFileSizeLow, data.nFileSizeHigh}}.QuadPart;
}

std::wstring Megabytes(ULONGLONG ullBytes)
{
    return std::to_wstring((ullBytes + kMegabyte - 1) / kMegabyte) + L" MB";
}

/// Moves within a drive need no space; copies do, even those that replace a file: the old one stays until the new one
/// is complete.
void CheckSpace(Checking& check)
{
    String::NoCaseMap<ULONGLONG> needed;  // by volume
    check.ForEachChange([&](const Change& change) {
        const bool bCopy =
            change.eAction == Action::eCopy || change.eAction == Action::eStage || change.eAction == Action::eKeep;
        if (!bCopy || !Happens(change)) return;
        const Volume volume = check.context.machine.VolumeOf(String::FolderPart(change.tstrTarget));
        if (volume.dwError == ERROR_SUCCESS) needed[volume.tstrMountPoint] += SizeOf(change.tstrSource);
    });
    for (const auto& [tstrVolume, ullNeeded] : needed) {
        ULARGE_INTEGER free{};
        if (!::GetDiskFreeSpaceExW(tstrVolume.c_str(), &free, nullptr, nullptr)) {
            check.Skip(tstrVolume, DescribeError(::GetLastError()));
        } else if (free.QuadPart < ullNeeded) {
            check.Find(tstrVolume, L"needs " + Megabytes(ullNeeded) + L", " + Megabytes(free.QuadPart) + L" are free");
        }
    }
}

/// Files that the restart replaces may be in use: that is what the restart is for.
void CheckInUse(Checking& check)
{
    String::NoCaseSet files{check.context.installed / L"config.xml", check.context.installed / kUpdateInfoFile};
    check.ForEachChange([&](const Change& change) {
        const bool bDeleted =
            !change.bAtRestart && change.eAction == Action::eDelete && change.eOutcome == Outcome::eRemove;
        const bool bNow = !change.bAtRestart && change.eOutcome == Outcome::eReplace;
        if (bNow && (change.eAction == Action::eCopy || change.eAction == Action::eKeep))
            files.insert(change.tstrTarget);
        if (bDeleted) files.insert(change.tstrTarget);
    });
    for (const std::wstring& tstrFile : files) {
        DWORD dwError = ERROR_SUCCESS;
        if (IsFree(tstrFile, dwError)) continue;
        if (dwError != ERROR_SHARING_VIOLATION && dwError != ERROR_LOCK_VIOLATION) {
            check.Skip(tstrFile, DescribeError(dwError));
            continue;
        }
        const std::wstring tstrUsers = UsersOf(tstrFile);
        check.Find(tstrFile, L"in use" + (tstrUsers.empty() ? std::wstring() : L" by " + tstrUsers));
    }
}

bool IsOurs(const PendingMove& move, const Folder& installed)
{
    return (installed / kComponents).size() < move.tstrSource.size() &&
           String::IsBelow(move.tstrSource, installed / kComponents);
}

bool IsFileChange(const Change& change)
{
    constexpr Action kActions[] = {Action::eCreateFolder, Action::eMove, Action::eStage,
                                   Action::eCopy,         Action::eKeep, Action::eDelete};
    return std::ranges::find(kActions, change.eAction) != std::end(kActions);
}

/// Files and folders that the run brings, also at once, must still be there after the restart; and nothing may come to
/// the place of a file that it deletes.
void CheckOthersMoves(Checking& check)
{
    String::NoCaseSet brought;
    String::NoCaseSet deleted;
    check.ForEachChange([&](const Change& change) {
        if (!IsFileChange(change)) return;
        if (Happens(change)) brought.insert(PlainName(change.tstrTarget));
        if (change.eOutcome == Outcome::eRemove) deleted.insert(PlainName(change.tstrTarget));
    });
    for (const PendingMove& move : check.context.pending) {
        if (IsOurs(move, check.context.installed)) continue;
        const std::wstring tstrSource = PlainName(move.tstrSource);
        const std::wstring tstrPlace = PlainName(move.tstrDestination);
        if (brought.contains(tstrSource)) {
            check.Find(tstrSource, L"another program " +
                                       (tstrPlace.empty() ? L"deletes it" : L"moves it to " + tstrPlace) +
                                       L" at the restart");
        }
        if (brought.contains(tstrPlace) || deleted.contains(tstrPlace)) {
            check.Find(tstrPlace, L"another program moves " + tstrSource + L" there at the restart");
        }
    }
}

void CheckEarlierUpdate(Checking& check)
{
    const auto cOurs = std::ranges::count_if(
        check.context.pending, [&](const PendingMove& move) { return IsOurs(move, check.context.installed); });
    if (cOurs > 0) {
        check.Find(check.context.installed / kComponents,
                   Counted(static_cast<std::size_t>(cOurs), L"file of an earlier deployment still waits",
                           L"files of an earlier deployment still wait") +
                       L" for the restart");
    }
}

void CheckPlan(Checking& check)
{
    check.ForEachChange([&](const Change& change) {
        const std::wstring tstrWhat = change.tstrTarget + (change.tstrName.empty() ? L"" : L" " + change.tstrName);
        if (change.eOutcome == Outcome::eFail) check.Find(tstrWhat, change.tstrReason);
        if (change.eOutcome == Outcome::eUnknown) check.Skip(tstrWhat, change.tstrReason);
    });
}

void CheckRights(Checking& check)
{
    const Folder& installed = check.context.installed;
    String::NoCaseSet folders{installed.Text(), installed / kComponents};
    check.ForEachChange([&](const Change& change) {
        // Of what has arrived nothing is certain, either.
        if (Happens(change) && installed.Contains(change.tstrTarget))
            folders.insert(String::FolderPart(change.tstrTarget));
    });
    for (const DoubtfulPlace& place :
         ListDoubtfulPlaces(check.context.update, RightsOf::eFolders, {folders.begin(), folders.end()})) {
        if (place.eDoubt == Doubt::eUnreadable) {
            check.Skip(place.tstrPlace, DescribeError(place.dwError));
        } else if (place.eDoubt != Doubt::eLink) {
            check.Find(place.tstrPlace, Describe(place));
        }
    }
}

/// Whether a number below the system's control key is not 0; `bUnknown` when it does not exist.
bool IsOn(const Machine& machine, const std::wstring& tstrKey, const wchar_t* szName, bool bUnknown)
{
    RegistryData data = DWORD{0};
    const RegistryPlace place{.tstrKeyPath = kControlKey + tstrKey, .tstrName = szName};
    return machine.ReadValue(place, data, nullptr) ? std::get<DWORD>(data) != 0 : bUnknown;
}

/// Fast Startup needs hibernation: "powercfg /h off" ends both, but leaves the value of Fast Startup as it was.
void CheckFastStartup(Checking& check)
{
    if (IsOn(check.context.machine, L"Session Manager\\Power", L"HiberbootEnabled", false) &&
        IsOn(check.context.machine, L"Power", L"HibernateEnabled", true)) {
        check.Find(L"Fast Startup",
                   L"after a shutdown Windows does not start afresh, and carries out no pending moves");
    }
}

void CheckVersion(Checking& check)
{
    IniScan scan;
    if (!scan.Read(check.context.update.FullPath(kInstructionFile), nullptr)) return;
    std::wstring tstrVersions;
    for (const Instruction& instruction : ListInstructions(scan)) {
        if (instruction.pKey->eEffect != RecordEffect::eEditIni) continue;
        const ::IniRecord record = ParseIniRecord(instruction.pRecord->tstrValue);
        if (!record.IsComplete() || !IsVersionKey(record.tstrKey)) continue;
        std::wstring tstrInstalled;
        const bool bRead = check.context.machine.ReadIniValue(
            check.context.installed / kUpdateInfoFile, record.tstrSection, record.tstrKey, L"", tstrInstalled, nullptr);
        if (!bRead || tstrInstalled != record.tstrValue) return;
        tstrVersions += (tstrVersions.empty() ? L"" : L", ") + record.tstrKey + L"=" + record.tstrValue;
    }
    if (!tstrVersions.empty())
        check.Find(check.context.installed / kUpdateInfoFile, L"has " + tstrVersions + L" already");
}

struct CheckRow {
    const wchar_t* szName;
    const wchar_t* szRemedy;
    void (*pfnCheck)(Checking& check);
};
/// By number, from 1.
constexpr CheckRow kChecks[] = {
    {L"free-space", L"free the space on that drive", &CheckSpace},
    {L"in-use", L"end the program, or deploy when it has ended", &CheckInUse},
    {L"others-move", L"restart first", &CheckOthersMoves},
    {L"earlier-update", L"restart first", &CheckEarlierUpdate},
    {L"not-possible", L"see \"BrevantCheck plan\"; a missing folder is made by a record \"add\" in [QOR_DIR]",
     &CheckPlan},
    {L"open-folder", L"take the right to write from standard users", &CheckRights},
    {L"fast-startup", L"restart instead of shutting down, or switch Fast Startup off", &CheckFastStartup},
    {L"same-version", L"nothing to do, unless the update shall be deployed again", &CheckVersion},
};

}  // namespace

ReadyReport CheckReadiness(const ReadyContext& context)
{
    ReadyReport report;
    unsigned uNumber = 0;
    for (const CheckRow& row : kChecks) {
        Checking check(context, ++uNumber, report);
        row.pfnCheck(check);
    }
    return report;
}

const wchar_t* NameOfCheck(unsigned uNumber)
{
    return kChecks[uNumber - 1].szName;
}

const wchar_t* RemedyOf(unsigned uNumber)
{
    return kChecks[uNumber - 1].szRemedy;
}

}  // namespace Check
