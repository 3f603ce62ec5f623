#include "support/TempFolder.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

TempFolder::TempFolder()
{
    static int s_cFolders = 0;
    const std::wstring tstrName = std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++s_cFolders);
    m_tstrPath = fs::temp_directory_path().wstring() + L"brevant-" + tstrName + L"\\";
    MakeFolder(L"");
}

TempFolder::~TempFolder()
{
    for (const std::wstring& tstrName : List()) ::SetFileAttributesW(PathOf(tstrName).c_str(), FILE_ATTRIBUTE_NORMAL);
    std::error_code ignored;
    fs::remove_all(m_tstrPath, ignored);
}

std::wstring TempFolder::PathOf(std::wstring_view tstrName) const
{
    return m_tstrPath + std::wstring(tstrName);
}

std::wstring TempFolder::Write(std::wstring_view tstrName, std::string_view strBytes) const
{
    const fs::path path(PathOf(tstrName));
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << strBytes;
    EXPECT_TRUE(file.flush()) << path;
    return path.wstring();
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
    std::error_code error;  // a name that cannot be read ends the list
    for (fs::recursive_directory_iterator it(m_tstrPath, error), end; it != end; it.increment(error)) {
        found.push_back(it->path().wstring().substr(m_tstrPath.size()) + (it->is_directory(error) ? L"\\" : L""));
    }
    std::sort(found.begin(), found.end());
    return found;
}
