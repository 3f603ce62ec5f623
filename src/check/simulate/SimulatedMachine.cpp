// The setup of the machine, and everything except files, registry and INI files.
#include "check/simulate/SimulatedMachine.h"

#include "check/simulate/RegistryText.h"
#include "check/update/LongPath.h"
#include "common/KzComn_File.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_Result.h"

#include <utility>

using namespace KzCommon;

namespace Check {

namespace {

struct UsualFolder {
    KnownFolder eFolder;
    const wchar_t* szPath;
};
constexpr UsualFolder kUsualFolders[] = {
    {KnownFolder::eWindows, L"C:\\Windows\\"},
    {KnownFolder::eSystem, L"C:\\Windows\\System32\\"},
    {KnownFolder::eCommonAppData, L"C:\\ProgramData\\"},
    {KnownFolder::eProgram, L"C:\\Program Files\\Kazmere\\KZVLT\\"},
};

struct RefusalRow {
    DWORD dwCode;
    const wchar_t* szWords;
};
constexpr RefusalRow kRefusals[] = {
    {ERROR_FILE_NOT_FOUND, L"there is no such file"},
    {ERROR_PATH_NOT_FOUND, L"the folder is missing"},
    {ERROR_ACCESS_DENIED, L"Windows refuses it"},
    {ERROR_NOT_SAME_DEVICE, L"on another drive"},
    {ERROR_FILE_EXISTS, L"a file has that name"},
    {ERROR_INVALID_PARAMETER, L"a name is too long"},
    {ERROR_INVALID_NAME, L"Windows refuses the name"},
    {ERROR_BAD_ARGUMENTS, L"the path is empty"},
    {ERROR_BAD_PATHNAME, L"the key path begins with a backslash"},
    {ERROR_ALREADY_EXISTS, L"something has that name"},
    {ERROR_FILENAME_EXCED_RANGE, L"longer than 247 characters"},
    {ERROR_DIRECTORY, L"a device or a file has that name"},
    {Storage::Directory::kStoppedOnLink, L"a junction or symbolic link leads there"},
};

}  // namespace

std::wstring DescribeRefusal(DWORD dwCode)
{
    for (const RefusalRow& row : kRefusals) {
        if (row.dwCode == dwCode) return row.szWords;
    }
    return L"error " + std::to_wstring(dwCode);
}

SimulatedMachine::SimulatedMachine(const Machine* pBase) : m_pBase(pBase), m_files(pBase), m_registry(pBase)
{
    if (pBase) return;
    for (const UsualFolder& folder : kUsualFolders) SetKnownFolder(folder.eFolder, folder.szPath);
}

void SimulatedMachine::AddFileFrom(const std::wstring& tstrPath, const std::wstring& tstrReal,
                                   std::optional<DWORD> optAttributes)
{
    auto pState = std::make_shared<FileState>();
    pState->tstrReal = FullPath(tstrReal).Text();
    pState->optAttributes = optAttributes;
    m_files.PutFile(FullPath(tstrPath), std::move(pState));
}

void SimulatedMachine::LayOver(const std::wstring& tstrFolder, const std::wstring& tstrRealFolder)
{
    const std::wstring tstrTarget = FullPath(tstrFolder).Text();
    const std::wstring tstrReal = FullPath(tstrRealFolder).Text();
    if (String::EqualsNoCase(tstrTarget, tstrReal)) return;
    std::vector<std::wstring> folders{std::wstring()};  // still to be copied, relative
    while (!folders.empty()) {
        const std::wstring tstrBelow = std::move(folders.back());
        folders.pop_back();
        m_files.PutFolder(FullPath(tstrTarget + tstrBelow));
        const auto lay = [&](const Storage::Directory::Entry& entry) {
            const std::wstring tstrName = tstrBelow + L'\\' + entry.tstrName;
            if (!entry.bFolder) {
                AddFileFrom(tstrTarget + tstrName, tstrReal + tstrName, entry.dwAttributes);
            } else if (entry.bLink) {
                m_files.PutFolder(FullPath(tstrTarget + tstrName), tstrReal + tstrName);
            } else {
                folders.push_back(tstrName);
            }
        };
        static_cast<void>(
            m_pBase->ForEachEntry(String::EnsureBackslash(LongPath(tstrReal + tstrBelow)), L"*", lay, nullptr));
    }
}

void SimulatedMachine::AddFile(const std::wstring& tstrPath, std::string_view strBytes, DWORD dwAttributes)
{
    auto pState = std::make_shared<FileState>();
    pState->optBytes = std::string(strBytes);
    pState->optAttributes = dwAttributes;
    m_files.PutFile(FullPath(tstrPath), std::move(pState));
}

void SimulatedMachine::AddFolder(const std::wstring& tstrPath)
{
    m_files.PutFolder(FullPath(tstrPath));
}

void SimulatedMachine::RemovePath(const std::wstring& tstrPath)
{
    m_files.Remove(FullPath(tstrPath));
}

void SimulatedMachine::AddMountPoint(const std::wstring& tstrFolder)
{
    m_files.PutFolder(FullPath(tstrFolder));
    m_mountPoints.push_back(FullPath(tstrFolder).Text() + L'\\');
}

void SimulatedMachine::SetValue(const RegistryPlace& place, std::optional<StoredValue> optValue)
{
    m_registry.Put(place, std::move(optValue));
}

std::vector<std::size_t> SimulatedMachine::LoadRegistryText(std::string_view strBytes)
{
    return ReadRegistryText(strBytes, {.key = [&](const RegistryPlace& key) { m_registry.PutKey(key); },
                                       .removeKey = [&](const RegistryPlace& key) { m_registry.RemoveKey(key); },
                                       .value =
                                           [&](const RegistryPlace& place, std::optional<StoredValue> optValue) {
                                               m_registry.Put(place, std::move(optValue));
                                           }});
}

void SimulatedMachine::SetKnownFolder(KnownFolder eFolder, const std::wstring& tstrFolder)
{
    m_knownFolders[eFolder] = String::EnsureBackslash(tstrFolder);
    if (!m_pBase) m_files.PutFolder(FullPath(tstrFolder));
}

std::vector<PlanStep> SimulatedMachine::Steps()
{
    SettleFailedCopy();
    return m_log.Steps();
}

bool SimulatedMachine::AreLongPathsOn() const
{
    // Windows checks this once, at program start.
    if (!m_optLongPaths) {
        RegistryData data = DWORD{0};
        m_optLongPaths = ReadValue({.tstrKeyPath = L"SYSTEM\\CurrentControlSet\\Control\\FileSystem",
                                    .tstrName = L"LongPathsEnabled"},
                                   data, nullptr) &&
                         std::get<DWORD>(data) != 0;
    }
    return *m_optLongPaths;
}

DWORD SimulatedMachine::Judge(const FullPath& path, std::size_t cchLong) const
{
    // Windows does not access a path that is too long.
    if (path.IsLong(cchLong) && !AreLongPathsOn()) return ERROR_PATH_NOT_FOUND;
    return path.Error();
}

Found SimulatedMachine::At(const FullPath& path) const
{
    if (path.IsDevice()) return {.eKind = Found::Kind::eFile, .dwAttributes = FILE_ATTRIBUTE_ARCHIVE};
    if (const DWORD dwCode = Judge(path)) return {.eKind = Found::Kind::eNone, .dwError = dwCode};
    return m_files.Find(path);
}

std::size_t SimulatedMachine::Record(Change change)
{
    SettleFailedCopy();
    return m_log.Add(std::move(change));
}

void SimulatedMachine::SettleFailedCopy()
{
    if (!m_optFailedCopy) return;
    m_log.Add(*std::exchange(m_optFailedCopy, std::nullopt));
}

std::wstring SimulatedMachine::FolderOf(KnownFolder eFolder) const
{
    const auto itFolder = m_knownFolders.find(eFolder);
    if (itFolder != m_knownFolders.end()) return itFolder->second;
    return m_pBase ? m_pBase->FolderOf(eFolder) : std::wstring();
}

bool SimulatedMachine::EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError) const
{
    if (!m_optProfiles && m_pBase) return m_pBase->EnumUserProfileFolders(folders, pdwError);
    folders = m_optProfiles.value_or(std::vector<std::wstring>());
    return true;
}

bool SimulatedMachine::IsTouchpadDriverTooOld() const
{
    return m_optTouchpadTooOld.value_or(m_pBase && m_pBase->IsTouchpadDriverTooOld());
}

DWORD SimulatedMachine::TickCount() const
{
    return m_pBase ? m_pBase->TickCount() : 0;
}

bool SimulatedMachine::AskAtConsole(std::wstring tstrTitle, std::wstring tstrMessage, DWORD /*dwStyle*/, bool& bAgreed,
                                    DWORD* /*pdwError*/)
{
    Change change{.eAction = Action::eAsk, .eOutcome = Outcome::eNew};
    change.tstrName = std::move(tstrTitle);
    change.tstrTarget = std::move(tstrMessage);
    Record(std::move(change));
    bAgreed = false;
    return true;
}

void SimulatedMachine::BeginOperation(const wchar_t* szName)
{
    SettleFailedCopy();
    m_log.Begin(szName);
}

}  // namespace Check
