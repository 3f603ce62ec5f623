// The files and folders of a machine in memory, over those of another machine.
#pragma once

#include "check/simulate/FullPath.h"
#include "common/KzComn_Machine.h"
#include "common/KzComn_String.h"

#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace Check {

/// The edits of an INI file: values as its lines have them, by section and key.
using IniEdits = KzCommon::String::NoCaseMap<KzCommon::String::NoCaseMap<std::wstring>>;

/// Content and attributes of a file, which all of its names share.
struct FileState {
    std::wstring tstrReal{};                ///< the file of the machine below that has the content; empty for none
    std::optional<std::string> optBytes{};  ///< the content without it; nothing when the content is not known
    std::optional<DWORD> optAttributes{};   ///< nothing: those of `tstrReal`
    IniEdits edits{};                       ///< what was written into it as an INI file since
    std::optional<bool> optUtf16{};         ///< its encoding as an INI file, once it is known
};

/// What is at a path.
struct Found {
    enum class Kind { eNone, eFile, eFolder };
    Kind eKind = Kind::eNone;
    DWORD dwError = ERROR_SUCCESS;        ///< of eNone: the Win32 code
    DWORD dwAttributes = 0;               ///< of the others
    std::wstring tstrReal{};              ///< its path on the machine below; empty when it is in memory only
    std::shared_ptr<FileState> pState{};  ///< of a file; null for one of the machine below
    [[nodiscard]] bool IsFile() const noexcept { return eKind == Kind::eFile; }
    [[nodiscard]] bool IsFolder() const noexcept { return eKind == Kind::eFolder; }
};

/// Changes nothing but itself. Paths are those of FullPath, without error.
class FileTree {
public:
    /// `pBase` may be null: there is no machine below. It must outlive the tree.
    explicit FileTree(const KzCommon::Machine* pBase) noexcept : m_pBase(pBase) {}

    /// What is at a path. ERROR_FILE_NOT_FOUND (2), ERROR_PATH_NOT_FOUND (3), or the code of the machine below.
    [[nodiscard]] Found Find(const FullPath& path) const;
    /// Machine::ForEachEntry(), entries that the tree has changed included.
    [[nodiscard]] bool List(const FullPath& folder, const std::wstring& tstrPattern,
                            const std::function<void(const KzCommon::Storage::Directory::Entry&)>& visit,
                            DWORD* pdwError) const;
    /// Whether a folder has no entry.
    [[nodiscard]] bool IsEmpty(const FullPath& folder) const;
    /// Machine::IsLink() and LeadsThroughLink(). Links exist on the machine below only.
    [[nodiscard]] bool IsLink(const FullPath& path) const;
    [[nodiscard]] bool LeadsThroughLink(const FullPath& folder) const;

    /// Puts a file or a folder at a path, whose folders above are made too. A folder that exists keeps its entries;
    /// `tstrReal` is the folder of the machine below that it is another place of, when that is a link.
    void PutFile(const FullPath& path, std::shared_ptr<FileState> pState);
    void PutFolder(const FullPath& path, std::wstring tstrReal = {});
    /// Takes away a file, or a folder with all it holds.
    void Remove(const FullPath& path);
    /// The state of an existing file, to be changed.
    [[nodiscard]] std::shared_ptr<FileState> Own(const FullPath& path);

private:
    struct Node {
        enum class Kind { eThrough, eFile, eFolder, eGone };
        Kind eKind = Kind::eThrough;  // eThrough: as on the machine below, but for what is below it
        bool bAlone = false;          // of a folder: the machine below has no entries of it
        std::wstring tstrName{};      // as it was spelled
        std::wstring tstrReal{};      // where the machine below has it, when not at the same path
        std::shared_ptr<FileState> pState{};
        KzCommon::String::NoCaseMap<std::unique_ptr<Node>> children{};
    };
    /// How far the tree knows a path.
    struct Step {
        const Node* pNode = nullptr;  // null: the tree does not know it
        std::wstring tstrReal;        // the path on the machine below; empty when it cannot be there
        DWORD dwError = ERROR_SUCCESS;
    };

    [[nodiscard]] Step Walk(const FullPath& path) const;
    [[nodiscard]] Found AskBase(const std::wstring& tstrReal) const;
    [[nodiscard]] Found DescribeFile(const std::shared_ptr<FileState>& pState) const;
    /// Whether a pattern takes an entry that the machine below did not list in its folder `tstrReal`. Of a name that it
    /// has, it knows the short name, too, and has answered.
    [[nodiscard]] bool MatchesInMemory(const Node& node, const std::wstring& tstrPattern,
                                       const std::wstring& tstrReal) const;
    /// The node of a path, made where it is missing, with those above it.
    [[nodiscard]] Node& Make(const FullPath& path);

    const KzCommon::Machine* m_pBase;
    KzCommon::String::NoCaseMap<Node> m_roots;
    // What the machine below has said: it does not change meanwhile.
    mutable KzCommon::String::NoCaseMap<std::pair<DWORD, DWORD>> m_asked;
};

}  // namespace Check
