#include "kzdbg/SharedLock.h"

#include <sddl.h>

#include <cstdio>
#include <iterator>

namespace KzDbg {

namespace {

constexpr DWORD kPatienceMilliseconds = 500;
constexpr int kSectionAttempts = 3;

/// Everyone may use the lock, including services and low-integrity processes, but not block other users.
constexpr wchar_t kEverybodyMayUse[] = L"D:(A;;GRGWGX;;;WD)S:(ML;;NW;;;LW)";

/// A name of limited length without backslashes, the same for the same path: the path's FNV-1a hash.
std::wstring NameOf(std::wstring tstrPath)
{
    const int cch = static_cast<int>(tstrPath.size());
    ::LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, tstrPath.c_str(), cch, tstrPath.data(), cch, nullptr,
                    nullptr, 0);
    ULONGLONG ullHash = 0xCBF29CE484222325;
    for (const wchar_t ch : tstrPath) ullHash = (ullHash ^ ch) * 0x100000001B3;
    wchar_t szName[32] = {};
    ::_snwprintf(szName, std::size(szName) - 1, L"KzDbg-%016I64x", ullHash);
    return szName;
}

/// Creates the section with that name or opens an existing one; null when both fail. Creating requires more access than
/// an existing section grants, so when several users start at once, one creates the section and the others are refused
/// and open it. A section that disappeared in between is created after all.
KzCommon::UniqueKernelHandle OpenSection(SECURITY_ATTRIBUTES& attributes, const std::wstring& tstrName,
                                         DWORD cb) noexcept
{
    KzCommon::UniqueKernelHandle section;
    for (int nAttempt = 0; !section && nAttempt < kSectionAttempts; ++nAttempt) {
        section.Reset(::CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0, cb, tstrName.c_str()));
        if (!section) {
            section.Reset(::OpenFileMappingW(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, tstrName.c_str()));
        }
    }
    return section;
}

/// Whether the memory is committed: another program may have created a section of that name that is only reserved.
bool IsUsable(const void* pView, SIZE_T cb) noexcept
{
    MEMORY_BASIC_INFORMATION info{};
    return ::VirtualQuery(pView, &info, sizeof(info)) != 0 && info.State == MEM_COMMIT && info.RegionSize >= cb;
}

}  // namespace

SharedLock::SharedLock(const std::wstring& tstrPath) : m_dwPatience(kPatienceMilliseconds)
{
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), nullptr, FALSE};
    ::ConvertStringSecurityDescriptorToSecurityDescriptorW(kEverybodyMayUse, SDDL_REVISION_1,
                                                           &attributes.lpSecurityDescriptor, nullptr);
    const std::wstring tstrName = NameOf(tstrPath);
    m_mutex.Reset(::CreateMutexExW(&attributes, (L"Global\\" + tstrName).c_str(), 0, SYNCHRONIZE | MUTEX_MODIFY_STATE));
    // Creating a global section requires a privilege; without it, only users of the same session are counted.
    for (const wchar_t* szSpace : {L"Global\\", L"Local\\"}) {
        if (!m_section) m_section = OpenSection(attributes, szSpace + tstrName + L"-users", sizeof(Users));
    }
    ::LocalFree(attributes.lpSecurityDescriptor);

    if (!m_section) return;
    constexpr DWORD kReadAndWrite = FILE_MAP_READ | FILE_MAP_WRITE;
    void* pView = ::MapViewOfFile(m_section.Get(), kReadAndWrite, 0, 0, sizeof(Users));
    if (!pView) return;
    if (!IsUsable(pView, sizeof(Users))) {
        ::UnmapViewOfFile(pView);
        return;
    }
    m_pUsers = static_cast<Users*>(pView);
    ::InterlockedIncrement(&m_pUsers->lCount);
    // From now on the other users know of this one; one that was alone may still be writing a line.
    const ULONGLONG ullStart = ::GetTickCount64();
    while (m_pUsers->lBusyAlone && ::GetTickCount64() - ullStart < kPatienceMilliseconds) ::Sleep(1);
}

SharedLock::~SharedLock()
{
    if (!m_pUsers) return;
    ::InterlockedDecrement(&m_pUsers->lCount);
    ::UnmapViewOfFile(m_pUsers);
}

bool SharedLock::BeginAlone() noexcept
{
    // A user that was killed stays counted, so the others then take the lock without need.
    if (!m_pUsers || m_pUsers->lCount != 1) return false;
    ::InterlockedExchange(&m_pUsers->lBusyAlone, TRUE);
    if (m_pUsers->lCount == 1) return true;
    EndAlone();
    return false;
}

void SharedLock::EndAlone() noexcept
{
    ::InterlockedExchange(&m_pUsers->lBusyAlone, FALSE);
}

bool SharedLock::Acquire() noexcept
{
    if (!m_mutex) return false;
    const DWORD dwWait = ::WaitForSingleObject(m_mutex.Get(), m_dwPatience);
    // A process that ended while it owned the lock leaves the files in a usable state.
    const bool bHeld = dwWait == WAIT_OBJECT_0 || dwWait == WAIT_ABANDONED;
    m_dwPatience = bHeld ? kPatienceMilliseconds : 0;
    return bHeld;
}

void SharedLock::Release() noexcept
{
    ::ReleaseMutex(m_mutex.Get());
}

}  // namespace KzDbg
