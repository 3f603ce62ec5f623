// The machine of a run: everything that the run reads or changes, behind one interface.
//
// The product's code requests every value, file, folder, INI key and change from a Machine. WindowsMachine carries the
// requests out; other machines answer them from memory, so that a run can be predicted without changing anything.
// Retries, rights and locked folders are handled inside the machine.
#pragma once

#include "common/KzComn_Change.h"
#include "common/KzComn_File.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Registry.h"

#include <windows.h>

#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace KzCommon {

/// The location of a registry value. The unnamed value of a key has an empty name.
struct RegistryPlace {
    std::wstring tstrKeyPath;
    std::wstring tstrName;
    DWORD dwView = Storage::eViewDefault;
    HKEY hRoot = HKEY_LOCAL_MACHINE;
};

/// The data of a registry value of type REG_SZ, REG_DWORD or REG_QWORD.
using RegistryData = std::variant<std::wstring, DWORD, ULONGLONG>;

/// A registry value of any type in its stored form.
struct StoredValue {
    DWORD dwType = REG_NONE;
    std::string strBytes;
    bool operator==(const StoredValue&) const = default;
};

/// Folders of a machine that do not depend on the product.
enum class KnownFolder {
    eWindows,
    eSystem,
    eCommonAppData,
    eProgram  ///< the folder of the running program
};

/// How a file is copied now.
enum class CopyMode {
    eOverwrite,    ///< replaces an existing file
    eNew,          ///< an existing file is an error
    eNewImmediate  ///< likewise, without waiting for a file in use
};

/// The volume of a folder.
struct Volume {
    std::wstring tstrMountPoint;    ///< with trailing backslash; empty on failure
    DWORD dwError = ERROR_SUCCESS;  ///< the Win32 code of the failure
};

/// Operations that can fail return false with the Win32 code in `*pdwError`, which may be null. Folder texts have a
/// trailing backslash unless stated otherwise. Nothing is thrown except std::bad_alloc.
class Machine {
public:
    Machine() = default;
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    virtual ~Machine() = default;

    // -- registry --

    /// Reads a value of the type that `data` contains on entry; `data` is unchanged on failure.
    [[nodiscard]] virtual bool ReadValue(const RegistryPlace& place, RegistryData& data, DWORD* pdwError) const = 0;
    /// Reads a value of any type. Storage::Reg::ReadStored().
    [[nodiscard]] virtual bool ReadStored(const RegistryPlace& place, StoredValue& value, DWORD* pdwError) const = 0;
    /// Whether the key of a place exists, even if it is unreadable. Storage::Reg::HasKey().
    [[nodiscard]] virtual bool HasKey(const RegistryPlace& place) const = 0;
    /// Writes a value of the type that `data` contains; creates the key.
    [[nodiscard]] virtual bool StoreValue(const RegistryPlace& place, const RegistryData& data, DWORD* pdwError) = 0;
    /// Deletes a value.
    [[nodiscard]] virtual bool DeleteValue(const RegistryPlace& place, DWORD* pdwError) = 0;

    // -- files and folders, read --

    /// Reads the attributes of a file or folder.
    [[nodiscard]] virtual bool ReadAttributes(const std::wstring& tstrPath, DWORD& dwAttributes,
                                              DWORD* pdwError) const = 0;
    /// Storage::Directory::IsLink().
    [[nodiscard]] virtual bool IsLink(const std::wstring& tstrPath) const = 0;
    /// Storage::Directory::ForEachEntry().
    [[nodiscard]] virtual bool ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                            const std::function<void(const Storage::Directory::Entry&)>& visit,
                                            DWORD* pdwError) const = 0;
    /// Whether two paths refer to the same file.
    [[nodiscard]] virtual bool IsSameFile(const std::wstring& tstrPath, const std::wstring& tstrOther) const = 0;
    /// The volume of a folder. GetVolumePathNameW.
    [[nodiscard]] virtual Volume VolumeOf(const std::wstring& tstrFolder) const = 0;
    /// Storage::File::ReadWhole().
    [[nodiscard]] virtual bool ReadContent(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes,
                                           DWORD* pdwError) const = 0;

    /// Storage::Directory::LeadsThroughLink().
    [[nodiscard]] virtual bool LeadsThroughLink(const std::wstring& tstrFolder) const = 0;

    // -- files and folders, changed at once --

    /// Storage::Directory::Create().
    [[nodiscard]] virtual bool CreateFolder(const std::wstring& tstrPath, DWORD* pdwError) = 0;
    /// Storage::File::Copy().
    [[nodiscard]] virtual bool CopyNow(const std::wstring& tstrDestination, const std::wstring& tstrSource,
                                       CopyMode eMode, DWORD* pdwError) = 0;
    /// Storage::File::Backup().
    [[nodiscard]] virtual bool BackUp(const std::wstring& tstrCopy, const std::wstring& tstrSource,
                                      DWORD* pdwError) = 0;
    /// Creates a second name for a file. CreateHardLinkW.
    [[nodiscard]] virtual bool LinkTo(const std::wstring& tstrName, const std::wstring& tstrFile, DWORD* pdwError) = 0;
    /// Moves a file to an unused path; waits while it is in use. MoveFileExW.
    [[nodiscard]] virtual bool MoveNow(const std::wstring& tstrSource, const std::wstring& tstrDestination,
                                       DWORD* pdwError) = 0;
    /// Storage::File::Delete().
    [[nodiscard]] virtual bool DeleteNow(const std::wstring& tstrPath, DWORD* pdwError) = 0;
    /// Storage::Directory::DeleteFiles().
    [[nodiscard]] virtual bool DeleteMatchingNow(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                                 DWORD* pdwError, const Storage::Directory::Spared& isSpared) = 0;
    /// Storage::File::MakeWritable().
    [[nodiscard]] virtual bool MakeWritable(const std::wstring& tstrPath, DWORD* pdwError) = 0;
    /// Storage::File::ReplaceWhole().
    [[nodiscard]] virtual bool ReplaceContent(const std::wstring& tstrPath, std::string_view strBytes,
                                              DWORD* pdwError) = 0;

    // -- files and folders, changed at the restart --

    /// Storage::File::MoveAtRestart().
    [[nodiscard]] virtual bool MoveAtRestart(const std::wstring& tstrSource, const std::wstring& tstrDestination,
                                             DWORD* pdwError) = 0;
    /// Storage::Directory::ScheduleDeleteFiles().
    [[nodiscard]] virtual bool DeleteMatchingAtRestart(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                                       DWORD* pdwError, const Storage::Directory::Spared& isSpared) = 0;
    /// Storage::Directory::ScheduleDeleteTree().
    [[nodiscard]] virtual bool DeleteTreeAtRestart(const std::wstring& tstrFolder, DWORD* pdwError,
                                                   const Storage::Directory::Spared& isSpared) = 0;

    // -- INI files --

    /// Storage::Ini::ReadSection(), waiting while the file is in use.
    [[nodiscard]] virtual Storage::Ini::Section ReadIniSection(const std::wstring& tstrPath,
                                                               const std::wstring& tstrSection,
                                                               const Storage::Ini::SectionGrowth& growth) const = 0;
    /// Reads a value into `tstrValue`, or `tstrDefault` when file, section or key is missing. False when the file
    /// exists and stays in use.
    [[nodiscard]] virtual bool ReadIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                            const std::wstring& tstrKey, const std::wstring& tstrDefault,
                                            std::wstring& tstrValue, DWORD* pdwError) const = 0;
    /// Storage::Ini::StoreValue().
    [[nodiscard]] virtual bool StoreIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                             const std::wstring& tstrKey, const std::wstring& tstrValue,
                                             Storage::Patience& patience, DWORD* pdwError) = 0;

    // -- other operations --

    /// With trailing backslash; empty when unknown.
    [[nodiscard]] virtual std::wstring FolderOf(KnownFolder eFolder) const = 0;
    /// Process::EnumUserProfileFolders().
    [[nodiscard]] virtual bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError) const = 0;
    /// QorCommon::IsETDExistAndDriverNotUpToDate().
    [[nodiscard]] virtual bool IsTouchpadDriverTooOld() const = 0;
    /// Milliseconds since the system start. GetTickCount.
    [[nodiscard]] virtual DWORD TickCount() const = 0;
    /// Shows a question with the buttons OK and Cancel in a console session and sets `bAgreed` if the user chooses OK.
    /// Detaches the program from its console. ERROR_NO_SUCH_LOGON_SESSION (1312) when the console has no session.
    /// WTSSendMessageW.
    [[nodiscard]] virtual bool AskAtConsole(std::wstring tstrTitle, std::wstring tstrMessage, DWORD dwStyle,
                                            bool& bAgreed, DWORD* pdwError) = 0;

    // -- for machines that predict a run: explanations that the requests do not contain --

    /// Whether the machine keeps explanations; for others none has to be found.
    [[nodiscard]] virtual bool TakesExplanations() const noexcept { return false; }
    /// Starts an operation of the run; `szName` as in traces, without class and parentheses. The following changes
    /// belong to it.
    virtual void BeginOperation(const wchar_t* /*szName*/) {}
    /// Explains why the current operation does nothing.
    virtual void ExplainNothing(const std::wstring& /*tstrReason*/) {}
    /// Adds a remark to the following request.
    virtual void Explain(const std::wstring& /*tstrReason*/) {}
    /// Reports a change without its own request: one that is refused or skipped, or part of a larger request.
    virtual void Report(const Change& /*change*/) {}

    // -- helpers --

    /// Whether the path is a file (not a folder); codes as for Storage::File::IsExisted().
    [[nodiscard]] bool HasFile(const std::wstring& tstrPath, DWORD* pdwError = nullptr) const;
    /// Whether the path is a folder, with or without trailing backslash.
    [[nodiscard]] bool HasFolder(const std::wstring& tstrPath) const;
    /// Whether the path exists.
    [[nodiscard]] bool HasAny(const std::wstring& tstrPath) const;
};

}  // namespace KzCommon
