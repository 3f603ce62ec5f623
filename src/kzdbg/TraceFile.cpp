#include "kzdbg/TraceFile.h"

#include "common/KzComn_Environment.h"
#include "common/KzComn_LockedFolder.h"

#include <cstdio>
#include <cwchar>
#include <iterator>

namespace KzDbg {

using KzCommon::UniqueFile;
using KzCommon::Storage::Directory::LockedFolder;

namespace {

constexpr std::size_t kMaxCharacters = 0x10000000;  // of one line
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

template <std::size_t N>
std::wstring TextOf(const wchar_t (&szField)[N])
{
    return {szField, ::wcsnlen(szField, N)};
}

DWORD DayOf(const SYSTEMTIME& time) noexcept
{
    return time.wYear * 10000U + time.wMonth * 100U + time.wDay;
}

/// The folder for temporary files: for services one that other users cannot write to, if Windows has one.
std::wstring TempFolder()
{
    const FARPROC pfnNewer = ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "GetTempPath2W");
    auto* const pfnGet =
        pfnNewer ? reinterpret_cast<decltype(&::GetTempPathW)>(reinterpret_cast<void*>(pfnNewer)) : &::GetTempPathW;
    wchar_t szTemp[MAX_PATH + 1] = {};
    pfnGet(static_cast<DWORD>(std::size(szTemp)), szTemp);
    return szTemp;
}

/// The full path of the folder with trailing backslash, so that it does not depend on the current folder. The folder of
/// the protected sessions begins with the user's profile.
std::wstring FolderOf(const DebugLogConfig& config)
{
    std::wstring tstrFolder = KzCommon::Process::ExpandEnvironment(TextOf(config.szLogFolder));
    if (tstrFolder.empty()) tstrFolder = TempFolder();
    // A bare drive means its root here, not its current folder.
    if (tstrFolder.ends_with(L':')) tstrFolder.push_back(L'\\');
    return KzCommon::Storage::Directory::FullPath(tstrFolder) + L'\\';
}

/// Locks the folder of a trace file and creates it if missing. Otherwise a user's link in the path could redirect
/// lines, which are written with full rights. Does not wait, because a trace must not block its program. Returns 0 or
/// the code.
DWORD HoldFolderOf(const std::wstring& tstrPath, LockedFolder& folder)
{
    DWORD dwError = ERROR_SUCCESS;
    const std::wstring tstrFolder = tstrPath.substr(0, tstrPath.find_last_of(L'\\'));
    return folder.Hold(tstrFolder, &dwError, {.bWait = false, .bMake = true}) ? DWORD{ERROR_SUCCESS} : dwError;
}

/// Whether a file has only one name. A hard link in the folder could redirect lines, which are written with full
/// rights.
bool IsPlainFile(HANDLE hFile) noexcept
{
    BY_HANDLE_FILE_INFORMATION info{};
    return ::GetFileInformationByHandle(hFile, &info) && !(info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
           info.nNumberOfLinks == 1;
}

/// Opens or creates a file of a folder for appending, but not a link. Returns 0 or the code, with `file` empty.
DWORD OpenForAppend(const std::wstring& tstrPath, const LockedFolder& folder, UniqueFile& file)
{
    constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    file.Reset();
    file.Reset(::CreateFileW(tstrPath.c_str(), FILE_APPEND_DATA | SYNCHRONIZE, kShareAll, nullptr, OPEN_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!file) return ::GetLastError();
    const bool bHere = folder.IsHomeOf(file.Get());
    if (bHere && IsPlainFile(file.Get())) return ERROR_SUCCESS;
    file.Reset();
    return bHere ? DWORD{ERROR_ACCESS_DENIED} : KzCommon::Storage::Directory::kStoppedOnLink;
}

struct FileState {
    ULONGLONG ullBytes = 0;
    bool bGone = true;
    [[nodiscard]] bool TakesLines() const noexcept { return !bGone && ullBytes < kFullBytes; }
};

FileState StateOf(const UniqueFile& file) noexcept
{
    FILE_STANDARD_INFO info{};
    if (!file || !::GetFileInformationByHandleEx(file.Get(), FileStandardInfo, &info, sizeof(info))) return {};
    return {static_cast<ULONGLONG>(info.EndOfFile.QuadPart), info.DeletePending || info.NumberOfLinks == 0};
}

bool Rename(const std::wstring& tstrFrom, const std::wstring& tstrTo) noexcept
{
    return ::MoveFileExW(tstrFrom.c_str(), tstrTo.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
}

/// Renames a file over another one. A process that has not written for a while may have the other one open: it then
/// cannot be replaced, but it can be renamed and is deleted when its last user closes it.
bool Replace(const std::wstring& tstrFrom, const std::wstring& tstrTo)
{
    if (Rename(tstrFrom, tstrTo)) return true;
    if (::GetLastError() == ERROR_FILE_NOT_FOUND) return false;
    const std::wstring tstrOld = tstrTo + L"." + std::to_wstring(::GetTickCount64());
    if (!Rename(tstrTo, tstrOld)) return false;
    ::DeleteFileW(tstrOld.c_str());
    return Rename(tstrFrom, tstrTo);
}

/// Renames a full file and its older ones to the next number. Does nothing when the file itself cannot be renamed
/// because another program has it open.
void Roll(const std::wstring& tstrPath)
{
    const std::wstring tstrFull = tstrPath + L".0";
    if (!Rename(tstrPath, tstrFull)) return;
    const auto kept = [&](unsigned uNumber) {
        return tstrPath + L"." + std::to_wstring(uNumber);
    };
    for (unsigned uNumber = kKeptFiles; uNumber > 1; --uNumber) Replace(kept(uNumber - 1), kept(uNumber));
    if (!Replace(tstrFull, kept(1))) Rename(tstrFull, tstrPath);
}

/// Stores the UTF-8 bytes of a line in a buffer that only grows. Returns their number, 0 when the line cannot be
/// encoded.
DWORD Encode(const wchar_t* szLine, std::vector<char>& bytes)
{
    const std::size_t cch = std::wcslen(szLine);
    if (cch == 0 || cch > kMaxCharacters) return 0;
    if (bytes.size() < cch * 3) bytes.resize(cch * 3);
    return static_cast<DWORD>(::WideCharToMultiByte(CP_UTF8, 0, szLine, static_cast<int>(cch), bytes.data(),
                                                    static_cast<int>(bytes.size()), nullptr, nullptr));
}

DWORD Write(const UniqueFile& file, const char* pbData, DWORD cbData) noexcept
{
    DWORD cbWritten = 0;
    if (!::WriteFile(file.Get(), pbData, cbData, &cbWritten, nullptr)) return ::GetLastError();
    return cbWritten == cbData ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

std::wstring StemOf(const DebugLogConfig& config)
{
    std::wstring tstrStem = FolderOf(config) + TextOf(config.szLogPrefix) + L"_";
    tstrStem += config.szLogFile[0] ? TextOf(config.szLogFile) : TextOf(config.szModuleName);
    if (config.dwLogProcess) tstrStem += L"_" + std::to_wstring(::GetCurrentProcessId());
    return tstrStem;
}

std::wstring ExtensionOf(const DebugLogConfig& config)
{
    const std::wstring tstrExtension = TextOf(config.szLogExtension);
    return tstrExtension.empty() ? tstrExtension : L"." + tstrExtension;
}

}  // namespace

TraceFile::TraceFile(const DebugLogConfig& config)
    : m_tstrModule(TextOf(config.szModuleName)),
      m_tstrStem(StemOf(config)),
      m_tstrExtension(ExtensionOf(config)),
      m_bDated(config.dwLogUnitType == 1),
      m_bRobust(config.bRobust != 0),
      m_bDebugger(config.bDebugger != 0),
      m_sharedLock(m_tstrStem + m_tstrExtension)
{
}

DWORD TraceFile::Open(const SYSTEMTIME& time)
{
    const std::lock_guard lock(m_lock);
    const SharedLockHold hold(m_sharedLock);
    return Reopen(time, hold.IsHeld());
}

DWORD TraceFile::Append(const SYSTEMTIME& time, const wchar_t* szLine)
{
    if (m_bDebugger) ::OutputDebugStringW(szLine);
    if (!*szLine) return ERROR_SUCCESS;
    const std::lock_guard lock(m_lock);
    const DWORD dwError = m_cLost ? WriteLine(time, (LossLine(time) + szLine).c_str()) : WriteLine(time, szLine);
    m_cLost = dwError == ERROR_SUCCESS ? 0 : m_cLost + 1;
    m_dwLossError = dwError;
    if (dwError != ERROR_SUCCESS || !m_bRobust || ::FlushFileBuffers(m_file.Get())) return dwError;
    return ::GetLastError();
}

std::wstring TraceFile::LossLine(const SYSTEMTIME& time) const
{
    wchar_t szLine[256] = {};
    ::_snwprintf(szLine, std::size(szLine) - 1,
                 L"%02u/%02u/%04u %02u:%02u:%02u.%03u %04lx:%04lx !!! <%s> *** Lines lost while the trace file could "
                 L"not be written: %lu. [0x%08lx] - TraceFile.cpp(%d)\r\n",
                 time.wDay, time.wMonth, time.wYear, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds,
                 ::GetCurrentProcessId(), ::GetCurrentThreadId(), m_tstrModule.c_str(), m_cLost, m_dwLossError,
                 __LINE__);
    return szLine;
}

DWORD TraceFile::WriteLine(const SYSTEMTIME& time, const wchar_t* szLine)
{
    const DWORD cb = Encode(szLine, m_bytes);
    return cb ? WriteEncoded(time, cb) : ERROR_INVALID_PARAMETER;
}

std::wstring TraceFile::PathOf(const SYSTEMTIME& time) const
{
    wchar_t szDate[32] = {};
    if (m_bDated) ::_snwprintf(szDate, std::size(szDate) - 1, L"_%04u%02u%02u", time.wYear, time.wMonth, time.wDay);
    return m_tstrStem + szDate + m_tstrExtension;
}

bool TraceFile::IsReady(const SYSTEMTIME& time) const noexcept
{
    return StateOf(m_file).TakesLines() && IsOfDay(time);
}

bool TraceFile::IsReadyAlone(const SYSTEMTIME& time) noexcept
{
    const ULONGLONG ullNow = ::GetTickCount64();
    if (ullNow == m_ullLooked && m_ullBytes < kFullBytes && IsOfDay(time)) return true;
    const FileState state = StateOf(m_file);
    m_ullLooked = ullNow;
    m_ullBytes = state.ullBytes;
    return state.TakesLines() && IsOfDay(time);
}

bool TraceFile::IsOfDay(const SYSTEMTIME& time) const noexcept
{
    return !m_bDated || DayOf(time) == m_dwDay;
}

DWORD TraceFile::WriteEncoded(const SYSTEMTIME& time, DWORD cbLine)
{
    if (m_sharedLock.BeginAlone()) {
        const bool bReady = IsReadyAlone(time);
        const DWORD dwError = bReady ? Write(m_file, m_bytes.data(), cbLine) : ERROR_SUCCESS;
        m_sharedLock.EndAlone();
        m_ullBytes += cbLine;
        if (bReady) return dwError;
    }
    m_ullLooked = 0;
    const SharedLockHold hold(m_sharedLock);
    const DWORD dwError = IsReady(time) ? ERROR_SUCCESS : Reopen(time, hold.IsHeld());
    return dwError == ERROR_SUCCESS ? Write(m_file, m_bytes.data(), cbLine) : dwError;
}

DWORD TraceFile::Reopen(const SYSTEMTIME& time, bool bMayRoll)
{
    const std::wstring tstrPath = PathOf(time);
    // The name of a deleted file may stay in use as long as the file is open.
    if (StateOf(m_file).bGone) m_file.Reset();
    LockedFolder folder;
    UniqueFile file;
    DWORD dwError = HoldFolderOf(tstrPath, folder);
    if (dwError == ERROR_SUCCESS) dwError = OpenForAppend(tstrPath, folder, file);
    if (bMayRoll && StateOf(file).ullBytes >= kFullBytes) {
        file.Reset();
        m_file.Reset();
        Roll(tstrPath);
        dwError = OpenForAppend(tstrPath, folder, file);
    }
    if (dwError == ERROR_SUCCESS && StateOf(file).ullBytes == 0) {
        dwError = Write(file, kByteOrderMark, sizeof(kByteOrderMark) - 1);
    }
    if (dwError != ERROR_SUCCESS) return dwError;
    m_file = std::move(file);
    m_dwDay = DayOf(time);
    return ERROR_SUCCESS;
}

}  // namespace KzDbg
