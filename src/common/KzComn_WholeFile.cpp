#include "common/KzComn_WholeFile.h"

#include "common/KzComn_ByteArray.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Retry.h"

#include <cwchar>

namespace KzCommon::Storage::File {

namespace {

[[nodiscard]] bool Fail(DWORD dwCode, DWORD* pdwError) noexcept
{
    if (pdwError) *pdwError = dwCode;
    return false;
}

/// The access rights of an existing file, for a new one that is to take its place.
class AccessRightsOf {
public:
    /// False with the code when they cannot be read: the new file could then be open to more users than the old one.
    [[nodiscard]] bool Read(const std::wstring& tstrPath, DWORD* pdwError)
    {
        DWORD cb = 0;
        ::GetFileSecurityW(tstrPath.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &cb);
        if (cb == 0) return Fail(::GetLastError(), pdwError);
        m_descriptor.Allocate(cb);
        if (!::GetFileSecurityW(tstrPath.c_str(), DACL_SECURITY_INFORMATION, m_descriptor.Data(), cb, &cb)) {
            return Fail(::GetLastError(), pdwError);
        }
        m_attributes.lpSecurityDescriptor = m_descriptor.Data();
        return true;
    }
    [[nodiscard]] SECURITY_ATTRIBUTES* Get() noexcept { return &m_attributes; }

private:
    ByteArray m_descriptor;
    SECURITY_ATTRIBUTES m_attributes{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
};

/// Removes what earlier runs left beside `tstrTarget` when they were ended half-way. The file of a run that still
/// writes cannot be deleted.
void RemoveLeftovers(const std::wstring& tstrTarget)
{
    const std::size_t uName = tstrTarget.find_last_of(L'\\') + 1;
    const std::wstring tstrPattern = tstrTarget.substr(uName) +
                                     L".????????"
                                     L"-??.tmp";
    static_cast<void>(Directory::DeleteFiles(tstrTarget.substr(0, uName), tstrPattern, nullptr));
}

/// A file that is gone with this object unless it took another's place.
class TemporaryFile {
public:
    TemporaryFile() = default;
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        m_hFile.Reset();
        if (!m_tstrPath.empty()) ::DeleteFileW(m_tstrPath.c_str());
    }

    /// Creates the file beside `tstrTarget`.
    [[nodiscard]] bool Create(const std::wstring& tstrTarget, DWORD dwAttributes, SECURITY_ATTRIBUTES* pSecurity,
                              DWORD* pdwError)
    {
        constexpr unsigned kMostNames = 100;
        for (unsigned uName = 0; uName < kMostNames; ++uName) {
            wchar_t szSuffix[32] = {};
            ::_snwprintf_s(szSuffix, _TRUNCATE, L".%08lx-%02u.tmp", ::GetCurrentProcessId(), uName);
            const std::wstring tstrPath = tstrTarget + szSuffix;
            m_hFile.Reset(
                ::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, 0, pSecurity, CREATE_NEW, dwAttributes, nullptr));
            if (m_hFile) {
                m_tstrPath = tstrPath;
                return true;
            }
            const DWORD dwError = ::GetLastError();
            if (dwError != ERROR_FILE_EXISTS) return Fail(dwError, pdwError);
        }
        return Fail(ERROR_FILE_EXISTS, pdwError);
    }

    /// Writes and flushes everything and closes the file.
    [[nodiscard]] bool Fill(std::string_view strBytes, DWORD* pdwError)
    {
        DWORD cbWritten = 0;
        const DWORD cb = static_cast<DWORD>(strBytes.size());
        const bool bOk =
            ::WriteFile(m_hFile.Get(), strBytes.data(), cb, &cbWritten, nullptr) && ::FlushFileBuffers(m_hFile.Get());
        const DWORD dwError = ::GetLastError();
        m_hFile.Reset();
        if (!bOk) return Fail(dwError, pdwError);
        return cbWritten == cb || Fail(ERROR_DISK_FULL, pdwError);
    }

    /// Takes the place of `tstrTarget`. A plain rename: unlike ReplaceFileW it leaves no moment without a file.
    [[nodiscard]] bool TakePlaceOf(const std::wstring& tstrTarget, DWORD* pdwError)
    {
        constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
        if (!::MoveFileExW(m_tstrPath.c_str(), tstrTarget.c_str(), kFlags)) return Fail(::GetLastError(), pdwError);
        m_tstrPath.clear();
        return true;
    }

private:
    UniqueFile m_hFile;
    std::wstring m_tstrPath;
};

}  // namespace

bool ReadWhole(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    UniqueFile file;
    const auto open = [&](DWORD& dwError) {
        file.Reset(::CreateFileW(tstrPath.c_str(), GENERIC_READ, kShare, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        dwError = file ? ERROR_SUCCESS : ::GetLastError();
        return file.IsValid();
    };
    if (!TryWhileHeld(open, pdwError)) return false;
    LARGE_INTEGER liSize{};
    if (!::GetFileSizeEx(file.Get(), &liSize)) return Fail(::GetLastError(), pdwError);
    if (static_cast<ULONGLONG>(liSize.QuadPart) > cbMost) return Fail(ERROR_FILE_TOO_LARGE, pdwError);

    std::string strRead(static_cast<std::size_t>(liSize.QuadPart), '\0');
    DWORD cbRead = 0;
    if (!::ReadFile(file.Get(), strRead.data(), static_cast<DWORD>(strRead.size()), &cbRead, nullptr)) {
        return Fail(::GetLastError(), pdwError);
    }
    strRead.resize(cbRead);  // less when the file was cut in between
    strBytes = std::move(strRead);
    return true;
}

bool ReplaceWhole(const std::wstring& tstrPath, std::string_view strBytes, DWORD* pdwError)
{
    const DWORD dwAttributes = ::GetFileAttributesW(tstrPath.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES) return Fail(::GetLastError(), pdwError);
    if (dwAttributes & FILE_ATTRIBUTE_READONLY) return Fail(ERROR_ACCESS_DENIED, pdwError);
    AccessRightsOf rights;
    if (!rights.Read(tstrPath, pdwError)) return false;
    RemoveLeftovers(tstrPath);
    constexpr DWORD kKept = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE |
                            FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_ENCRYPTED;
    TemporaryFile temporary;
    return temporary.Create(tstrPath, dwAttributes & kKept, rights.Get(), pdwError) &&
           temporary.Fill(strBytes, pdwError) && temporary.TakePlaceOf(tstrPath, pdwError);
}

bool KeepCopy(const std::wstring& tstrCopy, const std::wstring& tstrSource, DWORD* pdwError)
{
    return ::CopyFileW(tstrSource.c_str(), tstrCopy.c_str(), FALSE) || Fail(::GetLastError(), pdwError);
}

}  // namespace KzCommon::Storage::File
