// A folder for the files of one test.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A new empty folder below the temporary folder; deleted with its contents, including read-only files. Names are
/// relative to it and may contain folders ("a\\b.txt").
class TempFolder {
public:
    TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder();

    /// With trailing backslash.
    [[nodiscard]] const std::wstring& Path() const noexcept { return m_tstrPath; }
    [[nodiscard]] std::wstring PathOf(std::wstring_view tstrName) const;

    /// Writes a file, even a read-only one, and the folders above it; returns its full path.
    std::wstring Write(std::wstring_view tstrName, std::string_view strBytes, unsigned long dwAttributes = 0) const;
    [[nodiscard]] unsigned long Attributes(std::wstring_view tstrName) const;
    /// Creates a folder and those above it; returns its full path with trailing backslash.
    std::wstring MakeFolder(std::wstring_view tstrName) const;
    /// A file's bytes; empty when unreadable.
    [[nodiscard]] std::optional<std::string> Read(std::wstring_view tstrName) const;
    /// Relative names of all files and folders (with trailing backslash) below it, sorted.
    [[nodiscard]] std::vector<std::wstring> List() const;

    /// Deletes its contents.
    void Clear() const;

private:
    std::wstring m_tstrPath;
};
