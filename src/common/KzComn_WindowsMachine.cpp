#include "common/KzComn_WindowsMachine.h"

#include "common/KzComn_AccessControl.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_Result.h"
#include "common/KzComn_Retry.h"
#include "common/KzComn_WholeFile.h"
#include "common/QorCommon_Touchpad.h"

#include <wtsapi32.h>

namespace KzCommon {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool IdentityOf(const std::wstring& tstrPath, BY_HANDLE_FILE_INFORMATION& info)
{
    // Works also for a file in use, because only its attributes are requested.
    const UniqueFile file(::CreateFileW(tstrPath.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING,
                                        FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    return file && ::GetFileInformationByHandle(file.Get(), &info);
}

/// Opens a file for shared reading. A missing file, or a folder with that name, is not a failure.
bool OpenForReading(const std::wstring& tstrPath, UniqueFile& file, DWORD& dwError)
{
    file.Reset(::CreateFileW(tstrPath.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                             nullptr));
    char chFirst = 0;
    DWORD cbRead = 0;
    if (file && ::ReadFile(file.Get(), &chFirst, 1, &cbRead, nullptr)) return true;
    dwError = ::GetLastError();
    return !Storage::IsInUse(dwError) || Storage::Directory::IsExisted(tstrPath);
}

DWORD BytesOf(const std::wstring& tstrText)
{
    return static_cast<DWORD>(tstrText.size() * sizeof(wchar_t));
}

}  // namespace

bool WindowsMachine::ReadValue(const RegistryPlace& place, RegistryData& data, DWORD* pdwError) const
{
    return std::visit(
        [&](auto& value) {
            return Storage::Reg::ReadValue(place.hRoot, place.tstrKeyPath, place.tstrName, value, place.dwView,
                                           pdwError);
        },
        data);
}

bool WindowsMachine::ReadStored(const RegistryPlace& place, StoredValue& value, DWORD* pdwError) const
{
    return Storage::Reg::ReadStored(place.hRoot, place.tstrKeyPath, place.tstrName, value.dwType, value.strBytes,
                                    place.dwView, pdwError);
}

bool WindowsMachine::HasKey(const RegistryPlace& place) const
{
    return Storage::Reg::HasKey(place.hRoot, place.tstrKeyPath, place.dwView);
}

bool WindowsMachine::StoreValue(const RegistryPlace& place, const RegistryData& data, DWORD* pdwError)
{
    return std::visit(
        [&](const auto& value) {
            return Storage::Reg::StoreValue(place.hRoot, place.tstrKeyPath, place.tstrName, value, place.dwView,
                                            pdwError);
        },
        data);
}

bool WindowsMachine::DeleteValue(const RegistryPlace& place, DWORD* pdwError)
{
    return Storage::Reg::DeleteValue(place.hRoot, place.tstrKeyPath, place.tstrName, place.dwView, pdwError);
}

bool WindowsMachine::ReadAttributes(const std::wstring& tstrPath, DWORD& dwAttributes, DWORD* pdwError) const
{
    const DWORD dwFound = ::GetFileAttributesW(tstrPath.c_str());
    if (dwFound == INVALID_FILE_ATTRIBUTES) return Storage::Fail(::GetLastError(), pdwError);
    dwAttributes = dwFound;
    return true;
}

bool WindowsMachine::IsLink(const std::wstring& tstrPath) const
{
    return Storage::Directory::IsLink(tstrPath);
}

bool WindowsMachine::ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                  const std::function<void(const Storage::Directory::Entry&)>& visit,
                                  DWORD* pdwError) const
{
    return Storage::Directory::ForEachEntry(tstrFolder, tstrPattern, visit, pdwError);
}

bool WindowsMachine::IsSameFile(const std::wstring& tstrPath, const std::wstring& tstrOther) const
{
    BY_HANDLE_FILE_INFORMATION file{};
    BY_HANDLE_FILE_INFORMATION other{};
    return IdentityOf(tstrPath, file) && IdentityOf(tstrOther, other) &&
           file.dwVolumeSerialNumber == other.dwVolumeSerialNumber && file.nFileIndexHigh == other.nFileIndexHigh &&
           file.nFileIndexLow == other.nFileIndexLow;
}

Volume WindowsMachine::VolumeOf(const std::wstring& tstrFolder) const
{
    Volume volume;
    wchar_t szMount[MAX_PATH] = {};
    if (::GetVolumePathNameW(tstrFolder.c_str(), szMount, MAX_PATH)) {
        volume.tstrMountPoint = szMount;
    } else {
        volume.dwError = ::GetLastError();
    }
    return volume;
}

bool WindowsMachine::ReadContent(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes,
                                 DWORD* pdwError) const
{
    return Storage::File::ReadWhole(tstrPath, cbMost, strBytes, pdwError);
}

bool WindowsMachine::LeadsThroughLink(const std::wstring& tstrFolder) const
{
    return Storage::Directory::LeadsThroughLink(tstrFolder);
}

bool WindowsMachine::CreateFolder(const std::wstring& tstrPath, DWORD* pdwError)
{
    AccessControl::SecurityAttributes attributes;
    return Storage::Directory::Create(tstrPath, attributes.Get(), pdwError);
}

bool WindowsMachine::CopyNow(const std::wstring& tstrDestination, const std::wstring& tstrSource, CopyMode eMode,
                             DWORD* pdwError)
{
    m_readOnly.insert(tstrDestination);  // a copy keeps its attributes
    return Storage::File::Copy(tstrDestination, tstrSource, eMode == CopyMode::eOverwrite, pdwError,
                               eMode != CopyMode::eNewImmediate);
}

bool WindowsMachine::BackUp(const std::wstring& tstrCopy, const std::wstring& tstrSource, DWORD* pdwError)
{
    return Storage::File::Backup(tstrCopy, tstrSource, pdwError);
}

bool WindowsMachine::LinkTo(const std::wstring& tstrName, const std::wstring& tstrFile, DWORD* pdwError)
{
    return ::CreateHardLinkW(tstrName.c_str(), tstrFile.c_str(), nullptr) || Storage::Fail(::GetLastError(), pdwError);
}

bool WindowsMachine::MoveNow(const std::wstring& tstrSource, const std::wstring& tstrDestination, DWORD* pdwError)
{
    const auto move = [&](DWORD& dwError) {
        if (::MoveFileExW(tstrSource.c_str(), tstrDestination.c_str(), 0)) return true;
        dwError = ::GetLastError();
        return false;
    };
    return Storage::RetryWhileInUse(move, pdwError);
}

bool WindowsMachine::DeleteNow(const std::wstring& tstrPath, DWORD* pdwError)
{
    return Storage::File::Delete(tstrPath, pdwError);
}

bool WindowsMachine::DeleteMatchingNow(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                                       const Storage::Directory::Spared& isSpared)
{
    return Storage::Directory::DeleteFiles(tstrFolder, tstrPattern, pdwError, isSpared);
}

bool WindowsMachine::MakeWritable(const std::wstring& tstrPath, DWORD* pdwError)
{
    return Storage::File::MakeWritable(tstrPath, pdwError);
}

bool WindowsMachine::ReplaceContent(const std::wstring& tstrPath, std::string_view strBytes, DWORD* pdwError)
{
    return Storage::File::ReplaceWhole(tstrPath, strBytes, pdwError);
}

bool WindowsMachine::MoveAtRestart(const std::wstring& tstrSource, const std::wstring& tstrDestination, DWORD* pdwError)
{
    return Storage::File::MoveAtRestart(tstrSource, tstrDestination, pdwError, MayBeReadOnly(tstrDestination));
}

/// Lists a folder once for all the files that are moved to it: to ask for each of them takes longer.
bool WindowsMachine::MayBeReadOnly(const std::wstring& tstrPath)
{
    const std::wstring tstrFolder = String::FolderPart(tstrPath);
    if (tstrFolder != m_tstrListed) {
        m_tstrListed = tstrFolder;
        m_readOnly.clear();
        const auto add = [&](const Storage::Directory::Entry& entry) {
            if (entry.dwAttributes & FILE_ATTRIBUTE_READONLY) m_readOnly.insert(tstrFolder + entry.tstrName);
        };
        DWORD dwError = ERROR_SUCCESS;
        m_bListed = Storage::Directory::ForEachEntry(tstrFolder, L"*", add, &dwError) ||
                    dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND;
    }
    return !m_bListed || m_readOnly.contains(tstrPath);
}

bool WindowsMachine::DeleteMatchingAtRestart(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                             DWORD* pdwError, const Storage::Directory::Spared& isSpared)
{
    return Storage::Directory::ScheduleDeleteFiles(tstrFolder, tstrPattern, pdwError, isSpared);
}

bool WindowsMachine::DeleteTreeAtRestart(const std::wstring& tstrFolder, DWORD* pdwError,
                                         const Storage::Directory::Spared& isSpared)
{
    return Storage::Directory::ScheduleDeleteTree(tstrFolder, pdwError, isSpared);
}

Storage::Ini::Section WindowsMachine::ReadIniSection(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                                     const Storage::Ini::SectionGrowth& growth) const
{
    Storage::Ini::Section section;
    const auto read = [&](DWORD& dwError) {
        section = Storage::Ini::ReadSection(tstrPath, tstrSection, growth);
        dwError = section.dwError;
        return section.eOutcome != Storage::Ini::SectionOutcome::eFailed;
    };
    static_cast<void>(Storage::RetryWhileInUse(
        read, [&] { return !Storage::Directory::IsExisted(tstrPath); }, nullptr));
    return section;
}

bool WindowsMachine::ReadIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                  const std::wstring& tstrKey, const std::wstring& tstrDefault, std::wstring& tstrValue,
                                  DWORD* pdwError) const
{
    // For a file in use, the system returns the default without an error. So open the file first and keep it open, so
    // that no other program can lock it meanwhile.
    UniqueFile file;
    const auto open = [&](DWORD& dwError) {
        return OpenForReading(tstrPath, file, dwError);
    };
    if (!tstrPath.empty() && !Storage::RetryWhileInUse(open, pdwError)) return false;
    tstrValue = tstrDefault;
    return Storage::Guarded(pdwError, [&] {
        Storage::IniFile iniFile;
        iniFile.Open(tstrPath);
        tstrValue = iniFile.ReadString(tstrSection, tstrKey, tstrDefault);
    });
}

bool WindowsMachine::StoreIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                   const std::wstring& tstrKey, const std::wstring& tstrValue,
                                   Storage::Patience& patience, DWORD* pdwError)
{
    return Storage::Ini::StoreValue(tstrPath, tstrSection, tstrKey, tstrValue, patience) ||
           Storage::Fail(::GetLastError(), pdwError);
}

std::wstring WindowsMachine::FolderOf(KnownFolder eFolder) const
{
    switch (eFolder) {
        case KnownFolder::eWindows: return Process::WindowsFolder();
        case KnownFolder::eSystem: return Process::SystemFolder();
        case KnownFolder::eCommonAppData: return Process::CommonAppDataFolder();
        case KnownFolder::eProgram: return Process::ProgramFolder();
    }
    return {};
}

bool WindowsMachine::EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError) const
{
    return Process::EnumUserProfileFolders(folders, pdwError);
}

bool WindowsMachine::IsTouchpadDriverTooOld() const
{
    return QorCommon::IsETDExistAndDriverNotUpToDate();
}

DWORD WindowsMachine::TickCount() const
{
    return ::GetTickCount();
}

bool WindowsMachine::AskAtConsole(std::wstring tstrTitle, std::wstring tstrMessage, DWORD dwStyle, bool& bAgreed,
                                  DWORD* pdwError)
{
    constexpr DWORD kNoSession = 0xFFFFFFFF;  // while the console changes sessions
    const DWORD dwSession = ::WTSGetActiveConsoleSessionId();
    // As a session id this would mean the program's own session, where the user may never see the question.
    if (dwSession == kNoSession) return Storage::Fail(ERROR_NO_SUCH_LOGON_SESSION, pdwError);
    // A console window must not stay open behind a question that may wait for hours.
    ::FreeConsole();
    DWORD dwAnswer = 0;
    if (!::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, dwSession, tstrTitle.data(), BytesOf(tstrTitle),
                           tstrMessage.data(), BytesOf(tstrMessage), dwStyle, 0, &dwAnswer, TRUE)) {
        return Storage::Fail(::GetLastError(), pdwError);
    }
    bAgreed = dwAnswer == IDOK;
    return true;
}

}  // namespace KzCommon
