// A machine in memory: a run works on it without changing anything real.
#pragma once

#include "check/simulate/ChangeLog.h"
#include "check/simulate/FileTree.h"
#include "check/simulate/RegistryTree.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Check {

/// Reads through to a base machine, keeps every change in memory, and answers each request with the result and code of
/// WindowsMachine on Windows. Does not simulate access rights or files in use. Records the requests as changes, carries
/// out its own list of delayed moves, and afterwards still works like any machine.
class SimulatedMachine : public KzCommon::Machine {
public:
    /// `pBase` is only read and must outlive this machine. It may be null: the machine then contains only what is
    /// added, and drive C: with the known folders in their default places.
    explicit SimulatedMachine(const KzCommon::Machine* pBase);

    // -- the state before the run; not recorded --

    /// Adds a file with the content and, if `optAttributes` is empty, the attributes of a file of the base machine.
    void AddFileFrom(const std::wstring& tstrPath, const std::wstring& tstrReal,
                     std::optional<DWORD> optAttributes = std::nullopt);
    /// Copies a folder of the base machine with its contents over a folder. Links in it stay links. Does not check for
    /// links above it.
    void LayOver(const std::wstring& tstrFolder, const std::wstring& tstrRealFolder);
    void AddFile(const std::wstring& tstrPath, std::string_view strBytes, DWORD dwAttributes = FILE_ATTRIBUTE_ARCHIVE);
    void AddFolder(const std::wstring& tstrPath);
    /// Removes a file, or a folder with its contents.
    void RemovePath(const std::wstring& tstrPath);
    /// Makes a folder the root of its own volume.
    void AddMountPoint(const std::wstring& tstrFolder);
    /// Sets a value of any type, or removes it if `optValue` is empty.
    void SetValue(const KzCommon::RegistryPlace& place, std::optional<KzCommon::StoredValue> optValue);
    /// Removes a registry key with its contents.
    void RemoveKey(const KzCommon::RegistryPlace& place) { m_registry.RemoveKey(place); }
    /// Imports a registry file; see ReadRegistryText(), also for the result.
    std::vector<std::size_t> LoadRegistryText(std::string_view strBytes);
    void SetKnownFolder(KzCommon::KnownFolder eFolder, const std::wstring& tstrFolder);
    void SetUserProfiles(std::vector<std::wstring> folders) { m_optProfiles = std::move(folders); }
    void SetTouchpadDriverTooOld(bool bTooOld) { m_optTouchpadTooOld = bTooOld; }

    // -- the state after the run --

    /// Carries out the delayed moves and deletions in order, as Windows does at its start, and stores the results in
    /// their changes. Empties the list.
    void Restart();
    /// The recorded changes by operation, in run order. The results of the restart are only certain after Restart().
    [[nodiscard]] std::vector<PlanStep> Steps();

    /// One delayed move with full paths; without a destination the source is deleted.
    struct PendingMove {
        std::wstring tstrSource;
        std::wstring tstrDestination;
    };
    /// The list as on Windows.
    [[nodiscard]] std::vector<PendingMove> PendingMoves() const;

    /// A file's content: in a file of the base machine (of any size) or in memory.
    struct Content {
        std::wstring tstrReal;                ///< empty: use `optBytes`
        std::optional<std::string> optBytes;  ///< empty: unknown, because of edits as an INI file
    };
    /// False with the code when the file does not exist.
    [[nodiscard]] bool OpenContent(const std::wstring& tstrPath, Content& content, DWORD* pdwError) const;

    // -- Machine --

    [[nodiscard]] bool ReadValue(const KzCommon::RegistryPlace& place, KzCommon::RegistryData& data,
                                 DWORD* pdwError) const override;
    [[nodiscard]] bool ReadStored(const KzCommon::RegistryPlace& place, KzCommon::StoredValue& value,
                                  DWORD* pdwError) const override;
    [[nodiscard]] bool HasKey(const KzCommon::RegistryPlace& place) const override { return m_registry.HasKey(place); }
    [[nodiscard]] bool StoreValue(const KzCommon::RegistryPlace& place, const KzCommon::RegistryData& data,
                                  DWORD* pdwError) override;
    [[nodiscard]] bool DeleteValue(const KzCommon::RegistryPlace& place, DWORD* pdwError) override;

    [[nodiscard]] bool ReadAttributes(const std::wstring& tstrPath, DWORD& dwAttributes,
                                      DWORD* pdwError) const override;
    [[nodiscard]] bool IsLink(const std::wstring& tstrPath) const override;
    [[nodiscard]] bool LeadsThroughLink(const std::wstring& tstrFolder) const override;
    [[nodiscard]] bool ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                    const std::function<void(const KzCommon::Storage::Directory::Entry&)>& visit,
                                    DWORD* pdwError) const override;
    [[nodiscard]] bool IsSameFile(const std::wstring& tstrPath, const std::wstring& tstrOther) const override;
    [[nodiscard]] KzCommon::Volume VolumeOf(const std::wstring& tstrFolder) const override;
    [[nodiscard]] bool ReadContent(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes,
                                   DWORD* pdwError) const override;

    [[nodiscard]] bool CreateFolder(const std::wstring& tstrPath, DWORD* pdwError) override;
    [[nodiscard]] bool CopyNow(const std::wstring& tstrDestination, const std::wstring& tstrSource,
                               KzCommon::CopyMode eMode, DWORD* pdwError) override;
    [[nodiscard]] bool BackUp(const std::wstring& tstrCopy, const std::wstring& tstrSource, DWORD* pdwError) override;
    [[nodiscard]] bool LinkTo(const std::wstring& tstrName, const std::wstring& tstrFile, DWORD* pdwError) override;
    [[nodiscard]] bool MoveNow(const std::wstring& tstrSource, const std::wstring& tstrDestination,
                               DWORD* pdwError) override;
    [[nodiscard]] bool DeleteNow(const std::wstring& tstrPath, DWORD* pdwError) override;
    [[nodiscard]] bool DeleteMatchingNow(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                         DWORD* pdwError,
                                         const KzCommon::Storage::Directory::Spared& isSpared) override;
    [[nodiscard]] bool MakeWritable(const std::wstring& tstrPath, DWORD* pdwError) override;
    [[nodiscard]] bool ReplaceContent(const std::wstring& tstrPath, std::string_view strBytes,
                                      DWORD* pdwError) override;

    [[nodiscard]] bool MoveAtRestart(const std::wstring& tstrSource, const std::wstring& tstrDestination,
                                     DWORD* pdwError) override;
    [[nodiscard]] bool DeleteMatchingAtRestart(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                               DWORD* pdwError,
                                               const KzCommon::Storage::Directory::Spared& isSpared) override;
    [[nodiscard]] bool DeleteTreeAtRestart(const std::wstring& tstrFolder, DWORD* pdwError,
                                           const KzCommon::Storage::Directory::Spared& isSpared) override;

    [[nodiscard]] KzCommon::Storage::Ini::Section ReadIniSection(
        const std::wstring& tstrPath, const std::wstring& tstrSection,
        const KzCommon::Storage::Ini::SectionGrowth& growth) const override;
    [[nodiscard]] bool ReadIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                    const std::wstring& tstrKey, const std::wstring& tstrDefault,
                                    std::wstring& tstrValue, DWORD* pdwError) const override;
    [[nodiscard]] bool StoreIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                     const std::wstring& tstrKey, const std::wstring& tstrValue,
                                     KzCommon::Storage::Patience& patience, DWORD* pdwError) override;

    [[nodiscard]] std::wstring FolderOf(KzCommon::KnownFolder eFolder) const override;
    [[nodiscard]] bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError) const override;
    [[nodiscard]] bool IsTouchpadDriverTooOld() const override;
    [[nodiscard]] DWORD TickCount() const override;
    /// The user chooses Cancel.
    [[nodiscard]] bool AskAtConsole(std::wstring tstrTitle, std::wstring tstrMessage, DWORD dwStyle, bool& bAgreed,
                                    DWORD* pdwError) override;

    [[nodiscard]] bool TakesExplanations() const noexcept override { return true; }
    void BeginOperation(const wchar_t* szName) override;
    void ExplainNothing(const std::wstring& tstrReason) override { m_log.ExplainNothing(tstrReason); }
    void Explain(const std::wstring& tstrReason) override { m_log.Explain(tstrReason); }
    /// Shows the data of a registry value that stays.
    void Report(const Change& change) override;

private:
    struct Move {
        FullPath source;
        std::optional<FullPath> optDestination;  // empty: the source is deleted
        std::size_t uChange;
    };
    using PathNumbers = KzCommon::String::NoCaseMap<std::size_t>;
    using PathTexts = KzCommon::String::NoCaseMap<std::wstring>;
    using Remover = std::function<bool(const std::wstring& tstrPath, DWORD* pdwError)>;

    // SimulatedMachine.cpp
    [[nodiscard]] bool AreLongPathsOn() const;
    /// The code with which Windows refuses the path on any machine, otherwise ERROR_SUCCESS.
    [[nodiscard]] DWORD Judge(const FullPath& path, std::size_t cchLong = MAX_PATH) const;
    [[nodiscard]] Found At(const FullPath& path) const;
    [[nodiscard]] Found At(const std::wstring& tstrPath) const { return At(FullPath(tstrPath)); }
    void LayEntries(const std::wstring& tstrFolder, const std::wstring& tstrRealFolder);
    /// Adds a change, after a pending failed copy.
    std::size_t Record(Change change);
    void SettleFailedCopy();

    // SimulatedFiles.cpp
    /// Why the folder of a copy's destination cannot be locked.
    [[nodiscard]] DWORD WhyHomeNotHeld(const FullPath& destination) const;
    [[nodiscard]] DWORD TryCopyOver(const FullPath& destination, const Found& source) const;
    [[nodiscard]] DWORD TryCopyNew(const FullPath& destination, const Found& source) const;
    [[nodiscard]] DWORD WhyNotPlaced(const FullPath& destination) const;
    void PutCopy(const FullPath& destination, const Found& source);
    /// Deletes the temporary files of ended programs, as a replacement does first.
    void RemoveLeftovers(const FullPath& target);
    /// The source of a copy that the run has made; the path itself for any other file.
    [[nodiscard]] std::wstring OriginOf(const std::wstring& tstrPath) const;
    void RecordCopy(Change change, const FullPath& destination, DWORD dwCode, bool bStaging);
    [[nodiscard]] std::wstring WhyNotCopied(const std::wstring& tstrDestination, const std::wstring& tstrSource,
                                            DWORD dwCode) const;
    [[nodiscard]] DWORD TryCreateFolder(const FullPath& path);
    [[nodiscard]] std::wstring WhyNotCreated(const FullPath& path, DWORD dwCode) const;

    // SimulatedDeletions.cpp
    [[nodiscard]] DWORD WhyNotHeld(const std::wstring& tstrFolder) const;
    [[nodiscard]] DWORD TryDelete(const std::wstring& tstrPath);
    void AddDeletion(const std::wstring& tstrPath, bool bAtRestart);
    void RecordNoDeletion(const std::wstring& tstrTarget, bool bAtRestart, DWORD dwCode);
    /// Whether the file is spared; records that.
    [[nodiscard]] bool Spares(const KzCommon::Storage::Directory::Spared& isSpared, const std::wstring& tstrPath,
                              bool bAtRestart);
    [[nodiscard]] bool DeleteMatching(const std::wstring& tstrFolder, const std::wstring& tstrPattern, bool bAtRestart,
                                      DWORD* pdwError, const KzCommon::Storage::Directory::Spared& isSpared);
    [[nodiscard]] DWORD ForEachInTree(const FullPath& folder, const std::function<void(const std::wstring&)>& visit);
    [[nodiscard]] std::size_t Schedule(const FullPath& source, std::optional<FullPath> optDestination, Change change);
    void ScheduleDeletion(const std::wstring& tstrPath);

    // SimulatedRestart.cpp
    [[nodiscard]] std::wstring CarryOut(const Move& move);
    [[nodiscard]] bool IsOtherVolume(const FullPath& left, const FullPath& right) const;

    // SimulatedRegistry.cpp
    void RecordCommand(const KzCommon::StoredValue& value, DWORD dwCode);
    void RecordValue(const KzCommon::RegistryPlace& place, const KzCommon::StoredValue& value, DWORD dwCode);
    [[nodiscard]] std::wstring WhyNotWritten(const KzCommon::RegistryPlace& place, DWORD dwCode) const;

    // SimulatedIni.cpp
    [[nodiscard]] bool IsUtf16File(FileState& state) const;
    [[nodiscard]] DWORD WhyNotEditable(const FullPath& path, const Found& found) const;

    const KzCommon::Machine* m_pBase;
    FileTree m_files;
    RegistryTree m_registry;
    ChangeLog m_log;
    std::vector<Move> m_moves;
    std::vector<std::wstring> m_mountPoints;
    std::map<KzCommon::KnownFolder, std::wstring> m_knownFolders;
    std::optional<std::vector<std::wstring>> m_optProfiles;
    std::optional<bool> m_optTouchpadTooOld;
    mutable std::optional<bool> m_optLongPaths;
    mutable KzCommon::String::NoCaseMap<KzCommon::Volume> m_volumes;  // of the base machine
    PathNumbers m_made;                     // the files created by the run, with their changes
    std::optional<Change> m_optFailedCopy;  // beside a destination: another name may succeed
};

/// The text for a code in a plan.
[[nodiscard]] std::wstring DescribeRefusal(DWORD dwCode);

}  // namespace Check
