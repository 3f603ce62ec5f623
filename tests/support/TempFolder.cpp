#include "support/TempFolder.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace {

/// A path that the system uses literally: everything that a test left is read and deleted by its exact name, which
/// fs::path may interpret differently ("E:xt" as a path on drive E).
std::wstring Exactly(const std::wstring& tstrPath)
{
    return L"\\\\?\\" + tstrPath;
}

/// Adds the names of everything below the folder `tstrBelow` of `tstrHome`.
void ListBelow(const std::wstring& tstrHome, const std::wstring& tstrBelow, std::vector<std::wstring>& found)
{
    WIN32_FIND_DATAW data;
    const HANDLE hFind = ::FindFirstFileW((Exactly(tstrHome) + tstrBelow + L"*").c_str(), &data);
    if (hFind == INVALID_HANDLE_VALUE) return;
    do {
        const std::wstring_view tstrName = data.cFileName;
        if (tstrName == L"." || tstrName == L"..") continue;
        const bool bFolder = data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
        const std::wstring tstrFound = tstrBelow + data.cFileName + (bFolder ? L"\\" : L"");
        found.push_back(tstrFound);
        if (bFolder) ListBelow(tstrHome, tstrFound, found);
    } while (::FindNextFileW(hFind, &data));
    ::FindClose(hFind);
}

}  // namespace

TempFolder::TempFolder()
{
    static int s_cFolders = 0;
    const std::wstring tstrName = std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++s_cFolders);
    m_tstrPath = fs::temp_directory_path().wstring() + L"brevant-" + tstrName + L"\\";
    MakeFolder(L"");
}

TempFolder::~TempFolder()
{
    Clear();
    ::RemoveDirectoryW(Exactly(m_tstrPath).c_str());
}

void TempFolder::Clear() const
{
    const std::vector<std::wstring> left = List();
    for (auto it = left.rbegin(); it != left.rend(); ++it) {
        const std::wstring tstrLeft = Exactly(PathOf(*it));
        ::SetFileAttributesW(tstrLeft.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (!::RemoveDirectoryW(tstrLeft.c_str())) ::DeleteFileW(tstrLeft.c_str());
    }
}

std::wstring TempFolder::PathOf(std::wstring_view tstrName) const
{
    return m_tstrPath + std::wstring(tstrName);
}

std::wstring TempFolder::Write(std::wstring_view tstrName, std::string_view strBytes, DWORD dwAttributes) const
{
    const fs::path path(PathOf(tstrName));
    fs::create_directories(path.parent_path());
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    std::ofstream file(path, std::ios::binary);
    file << strBytes;
    EXPECT_TRUE(file.flush()) << path;
    file.close();
    if (dwAttributes) ::SetFileAttributesW(path.c_str(), dwAttributes);
    return path.wstring();
}

DWORD TempFolder::Attributes(std::wstring_view tstrName) const
{
    return ::GetFileAttributesW(PathOf(tstrName).c_str());
}

std::wstring TempFolder::MakeFolder(std::wstring_view tstrName) const
{
    const std::wstring tstrPath = PathOf(tstrName);
    fs::create_directories(tstrPath);
    EXPECT_TRUE(fs::is_directory(tstrPath)) << fs::path(tstrPath);
    return tstrPath.ends_with(L'\\') ? tstrPath : tstrPath + L'\\';
}

std::optional<std::string> TempFolder::Read(std::wstring_view tstrName) const
{
    std::ifstream file(fs::path(PathOf(tstrName)), std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::wstring> TempFolder::List() const
{
    std::vector<std::wstring> found;
    ListBelow(m_tstrPath, L"", found);
    std::sort(found.begin(), found.end());
    return found;
}
