// What lies on this machine, as it will be at some moment of a run that is only planned.
#pragma once

#include "agent/RegistryPatch.h"
#include "check/Instructions.h"
#include "check/Update.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Check {

/// A registry value as it is shown.
struct HeldValue {
    DWORD dwType = REG_NONE;
    std::wstring tstrText;
    bool operator==(const HeldValue&) const = default;
};

/// Files, folders and registry values: what is there now, the update laid over the installed folder, and what the plan
/// has noted since. Paths are full; those of the update are the ones that its files have then. Nothing is changed.
class Forecast {
public:
    /// Both folders with trailing backslash; they may be the same.
    Forecast(std::wstring tstrUpdateDir, std::wstring tstrInstalledDir);

    /// Where a path of the installed folder is read now: in the update, where that has it. GetFileAttributesW.
    [[nodiscard]] std::wstring PlaceNow(const std::wstring& tstrPath) const;
    /// The path that a file of the update has then.
    [[nodiscard]] std::wstring PlaceThen(const std::wstring& tstrPath) const;

    [[nodiscard]] bool HasFile(const std::wstring& tstrPath) const;
    [[nodiscard]] bool HasFolder(const std::wstring& tstrPath) const;
    /// Whether a file is there and cannot be copied over. GetFileAttributesW.
    [[nodiscard]] bool IsReadOnly(const std::wstring& tstrPath) const;
    /// Why it is unknown whether a folder exists, as a Win32 code; ERROR_SUCCESS where it is known.
    /// GetFileAttributesW.
    [[nodiscard]] DWORD WhyUnknown(const std::wstring& tstrPath) const;
    /// The files of a folder (with trailing backslash) that match a pattern. When the caller may not list it, the code
    /// in `dwError`, which stays as it is otherwise; a folder that is missing has no files. FindFirstFileW.
    [[nodiscard]] std::vector<std::wstring> FilesIn(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                                    DWORD& dwError) const;
    /// Those of them that were noted, and not there before.
    [[nodiscard]] std::vector<std::wstring> AddedFilesIn(const std::wstring& tstrFolder,
                                                         const std::wstring& tstrPattern) const;
    /// Files and folders of a tree, contents first, the folder last; without trailing backslashes. When the caller may
    /// not list one of them, the code in `dwError`, which stays as it is otherwise. FindFirstFileW.
    [[nodiscard]] std::vector<std::wstring> Tree(const std::wstring& tstrFolder, DWORD& dwError) const;

    void AddFile(const std::wstring& tstrPath);
    void RemoveFile(const std::wstring& tstrPath);
    /// Adds those above it, too.
    void AddFolder(const std::wstring& tstrPath);

    /// A value below HKEY_LOCAL_MACHINE; nothing when it is not there. RegQueryValueExW.
    [[nodiscard]] std::optional<HeldValue> Value(const std::wstring& tstrKeyPath, const std::wstring& tstrName) const;
    /// A text among the product's values, or the default.
    [[nodiscard]] std::wstring ProductText(const wchar_t* szName, const wchar_t* szDefault) const;
    /// IsValueThere() at this moment.
    [[nodiscard]] bool LeavesAlone(const RegistryRecord& record) const;
    /// Notes a value that is written, or, without one, deleted.
    void SetValue(const std::wstring& tstrKeyPath, const std::wstring& tstrName, std::optional<HeldValue> optValue);

private:
    using ValueKey = std::pair<std::wstring, std::wstring>;

    /// INVALID_FILE_ATTRIBUTES, with every bit set, when there is nothing. Each path is asked for once: nothing changes
    /// meanwhile. GetFileAttributesW.
    [[nodiscard]] DWORD AttributesNow(const std::wstring& tstrPath) const;
    [[nodiscard]] const std::optional<HeldValue>* Noted(const std::wstring& tstrKeyPath,
                                                        const std::wstring& tstrName) const;

    std::wstring m_tstrUpdateDir;
    std::wstring m_tstrInstalledDir;
    // By their names in small letters.
    std::map<std::wstring, std::wstring> m_files;
    std::map<std::wstring, std::wstring> m_folders;
    std::set<std::wstring> m_gone;
    mutable std::map<std::wstring, DWORD> m_attributes;
    std::map<ValueKey, std::optional<HeldValue>> m_values;
};

/// The value that a record writes.
[[nodiscard]] HeldValue ValueOf(const RegistryRecord& record);

}  // namespace Check
