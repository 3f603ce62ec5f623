#include "common/KzComn_IniFile.h"

#include "common/KzComn_String.h"

#include <cwchar>
#include <memory>
#include <new>

namespace KzCommon::Storage {

namespace {

constexpr DWORD kFirstValueCharacters = 512;
constexpr DWORD kMaxValueCharacters = 1024 * 1024;

/// Splits one "key=value" line and adds it to the list; ignores other lines.
void AddEntry(std::wstring_view tstrLine, std::vector<std::pair<std::wstring, std::wstring>>& entries)
{
    const std::size_t uFirst = tstrLine.find(L'=');
    if (uFirst == std::wstring_view::npos) return;
    const std::size_t uValue = tstrLine.find_first_not_of(L'=', uFirst);
    if (uValue == std::wstring_view::npos) return;
    entries.emplace_back(tstrLine.substr(0, uValue - 1), tstrLine.substr(uValue));
}

}  // namespace

void IniFile::Open(const std::wstring& tstrPath)
{
    if (tstrPath.empty()) Throw(ERROR_BAD_ARGUMENTS);
    m_tstrPath = tstrPath;
    m_tstrSection.clear();
}

void IniFile::Open(const Key& key, const wchar_t* szSection)
{
    Open(std::wstring(key.m_szPath ? key.m_szPath : L""));
    m_tstrSection = szSection ? szSection : L"";
}

void IniFile::Close() noexcept
{
    m_tstrPath.clear();
    m_tstrSection.clear();
}

std::wstring IniFile::ReadString(const std::wstring& tstrSection, const std::wstring& tstrKey,
                                 const std::wstring& tstrDefault) const
{
    RequireReady();
    std::wstring tstrValue;
    for (DWORD cch = kFirstValueCharacters; cch <= kMaxValueCharacters; cch *= 2) {
        tstrValue.assign(cch, L'\0');
        const DWORD cchRead = ::GetPrivateProfileStringW(tstrSection.c_str(), tstrKey.c_str(), tstrDefault.c_str(),
                                                         tstrValue.data(), cch, m_tstrPath.c_str());
        tstrValue.resize(cchRead);
        if (cchRead < cch - 1) break;
    }
    return tstrValue;
}

std::wstring IniFile::ReadString(const std::wstring& tstrKey, const std::wstring& tstrDefault) const
{
    return ReadString(m_tstrSection, tstrKey, tstrDefault);
}

void IniFile::ReadDword(const std::wstring& tstrKey, DWORD& dwValue) const
{
    const std::wstring tstrValue = ReadString(tstrKey, L"");
    if (!tstrValue.empty()) dwValue = String::ToDwordStrict(tstrValue);
}

void IniFile::StoreString(const std::wstring& tstrSection, const std::wstring& tstrKey,
                          const std::wstring& tstrValue) const
{
    RequireReady();
    if (!::WritePrivateProfileStringW(tstrSection.c_str(), tstrKey.c_str(), tstrValue.c_str(), m_tstrPath.c_str())) {
        Throw(::GetLastError());
    }
}

void IniFile::RequireReady() const
{
    if (!IsReady()) Throw(ERROR_INVALID_HANDLE);
}

namespace Ini {

bool StoreValue(const std::wstring& tstrPath, const std::wstring& tstrSection, const std::wstring& tstrKey,
                const std::wstring& tstrValue, Patience& patience)
{
    const auto store = [&](DWORD& dwCode) {
        return Guarded(&dwCode, [&] {
            IniFile iniFile;
            iniFile.Open(tstrPath);
            iniFile.StoreString(tstrSection, tstrKey, tstrValue);
        });
    };
    const auto mayPass = [&] {
        constexpr DWORD kLasting = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY;
        const DWORD dwAttributes = ::GetFileAttributesW(tstrPath.c_str());
        return dwAttributes == INVALID_FILE_ATTRIBUTES || !(dwAttributes & kLasting);
    };
    DWORD dwError = ERROR_SUCCESS;
    if (RetryWhileInUse(store, mayPass, patience, &dwError)) return true;
    ::SetLastError(dwError);
    return false;
}

Section ReadSection(const std::wstring& tstrPath, const std::wstring& tstrSection, const SectionGrowth& growth)
{
    // Growing step by step would read a long section a hundred times. If a section does not fit the first buffer, read
    // it with the largest size that the steps reach.
    const DWORD cchLargest =
        growth.cchFirst + (growth.cchLimit - 1 - growth.cchFirst) / growth.cchStep * growth.cchStep;
    Section section;
    for (const DWORD cch : {growth.cchFirst, cchLargest}) {
        if (cch == section.cchBuffer) break;
        section.cchBuffer = cch;
        const std::unique_ptr<wchar_t[]> buffer(new (std::nothrow) wchar_t[cch]());
        if (!buffer) {
            section.eOutcome = SectionOutcome::eNoMemory;
            section.dwError = ERROR_INVALID_HANDLE;
            return section;
        }
        ::SetLastError(ERROR_SUCCESS);
        const DWORD cchRead = ::GetPrivateProfileSectionW(tstrSection.c_str(), buffer.get(), cch, tstrPath.c_str());
        if (cchRead == 0) {
            // Some systems set no code for a missing or empty section; Windows reports a missing one.
            const DWORD dwError = ::GetLastError();
            section.dwError = dwError != ERROR_SUCCESS ? dwError : ERROR_FILE_NOT_FOUND;
            return section;
        }
        if (cchRead == cch - 2) continue;
        for (const wchar_t* sz = buffer.get(); *sz; sz += std::wcslen(sz) + 1) AddEntry(sz, section.entries);
        section.eOutcome = SectionOutcome::eRead;
        return section;
    }
    section.eOutcome = SectionOutcome::eTooLarge;
    return section;
}

}  // namespace Ini

}  // namespace KzCommon::Storage
