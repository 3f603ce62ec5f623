// The machine that a run works on: everything that the run reads or changes, behind one interface.
//
// The product's code asks a Machine for every value, file, folder and INI key, and tells it every change.
// WindowsMachine carries the requests out; other machines answer them from memory, so that a run can be predicted
// without touching anything. What a single request needs to succeed (retries, rights, locked folders) is inside the
// machine.
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

/// Where a registry value is. The unnamed value of a key has an empty name.
struct RegistryPlace {
    std::wstring tstrKeyPath;
    std::wstring tstrName;
    DWORD dwView = Storage::eViewDefault;
    HKEY hRoot = HKEY_LOCAL_MACHINE;
};

/// The data of a registry value of type REG_SZ, REG_DWORD or REG_QWORD.
using RegistryData = std::variant<std::wstring, DWORD, ULONGLONG>;

/// A registry value of any type as it is stored.
struct StoredValue {
    DWORD dwType = REG_NONE;
    std::string strBytes;
    bool operator==(const StoredValue&) const = default;
};

/// The folders of a machine that do not depend on the product.
enum class KnownFolder {
    eWindows,
    eSystem,
    eCommonAppData,
    eProgram  ///< the folder of the running program
};

/// How a file is copied at once.
enum class CopyMode {
    eOverwrite,    ///< an existing file is replaced
    eNew,          ///< an existing file is an error
    eNewImmediate  ///< the same; a file in use is not waited for
};

/// What the system says of the volume that a folder is on.
struct Volume {
    std::wstring tstrMountPoint;    ///< with trailing backslash; empty when the question failed
    DWORD dwError = ERROR_SUCCESS;  ///< its Win32 code
};

/// All operations that report a failure return false with the Win32 code in `*pdwError`, which may be null. Folder
/// texts have a trailing backslash unless said otherwise. Nothing is thrown but std::bad_alloc.
class Machine {
public:
    Machine() = default;
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;
    virtual ~Machine() = default;

    // -- registry --

    /// Reads a value of the type that `data` has when it is passed; `data` keeps its content on failure.
    [[nodiscard]] virtual bool ReadValue(const RegistryPlace& place, RegistryData& data, DWORD* pdwError) const = 0;
    /// Reads a value of any type. Storage::Reg::ReadStored().
    [[nodiscard]] virtual bool ReadStored(const RegistryPlace& place, StoredValue& value, DWORD* pdwError) const = 0;
    /// Whether the key of a place exists, one that may not be read included. Storage::Reg::HasKey().
    [[nodiscard]] virtual bool HasKey(const RegistryPlace& place) const = 0;
    /// Writes a value of the type that `data` has; creates the key.
    [[nodiscard]] virtual bool StoreValue(const RegistryPlace& place, const RegistryData& data, DWORD* pdwError) = 0;
    /// Deletes a value.
    [[nodiscard]] virtual bool DeleteValue(const RegistryPlace& place, DWORD* pdwError) = 0;

    // -- files and folders, read --

    /// The attributes of a file or folder.
    [[nodiscard]] virtual bool ReadAttributes(const std::wstring& tstrPath, DWORD& dwAttributes,
                                              DWORD* pdwError) const = 0;
    /// Storage::Directory::IsLink().
    [[nodiscard]] virtual bool IsLink(const std::wstring& tstrPath) const = 0;
    /// Storage::Directory::ForEachEntry().
    [[nodiscard]] virtual bool ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                            const std::function<void(const Storage::Directory::Entry&)>& visit,
                                            DWORD* pdwError) const = 0;
    /// Whether two paths are names of one file.
    [[nodiscard]] virtual bool IsSameFile(const std::wstring& tstrPath, const std::wstring& tstrOther) const = 0;
    /// The volume that a folder is on. GetVolumePathNameW.
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
    /// Gives a file a second name. CreateHardLinkW.
    [[nodiscard]] virtual bool LinkTo(const std::wstring& tstrName, const std::wstring& tstrFile, DWORD* pdwError) = 0;
    /// Moves a file to a path that is free; waits while it is in use. MoveFileExW.
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

    /// Storage::Ini::ReadSection(), which waits while the file is in use.
    [[nodiscard]] virtual Storage::Ini::Section ReadIniSection(const std::wstring& tstrPath,
                                                               const std::wstring& tstrSection,
                                                               const Storage::Ini::SectionGrowth& growth) const = 0;
    /// Reads a value into `tstrValue`, `tstrDefault` where file, section or key is missing. False for a file that
    /// exists and stays in use.
    [[nodiscard]] virtual bool ReadIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                            const std::wstring& tstrKey, const std::wstring& tstrDefault,
                                            std::wstring& tstrValue, DWORD* pdwError) const = 0;
    /// Storage::Ini::StoreValue().
    [[nodiscard]] virtual bool StoreIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                             const std::wstring& tstrKey, const std::wstring& tstrValue,
                                             Storage::Patience& patience, DWORD* pdwError) = 0;

    // -- the rest --

    /// With trailing backslash; empty when it is not known.
    [[nodiscard]] virtual std::wstring FolderOf(KnownFolder eFolder) const = 0;
    /// Process::EnumUserProfileFolders().
    [[nodiscard]] virtual bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError) const = 0;
    /// QorCommon::IsETDExistAndDriverNotUpToDate().
    [[nodiscard]] virtual bool IsTouchpadDriverTooOld() const = 0;
    /// Milliseconds since the system started. GetTickCount.
    [[nodiscard]] virtual DWORD TickCount() const = 0;
    /// Shows a question with the buttons OK and Cancel in a console session; `bAgreed` says whether the user chose OK.
    /// Detaches the program from its own console. ERROR_NO_SUCH_LOGON_SESSION (1312) when no session is attached to the
    /// console. WTSSendMessageW.
    [[nodiscard]] virtual bool AskAtConsole(std::wstring tstrTitle, std::wstring tstrMessage, DWORD dwStyle,
                                            bool& bAgreed, DWORD* pdwError) = 0;

    // -- for machines that predict a run: an operation says what its requests alone do not tell --

    /// An operation of the run begins; `szName` as traces name it, without class and parentheses. The changes that
    /// follow belong to it.
    virtual void BeginOperation(const wchar_t* /*szName*/) {}
    /// Why the operation that has begun does nothing.
    virtual void ExplainNothing(const std::wstring& /*tstrReason*/) {}
    /// What else is worth knowing about the request that follows.
    virtual void Explain(const std::wstring& /*tstrReason*/) {}
    /// A change without a request of its own: one that is refused or left out, or part of a larger request.
    virtual void Report(const Change& /*change*/) {}

    // -- short forms --

    /// Whether a file (not a folder) is at that path; the codes of Storage::File::IsExisted().
    [[nodiscard]] bool HasFile(const std::wstring& tstrPath, DWORD* pdwError = nullptr) const;
    /// Whether a folder is at that path, with or without trailing backslash.
    [[nodiscard]] bool HasFolder(const std::wstring& tstrPath) const;
    /// Whether anything is at that path.
    [[nodiscard]] bool HasAny(const std::wstring& tstrPath) const;
};

}  // namespace KzCommon
