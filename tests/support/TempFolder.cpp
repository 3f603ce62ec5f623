#include "support/TempFolder.h"

#include "common/KzComn_File.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

using namespace KzCommon::Storage;

namespace {

/// Every entry below a folder, relative to it, folders after what they hold; links are not followed.
void Walk(const std::wstring& tstrRoot, const std::wstring& tstrBelow, std::vector<std::wstring>& found)
{
    std::vector<Directory::Entry> entries;
    const auto gather = [&](const Directory::Entry& entry) {
        entries.push_back(entry);
    };
    static_cast<void>(Directory::ForEachEntry(tstrRoot + tstrBelow, L"*", gather, nullptr));
    for (const Directory::Entry& entry : entries) {
        const std::wstring tstrPath = tstrBelow + entry.tstrName + (entry.bFolder ? L"\\" : L"");
        if (entry.bFolder && !entry.bLink) Walk(tstrRoot, tstrPath, found);
        found.push_back(tstrPath);
    }
}

}  // namespace

TempFolder::TempFolder()
{
    static int s_cFolders = 0;
    const std::wstring tstrName = std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++s_cFolders);
    m_tstrPath = std::filesystem::temp_directory_path().wstring() + L"brevant-" + tstrName + L"\\";
    MakeFolder(L"");
}

TempFolder::~TempFolder()
{
    std::vector<std::wstring> found;
    Walk(m_tstrPath, L"", found);
    found.push_back(L"");
    for (const std::wstring& tstrName : found) {
        std::wstring tstrPath = PathOf(tstrName);
        ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (tstrPath.back() == L'\\') {
            ::RemoveDirectoryW(tstrPath.c_str());
        } else {
            ::DeleteFileW(tstrPath.c_str());
        }
    }
}

std::wstring TempFolder::PathOf(std::wstring_view tstrName) const
{
    return m_tstrPath + std::wstring(tstrName);
}

std::wstring TempFolder::Write(std::wstring_view tstrName, std::string_view strBytes) const
{
    const std::filesystem::path path(PathOf(tstrName));
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << strBytes;
    EXPECT_TRUE(file.flush()) << path;
    return path.wstring();
}

std::wstring TempFolder::MakeFolder(std::wstring_view tstrName) const
{
    const std::filesystem::path path(PathOf(tstrName));
    std::filesystem::create_directories(path);
    EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
    return path.wstring() + (path.wstring().ends_with(L'\\') ? L"" : L"\\");
}

std::optional<std::string> TempFolder::Read(std::wstring_view tstrName) const
{
    std::ifstream file(std::filesystem::path(PathOf(tstrName)), std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

std::vector<std::wstring> TempFolder::List() const
{
    std::vector<std::wstring> found;
    Walk(m_tstrPath, L"", found);
    std::sort(found.begin(), found.end());
    return found;
}
