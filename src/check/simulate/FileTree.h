// The files and folders of a machine in memory, layered over a base machine.
#pragma once

#include "check/simulate/FullPath.h"
#include "common/KzComn_Machine.h"
#include "common/KzComn_String.h"

#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace Check {

/// The edits of an INI file: values as in its lines, by section and key.
using IniEdits = KzCommon::String::NoCaseMap<KzCommon::String::NoCaseMap<std::wstring>>;

/// Content and attributes of a file, shared by all of its names.
struct FileState {
    std::wstring tstrReal{};                ///< the base machine's file with the content; empty for none
    std::optional<std::string> optBytes{};  ///< the content without `tstrReal`; empty when unknown
    std::optional<DWORD> optAttributes{};   ///< empty: those of `tstrReal`
    IniEdits edits{};                       ///< later writes to it as an INI file
    std::optional<bool> optUtf16{};         ///< its encoding as an INI file, once known
};

/// The object at a path.
struct Found {
    enum class Kind { eNone, eFile, eFolder };
    Kind eKind = Kind::eNone;
    DWORD dwError = ERROR_SUCCESS;        ///< for eNone: the Win32 code
    DWORD dwAttributes = 0;               ///< for the others
    std::wstring tstrReal{};              ///< its path on the base machine; empty when it is only in memory
    std::shared_ptr<FileState> pState{};  ///< for a file; null for one of the base machine
    [[nodiscard]] bool IsFile() const noexcept { return eKind == Kind::eFile; }
    [[nodiscard]] bool IsFolder() const noexcept { return eKind == Kind::eFolder; }
};

/// Changes only itself. Paths are valid FullPath objects (without an error).
class FileTree {
public:
    /// `pBase` may be null (no base machine); otherwise it must outlive the tree.
    explicit FileTree(const KzCommon::Machine* pBase) noexcept : m_pBase(pBase) {}

    /// The object at a path. ERROR_FILE_NOT_FOUND (2), ERROR_PATH_NOT_FOUND (3), or the base machine's code.
    [[nodiscard]] Found Find(const FullPath& path) const;
    /// Machine::ForEachEntry(), including entries changed in the tree.
    [[nodiscard]] bool List(const FullPath& folder, const std::wstring& tstrPattern,
                            const std::function<void(const KzCommon::Storage::Directory::Entry&)>& visit,
                            DWORD* pdwError) const;
    /// Whether a folder is empty.
    [[nodiscard]] bool IsEmpty(const FullPath& folder) const;
    /// Machine::IsLink() and LeadsThroughLink(). Links exist only on the base machine.
    [[nodiscard]] bool IsLink(const FullPath& path) const;
    [[nodiscard]] bool LeadsThroughLink(const FullPath& folder) const;

    /// Puts a file or folder at a path and creates missing parent folders. An existing folder keeps its entries. If the
    /// folder is a link, `tstrReal` is its target on the base machine.
    void PutFile(const FullPath& path, std::shared_ptr<FileState> pState);
    void PutFolder(const FullPath& path, std::wstring tstrReal = {});
    /// Removes a file, or a folder with its contents.
    void Remove(const FullPath& path);
    /// The state of an existing file, for changes.
    [[nodiscard]] std::shared_ptr<FileState> Own(const FullPath& path);

private:
    struct Node {
        enum class Kind { eThrough, eFile, eFolder, eGone };
        Kind eKind = Kind::eThrough;  // eThrough: as on the base machine, except for its children
        bool bAlone = false;          // for a folder: it has no entries from the base machine
        std::wstring tstrName{};      // original spelling
        std::wstring tstrReal{};      // its path on the base machine, if different
        std::shared_ptr<FileState> pState{};
        KzCommon::String::NoCaseMap<std::unique_ptr<Node>> children{};
    };
    /// How far the tree knows a path.
    struct Step {
        const Node* pNode = nullptr;  // null: the tree does not know it
        std::wstring tstrReal;        // the path on the base machine; empty when it cannot exist there
        DWORD dwError = ERROR_SUCCESS;
    };

    /// What the base machine has answered about the entries of one of its folders.
    struct BaseFolder {
        struct Answer {
            DWORD dwAttributes = 0;
            DWORD dwError = ERROR_SUCCESS;
        };
        std::size_t cAsked = 0;
        bool bListed = false;  // every entry is in `answers`
        KzCommon::String::NoCaseMap<Answer> answers{};
    };

    [[nodiscard]] Step Walk(const FullPath& path) const;
    [[nodiscard]] Found AskBase(const std::wstring& tstrReal) const;
    [[nodiscard]] BaseFolder::Answer AnswerOf(const std::wstring& tstrReal) const;
    void ListBase(const std::wstring& tstrFolder, BaseFolder& folder) const;
    [[nodiscard]] Found DescribeFile(const std::shared_ptr<FileState>& pState) const;
    /// Whether a pattern matches an entry that the base machine did not list in its folder `tstrReal`. For names that
    /// exist there, the base machine has already checked the short names, too.
    [[nodiscard]] bool MatchesInMemory(const Node& node, const std::wstring& tstrPattern,
                                       const std::wstring& tstrReal) const;
    /// The node of a path; creates missing nodes.
    [[nodiscard]] Node& Make(const FullPath& path);

    const KzCommon::Machine* m_pBase;
    KzCommon::String::NoCaseMap<Node> m_roots;
    // The base machine does not change meanwhile.
    mutable KzCommon::String::NoCaseMap<BaseFolder> m_baseFolders;
};

}  // namespace Check
